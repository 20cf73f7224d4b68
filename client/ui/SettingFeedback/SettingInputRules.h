// Input rules of the settings dialog's fields, kept apart from the widgets
// so that they can be checked on their own: the dotted-address check, the
// port text clean-up and the host-name filter tables.
#pragma once

#include <QString>

namespace qorquicomponents {

// A dotted IPv4 address, or an empty text (meaning "none"). Two passes: the
// whole text must match the dotted-quad pattern, then a hand walk over its
// segments refuses leading zeros ("01"), values over 255 and stray dots.
bool isIPAddressValid(const char* text);

// Drops leading zeros while more than one character is left ("0080" -> "80",
// "0" stays). cursor is moved left by the number of characters dropped.
QString stripPortLeadingZeros(const QString& text, int* cursor);

// The port text as the store takes it: decimal, 0 when it is no number.
int portTextValue(const QString& text);
constexpr int kMaxPort = 65535;

// Host-name filter: keys refused in the host-name field (control codes, the
// space and every printable ASCII punctuation but the underscore) and the
// input-method texts refused when committed.
constexpr int kHostNameMaxLength = 20;
constexpr int kForbiddenKeyCount = 64;
constexpr int kForbiddenInputMethodCount = 33;
bool isForbiddenHostNameKey(int key);
bool containsForbiddenInputMethodText(const QString& text);
// The two tables themselves, for tests and the filter above.
const int* forbiddenHostNameKeys();
const QString* forbiddenInputMethodTexts();

// Shortcut letters: letters pass, any other key (code at most 64 or at least
// 91, after Qt's upper-casing of letters) is refused.
bool isShortcutLetterKey(int key);

}  // namespace qorquicomponents
