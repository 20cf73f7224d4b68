// Language choice from LANG, the translation files it points to, and the
// single-instance probe of start-up.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSet>
#include <QXmlStreamReader>

#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "ui/GlobalDefine.h"
#include "ui/LanguageTable.h"
#include "ui/StartUp.h"

using qorquicomponents::chooseLanguage;
using qorquicomponents::languageTable;

namespace {

QString sourceDir() { return QStringLiteral(ZV_SOURCE_DIR); }
QString buildDir() { return QStringLiteral(ZV_BUILD_DIR); }

// A QCoreApplication for the tests that need one; keeps argv alive.
class App {
public:
    App() : m_app(m_argc, m_argv) {}
    QCoreApplication& get() { return m_app; }

private:
    char m_name[16] = "test_language";
    char* m_argv[2] = {m_name, nullptr};
    int m_argc = 1;
    QCoreApplication m_app;
};

struct TsMessage {
    QString context;
    QString source;
    QString translation;
    QString type;  // "unfinished", "vanished", "obsolete" or empty
};

struct TsFile {
    QString language;
    std::vector<TsMessage> messages;
};

TsFile readTs(const QString& path) {
    TsFile ts;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return ts;
    QXmlStreamReader xml(&file);
    QString context;
    TsMessage message;
    while (!xml.atEnd()) {
        xml.readNext();
        if (!xml.isStartElement()) continue;
        const auto name = xml.name();
        if (name == QLatin1String("TS")) {
            ts.language = xml.attributes().value(QLatin1String("language")).toString();
        } else if (name == QLatin1String("name")) {
            context = xml.readElementText();
        } else if (name == QLatin1String("message")) {
            message = TsMessage{context, {}, {}, {}};
        } else if (name == QLatin1String("source")) {
            message.source = xml.readElementText();
        } else if (name == QLatin1String("translation")) {
            message.type = xml.attributes().value(QLatin1String("type")).toString();
            message.translation = xml.readElementText();
            ts.messages.push_back(message);
        }
    }
    EXPECT_FALSE(xml.hasError()) << path.toStdString() << ": " << xml.errorString().toStdString();
    return ts;
}

}  // namespace

TEST(LanguageTable, ChoosesByFirstSubstringInTableOrder) {
    struct Case {
        const char* lang;
        const char* file;
        const char* name;
    };
    const Case cases[] = {
        {"en_US.UTF-8", "orvixupgrade_en.qm", "English"},
        {"zh_CN.UTF-8", "orvixupgrade_zh.qm", "SimplifiedChinese"},
        {"zh_HK.UTF-8", "orvixupgrade_zhtw.qm", "TraditionalChinese"},
        {"zh_TW.UTF-8", "orvixupgrade_zhtw.qm", "TraditionalChinese"},
        // No row for Singapore Chinese: falls back to English.
        {"zh_SG.UTF-8", "orvixupgrade_en.qm", "English"},
        // "fi" occurs in "fil".
        {"fil_PH.UTF-8", "orvixupgrade_fi.qm", "Finnish"},
        // "he" is tried before "th".
        {"the_NP.UTF-8", "orvixupgrade_he.qm", "Hebrew"},
        // Case-sensitive: "AR" is not "ar".
        {"es_AR.UTF-8", "orvixupgrade_es.qm", "Spanish"},
        {"de_DE.UTF-8", "orvixupgrade_de.qm", "German"},
        {"ar_EG.UTF-8", "orvixupgrade_ar.qm", "Arabic"},
        {"vi_VN", "orvixupgrade_vi.qm", "Vietnamese"},
        {"C", "orvixupgrade_en.qm", "English"},
        {"C.UTF-8", "orvixupgrade_en.qm", "English"},
        {"POSIX", "orvixupgrade_en.qm", "English"},
        {"", "orvixupgrade_en.qm", "English"},
        {"EN_US", "orvixupgrade_en.qm", "English"},
    };
    for (const Case& c : cases) {
        const auto choice = chooseLanguage(QByteArray(c.lang));
        EXPECT_EQ(choice.fileName.toStdString(), c.file) << "LANG=" << c.lang;
        EXPECT_EQ(choice.languageName, c.name) << "LANG=" << c.lang;
    }
}

