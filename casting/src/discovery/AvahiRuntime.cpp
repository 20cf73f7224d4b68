#include "discovery/AvahiRuntime.h"

#include <avahi-common/alternative.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-common/timeval.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <future>
#include <random>

#include "casting/Log.h"
#include "discovery/AvahiLibraries.h"

namespace zv {

using avahi::clientApi;
using avahi::coreApi;
using avahi::CoreApi;
using avahi::ClientApi;

namespace {

std::string randomHostName() {
    std::random_device device;
    char name[16];
    std::snprintf(name, sizeof name, "zv-%08x", static_cast<unsigned>(device()));
    return name;
}

}  // namespace

// ---------------------------------------------------------------------------
// AvahiRuntime
// ---------------------------------------------------------------------------

AvahiRuntime::AvahiRuntime(const Options& options) : m_options(options), m_poll(avahi_threaded_poll_new()) {}

std::shared_ptr<AvahiRuntime> AvahiRuntime::start(const Options& options, std::string* error) {
    std::shared_ptr<AvahiRuntime> runtime(new AvahiRuntime(options));
    std::string reason;
    auto fail = [&](const std::string& why) -> std::shared_ptr<AvahiRuntime> {
        ZV_LOG(ERROR) << " DNS-SD discovery cannot start: " << why;
        if (error) *error = why;
        return nullptr;
    };
    if (runtime->m_poll == nullptr) return fail("cannot make Avahi's threaded poll");

    bool started = false;
    if (options.backend != BackendChoice::EmbeddedOnly) {
        started = runtime->startDaemonClient(0, &reason);
        if (!started && options.backend == BackendChoice::DaemonOnly) return fail(reason);
        if (!started) ZV_LOG(INFO) << " No Avahi daemon (" << reason << "); using the embedded mDNS stack.";
    }
    if (!started && !runtime->startEmbedded(&reason)) return fail(reason);

    // The poll thread tells its id before anything else runs on it.
    std::promise<void> threadKnown;
    auto learnThread = std::make_unique<AvahiDeferred>(*runtime, [raw = runtime.get(), &threadKnown] {
        raw->m_threadId = std::this_thread::get_id();
        threadKnown.set_value();
    });
    learnThread->schedule();
    if (avahi_threaded_poll_start(runtime->m_poll) < 0) return fail("cannot start the discovery thread");
    if (threadKnown.get_future().wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
        // The thread may still fire it: it must not find the promise gone.
        avahi_threaded_poll_stop(runtime->m_poll);
        return fail("the discovery thread does not run");
    }
    runtime->locked([&] { learnThread.reset(); });

    ZV_LOG(INFO) << " DNS-SD discovery runs on " << backendName(runtime->m_backend) << " Avahi.";
    return runtime;
}

bool AvahiRuntime::startDaemonClient(int flags, std::string* error) {
    const ClientApi& api = clientApi();
    if (!api.error.empty()) {
        *error = api.error;
        return false;
    }
    int avahiError = 0;
    m_client = nullptr;
    AvahiClient* client = api.clientNew(avahi_threaded_poll_get(m_poll), static_cast<AvahiClientFlags>(flags),
                                        &AvahiRuntime::clientCallback, this, &avahiError);
    m_client = client;  // the callback may have seen it already; a failed one is already freed
    if (client == nullptr) {
        *error = errorText(avahiError);
        return false;
    }
    m_backend = Backend::Daemon;
    if (!m_reconnect) m_reconnect = std::make_unique<AvahiDeferred>(*this, [this] { reconnectDaemon(); });
    return true;
}

bool AvahiRuntime::startEmbedded(std::string* error) {
    const CoreApi& api = coreApi();
    if (!api.error.empty()) {
        *error = api.error;
        return false;
    }
    AvahiServerConfig config;
    api.configInit(&config);
    config.host_name = avahi_strdup(randomHostName().c_str());
    config.use_ipv4 = 1;
    config.use_ipv6 = 0;
    config.publish_hinfo = 0;
    config.publish_workstation = 0;
    config.publish_domain = 0;
    config.publish_addresses = m_options.publishAddresses ? 1 : 0;
    config.publish_a_on_ipv6 = 0;
    config.publish_aaaa_on_ipv4 = 0;
    config.add_service_cookie = 0;
    config.enable_wide_area = 0;
    config.disallow_other_stacks = 0;  // a daemon or another process may run its own stack beside us
    int avahiError = 0;
    m_server = nullptr;
    AvahiServer* server = api.serverNew(avahi_threaded_poll_get(m_poll), &config, &AvahiRuntime::serverCallback,
                                        this, &avahiError);
    m_server = server;
    api.configFree(&config);
    if (server == nullptr) {
        *error = "embedded mDNS stack: " + errorText(avahiError);
        return false;
    }
    m_backend = Backend::Embedded;
    return true;
}

AvahiRuntime::~AvahiRuntime() {
    if (onDiscoveryThread()) {
        // Stopping would join this very thread. Leak rather than hang.
        ZV_LOG(ERROR) << " The discovery runtime was dropped on its own thread; its objects are leaked.";
        return;
    }
    if (m_poll) avahi_threaded_poll_stop(m_poll);
    m_reconnect.reset();
    if (m_client) clientApi().clientFree(m_client);  // the daemon withdraws what this client published
    if (m_server) coreApi().serverFree(m_server);    // sends goodbyes for whatever is still published
    if (m_poll) avahi_threaded_poll_free(m_poll);
}

const char* AvahiRuntime::backendName(Backend backend) {
    switch (backend) {
    case Backend::Daemon: return "daemon";
    case Backend::Embedded: return "embedded";
    }
    return "?";
}

std::string AvahiRuntime::errorText(int avahiError) {
    return avahi_strerror(avahiError);
}

void AvahiRuntime::locked(const std::function<void()>& fn) {
    if (onDiscoveryThread()) {
        fn();
        return;
    }
    struct Lock {
        AvahiThreadedPoll* poll;
        explicit Lock(AvahiThreadedPoll* p) : poll(p) { avahi_threaded_poll_lock(poll); }
        ~Lock() { avahi_threaded_poll_unlock(poll); }
    } lock(m_poll);
    fn();
}

bool AvahiRuntime::onDiscoveryThread() const {
    return m_threadId.load() == std::this_thread::get_id();
}

int AvahiRuntime::addStateListener(StateListener listener) {
    const int id = m_nextListenerId++;
    m_listeners.emplace(id, std::move(listener));
    return id;
}

void AvahiRuntime::removeStateListener(int id) {
    m_listeners.erase(id);
}

std::string AvahiRuntime::hostNameFqdn() const {
    const char* name = nullptr;
    if (m_client) name = clientApi().hostNameFqdn(m_client);
    if (m_server) name = coreApi().hostNameFqdn(m_server);
    return name ? name : "";
}

void AvahiRuntime::setState(State state) {
    if (state == m_state) return;
    m_state = state;
    std::vector<int> ids;
    for (const auto& entry : m_listeners) ids.push_back(entry.first);
    for (int id : ids) {
        auto it = m_listeners.find(id);  // an earlier listener may have removed it
        if (it == m_listeners.end()) continue;
        StateListener listener = it->second;
        listener(state);
    }
}

void AvahiRuntime::reconnectDaemon() {
    // Everyone dropped their objects when told Lost; a client that waits for
    // the daemon to come back replaces the dead one.
    if (m_client) clientApi().clientFree(m_client);
    m_client = nullptr;
    std::string reason;
    if (!startDaemonClient(AVAHI_CLIENT_NO_FAIL, &reason))
        ZV_LOG(ERROR) << " Cannot wait for the Avahi daemon: " << reason;
}

void AvahiRuntime::clientCallback(AvahiClient* client, AvahiClientState state, void* self) {
    auto* runtime = static_cast<AvahiRuntime*>(self);
    if (runtime->m_client == nullptr) runtime->m_client = client;  // called from inside avahi_client_new
    switch (state) {
    case AVAHI_CLIENT_S_RUNNING: runtime->setState(State::Ready); break;
    case AVAHI_CLIENT_S_REGISTERING:
    case AVAHI_CLIENT_S_COLLISION: runtime->setState(State::Registering); break;
    case AVAHI_CLIENT_CONNECTING: ZV_LOG(INFO) << " Waiting for the Avahi daemon."; break;
    case AVAHI_CLIENT_FAILURE: {
        const int error = clientApi().clientErrno(client);
        ZV_LOG(WARNING) << " Lost the Avahi daemon: " << errorText(error);
        runtime->setState(State::Lost);
        if (error == AVAHI_ERR_DISCONNECTED && runtime->m_reconnect) runtime->m_reconnect->schedule();
        break;
    }
    }
}

void AvahiRuntime::serverCallback(AvahiServer* server, AvahiServerState state, void* self) {
    auto* runtime = static_cast<AvahiRuntime*>(self);
    if (runtime->m_server == nullptr) runtime->m_server = server;  // called from inside avahi_server_new
    const CoreApi& api = coreApi();
    switch (state) {
    case AVAHI_SERVER_RUNNING:
        ZV_LOG(INFO) << " Embedded mDNS stack running as " << api.hostNameFqdn(server) << ".";
        runtime->setState(State::Ready);
        break;
    case AVAHI_SERVER_REGISTERING: runtime->setState(State::Registering); break;
    case AVAHI_SERVER_COLLISION: {
        char* alternative = avahi_alternative_host_name(api.hostName(server));
        ZV_LOG(WARNING) << " Host name " << api.hostName(server) << " is taken on the network; using "
                        << alternative << ".";
        runtime->setState(State::Registering);
        const int result = api.setHostName(server, alternative);
        if (result < 0) ZV_LOG(ERROR) << " Cannot change the host name: " << errorText(result);
        avahi_free(alternative);
        break;
    }
    case AVAHI_SERVER_FAILURE:
        ZV_LOG(ERROR) << " The embedded mDNS stack failed: " << errorText(api.serverErrno(server));
        runtime->setState(State::Lost);
        break;
    case AVAHI_SERVER_INVALID: break;
    }
}

// ---------------------------------------------------------------------------
// AvahiDeferred
// ---------------------------------------------------------------------------

AvahiDeferred::AvahiDeferred(AvahiRuntime& runtime, std::function<void()> fn)
    : m_runtime(runtime), m_fn(std::move(fn)) {
    const AvahiPoll* poll = avahi_threaded_poll_get(m_runtime.m_poll);
    m_timeout = poll->timeout_new(poll, nullptr, &AvahiDeferred::fire, this);
}

AvahiDeferred::~AvahiDeferred() {
    if (m_timeout) avahi_threaded_poll_get(m_runtime.m_poll)->timeout_free(m_timeout);
}

void AvahiDeferred::schedule(std::chrono::milliseconds delay) {
    if (m_timeout == nullptr) return;
    struct timeval when;
    avahi_elapse_time(&when, static_cast<unsigned>(std::max<int64_t>(0, delay.count())), 0);
    avahi_threaded_poll_get(m_runtime.m_poll)->timeout_update(m_timeout, &when);
}

void AvahiDeferred::fire(AvahiTimeout* timeout, void* self) {
    auto* deferred = static_cast<AvahiDeferred*>(self);
    avahi_threaded_poll_get(deferred->m_runtime.m_poll)->timeout_update(timeout, nullptr);
    deferred->m_fn();
}

}  // namespace zv
