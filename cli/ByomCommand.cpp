// byom: log in and borrow the panel's microphone (and camera) as devices of
// this PC for --seconds (or until "stop" on standard input), printing what
// happens as JSON lines.
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTimer>

#include <unistd.h>

#include "Commands.h"
#include "JsonLines.h"
#include "PanelSession.h"
#include "casting/CManageAll.h"

namespace cli {

int runByom(const QStringList& arguments) {
    QCommandLineParser parser;
    PanelSession session;
    session.addOptions(parser);
    const QCommandLineOption microphone(QStringLiteral("microphone"), QStringLiteral("Borrow the panel's microphone."));
    const QCommandLineOption camera(QStringLiteral("camera"), QStringLiteral("Borrow the panel's camera too."));
    const QCommandLineOption seconds(QStringLiteral("seconds"), QStringLiteral("How long (default 10)."),
                                     QStringLiteral("N"), QStringLiteral("10"));
    parser.addOptions({microphone, camera, seconds});
    QString error;
    bool secondsOk = false;
    const int duration = parser.parse(arguments) ? parser.value(seconds).toInt(&secondsOk) : 0;
    if (!secondsOk || duration < 0 || !session.readOptions(parser, &error)) {
        printLine({{QStringLiteral("event"), QStringLiteral("usage")},
                   {QStringLiteral("text"), !error.isEmpty()            ? error
                                            : !parser.errorText().isEmpty() ? parser.errorText()
                                                                            : QStringLiteral("--seconds takes a count")}});
        return 2;
    }
    if (!session.logIn()) return 1;
    CManageAll* library = CManageAll::getInstance();
    CManageAll::DeviceShareResult result;
    const bool wantCamera = parser.isSet(camera);
    const bool wantMicrophone = parser.isSet(microphone) || !wantCamera;
    const long started = library->startDeviceShare(wantMicrophone, wantCamera, &result);
    if (started != 0) {
        printLine({{QStringLiteral("event"), QStringLiteral("byom")},
                   {QStringLiteral("result"), QStringLiteral("failed")},
                   {QStringLiteral("reason"), QString::fromStdString(result.reason)},
                   {QStringLiteral("text"), QString::fromStdString(result.text)}});
        session.logOut();
        return 1;
    }
    printLine({{QStringLiteral("event"), QStringLiteral("byom")},
               {QStringLiteral("result"), QStringLiteral("started")},
               {QStringLiteral("microphone"), QString::fromStdString(result.source)},
               {QStringLiteral("camera"), result.camera},
               {QStringLiteral("cameraDevice"), QString::fromStdString(result.cameraDevice)},
               {QStringLiteral("testTone"), result.testTone}});
    // The first authentic packet is worth a line: the source carries the panel's sound.
    QTimer check;
    check.setInterval(250);
    QObject::connect(&check, &QTimer::timeout, [&check, library] {
        if (!library->deviceShareReceiving()) return;
        printLine({{QStringLiteral("event"), QStringLiteral("byom-receiving")}});
        check.stop();
    });
    check.start();
    // "stop" on standard input ends it early; a closed input changes nothing.
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, [&input] {
        char buffer[256];
        const ssize_t got = read(STDIN_FILENO, buffer, sizeof buffer);
        if (got <= 0) {
            input.setEnabled(false);
        } else if (QByteArray(buffer, int(got)).contains("stop")) {
            QCoreApplication::quit();
        }
    });
    QTimer::singleShot(duration * 1000, QCoreApplication::instance(), &QCoreApplication::quit);
    QCoreApplication::exec();
    library->stopDeviceShare();
    printLine({{QStringLiteral("event"), QStringLiteral("byom")}, {QStringLiteral("result"), QStringLiteral("stopped")}});
    session.logOut();
    return 0;
}

}  // namespace cli
