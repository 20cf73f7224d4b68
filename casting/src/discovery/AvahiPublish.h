// Publishing DNS-SD records through either backend: records built in wire
// form, added to an entry group, committed, updated in place and withdrawn.
#pragma once

#include <avahi-client/publish.h>
#include <avahi-common/defs.h>
#include <avahi-core/publish.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "discovery/AvahiRuntime.h"

namespace zv {

// One DNS resource record to publish, in wire form.
struct DnsRecord {
    std::string name;            // owner name, escaped as Avahi writes it ("My\ Panel._zelvanor._tcp.local")
    uint16_t type = 0;           // AVAHI_DNS_TYPE_*
    uint32_t ttlSeconds = 0;
    std::vector<uint8_t> rdata;  // record data as on the wire, names uncompressed

    static DnsRecord ptr(const std::string& name, const std::string& target, uint32_t ttlSeconds);
    static DnsRecord srv(const std::string& name, uint16_t port, const std::string& host, uint32_t ttlSeconds);
    // Each entry is one "key=value" string; entries longer than 255 bytes are cut.
    static DnsRecord txt(const std::string& name, const std::vector<std::string>& entries, uint32_t ttlSeconds);
};

// An entry group: records published, updated and withdrawn together. Freeing
// it withdraws them with a goodbye. Discovery thread (or locked()).
class AvahiGroup {
public:
    using StateCallback = std::function<void(AvahiEntryGroupState)>;
    AvahiGroup(AvahiRuntime& runtime, StateCallback callback);
    ~AvahiGroup();
    AvahiGroup(const AvahiGroup&) = delete;
    AvahiGroup& operator=(const AvahiGroup&) = delete;

    bool valid() const { return m_client != nullptr || m_core != nullptr; }
    // Each returns AVAHI_OK or an Avahi error code (see AvahiRuntime::errorText).
    int add(AvahiPublishFlags flags, const DnsRecord& record);
    int commit();
    void reset();
    bool empty() const;

private:
    static void clientCallback(AvahiEntryGroup* group, AvahiEntryGroupState state, void* self);
    static void coreCallback(AvahiServer* server, AvahiSEntryGroup* group, AvahiEntryGroupState state, void* self);
    AvahiRuntime& m_runtime;
    StateCallback m_callback;
    AvahiEntryGroup* m_client = nullptr;
    AvahiSEntryGroup* m_core = nullptr;
};

}  // namespace zv
