// The network test's delay samples: once a second (until stopped) one delay
// sample to the gateway and one to the server address, handed to plain
// callbacks on the service's own thread.
//
// A sample is an ICMP echo through a datagram ICMP socket where the system
// allows them (net.ipv4.ping_group_range), else the time a TCP connection
// attempt takes to be answered: accepted or refused (RST) both mean the host
// replied, so the time is one round trip plus the host's answer. Only raw
// sockets (root) could ping without either, and the library never needs root.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "Callbacks.h"

class PingService {
public:
    // Each callback gets (ok, address text, delay in ms, user); a null one is skipped.
    struct Callbacks {
        PingDataCallback gateway = nullptr;    // the gateway's sample (ok false: no answer)
        PingDataCallback server = nullptr;     // the server's sample, with its resolved address
        PingDataCallback parseFail = nullptr;  // the server address could not be resolved
        PingDataCallback nullData = nullptr;   // no server address to test
        void* user = nullptr;
    };
    enum class Method { NotMeasured, Icmp, TcpConnect };

    PingService() = default;
    ~PingService();  // stops and joins
    PingService(const PingService&) = delete;
    PingService& operator=(const PingService&) = delete;

    // Starts (or restarts) sampling. gateway and server may be empty; server
    // may be a name. serverPort is the TCP port tried when ICMP is not allowed.
    void start(const std::string& gateway, const std::string& server, uint16_t serverPort, Callbacks callbacks,
               int intervalMs = 1000);
    void stop();
    bool isRunning() const;

    // One sample: the delay in ms (0 and up), or -1 when the host gave no
    // answer within timeoutMs. method tells how it was measured.
    static int measureDelayMs(const std::string& ipv4, uint16_t tcpPort, int timeoutMs, Method* method = nullptr);
    // The dotted address of a host name or address text; empty when it does not resolve.
    static std::string resolve(const std::string& host);
    // Interface name -> its default gateway (dotted), from the kernel's route
    // table (/proc/net/route); the first default route of an interface wins.
    static std::map<std::string, std::string> defaultGateways(const std::string& routeFile = "/proc/net/route");
    // The verdict of a sample as the network test shows it.
    static const char* delayVerdict(int delayMs);

private:
    void run(std::string gateway, std::string server, uint16_t serverPort, Callbacks callbacks, int intervalMs);

    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_stop = false;
    std::thread m_thread;
};
