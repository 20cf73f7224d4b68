#include <QApplication>
#include <QCoreApplication>
#include <QDir>
#include <QStringList>

#include <memory>

#include "casting/Log.h"
#include "core/QuitOnSignals.h"
#include "ui/OrvixUpgrade.h"
#include "ui/GlobalDefine.h"
#include "ui/StartUp.h"

namespace {
// Qt plug-ins shipped inside the installed package.
const char* const kPackagePluginDir = "/opt/apps/org.zelvanor.client/files/plugins";
}  // namespace

int main(int argc, char* argv[]) {
    // Before any thread exists, so that every thread inherits the block and
    // SIGTERM/SIGINT wait for the event loop (see QuitOnSignals).
    zv::blockStopSignals();

    // Must happen before QApplication exists so that the platform plug-in can
    // come from the package.
    QStringList libraryPaths = QCoreApplication::libraryPaths();
    libraryPaths.append(QDir::currentPath() + QStringLiteral("/../plugins"));
    libraryPaths.append(QString::fromLatin1(kPackagePluginDir));
    QCoreApplication::setLibraryPaths(libraryPaths);

    auto app = std::make_unique<QApplication>(argc, argv);
    // SIGTERM and SIGINT end the event loop like quit(); the window's
    // destructor then shuts the casting library down in order.
    auto quitOnSignals = std::make_unique<zv::QuitOnSignals>();

    // A second copy is allowed to run; the probe's verdict is only logged.
    const bool alreadyRunning = IsAlreadyRunning();
    loadTranslation();
    loadSQLDb();

    auto window = std::make_unique<qorquicomponents::OrvixUpgrade>(nullptr);
    window->show();
    // Logging starts inside the window's constructor.
    ZV_LOG(INFO) << " language: " << g_strLanguage << ", another instance running: " << alreadyRunning;

    // With exactly one argument the second text is empty.
    if (argc > 1) {
        window->shortcutModeScreen(QString::fromLocal8Bit(argv[1]),
                                   QString::fromLocal8Bit(argc > 2 ? argv[2] : ""), 0);
    }

    const int result = app->exec();
    window.reset();
    quitOnSignals.reset();
    app.reset();
    // glog holds back informational lines; the last ones tell how we ended.
    google::FlushLogFiles(google::GLOG_INFO);
    return result;
}
