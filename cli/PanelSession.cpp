#include "PanelSession.h"

#include <QCoreApplication>
#include <QHostInfo>
#include <QSocketNotifier>
#include <QTimer>

#include <unistd.h>

#include <memory>

#include "JsonLines.h"
#include "casting/CManageAll.h"
#include "casting/Daemon.h"
#include "casting/ErrorCodes.h"
#include "casting/KtrRuntime.h"
#include "casting/McUtil.h"
#include "passcode/PasscodePins.h"

namespace cli {
namespace {

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

bool splitHostPort(const QString& text, QString& host, int& port) {
    const int colon = text.lastIndexOf(QLatin1Char(':'));
    host = colon > 0 ? text.left(colon) : text;
    port = 0;
    if (colon > 0) {
        bool ok = false;
        port = text.mid(colon + 1).toInt(&ok);
        if (!ok || port <= 0 || port > 65535) return false;
    }
    return !host.isEmpty();
}

}  // namespace

PanelSession::PanelSession()
    : m_library(CManageAll::getInstance()),
      m_code(QStringLiteral("code"), QStringLiteral("Connect code."), QStringLiteral("CODE")),
      m_passcodeServer(QStringLiteral("passcode-server"), QStringLiteral("Passcode service (its key pinned on first use, or given as #KEYID); several instances: a comma-separated list, tried in order."), QStringLiteral("HOST:PORT[#KEYID][,...]")),
      m_address(QStringLiteral("address"), QStringLiteral("Panel address."), QStringLiteral("IP[:PORT]")),
      m_key(QStringLiteral("key"), QStringLiteral("Panel key from discovery."), QStringLiteral("KEY")),
      m_hold(QStringLiteral("hold"), QStringLiteral("Keep the session."), QStringLiteral("SECONDS")),
      m_reconnectOption(QStringLiteral("reconnect"), QStringLiteral("Reconnect a dropped link.")) {}

PanelSession::~PanelSession() {
    logOut();
    m_library->initDataCallBack(nullptr, nullptr, nullptr);
    Daemon::getInstance().setReconnect(0);
    Daemon::getInstance().destroyDaemon();
}

void PanelSession::addOptions(QCommandLineParser& parser) {
    parser.addOptions({m_code, m_passcodeServer, m_address, m_key, m_hold, m_reconnectOption});
}

bool PanelSession::readOptions(const QCommandLineParser& parser, QString* error) {
    if (!parser.isSet(m_code) && !parser.isSet(m_address)) {
        *error = QStringLiteral("give --code, --address, or both");
        return false;
    }
    if (parser.isSet(m_code)) {
        const QString text = parser.value(m_code).trimmed();
        if (!copyText(m_panel.szConnectCode, text)) {
            *error = QStringLiteral("a code has at most 8 characters");
            return false;
        }
        if (text.size() == 4 && parser.isSet(m_passcodeServer)) {
            const auto servers = zv::PasscodeServerAddress::parseList(parser.value(m_passcodeServer));
            if (!servers || !copyText(m_server.szIp, servers->first().host)) {
                *error = QStringLiteral("--passcode-server must be IPv4:PORT or IPv4:PORT#KEYID, or several separated by commas");
                return false;
            }
            m_server.nPort = servers->first().port;
            // Several instances: the library asks them in order.
            m_library->setPasscodeServers(servers->size() > 1 ? parser.value(m_passcodeServer).toUtf8().constData() : "");
            // A key given with an address is pinned for the library's check.
            for (const zv::PasscodeServerAddress& server : *servers) {
                if (!server.keyId.isEmpty() &&
                    !zv::PasscodePins(zv::PasscodePins::defaultPcPath()).pin(server.host, server.port, server.keyId, error)) {
                    return false;
                }
            }
        }
    }
    if (parser.isSet(m_address)) {
        QString host;
        int port = 0;
        if (!splitHostPort(parser.value(m_address), host, port) || !copyText(m_panel.szAddress, host)) {
            *error = QStringLiteral("--address must be IPv4[:PORT]");
            return false;
        }
        m_panel.nPort = port;
        if (parser.isSet(m_key) && !copyText(m_panel.szKey, parser.value(m_key))) {
            *error = QStringLiteral("bad --key");
            return false;
        }
    }
    m_holdSeconds = parser.isSet(m_hold) ? parser.value(m_hold).toInt() : -1;
    m_reconnect = parser.isSet(m_reconnectOption);
    return true;
}

bool PanelSession::logIn() {
    m_library->initDataCallBack(&PanelSession::onException, &PanelSession::onError, this);
    tagDeviceInfo_ device = thisDevice();
    m_library->uploadClientDeviceInfo(device);
    if (m_library->logIn(m_server, m_panel, m_userHandle, m_sessionHandle, nullptr, CLIENT_DEVICE_LINUX,
                         device.szName) != 0) {
        if (!m_errorPrinted) printError(MC_Util_GetLastError());
        return false;
    }
    m_loggedIn = true;
    VersionInfo version;
    if (m_library->checkVersion(version, m_userHandle) != 0) {
        if (!m_errorPrinted) printError(zv_error::PANEL_VERSION_TOO_LOW);
        logOut();
        return false;
    }
    BusinessCap caps;
    m_library->getBusinessCap(caps);
    const tagDeviceInfo_ described = m_library->getServerInfo();
    printLine({{QStringLiteral("event"), QStringLiteral("login")},
               {QStringLiteral("name"), QString::fromUtf8(described.szName)},
               {QStringLiteral("model"), QString::fromUtf8(described.szModel)},
               {QStringLiteral("address"), QString::fromUtf8(m_panel.szAddress)},
               {QStringLiteral("port"), m_panel.nPort},
               {QStringLiteral("key"), QString::fromUtf8(m_panel.szKey)},
               {QStringLiteral("code"), QString::fromUtf8(m_panel.szConnectCode)},
               {QStringLiteral("protocol"), version.nProtocolVersion},
               {QStringLiteral("software"), QString::fromUtf8(version.szSoftwareVersion)},
               {QStringLiteral("caps"), static_cast<qint64>(caps.uBits)},
               {QStringLiteral("maxClients"), caps.nMaxClients}});
    return true;
}

void PanelSession::armWatchdog() {
    if (!m_reconnect) return;
    Daemon::getInstance().initDaemon(&PanelSession::onException, this, m_library);
    Daemon::getInstance().setReconnect(1);
}

void PanelSession::hold(int seconds) {
    armWatchdog();
    std::unique_ptr<QSocketNotifier> stdinWatch;
    if (seconds > 0) {
        QTimer::singleShot(seconds * 1000, QCoreApplication::instance(), &QCoreApplication::quit);
    } else {
        // Until standard input closes (the script or test that started us is done).
        stdinWatch = std::make_unique<QSocketNotifier>(STDIN_FILENO, QSocketNotifier::Read);
        QSocketNotifier* watch = stdinWatch.get();
        QObject::connect(watch, &QSocketNotifier::activated, [watch] {
            char buffer[256];
            if (read(STDIN_FILENO, buffer, sizeof buffer) <= 0) {
                watch->setEnabled(false);
                QCoreApplication::quit();
            }
        });
    }
    QCoreApplication::exec();
    Daemon::getInstance().setReconnect(0);
}

void PanelSession::logOut() {
    if (!m_loggedIn) return;
    m_loggedIn = false;
    m_library->logOut(m_userHandle, m_sessionHandle);
    printLine({{QStringLiteral("event"), QStringLiteral("logout")}});
}

long PanelSession::onException(tagNotifyExceptionType_ type, tagNotifyExceptionParams_* params, void* user) {
    auto* self = static_cast<PanelSession*>(user);
    if (self == nullptr || params == nullptr) return -1;
    QJsonObject line{{QStringLiteral("event"), QStringLiteral("exception")},
                     {QStringLiteral("type"), static_cast<int>(type)},
                     {QStringLiteral("subCode"), params->nSubCode},
                     {QStringLiteral("result"), params->nResult},
                     {QStringLiteral("reason"), QString::fromUtf8(params->szReason)}};
    if (type == NOTIFY_STREAM_STATISTICS) {
        line.insert(QStringLiteral("bitrateKbps"), params->nBitRateKbps);
        line.insert(QStringLiteral("fps"), params->nFrameRate);
        line.insert(QStringLiteral("delayMs"), params->nDelayMs);
    } else if (type == NOTIFY_PANEL_RESOLUTION) {
        line.insert(QStringLiteral("width"), params->nWidth);
        line.insert(QStringLiteral("height"), params->nHeight);
    }
    printLine(line);
    if (self->m_reconnect && isWatchdogEvent(type)) Daemon::getInstance().pushAbnormalInfo(type, *params);
    if (type == NOTIFY_LOGOUT || type == NOTIFY_RECONNECT_FAILED || type == NOTIFY_KICKED ||
        type == NOTIFY_SCREEN_CAST_ENDED || type == NOTIFY_AUTHORIZATION_DENIED ||
        type == NOTIFY_REVERSE_SCREEN_ENDED || type == NOTIFY_NO_BITSTREAM) {
        QMetaObject::invokeMethod(QCoreApplication::instance(), &QCoreApplication::quit, Qt::QueuedConnection);
    }
    return 0;
}

void PanelSession::onError(unsigned long code, void* user) {
    auto* self = static_cast<PanelSession*>(user);
    if (self == nullptr) return;
    self->m_errorPrinted = true;
    printError(code);
}

}  // namespace cli
