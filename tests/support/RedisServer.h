// A real redis-server for tests: on a free loopback port, with its own data
// folder (removed when dropped), append-only file on or off. restart() keeps
// the folder and port, so what Redis persisted comes back.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "Process.h"

namespace zvtest {

class RedisServer {
public:
    enum class Persistence { None, AppendOnly };

    explicit RedisServer(Persistence persistence = Persistence::None) : m_persistence(persistence) {
        char folder[] = "/tmp/zv-redis-XXXXXX";
        if (mkdtemp(folder)) m_dir = folder;
        m_port = freePort();
    }
    ~RedisServer() {
        stop();
        if (!m_dir.empty()) std::system(("rm -rf '" + m_dir + "'").c_str());
    }
    RedisServer(const RedisServer&) = delete;
    RedisServer& operator=(const RedisServer&) = delete;

    // Starts it and waits until it answers PING (false when it does not within 10 s).
    bool start() {
        if (m_dir.empty() || m_port == 0) return false;
        m_process = std::make_unique<ChildProcess>(std::vector<std::string>{
            "redis-server", "--port", std::to_string(m_port), "--bind", "127.0.0.1", "--dir", m_dir, "--save", "",
            "--appendonly", m_persistence == Persistence::AppendOnly ? "yes" : "no", "--appendfsync", "always",
            "--daemonize", "no", "--protected-mode", "no", "--logfile", m_dir + "/redis.log"},
            // Its own pipe: a server left behind must not hold the test's output open.
            ChildProcess::Output::Capture);
        return waitFor([this] { return answersPing(); }, std::chrono::seconds(10));
    }
    // Ends it (SIGTERM: Redis flushes its append-only file first); kill() is SIGKILL.
    void stop() {
        if (m_process) m_process->stop();
        m_process.reset();
    }
    void kill() {
        if (m_process) m_process->signal(SIGKILL);
        if (m_process) m_process->waitFinished(std::chrono::seconds(5));
        m_process.reset();
    }
    // A Redis that hangs (SIGSTOP): connections stay open, nothing answers.
    void pause() {
        if (m_process) m_process->signal(SIGSTOP);
    }
    void resume() {
        if (m_process) m_process->signal(SIGCONT);
    }
    bool restart() {
        stop();
        return start();
    }

    int port() const { return m_port; }
    pid_t pid() const { return m_process ? m_process->pid() : 0; }
    std::string url(int database = 0) const {
        return "redis://127.0.0.1:" + std::to_string(m_port) + "/" + std::to_string(database);
    }
    const std::string& dataDir() const { return m_dir; }

    bool answersPing() const {
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd < 0) return false;
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(m_port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bool ok = false;
        timeval wait{1, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
        if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
            write(fd, "PING\r\n", 6) == 6) {
            char reply[16] = {};
            ok = read(fd, reply, sizeof reply - 1) > 0 && std::string(reply).rfind("+PONG", 0) == 0;
        }
        close(fd);
        return ok;
    }

    // A port nothing listens on now (the kernel's pick).
    static int freePort() {
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        int port = 0;
        if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
            getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
            port = ntohs(address.sin_port);
        }
        close(fd);
        return port;
    }

private:
    Persistence m_persistence;
    std::string m_dir;
    int m_port = 0;
    std::unique_ptr<ChildProcess> m_process;
};

}  // namespace zvtest
