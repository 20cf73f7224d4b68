#include "ui/LanguageTable.h"

namespace qorquicomponents {

namespace {

const LanguageRow kEnglish{"en", nullptr, "en", "English"};

const std::array<LanguageRow, kLanguageCount> kTable{{
    {"zh_CN", nullptr, "zh", "SimplifiedChinese"},
    {"zh_TW", "zh_HK", "zhtw", "TraditionalChinese"},
    kEnglish,
    {"ar", nullptr, "ar", "Arabic"},
    {"bg", nullptr, "bg", "Bulgarian"},
    {"hr", nullptr, "hr", "Croatian"},
    {"cs", nullptr, "cs", "Czech"},
    {"da", nullptr, "da", "Danish"},
    {"nl", nullptr, "nl", "Dutch"},
    {"fi", nullptr, "fi", "Finnish"},
    {"fr", nullptr, "fr", "French"},
    {"de", nullptr, "de", "German"},
    {"el", nullptr, "el", "Greek"},
    {"he", nullptr, "he", "Hebrew"},
    {"hu", nullptr, "hu", "Hungarian"},
    {"id", nullptr, "id", "Indonesian"},
    {"it", nullptr, "it", "Italian"},
    {"ja", nullptr, "ja", "Japanese"},
    {"ko", nullptr, "ko", "Korean"},
    {"nb", nullptr, "nb", "Norwegian"},
    {"pl", nullptr, "pl", "Polish"},
    {"pt", nullptr, "pt", "Portuguese"},
    {"ro", nullptr, "ro", "Romanian"},
    {"ru", nullptr, "ru", "Russian"},
    {"sr", nullptr, "sr", "Serbian"},
    {"sk", nullptr, "sk", "Slovak"},
    {"sl", nullptr, "sl", "Slovenian"},
    {"es", nullptr, "es", "Spanish"},
    {"sv", nullptr, "sv", "Swedish"},
    {"th", nullptr, "th", "Thai"},
    {"tr", nullptr, "tr", "Turkish"},
    {"uk", nullptr, "uk", "Ukrainian"},
    {"uz", nullptr, "uz", "Uzbek"},
    {"vi", nullptr, "vi", "Vietnamese"},
}};

bool rowMatches(const LanguageRow& row, const QByteArray& lang) {
    if (lang.contains(row.key)) return true;
    return row.altKey != nullptr && lang.contains(row.altKey);
}

}  // namespace

const std::array<LanguageRow, kLanguageCount>& languageTable() { return kTable; }

QString translationFileName(const char* code) {
    return QStringLiteral("orvixupgrade_") + QLatin1String(code) + QStringLiteral(".qm");
}

LanguageChoice chooseLanguage(const QByteArray& lang) {
    for (const LanguageRow& row : kTable) {
        if (rowMatches(row, lang)) return {translationFileName(row.code), row.name};
    }
    return {translationFileName(kEnglish.code), kEnglish.name};
}

}  // namespace qorquicomponents
