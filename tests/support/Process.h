// Child processes for tests: start a program, read its standard output line
// by line with deadlines, stop it (SIGTERM, then SIGKILL) when dropped.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace zvtest {

// Polls cond every 20 ms until it holds or timeout passes.
inline bool waitFor(const std::function<bool()>& cond, std::chrono::milliseconds timeout) {
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!cond()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

// Path of a built program: <build>/bin/<name>.
inline std::string builtProgram(const std::string& name) {
#ifdef ZV_BUILD_DIR
    return std::string(ZV_BUILD_DIR) + "/bin/" + name;
#else
    return "./" + name;
#endif
}

class ChildProcess {
public:
    enum class Output { Inherit, Capture };
    enum class Input { Inherit, Pipe };

    ChildProcess() = default;
    explicit ChildProcess(const std::vector<std::string>& argv, Output output = Output::Inherit,
                          Input input = Input::Inherit) {
        start(argv, output, input);
    }
    ~ChildProcess() {
        stop();
        if (m_stdout >= 0) close(m_stdout);
        closeInput();
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    bool start(const std::vector<std::string>& argv, Output output = Output::Inherit, Input input = Input::Inherit) {
        int fds[2] = {-1, -1};
        int in[2] = {-1, -1};
        if (output == Output::Capture && pipe2(fds, O_CLOEXEC) != 0) return false;
        if (input == Input::Pipe && pipe2(in, O_CLOEXEC) != 0) return false;
        m_pid = fork();
        if (m_pid == 0) {
            if (fds[1] >= 0) dup2(fds[1], STDOUT_FILENO);
            if (in[0] >= 0) dup2(in[0], STDIN_FILENO);
            setpgid(0, 0);  // its own group, so stop() also ends what it started
            std::vector<char*> args;
            for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
            args.push_back(nullptr);
            execvp(args[0], args.data());
            _exit(127);
        }
        if (fds[1] >= 0) close(fds[1]);
        if (in[0] >= 0) close(in[0]);
        m_stdout = fds[0];
        m_stdin = in[1];
        return m_pid > 0;
    }

    // With Input::Pipe: a line to the program's standard input.
    bool writeLine(const std::string& line) {
        if (m_stdin < 0) return false;
        const std::string data = line + "\n";
        return write(m_stdin, data.data(), data.size()) == static_cast<ssize_t>(data.size());
    }
    void closeInput() {
        if (m_stdin >= 0) close(m_stdin);
        m_stdin = -1;
    }

    pid_t pid() const { return m_pid > 0 ? m_pid : m_lastPid; }

    // True once the process has ended; its exit status is then in exitCode().
    bool finished() {
        if (m_pid <= 0) return true;
        int status = 0;
        if (waitpid(m_pid, &status, WNOHANG) == m_pid) {
            m_exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            m_lastPid = m_pid;
            m_pid = -1;
            return true;
        }
        return false;
    }
    int exitCode() const { return m_exitCode; }
    bool waitFinished(std::chrono::milliseconds timeout) {
        return waitFor([this] { return finished(); }, timeout);
    }

    void signal(int sig) {
        if (m_pid > 0 && kill(-m_pid, sig) != 0) kill(m_pid, sig);  // group not made yet
    }
    void stop() {
        if (m_pid <= 0) return;
        signal(SIGTERM);
        if (!waitFinished(std::chrono::seconds(5))) {
            signal(SIGKILL);
            waitFinished(std::chrono::seconds(5));
        }
    }

    // The next captured output line that satisfies accept (lines before it are
    // kept in lines()). Empty when none came within timeout.
    std::string waitForLine(const std::function<bool(const std::string&)>& accept,
                            std::chrono::milliseconds timeout) {
        const auto end = std::chrono::steady_clock::now() + timeout;
        for (;;) {
            while (m_next < m_lines.size()) {
                const std::string& line = m_lines[m_next++];
                if (accept(line)) return line;
            }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
            if (left.count() <= 0 || !readSome(static_cast<int>(left.count()))) return {};
        }
    }
    std::string waitForLineContaining(const std::string& text, std::chrono::milliseconds timeout) {
        return waitForLine([&](const std::string& line) { return line.find(text) != std::string::npos; }, timeout);
    }
    const std::vector<std::string>& lines() const { return m_lines; }

private:
    bool readSome(int timeoutMs) {
        if (m_stdout < 0) return false;
        pollfd pfd{m_stdout, POLLIN, 0};
        if (poll(&pfd, 1, timeoutMs) <= 0) return false;
        char buffer[4096];
        const ssize_t n = read(m_stdout, buffer, sizeof buffer);
        if (n <= 0) {
            close(m_stdout);
            m_stdout = -1;
            return false;
        }
        m_partial.append(buffer, static_cast<size_t>(n));
        size_t newline;
        while ((newline = m_partial.find('\n')) != std::string::npos) {
            m_lines.push_back(m_partial.substr(0, newline));
            m_partial.erase(0, newline + 1);
        }
        return true;
    }

    pid_t m_pid = -1;
    pid_t m_lastPid = -1;
    int m_exitCode = -1;
    int m_stdout = -1;
    int m_stdin = -1;
    std::string m_partial;
    std::vector<std::string> m_lines;
    size_t m_next = 0;
};

}  // namespace zvtest
