#include "casting/CManageAll.h"

#include <QCoreApplication>
#include <QHostInfo>
#include <QSysInfo>

#include <cstring>

#include "casting/CClientConfig.h"
#include "casting/Daemon.h"
#include "casting/KtrRuntime.h"
#include "protocol/ConnectCode.h"
#include "protocol/ProtocolConstants.h"
#include "protocol/WireCodec.h"
#include "casting/BusinessSettings.h"
#include "session/CastSession.h"
#include "security/KeyId.h"
#include "transport/KnownPanels.h"
#include "session/ClientSession.h"
#include "session/LibraryCore.h"
#include "session/Watchdog.h"
#include "casting/ErrorCodes.h"
#include "casting/Log.h"
#include "casting/McUtil.h"


namespace zv {
// CManageAll-file.cpp
long fileCastRequest(LibraryCore& core);
void stopFileCast(LibraryCore& core, const QString& reason);
}  // namespace zv

namespace {

// Operations whose component is not in this build answer with a failure and
// say so, instead of pretending to succeed.
[[maybe_unused]] long unavailable(const char* operation) {
    LOG(WARNING) << "[" << operation << "] unavailable in this build";
    MC_Util_SetLastError(zv_error::CONNECT_FAILED);
    return -1;
}

}  // namespace

CManageAll::CManageAll() : m_core(std::make_unique<zv::LibraryCore>()) {}
// Too late for an orderly end (see shutdown); it only catches a process that
// never called shutdown.
CManageAll::~CManageAll() { shutdown(); }

CManageAll* CManageAll::getInstance() {
    static CManageAll instance;
    return &instance;
}

zv::LibraryCore& CManageAll::core() { return *live(); }

zv::LibraryCore* CManageAll::live() {
    m_inUse = true;
    return m_core.get();
}

long CManageAll::initLogOut(const char* logPath, bool enable) {
    if (!enable) return 0;
    zv_log::start("zelvanor", logPath != nullptr ? std::string(logPath) : zv_log::defaultLogDir());
    ZV_LOG(INFO) << " casting library logging started";
    return 0;
}

long CManageAll::initCallBack(PingDataCallback pingCallback) {
    m_core->editCallbacks([&](auto& c) { c.ping = pingCallback; });
    return 0;
}

long CManageAll::initDataCallBack(ExceptionCallback exceptionCallback, ErrorCallback errorCallback, void* user) {
    m_core->editCallbacks([&](auto& c) {
        c.exception = std::move(exceptionCallback);
        c.error = errorCallback;
        c.user = user;
    });
    return 0;
}

long CManageAll::uploadClientDeviceInfo(tagDeviceInfo_& info) {
    m_core->setClientDevice(info);
    return 0;
}

namespace {

constexpr auto kLoginTimeout = std::chrono::seconds(12);  // the session's own limits end well before

template <size_t N>
void copyField(char (&field)[N], const QString& text) {
    const QByteArray bytes = text.toUtf8().left(static_cast<int>(N) - 1);
    Ktr_Memset_s(field, N, 0, N);
    Ktr_Memcpy_s(field, N, bytes.constData(), static_cast<size_t>(bytes.size()));
}

template <size_t N>
void copyField(char (&field)[N], const std::string& text) {
    copyField(field, QString::fromStdString(text));
}

QString fieldText(const char* field, size_t size) { return QString::fromUtf8(field, static_cast<int>(strnlen(field, size))); }

zv::wire::Hello makeHello(const tagDeviceInfo_& device, ClientDeviceType type, const char* hostName) {
    zv::wire::Hello hello;
    hello.set_major(zv::kProtocolMajor);
    hello.set_minor(zv::kProtocolMinor);
    hello.set_host((hostName != nullptr && hostName[0] != '\0' ? QString::fromUtf8(hostName) : QHostInfo::localHostName())
                       .toStdString());
    hello.set_device_type(type);
    zv::wire::DeviceInfo& info = *hello.mutable_device();
    info.set_model(fieldText(device.szModel, sizeof device.szModel).toStdString());
    info.set_name(fieldText(device.szName, sizeof device.szName).toStdString());
    info.set_address(fieldText(device.szAddress, sizeof device.szAddress).toStdString());
    info.set_mac(fieldText(device.szMac, sizeof device.szMac).toStdString());
    const QString os = fieldText(device.szOsName, sizeof device.szOsName);
    info.set_os((os.isEmpty() ? QSysInfo::prettyProductName() : os).toStdString());
    info.set_width(device.nScreenWidth);
    info.set_height(device.nScreenHeight);
    return hello;
}

}  // namespace

