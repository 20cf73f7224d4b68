// Three test hosts on one LAN: a PC, a panel and an attacker, each a network
// namespace with one interface (eth0) on a bridge that lives in a fourth
// namespace, so every host sees the others' broadcasts and multicast (mDNS)
// as on a real switch, and nothing of it reaches the machine's own network.
// 10.x addresses exist only inside; the attacker may hold extra addresses to
// act as many sources. Needs root; removed again on destruction (namespaces
// of earlier test processes that died before they could do so are removed
// when the next one starts).
#pragma once

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace zvtest {

class NetnsTrio {
public:
    // extraAttackerAddresses: more addresses on the attacker's interface
    // (attackerSources), .100 upwards.
    explicit NetnsTrio(int extraAttackerAddresses = 0) {
        if (geteuid() != 0) {
            m_error = "needs root (ip netns)";
            return;
        }
        if (std::system("ip netns list >/dev/null 2>&1") != 0) {
            m_error = "ip netns is not available";
            return;
        }
        removeStale();
        const std::string suffix = std::to_string(getpid());
        bridge = kPrefix + std::string("b") + suffix;
        pc = kPrefix + std::string("c") + suffix;
        panel = kPrefix + std::string("p") + suffix;
        attacker = kPrefix + std::string("x") + suffix;
        const std::string net = "10.232." + std::to_string(static_cast<unsigned>(getpid()) % 200 + 20) + ".";
        subnet = net + "0/24";
        panelAddress = net + "1";
        pcAddress = net + "2";
        attackerAddress = net + "3";
        for (int i = 0; i < extraAttackerAddresses && i < 100; ++i) attackerSources.push_back(net + std::to_string(100 + i));

        std::vector<std::string> setup = {
            "ip netns add " + bridge,
            "ip -n " + bridge + " link add br0 type bridge mcast_snooping 0",
            "ip -n " + bridge + " link set br0 up",
        };
        const std::pair<const std::string*, const std::string*> hosts[] = {
            {&panel, &panelAddress}, {&pc, &pcAddress}, {&attacker, &attackerAddress}};
        for (const auto& [ns, address] : hosts) {
            const std::string port = "v" + ns->substr(0, 4);  // the host's switch port, in the bridge namespace
            setup.insert(setup.end(), {
                "ip netns add " + *ns,
                "ip -n " + bridge + " link add " + port + " type veth peer name eth0 netns " + *ns,
                "ip -n " + bridge + " link set " + port + " master br0",
                "ip -n " + bridge + " link set " + port + " up",
                "ip -n " + *ns + " addr add " + *address + "/24 dev eth0",
                "ip -n " + *ns + " link set lo up",
                "ip -n " + *ns + " link set eth0 up",
                "ip -n " + *ns + " route add 224.0.0.0/4 dev eth0",
            });
        }
        for (const std::string& source : attackerSources)
            setup.push_back("ip -n " + attacker + " addr add " + source + "/24 dev eth0");
        for (const std::string& command : setup) {
            if (!run(command)) {
                m_error = "failed: " + command;
                return;
            }
        }
        m_ready = true;
    }
    ~NetnsTrio() {
        for (const std::string* ns : {&pc, &panel, &attacker, &bridge}) {
            if (!ns->empty()) std::system(("ip netns del " + *ns + " 2>/dev/null").c_str());
        }
    }
    NetnsTrio(const NetnsTrio&) = delete;
    NetnsTrio& operator=(const NetnsTrio&) = delete;

    bool ready() const { return m_ready; }
    const std::string& error() const { return m_error; }

    // A shell command; true when it exited 0. Its output goes to the test's.
    static bool run(const std::string& command) { return std::system((command + " 2>&1").c_str()) == 0; }

    // argv run inside namespace ns.
    static std::vector<std::string> in(const std::string& ns, std::vector<std::string> argv) {
        argv.insert(argv.begin(), {"ip", "netns", "exec", ns});
        return argv;
    }

    // A socket made inside namespace ns, by a short-lived thread that enters
    // it: the socket stays in that namespace, the test process where it is.
    // -1 on failure.
    static int socketIn(const std::string& ns, int domain, int type, int protocol) {
        int fd = -1;
        std::thread([&] {
            const int nsFd = open(("/var/run/netns/" + ns).c_str(), O_RDONLY | O_CLOEXEC);
            if (nsFd < 0) return;
            if (setns(nsFd, CLONE_NEWNET) == 0) fd = socket(domain, type | SOCK_CLOEXEC, protocol);
            close(nsFd);
        }).join();
        return fd;
    }

    // New connections from the attacker leave from this address (its
    // programs cannot be told which one to use).
    bool setAttackerSource(const std::string& address) const {
        return run("ip -n " + attacker + " route replace " + subnet + " dev eth0 src " + address);
    }

    std::string bridge, pc, panel, attacker;
    std::string subnet, pcAddress, panelAddress, attackerAddress;
    std::vector<std::string> attackerSources;

private:
    static constexpr const char* kPrefix = "zvt";

    // Namespaces of test processes that are gone (killed before their
    // destructor ran).
    static void removeStale() {
        FILE* list = popen("ip netns list 2>/dev/null", "r");
        if (list == nullptr) return;
        char line[256];
        std::vector<std::string> stale;
        while (std::fgets(line, sizeof line, list) != nullptr) {
            std::string name;
            std::istringstream(line) >> name;
            if (name.size() < 5 || name.compare(0, 3, kPrefix) != 0) continue;
            const std::string digits = name.substr(4);
            if (digits.find_first_not_of("0123456789") != std::string::npos) continue;
            const pid_t owner = static_cast<pid_t>(std::stol(digits));
            if (kill(owner, 0) != 0) stale.push_back(name);
        }
        pclose(list);
        for (const std::string& name : stale) std::system(("ip netns del " + name + " 2>/dev/null").c_str());
    }

    bool m_ready = false;
    std::string m_error;
};

}  // namespace zvtest
