// The passcode service end to end: the stand-alone zelvanor-passcode and a
// real receiver on one test host; zelvanor-cli and a second "panel" with a
// key of its own (zv-passcode-probe) on the other, joined by a veth pair.
#include <gtest/gtest.h>

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
using zvtest::statusEvent;
using zvtest::textField;

class PasscodeNetns : public ::testing::Test {
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

    // argv run on test host ns with a home of its own (identity, pins, logs).
    std::vector<std::string> on(const std::string& ns, const std::string& home, std::vector<std::string> argv) {
        const std::string dir = root + "/" + home;
        std::system(("mkdir -p " + dir).c_str());
        argv.insert(argv.begin(), {"env", "HOME=" + dir, "XDG_CONFIG_HOME=" + dir + "/.config",
                                   "DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + dir + "/no-bus"});
        return zvtest::NetnsPair::in(ns, argv);
    }

    // zelvanor-passcode on host a, keys in root/<data>; *ready gets its first line.
    std::unique_ptr<ChildProcess> startService(const std::string& data, int port, QJsonObject* ready) {
        auto service = std::make_unique<ChildProcess>(
            on(net.a, "service", {zvtest::builtProgram("zelvanor-passcode"), "--port", std::to_string(port), "--data",
                                  root + "/" + data}),
            ChildProcess::Output::Capture);
        const std::string line = service->waitForLine(statusEvent("ready"), 20s);
        EXPECT_FALSE(line.empty()) << "the passcode service did not get ready";
        *ready = jsonLine(line);
        return service;
    }

    std::unique_ptr<ChildProcess> startReceiver(const std::string& passcodeServer) {
        auto receiver = std::make_unique<ChildProcess>(
            on(net.a, "panel",
               {zvtest::builtProgram("zelvanor-receiver"), "--headless", "--no-discovery", "--name", "Room P",
                "--passcode-server", passcodeServer}),
            ChildProcess::Output::Capture, ChildProcess::Input::Pipe);
        EXPECT_FALSE(receiver->waitForLine(statusEvent("ready"), 20s).empty()) << "the receiver did not get ready";
        return receiver;
    }

    // A program on host b; returns its exit code and output lines.
    int run(const std::string& home, std::vector<std::string> argv, std::vector<std::string>* lines = nullptr) {
        ChildProcess tool(on(net.b, home, std::move(argv)), ChildProcess::Output::Capture);
        tool.waitForLine([](const std::string&) { return false; }, 15s);  // read until it ends
        EXPECT_TRUE(tool.waitFinished(5s)) << "hung";
        if (lines != nullptr) *lines = tool.lines();
        return tool.exitCode();
    }
    std::string cliError(const std::vector<std::string>& args) {
        std::vector<std::string> argv = {zvtest::builtProgram("zelvanor-cli")};
        argv.insert(argv.end(), args.begin(), args.end());
        std::vector<std::string> lines;
        EXPECT_EQ(run("pc", argv, &lines), 1);
        for (const std::string& line : lines) {
            if (textField(jsonLine(line), "event") == "error") return textField(jsonLine(line), "code");
        }
        return "no error line";
    }
    // zv-passcode-probe's answer line, with a key of its own.
    QJsonObject probe(const std::string& service, std::vector<std::string> args) {
        std::vector<std::string> argv = {ZV_PASSCODE_PROBE, "--service", service, "--identity",
                                         root + "/intruder/key"};
        argv.insert(argv.end(), args.begin(), args.end());
        std::vector<std::string> lines;
        EXPECT_EQ(run("intruder", argv, &lines), 0);
        return lines.empty() ? QJsonObject() : jsonLine(lines.back());
    }

    zvtest::NetnsPair net;
    std::string root;
};

TEST_F(PasscodeNetns, APasscodeStaysWithThePanelKeyThatHoldsIt) {
    QJsonObject ready;
    auto service = startService("service-keys", 0, &ready);
    const std::string serviceKey = textField(ready, "key");
    ASSERT_EQ(serviceKey.size(), 43u);
    const std::string address = net.addressA + ":" + std::to_string(ready.value("port").toInt());

    auto receiver = startReceiver(address);
    const std::string passcode = textField(jsonLine(receiver->waitForLine(statusEvent("passcode"), 10s)), "passcode");
    ASSERT_EQ(passcode.size(), 4u);
    const QJsonObject registered = jsonLine(service->waitForLine(statusEvent("register"), 5s));
    EXPECT_EQ(textField(registered, "passcode"), passcode);
    const std::string panelKey = textField(registered, "panelKey");
    ASSERT_EQ(panelKey.size(), 43u);

    // Another key asking for that passcode gets another one; its release of
    // the panel's passcode is answered but does nothing.
    const QJsonObject takeOver = probe(address, {"register", "--passcode", passcode, "--address", net.addressB});
    EXPECT_EQ(textField(takeOver, "body"), "registered");
    EXPECT_NE(textField(takeOver, "passcode"), passcode);
    EXPECT_NE(textField(takeOver, "panelKey"), panelKey);
    EXPECT_EQ(textField(probe(address, {"unregister", "--passcode", passcode}), "body"), "unregistered");
    EXPECT_TRUE(service->waitForLine(statusEvent("unregister", "passcode", QString::fromStdString(passcode)), 2s).empty());

    // The PC, pinning the service's key as printed, reaches the real panel.
    std::vector<std::string> lines;
    ASSERT_EQ(run("pc", {zvtest::builtProgram("zelvanor-cli"), "login", "--code", passcode, "--passcode-server",
                         address + "#" + serviceKey},
                  &lines),
              0);
    EXPECT_EQ(textField(jsonLine(lines.front()), "name"), "Room P");
    // A service key other than the one pinned is refused (here: the panel's).
    EXPECT_EQ(cliError({"login", "--code", passcode, "--passcode-server", address + "#" + panelKey}), "0xF3201002");
}

TEST_F(PasscodeNetns, AServiceWithANewKeyIsRefusedByPcAndPanel) {
    QJsonObject ready;
    auto service = startService("first-keys", 47890, &ready);
    const std::string address = net.addressA + ":47890";
    auto receiver = startReceiver(address);
    ASSERT_FALSE(receiver->waitForLine(statusEvent("passcode"), 10s).empty());
    // First use pins the key: the PC learns it here.
    EXPECT_EQ(cliError({"login", "--code", "ZZZZ", "--passcode-server", address}), "0xF3201001");

    // The same address now answers with another key.
    service.reset();
    QJsonObject again;
    auto impostor = startService("other-keys", 47890, &again);
    ASSERT_NE(textField(again, "key"), textField(ready, "key"));
    EXPECT_EQ(cliError({"login", "--code", "ZZZZ", "--passcode-server", address}), "0xF3201002");
    const QJsonObject refused = jsonLine(receiver->waitForLine(statusEvent("passcode-refused"), 40s));
    EXPECT_NE(textField(refused, "reason").find(textField(again, "shortKey")), std::string::npos)
        << textField(refused, "reason");
    EXPECT_TRUE(impostor->waitForLine(statusEvent("register"), 1s).empty()) << "the panel registered with the impostor";
}

}  // namespace
