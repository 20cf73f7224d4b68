// Announces a panel on the LAN: DNS-SD service "_zelvanor._tcp" with the
// panel name as instance name, the control port, and TXT name, key, ver,
// access and, only when the panel's operator chose to publish it, code
// (docs/discovery.md). The records carry a short TTL so that browsers drop a panel that
// vanished without a goodbye (power cut, SIGKILL) within seconds.
#pragma once

#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>

#include "discovery/AvahiPublish.h"
#include "discovery/PanelAccess.h"
#include "protocol/ProtocolConstants.h"

namespace zv {

// How long browsers keep our service records without hearing from us. They
// ask again at 80 % of it, so a live panel answers every ~4 s, and a dead one
// is dropped at most this long after its last answer.
constexpr std::chrono::seconds kPanelRecordTtl{5};

struct PanelAnnouncement {
    QString name;  // the panel name: instance name (cut to 63 bytes) and TXT "name"
    quint16 port = 0;
    // TXT "key": the panel's key id, the SHA-256 of its public key in
    // base64url without padding (43 characters).
    QString key;
    PanelAccess accessMode = PanelAccess::Code;  // TXT "access"
    // TXT "code" carries the connect code only when this is set (the
    // operator's choice); otherwise the code never leaves the panel this way.
    bool publishCode = false;
    QString code;
    int protocolVersion = kProtocolVersion;  // TXT "ver"
    std::chrono::seconds recordTtl = kPanelRecordTtl;
};

class PanelAnnouncer {
public:
    enum class Event {
        Established = 1,  // the records are ours on the network
        Renamed = 2,      // another service had the name; trying serviceName() now
        Failed = 3,       // Avahi refused the records (the log says why)
    };
    // Called on the discovery thread.
    using EventCallback = std::function<void(Event, const QString& serviceName)>;

    // Publishes as soon as the runtime is ready, and again after the daemon
    // or the host name comes back. Any thread.
    PanelAnnouncer(std::shared_ptr<AvahiRuntime> runtime, PanelAnnouncement announcement,
                   EventCallback onEvent = {});
    // Withdraws the service: browsers get a goodbye and drop it at once.
    // Any thread but the discovery thread's callbacks.
    ~PanelAnnouncer();
    PanelAnnouncer(const PanelAnnouncer&) = delete;
    PanelAnnouncer& operator=(const PanelAnnouncer&) = delete;

    // Replaces the TXT record in place when it changes; browsers see an
    // update of the same service. A code that is not published changes
    // nothing on the network. Any thread.
    void updateCode(const QString& code);
    void updateAccess(PanelAccess accessMode, bool publishCode);
    // The instance name in use (the panel name, or an alternative after a
    // collision). Any thread.
    QString serviceName() const;

private:
    void onRuntimeState(AvahiRuntime::State state);
    void onGroupState(AvahiEntryGroupState state);
    void publish();
    void rename();
    std::string serviceFullName() const;
    DnsRecord txtRecord() const;
    // Discovery thread (or locked()).
    void replaceTxt(const char* what);

    std::shared_ptr<AvahiRuntime> m_runtime;
    EventCallback m_onEvent;
    int m_listenerId = 0;

    // Discovery thread.
    std::unique_ptr<AvahiGroup> m_group;
    std::unique_ptr<AvahiDeferred> m_renameLater;

    mutable std::mutex m_mutex;  // guards the two below
    PanelAnnouncement m_announcement;
    QString m_serviceName;
};

}  // namespace zv
