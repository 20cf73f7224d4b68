// The log of a stopped or killed program holds its last lines: the real
// receiver (headless, any free port, no discovery) is stopped with SIGTERM or
// killed with SIGKILL, and its log file is compared with what it printed to
// stderr (every glog line goes there too in this test). Also the CLI, which
// has no event loop, on SIGTERM.
#include <gtest/gtest.h>

#include <signal.h>
#include <stdlib.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "Process.h"
#include "StatusLines.h"

using namespace std::chrono_literals;

namespace {

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The glog lines ("I1123 ...] text") of a text, in order.
std::vector<std::string> glogLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (line.size() > 1 && std::string("IWEF").find(line[0]) != std::string::npos && std::isdigit(static_cast<unsigned char>(line[1])) &&
            line.find("] ") != std::string::npos)
            lines.push_back(line);
    }
    return lines;
}

class LogSurvives : public ::testing::Test {
protected:
    void SetUp() override {
        char folder[] = "/tmp/zv-log-XXXXXX";
        ASSERT_NE(mkdtemp(folder), nullptr);
        m_home = folder;
        m_stderr = m_home + "/stderr.txt";
    }
    void TearDown() override { std::system(("rm -rf " + m_home).c_str()); }

    // argv run with HOME in the test folder, in a network namespace of its
    // own, glog's lines also on stderr (into m_stderr) and stdout captured.
    std::vector<std::string> wrapped(const std::string& command) const {
        return {"sh", "-c",
                "exec env HOME=" + m_home + " XDG_CONFIG_HOME=" + m_home +
                    "/.config GLOG_alsologtostderr=1 QT_QPA_PLATFORM=offscreen unshare --net " + command + " 2>" +
                    m_stderr};
    }
    std::string logFile(const std::string& program) const {
        return m_home + "/Zelvanor/Zelvanor/Logs/" + program + ".INFO";
    }
    std::string startReceiver(zvtest::ChildProcess& receiver) {
        receiver.start(wrapped(zvtest::builtProgram("zelvanor-receiver") +
                               " --headless --no-discovery --port 0 --name Logs"),
                       zvtest::ChildProcess::Output::Capture, zvtest::ChildProcess::Input::Pipe);
        return receiver.waitForLine(zvtest::statusEvent("ready"), 20s);
    }

    std::string m_home;
    std::string m_stderr;
};

TEST_F(LogSurvives, StopSignalsAndAKillKeepTheLastLines) {
    // SIGTERM: the stop finishes and its last line is on disk.
    {
        zvtest::ChildProcess receiver;
        ASSERT_FALSE(startReceiver(receiver).empty()) << readFile(m_stderr);
        receiver.signal(SIGTERM);
        ASSERT_TRUE(receiver.waitFinished(20s));
        const auto printed = glogLines(readFile(m_stderr));
        const auto logged = glogLines(readFile(logFile("zelvanor-receiver")));
        ASSERT_FALSE(printed.empty());
        ASSERT_FALSE(logged.empty()) << "no log file at " << logFile("zelvanor-receiver");
        EXPECT_EQ(logged.back(), printed.back());
        EXPECT_NE(readFile(logFile("zelvanor-receiver")).find("] signal 15: stopping"), std::string::npos);
    }
    // SIGKILL: nothing runs at the end, so the lines must already be on disk
    // within the second the flush takes.
    std::system(("rm -rf " + m_home + "/Zelvanor " + m_stderr).c_str());
    {
        zvtest::ChildProcess receiver;
        ASSERT_FALSE(startReceiver(receiver).empty()) << readFile(m_stderr);
        const auto printed = glogLines(readFile(m_stderr));
        ASSERT_FALSE(printed.empty());
        const std::string last = printed.back();
        EXPECT_TRUE(zvtest::waitFor(
            [&] {
                const auto logged = glogLines(readFile(logFile("zelvanor-receiver")));
                return !logged.empty() && std::find(logged.begin(), logged.end(), last) != logged.end();
            },
            5s))
            << "the line printed at start is not in the log: " << last;
        receiver.signal(SIGKILL);
        ASSERT_TRUE(receiver.waitFinished(10s));
        const auto logged = glogLines(readFile(logFile("zelvanor-receiver")));
        EXPECT_NE(std::find(logged.begin(), logged.end(), last), logged.end());
    }
}

TEST_F(LogSurvives, TheCliWritesItsLogOutWhenStopped) {
    // A discovery that would run for a minute, stopped once it has begun.
    zvtest::ChildProcess cli(wrapped(zvtest::builtProgram("zelvanor-cli") + " discover --seconds 60"),
                             zvtest::ChildProcess::Output::Capture, zvtest::ChildProcess::Input::Pipe);
    ASSERT_TRUE(zvtest::waitFor([&] { return !glogLines(readFile(m_stderr)).empty(); }, 20s))
        << readFile(m_stderr);
    cli.signal(SIGTERM);
    ASSERT_TRUE(cli.waitFinished(20s));
    EXPECT_EQ(cli.exitCode(), 128 + SIGTERM) << "ended by the signal, as before";
    const auto logged = glogLines(readFile(logFile("zelvanor")));
    ASSERT_FALSE(logged.empty());
    EXPECT_NE(logged.back().find("] signal 15: stopping"), std::string::npos) << logged.back();
}

}  // namespace
