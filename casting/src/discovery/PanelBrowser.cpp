#include "discovery/PanelBrowser.h"

#include <cstring>
#include <utility>

#include "casting/Log.h"
#include "protocol/ProtocolConstants.h"

namespace zv {
namespace {

// Copies UTF-8 text into a fixed field, cut so that it never ends inside a
// character, always terminated.
template <size_t N>
void copyText(char (&field)[N], const std::string& text) {
    size_t length = std::min(text.size(), N - 1);
    if (length < text.size()) {
        while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80) --length;
    }
    std::memcpy(field, text.data(), length);
    field[length] = '\0';
}

// How long a panel seen only over loopback waits for its LAN address.
constexpr std::chrono::milliseconds kLoopbackGrace{1000};

bool isLoopback(const std::string& address) {
    return address.rfind("127.", 0) == 0;
}

std::string txtValue(const std::map<std::string, std::string>& txt, const char* key) {
    const auto it = txt.find(key);
    return it == txt.end() ? std::string() : it->second;
}

}  // namespace

bool PanelBrowser::Panel::operator==(const Panel& other) const {
    return instance == other.instance && key == other.key && code == other.code && version == other.version &&
           name == other.name && access == other.access && address == other.address && port == other.port &&
           interface == other.interface;
}

std::optional<PanelBrowser::Panel> PanelBrowser::fromResolution(const AvahiResolved& resolved) {
    Panel panel;
    panel.key = txtValue(resolved.txt, "key");
    if (panel.key.empty() || panel.key.size() >= sizeof(KLUF_DEVICE_INFO::szDeviceKey)) return std::nullopt;
    panel.instance = resolved.name;
    panel.code = txtValue(resolved.txt, "code");
    panel.version = txtValue(resolved.txt, "ver");
    panel.access = panelAccessFromText(txtValue(resolved.txt, "access"));
    // The TXT name is the panel's own; the instance name may be cut to 63
    // bytes or carry a " #2" after a collision.
    panel.name = txtValue(resolved.txt, "name");
    if (panel.name.empty()) panel.name = resolved.name;
    panel.address = resolved.address;
    panel.port = resolved.port;
    panel.interface = resolved.interface;
    return panel;
}

KLUF_DEVICE_INFO PanelBrowser::toDeviceInfo(const Panel& panel) {
    KLUF_DEVICE_INFO info;
    std::memset(&info, 0, sizeof info);
    info.nInterfaceIndex = panel.interface;
    copyText(info.szDeviceKey, panel.key);
    copyText(info.szInfo, panel.version);
    copyText(info.szConnectCode, panel.code);
    copyText(info.szDetail, panel.address);
    copyText(info.szDeviceName, panel.name);
    info.nValue = panel.port;
    return info;
}

PanelBrowser::PanelBrowser(std::shared_ptr<AvahiRuntime> runtime, Callbacks callbacks)
    : m_runtime(std::move(runtime)), m_callbacks(std::move(callbacks)) {
    m_runtime->locked([this] {
        m_refreshLater = std::make_unique<AvahiDeferred>(*m_runtime, [this] { doRefresh(); });
        m_loopbackWait = std::make_unique<AvahiDeferred>(*m_runtime, [this] { reconcileAll(); });
        m_listenerId = m_runtime->addStateListener([this](AvahiRuntime::State state) { onRuntimeState(state); });
        if (m_runtime->state() == AvahiRuntime::State::Ready) startBrowsing();
    });
}

PanelBrowser::~PanelBrowser() {
    m_runtime->locked([this] {
        m_runtime->removeStateListener(m_listenerId);
        m_refreshLater.reset();
        m_loopbackWait.reset();
        stopBrowsing();
        m_services.clear();
    });
}

void PanelBrowser::refresh() {
    m_runtime->locked([this] { m_refreshLater->schedule(); });
}

std::optional<KLUF_DEVICE_INFO> PanelBrowser::lookupCode(const QString& code) const {
    if (code.isEmpty()) return std::nullopt;
    const std::string wanted = code.toStdString();
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& entry : m_table) {
        if (wanted == entry.second.info.szConnectCode) return entry.second.info;
    }
    return std::nullopt;
}

std::vector<KLUF_DEVICE_INFO> PanelBrowser::panels() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<KLUF_DEVICE_INFO> all;
    for (const auto& entry : m_table) all.push_back(entry.second.info);
    return all;
}

std::optional<PanelAccess> PanelBrowser::accessModeOf(const QString& key) const {
    if (key.isEmpty()) return std::nullopt;
    const std::string wanted = key.toStdString();
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& entry : m_table) {
        if (wanted == entry.second.info.szDeviceKey) return entry.second.access;
    }
    return std::nullopt;
}

