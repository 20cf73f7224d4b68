// zelvanor-receiver: the panel application.
#include <QApplication>
#include <QTextStream>

#include <memory>

#include "ReceiverApp.h"
#include "ReceiverOptions.h"
#include "StatusPrinter.h"
#include "casting/Log.h"
#include "core/QuitOnSignals.h"

int main(int argc, char* argv[]) {
    zv::blockStopSignals();
    // Read before QApplication exists: it takes X11 options such as --name
    // out of argv for itself.
    QStringList arguments;
    for (int i = 0; i < argc; ++i) arguments << QString::fromLocal8Bit(argv[i]);

    // Options first: --help and a wrong option answer on a server without
    // any display, before an application object looks for one.
    receiver::ReceiverOptions options;
    QString message;
    bool parsed = false;
    if (arguments.contains(QStringLiteral("--help")) || arguments.contains(QStringLiteral("-h")) ||
        arguments.contains(QStringLiteral("-?"))) {
        // The help text names the program through the application object;
        // this one needs no display.
        QCoreApplication named(argc, argv);
        parsed = receiver::ReceiverOptions::parse(arguments, options, message);
    } else {
        parsed = receiver::ReceiverOptions::parse(arguments, options, message);
    }
    if (!parsed) {
        const bool help = message.startsWith(QStringLiteral("Usage"));
        QTextStream(help ? stdout : stderr) << message << '\n';
        return help ? 0 : 2;
    }
    if (options.showVersion) {
        QTextStream(stdout) << "zelvanor-receiver " << ZELVANOR_VERSION << '\n';
        return 0;
    }

    std::unique_ptr<QCoreApplication> app;
    if (options.headless) {
        app = std::make_unique<QCoreApplication>(argc, argv);
    } else {
        app = std::make_unique<QApplication>(argc, argv);
    }
    app->setApplicationName(QStringLiteral("zelvanor-receiver"));
    app->setApplicationVersion(QStringLiteral(ZELVANOR_VERSION));

    zv_log::start("zelvanor-receiver", zv_log::defaultLogDir());
    zv::QuitOnSignals quitOnSignals;

    int code = 1;
    {
        receiver::ReceiverApp receiverApp(options);
        QString error;
        if (!receiverApp.start(&error)) {
            ZV_LOG(ERROR) << " cannot start: " << error.toStdString();
            receiver::StatusPrinter::print(QStringLiteral("failed"), {{QStringLiteral("error"), error}});
            return 1;
        }
        code = app->exec();
    }
    receiver::StatusPrinter::print(QStringLiteral("stopped"));
    return code;
}
