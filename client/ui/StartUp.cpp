#include "ui/StartUp.h"

#include <QCoreApplication>
#include <QProcess>
#include <QStringList>
#include <QTranslator>

#include "ui/GlobalDefine.h"
#include "ui/LanguageTable.h"

std::string g_strLanguage = "English";
QString wordtype = "English";

namespace {
constexpr int kProbeTimeoutMs = 30000;
}

bool IsAlreadyRunning() {
    const QString name = QCoreApplication::applicationName();
    const QString command = QStringLiteral("pgrep -f '") + name + QStringLiteral("'");

    QProcess process;
    process.start(QStringLiteral("bash"), {QStringLiteral("-c"), command}, QIODevice::ReadWrite);
    if (!process.waitForFinished(kProbeTimeoutMs)) {
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished();
        }
        return false;
    }

    // pgrep prints one process id per line; the trailing newline leaves an
    // empty last part, so one match splits into 2 parts and two into 3.
    const QString output = QString::fromLocal8Bit(process.readAllStandardOutput());
    const QStringList parts = output.split(QStringLiteral("\n"), Qt::KeepEmptyParts, Qt::CaseSensitive);
    return parts.size() > 2;
}

void loadTranslation() { loadSystemTranslation(); }

void loadSystemTranslation() {
    const QString folder = QCoreApplication::applicationDirPath() + QStringLiteral("/../translation/");

    // Parented to the application so it lives exactly as long as the process'
    // event loop does.
    auto* translator = new QTranslator(QCoreApplication::instance());

    // An unset LANG reads as empty and falls through to English.
    const QByteArray lang = qgetenv("LANG");
    const qorquicomponents::LanguageChoice choice = qorquicomponents::chooseLanguage(lang);
    // A file that cannot be read is not reported: the translator stays empty
    // and the interface keeps its source texts.
    const bool loaded = translator->load(folder + choice.fileName);
    Q_UNUSED(loaded)
    g_strLanguage = choice.languageName;

    QCoreApplication::installTranslator(translator);
}

void loadSQLDb() {}
