#include "discovery/AvahiLibraries.h"

#include <avahi-core/log.h>
#include <dlfcn.h>

#include "casting/Log.h"

namespace zv::avahi {
namespace {

constexpr char kClientLibrary[] = "libavahi-client.so.3";
constexpr char kCoreLibrary[] = "libavahi-core.so.7";

// AddressSanitizer aborts on RTLD_DEEPBIND. gcc tells it by __SANITIZE_ADDRESS__,
// clang (before 16) only by __has_feature.
#if defined(__SANITIZE_ADDRESS__)
#define ZV_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZV_ADDRESS_SANITIZER 1
#endif
#endif

// avahi-core binds its own calls to its own functions first; without that a
// globally loaded avahi-client (another library may bring one) would take its
// avahi_entry_group_free.
#if defined(ZV_ADDRESS_SANITIZER)
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

}  // namespace

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

}  // namespace zv::avahi