TEST(LanguageTable, EveryRowHasItsOwnCompiledFile) {
    const QString folder = buildDir() + QStringLiteral("/translation/");

    EXPECT_EQ(languageTable().size(), 34u);
    QSet<QString> files;
    std::set<std::string> names;
    for (const auto& row : languageTable()) {
        const QString file = qorquicomponents::translationFileName(row.code);
        files.insert(file);
        names.insert(row.name);
        EXPECT_TRUE(QFileInfo(folder + file).isFile()) << (folder + file).toStdString();
        // The row must be reachable: its own key selects it.
        EXPECT_EQ(chooseLanguage(QByteArray(row.key)).languageName, row.name) << row.key;
    }
    EXPECT_EQ(files.size(), 34);
    EXPECT_EQ(names.size(), 34u);
}

TEST(Translations, SourcesAgreeAndEnglishAndChineseAreComplete) {
    const QString folder = sourceDir() + QStringLiteral("/client/resources/translations/");

    const TsFile english = readTs(folder + QStringLiteral("orvixupgrade_en.ts"));
    ASSERT_FALSE(english.messages.empty());
    QSet<QString> englishKeys;
    for (const TsMessage& m : english.messages) englishKeys.insert(m.context + QLatin1Char('|') + m.source);

    for (const auto& row : languageTable()) {
        const QString path = folder + QStringLiteral("orvixupgrade_%1.ts").arg(QLatin1String(row.code));
        const TsFile ts = readTs(path);
        EXPECT_FALSE(ts.language.isEmpty()) << path.toStdString();

        // Every file was refreshed from the same sources.
        QSet<QString> keys;
        for (const TsMessage& m : ts.messages) {
            keys.insert(m.context + QLatin1Char('|') + m.source);
            EXPECT_NE(m.type, QStringLiteral("vanished")) << path.toStdString() << ": " << m.source.toStdString();
            EXPECT_NE(m.type, QStringLiteral("obsolete")) << path.toStdString() << ": " << m.source.toStdString();
        }
        EXPECT_EQ(keys, englishKeys) << path.toStdString();

        const std::string code = row.code;
        if (code != "en" && code != "zh") continue;
        for (const TsMessage& m : ts.messages) {
            EXPECT_TRUE(m.type.isEmpty()) << path.toStdString() << " unfinished: " << m.source.toStdString();
            EXPECT_FALSE(m.translation.isEmpty()) << path.toStdString() << " empty: " << m.source.toStdString();
        }
    }
}

TEST(LoadSystemTranslation, SetsLanguageAndInstallsTheChosenFile) {
    App app;
    const QString source = QStringLiteral("Cast your screen to a display panel");

    qputenv("LANG", "zh_CN.UTF-8");
    loadSystemTranslation();
    EXPECT_EQ(g_strLanguage, "SimplifiedChinese");
    const QString chinese = QCoreApplication::translate("OrvixUpgrade", source.toUtf8().constData());
    EXPECT_NE(chinese, source) << "the Chinese translation was not loaded";
    EXPECT_FALSE(chinese.isEmpty());

    // An unset LANG reads as empty: English, whose file translates to itself.
    qunsetenv("LANG");
    loadSystemTranslation();
    EXPECT_EQ(g_strLanguage, "English");
    EXPECT_EQ(QCoreApplication::translate("OrvixUpgrade", source.toUtf8().constData()), source);

    // The start-up word is left alone.
    EXPECT_EQ(wordtype, QStringLiteral("English"));
}

TEST(IsAlreadyRunning, NeedsTwoProcessesWithTheName) {
    App app;
    // A name no other process carries; pgrep does not count itself.
    const QString name = QStringLiteral("zvprobe%1x").arg(QCoreApplication::applicationPid());
    QCoreApplication::setApplicationName(name);
    EXPECT_FALSE(IsAlreadyRunning());

    // Helpers that block reading stdin, with the name in their command line.
    std::vector<std::unique_ptr<QProcess>> helpers;
    auto startHelper = [&] {
        auto process = std::make_unique<QProcess>();
        process->start(QStringLiteral("sh"), {QStringLiteral("-c"), QStringLiteral("read line"), name});
        ASSERT_TRUE(process->waitForStarted());
        helpers.push_back(std::move(process));
    };

    startHelper();
    EXPECT_FALSE(IsAlreadyRunning()) << "one process is this instance itself";
    startHelper();
    EXPECT_TRUE(IsAlreadyRunning());

    for (auto& helper : helpers) {
        helper->kill();
        helper->waitForFinished();
    }
}
