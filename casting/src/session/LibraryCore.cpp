#include "session/LibraryCore.h"

#include "casting/Log.h"
#include "casting/McUtil.h"
#include "discovery/AvahiRuntime.h"
#include "discovery/PanelBrowser.h"
#include "media/GstInit.h"
#include "session/CastSession.h"
#include "session/ShareSession.h"
#include "session/DeviceShareSession.h"
#include "session/ClientSession.h"
#include "session/FileCastSession.h"
#include "session/Watchdog.h"
#include "transport/KnownPanels.h"

namespace zv {

LibraryCore::LibraryCore() = default;

LibraryCore::~LibraryCore() { shutdown(); }

void LibraryCore::reportError(unsigned long code) const {
    MC_Util_SetLastError(code);
    const Callbacks copy = callbacks();
    if (copy.error) copy.error(code, copy.user);
}

void LibraryCore::raiseException(tagNotifyExceptionType_ type,
                                 const std::function<void(tagNotifyExceptionParams_&)>& fill) const {
    const Callbacks copy = callbacks();
    if (!copy.exception) return;
    tagNotifyExceptionParams_ params{};
    if (fill) fill(params);
    copy.exception(type, &params, copy.user);
}

IoThread& LibraryCore::io() {
    std::lock_guard<std::mutex> lock(m_ioMutex);
    if (!m_io) startIoLocked();
    return *m_io;
}

void LibraryCore::startIoLocked() {
    if (!m_mediaWarmUp.joinable()) {
        m_mediaWarmUp = std::thread([] {
            const std::string error = media::ensureGstInitialized();
            if (!error.empty()) ZV_LOG(WARNING) << " no media engine: " << error;
        });
    }
    m_io = std::make_unique<IoThread>();
    if (!m_knownPanels) m_knownPanels = std::make_shared<KnownPanels>();
    ClientSession::Events events;
    events.exception = [this](tagNotifyExceptionType_ type, const std::function<void(tagNotifyExceptionParams_&)>& fill) {
        raiseException(type, fill);
    };
    CodeResolver::DiscoveryLookup lookup;
    lookup.byCode = [this](const QString& code) { return lookupCode(code); };
    lookup.panels = [this] { return discoveredPanels(); };
    auto known = m_knownPanels;
    auto reportError = [this](uint32_t code) { this->reportError(code); };
    auto made = m_io->call(
        [events, lookup, known, reportError, context = m_io->context()] {
            auto* session = new ClientSession(events, lookup, known, context);
            session->ensureIdentity();  // made at first start, not at the first log-in
            auto* cast = new CastSession(session, events.exception, reportError, context);
            auto* watchdog = new Watchdog(session, cast, context);
            auto* share = new ShareSession(session, events.exception, context);
            auto* fileCast = new FileCastSession(session, events.exception, reportError, context);
            return std::make_tuple(session, cast, watchdog, share, fileCast);
        },
        std::chrono::seconds(10));
    if (made) {
        std::tie(m_session, m_cast, m_watchdog, m_share, m_fileCast) = *made;
    } else {
        ZV_LOG(ERROR) << " the library's I/O thread does not run";
    }
}

ClientSession& LibraryCore::session() {
    io();
    return *m_session;
}

CastSession& LibraryCore::cast() {
    io();
    return *m_cast;
}

LibraryCore::CastChoices LibraryCore::castChoices() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_castChoices;
}

ShareSession& LibraryCore::share() {
    io();
    return *m_share;
}

DeviceShareSession& LibraryCore::devices() {
    io();
    if (m_devices == nullptr) m_devices = new DeviceShareSession(m_session, m_io->context());
    return *m_devices;
}

FileCastSession& LibraryCore::fileCast() {
    io();
    return *m_fileCast;
}

Watchdog& LibraryCore::watchdog() {
    io();
    return *m_watchdog;
}

void LibraryCore::setClientDevice(const tagDeviceInfo_& device) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_clientDevice = device;
}

tagDeviceInfo_ LibraryCore::clientDevice() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_clientDevice;
}

