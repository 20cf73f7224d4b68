// zelvanor-receiver: the panel application.
#include <QApplication>
#include <QTextStream>

#include <cstring>
#include <memory>

#include "ReceiverApp.h"
#include "ReceiverOptions.h"
#include "StatusPrinter.h"
#include "casting/Log.h"
#include "core/QuitOnSignals.h"

namespace {

bool hasArgument(int argc, char* argv[], const char* wanted) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], wanted) == 0) return true;
    }
    return false;
}

}  // namespace

int main(int argc, char* argv[]) {
    zv::blockStopSignals();
    // Read before QApplication exists: it takes X11 options such as --name
    // out of argv for itself.
    QStringList arguments;
    for (int i = 0; i < argc; ++i) arguments << QString::fromLocal8Bit(argv[i]);

    // A headless receiver must start without any display, so the kind of
    // application object is chosen before the options are parsed in full.
    std::unique_ptr<QCoreApplication> app;
    if (hasArgument(argc, argv, "--headless")) {
        app = std::make_unique<QCoreApplication>(argc, argv);
    } else {
        app = std::make_unique<QApplication>(argc, argv);
    }
    app->setApplicationName(QStringLiteral("zelvanor-receiver"));
    app->setApplicationVersion(QStringLiteral(ZELVANOR_VERSION));

    receiver::ReceiverOptions options;
    QString message;
    if (!receiver::ReceiverOptions::parse(arguments, options, message)) {
        const bool help = message.startsWith(QStringLiteral("Usage"));
        QTextStream(help ? stdout : stderr) << message << '\n';
        return help ? 0 : 2;
    }
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