long CManageAll::logIn(tagCodeServerInfo_ server, tagDeviceListUnitInfo_& device, long& userHandle,
                       long& sessionHandle, void*, ClientDeviceType type, const char* hostName) {
    zv::LoginTarget target;
    target.code = fieldText(device.szConnectCode, sizeof device.szConnectCode);
    target.passcodeHost = fieldText(server.szIp, sizeof server.szIp);
    target.passcodePort = static_cast<quint16>(server.nPort > 0 && server.nPort <= 65535 ? server.nPort : 0);
    // With a code, an address given too (zelvanor-cli --address) is tried first.
    target.address = fieldText(device.szAddress, sizeof device.szAddress);
    target.port = static_cast<quint16>(device.nPort > 0 && device.nPort <= 65535 ? device.nPort : 0);
    if (target.code.isEmpty()) {
        target.key = fieldText(device.szKey, sizeof device.szKey);
        target.name = fieldText(device.szName, sizeof device.szName);
    }
    const zv::wire::Hello hello = makeHello(m_core->clientDevice(), type, hostName);
    ZV_LOG(INFO) << " log in " << (target.code.isEmpty() ? "to " + target.address.toStdString()
                                                          : "with code " + target.code.toStdString());

    auto promise = std::make_shared<std::promise<zv::ClientSession::LoginResult>>();
    std::future<zv::ClientSession::LoginResult> future = promise->get_future();
    zv::LibraryCore* core = live();
    core->io().post([core, target, hello, promise] {
        core->session().login(target, hello, [promise](const zv::ClientSession::LoginResult& result) {
            promise->set_value(result);
        });
    });
    zv::ClientSession::LoginResult result;
    if (future.wait_for(kLoginTimeout) == std::future_status::ready) {
        result = future.get();
    } else {
        result.error = zv_error::CONNECT_FAILED;
        result.detail = QStringLiteral("log-in did not finish in time");
    }
    if (result.error != 0) {
        ZV_LOG(WARNING) << " log-in failed: " << zv_error::describe(result.error) << " (" << result.detail.toStdString() << ")";
        m_core->reportError(result.error);
        return -1;
    }

    const zv::wire::Welcome& welcome = result.welcome;
    copyField(device.szAddress, result.panel.address);
    copyField(device.szName, welcome.panel().name());
    copyField(device.szKey, result.panel.expectedKey);
    copyField(device.szFingerprint, QString::fromLatin1(zv::keyHashOfKeyId(result.panel.expectedKey).toHex()));
    copyField(device.szConnectCode, result.code);
    device.nPort = result.panel.port;
    device.nDeviceType = welcome.panel().device_type();
    device.nVersion = static_cast<int32_t>(welcome.major());
    device.uCapabilities = static_cast<uint32_t>(welcome.caps().bits());
    userHandle = static_cast<long>(welcome.session());
    sessionHandle = 1;
    MC_Util_SetLastError(0);
    return 0;
}

int CManageAll::forgetPanel(const char* name) {
    const QString panel = name != nullptr ? QString::fromUtf8(name) : QString();
    const int removed = panel.isEmpty() ? 0 : zv::KnownPanels().forgetName(panel);
    ZV_LOG(INFO) << " forgot " << removed << " pinned key(s) of panel \"" << panel.toStdString() << "\"";
    return removed;
}

long CManageAll::logOut(long, long) {
    zv::LibraryCore* core = live();
    core->io().call(
        [core] {
            core->cast().stop(QStringLiteral("logged out"));
            core->session().logout();
            return true;
        },
        std::chrono::seconds(5));
    return 0;
}

namespace {

// What the panel said when the session began; empty when not logged in.
std::optional<zv::wire::Welcome> currentWelcome(zv::LibraryCore& core) {
    const auto welcome = core.io().call(
        [&core]() -> std::optional<zv::wire::Welcome> {
            if (!core.session().isLoggedIn()) return std::nullopt;
            return core.session().welcome();
        },
        std::chrono::seconds(5));
    return welcome ? *welcome : std::nullopt;
}

}  // namespace

