// reverse: log in, show the panel's screen in a window of this display (the
// library's player draws into it), optionally operate the panel, and print
// the session's events. Lines on standard input steer it: "control on",
// "control off", "voice on", "voice off", "home", "back", "key-frame",
// "click X,Y" (window pixels), "snapshot PATH", "corrupt" (feeds the player
// a damaged picture, as a broken stream would), "stop".
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QFile>
#include <QSocketNotifier>
#include <QTimer>

#include <unistd.h>

#include <atomic>
#include <memory>
#include <vector>

#include "Commands.h"
#include "JsonLines.h"
#include "PanelSession.h"
#include "casting/CManageAll.h"
#include "casting/Dexo.h"

// Xlib last: its macros (Status, Bool, ...) clash with Qt headers.
#include <X11/Xlib.h>

namespace cli {
namespace {

constexpr unsigned int kStreamBufferBytes = 0x500000;
constexpr unsigned int kJpegBufferBytes = 4147200;

// What the stream thread and the main thread share.
struct Viewer {
    unsigned long window = 0;
    std::atomic<int> port{-1};
    std::atomic<bool> firstData{true};
    std::atomic<bool> control{false};
    std::atomic<int> width{960}, height{540};
};

void onDecodeInfo(int port, RunTimeInfo* info, void*) {
    if (info == nullptr || info->nErrorCode == 0) return;
    // A player thread: the request is posted by the library, the line is printed at once.
    printLine({{QStringLiteral("event"), QStringLiteral("decode-error")},
               {QStringLiteral("port"), port},
               {QStringLiteral("error"), info->nErrorCode}});
    CManageAll::getInstance()->requestShareKeyFrame(false);
}

// The player's set-up as the desktop client does it on the first piece of data.
bool openPlayer(Viewer& viewer) {
    int port = -1;
    if (!Dexo_GetPort(&port)) return false;
    Dexo_SetRunTimeInfoCallBackEx(port, DEXO_MODULE_DECODER, &onDecodeInfo, &viewer);
    Dexo_SetRunTimeInfoCallbackType(port, DEXO_MODULE_DECODER, DEXO_INFO_DECODE_ERROR | DEXO_INFO_STREAM_ERROR, 1);
    unsigned char header[DEXO_HEADER_SIZE];
    DexoHeader_Default(header);
    if (!Dexo_SetStreamOpenMode(port, DEXO_STREAM_REALTIME) ||
        !Dexo_OpenStream(port, header, DEXO_HEADER_SIZE, kStreamBufferBytes)) {
        Dexo_FreePort(port);
        return false;
    }
    Dexo_SetDisplayBuf(port, 0xFFFFFFFFu);
    Dexo_SyncToAudio(port, 0);
    Dexo_PlaySound(port);
    Dexo_SetDecodeERC(port, 1);
    if (!Dexo_Play(port, viewer.window)) {
        Dexo_CloseStream(port);
        Dexo_FreePort(port);
        return false;
    }
    viewer.port = port;
    return true;
}

long onStream(int, char* data, int length, void* user) {
    auto* viewer = static_cast<Viewer*>(user);
    if (viewer == nullptr) return 0;
    if (viewer->firstData.exchange(false)) {
        if (!openPlayer(*viewer) && !openPlayer(*viewer)) {
            printLine({{QStringLiteral("event"), QStringLiteral("player-failed")},
                       {QStringLiteral("error"), static_cast<int>(Dexo_GetLastError(-1))}});
            QMetaObject::invokeMethod(QCoreApplication::instance(), &QCoreApplication::quit, Qt::QueuedConnection);
            return -1;
        }
    }
    const int port = viewer->port;
    if (port < 0) return -1;
    if (data == nullptr) return 0;
    if (!Dexo_InputData(port, data, static_cast<unsigned int>(length))) {
        CManageAll::getInstance()->requestShareKeyFrame(false);
        return -1;
    }
    return 0;
}

// The touch text of the reverse-screen window, to the letter.
QByteArray touchJson(const char* type, int x, int y) {
    return QByteArray("{\n\"touchControl\":\n{\n\t\"id\":1,\n\t\"timestamp\":") +
           QByteArray::number(QDateTime::currentMSecsSinceEpoch()) + ",\n\t\"ctrlType\":\"" + type + "\",\n\t\"x\":" +
           QByteArray::number(x) + ",\n\t\"y\":" + QByteArray::number(y) + "\n}\n}\n";
}

bool snapshot(const Viewer& viewer, const QString& path) {
    std::vector<unsigned char> buffer(kJpegBufferBytes + 1);
    unsigned int size = 0;
    int width = 0, height = 0;
    const int port = viewer.port;
    const bool taken = port >= 0 && Dexo_GetJPEG(port, buffer.data(), kJpegBufferBytes, &size);
    if (taken) Dexo_GetPictureSize(port, &width, &height);
    QFile file(path);
    const bool saved = taken && file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
                       file.write(reinterpret_cast<const char*>(buffer.data()), size) == qint64(size);
    printLine({{QStringLiteral("event"), QStringLiteral("snapshot")},
               {QStringLiteral("path"), path},
               {QStringLiteral("saved"), saved},
               {QStringLiteral("bytes"), static_cast<int>(size)},
               {QStringLiteral("width"), width},
               {QStringLiteral("height"), height},
               {QStringLiteral("error"), taken ? 0 : static_cast<int>(Dexo_GetLastError(port))}});
    return saved;
}

void click(const Viewer& viewer, int wx, int wy) {
    const int w = viewer.width > 0 ? viewer.width.load() : 1, h = viewer.height > 0 ? viewer.height.load() : 1;
    const int x = static_cast<int>(static_cast<long long>(qBound(0, wx, w)) * 65535 / w);
    const int y = static_cast<int>(static_cast<long long>(qBound(0, wy, h)) * 65535 / h);
    CManageAll* library = CManageAll::getInstance();
    const long down = library->pushMouseJSON(touchJson("touchDown", x, y).constData());
    const long up = library->pushMouseJSON(touchJson("touchUp", x, y).constData());
    printLine({{QStringLiteral("event"), QStringLiteral("click")},
               {QStringLiteral("x"), x},
               {QStringLiteral("y"), y},
               {QStringLiteral("result"), static_cast<int>(down != 0 ? down : up)}});
}

bool parseClick(const QString& text, int* x, int* y) {
    const QStringList parts = text.split(QLatin1Char(','));
    bool okX = false, okY = false;
    if (parts.size() == 2) {
        *x = parts[0].trimmed().toInt(&okX);
        *y = parts[1].trimmed().toInt(&okY);
    }
    return okX && okY;
}

void runCommand(Viewer& viewer, const QByteArray& line) {
    CManageAll* library = CManageAll::getInstance();
    long result = 0;
    int x = 0, y = 0;
    if (line == "control on" || line == "control off") {
        result = library->reverseCtrlShareOn(line.endsWith("on") ? 1 : 0);
    } else if (line == "voice on" || line == "voice off") {
        result = library->voiceShareOn(line.endsWith("on") ? 1 : 0);
    } else if (line == "home" || line == "back") {
        result = library->pushMouseJSON(touchJson(line.constData(), 0, 0).constData());
    } else if (line == "key-frame") {
        result = library->requestShareKeyFrame(false);
    } else if (line.startsWith("click ") && parseClick(QString::fromUtf8(line.mid(6)), &x, &y)) {
        click(viewer, x, y);
        return;
    } else if (line.startsWith("snapshot ")) {
        snapshot(viewer, QString::fromUtf8(line.mid(9)).trimmed());
        return;
    } else if (line == "corrupt") {
        // A picture whose payload is no H.264: the player reports a decode error.
        unsigned char packet[DEXO_PACKET_HEADER_SIZE + 16] = {'Z', 'D', 'P', 'K', DEXO_KIND_VIDEO, 0, 0, 0, 16};
        for (int i = 0; i < 16; ++i) packet[DEXO_PACKET_HEADER_SIZE + i] = static_cast<unsigned char>(0xA5 ^ i);
        const int port = viewer.port;
        result = port >= 0 && Dexo_InputData(port, packet, sizeof packet) ? 0 : static_cast<long>(Dexo_GetLastError(port));
    } else if (line == "stop") {
        QCoreApplication::quit();
    } else {
        result = -2;
    }
    printLine({{QStringLiteral("event"), QStringLiteral("command")},
               {QStringLiteral("command"), QString::fromUtf8(line)},
               {QStringLiteral("result"), static_cast<int>(result)}});
}

}  // namespace

int runReverse(const QStringList& arguments) {
    QCommandLineParser parser;
    PanelSession session;
    session.addOptions(parser);
    const QCommandLineOption seconds(QStringLiteral("seconds"), QStringLiteral("How long to watch (default 10)."),
                                     QStringLiteral("N"), QStringLiteral("10"));
    const QCommandLineOption control(QStringLiteral("control"), QStringLiteral("Ask to operate the panel."));
    const QCommandLineOption voice(QStringLiteral("voice"), QStringLiteral("The panel's sound too."));
    const QCommandLineOption snapshotOption(QStringLiteral("snapshot"),
                                            QStringLiteral("JPEG of the last picture, written at the end."),
                                            QStringLiteral("FILE"));
    const QCommandLineOption clickOption(QStringLiteral("click"),
                                         QStringLiteral("Click at this pixel of the window once control is granted."),
                                         QStringLiteral("X,Y"));
    const QCommandLineOption size(QStringLiteral("window-size"), QStringLiteral("The window (default 960x540)."),
                                  QStringLiteral("WxH"), QStringLiteral("960x540"));
    parser.addOptions({seconds, control, voice, snapshotOption, clickOption, size});
    QString error;
    bool ok = parser.parse(arguments) && session.readOptions(parser, &error);
    int clickX = 0, clickY = 0;
    if (ok && parser.isSet(clickOption) && !parseClick(parser.value(clickOption), &clickX, &clickY)) {
        error = QStringLiteral("--click must be X,Y");
        ok = false;
    }
    Viewer viewer;
    const QStringList dimensions = parser.value(size).split(QLatin1Char('x'));
    if (ok && (dimensions.size() != 2 || dimensions[0].toInt() <= 0 || dimensions[1].toInt() <= 0)) {
        error = QStringLiteral("--window-size must be WxH");
        ok = false;
    }
    if (!ok) {
        printLine({{QStringLiteral("event"), QStringLiteral("usage")},
                   {QStringLiteral("text"), error.isEmpty() ? parser.errorText() : error}});
        return 2;
    }
    viewer.width = dimensions[0].toInt();
    viewer.height = dimensions[1].toInt();
    if (!session.logIn()) return 1;

    // The window the player draws into; without a display, pictures are only decoded.
    std::unique_ptr<Display, int (*)(Display*)> display(XOpenDisplay(nullptr), &XCloseDisplay);
    if (display) {
        Display* d = display.get();
        viewer.window = XCreateSimpleWindow(d, DefaultRootWindow(d), 0, 0, static_cast<unsigned>(viewer.width),
                                            static_cast<unsigned>(viewer.height), 0, 0, BlackPixel(d, DefaultScreen(d)));
        XStoreName(d, viewer.window, "Zelvanor reverse screen");
        XMapRaised(d, viewer.window);
        XSync(d, False);
    }
    printLine({{QStringLiteral("event"), QStringLiteral("window")},
               {QStringLiteral("id"), static_cast<qint64>(viewer.window)},
               {QStringLiteral("width"), viewer.width.load()},
               {QStringLiteral("height"), viewer.height.load()}});

    CManageAll* library = CManageAll::getInstance();
    library->initProtocol(PROTOCOL_UDP, PROTOCOL_TCP, PROTOCOL_TCP);
    const long result = library->shareResq(session.userHandle(), session.panel(), &onStream, &viewer, nullptr,
                                           nullptr, parser.isSet(voice));
    printLine({{QStringLiteral("event"), QStringLiteral("reverse")},
               {QStringLiteral("result"), result == SUCCESS ? QStringLiteral("started")
                                          : result == WAIT_AUTHORIZATION ? QStringLiteral("waiting")
                                                                         : QStringLiteral("failed")},
               {QStringLiteral("deviceType"), library->getServerDeviceType()}});
    if (result == FAIL) return 1;
    if (parser.isSet(control)) runCommand(viewer, "control on");

    // The first picture, then the click once control is granted.
    QTimer watch;
    bool announced = false, clicked = !parser.isSet(clickOption);
    QObject::connect(&watch, &QTimer::timeout, [&] {
        int w = 0, h = 0;
        if (!announced && viewer.port >= 0 && Dexo_GetPictureSize(viewer.port, &w, &h) && w > 0) {
            announced = true;
            printLine({{QStringLiteral("event"), QStringLiteral("first-picture")},
                       {QStringLiteral("width"), w},
                       {QStringLiteral("height"), h}});
        }
        if (announced && !clicked) {
            clicked = true;
            click(viewer, clickX, clickY);
        }
        if (announced && clicked) watch.stop();
    });
    watch.start(50);

    QSocketNotifier commands(STDIN_FILENO, QSocketNotifier::Read);
    QByteArray pending;
    QObject::connect(&commands, &QSocketNotifier::activated, [&] {
        char buffer[256];
        const ssize_t n = read(STDIN_FILENO, buffer, sizeof buffer);
        if (n <= 0) {
            commands.setEnabled(false);
            return;
        }
        pending.append(buffer, static_cast<int>(n));
        int newline;
        while ((newline = pending.indexOf('\n')) >= 0) {
            const QByteArray line = pending.left(newline).trimmed();
            pending.remove(0, newline + 1);
            if (!line.isEmpty()) runCommand(viewer, line);
        }
    });
    QTimer::singleShot(parser.value(seconds).toInt() * 1000, QCoreApplication::instance(), &QCoreApplication::quit);
    QCoreApplication::exec();
    if (parser.isSet(snapshotOption)) snapshot(viewer, parser.value(snapshotOption));
    library->stopShare();  // no stream callback after this
    const int port = viewer.port;
    if (port >= 0) {
        Dexo_Stop(port);
        Dexo_CloseStream(port);
        Dexo_FreePort(port);
    }
    printLine({{QStringLiteral("event"), QStringLiteral("reverse-stopped")}});
    session.logOut();
    return 0;
}

}  // namespace cli
