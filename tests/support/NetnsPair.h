// Two test hosts on one machine: network namespaces joined by a veth pair,
// with 10.x addresses that exist only inside them and a multicast route for
// mDNS. Needs root; removed again on destruction.
#pragma once

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace zvtest {

class NetnsPair {
public:
    NetnsPair() {
        if (geteuid() != 0) {
            m_error = "needs root (ip netns)";
            return;
        }
        if (std::system("ip netns list >/dev/null 2>&1") != 0) {
            m_error = "ip netns is not available";
            return;
        }
        const unsigned tag = static_cast<unsigned>(getpid()) % 200 + 20;  // distinct per test process
        const std::string suffix = std::to_string(getpid());
        a = "zva" + suffix;
        b = "zvb" + suffix;
        ifA = "zvva" + suffix;
        ifB = "zvvb" + suffix;
        const std::string net = "10.231." + std::to_string(tag) + ".";
        addressA = net + "1";
        addressB = net + "2";
        const std::vector<std::string> setup = {
            "ip netns add " + a,
            "ip netns add " + b,
            "ip link add " + ifA + " type veth peer name " + ifB,
            "ip link set " + ifA + " netns " + a,
            "ip link set " + ifB + " netns " + b,
            "ip -n " + a + " addr add " + addressA + "/24 dev " + ifA,
            "ip -n " + b + " addr add " + addressB + "/24 dev " + ifB,
            "ip -n " + a + " link set lo up",
            "ip -n " + b + " link set lo up",
            "ip -n " + a + " link set " + ifA + " up",
            "ip -n " + b + " link set " + ifB + " up",
            "ip -n " + a + " route add 224.0.0.0/4 dev " + ifA,
            "ip -n " + b + " route add 224.0.0.0/4 dev " + ifB,
        };
        for (const std::string& command : setup) {
            if (std::system((command + " 2>&1").c_str()) != 0) {
                m_error = "failed: " + command;
                return;
            }
        }
        m_ready = true;
    }
    ~NetnsPair() {
        if (!a.empty()) std::system(("ip netns del " + a + " 2>/dev/null").c_str());
        if (!b.empty()) std::system(("ip netns del " + b + " 2>/dev/null").c_str());
    }
    NetnsPair(const NetnsPair&) = delete;
    NetnsPair& operator=(const NetnsPair&) = delete;

    bool ready() const { return m_ready; }
    const std::string& error() const { return m_error; }

    // argv run inside namespace ns.
    static std::vector<std::string> in(const std::string& ns, std::vector<std::string> argv) {
        argv.insert(argv.begin(), {"ip", "netns", "exec", ns});
        return argv;
    }
    // Moves this (still single-threaded) process into namespace ns, so every
    // thread made later lives there too.
    static bool enter(const std::string& ns) {
        const std::string path = "/var/run/netns/" + ns;
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) return false;
        const bool entered = setns(fd, CLONE_NEWNET) == 0;
        close(fd);
        return entered;
    }
    // Cuts or restores the link, as a pulled cable does (no packets, no resets).
    bool setLinkUp(bool up) const {
        return std::system(("ip -n " + a + " link set " + ifA + (up ? " up" : " down")).c_str()) == 0;
    }

    std::string a, b, ifA, ifB, addressA, addressB;

private:
    bool m_ready = false;
    std::string m_error;
};

}  // namespace zvtest