void PanelBrowser::list(const std::string& id, const Panel& panel) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_table[id] = Listed{toDeviceInfo(panel), panel.access};
}

void PanelBrowser::unlist(const std::string& id) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_table.erase(id);
}

void PanelBrowser::onRuntimeState(AvahiRuntime::State state) {
    switch (state) {
    case AvahiRuntime::State::Ready:
        if (!m_browser) startBrowsing();
        break;
    case AvahiRuntime::State::Registering: break;  // browsing goes on while the host name settles
    case AvahiRuntime::State::Lost: {
        // Nothing known can be trusted any more; browsing starts over on Ready.
        std::vector<Report> reports;
        stopBrowsing();
        goneAll(reports);
        deliver(reports);
        break;
    }
    }
}

void PanelBrowser::startBrowsing() {
    m_browser = std::make_unique<AvahiBrowser>(*m_runtime, kServiceType, AVAHI_PROTO_INET,
                                               [this](const AvahiBrowseEvent& event) { onBrowse(event); });
    if (!m_browser->valid()) {
        ZV_LOG(ERROR) << " Cannot browse for " << kServiceType << ": "
                      << AvahiRuntime::errorText(m_browser->error());
        m_browser.reset();
        return;
    }
    ZV_LOG(INFO) << " Browsing for " << kServiceType << ".";
}

void PanelBrowser::stopBrowsing() {
    m_browser.reset();
    for (auto& entry : m_services) entry.second.paths.clear();
}

void PanelBrowser::doRefresh() {
    if (m_runtime->state() != AvahiRuntime::State::Ready) return;
    stopBrowsing();
    for (auto& entry : m_services) {
        entry.second.refreshing = true;
        entry.second.firstSeen = std::chrono::steady_clock::now();
    }
    startBrowsing();
}

void PanelBrowser::onBrowse(const AvahiBrowseEvent& event) {
    std::vector<Report> reports;
    switch (event.event) {
    case AVAHI_BROWSER_NEW: {
        const std::string id = serviceId(event);
        auto inserted = m_services.try_emplace(id);
        Service& service = inserted.first->second;
        service.identity = event;
        if (inserted.second) service.firstSeen = std::chrono::steady_clock::now();
        const PathKey key{event.interface, event.protocol};
        if (service.paths.count(key)) break;
        Path& path = service.paths[key];
        path.order = m_nextOrder++;
        ZV_VLOG(1) << " Service '" << event.name << "' seen on interface " << event.interface << ".";
        path.resolver = std::make_unique<AvahiResolver>(
            *m_runtime, event, AVAHI_PROTO_INET,
            [this, id, key](const AvahiResolved& resolved) { onResolved(id, key, resolved); });
        if (!path.resolver->valid()) {
            ZV_LOG(ERROR) << " Cannot resolve service '" << event.name
                          << "': " << AvahiRuntime::errorText(path.resolver->error());
            path.failed = true;
        }
        break;
    }
    case AVAHI_BROWSER_REMOVE: {
        const std::string id = serviceId(event);
        auto it = m_services.find(id);
        if (it == m_services.end()) break;
        it->second.paths.erase(PathKey{event.interface, event.protocol});
        ZV_VLOG(1) << " Service '" << event.name << "' left interface " << event.interface << ".";
        reconcile(id, reports);
        break;
    }
    case AVAHI_BROWSER_ALL_FOR_NOW:
        // After refresh(): whatever the new browser did not find is gone.
        for (auto it = m_services.begin(); it != m_services.end();) {
            Service& service = it->second;
            if (service.refreshing && service.paths.empty()) {
                if (service.reported) reports.push_back({Kind::Gone, toDeviceInfo(*service.reported)});
                unlist(it->first);
                it = m_services.erase(it);
            } else {
                ++it;
            }
        }
        break;
    case AVAHI_BROWSER_CACHE_EXHAUSTED: break;
    case AVAHI_BROWSER_FAILURE:
        ZV_LOG(ERROR) << " Browsing for " << kServiceType << " failed: " << AvahiRuntime::errorText(event.error);
        break;
    }
    deliver(reports);
}

void PanelBrowser::onResolved(const std::string& id, PathKey key, const AvahiResolved& resolved) {
    auto service = m_services.find(id);
    if (service == m_services.end()) return;
    auto path = service->second.paths.find(key);
    if (path == service->second.paths.end()) return;
    std::vector<Report> reports;
    if (!resolved.found) {
        ZV_LOG(WARNING) << " Cannot resolve service '" << resolved.name
                        << "': " << AvahiRuntime::errorText(resolved.error);
        path->second.failed = true;
        reconcile(id, reports);  // a path that was waited for will not come
        deliver(reports);
        return;
    }
    path->second.resolved = true;
    path->second.failed = false;
    path->second.panel = fromResolution(resolved);
    if (!path->second.panel)
        ZV_LOG(WARNING) << " Service '" << resolved.name << "' announces no usable key; ignored.";
    reconcile(id, reports);
    deliver(reports);
}

