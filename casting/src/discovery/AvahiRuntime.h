// Avahi for the library's discovery, whichever way it can be reached:
//  - the system's avahi-daemon over D-Bus (avahi-client) when one runs;
//  - otherwise Avahi's embeddable mDNS stack (avahi-core) inside this process,
//    under a host name of its own ("zv-<random>.local"), which is what runs in
//    a network namespace without a daemon.
//
// Everything Avahi does happens on one thread, Avahi's threaded poll: "the
// discovery thread". Avahi calls back on it only, and every object made on
// the runtime (AvahiPublish.h, AvahiLookup.h) must be made, used and freed on
// it, or from another thread inside locked().
//
// Both Avahi libraries are loaded at run time, each in its own symbol scope
// (AvahiLibraries.h says why); only avahi-common is linked.
#pragma once

#include <avahi-client/client.h>
#include <avahi-common/thread-watch.h>
#include <avahi-core/core.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>

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

}  // namespace zv
