#include "discovery/PanelAnnouncer.h"

#include <avahi-common/alternative.h>
#include <avahi-common/domain.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>

#include "casting/Log.h"

namespace zv {
namespace {

constexpr char kDomain[] = "local";
constexpr char kServiceTypeEnumeration[] = "_services._dns-sd._udp";
constexpr size_t kMaxLabelBytes = 63;

// UTF-8 text cut to at most maxBytes without splitting a character.
std::string cutUtf8(const QString& text, size_t maxBytes) {
    std::string bytes = text.toStdString();
    if (bytes.size() <= maxBytes) return bytes;
    size_t end = maxBytes;
    while (end > 0 && (static_cast<unsigned char>(bytes[end]) & 0xC0) == 0x80) --end;
    bytes.resize(end);
    return bytes;
}

std::string joinName(const char* instance, const char* type) {
    char joined[AVAHI_DOMAIN_NAME_MAX];
    if (avahi_service_name_join(joined, sizeof joined, instance, type, kDomain) < 0) return {};
    return joined;
}

}  // namespace

PanelAnnouncer::PanelAnnouncer(std::shared_ptr<AvahiRuntime> runtime, PanelAnnouncement announcement,
                               EventCallback onEvent)
    : m_runtime(std::move(runtime)), m_onEvent(std::move(onEvent)), m_announcement(std::move(announcement)) {
    QString instance = QString::fromStdString(cutUtf8(m_announcement.name, kMaxLabelBytes));
    if (instance.isEmpty()) instance = QStringLiteral("Zelvanor panel");
    m_serviceName = instance;
    m_runtime->locked([this] {
        m_renameLater = std::make_unique<AvahiDeferred>(*m_runtime, [this] { rename(); });
        m_listenerId = m_runtime->addStateListener([this](AvahiRuntime::State state) { onRuntimeState(state); });
        if (m_runtime->state() == AvahiRuntime::State::Ready) publish();
    });
}

PanelAnnouncer::~PanelAnnouncer() {
    m_runtime->locked([this] {
        m_runtime->removeStateListener(m_listenerId);
        m_renameLater.reset();
        m_group.reset();
    });
    ZV_LOG(INFO) << " Withdrew service '" << serviceName().toStdString() << "'.";
}

QString PanelAnnouncer::serviceName() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_serviceName;
}

std::string PanelAnnouncer::serviceFullName() const {
    return joinName(serviceName().toStdString().c_str(), kServiceType);
}

DnsRecord PanelAnnouncer::txtRecord() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto ttl = static_cast<uint32_t>(m_announcement.recordTtl.count());
    std::vector<std::string> entries{
        "name=" + cutUtf8(m_announcement.name, 255 - 5),
        "key=" + m_announcement.key.toStdString(),
        "ver=" + std::to_string(m_announcement.protocolVersion),
        std::string("access=") + panelAccessText(m_announcement.accessMode),
    };
    if (m_announcement.publishCode && !m_announcement.code.isEmpty())
        entries.push_back("code=" + m_announcement.code.toStdString());
    return DnsRecord::txt(joinName(m_serviceName.toStdString().c_str(), kServiceType), entries, ttl);
}

void PanelAnnouncer::onRuntimeState(AvahiRuntime::State state) {
    switch (state) {
    case AvahiRuntime::State::Ready: publish(); break;
    case AvahiRuntime::State::Registering:
        // The host name is changing: the SRV record must point at the new one.
        if (m_group) m_group->reset();
        break;
    case AvahiRuntime::State::Lost: m_group.reset(); break;
    }
}

