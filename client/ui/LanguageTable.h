// The interface language is chosen from the LANG environment variable by a
// plain substring search over a fixed table: the first row whose key occurs
// anywhere in LANG wins, so row order matters ("fil_PH" picks Finnish,
// "the_NP" picks Hebrew because "he" comes before "th").
#pragma once

#include <QByteArray>
#include <QString>

#include <array>
#include <cstddef>
#include <string>

namespace qorquicomponents {

struct LanguageRow {
    const char* key;     // looked for in LANG, case-sensitive
    const char* altKey;  // a second key for the same row, or nullptr
    const char* code;    // the translation file is "orvixupgrade_<code>.qm"
    const char* name;    // English name of the language, the value of g_strLanguage
};

constexpr std::size_t kLanguageCount = 34;

// All rows in search order.
const std::array<LanguageRow, kLanguageCount>& languageTable();

// "orvixupgrade_" + code + ".qm"
QString translationFileName(const char* code);

struct LanguageChoice {
    QString fileName;          // translation file, without its folder
    std::string languageName;  // e.g. "English", "SimplifiedChinese"
};

// Picks the row for a LANG value; no match (including an empty value) gives
// English.
LanguageChoice chooseLanguage(const QByteArray& lang);

}  // namespace qorquicomponents
