// discover [--seconds N]: one JSON line per panel found (and updated or gone
// while it listens).
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTimer>

#include "Commands.h"
#include "JsonLines.h"
#include "casting/CManageAll.h"

namespace cli {

int runDiscover(const QStringList& arguments) {
    QCommandLineParser parser;
    const QCommandLineOption seconds(QStringLiteral("seconds"), QStringLiteral("How long to listen (default 3)."),
                                     QStringLiteral("N"), QStringLiteral("3"));
    parser.addOption(seconds);
    if (!parser.parse(arguments)) {
        printLine({{QStringLiteral("event"), QStringLiteral("usage")}, {QStringLiteral("text"), parser.errorText()}});
        return 2;
    }
    bool ok = false;
    const double listenSeconds = parser.value(seconds).toDouble(&ok);
    if (!ok || listenSeconds <= 0) return 2;

    auto report = [](const char* event) {
        return [event](const KLUF_DEVICE_INFO& info) {
            QJsonObject line = panelJson(info);
            line.insert(QStringLiteral("event"), QString::fromLatin1(event));
            printLine(line);
        };
    };
    CManageAll* library = CManageAll::getInstance();
    library->setFoundDeviceCallback(report("found"));
    library->setUpdateDeviceCallback(report("updated"));
    library->setExitDeviceCallback(report("gone"));
    if (library->startDiscovery() != 0) {
        printLine({{QStringLiteral("event"), QStringLiteral("error")},
                   {QStringLiteral("text"), QStringLiteral("discovery could not start (see the log)")}});
        return 1;
    }
    QTimer::singleShot(static_cast<int>(listenSeconds * 1000), QCoreApplication::instance(), &QCoreApplication::quit);
    QCoreApplication::exec();
    library->endDiscovery();
    return 0;
}

}  // namespace cli