void PanelAnnouncer::publish() {
    if (!m_group) {
        m_group = std::make_unique<AvahiGroup>(*m_runtime, [this](AvahiEntryGroupState state) { onGroupState(state); });
        if (!m_group->valid()) {
            m_group.reset();
            if (m_onEvent) m_onEvent(Event::Failed, serviceName());
            return;
        }
    }
    if (!m_group->empty()) return;

    quint16 port = 0;
    uint32_t ttl = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        port = m_announcement.port;
        ttl = static_cast<uint32_t>(m_announcement.recordTtl.count());
    }
    const std::string service = serviceFullName();
    const std::string type = joinName(nullptr, kServiceType);
    const std::string enumeration = joinName(nullptr, kServiceTypeEnumeration);
    const std::string host = m_runtime->hostNameFqdn();
    const auto multicast = AVAHI_PUBLISH_USE_MULTICAST;
    const auto unique = static_cast<AvahiPublishFlags>(AVAHI_PUBLISH_UNIQUE | AVAHI_PUBLISH_USE_MULTICAST);

    // The same four records avahi_entry_group_add_service makes, but with our
    // TTL: PTR type -> instance (shared), SRV and TXT (unique, so probed for
    // conflicts), and the service type enumeration PTR.
    int result = m_group->add(multicast, DnsRecord::ptr(type, service, ttl));
    if (result >= 0) result = m_group->add(unique, DnsRecord::srv(service, port, host, ttl));
    if (result >= 0) result = m_group->add(unique, txtRecord());
    if (result >= 0) result = m_group->add(multicast, DnsRecord::ptr(enumeration, type, AVAHI_DEFAULT_TTL));
    if (result == AVAHI_ERR_COLLISION) {
        // A service of ours (or of this host's daemon) already has the name.
        m_group->reset();
        m_renameLater->schedule();
        return;
    }
    if (result >= 0) result = m_group->commit();
    if (result < 0) {
        ZV_LOG(ERROR) << " Cannot publish service '" << serviceName().toStdString()
                      << "': " << AvahiRuntime::errorText(result);
        m_group->reset();
        if (m_onEvent) m_onEvent(Event::Failed, serviceName());
        return;
    }
    ZV_LOG(INFO) << " Publishing service '" << serviceName().toStdString() << "' on port " << port << " (host "
                 << host << ", TTL " << ttl << " s).";
}

void PanelAnnouncer::onGroupState(AvahiEntryGroupState state) {
    switch (state) {
    case AVAHI_ENTRY_GROUP_ESTABLISHED:
        ZV_LOG(INFO) << " Service '" << serviceName().toStdString() << "' established.";
        if (m_onEvent) m_onEvent(Event::Established, serviceName());
        break;
    case AVAHI_ENTRY_GROUP_COLLISION:
        // Renaming resets the group: not from inside its own callback.
        m_renameLater->schedule();
        break;
    case AVAHI_ENTRY_GROUP_FAILURE:
        ZV_LOG(ERROR) << " Service '" << serviceName().toStdString() << "' failed.";
        if (m_onEvent) m_onEvent(Event::Failed, serviceName());
        break;
    case AVAHI_ENTRY_GROUP_UNCOMMITED:
    case AVAHI_ENTRY_GROUP_REGISTERING: break;
    }
}

void PanelAnnouncer::rename() {
    const QString old = serviceName();
    char* alternative = avahi_alternative_service_name(old.toStdString().c_str());
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_serviceName = QString::fromUtf8(alternative);
    }
    avahi_free(alternative);
    ZV_LOG(WARNING) << " Service name '" << old.toStdString() << "' is taken on the network; renamed to '"
                    << serviceName().toStdString() << "'.";
    if (m_onEvent) m_onEvent(Event::Renamed, serviceName());
    if (m_group) m_group->reset();
    if (m_runtime->state() == AvahiRuntime::State::Ready) publish();
}

void PanelAnnouncer::updateCode(const QString& code) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_announcement.code == code) return;
        m_announcement.code = code;
        if (!m_announcement.publishCode) return;
    }
    m_runtime->locked([this] { replaceTxt("connect code"); });
}

void PanelAnnouncer::updateAccess(PanelAccess accessMode, bool publishCode) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_announcement.accessMode == accessMode && m_announcement.publishCode == publishCode) return;
        m_announcement.accessMode = accessMode;
        m_announcement.publishCode = publishCode;
    }
    m_runtime->locked([this] { replaceTxt("access mode"); });
}

void PanelAnnouncer::replaceTxt(const char* what) {
    // Not yet published: publish() will use the new record.
    if (!m_group || m_group->empty()) return;
    // Same owner name, same group: Avahi swaps the record and announces it
    // with the cache-flush bit, so caches replace the old TXT.
    const auto flags =
        static_cast<AvahiPublishFlags>(AVAHI_PUBLISH_UNIQUE | AVAHI_PUBLISH_USE_MULTICAST | AVAHI_PUBLISH_UPDATE);
    const int result = m_group->add(flags, txtRecord());
    if (result < 0)
        ZV_LOG(ERROR) << " Cannot update the TXT record of '" << serviceName().toStdString()
                      << "': " << AvahiRuntime::errorText(result);
    else
        ZV_LOG(INFO) << " Updated the " << what << " of '" << serviceName().toStdString() << "'.";
}

}  // namespace zv
