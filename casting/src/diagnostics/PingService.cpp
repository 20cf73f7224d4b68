#include "casting/PingService.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/ip_icmp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "casting/Log.h"

namespace {

using Clock = std::chrono::steady_clock;

// Closes a descriptor on every way out.
struct Descriptor {
    int fd = -1;
    ~Descriptor() {
        if (fd >= 0) ::close(fd);
    }
};

int elapsedMs(Clock::time_point since) {
    return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - since).count());
}

// -1: no answer in time; -2: ICMP sockets are not allowed here.
int icmpDelayMs(const sockaddr_in& target, int timeoutMs) {
    Descriptor socket{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_ICMP)};
    if (socket.fd < 0) return -2;
    static uint16_t sequence = 0;
    icmphdr request{};
    request.type = ICMP_ECHO;
    request.un.echo.sequence = htons(++sequence);  // the kernel sets the id and the checksum
    const auto sent = Clock::now();
    if (::sendto(socket.fd, &request, sizeof request, 0, reinterpret_cast<const sockaddr*>(&target), sizeof target) < 0) {
        return errno == EACCES || errno == EPERM ? -2 : -1;
    }
    while (true) {
        const int left = timeoutMs - elapsedMs(sent);
        if (left <= 0) return -1;
        pollfd wait{socket.fd, POLLIN, 0};
        if (::poll(&wait, 1, left) <= 0) return -1;
        icmphdr reply{};
        char buffer[256];
        const ssize_t got = ::recv(socket.fd, buffer, sizeof buffer, 0);
        if (got < static_cast<ssize_t>(sizeof reply)) continue;
        std::memcpy(&reply, buffer, sizeof reply);
        if (reply.type == ICMP_ECHOREPLY && reply.un.echo.sequence == request.un.echo.sequence) return elapsedMs(sent);
    }
}

int tcpDelayMs(const sockaddr_in& target, int timeoutMs) {
    Descriptor socket{::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)};
    if (socket.fd < 0) return -1;
    const auto sent = Clock::now();
    if (::connect(socket.fd, reinterpret_cast<const sockaddr*>(&target), sizeof target) == 0) return elapsedMs(sent);
    if (errno == ECONNREFUSED) return elapsedMs(sent);
    if (errno != EINPROGRESS) return -1;
    pollfd wait{socket.fd, POLLOUT, 0};
    if (::poll(&wait, 1, timeoutMs) <= 0) return -1;
    int error = 0;
    socklen_t length = sizeof error;
    ::getsockopt(socket.fd, SOL_SOCKET, SO_ERROR, &error, &length);
    // Connected, or refused by the host itself: either way it answered.
    return error == 0 || error == ECONNREFUSED ? elapsedMs(sent) : -1;
}

}  // namespace

PingService::~PingService() { stop(); }

int PingService::measureDelayMs(const std::string& ipv4, uint16_t tcpPort, int timeoutMs, Method* method) {
    if (method != nullptr) *method = Method::NotMeasured;
    sockaddr_in target{};
    target.sin_family = AF_INET;
    if (::inet_pton(AF_INET, ipv4.c_str(), &target.sin_addr) != 1) return -1;
    const int icmp = icmpDelayMs(target, timeoutMs);
    if (icmp != -2) {
        if (method != nullptr) *method = Method::Icmp;
        return icmp;
    }
    target.sin_port = htons(tcpPort);
    if (method != nullptr) *method = Method::TcpConnect;
    return tcpDelayMs(target, timeoutMs);
}

std::string PingService::resolve(const std::string& host) {
    if (host.empty()) return {};
    addrinfo hints{};
    hints.ai_family = AF_INET;
    addrinfo* found = nullptr;
    if (::getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0 || found == nullptr) return {};
    char text[INET_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(found->ai_addr)->sin_addr, text, sizeof text);
    ::freeaddrinfo(found);
    return text;
}

std::map<std::string, std::string> PingService::defaultGateways(const std::string& routeFile) {
    std::map<std::string, std::string> gateways;
    std::ifstream routes(routeFile);
    std::string line;
    std::getline(routes, line);  // the header
    constexpr unsigned long kRouteGateway = 0x2;
    while (std::getline(routes, line)) {
        std::istringstream fields(line);
        std::string name, destination, gateway, flags;
        if (!(fields >> name >> destination >> gateway >> flags)) continue;
        const unsigned long address = std::strtoul(gateway.c_str(), nullptr, 16);
        if (std::strtoul(destination.c_str(), nullptr, 16) != 0 || address == 0 ||
            !(std::strtoul(flags.c_str(), nullptr, 16) & kRouteGateway)) {
            continue;
        }
        // The kernel writes the address as a number in its own byte order: as in_addr's.
        in_addr in{};
        in.s_addr = static_cast<in_addr_t>(address);
        char text[INET_ADDRSTRLEN] = {};
        ::inet_ntop(AF_INET, &in, text, sizeof text);
        gateways.emplace(name, text);
    }
    return gateways;
}

const char* PingService::delayVerdict(int delayMs) {
    if (delayMs < 0) return "Error.Ip pinged failed.";
    return delayMs > 99 ? "Success.There is a large delay" : "Success.";
}

void PingService::start(const std::string& gateway, const std::string& server, uint16_t serverPort,
                        Callbacks callbacks, int intervalMs) {
    stop();
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stop = false;
    m_thread = std::thread(&PingService::run, this, gateway, server, serverPort, callbacks, intervalMs);
}

void PingService::stop() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_wake.notify_all();
    if (m_thread.joinable()) m_thread.join();
}

bool PingService::isRunning() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_thread.joinable() && !m_stop;
}

void PingService::run(std::string gateway, std::string server, uint16_t serverPort, Callbacks callbacks,
                      int intervalMs) {
    constexpr int kTimeoutMs = 1000;
    // Routers rarely listen; port 80 is as good as any for a refusal.
    constexpr uint16_t kGatewayPort = 80;
    Method used = Method::NotMeasured;
    while (true) {
        if (!gateway.empty() && callbacks.gateway != nullptr) {
            const int delay = measureDelayMs(gateway, kGatewayPort, kTimeoutMs, &used);
            callbacks.gateway(delay >= 0, gateway.c_str(), delay < 0 ? 0 : delay, callbacks.user);
        }
        if (server.empty()) {
            if (callbacks.nullData != nullptr) callbacks.nullData(false, "", 0, callbacks.user);
        } else {
            const std::string address = resolve(server);
            if (address.empty()) {
                if (callbacks.parseFail != nullptr) callbacks.parseFail(false, server.c_str(), 0, callbacks.user);
            } else if (callbacks.server != nullptr) {
                const int delay = measureDelayMs(address, serverPort, kTimeoutMs, &used);
                callbacks.server(delay >= 0, address.c_str(), delay < 0 ? 0 : delay, callbacks.user);
            }
        }
        static std::atomic<bool> logged{false};
        if (!logged.exchange(true)) {
            ZV_LOG(INFO) << " delay samples by " << (used == Method::Icmp ? "ICMP echo" : "TCP connection attempts");
        }
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_wake.wait_for(lock, std::chrono::milliseconds(intervalMs), [this] { return m_stop; })) return;
    }
}
