// Avahi for the library's discovery, whichever way it can be reached:
//  - the system's avahi-daemon over D-Bus (avahi-client) when one runs;
//  - otherwise Avahi's embeddable mDNS stack (avahi-core) inside this process,
//    under a host name of its own ("zv-<random>.local"), which is what runs in
//    a network namespace without a daemon.
//
// Everything Avahi does happens on one thread, Avahi's threaded poll: "the
// discovery thread". Avahi calls back on it only, and every object below must
// be made, used and freed on it, or from another thread inside locked().
//
// Both Avahi libraries are loaded at run time, each in its own symbol scope:
// they both export a function named avahi_entry_group_free with different
// arguments, so linking them side by side makes avahi-core call the client's
// one and abort. Only avahi-common is linked.
#pragma once

#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <avahi-client/publish.h>
#include <avahi-common/address.h>
#include <avahi-common/defs.h>
#include <avahi-common/strlst.h>
#include <avahi-common/thread-watch.h>
#include <avahi-core/core.h>
#include <avahi-core/lookup.h>
#include <avahi-core/publish.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace zv {

class AvahiDeferred;

class AvahiRuntime {
public:
    enum class Backend { Daemon = 1, Embedded = 2 };
    enum class BackendChoice { Automatic = 1, DaemonOnly = 2, EmbeddedOnly = 3 };
    // What the runtime can do at the moment, as told to state listeners.
    enum class State {
        Registering = 1,  // starting, or the host name is being (re)claimed: publications wait for Ready
        Ready = 2,        // publications and browsers can be made
        Lost = 3,         // the daemon went away: free every object made so far; Ready follows if it returns
    };
    struct Options {
        BackendChoice backend = BackendChoice::Automatic;
        // Embedded stack only: claim a host name and publish this host's
        // addresses under it. Announcing needs it; a browse-only process can
        // leave it off and stay silent on the network.
        bool publishAddresses = true;
    };
    using StateListener = std::function<void(State)>;

    // Starts the discovery thread with the chosen backend. Null, with the
    // reason in *error, when none can start. Any thread.
    static std::shared_ptr<AvahiRuntime> start(const Options& options, std::string* error = nullptr);
    // Stops the discovery thread, then frees every Avahi object. Must not run
    // on the discovery thread (do not drop the last owner from a callback).
    ~AvahiRuntime();
    AvahiRuntime(const AvahiRuntime&) = delete;
    AvahiRuntime& operator=(const AvahiRuntime&) = delete;

    Backend backend() const { return m_backend; }
    static const char* backendName(Backend backend);
    static std::string errorText(int avahiError);

    // Any thread: runs fn with the discovery thread held, directly when called
    // on it, else under the poll's lock (fn then must not wait for the thread).
    void locked(const std::function<void()>& fn);
    bool onDiscoveryThread() const;

    // Discovery thread (or locked()). A listener hears every later change of
    // state(); remove it before its owner dies.
    int addStateListener(StateListener listener);
    void removeStateListener(int id);
    State state() const { return m_state; }
    // The host name SRV records point at, e.g. "zv-1a2b3c4d.local".
    std::string hostNameFqdn() const;

private:
    friend class AvahiDeferred;
    friend class AvahiGroup;
    friend class AvahiBrowser;
    friend class AvahiResolver;

    explicit AvahiRuntime(const Options& options);
    bool startDaemonClient(int flags, std::string* error);
    bool startEmbedded(std::string* error);
    void setState(State state);
    void reconnectDaemon();
    static void clientCallback(AvahiClient* client, AvahiClientState state, void* self);
    static void serverCallback(AvahiServer* server, AvahiServerState state, void* self);

    Options m_options;
    Backend m_backend = Backend::Daemon;
    AvahiThreadedPoll* m_poll = nullptr;
    AvahiClient* m_client = nullptr;
    AvahiServer* m_server = nullptr;
    State m_state = State::Registering;
    std::atomic<std::thread::id> m_threadId{};
    std::map<int, StateListener> m_listeners;
    int m_nextListenerId = 1;
    std::unique_ptr<AvahiDeferred> m_reconnect;
};

// Calls a function on the discovery thread after schedule(), outside
// whatever Avahi callback asked for it; scheduling again moves the one pending
// call. Discovery thread (or locked()).
class AvahiDeferred {
public:
    AvahiDeferred(AvahiRuntime& runtime, std::function<void()> fn);
    ~AvahiDeferred();
    AvahiDeferred(const AvahiDeferred&) = delete;
    AvahiDeferred& operator=(const AvahiDeferred&) = delete;
    void schedule(std::chrono::milliseconds delay = std::chrono::milliseconds(0));

private:
    static void fire(AvahiTimeout* timeout, void* self);
    AvahiRuntime& m_runtime;
    std::function<void()> m_fn;
    AvahiTimeout* m_timeout = nullptr;
};

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