long CManageAll::checkVersion(VersionInfo& info, long) {
    const std::optional<zv::wire::Welcome> welcome = currentWelcome(*live());
    if (!welcome) {
        ZV_LOG(WARNING) << " not logged in";
        m_core->reportError(zv_error::CONNECT_FAILED);
        return -1;
    }
    // Peers talk only within one major, so the panel accepts clients of its own major.
    info.nProtocolVersion = static_cast<int32_t>(welcome->major());
    info.nMinClientVersion = static_cast<int32_t>(welcome->major());
    copyField(info.szSoftwareVersion, welcome->panel().software());
    if (welcome->major() != uint32_t(zv::kProtocolMajor)) {
        ZV_LOG(WARNING) << " panel speaks protocol " << welcome->major() << "." << welcome->minor() << ", this PC "
                        << zv::kProtocolMajor << "." << zv::kProtocolMinor;
        m_core->reportError(zv_error::PANEL_VERSION_TOO_LOW);
        return -1;
    }
    return 0;
}

long CManageAll::getBusinessCap(BusinessCap& cap) {
    const std::optional<zv::wire::Welcome> welcome = currentWelcome(*live());
    if (!welcome) return -1;
    cap.uBits = static_cast<uint32_t>(welcome->caps().bits());
    cap.nMaxClients = welcome->caps().max_clients();
    cap.nMaxWidth = welcome->caps().max_width();
    cap.nMaxHeight = welcome->caps().max_height();
    return 0;
}

tagDeviceInfo_ CManageAll::getServerInfo() {
    tagDeviceInfo_ info{};
    const std::optional<zv::wire::Welcome> welcome = currentWelcome(*live());
    if (!welcome) return info;
    const zv::wire::PanelInfo& panel = welcome->panel();
    copyField(info.szModel, panel.model());
    copyField(info.szName, panel.name());
    copyField(info.szAddress, panel.address());
    info.nDeviceType = panel.device_type();
    info.nVersion = static_cast<int32_t>(welcome->major());
    info.nScreenWidth = panel.width();
    info.nScreenHeight = panel.height();
    return info;
}

int CManageAll::getServerDeviceType() { return getServerInfo().nDeviceType; }

int CManageAll::getStatues() {
    zv::LibraryCore* core = live();
    const auto loggedIn = core->io().call([core] { return core->session().isLoggedIn(); }, std::chrono::seconds(5));
    return loggedIn && *loggedIn ? 2 : 0;
}

long CManageAll::initProtocol(ProtocolType stream, ProtocolType reverse, ProtocolType mouse) {
    auto valid = [](ProtocolType t) { return t == PROTOCOL_UDP || t == PROTOCOL_TCP || t == PROTOCOL_BRX; };
    if (!valid(stream) || !valid(reverse) || !valid(mouse)) {
        ZV_LOG(WARNING) << " unknown protocol " << stream << "/" << reverse << "/" << mouse;
        return -1;
    }
    m_core->editCastChoices([&](auto& choices) {
        choices.stream = stream;
        choices.reverse = reverse;
        choices.mouse = mouse;
    });
    return 0;
}

long CManageAll::miracastResq(long, tagDeviceListUnitInfo_&, CaptureMouseCallback mouseCallback, void* mouseUser,
                              ReverseControlCallback reverseCallback, void* reverseUser, bool,
                              VideoStreamSource source) {
    // A file cast sends no screen: the file follows with setCastFile.
    if (source == VIDEO_SOURCE_FILE) return zv::fileCastRequest(*live());
    const zv::LibraryCore::CastChoices choices = m_core->castChoices();
    zv::CastOptions options;
    options.source = source;
    if (source == VIDEO_SOURCE_SCREEN && choices.window.nWindowId != 0) options.source = VIDEO_SOURCE_WINDOW;
    options.windowId = choices.window.nWindowId;
    options.transport = choices.stream;
    options.audio = true;
    options.softwareEncoderPreferred = Singleton<CClientConfig>::getInstance().getCodingMode() == CODING_SOFTWARE_PREFERRED;
    options.mouseCallback = mouseCallback;
    options.mouseUser = mouseUser;
    options.reverseCallback = reverseCallback;
    options.reverseUser = reverseUser;

    using Answer = std::pair<ProjectOrShareReqResult, uint32_t>;
    auto promise = std::make_shared<std::promise<Answer>>();
    std::future<Answer> future = promise->get_future();
    zv::LibraryCore* core = live();
    core->io().post([core, options, promise] {
        core->cast().request(options, [promise](ProjectOrShareReqResult result, uint32_t error) {
            promise->set_value({result, error});
        });
    });
    Answer answer{FAIL, zv_error::CONNECT_FAILED};
    if (future.wait_for(std::chrono::seconds(15)) == std::future_status::ready) {
        answer = future.get();
    } else {
        ZV_LOG(WARNING) << " no answer to the cast request in time";
        core->io().post([core] { core->cast().stop(QStringLiteral("timeout")); });
    }
    if (answer.first == FAIL && answer.second != 0) m_core->reportError(answer.second);
    ZV_LOG(INFO) << " cast request answered " << answer.first;
    return answer.first;
}

