// Waits for the kernel to announce a change of this PC's network addresses.
// A netlink route socket subscribed to the IPv4 and IPv6 address groups is
// polled together with an eventfd, so the waiting thread sleeps until either
// an address is added or removed, or another thread calls stop().
#pragma once

#include <set>
#include <string>

namespace qorquicomponents {

class AddressChangeMonitor {
public:
    enum class Wake { Stopped, AddressNotice, Timeout, Failed };

    AddressChangeMonitor();
    ~AddressChangeMonitor();
    AddressChangeMonitor(const AddressChangeMonitor&) = delete;
    AddressChangeMonitor& operator=(const AddressChangeMonitor&) = delete;

    // False when the kernel refused the socket or the eventfd; error() says why.
    bool valid() const { return m_netlink >= 0 && m_stop >= 0; }
    const std::string& error() const { return m_error; }

    // Sleeps until an address notice arrives (its messages are consumed),
    // stop() was called (this stays so), or timeoutMs passed (-1: no limit).
    Wake wait(int timeoutMs);
    // Wakes wait() for good; safe from any thread.
    void stop();

    // This PC's addresses other than loopback, as text ("10.0.0.2", "fe80::1%eth0").
    static std::set<std::string> localAddresses();
    static std::string describe(const std::set<std::string>& addresses);

private:
    int m_netlink = -1;
    int m_stop = -1;
    std::string m_error;
};

}  // namespace qorquicomponents
