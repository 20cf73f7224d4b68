// Browsing for a service type and resolving its instances through either
// backend. Events and results arrive on the discovery thread.
#pragma once

#include <avahi-client/lookup.h>
#include <avahi-common/address.h>
#include <avahi-common/defs.h>
#include <avahi-common/strlst.h>
#include <avahi-core/lookup.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "discovery/AvahiRuntime.h"

namespace zv {

struct AvahiBrowseEvent {
    AvahiBrowserEvent event = AVAHI_BROWSER_FAILURE;
    AvahiIfIndex interface = AVAHI_IF_UNSPEC;
    AvahiProtocol protocol = AVAHI_PROTO_UNSPEC;
    std::string name, type, domain;  // name and type are empty on ALL_FOR_NOW, CACHE_EXHAUSTED and FAILURE
    int error = 0;                   // on FAILURE
};

// Browses one service type; events arrive on the discovery thread.
class AvahiBrowser {
public:
    using Callback = std::function<void(const AvahiBrowseEvent&)>;
    AvahiBrowser(AvahiRuntime& runtime, const std::string& type, AvahiProtocol protocol, Callback callback);
    ~AvahiBrowser();
    AvahiBrowser(const AvahiBrowser&) = delete;
    AvahiBrowser& operator=(const AvahiBrowser&) = delete;
    bool valid() const { return m_client != nullptr || m_core != nullptr; }
    int error() const { return m_error; }

private:
    static void clientCallback(AvahiServiceBrowser*, AvahiIfIndex, AvahiProtocol, AvahiBrowserEvent, const char* name,
                               const char* type, const char* domain, AvahiLookupResultFlags, void* self);
    static void coreCallback(AvahiSServiceBrowser*, AvahiIfIndex, AvahiProtocol, AvahiBrowserEvent, const char* name,
                             const char* type, const char* domain, AvahiLookupResultFlags, void* self);
    void deliver(AvahiIfIndex, AvahiProtocol, AvahiBrowserEvent, const char* name, const char* type,
                 const char* domain);
    AvahiRuntime& m_runtime;
    Callback m_callback;
    AvahiServiceBrowser* m_client = nullptr;
    AvahiSServiceBrowser* m_core = nullptr;
    int m_error = 0;
};

struct AvahiResolved {
    bool found = false;  // false: resolution failed (error says why); it may still succeed later
    AvahiIfIndex interface = AVAHI_IF_UNSPEC;
    AvahiProtocol protocol = AVAHI_PROTO_UNSPEC;
    std::string name, hostName, address;  // address as text ("10.1.2.3")
    uint16_t port = 0;
    std::map<std::string, std::string> txt;  // a key without "=" maps to ""
    int error = 0;
};

// Resolves one service and keeps watching it: a new result arrives whenever
// its records change (a new TXT record, say). Discovery thread.
class AvahiResolver {
public:
    using Callback = std::function<void(const AvahiResolved&)>;
    AvahiResolver(AvahiRuntime& runtime, const AvahiBrowseEvent& service, AvahiProtocol addressProtocol,
                  Callback callback);
    ~AvahiResolver();
    AvahiResolver(const AvahiResolver&) = delete;
    AvahiResolver& operator=(const AvahiResolver&) = delete;
    bool valid() const { return m_client != nullptr || m_core != nullptr; }
    int error() const { return m_error; }

private:
    static void clientCallback(AvahiServiceResolver*, AvahiIfIndex, AvahiProtocol, AvahiResolverEvent,
                               const char* name, const char* type, const char* domain, const char* host,
                               const AvahiAddress* address, uint16_t port, AvahiStringList* txt,
                               AvahiLookupResultFlags, void* self);
    static void coreCallback(AvahiSServiceResolver*, AvahiIfIndex, AvahiProtocol, AvahiResolverEvent,
                             const char* name, const char* type, const char* domain, const char* host,
                             const AvahiAddress* address, uint16_t port, AvahiStringList* txt,
                             AvahiLookupResultFlags, void* self);
    void deliver(AvahiIfIndex, AvahiProtocol, AvahiResolverEvent, const char* name, const char* host,
                 const AvahiAddress* address, uint16_t port, AvahiStringList* txt);
    AvahiRuntime& m_runtime;
    Callback m_callback;
    AvahiServiceResolver* m_client = nullptr;
    AvahiSServiceResolver* m_core = nullptr;
    int m_error = 0;
};

}  // namespace zv