long CManageAll::pauseMiracast(bool pause) {
    zv::LibraryCore* core = live();
    core->io().post([core, pause] { core->cast().pause(pause); });
    return 0;
}

long CManageAll::stopMiracast() {
    zv::LibraryCore* core = live();
    zv::stopFileCast(*core, QStringLiteral("stopped by the user"));
    core->io().call(
        [core] {
            core->cast().stop(QStringLiteral("stopped by the user"));
            return true;
        },
        std::chrono::seconds(5));
    return 0;
}

long CManageAll::setWindowScreenInfo(tagWindowScreenInfo_ info) {
    m_core->editCastChoices([&](auto& choices) { choices.window = info; });
    return 0;
}

long CManageAll::voiceOn(int close, bool) {
    zv::LibraryCore* core = live();
    const auto sent = core->io().call([core, close] { return core->cast().setVoice(close == 0); }, std::chrono::seconds(5));
    return sent && *sent ? 0 : -1;
}

long CManageAll::reverseCtrlOn(int on, ScreenControlType) {
    zv::LibraryCore* core = live();
    const auto sent = core->io().call([core, on] { return core->cast().setControl(on != 0); }, std::chrono::seconds(5));
    return sent && *sent ? 0 : -1;
}

// Reverse screen: CManageAll-share.cpp.

void CManageAll::setFoundDeviceCallback(DeviceCallback callback) {
    m_core->editCallbacks([&](auto& c) { c.found = std::move(callback); });
}
void CManageAll::setExitDeviceCallback(DeviceCallback callback) {
    m_core->editCallbacks([&](auto& c) { c.exit = std::move(callback); });
}
void CManageAll::setUpdateDeviceCallback(DeviceCallback callback) {
    m_core->editCallbacks([&](auto& c) { c.update = std::move(callback); });
}
void CManageAll::setDevComingCallback(DeviceCallback callback) {
    m_core->editCallbacks([&](auto& c) { c.coming = std::move(callback); });
}
long CManageAll::startDiscovery() {
    if (live()->startDiscovery()) return 0;
    MC_Util_SetLastError(zv_error::NO_NETWORK);
    return -1;
}
long CManageAll::endDiscovery() {
    m_core->stopDiscovery();
    return 0;
}
long CManageAll::refreshGroupList() {
    m_core->refreshDiscovery();
    return 0;
}

long CManageAll::reportOtherClientInfo(const char* event) {
    return reportClientEventInfo(event, false, "");
}

long CManageAll::reportClientEventInfo(const char* event, bool flag, const char* detail) {
    zv::wire::Report report;
    // Through QString: wire texts must be valid UTF-8.
    report.set_event(QString::fromUtf8(event != nullptr ? event : "").toStdString());
    report.set_flag(flag);
    report.set_detail(QString::fromUtf8(detail != nullptr ? detail : "").toStdString());
    ZV_LOG(INFO) << " " << report.event() << " " << flag << " " << report.detail();
    zv::LibraryCore* core = live();
    core->io().post([core, envelope = zv::wrap(report)] {
        if (core->session().isLoggedIn()) core->session().send(envelope);
    });
    return 0;
}

void CManageAll::destroy() {
    shutdown();
    ZV_LOG(INFO) << " library session released";
}

void CManageAll::shutdown() {
    std::lock_guard<std::mutex> lock(m_shutdownMutex);
    if (!m_inUse.exchange(false)) return;
    // The I/O thread's last work (log-out, stopping a cast) is posted to its
    // Qt event loop, and its objects are deleted by that loop as it ends;
    // without a QCoreApplication neither happens.
    if (QCoreApplication::instance() == nullptr) {
        ZV_LOG(WARNING) << " shut down after Qt ended: any work left for the I/O thread is waited for in vain"
                           " and the thread's objects stay undeleted";
    }
    m_core->shutdown();
    ZV_LOG(INFO) << " casting library shut down";
}
