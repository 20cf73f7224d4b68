#include "casting/McUtil.h"

#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <arpa/inet.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

#include "VirtualMachineProbe.h"
#include "casting/Log.h"

namespace {
thread_local unsigned long t_lastError = 0;
}

int MC_Util_GetLocalMACIP(char* mac, int macSize, char* ip, int ipSize) {
    if (mac == nullptr || ip == nullptr || macSize < 18 || ipSize < INET_ADDRSTRLEN) return -1;
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) return -1;

    std::map<std::string, std::string> macByName;
    for (ifaddrs* it = list; it != nullptr; it = it->ifa_next) {
        if (it->ifa_addr == nullptr || it->ifa_addr->sa_family != AF_PACKET) continue;
        const auto* ll = reinterpret_cast<const sockaddr_ll*>(it->ifa_addr);
        if (ll->sll_halen != 6) continue;
        char text[18];
        std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", ll->sll_addr[0], ll->sll_addr[1],
                      ll->sll_addr[2], ll->sll_addr[3], ll->sll_addr[4], ll->sll_addr[5]);
        macByName[it->ifa_name] = text;
    }

    int result = -1;
    for (ifaddrs* it = list; it != nullptr; it = it->ifa_next) {
        if (it->ifa_addr == nullptr || it->ifa_addr->sa_family != AF_INET) continue;
        if ((it->ifa_flags & IFF_UP) == 0 || (it->ifa_flags & IFF_LOOPBACK) != 0) continue;
        const auto* in = reinterpret_cast<const sockaddr_in*>(it->ifa_addr);
        if ((ntohl(in->sin_addr.s_addr) >> 16) == 0xA9FE) continue;  // 169.254/16: no DHCP answer
        inet_ntop(AF_INET, &in->sin_addr, ip, static_cast<socklen_t>(ipSize));
        const auto found = macByName.find(it->ifa_name);
        std::snprintf(mac, static_cast<size_t>(macSize), "%s",
                      found != macByName.end() ? found->second.c_str() : "00:00:00:00:00:00");
        result = 0;
        break;
    }
    freeifaddrs(list);
    return result;
}

std::string MC_Util_GetHomePath() {
    const char* home = std::getenv("HOME");
    if (home != nullptr && home[0] != '\0') {
        std::string path(home);
        while (path.size() > 1 && path.back() == '/') path.pop_back();
        return path;
    }
    const passwd* pw = getpwuid(getuid());
    return pw != nullptr && pw->pw_dir != nullptr ? std::string(pw->pw_dir) : std::string("/tmp");
}

bool MC_Util_IsVirtulPC() {
    static const std::string hypervisor = zv::VirtualMachineProbe{}.detect();
    static const bool logged = [] {
        ZV_LOG(INFO) << " virtual machine: " << (hypervisor.empty() ? std::string("no") : hypervisor);
        return true;
    }();
    (void)logged;
    return !hypervisor.empty();
}

unsigned long MC_Util_GetLastError() { return t_lastError; }

void MC_Util_SetLastError(unsigned long code) { t_lastError = code; }
