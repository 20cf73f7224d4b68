// login: reach a panel by code or address, describe it, optionally hold the
// session and print its events.
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QHostInfo>
#include <QSocketNotifier>
#include <QTimer>

#include <unistd.h>

#include <atomic>
#include <cstring>

#include "Commands.h"
#include "JsonLines.h"
#include "casting/CManageAll.h"
#include "casting/Daemon.h"
#include "casting/ErrorCodes.h"
#include "casting/KtrRuntime.h"
#include "casting/McUtil.h"

namespace cli {
namespace {

struct LoginEvents {
    std::atomic<bool> errorPrinted{false};
    bool reconnect = false;
};

// Events the client hands to the watchdog rather than acting on itself.
bool isWatchdogEvent(tagNotifyExceptionType_ type) {
    switch (type) {
        case NOTIFY_STREAM_SEND_FAILED:
        case NOTIFY_CONTROL_LINK_BROKEN:
        case NOTIFY_MEDIA_LINK_BROKEN:
        case NOTIFY_REVERSE_LINK_BROKEN:
        case NOTIFY_ENCODER_FAILED:
        case NOTIFY_CAPTURE_FAILED:
        case NOTIFY_MIRRORING_ABNORMAL: return true;
        default: return false;
    }
}

long onException(tagNotifyExceptionType_ type, tagNotifyExceptionParams_* params, void* user) {
    auto* events = static_cast<LoginEvents*>(user);
    if (events == nullptr || params == nullptr) return -1;
    printLine({{QStringLiteral("event"), QStringLiteral("exception")},
               {QStringLiteral("type"), static_cast<int>(type)},
               {QStringLiteral("subCode"), params->nSubCode},
               {QStringLiteral("result"), params->nResult},
               {QStringLiteral("reason"), QString::fromUtf8(params->szReason)}});
    if (events->reconnect && isWatchdogEvent(type)) Daemon::getInstance().pushAbnormalInfo(type, *params);
    if (type == NOTIFY_LOGOUT || type == NOTIFY_RECONNECT_FAILED || type == NOTIFY_KICKED) {
        QMetaObject::invokeMethod(QCoreApplication::instance(), &QCoreApplication::quit, Qt::QueuedConnection);
    }
    return 0;
}

void onError(unsigned long code, void* user) {
    auto* events = static_cast<LoginEvents*>(user);
    if (events == nullptr) return;
    events->errorPrinted = true;
    printError(code);
}

tagDeviceInfo_ thisDevice() {
    tagDeviceInfo_ device{};
    Ktr_Memcpy_s(device.szModel, sizeof device.szModel, "zelvanor-cli", sizeof "zelvanor-cli");
    const QByteArray host = QHostInfo::localHostName().toUtf8().left(sizeof device.szName - 1);
    Ktr_Memcpy_s(device.szName, sizeof device.szName, host.constData(), static_cast<size_t>(host.size()) + 1);
    MC_Util_GetLocalMACIP(device.szMac, sizeof device.szMac, device.szAddress, sizeof device.szAddress);
    Ktr_Memcpy_s(device.szOsName, sizeof device.szOsName, "Linux", sizeof "Linux");
    device.nDeviceType = CLIENT_DEVICE_LINUX;
    return device;
}

template <size_t N>
bool copyText(char (&field)[N], const QString& text) {
    const QByteArray bytes = text.toUtf8();
    if (static_cast<size_t>(bytes.size()) >= N) return false;
    return Ktr_Memcpy_s(field, N, bytes.constData(), static_cast<size_t>(bytes.size()) + 1) == 0;
}

bool splitHostPort(const QString& text, QString& host, int& port, int defaultPort) {
    const int colon = text.lastIndexOf(QLatin1Char(':'));
    host = colon > 0 ? text.left(colon) : text;
    port = defaultPort;
    if (colon > 0) {
        bool ok = false;
        port = text.mid(colon + 1).toInt(&ok);
        if (!ok || port <= 0 || port > 65535) return false;
    }
    return !host.isEmpty();
}

int usage(const QString& text) {
    printLine({{QStringLiteral("event"), QStringLiteral("usage")}, {QStringLiteral("text"), text}});
    return 2;
}

}  // namespace

int runLogin(const QStringList& arguments) {
    QCommandLineParser parser;
    const QCommandLineOption code(QStringLiteral("code"), QStringLiteral("Connect code."), QStringLiteral("CODE"));
    const QCommandLineOption passcodeServer(QStringLiteral("passcode-server"), QStringLiteral("Passcode service."),
                                            QStringLiteral("HOST:PORT"));
    const QCommandLineOption address(QStringLiteral("address"), QStringLiteral("Panel address."),
                                     QStringLiteral("IP[:PORT]"));
    const QCommandLineOption key(QStringLiteral("key"), QStringLiteral("Panel key from discovery."),
                                 QStringLiteral("KEY"));
    const QCommandLineOption hold(QStringLiteral("hold"), QStringLiteral("Keep the session."), QStringLiteral("SECONDS"));
    const QCommandLineOption reconnect(QStringLiteral("reconnect"), QStringLiteral("Reconnect a dropped link."));
    parser.addOptions({code, passcodeServer, address, key, hold, reconnect});
    if (!parser.parse(arguments)) return usage(parser.errorText());
    if (parser.isSet(code) == parser.isSet(address)) return usage(QStringLiteral("give --code or --address"));

    tagCodeServerInfo_ server{};
    tagDeviceListUnitInfo_ panel{};
    if (parser.isSet(code)) {
        const QString text = parser.value(code).trimmed();
        if (!copyText(panel.szConnectCode, text)) return usage(QStringLiteral("a code has at most 8 characters"));
        if (text.size() == 4 && parser.isSet(passcodeServer)) {
            QString host;
            int port = 0;
            if (!splitHostPort(parser.value(passcodeServer), host, port, 0) || port == 0 ||
                !copyText(server.szIp, host)) {
                return usage(QStringLiteral("--passcode-server must be IPv4:PORT"));
            }
            server.nPort = port;
        }
    } else {
        QString host;
        int port = 0;
        if (!splitHostPort(parser.value(address), host, port, 0) || !copyText(panel.szAddress, host)) {
            return usage(QStringLiteral("--address must be IPv4[:PORT]"));
        }
        panel.nPort = port;
        if (parser.isSet(key) && !copyText(panel.szKey, parser.value(key))) return usage(QStringLiteral("bad --key"));
    }

    LoginEvents events;
    events.reconnect = parser.isSet(reconnect);
    CManageAll* library = CManageAll::getInstance();
    library->initDataCallBack(&onException, &onError, &events);
    // events lives on this stack: the library must forget it before we return.
    struct Unregister {
        CManageAll* library;
        ~Unregister() { library->initDataCallBack(nullptr, nullptr, nullptr); }
    } unregister{library};
    tagDeviceInfo_ device = thisDevice();
    library->uploadClientDeviceInfo(device);

    long userHandle = -1;
    long sessionHandle = -1;
    if (library->logIn(server, panel, userHandle, sessionHandle, nullptr, CLIENT_DEVICE_LINUX, device.szName) != 0) {
        if (!events.errorPrinted) printError(MC_Util_GetLastError());
        return 1;
    }
    VersionInfo version;
    if (library->checkVersion(version, userHandle) != 0) {
        if (!events.errorPrinted) printError(zv_error::PANEL_VERSION_TOO_LOW);
        library->logOut(userHandle, sessionHandle);
        return 1;
    }
    BusinessCap caps;
    library->getBusinessCap(caps);
    const tagDeviceInfo_ described = library->getServerInfo();
    printLine({{QStringLiteral("event"), QStringLiteral("login")},
               {QStringLiteral("name"), QString::fromUtf8(described.szName)},
               {QStringLiteral("model"), QString::fromUtf8(described.szModel)},
               {QStringLiteral("address"), QString::fromUtf8(panel.szAddress)},
               {QStringLiteral("port"), panel.nPort},
               {QStringLiteral("key"), QString::fromUtf8(panel.szKey)},
               {QStringLiteral("code"), QString::fromUtf8(panel.szConnectCode)},
               {QStringLiteral("protocol"), version.nProtocolVersion},
               {QStringLiteral("software"), QString::fromUtf8(version.szSoftwareVersion)},
               {QStringLiteral("caps"), static_cast<qint64>(caps.uBits)},
               {QStringLiteral("maxClients"), caps.nMaxClients}});

    if (parser.isSet(hold)) {
        if (events.reconnect) {
            Daemon::getInstance().initDaemon(&onException, &events, library);
            Daemon::getInstance().setReconnect(1);
        }
        const int holdSeconds = parser.value(hold).toInt();
        std::unique_ptr<QSocketNotifier> stdinWatch;
        if (holdSeconds > 0) {
            QTimer::singleShot(holdSeconds * 1000, QCoreApplication::instance(), &QCoreApplication::quit);
        } else {
            // Hold until standard input closes (the test or script that started us is done).
            stdinWatch = std::make_unique<QSocketNotifier>(STDIN_FILENO, QSocketNotifier::Read);
            QObject::connect(stdinWatch.get(), &QSocketNotifier::activated, [&stdinWatch] {
                char buffer[256];
                if (read(STDIN_FILENO, buffer, sizeof buffer) <= 0) {
                    stdinWatch->setEnabled(false);
                    QCoreApplication::quit();
                }
            });
        }
        QCoreApplication::exec();
        Daemon::getInstance().setReconnect(0);
        Daemon::getInstance().destroyDaemon();
    }
    library->logOut(userHandle, sessionHandle);
    printLine({{QStringLiteral("event"), QStringLiteral("logout")}});
    return 0;
}

}  // namespace cli
