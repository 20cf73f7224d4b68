// Helpers shared by the widget tests: a glog sink that keeps the log lines,
// and a scope that sets the passcode server in the settings store.
#pragma once

#include <glog/logging.h>

#include <mutex>
#include <string>
#include <vector>

#include "casting/CClientConfig.h"
#include "casting/Singleton.h"

namespace zvtest {

// Collects the text of every log line while it is installed.
class LogCapture : public google::LogSink {
public:
    LogCapture() { google::AddLogSink(this); }
    ~LogCapture() override { google::RemoveLogSink(this); }

    void send(google::LogSeverity, const char*, const char*, int, const google::LogMessageTime&, const char* message,
              size_t length) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.emplace_back(message, length);
    }

    int count(const std::string& line) {
        std::lock_guard<std::mutex> lock(m_mutex);
        int n = 0;
        for (const auto& l : m_lines) n += l == line ? 1 : 0;
        return n;
    }

    int countContaining(const std::string& part) {
        std::lock_guard<std::mutex> lock(m_mutex);
        int n = 0;
        for (const auto& l : m_lines) n += l.find(part) != std::string::npos ? 1 : 0;
        return n;
    }

private:
    std::mutex m_mutex;
    std::vector<std::string> m_lines;
};

// Sets the passcode server for the scope and clears it again afterwards.
class PasscodeServerScope {
public:
    PasscodeServerScope(const std::string& ip, const std::string& port) {
        CClientConfig& config = Singleton<CClientConfig>::getInstance();
        config.updateServerIP(ip);
        config.updateServerPort(port);
    }
    ~PasscodeServerScope() {
        CClientConfig& config = Singleton<CClientConfig>::getInstance();
        config.updateServerIP("");
        config.updateServerPort("");
    }
};

}  // namespace zvtest
