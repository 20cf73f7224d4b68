// LAN discovery between network namespaces made by the test: a panel
// announced in one namespace is found, updated, refreshed and lost in the
// other, through the embedded mDNS stack and through an avahi-daemon of the
// test's own (checked with avahi-browse too). mDNS never runs in the host's
// own namespace. Needs root; skips otherwise.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "discovery/AvahiRuntime.h"
#include "discovery/PanelAnnouncer.h"
#include "discovery/PanelBrowser.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// No Avahi daemon is reachable through this address: the embedded stack runs.
constexpr char kNoBus[] = "DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent/zv-no-bus";
// A panel killed without a goodbye must be gone within this.
constexpr auto kGoneDeadline = 10s;
// Panel keys as panels write them: the SHA-256 of a public key in base64url
// without padding, 43 characters.
constexpr char kKeySalle[] = "9Iq18dOpk46KPKgfokIyJqpfgNiCGXFnLNdy9qs_n3Q";
constexpr char kKeyA[] = "lPU-N2yMdzXi4NTOYo-MdlG6el-chSbu0R07G1NYOJk";
constexpr char kKeyB[] = "ROfBaltUEhVy0lypfpLwU0Mmzzkpqu9LgCbKeou4HU8";

int run(const std::string& command) {
    const int status = std::system(("(" + command + ") >/dev/null 2>&1").c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string runOutput(const std::string& command) {
    std::string out;
    if (FILE* pipe = popen((command + " 2>/dev/null").c_str(), "r")) {
        char chunk[4096];
        size_t got = 0;
        while ((got = fread(chunk, 1, sizeof chunk, pipe)) > 0) out.append(chunk, got);
        pclose(pipe);
    }
    return out;
}

// One line of the probe's output: a flat JSON object. Values keep their text
// (numbers and booleans unquoted).
using Event = std::map<std::string, std::string>;

std::optional<Event> parseEvent(const std::string& line) {
    size_t at = 0;
    auto skipSpace = [&] {
        while (at < line.size() && std::isspace(static_cast<unsigned char>(line[at]))) ++at;
    };
    auto readString = [&](std::string& out) {
        if (at >= line.size() || line[at] != '"') return false;
        for (++at; at < line.size(); ++at) {
            char c = line[at];
            if (c == '"') {
                ++at;
                return true;
            }
            if (c == '\\' && at + 1 < line.size()) {
                c = line[++at];
                if (c == 'n') c = '\n';
                if (c == 'u' && at + 4 < line.size()) {
                    c = static_cast<char>(std::stoi(line.substr(at + 1, 4), nullptr, 16));
                    at += 4;
                }
            }
            out += c;
        }
        return false;
    };
    Event event;
    skipSpace();
    if (at >= line.size() || line[at++] != '{') return std::nullopt;
    for (;;) {
        skipSpace();
        std::string key, value;
        if (!readString(key)) return std::nullopt;
        skipSpace();
        if (at >= line.size() || line[at++] != ':') return std::nullopt;
        skipSpace();
        if (at < line.size() && line[at] == '"') {
            if (!readString(value)) return std::nullopt;
        } else {
            while (at < line.size() && line[at] != ',' && line[at] != '}') value += line[at++];
        }
        event[key] = value;
        skipSpace();
        if (at < line.size() && line[at] == ',') {
            ++at;
            continue;
        }
        if (at < line.size() && line[at] == '}') return event;
        return std::nullopt;
    }
}

// A child process whose stdin we write and whose stdout lines we collect as
// they come. Killed (SIGTERM, then SIGKILL) when dropped, and by the kernel
// if the test process dies first.
class Peer {
public:
    struct Line {
        Clock::time_point at;
        std::string text;
        std::optional<Event> event;
        // A field of the line's event; empty when absent.
        std::string get(const std::string& key) const {
            if (!event) return {};
            const auto it = event->find(key);
            return it == event->end() ? std::string() : it->second;
        }
    };

    Peer(const std::vector<std::string>& argv, const std::string& logPath, bool stderrToo = false) {
        int in[2], out[2];
        if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return;
        // Everything the child needs is made before fork: other threads of
        // this process may hold the allocator's lock at that moment.
        std::vector<char*> args;
        for (const auto& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
        args.push_back(nullptr);
        const int log = open(logPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        const pid_t parent = getpid();
        m_pid = fork();
        if (m_pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() != parent) _exit(127);
            dup2(in[0], STDIN_FILENO);
            dup2(out[1], STDOUT_FILENO);
            dup2(stderrToo || log < 0 ? out[1] : log, STDERR_FILENO);
            execvp(args[0], args.data());
            _exit(127);
        }
        if (log >= 0) close(log);
        close(in[0]);
        close(out[1]);
        m_stdin = in[1];
        m_reader = std::thread([this, fd = out[0]] { readLines(fd); });
    }
    ~Peer() {
        stop();
        if (m_stdin >= 0) close(m_stdin);
        if (m_reader.joinable()) m_reader.join();
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    pid_t pid() const { return m_pid; }
    void send(const std::string& line) {
        const std::string text = line + "\n";
        if (m_stdin >= 0) (void)!write(m_stdin, text.data(), text.size());
    }
    void signal(int sig) {
        if (m_pid > 0) kill(m_pid, sig);
    }
    // True once the process has ended within the deadline.
    bool waitExit(std::chrono::milliseconds timeout) {
        const auto end = Clock::now() + timeout;
        while (m_pid > 0) {
            int status = 0;
            const pid_t done = waitpid(m_pid, &status, WNOHANG);
            if (done == m_pid || done < 0) {
                m_pid = -1;
                break;
            }
            if (Clock::now() > end) return false;
            std::unique_lock<std::mutex> lock(m_mutex);
            m_changed.wait_for(lock, 20ms);  // a reaped child gives no notification to wait on
        }
        return true;
    }
    void stop() {
        if (m_pid <= 0) return;
        signal(SIGTERM);
        if (!waitExit(5s)) {
            signal(SIGKILL);
            waitExit(5s);
        }
    }

    // Waits until a line after index `from` satisfies pred; its index, or
    // nullopt at the deadline.
    std::optional<size_t> waitFor(const std::function<bool(const Line&)>& pred, std::chrono::milliseconds timeout,
                                  size_t from = 0) {
        std::unique_lock<std::mutex> lock(m_mutex);
        std::optional<size_t> hit;
        m_changed.wait_until(lock, Clock::now() + timeout, [&] {
            for (size_t i = from; i < m_lines.size(); ++i)
                if (pred(m_lines[i])) return hit = i, true;
            return false;
        });
        return hit;
    }
    std::optional<size_t> waitForEvent(const std::string& kind, const std::string& key,
                                       std::chrono::milliseconds timeout, size_t from = 0) {
        return waitFor(
            [&](const Line& line) {
                return line.get("event") == kind && (key.empty() || line.get("key") == key);
            },
            timeout, from);
    }
    Line line(size_t index) {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_lines.at(index);
    }
    std::vector<Line> lines() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_lines;
    }
    size_t count(const std::string& kind, const std::string& key) {
        size_t n = 0;
        for (const Line& line : lines())
            if (line.get("event") == kind && line.get("key") == key) ++n;
        return n;
    }
    std::string transcript() {
        std::string all;
        for (const Line& line : lines()) all += "  " + line.text + "\n";
        return all;
    }

private:
    void readLines(int fd) {
        std::string buffer;
        char chunk[1024];
        ssize_t got = 0;
        while ((got = read(fd, chunk, sizeof chunk)) > 0) {
            buffer.append(chunk, static_cast<size_t>(got));
            size_t newline = 0;
            while ((newline = buffer.find('\n')) != std::string::npos) {
                Line line{Clock::now(), buffer.substr(0, newline), std::nullopt};
                line.event = parseEvent(line.text);
                buffer.erase(0, newline + 1);
                std::lock_guard<std::mutex> lock(m_mutex);
                m_lines.push_back(std::move(line));
                m_changed.notify_all();
            }
        }
        close(fd);
    }

    pid_t m_pid = -1;
    int m_stdin = -1;
    std::thread m_reader;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Line> m_lines;
};

// Two network namespaces joined by a veth pair, 10.231.N.1 and 10.231.N.2,
// with multicast routed over the pair. Deleted when dropped.
class NamespacePair {
public:
    std::string a, b, interfaceA, interfaceB, addressA, addressB;

    bool create(std::string& error) {
        static int sequence = 0;
        ++sequence;
        const std::string tag = std::to_string(getpid()) + "-" + std::to_string(sequence);
        a = "zvd-" + tag + "-a";
        b = "zvd-" + tag + "-b";
        interfaceA = "zv" + std::to_string(getpid() % 10000000) + "x" + std::to_string(sequence % 10) + "a";
        interfaceB = interfaceA.substr(0, interfaceA.size() - 1) + "b";
        std::random_device random;
        const std::string subnet = "10.231." + std::to_string(1 + random() % 250) + ".";
        addressA = subnet + "1";
        addressB = subnet + "2";
        const std::vector<std::string> commands = {
            "ip netns add " + a,
            "ip netns add " + b,
            "ip link add " + interfaceA + " netns " + a + " type veth peer name " + interfaceB + " netns " + b,
            "ip -n " + a + " addr add " + addressA + "/24 dev " + interfaceA,
            "ip -n " + b + " addr add " + addressB + "/24 dev " + interfaceB,
            "ip -n " + a + " link set lo up",
            "ip -n " + b + " link set lo up",
            "ip -n " + a + " link set " + interfaceA + " up",
            "ip -n " + b + " link set " + interfaceB + " up",
            "ip -n " + a + " route add 224.0.0.0/4 dev " + interfaceA,
            "ip -n " + b + " route add 224.0.0.0/4 dev " + interfaceB,
        };
        m_created = true;
        for (const std::string& command : commands) {
            if (run(command) != 0) {
                error = "'" + command + "' failed";
                return false;
            }
        }
        return true;
    }
    ~NamespacePair() {
        if (!m_created) return;
        run("ip netns del " + a);
        run("ip netns del " + b);
    }

    // Namespaces of earlier runs whose test process died before its teardown.
    static void removeStale() {
        std::istringstream list(runOutput("ip netns list"));
        std::string name;
        while (list >> name) {
            if (name.rfind("zvd-", 0) != 0) continue;
            const pid_t owner = static_cast<pid_t>(std::atoi(name.c_str() + 4));
            if (owner <= 0 || owner == getpid() || kill(owner, 0) == 0 || errno != ESRCH) continue;
            run("ip netns pids " + name + " | xargs -r kill -9");
            run("ip netns del " + name);
        }
        list.clear();
    }

private:
    bool m_created = false;
};

class DiscoveryNetns : public ::testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "Discovery end-to-end tests make network namespaces and need root.";
        if (run("ip netns list") != 0) GTEST_SKIP() << "'ip netns' is not available here.";
        NamespacePair::removeStale();
        m_namespaces = std::make_unique<NamespacePair>();
        std::string error;
        if (!m_namespaces->create(error)) GTEST_SKIP() << "Cannot make network namespaces: " << error;
        char dir[] = "/tmp/zvd-test-XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        m_dir = dir;
    }
    void TearDown() override {
        m_peers.clear();  // processes first: they keep nothing alive, but no stray mDNS after this
        m_namespaces.reset();
        if (!m_dir.empty()) std::filesystem::remove_all(m_dir);
    }

    Peer& start(const std::string& ns, const std::vector<std::string>& command, const std::string& bus = kNoBus,
                bool stderrToo = false) {
        std::vector<std::string> argv = {"ip", "netns", "exec", ns, "env", bus, "GLOG_v=1"};
        argv.insert(argv.end(), command.begin(), command.end());
        const std::string log = m_dir + "/peer" + std::to_string(m_peers.size()) + ".log";
        m_peers.push_back(std::make_unique<Peer>(argv, log, stderrToo));
        m_logs.push_back(log);
        return *m_peers.back();
    }
    // The panel's code stays off the network unless extra says --publish-code 1.
    Peer& announce(const std::string& ns, const std::string& name, const std::string& key, const std::string& code,
                   std::vector<std::string> extra = {}, const std::string& bus = kNoBus) {
        std::vector<std::string> command = {ZV_DISCOVERY_PROBE, "announce", "--name", name, "--port", "47800",
                                            "--key", key, "--code", code};
        command.insert(command.end(), extra.begin(), extra.end());
        return start(ns, command, bus);
    }
    Peer& browse(const std::string& ns, std::vector<std::string> extra = {}, const std::string& bus = kNoBus) {
        std::vector<std::string> command = {ZV_DISCOVERY_PROBE, "browse"};
        command.insert(command.end(), extra.begin(), extra.end());
        return start(ns, command, bus);
    }
    // What the peers said, for failure messages.
    std::string logs() {
        std::string all;
        for (size_t i = 0; i < m_peers.size(); ++i) {
            all += "--- peer " + std::to_string(i) + " stdout\n" + m_peers[i]->transcript();
            std::ifstream log(m_logs[i]);
            std::stringstream text;
            text << log.rdbuf();
            all += "--- peer " + std::to_string(i) + " stderr\n" + text.str();
        }
        return all;
    }

    std::unique_ptr<NamespacePair> m_namespaces;
    std::vector<std::unique_ptr<Peer>> m_peers;
    std::vector<std::string> m_logs;
    std::string m_dir;
};

// ---------------------------------------------------------------------------

TEST(DiscoveryRecord, ResolvedServiceFillsTheDeviceRecord) {
    zv::AvahiResolved resolved;
    resolved.found = true;
    resolved.interface = 7;
    resolved.name = "Salle 3";
    resolved.address = "10.231.4.1";
    resolved.port = 47800;
    resolved.txt = {{"key", kKeySalle},
                    {"code", "7K3M9Q2T"},
                    {"ver", "1"},
                    {"name", "Salle 3 (étage)"},
                    {"access", "approve"}};
    auto panel = zv::PanelBrowser::fromResolution(resolved);
    ASSERT_TRUE(panel);
    EXPECT_EQ(panel->access, zv::PanelAccess::Approve);
    const KLUF_DEVICE_INFO info = zv::PanelBrowser::toDeviceInfo(*panel);
    const char* base = reinterpret_cast<const char*>(&info);
    EXPECT_STREQ(base + 12, kKeySalle) << "a 43-character key fits the 48-byte field whole";
    EXPECT_STREQ(base + 60, "1");
    EXPECT_STREQ(base + 80, "7K3M9Q2T");
    EXPECT_STREQ(base + 96, "10.231.4.1");
    EXPECT_STREQ(base + 240, "Salle 3 (étage)") << "the TXT name is the panel's own, not the instance name";
    int32_t port = 0;
    std::memcpy(&port, base + 624, sizeof port);
    EXPECT_EQ(port, 47800);
    EXPECT_EQ(info.nInterfaceIndex, 7);

    resolved.txt.erase("name");
    EXPECT_EQ(zv::PanelBrowser::fromResolution(resolved)->name, "Salle 3") << "without TXT name, the instance name";
    resolved.txt.erase("code");
    EXPECT_STREQ(zv::PanelBrowser::toDeviceInfo(*zv::PanelBrowser::fromResolution(resolved)).szConnectCode, "")
        << "a panel that keeps its code to itself";
    for (const auto& [text, expected] : std::vector<std::pair<std::string, std::optional<zv::PanelAccess>>>{
             {"open", zv::PanelAccess::Open}, {"code", zv::PanelAccess::Code}, {"knock", std::nullopt}, {"", {}}}) {
        resolved.txt["access"] = text;
        EXPECT_EQ(zv::PanelBrowser::fromResolution(resolved)->access, expected) << "access=" << text;
    }
    resolved.txt["key"] = std::string(48, 'k');
    EXPECT_FALSE(zv::PanelBrowser::fromResolution(resolved)) << "a key the record would cut can never be pinned";
    resolved.txt.erase("key");
    EXPECT_FALSE(zv::PanelBrowser::fromResolution(resolved)) << "a service without a key is not one of our panels";
}

TEST(DiscoveryRecord, OverlongTextsAreCutWholeAndTerminated) {
    zv::PanelBrowser::Panel panel;
    panel.key = std::string(100, 'k');
    panel.code = "0123456789ABCDEFGHIJ";
    panel.version = std::string(40, '9');
    panel.address = std::string(200, '1');
    for (int i = 0; i < 200; ++i) panel.name += "é";  // 2 bytes each: 400 bytes
    panel.name = "x" + panel.name;                    // so that byte 383 is inside a character
    KLUF_DEVICE_INFO info;
    std::memset(&info, 0x55, sizeof info);
    info = zv::PanelBrowser::toDeviceInfo(panel);
    EXPECT_EQ(std::strlen(info.szDeviceKey), sizeof info.szDeviceKey - 1);
    EXPECT_EQ(std::strlen(info.szConnectCode), sizeof info.szConnectCode - 1);
    EXPECT_EQ(std::strlen(info.szInfo), sizeof info.szInfo - 1);
    EXPECT_EQ(std::strlen(info.szDetail), sizeof info.szDetail - 1);
    const size_t nameLength = std::strlen(info.szDeviceName);
    EXPECT_LT(nameLength, sizeof info.szDeviceName);
    EXPECT_EQ(nameLength, 1 + 2 * ((sizeof info.szDeviceName - 2) / 2)) << "cut before the split character";
    EXPECT_EQ(std::string(info.szDeviceName, nameLength), panel.name.substr(0, nameLength));
    EXPECT_EQ(info.nValue, 0);
}

TEST_F(DiscoveryNetns, PanelIsFoundUpdatedRefreshedAndGoneAfterKill) {
    const NamespacePair& ns = *m_namespaces;
    Peer& browser = browse(ns.b);
    Peer& panel = announce(ns.a, "Salle Ära 3", kKeySalle, "7K3M9Q2T", {"--publish-code", "1"});

    auto found = browser.waitForEvent("found", kKeySalle, 15s);
    ASSERT_TRUE(found) << logs();
    const Peer::Line first = browser.line(*found);
    EXPECT_EQ(first.get("name"), "Salle Ära 3");
    EXPECT_EQ(first.get("code"), "7K3M9Q2T");
    EXPECT_EQ(first.get("address"), ns.addressA);
    EXPECT_EQ(first.get("port"), "47800");
    EXPECT_EQ(first.get("ver"), std::to_string(zv::kProtocolVersion)) << "the protocol major";
    EXPECT_EQ(first.get("access"), "code");
    auto coming = browser.waitForEvent("coming", kKeySalle, 0ms);
    ASSERT_TRUE(coming);
    EXPECT_LT(*coming, *found) << "coming comes just before the first found";

    // A new code is an update of the same service, not gone + found.
    panel.send("code 8M4N0R3V");
    auto updated = browser.waitForEvent("updated", kKeySalle, 10s, *found);
    ASSERT_TRUE(updated) << logs();
    EXPECT_EQ(browser.line(*updated).get("code"), "8M4N0R3V");
    EXPECT_EQ(browser.count("gone", kKeySalle), 0u) << logs();
    EXPECT_EQ(browser.count("found", kKeySalle), 1u) << logs();

    // The table answers code look-ups with the current code only.
    browser.send("lookup 8M4N0R3V");
    browser.send("lookup 7K3M9Q2T");
    auto hit = browser.waitFor([](const Peer::Line& l) { return l.event && l.get("event") == "lookup"; }, 5s,
                               *updated);
    ASSERT_TRUE(hit);
    EXPECT_EQ(browser.line(*hit).get("key"), kKeySalle);
    EXPECT_EQ(browser.line(*hit).get("address"), ns.addressA);
    auto miss = browser.waitFor([](const Peer::Line& l) { return l.event && l.get("event") == "lookup"; }, 5s,
                                *hit + 1);
    ASSERT_TRUE(miss);
    EXPECT_EQ(browser.line(*miss).get("missing"), "true");

    // Another access mode is an update too; the table answers for the key.
    panel.send("access approve 1");
    auto approve = browser.waitFor([](const Peer::Line& l) { return l.get("event") == "updated" &&
                                                                    l.get("access") == "approve"; },
                                   10s, *miss);
    ASSERT_TRUE(approve) << logs();
    EXPECT_EQ(browser.line(*approve).get("code"), "8M4N0R3V");

    // refresh() reports what is present again, as found.
    browser.send("refresh");
    auto again = browser.waitForEvent("found", kKeySalle, 10s, *approve);
    ASSERT_TRUE(again) << logs();
    EXPECT_EQ(browser.line(*again).get("code"), "8M4N0R3V");
    EXPECT_EQ(browser.count("coming", kKeySalle), 1u) << "coming only the first time a key is seen";
    EXPECT_EQ(browser.count("gone", kKeySalle), 0u) << logs();

    // No goodbye: only the records' TTL can tell.
    panel.signal(SIGKILL);
    const auto killedAt = Clock::now();
    auto gone = browser.waitForEvent("gone", kKeySalle, kGoneDeadline, *again);
    ASSERT_TRUE(gone) << "not gone within 10 s of SIGKILL\n" << logs();
    const auto goneAfter = std::chrono::duration_cast<std::chrono::milliseconds>(browser.line(*gone).at - killedAt);
    RecordProperty("gone_after_sigkill_ms", static_cast<int>(goneAfter.count()));
    std::cout << "[ measure  ] gone " << goneAfter.count() << " ms after SIGKILL (record TTL "
              << zv::kPanelRecordTtl.count() << " s)" << std::endl;
    EXPECT_EQ(browser.line(*gone).get("code"), "8M4N0R3V") << "gone carries the last record reported";
}

TEST_F(DiscoveryNetns, NameCollisionGetsAnAlternativeNameAndGoodbyeIsSeenAtOnce) {
    const NamespacePair& ns = *m_namespaces;
    Peer& browser = browse(ns.b);
    // A TTL far beyond the deadline: only a goodbye can make the panel go in time.
    Peer& first = announce(ns.a, "Panel", kKeyA, "1111AAAA", {"--ttl", "120"});
    auto firstFound = browser.waitForEvent("found", kKeyA, 15s);
    ASSERT_TRUE(firstFound) << logs();
    EXPECT_EQ(browser.line(*firstFound).get("code"), "") << "no code on the network unless the operator publishes it";
    EXPECT_EQ(browser.line(*firstFound).get("access"), "code");

    Peer& second = announce(ns.b, "Panel", kKeyB, "2222BBBB", {"--ttl", "120"});
    auto established = second.waitForEvent("established", "", 15s);
    ASSERT_TRUE(established) << logs();
    EXPECT_EQ(second.line(*established).get("name"), "Panel #2");
    EXPECT_TRUE(second.waitForEvent("renamed", "", 0ms)) << "the collision is reported";
    auto secondFound = browser.waitForEvent("found", kKeyB, 15s);
    ASSERT_TRUE(secondFound) << logs();
    const Peer::Line seen = browser.line(*secondFound);
    EXPECT_EQ(seen.get("name"), "Panel") << "the record keeps the panel's own name";
    EXPECT_EQ(seen.get("address"), ns.addressB) << "a panel on the browser's host is reported by its LAN address";

    // Only a gone reported after the stop counts.
    const size_t beforeStop = browser.lines().size();
    first.signal(SIGTERM);
    const auto stoppedAt = Clock::now();
    auto gone = browser.waitForEvent("gone", kKeyA, kGoneDeadline, beforeStop);
    ASSERT_TRUE(gone) << logs();
    std::cout << "[ measure  ] gone "
              << std::chrono::duration_cast<std::chrono::milliseconds>(browser.line(*gone).at - stoppedAt).count()
              << " ms after a clean stop (record TTL 120 s)" << std::endl;
    EXPECT_TRUE(first.waitExit(5s));
    EXPECT_EQ(browser.count("gone", kKeyB), 0u);
}

// An avahi-daemon of the test's own in namespace B, on a private system bus.
TEST_F(DiscoveryNetns, DaemonBackendAndAvahiBrowseSeeTheSamePanels) {
    const NamespacePair& ns = *m_namespaces;
    if (run("command -v avahi-daemon && command -v dbus-daemon && command -v avahi-browse") != 0)
        GTEST_SKIP() << "avahi-daemon, dbus-daemon or avahi-browse missing; see docs/discovery.md for the manual check.";

    const std::string busPath = m_dir + "/system_bus_socket";
    const std::string bus = "DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + busPath;
    std::ofstream(m_dir + "/bus.conf")
        << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig><type>system</type><listen>unix:path="
        << busPath
        << "</listen><auth>EXTERNAL</auth>"
           "<policy context=\"default\"><allow user=\"*\"/><allow own=\"*\"/>"
           "<allow send_destination=\"*\"/><allow receive_sender=\"*\"/></policy></busconfig>\n";
    std::ofstream(m_dir + "/avahi.conf") << "[server]\nhost-name=zvd-daemon\nuse-ipv4=yes\nuse-ipv6=no\n"
                                            "allow-interfaces="
                                         << ns.interfaceB
                                         << "\nenable-dbus=yes\n[wide-area]\nenable-wide-area=no\n"
                                            "[publish]\npublish-hinfo=no\npublish-workstation=no\n";
    // It prints its address once it listens.
    Peer& dbus = start(ns.b, {"dbus-daemon", "--config-file=" + m_dir + "/bus.conf", "--nofork", "--nopidfile",
                              "--print-address=1"},
                       bus);
    if (!dbus.waitFor([](const Peer::Line& l) { return l.text.rfind("unix:", 0) == 0; }, 10s))
        GTEST_SKIP() << "Cannot start a private D-Bus system bus.\n" << logs();
    // ip netns exec gives the daemon a mount namespace of its own: a tmpfs on
    // /run holds its pid file and socket without touching the host's.
    Peer& daemon = start(ns.b,
                         {"sh", "-c",
                          "mount -t tmpfs zvd-run /run && exec avahi-daemon --no-drop-root --no-chroot --no-rlimits "
                          "--no-proc-title -f " +
                              m_dir + "/avahi.conf"},
                         bus, true);
    if (!daemon.waitFor([](const Peer::Line& l) { return l.text.find("Server startup complete") != std::string::npos; },
                        15s))
        GTEST_SKIP() << "avahi-daemon does not start in the namespace; see docs/discovery.md for the manual check.\n"
                     << logs();

    Peer& embeddedBrowser = browse(ns.a);
    Peer& daemonBrowser = browse(ns.b, {"--backend", "daemon"}, bus);
    ASSERT_TRUE(daemonBrowser.waitForEvent("started", "", 10s));
    EXPECT_EQ(daemonBrowser.line(0).get("backend"), "daemon") << logs();
    announce(ns.a, "Salle A", kKeyA, "1111AAAA");
    Peer& viaDaemon =
        announce(ns.b, "Salle B", kKeyB, "2222BBBB", {"--backend", "daemon", "--publish-code", "1"}, bus);

    // Our records, as Avahi's own tool reads them from the daemon.
    std::string seen;
    const auto until = Clock::now() + 20s;
    auto bothResolved = [&] {
        return seen.find("=;" + ns.interfaceB + ";IPv4;Salle\\032A;_zelvanor._tcp;local;") != std::string::npos &&
               seen.find(";" + ns.addressA + ";47800;") != std::string::npos &&
               seen.find("\"access=code\"") != std::string::npos &&
               seen.find("\"key=" + std::string(kKeyA) + "\"") != std::string::npos &&
               seen.find("Salle\\032B;_zelvanor._tcp;local;zvd-daemon.local;" + ns.addressB + ";47800;") !=
                   std::string::npos;
    };
    while (!bothResolved() && Clock::now() < until)
        seen = runOutput("ip netns exec " + ns.b + " env " + bus + " avahi-browse -rpt _zelvanor._tcp");
    EXPECT_TRUE(bothResolved()) << "avahi-browse -rpt said:\n" << seen << logs();
    EXPECT_EQ(seen.find("code=1111AAAA"), std::string::npos) << "A does not publish its code:\n" << seen;
    EXPECT_NE(seen.find("\"code=2222BBBB\""), std::string::npos) << "B does:\n" << seen;

    auto aSeen = daemonBrowser.waitForEvent("found", kKeyA, 15s);
    ASSERT_TRUE(aSeen) << logs();
    EXPECT_EQ(daemonBrowser.line(*aSeen).get("address"), ns.addressA);
    auto bSeen = embeddedBrowser.waitForEvent("found", kKeyB, 15s);
    ASSERT_TRUE(bSeen) << logs();
    EXPECT_EQ(embeddedBrowser.line(*bSeen).get("address"), ns.addressB);
    EXPECT_EQ(embeddedBrowser.line(*bSeen).get("code"), "2222BBBB");

    viaDaemon.send("code 3333CCCC");
    auto updated = embeddedBrowser.waitForEvent("updated", kKeyB, 10s, *bSeen);
    ASSERT_TRUE(updated) << logs();
    EXPECT_EQ(embeddedBrowser.line(*updated).get("code"), "3333CCCC");

    // The daemon withdraws what a client published when the client dies.
    viaDaemon.signal(SIGKILL);
    const auto killedAt = Clock::now();
    auto gone = embeddedBrowser.waitForEvent("gone", kKeyB, kGoneDeadline, *updated);
    ASSERT_TRUE(gone) << logs();
    std::cout << "[ measure  ] gone "
              << std::chrono::duration_cast<std::chrono::milliseconds>(embeddedBrowser.line(*gone).at - killedAt)
                     .count()
              << " ms after SIGKILL of a daemon-backed announcer" << std::endl;
    EXPECT_TRUE(daemonBrowser.waitForEvent("gone", kKeyB, kGoneDeadline)) << logs();
    EXPECT_EQ(embeddedBrowser.count("gone", kKeyA), 0u);
}

}  // namespace
