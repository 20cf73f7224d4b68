// The session service end to end: a real receiver (with its passcode service
// and LAN announcement) on one test host, the real library through
// zelvanor-cli on another, joined by a veth pair.
#include <gtest/gtest.h>

#include <QJsonDocument>
#include <QJsonObject>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>

#include "NetnsPair.h"
#include "Process.h"
#include "StatusLines.h"

namespace {

using namespace std::chrono_literals;
using zvtest::ChildProcess;

using zvtest::jsonLine;
using zvtest::textField;
using zvtest::statusEvent;

class SessionNetns : public ::testing::Test {
protected:
    void SetUp() override {
        if (!net.ready()) GTEST_SKIP() << "no test hosts: " << net.error();
        char folder[] = "/tmp/zv-e2e-XXXXXX";
        ASSERT_NE(mkdtemp(folder), nullptr);
        root = folder;
    }
    void TearDown() override {
        if (!root.empty()) std::system(("rm -rf " + root).c_str());
    }

    // argv run on test host ns with a home of its own (identity, known panels, logs).
    std::vector<std::string> on(const std::string& ns, const std::string& home, std::vector<std::string> argv) {
        const std::string dir = root + "/" + home;
        std::system(("mkdir -p " + dir).c_str());
        // A private system bus address: the host's bus is reachable through the
        // file system, and its Avahi daemon lives in the host's network.
        argv.insert(argv.begin(), {"env", "HOME=" + dir, "XDG_CONFIG_HOME=" + dir + "/.config",
                                   "DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + dir + "/no-bus"});
        return zvtest::NetnsPair::in(ns, argv);
    }

    std::unique_ptr<ChildProcess> startReceiver(const std::vector<std::string>& extra, QJsonObject* ready,
                                                const std::string& home = "panel") {
        std::vector<std::string> argv = {zvtest::builtProgram("zelvanor-receiver"), "--headless"};
        argv.insert(argv.end(), extra.begin(), extra.end());
        auto receiver = std::make_unique<ChildProcess>(on(net.a, home, argv), ChildProcess::Output::Capture,
                                                       ChildProcess::Input::Pipe);
        const std::string line = receiver->waitForLine(statusEvent("ready"), 20s);
        EXPECT_FALSE(line.empty()) << "the receiver did not get ready";
        *ready = jsonLine(line);
        return receiver;
    }

    // zelvanor-cli on host b; returns its exit code and output lines.
    int cli(const std::vector<std::string>& args, std::vector<std::string>* lines = nullptr) {
        std::vector<std::string> argv = {zvtest::builtProgram("zelvanor-cli")};
        argv.insert(argv.end(), args.begin(), args.end());
        ChildProcess tool(on(net.b, "pc", argv), ChildProcess::Output::Capture);
        tool.waitForLine([](const std::string&) { return false; }, 15s);  // read until it ends
        EXPECT_TRUE(tool.waitFinished(5s)) << "zelvanor-cli hung";
        if (lines != nullptr) *lines = tool.lines();
        return tool.exitCode();
    }
    std::string cliError(const std::vector<std::string>& args) {
        std::vector<std::string> lines;
        EXPECT_EQ(cli(args, &lines), 1);
        for (const std::string& line : lines) {
            if (textField(jsonLine(line), "event") == "error") return textField(jsonLine(line), "code");
        }
        return "no error line";
    }

    zvtest::NetnsPair net;
    std::string root;
};

TEST_F(SessionNetns, LogInByCodeByPasscodeAndFromTheDiscoveryList) {
    QJsonObject ready;
    auto receiver = startReceiver({"--name", "Room A", "--passcode-service", "0"}, &ready);
    ASSERT_EQ(textField(ready, "address"), net.addressA);
    const std::string code = textField(ready, "code");
    ASSERT_EQ(code.size(), 8u);

    // The passcode comes from the passcode service the receiver runs, soon after start.
    const auto started = std::chrono::steady_clock::now();
    std::string passcode = textField(ready, "passcode");
    if (passcode.empty()) passcode = textField(jsonLine(receiver->waitForLine(statusEvent("passcode"), 10s)), "passcode");
    ASSERT_EQ(passcode.size(), 4u);
    const std::string service = net.addressA + ":" + std::to_string(ready.value("passcodeServicePort").toInt());

    std::vector<std::string> lines;
    ASSERT_EQ(cli({"login", "--code", code}, &lines), 0);
    const QJsonObject login = jsonLine(lines.front());
    EXPECT_EQ(textField(login, "event"), "login");
    EXPECT_EQ(textField(login, "name"), "Room A");
    EXPECT_EQ(textField(login, "key"), textField(ready, "key"));
    EXPECT_FALSE(receiver->waitForLine(statusEvent("client-joined"), 5s).empty());
    EXPECT_FALSE(receiver->waitForLine(statusEvent("client-left", "reason", "logged out"), 5s).empty());

    // The 4-character passcode, through the passcode service; the log-in
    // requires the panel key the service returns.
    ASSERT_EQ(cli({"login", "--code", passcode, "--passcode-server", service}, &lines), 0);
    EXPECT_EQ(textField(jsonLine(lines.front()), "name"), "Room A");
    EXPECT_EQ(textField(jsonLine(lines.front()), "key"), textField(ready, "key"));

    // A finished session retires the code and the passcode, but only once
    // they have been up for 20 s: a log-in/bye loop cannot churn them
    // faster than a person reads them.
    const std::string next = textField(jsonLine(receiver->waitForLine(statusEvent("code"), 40s)), "code");
    EXPECT_GE(std::chrono::steady_clock::now() - started, 18s);
    EXPECT_NE(next, code);
    const std::string nextPasscode =
        textField(jsonLine(receiver->waitForLine(statusEvent("passcode"), 10s)), "passcode");
    EXPECT_EQ(nextPasscode.size(), 4u);
    EXPECT_NE(nextPasscode, passcode);
    EXPECT_EQ(cliError({"login", "--code", code}), "0xF3201000");
    EXPECT_EQ(cliError({"login", "--code", passcode, "--passcode-server", service}), "0xF3201001");

    // Picked from the panels discovery finds.
    ASSERT_EQ(cli({"discover", "--seconds", "4"}, &lines), 0);
    QJsonObject found;
    for (const std::string& line : lines) {
        if (textField(jsonLine(line), "key") == textField(ready, "key")) found = jsonLine(line);
    }
    ASSERT_FALSE(found.isEmpty()) << "discovery did not find the receiver";
    EXPECT_EQ(textField(found, "address"), net.addressA);
    EXPECT_EQ(textField(found, "name"), "Room A");
    const std::string address = textField(found, "address") + ":" + std::to_string(found.value("port").toInt());
    ASSERT_EQ(cli({"login", "--address", address, "--key", textField(found, "key")}, &lines), 0);
    EXPECT_EQ(textField(jsonLine(lines.front()), "name"), "Room A");
}

TEST_F(SessionNetns, EachWayOfMissingThePanelHasItsOwnError) {
    QJsonObject ready;
    auto receiver = startReceiver({"--passcode-service", "0", "--no-discovery"}, &ready);
    const std::string code = textField(ready, "code");
    const std::string service = net.addressA + ":" + std::to_string(ready.value("passcodeServicePort").toInt());

    // The panel's address with another secret: the panel refuses it.
    std::string wrong = code;
    wrong.back() = wrong.back() == '7' ? '8' : '7';
    EXPECT_EQ(cliError({"login", "--code", wrong}), "0xF3201000");
    EXPECT_FALSE(receiver->waitForLine(statusEvent("refused", "reason", "wrongCode"), 5s).empty());
    // Not a code at all, and a short code nobody announces.
    EXPECT_EQ(cliError({"login", "--code", "AB*D5"}), "0xF3201000");
    EXPECT_EQ(cliError({"login", "--code", "QQQQQ"}), "0xF3201000");
    // Passcodes: unknown to the service; the service not there.
    EXPECT_EQ(cliError({"login", "--code", "ZZZZ", "--passcode-server", service}), "0xF3201001");
    EXPECT_EQ(cliError({"login", "--code", "ZZZZ", "--passcode-server", net.addressA + ":1"}), "0xF3201002");
    // Nothing listens at the address.
    EXPECT_EQ(cliError({"login", "--address", net.addressA + ":1"}), "0xF3200001");

    // Panels of another protocol major (older, newer) refuse this PC's hello.
    QJsonObject oldReady;
    auto old = startReceiver({"--no-discovery", "--port", "47811", "--protocol-version", "0"}, &oldReady, "old-panel");
    EXPECT_EQ(cliError({"login", "--address", net.addressA + ":47811"}), "0xF3200004");
    EXPECT_FALSE(old->waitForLine(statusEvent("refused", "reason", "versionMismatch"), 5s).empty());
    QJsonObject newReady;
    auto newer = startReceiver({"--no-discovery", "--port", "47812", "--protocol-version", "3.1"}, &newReady, "new-panel");
    EXPECT_EQ(cliError({"login", "--address", net.addressA + ":47812"}), "0xF3200004");
    EXPECT_FALSE(newer->waitForLine(statusEvent("refused", "reason", "versionMismatch"), 5s).empty());

    // Guessing codes is slowed down: after five wrong ones the panel refuses unchecked.
    for (int i = 0; i < 5; ++i) cliError({"login", "--code", wrong});
    EXPECT_EQ(cliError({"login", "--code", code}), "0xF3201000") << "a locked-out source must not get in";
    EXPECT_FALSE(receiver->waitForLine(statusEvent("refused", "reason", "rateLimited"), 5s).empty());
}

TEST_F(SessionNetns, RemovedByThePanelTheClientHearsLogOutByServer) {
    QJsonObject ready;
    auto receiver = startReceiver({"--no-discovery"}, &ready);
    ChildProcess client(on(net.b, "pc", {zvtest::builtProgram("zelvanor-cli"), "login", "--code", textField(ready, "code"),
                                         "--hold", "60"}),
                        ChildProcess::Output::Capture);
    ASSERT_FALSE(client.waitForLine(statusEvent("login"), 10s).empty());
    const QJsonObject joined = jsonLine(receiver->waitForLine(statusEvent("client-joined"), 5s));
    ASSERT_FALSE(joined.isEmpty());

    receiver->writeLine("{\"cmd\":\"remove\",\"client\":" + std::to_string(joined.value("client").toInt()) + "}");
    const QJsonObject logout = jsonLine(client.waitForLine(statusEvent("exception", "type", 32793), 5s));
    EXPECT_EQ(textField(logout, "reason"), "logOutByServer");
    EXPECT_TRUE(client.waitFinished(5s));
    EXPECT_FALSE(receiver->waitForLine(statusEvent("client-left", "reason", "removed"), 5s).empty());
}

TEST_F(SessionNetns, ACutLinkIsSeenAsMissedHeartbeatsAndTheWatchdogReconnects) {
    QJsonObject ready;
    auto receiver = startReceiver({"--no-discovery"}, &ready);
    ChildProcess client(on(net.b, "pc", {zvtest::builtProgram("zelvanor-cli"), "login", "--code", textField(ready, "code"),
                                         "--hold", "90", "--reconnect"}),
                        ChildProcess::Output::Capture);
    ASSERT_FALSE(client.waitForLine(statusEvent("login"), 10s).empty());

    ASSERT_TRUE(net.setLinkUp(false));
    const QJsonObject missed = jsonLine(client.waitForLine(statusEvent("exception", "type", 32829), 10s));
    ASSERT_FALSE(missed.isEmpty()) << "no missed-heartbeat event";
    EXPECT_GE(missed.value("subCode").toInt(), 2);
    EXPECT_FALSE(client.waitForLine(statusEvent("exception", "type", 32802), 10s).empty()) << "no reconnecting event";

    ASSERT_TRUE(net.setLinkUp(true));
    EXPECT_FALSE(client.waitForLine(statusEvent("exception", "type", 32803), 30s).empty()) << "not reconnected";
    EXPECT_FALSE(receiver->waitForLine(statusEvent("client-resumed"), 5s).empty());
    EXPECT_TRUE(client.lines().end() ==
                std::find_if(client.lines().begin(), client.lines().end(), statusEvent("exception", "type", 32801)));
}

}  // namespace
