#include "discovery/AvahiPublish.h"

#include <avahi-common/domain.h>
#include <avahi-common/error.h>

#include <algorithm>
#include <cstring>

#include "casting/Log.h"
#include "discovery/AvahiLibraries.h"

namespace zv {

using avahi::clientApi;
using avahi::coreApi;
using avahi::CoreApi;

namespace {

// An escaped Avahi name ("My\ Panel._zelvanor._tcp.local") as DNS wire labels.
bool appendWireName(std::vector<uint8_t>& out, const std::string& name) {
    const char* cursor = name.c_str();
    char label[AVAHI_LABEL_MAX];
    while (*cursor != '\0') {
        if (avahi_unescape_label(&cursor, label, sizeof label) == nullptr) return false;
        const size_t length = std::strlen(label);
        if (length == 0 || length > 63) return false;
        out.push_back(static_cast<uint8_t>(length));
        out.insert(out.end(), label, label + length);
    }
    out.push_back(0);
    return true;
}

void appendUint16(std::vector<uint8_t>& out, uint16_t value) {
    out.push_back(static_cast<uint8_t>(value >> 8));
    out.push_back(static_cast<uint8_t>(value & 0xff));
}

}  // namespace

// ---------------------------------------------------------------------------
// DnsRecord
// ---------------------------------------------------------------------------

DnsRecord DnsRecord::ptr(const std::string& name, const std::string& target, uint32_t ttlSeconds) {
    DnsRecord record{name, AVAHI_DNS_TYPE_PTR, ttlSeconds, {}};
    if (!appendWireName(record.rdata, target)) record.rdata.clear();
    return record;
}

DnsRecord DnsRecord::srv(const std::string& name, uint16_t port, const std::string& host, uint32_t ttlSeconds) {
    DnsRecord record{name, AVAHI_DNS_TYPE_SRV, ttlSeconds, {}};
    appendUint16(record.rdata, 0);  // priority
    appendUint16(record.rdata, 0);  // weight
    appendUint16(record.rdata, port);
    if (!appendWireName(record.rdata, host)) record.rdata.clear();
    return record;
}

DnsRecord DnsRecord::txt(const std::string& name, const std::vector<std::string>& entries, uint32_t ttlSeconds) {
    DnsRecord record{name, AVAHI_DNS_TYPE_TXT, ttlSeconds, {}};
    for (const std::string& entry : entries) {
        const size_t length = std::min<size_t>(entry.size(), 255);
        record.rdata.push_back(static_cast<uint8_t>(length));
        record.rdata.insert(record.rdata.end(), entry.begin(), entry.begin() + static_cast<std::ptrdiff_t>(length));
    }
    if (record.rdata.empty()) record.rdata.push_back(0);  // an empty TXT record holds one empty string
    return record;
}

// ---------------------------------------------------------------------------
// AvahiGroup
// ---------------------------------------------------------------------------

AvahiGroup::AvahiGroup(AvahiRuntime& runtime, StateCallback callback)
    : m_runtime(runtime), m_callback(std::move(callback)) {
    if (runtime.m_client) {
        m_client = clientApi().groupNew(runtime.m_client, &AvahiGroup::clientCallback, this);
        if (!m_client)
            ZV_LOG(ERROR) << " Cannot make an entry group: "
                          << AvahiRuntime::errorText(clientApi().clientErrno(runtime.m_client));
    } else if (runtime.m_server) {
        m_core = coreApi().groupNew(runtime.m_server, &AvahiGroup::coreCallback, this);
        if (!m_core)
            ZV_LOG(ERROR) << " Cannot make an entry group: "
                          << AvahiRuntime::errorText(coreApi().serverErrno(runtime.m_server));
    }
}

AvahiGroup::~AvahiGroup() {
    if (m_client) clientApi().groupFree(m_client);
    if (m_core) coreApi().groupFree(m_core);
}

int AvahiGroup::add(AvahiPublishFlags flags, const DnsRecord& record) {
    if (record.rdata.empty()) return AVAHI_ERR_INVALID_RDATA;
    if (m_client) {
        return clientApi().groupAddRecord(m_client, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, flags, record.name.c_str(),
                                          AVAHI_DNS_CLASS_IN, record.type, record.ttlSeconds, record.rdata.data(),
                                          record.rdata.size());
    }
    if (m_core) {
        const CoreApi& api = coreApi();
        AvahiRecord* made = api.recordNew(record.name.c_str(), AVAHI_DNS_CLASS_IN, record.type, record.ttlSeconds);
        if (made == nullptr) return AVAHI_ERR_NO_MEMORY;
        int result = AVAHI_ERR_INVALID_RDATA;
        if (api.rdataParse(made, record.rdata.data(), record.rdata.size()) >= 0)
            result = api.serverAdd(m_runtime.m_server, m_core, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, flags, made);
        api.recordUnref(made);
        return result;
    }
    return AVAHI_ERR_BAD_STATE;
}

int AvahiGroup::commit() {
    if (m_client) return clientApi().groupCommit(m_client);
    if (m_core) return coreApi().groupCommit(m_core);
    return AVAHI_ERR_BAD_STATE;
}

void AvahiGroup::reset() {
    if (m_client) clientApi().groupReset(m_client);
    if (m_core) coreApi().groupReset(m_core);
}

bool AvahiGroup::empty() const {
    if (m_client) return clientApi().groupIsEmpty(m_client) > 0;
    if (m_core) return coreApi().groupIsEmpty(m_core) != 0;
    return true;
}

void AvahiGroup::clientCallback(AvahiEntryGroup*, AvahiEntryGroupState state, void* self) {
    auto* group = static_cast<AvahiGroup*>(self);
    if (group->m_callback) group->m_callback(state);
}

void AvahiGroup::coreCallback(AvahiServer*, AvahiSEntryGroup*, AvahiEntryGroupState state, void* self) {
    auto* group = static_cast<AvahiGroup*>(self);
    if (group->m_callback) group->m_callback(state);
}

}  // namespace zv