void PanelBrowser::reconcile(const std::string& id, std::vector<Report>& reports) {
    auto it = m_services.find(id);
    if (it == m_services.end()) return;
    Service& service = it->second;

    // The earliest path wins, but a LAN address beats loopback: a panel on
    // this host is also seen on "lo" as 127.0.0.1.
    const Path* primary = nullptr;
    bool pending = false;  // a path whose first resolution is under way
    auto rank = [](const Path& path) { return std::make_pair(isLoopback(path.panel->address), path.order); };
    for (const auto& entry : service.paths) {
        const Path& path = entry.second;
        pending = pending || (!path.resolved && !path.failed);
        if (path.panel && (primary == nullptr || rank(path) < rank(*primary))) primary = &path;
    }

    if (primary == nullptr) {
        // Not reported yet (or being refreshed) and still resolving: nothing
        // to tell. Once reported, the panel is gone when no path resolves to
        // it any more, even while another path is still being resolved: a
        // colliding announcer's short-lived record on another interface must
        // not keep a withdrawn panel listed until that record expires.
        if (pending && (!service.reported || service.refreshing)) return;
        if (service.reported) reports.push_back({Kind::Gone, toDeviceInfo(*service.reported)});
        service.reported.reset();
        unlist(id);
        if (service.paths.empty()) m_services.erase(it);
        return;
    }

    if (isLoopback(primary->panel->address) && (!service.reported || service.refreshing)) {
        // A panel on this host shows on "lo" first; its LAN path follows
        // within moments. Wait for it rather than report 127.0.0.1 and then
        // an update, but not for ever: a loopback-only panel is still a panel.
        for (const auto& entry : service.paths)
            if (!entry.second.resolved && !entry.second.failed) return;
        const auto waited = std::chrono::steady_clock::now() - service.firstSeen;
        if (waited < kLoopbackGrace) {
            m_loopbackWait->schedule(std::chrono::duration_cast<std::chrono::milliseconds>(kLoopbackGrace - waited));
            return;
        }
    }

    const Panel& panel = *primary->panel;
    if (service.reported && !service.refreshing && service.reported->key != panel.key) {
        // The name now leads to another panel: a colliding announcer that
        // held the name for a moment under load, whose record outlives the
        // reported panel's goodbye. The reported panel is gone now, not when
        // that record expires.
        reports.push_back({Kind::Gone, toDeviceInfo(*service.reported)});
        service.reported.reset();
        unlist(id);
    }
    const bool newKey = m_keysSeen.insert(panel.key).second;
    if (newKey) reports.push_back({Kind::Coming, toDeviceInfo(panel)});
    if (!service.reported || service.refreshing)
        reports.push_back({Kind::Found, toDeviceInfo(panel)});
    else if (*service.reported != panel)
        reports.push_back({Kind::Updated, toDeviceInfo(panel)});
    service.reported = panel;
    service.refreshing = false;
    list(id, panel);
}

void PanelBrowser::reconcileAll() {
    // Services between refresh() and the new browser's first answer have no
    // path yet; the browser's ALL_FOR_NOW settles those.
    std::vector<std::string> ids;
    for (const auto& entry : m_services)
        if (!entry.second.paths.empty()) ids.push_back(entry.first);
    std::vector<Report> reports;
    for (const std::string& id : ids) reconcile(id, reports);
    deliver(reports);
}

void PanelBrowser::goneAll(std::vector<Report>& reports) {
    for (const auto& entry : m_services) {
        if (entry.second.reported) reports.push_back({Kind::Gone, toDeviceInfo(*entry.second.reported)});
    }
    m_services.clear();
    std::lock_guard<std::mutex> lock(m_mutex);
    m_table.clear();
}

void PanelBrowser::deliver(const std::vector<Report>& reports) {
    for (const Report& report : reports) {
        const DeviceCallback* callback = nullptr;
        switch (report.kind) {
        case Kind::Coming: callback = &m_callbacks.coming; break;
        case Kind::Found: callback = &m_callbacks.found; break;
        case Kind::Updated: callback = &m_callbacks.updated; break;
        case Kind::Gone: callback = &m_callbacks.gone; break;
        }
        if (callback && *callback) (*callback)(report.info);
    }
}

}  // namespace zv
