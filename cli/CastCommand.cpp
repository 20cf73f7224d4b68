// cast: log in, cast the screen (or one window) and keep casting for a while,
// printing the session's events; commands on standard input steer the cast
// ("pause", "resume", "voice on", "voice off", "control on", "control off",
// "stop"), one per line.
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTimer>

#include <unistd.h>

#include <algorithm>
#include <memory>

#include "Commands.h"
#include "JsonLines.h"
#include "PanelSession.h"
#include "casting/BusinessSettings.h"
#include "casting/CManageAll.h"

// Xlib last: its macros (Status, Bool, ...) clash with Qt headers.
#include <X11/Xlib.h>

namespace cli {
namespace {

// The pointer over the whole screen, in panel units.
void capturePointer(int& x, int& y, MOUSESTATUS& status, void* user, bool& visible) {
    auto* display = static_cast<Display*>(user);
    status = MOUSE_STATUS_NORMAL;
    visible = true;
    if (display == nullptr) return;
    Window root, child;
    int rootX = 0, rootY = 0, winX = 0, winY = 0;
    unsigned int mask = 0;
    const Window rootWindow = DefaultRootWindow(display);
    if (!XQueryPointer(display, rootWindow, &root, &child, &rootX, &rootY, &winX, &winY, &mask)) return;
    const int width = DisplayWidth(display, DefaultScreen(display));
    const int height = DisplayHeight(display, DefaultScreen(display));
    if (width <= 0 || height <= 0) return;
    x = static_cast<int>(static_cast<long long>(rootX) * 65535 / width);
    y = static_cast<int>(static_cast<long long>(rootY) * 65535 / height);
}

int printTouch(CtrlMouseInfo_S* action, bool, int, int, void*) {
    if (action == nullptr) return -1;
    printLine({{QStringLiteral("event"), QStringLiteral("touch")},
               {QStringLiteral("type"), QString::fromStdString(action->strType)},
               {QStringLiteral("x"), action->nX},
               {QStringLiteral("y"), action->nY}});
    return 0;
}

bool protocolFromName(const QString& name, ProtocolType* protocol) {
    if (name == QLatin1String("udp")) *protocol = PROTOCOL_UDP;
    else if (name == QLatin1String("tcp")) *protocol = PROTOCOL_TCP;
    else if (name == QLatin1String("brx") || name == QLatin1String("srt")) *protocol = PROTOCOL_BRX;
    else return false;
    return true;
}

void runCommand(const QByteArray& line) {
    CManageAll* library = CManageAll::getInstance();
    long result = 0;
    if (line == "pause") result = library->pauseMiracast(true);
    else if (line == "resume") result = library->pauseMiracast(false);
    else if (line == "voice on") result = library->voiceOn(0, false);
    else if (line == "voice off") result = library->voiceOn(1, false);
    else if (line == "control on") result = library->reverseCtrlOn(1, SCREEN_CONTROL_TOUCH);
    else if (line == "control off") result = library->reverseCtrlOn(0, SCREEN_CONTROL_TOUCH);
    else if (line == "stop") QCoreApplication::quit();
    else result = -2;
    printLine({{QStringLiteral("event"), QStringLiteral("command")},
               {QStringLiteral("command"), QString::fromUtf8(line)},
               {QStringLiteral("result"), static_cast<int>(result)}});
}

int castOnce(PanelSession& session, int seconds, ProtocolType stream, const tagWindowScreenInfo_& windowInfo,
             Display* display);

}  // namespace

int runCast(const QStringList& arguments) {
    QCommandLineParser parser;
    PanelSession session;
    session.addOptions(parser);
    const QCommandLineOption window(QStringLiteral("window"), QStringLiteral("X11 window id to cast."),
                                    QStringLiteral("ID"));
    const QCommandLineOption seconds(QStringLiteral("seconds"), QStringLiteral("How long to cast (default 10)."),
                                     QStringLiteral("N"), QStringLiteral("10"));
    const QCommandLineOption protocol(QStringLiteral("protocol"), QStringLiteral("udp, tcp or brx (default udp)."),
                                      QStringLiteral("NAME"), QStringLiteral("udp"));
    const QCommandLineOption dump(QStringLiteral("dump"),
                                  QStringLiteral("Debug dumps written under the log folder while casting: h264, yuv, "
                                                 "rgb, rgb-after-yuv, rtp (comma-separated)."),
                                  QStringLiteral("LIST"));
    const QCommandLineOption timeLog(QStringLiteral("time-log"),
                                     QStringLiteral("Record each frame's stage times in the log folder."));
    const QCommandLineOption cycles(QStringLiteral("cycles"),
                                    QStringLiteral("Log in, cast --seconds and log out this many times (default 1)."),
                                    QStringLiteral("N"), QStringLiteral("1"));
    parser.addOptions({window, seconds, protocol, dump, timeLog, cycles});
    QString error;
    ProtocolType stream = PROTOCOL_UDP;
    bool ok = parser.parse(arguments) && session.readOptions(parser, &error);
    if (ok && !protocolFromName(parser.value(protocol), &stream)) {
        error = QStringLiteral("--protocol must be udp, tcp or brx");
        ok = false;
    }
    BusinessSettings& business = BusinessSettings::getInstance();
    for (const QString& kind : parser.value(dump).split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        if (!ok) break;
        if (kind == QLatin1String("h264")) business.setIsWriteH264Flow(true);
        else if (kind == QLatin1String("yuv")) business.setIsWriteYUVFlow(true);
        else if (kind == QLatin1String("rgb")) business.setIsWriteRGBFlow(true);
        else if (kind == QLatin1String("rgb-after-yuv")) business.setIsWriteRGBFlowAfterYUV(true);
        else if (kind == QLatin1String("rtp")) business.setIsWriteRTPFlow(true);
        else {
            error = QStringLiteral("--dump takes h264, yuv, rgb, rgb-after-yuv, rtp");
            ok = false;
        }
    }
    if (parser.isSet(timeLog)) business.setIsRecordTimeLog(true);
    tagWindowScreenInfo_ windowInfo{};
    if (ok && parser.isSet(window)) {
        windowInfo.nWindowId = static_cast<int32_t>(parser.value(window).toUInt(&ok, 0));
        if (!ok || windowInfo.nWindowId == 0) error = QStringLiteral("--window must be a window id");
    }
    if (!ok) {
        printLine({{QStringLiteral("event"), QStringLiteral("usage")},
                   {QStringLiteral("text"), error.isEmpty() ? parser.errorText() : error}});
        return 2;
    }
    std::unique_ptr<Display, int (*)(Display*)> display(XOpenDisplay(nullptr), &XCloseDisplay);
    const int cycleCount = std::max(1, parser.value(cycles).toInt());
    for (int cycle = 1; cycle <= cycleCount; ++cycle) {
        const int code = castOnce(session, parser.value(seconds).toInt(), stream, windowInfo, display.get());
        if (code != 0) return code;
        if (cycleCount > 1) printLine({{QStringLiteral("event"), QStringLiteral("cycle")}, {QStringLiteral("n"), cycle}});
        // A quit queued by the session's last events must not end the next cast at once.
        QCoreApplication::processEvents();
    }
    return 0;
}

namespace {

int castOnce(PanelSession& session, int seconds, ProtocolType stream, const tagWindowScreenInfo_& windowInfo,
             Display* display) {
    if (!session.logIn()) return 1;

    CManageAll* library = CManageAll::getInstance();
    library->initProtocol(stream, PROTOCOL_TCP, PROTOCOL_TCP);
    library->setWindowScreenInfo(windowInfo);
    const long result = library->miracastResq(session.userHandle(), session.panel(), &capturePointer, display,
                                              &printTouch, nullptr, false,
                                              windowInfo.nWindowId != 0 ? VIDEO_SOURCE_WINDOW : VIDEO_SOURCE_SCREEN);
    printLine({{QStringLiteral("event"), QStringLiteral("cast")},
               {QStringLiteral("result"), result == SUCCESS ? QStringLiteral("started")
                                          : result == WAIT_AUTHORIZATION ? QStringLiteral("waiting")
                                                                         : QStringLiteral("failed")}});
    if (result == FAIL) return 1;
    session.armWatchdog();

    QSocketNotifier commands(STDIN_FILENO, QSocketNotifier::Read);
    QByteArray pending;
    QObject::connect(&commands, &QSocketNotifier::activated, [&] {
        char buffer[256];
        const ssize_t n = read(STDIN_FILENO, buffer, sizeof buffer);
        if (n <= 0) {
            commands.setEnabled(false);  // no more commands; the cast goes on for its time
            return;
        }
        pending.append(buffer, static_cast<int>(n));
        int newline;
        while ((newline = pending.indexOf('\n')) >= 0) {
            const QByteArray line = pending.left(newline).trimmed();
            pending.remove(0, newline + 1);
            if (!line.isEmpty()) runCommand(line);
        }
    });
    QTimer::singleShot(seconds * 1000, QCoreApplication::instance(), &QCoreApplication::quit);
    QCoreApplication::exec();
    library->stopMiracast();
    printLine({{QStringLiteral("event"), QStringLiteral("cast-stopped")}});
    session.logOut();
    return 0;
}

}  // namespace

}  // namespace cli
