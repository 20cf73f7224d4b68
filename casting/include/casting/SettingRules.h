// What the settings store accepts for the values people type: shared by the
// settings window and zelvanor-cli so that both refuse the same things.
#pragma once

#include <string>

namespace zv::settings {

// A dotted IPv4 address, or an empty text (meaning "none"). Two passes: the
// whole text must match the dotted-quad pattern, then a walk over its
// segments refuses leading zeros ("01"), values over 255 and stray dots.
bool isIPAddressValid(const char* text);

// A host name as the settings window lets it be typed: 1 to 20 characters,
// no control character, space or ASCII punctuation other than '_'.
bool isHostNameValid(const std::string& name);

// Checks value for the store's column name; empty when it may be written,
// else why not. Unknown names are refused too.
std::string checkSetting(const std::string& name, const std::string& value);

}  // namespace zv::settings
