// The two Avahi backends, loaded at run time, each in its own symbol scope,
// and called through these tables: libavahi-client and libavahi-core both
// export an avahi_entry_group_free with different arguments, so linking them
// side by side makes avahi-core call the client's one and abort. Only
// avahi-common is linked. Internal to the discovery code.
#pragma once

#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <avahi-client/publish.h>
#include <avahi-core/core.h>
#include <avahi-core/log.h>
#include <avahi-core/lookup.h>
#include <avahi-core/publish.h>
#include <avahi-core/rr.h>

#include <string>

namespace zv::avahi {

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

// Loaded at the first call (any thread); error says why one cannot be used.
// Never unloaded: libdbus does not survive being unloaded.
const ClientApi& clientApi();
const CoreApi& coreApi();

}  // namespace zv::avahi
