#include "discovery/AvahiRuntime.h"

#include <avahi-common/alternative.h>
#include <avahi-common/domain.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-common/timeval.h>
#include <avahi-core/log.h>
#include <avahi-core/rr.h>
#include <dlfcn.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <future>
#include <random>

#include "casting/Log.h"

namespace zv {
namespace {

constexpr char kClientLibrary[] = "libavahi-client.so.3";
constexpr char kCoreLibrary[] = "libavahi-core.so.7";

// avahi-core binds its own calls to its own functions first; without that a
// globally loaded avahi-client (another library may bring one) would take its
// avahi_entry_group_free. AddressSanitizer refuses RTLD_DEEPBIND.
#if defined(__SANITIZE_ADDRESS__)
constexpr int kCoreOpenFlags = RTLD_NOW | RTLD_LOCAL;
#else
constexpr int kCoreOpenFlags = RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND;
#endif

template <typename Fn>
bool loadSymbol(void* library, const char* name, Fn& slot, std::string& missing) {
    slot = reinterpret_cast<Fn>(dlsym(library, name));
    if (slot == nullptr && missing.empty()) missing = name;
    return slot != nullptr;
}

// The avahi-client functions used here, loaded once per process.
struct ClientApi {
    std::string error;  // empty when loaded
    decltype(&::avahi_client_new) clientNew = nullptr;
    decltype(&::avahi_client_free) clientFree = nullptr;
    decltype(&::avahi_client_errno) clientErrno = nullptr;
    decltype(&::avahi_client_get_host_name_fqdn) hostNameFqdn = nullptr;
    decltype(&::avahi_entry_group_new) groupNew = nullptr;
    decltype(&::avahi_entry_group_free) groupFree = nullptr;
    decltype(&::avahi_entry_group_commit) groupCommit = nullptr;
    decltype(&::avahi_entry_group_reset) groupReset = nullptr;
    decltype(&::avahi_entry_group_is_empty) groupIsEmpty = nullptr;
    decltype(&::avahi_entry_group_add_record) groupAddRecord = nullptr;
    decltype(&::avahi_service_browser_new) browserNew = nullptr;
    decltype(&::avahi_service_browser_free) browserFree = nullptr;
    decltype(&::avahi_service_resolver_new) resolverNew = nullptr;
    decltype(&::avahi_service_resolver_free) resolverFree = nullptr;
};

const ClientApi& clientApi() {
    static const ClientApi api = [] {
        ClientApi a;
        void* library = dlopen(kClientLibrary, RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) {
            const char* reason = dlerror();
            a.error = reason ? reason : kClientLibrary;
            return a;
        }
        std::string missing;
        loadSymbol(library, "avahi_client_new", a.clientNew, missing);
        loadSymbol(library, "avahi_client_free", a.clientFree, missing);
        loadSymbol(library, "avahi_client_errno", a.clientErrno, missing);
        loadSymbol(library, "avahi_client_get_host_name_fqdn", a.hostNameFqdn, missing);
        loadSymbol(library, "avahi_entry_group_new", a.groupNew, missing);
        loadSymbol(library, "avahi_entry_group_free", a.groupFree, missing);
        loadSymbol(library, "avahi_entry_group_commit", a.groupCommit, missing);
        loadSymbol(library, "avahi_entry_group_reset", a.groupReset, missing);
        loadSymbol(library, "avahi_entry_group_is_empty", a.groupIsEmpty, missing);
        loadSymbol(library, "avahi_entry_group_add_record", a.groupAddRecord, missing);
        loadSymbol(library, "avahi_service_browser_new", a.browserNew, missing);
        loadSymbol(library, "avahi_service_browser_free", a.browserFree, missing);
        loadSymbol(library, "avahi_service_resolver_new", a.resolverNew, missing);
        loadSymbol(library, "avahi_service_resolver_free", a.resolverFree, missing);
        if (!missing.empty()) a.error = std::string(kClientLibrary) + " lacks " + missing;
        // Never unloaded: libdbus does not survive being unloaded.
        return a;
    }();
    return api;
}

// The avahi-core functions used here, loaded once per process.
struct CoreApi {
    std::string error;  // empty when loaded
    decltype(&::avahi_server_config_init) configInit = nullptr;
    decltype(&::avahi_server_config_free) configFree = nullptr;
    decltype(&::avahi_server_new) serverNew = nullptr;
    decltype(&::avahi_server_free) serverFree = nullptr;
    decltype(&::avahi_server_errno) serverErrno = nullptr;
    decltype(&::avahi_server_get_host_name) hostName = nullptr;
    decltype(&::avahi_server_get_host_name_fqdn) hostNameFqdn = nullptr;
    decltype(&::avahi_server_set_host_name) setHostName = nullptr;
    decltype(&::avahi_server_add) serverAdd = nullptr;
    decltype(&::avahi_s_entry_group_new) groupNew = nullptr;
    decltype(&::avahi_s_entry_group_free) groupFree = nullptr;
    decltype(&::avahi_s_entry_group_commit) groupCommit = nullptr;
    decltype(&::avahi_s_entry_group_reset) groupReset = nullptr;
    decltype(&::avahi_s_entry_group_is_empty) groupIsEmpty = nullptr;
    decltype(&::avahi_s_service_browser_new) browserNew = nullptr;
    decltype(&::avahi_s_service_browser_free) browserFree = nullptr;
    decltype(&::avahi_s_service_resolver_new) resolverNew = nullptr;
    decltype(&::avahi_s_service_resolver_free) resolverFree = nullptr;
    decltype(&::avahi_record_new_full) recordNew = nullptr;
    decltype(&::avahi_record_unref) recordUnref = nullptr;
    decltype(&::avahi_rdata_parse) rdataParse = nullptr;
    decltype(&::avahi_set_log_function) setLogFunction = nullptr;
};

// avahi-core's own log lines, into ours.
void coreLog(AvahiLogLevel level, const char* text) {
    switch (level) {
    case AVAHI_LOG_ERROR: ZV_LOG(ERROR) << " avahi-core: " << text; break;
    case AVAHI_LOG_WARN: ZV_LOG(WARNING) << " avahi-core: " << text; break;
    case AVAHI_LOG_NOTICE:
    case AVAHI_LOG_INFO: ZV_VLOG(1) << " avahi-core: " << text; break;
    default: ZV_VLOG(2) << " avahi-core: " << text; break;
    }
}

const CoreApi& coreApi() {
    static const CoreApi api = [] {
        CoreApi a;
        void* library = dlopen(kCoreLibrary, kCoreOpenFlags);
        if (library == nullptr) {
            const char* reason = dlerror();
            a.error = reason ? reason : kCoreLibrary;
            return a;
        }
        std::string missing;
        loadSymbol(library, "avahi_server_config_init", a.configInit, missing);
        loadSymbol(library, "avahi_server_config_free", a.configFree, missing);
        loadSymbol(library, "avahi_server_new", a.serverNew, missing);
        loadSymbol(library, "avahi_server_free", a.serverFree, missing);
        loadSymbol(library, "avahi_server_errno", a.serverErrno, missing);
        loadSymbol(library, "avahi_server_get_host_name", a.hostName, missing);
        loadSymbol(library, "avahi_server_get_host_name_fqdn", a.hostNameFqdn, missing);
        loadSymbol(library, "avahi_server_set_host_name", a.setHostName, missing);
        loadSymbol(library, "avahi_server_add", a.serverAdd, missing);
        loadSymbol(library, "avahi_s_entry_group_new", a.groupNew, missing);
        loadSymbol(library, "avahi_s_entry_group_free", a.groupFree, missing);
        loadSymbol(library, "avahi_s_entry_group_commit", a.groupCommit, missing);
        loadSymbol(library, "avahi_s_entry_group_reset", a.groupReset, missing);
        loadSymbol(library, "avahi_s_entry_group_is_empty", a.groupIsEmpty, missing);
        loadSymbol(library, "avahi_s_service_browser_new", a.browserNew, missing);
        loadSymbol(library, "avahi_s_service_browser_free", a.browserFree, missing);
        loadSymbol(library, "avahi_s_service_resolver_new", a.resolverNew, missing);
        loadSymbol(library, "avahi_s_service_resolver_free", a.resolverFree, missing);
        loadSymbol(library, "avahi_record_new_full", a.recordNew, missing);
        loadSymbol(library, "avahi_record_unref", a.recordUnref, missing);
        loadSymbol(library, "avahi_rdata_parse", a.rdataParse, missing);
        loadSymbol(library, "avahi_set_log_function", a.setLogFunction, missing);
        if (!missing.empty()) {
            a.error = std::string(kCoreLibrary) + " lacks " + missing;
            return a;
        }
        a.setLogFunction(&coreLog);
        return a;
    }();
    return api;
}

std::string randomHostName() {
    std::random_device device;
    char name[16];
    std::snprintf(name, sizeof name, "zv-%08x", static_cast<unsigned>(device()));
    return name;
}

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