bool LibraryCore::startDiscovery() {
    std::lock_guard<std::mutex> lock(m_discoveryMutex);
    if (m_browser) return true;
    std::string error;
    m_avahi = AvahiRuntime::start(AvahiRuntime::Options{}, &error);
    if (!m_avahi) {
        ZV_LOG(ERROR) << " discovery unavailable: " << error;
        return false;
    }
    // The client's callbacks are looked up at each report: some are set
    // only after discovery started.
    auto forward = [this](DeviceCallback Callbacks::*which) {
        return [this, which](const KLUF_DEVICE_INFO& info) {
            const DeviceCallback callback = callbacks().*which;
            if (callback) callback(info);
        };
    };
    PanelBrowser::Callbacks browserCallbacks;
    browserCallbacks.found = forward(&Callbacks::found);
    browserCallbacks.updated = forward(&Callbacks::update);
    browserCallbacks.gone = forward(&Callbacks::exit);
    browserCallbacks.coming = forward(&Callbacks::coming);
    m_browser = std::make_unique<PanelBrowser>(m_avahi, browserCallbacks);
    ZV_LOG(INFO) << " discovery started (" << AvahiRuntime::backendName(m_avahi->backend()) << ")";
    return true;
}

void LibraryCore::stopDiscovery() {
    std::unique_ptr<PanelBrowser> browser;
    std::shared_ptr<AvahiRuntime> avahi;
    {
        std::lock_guard<std::mutex> lock(m_discoveryMutex);
        browser = std::move(m_browser);
        avahi = std::move(m_avahi);
    }
    if (browser) ZV_LOG(INFO) << " discovery stopped";
}

void LibraryCore::refreshDiscovery() {
    std::lock_guard<std::mutex> lock(m_discoveryMutex);
    if (m_browser) m_browser->refresh();
}

std::vector<KLUF_DEVICE_INFO> LibraryCore::discoveredPanels() const {
    std::lock_guard<std::mutex> lock(m_discoveryMutex);
    return m_browser ? m_browser->panels() : std::vector<KLUF_DEVICE_INFO>();
}

std::optional<KLUF_DEVICE_INFO> LibraryCore::lookupCode(const QString& code) const {
    std::lock_guard<std::mutex> lock(m_discoveryMutex);
    return m_browser ? m_browser->lookupCode(code) : std::nullopt;
}

void LibraryCore::shutdown() {
    stopDiscovery();
    IoThread* io = nullptr;
    ClientSession* session = nullptr;
    CastSession* cast = nullptr;
    Watchdog* watchdog = nullptr;
    ShareSession* share = nullptr;
    FileCastSession* fileCast = nullptr;
    {
        std::lock_guard<std::mutex> lock(m_ioMutex);
        io = m_io.get();
        session = m_session;
        cast = m_cast;
        watchdog = m_watchdog;
        share = m_share;
        fileCast = m_fileCast;
    }
    // Not under the lock: work queued on the I/O thread may need it.
    if (io != nullptr && session != nullptr) {
        io->call(
            [this, session, cast, watchdog, share, fileCast] {
                watchdog->shutdown();
                cast->stop(QStringLiteral("closing"));
                share->stop(QStringLiteral("closing"));
                fileCast->stop(QStringLiteral("closing"));
                if (m_devices != nullptr) m_devices->stop(QStringLiteral("closing"));
                session->logout();
                return true;
            },
            std::chrono::seconds(5));
    }
    std::unique_ptr<IoThread> owned;
    {
        std::lock_guard<std::mutex> lock(m_ioMutex);
        owned = std::move(m_io);
        m_session = nullptr;
        m_cast = nullptr;
        m_watchdog = nullptr;
        m_share = nullptr;
        m_fileCast = nullptr;
    }
    owned.reset();  // joins the thread; its objects are deleted there
    m_devices = nullptr;
    if (m_mediaWarmUp.joinable()) m_mediaWarmUp.join();
}

}  // namespace zv
