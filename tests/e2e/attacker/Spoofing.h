// The attacker's sending side: plain UDP from its own address, and UDP
// with a forged source (a raw IP socket), so packets look as if the PC sent
// them, down to its source port.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <netinet/udp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "NetnsTrio.h"

namespace zvtest {

class UdpSender {
public:
    // A UDP socket in namespace ns bound to address (port 0: any).
    UdpSender(const std::string& ns, const std::string& address) : m_fd(NetnsTrio::socketIn(ns, AF_INET, SOCK_DGRAM, 0)) {
        sockaddr_in local{};
        local.sin_family = AF_INET;
        inet_pton(AF_INET, address.c_str(), &local.sin_addr);
        if (m_fd >= 0 && bind(m_fd, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
            close(m_fd);
            m_fd = -1;
        }
    }
    ~UdpSender() {
        if (m_fd >= 0) close(m_fd);
    }
    UdpSender(const UdpSender&) = delete;
    UdpSender& operator=(const UdpSender&) = delete;

    bool ready() const { return m_fd >= 0; }
    bool send(const std::string& host, uint16_t port, const std::vector<uint8_t>& payload) const {
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(port);
        inet_pton(AF_INET, host.c_str(), &to.sin_addr);
        return sendto(m_fd, payload.data(), payload.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to) ==
               static_cast<ssize_t>(payload.size());
    }

private:
    int m_fd;
};

class SpoofedUdpSender {
public:
    explicit SpoofedUdpSender(const std::string& ns) : m_fd(NetnsTrio::socketIn(ns, AF_INET, SOCK_RAW, IPPROTO_RAW)) {}
    ~SpoofedUdpSender() {
        if (m_fd >= 0) close(m_fd);
    }
    SpoofedUdpSender(const SpoofedUdpSender&) = delete;
    SpoofedUdpSender& operator=(const SpoofedUdpSender&) = delete;

    bool ready() const { return m_fd >= 0; }
    // One datagram from source:sourcePort (any address) to host:port. The
    // UDP checksum is left 0 (allowed over IPv4); the kernel fills the IP one.
    bool send(const std::string& source, uint16_t sourcePort, const std::string& host, uint16_t port,
              const std::vector<uint8_t>& payload) const {
        std::vector<uint8_t> packet(sizeof(iphdr) + sizeof(udphdr) + payload.size());
        iphdr ip{};
        ip.version = 4;
        ip.ihl = 5;
        ip.ttl = 64;
        ip.protocol = IPPROTO_UDP;
        ip.tot_len = htons(static_cast<uint16_t>(packet.size()));
        inet_pton(AF_INET, source.c_str(), &ip.saddr);
        inet_pton(AF_INET, host.c_str(), &ip.daddr);
        udphdr udp{};
        udp.source = htons(sourcePort);
        udp.dest = htons(port);
        udp.len = htons(static_cast<uint16_t>(sizeof(udphdr) + payload.size()));
        std::memcpy(packet.data(), &ip, sizeof ip);
        std::memcpy(packet.data() + sizeof ip, &udp, sizeof udp);
        std::memcpy(packet.data() + sizeof ip + sizeof udp, payload.data(), payload.size());
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_addr.s_addr = ip.daddr;
        return sendto(m_fd, packet.data(), packet.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to) ==
               static_cast<ssize_t>(packet.size());
    }

private:
    int m_fd;
};

}  // namespace zvtest
