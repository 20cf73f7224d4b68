// Finds panels on the LAN: browses "_zelvanor._tcp" on every interface over
// IPv4, resolves each service and keeps watching it, and reports panels as
// KLUF_DEVICE_INFO records. A service seen on several interfaces is one panel.
// The record has no field for the panel's access mode: accessModeOf() tells it.
#pragma once

#include <QString>

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "casting/Callbacks.h"
#include "discovery/AvahiLookup.h"
#include "discovery/PanelAccess.h"

namespace zv {

class PanelBrowser {
public:
    // All called on the discovery thread, never under the browser's lock, so
    // they may call lookupCode(), panels() and refresh(). They must not
    // destroy the browser, nor wait for a thread that might (post instead).
    struct Callbacks {
        DeviceCallback found;    // a panel appeared, or is present again after refresh()
        DeviceCallback updated;  // its TXT record (code, name, version, access) or address changed
        DeviceCallback gone;     // goodbye or expiry of its records; carries the last record reported
        DeviceCallback coming;   // once per key, the first time this browser sees it, just before found
    };

    // Browses as soon as the runtime is ready. Any thread.
    PanelBrowser(std::shared_ptr<AvahiRuntime> runtime, Callbacks callbacks);
    // Any thread but the discovery thread's callbacks. Reports nothing more.
    ~PanelBrowser();
    PanelBrowser(const PanelBrowser&) = delete;
    PanelBrowser& operator=(const PanelBrowser&) = delete;

    // Queries the network afresh (a new browser and new resolvers) and
    // reports every panel still present as found again; a panel that does not
    // answer any more is reported gone. Asynchronous. Any thread.
    void refresh();
    // The panel announcing this connect code, from the current table. Any thread.
    std::optional<KLUF_DEVICE_INFO> lookupCode(const QString& code) const;
    // Every panel reported and not gone. Any thread.
    std::vector<KLUF_DEVICE_INFO> panels() const;
    // How the panel with this key lets PCs in (TXT "access"), from the
    // current table: nullopt when no such panel is listed, or it announces
    // no mode this version knows. Any thread.
    std::optional<PanelAccess> accessModeOf(const QString& key) const;

    // What one resolved service announces.
    struct Panel {
        std::string instance;  // DNS-SD instance name
        std::string key, code, version, name;
        std::optional<PanelAccess> access;
        std::string address;  // dotted IPv4
        uint16_t port = 0;
        int interface = 0;
        bool operator==(const Panel& other) const;
        bool operator!=(const Panel& other) const { return !(*this == other); }
    };
    // Nullopt when the service lacks a "key", or has one too long for the
    // record (not one of our panels: a cut key could never be pinned).
    static std::optional<Panel> fromResolution(const AvahiResolved& resolved);
    // The record the client gets; texts are cut to their fields (never in the
    // middle of a UTF-8 character) and always terminated.
    static KLUF_DEVICE_INFO toDeviceInfo(const Panel& panel);

private:
    struct PathKey {
        int interface;
        int protocol;
        bool operator<(const PathKey& other) const {
            return interface != other.interface ? interface < other.interface : protocol < other.protocol;
        }
    };
    struct Path {
        std::unique_ptr<AvahiResolver> resolver;
        std::optional<Panel> panel;  // last resolution, when it was one of ours
        bool resolved = false;       // resolved at least once
        bool failed = false;         // its last resolution failed
        uint64_t order = 0;          // the earliest seen path is the one reported
    };
    struct Service {
        AvahiBrowseEvent identity;  // name, type and domain
        std::map<PathKey, Path> paths;
        std::optional<Panel> reported;
        bool refreshing = false;  // report as found at the next resolution
        std::chrono::steady_clock::time_point firstSeen;
    };
    enum class Kind { Coming = 1, Found = 2, Updated = 3, Gone = 4 };
    struct Report {
        Kind kind;
        KLUF_DEVICE_INFO info;
    };

    void onRuntimeState(AvahiRuntime::State state);
    void startBrowsing();
    void stopBrowsing();
    void doRefresh();
    void onBrowse(const AvahiBrowseEvent& event);
    void onResolved(const std::string& serviceId, PathKey pathKey, const AvahiResolved& resolved);
    void reconcile(const std::string& serviceId, std::vector<Report>& reports);
    void goneAll(std::vector<Report>& reports);
    void reconcileAll();
    void deliver(const std::vector<Report>& reports);
    static std::string serviceId(const AvahiBrowseEvent& event) { return event.name + '\n' + event.domain; }

    std::shared_ptr<AvahiRuntime> m_runtime;
    Callbacks m_callbacks;
    int m_listenerId = 0;

    // Discovery thread.
    std::unique_ptr<AvahiBrowser> m_browser;
    std::unique_ptr<AvahiDeferred> m_refreshLater;
    std::unique_ptr<AvahiDeferred> m_loopbackWait;  // reports panels held back for a LAN path
    std::map<std::string, Service> m_services;
    std::set<std::string> m_keysSeen;
    uint64_t m_nextOrder = 1;

    struct Listed {
        KLUF_DEVICE_INFO info;
        std::optional<PanelAccess> access;
    };
    void list(const std::string& serviceId, const Panel& panel);
    void unlist(const std::string& serviceId);

    mutable std::mutex m_mutex;  // guards the table below, which readers on any thread see
    std::map<std::string, Listed> m_table;
};

}  // namespace zv
