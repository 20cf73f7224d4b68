#include "ui/AddressChangeMonitor.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace qorquicomponents {

AddressChangeMonitor::AddressChangeMonitor() {
    m_stop = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (m_stop < 0) {
        m_error = std::string("eventfd: ") + std::strerror(errno);
        return;
    }
    m_netlink = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
    if (m_netlink < 0) {
        m_error = std::string("netlink socket: ") + std::strerror(errno);
        return;
    }
    sockaddr_nl local{};
    local.nl_family = AF_NETLINK;
    local.nl_groups = RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR;
    if (bind(m_netlink, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
        m_error = std::string("netlink bind: ") + std::strerror(errno);
        close(m_netlink);
        m_netlink = -1;
    }
}

AddressChangeMonitor::~AddressChangeMonitor() {
    if (m_netlink >= 0) close(m_netlink);
    if (m_stop >= 0) close(m_stop);
}

AddressChangeMonitor::Wake AddressChangeMonitor::wait(int timeoutMs) {
    if (!valid()) return Wake::Failed;
    pollfd fds[2] = {{m_stop, POLLIN, 0}, {m_netlink, POLLIN, 0}};
    int ready = 0;
    do {
        ready = poll(fds, 2, timeoutMs);
    } while (ready < 0 && errno == EINTR);
    if (ready < 0) return Wake::Failed;
    if (ready == 0) return Wake::Timeout;
    // The stop is never read back, so every later wait() returns at once.
    if (fds[0].revents != 0) return Wake::Stopped;
    if ((fds[1].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0 && (fds[1].revents & POLLIN) == 0) {
        return Wake::Failed;
    }
    // One notice often comes as several messages; the caller compares
    // addresses itself, so the content is not needed. ENOBUFS (the kernel
    // dropped notices) still means "something changed".
    alignas(nlmsghdr) char buffer[8192];
    bool any = false;
    for (;;) {
        const ssize_t got = recv(m_netlink, buffer, sizeof buffer, 0);
        if (got > 0 || (got < 0 && errno == ENOBUFS)) {
            any = true;
            continue;
        }
        if (got < 0 && errno == EINTR) continue;
        break;
    }
    return any ? Wake::AddressNotice : Wake::Timeout;
}

void AddressChangeMonitor::stop() {
    if (m_stop < 0) return;
    const uint64_t one = 1;
    // A full counter is already a pending stop, so a failed write is fine.
    [[maybe_unused]] const ssize_t written = write(m_stop, &one, sizeof one);
}

std::set<std::string> AddressChangeMonitor::localAddresses() {
    std::set<std::string> addresses;
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) return addresses;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || (entry->ifa_flags & IFF_LOOPBACK) != 0) continue;
        char text[INET6_ADDRSTRLEN] = {};
        const int family = entry->ifa_addr->sa_family;
        if (family == AF_INET) {
            const auto* in = reinterpret_cast<const sockaddr_in*>(entry->ifa_addr);
            if (inet_ntop(AF_INET, &in->sin_addr, text, sizeof text) != nullptr) addresses.insert(text);
        } else if (family == AF_INET6) {
            const auto* in6 = reinterpret_cast<const sockaddr_in6*>(entry->ifa_addr);
            if (inet_ntop(AF_INET6, &in6->sin6_addr, text, sizeof text) != nullptr) {
                std::string address = text;
                // Link-local addresses repeat on every interface; keep them apart.
                if (IN6_IS_ADDR_LINKLOCAL(&in6->sin6_addr)) address += std::string("%") + entry->ifa_name;
                addresses.insert(address);
            }
        }
    }
    freeifaddrs(list);
    return addresses;
}

std::string AddressChangeMonitor::describe(const std::set<std::string>& addresses) {
    if (addresses.empty()) return "none";
    std::string text;
    for (const std::string& address : addresses) {
        if (!text.empty()) text += ", ";
        text += address;
    }
    return text;
}

}  // namespace qorquicomponents
