#include "discovery/AvahiLookup.h"

#include <avahi-common/error.h>
#include <avahi-common/malloc.h>

#include "discovery/AvahiLibraries.h"

namespace zv {

using avahi::clientApi;
using avahi::coreApi;

// ---------------------------------------------------------------------------
// AvahiBrowser
// ---------------------------------------------------------------------------

AvahiBrowser::AvahiBrowser(AvahiRuntime& runtime, const std::string& type, AvahiProtocol protocol, Callback callback)
    : m_runtime(runtime), m_callback(std::move(callback)) {
    if (runtime.m_client) {
        m_client = clientApi().browserNew(runtime.m_client, AVAHI_IF_UNSPEC, protocol, type.c_str(), nullptr,
                                          static_cast<AvahiLookupFlags>(0), &AvahiBrowser::clientCallback, this);
        if (!m_client) m_error = clientApi().clientErrno(runtime.m_client);
    } else if (runtime.m_server) {
        m_core = coreApi().browserNew(runtime.m_server, AVAHI_IF_UNSPEC, protocol, type.c_str(), nullptr,
                                      static_cast<AvahiLookupFlags>(0), &AvahiBrowser::coreCallback, this);
        if (!m_core) m_error = coreApi().serverErrno(runtime.m_server);
    } else {
        m_error = AVAHI_ERR_BAD_STATE;
    }
}

AvahiBrowser::~AvahiBrowser() {
    if (m_client) clientApi().browserFree(m_client);
    if (m_core) coreApi().browserFree(m_core);
}

void AvahiBrowser::deliver(AvahiIfIndex interface, AvahiProtocol protocol, AvahiBrowserEvent event, const char* name,
                           const char* type, const char* domain) {
    AvahiBrowseEvent delivered;
    delivered.event = event;
    delivered.interface = interface;
    delivered.protocol = protocol;
    delivered.name = name ? name : "";
    delivered.type = type ? type : "";
    delivered.domain = domain ? domain : "";
    if (event == AVAHI_BROWSER_FAILURE) {
        if (m_runtime.m_client) delivered.error = clientApi().clientErrno(m_runtime.m_client);
        if (m_runtime.m_server) delivered.error = coreApi().serverErrno(m_runtime.m_server);
    }
    m_callback(delivered);
}

void AvahiBrowser::clientCallback(AvahiServiceBrowser*, AvahiIfIndex interface, AvahiProtocol protocol,
                                  AvahiBrowserEvent event, const char* name, const char* type, const char* domain,
                                  AvahiLookupResultFlags, void* self) {
    static_cast<AvahiBrowser*>(self)->deliver(interface, protocol, event, name, type, domain);
}

void AvahiBrowser::coreCallback(AvahiSServiceBrowser*, AvahiIfIndex interface, AvahiProtocol protocol,
                                AvahiBrowserEvent event, const char* name, const char* type, const char* domain,
                                AvahiLookupResultFlags, void* self) {
    static_cast<AvahiBrowser*>(self)->deliver(interface, protocol, event, name, type, domain);
}

// ---------------------------------------------------------------------------
// AvahiResolver
// ---------------------------------------------------------------------------

AvahiResolver::AvahiResolver(AvahiRuntime& runtime, const AvahiBrowseEvent& service, AvahiProtocol addressProtocol,
                             Callback callback)
    : m_runtime(runtime), m_callback(std::move(callback)) {
    const auto flags = static_cast<AvahiLookupFlags>(0);
    if (runtime.m_client) {
        m_client = clientApi().resolverNew(runtime.m_client, service.interface, service.protocol,
                                           service.name.c_str(), service.type.c_str(), service.domain.c_str(),
                                           addressProtocol, flags, &AvahiResolver::clientCallback, this);
        if (!m_client) m_error = clientApi().clientErrno(runtime.m_client);
    } else if (runtime.m_server) {
        m_core = coreApi().resolverNew(runtime.m_server, service.interface, service.protocol, service.name.c_str(),
                                       service.type.c_str(), service.domain.c_str(), addressProtocol, flags,
                                       &AvahiResolver::coreCallback, this);
        if (!m_core) m_error = coreApi().serverErrno(runtime.m_server);
    } else {
        m_error = AVAHI_ERR_BAD_STATE;
    }
}

AvahiResolver::~AvahiResolver() {
    if (m_client) clientApi().resolverFree(m_client);
    if (m_core) coreApi().resolverFree(m_core);
}

void AvahiResolver::deliver(AvahiIfIndex interface, AvahiProtocol protocol, AvahiResolverEvent event,
                            const char* name, const char* host, const AvahiAddress* address, uint16_t port,
                            AvahiStringList* txt) {
    AvahiResolved resolved;
    resolved.found = event == AVAHI_RESOLVER_FOUND;
    resolved.interface = interface;
    resolved.protocol = protocol;
    resolved.name = name ? name : "";
    if (resolved.found) {
        resolved.hostName = host ? host : "";
        if (address) {
            char text[AVAHI_ADDRESS_STR_MAX];
            resolved.address = avahi_address_snprint(text, sizeof text, address);
        }
        resolved.port = port;
        for (AvahiStringList* entry = txt; entry; entry = avahi_string_list_get_next(entry)) {
            char* key = nullptr;
            char* value = nullptr;
            size_t size = 0;
            if (avahi_string_list_get_pair(entry, &key, &value, &size) < 0) continue;
            resolved.txt[key] = value ? std::string(value, size) : std::string();
            avahi_free(key);
            avahi_free(value);
        }
    } else {
        if (m_runtime.m_client) resolved.error = clientApi().clientErrno(m_runtime.m_client);
        if (m_runtime.m_server) resolved.error = coreApi().serverErrno(m_runtime.m_server);
    }
    m_callback(resolved);
}

void AvahiResolver::clientCallback(AvahiServiceResolver*, AvahiIfIndex interface, AvahiProtocol protocol,
                                   AvahiResolverEvent event, const char* name, const char*, const char*,
                                   const char* host, const AvahiAddress* address, uint16_t port, AvahiStringList* txt,
                                   AvahiLookupResultFlags, void* self) {
    static_cast<AvahiResolver*>(self)->deliver(interface, protocol, event, name, host, address, port, txt);
}

void AvahiResolver::coreCallback(AvahiSServiceResolver*, AvahiIfIndex interface, AvahiProtocol protocol,
                                 AvahiResolverEvent event, const char* name, const char*, const char*,
                                 const char* host, const AvahiAddress* address, uint16_t port, AvahiStringList* txt,
                                 AvahiLookupResultFlags, void* self) {
    static_cast<AvahiResolver*>(self)->deliver(interface, protocol, event, name, host, address, port, txt);
}

}  // namespace zv
