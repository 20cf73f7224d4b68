// Casting end to end: the test's Xvfb screen shows known colour blocks,
// zelvanor-cli on one test host casts it, the real receiver on the other
// decodes it; its snapshots are compared with the blocks, and the cast is
// steered (pause, sound, touch-back, stop) the way a user would.
#include <gtest/gtest.h>

#include <QColor>
#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>

#include <X11/Xutil.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "NetnsPair.h"
#include "ColourBlocks.h"
#include "Process.h"
#include "StatusLines.h"
#include "XvfbSession.h"

namespace {

using namespace std::chrono_literals;
using zvtest::ChildProcess;

using zvtest::jsonLine;
using zvtest::statusEvent;

using zvtest::kBlocks;
using zvtest::paintBlocks;
constexpr auto near = zvtest::nearColour;

class CastNetns : public ::testing::Test {
protected:
    void SetUp() override {
        if (!net.ready()) GTEST_SKIP() << "no test hosts: " << net.error();
        ASSERT_TRUE(x.ready()) << "Xvfb did not start";
        char folder[] = "/tmp/zv-cast-XXXXXX";
        ASSERT_NE(mkdtemp(folder), nullptr);
        root = folder;
        paintBlocks(x.connection());
    }
    void TearDown() override {
        if (!root.empty()) std::system(("rm -rf " + root).c_str());
    }

    std::vector<std::string> on(const std::string& ns, const std::string& home, std::vector<std::string> argv) {
        const std::string dir = root + "/" + home;
        std::system(("mkdir -p " + dir).c_str());
        argv.insert(argv.begin(), {"env", "HOME=" + dir, "XDG_CONFIG_HOME=" + dir + "/.config",
                                   "DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + dir + "/no-bus", "DISPLAY=" + x.display(),
                                   "PULSE_SERVER=unix:" + dir + "/no-sound"});
        return zvtest::NetnsPair::in(ns, argv);
    }

    void startReceiver(const std::vector<std::string>& extra = {}) {
        // The PC comes by address, without a code: open access lets it cast at once.
        std::vector<std::string> argv = {zvtest::builtProgram("zelvanor-receiver"), "--headless", "--no-discovery",
                                         "--access", "open"};
        argv.insert(argv.end(), extra.begin(), extra.end());
        receiver = std::make_unique<ChildProcess>(on(net.a, "panel", argv), ChildProcess::Output::Capture,
                                                  ChildProcess::Input::Pipe);
        ASSERT_FALSE(receiver->waitForLine(statusEvent("ready"), 20s).empty());
    }
    std::unique_ptr<ChildProcess> startCast(const std::string& protocol, const std::vector<std::string>& extra = {}) {
        std::vector<std::string> argv = {zvtest::builtProgram("zelvanor-cli"), "cast", "--address", net.addressA,
                                         "--protocol", protocol, "--seconds", "60"};
        argv.insert(argv.end(), extra.begin(), extra.end());
        return std::make_unique<ChildProcess>(on(net.b, "pc", argv), ChildProcess::Output::Capture,
                                              ChildProcess::Input::Pipe);
    }
    // The receiver's newest decoded picture.
    QImage snapshot() {
        const std::string path = root + "/snap-" + std::to_string(++snapshots) + ".png";
        receiver->writeLine("{\"cmd\":\"snapshot\",\"path\":\"" + path + "\"}");
        const QJsonObject answer = jsonLine(receiver->waitForLine(statusEvent("snapshot"), 5s));
        return answer.value("saved").toBool() ? QImage(QString::fromStdString(path)) : QImage();
    }
    // Waits until the receiver has decoded at least count pictures.
    bool decodedAtLeast(qint64 count, std::chrono::milliseconds timeout) {
        return !receiver->waitForLine([count](const std::string& line) {
                              const QJsonObject o = jsonLine(line);
                              return o.value("event") == "cast-stats" && static_cast<qint64>(o.value("framesDecoded").toDouble()) >= count;
                          }, timeout).empty();
    }

    zvtest::NetnsPair net;
    zvtest::XvfbSession x{"1280x720x24"};
    std::string root;
    std::unique_ptr<ChildProcess> receiver;
    int snapshots = 0;
};

TEST_F(CastNetns, EachTransportCarriesTheScreenAndTheColoursArrive) {
    startReceiver();
    for (const char* protocol : {"udp", "tcp", "brx"}) {
        SCOPED_TRACE(protocol);
        auto cast = startCast(protocol);
        ASSERT_FALSE(cast->waitForLine(statusEvent("cast", "result", "started"), 15s).empty());
        ASSERT_FALSE(receiver->waitForLine(statusEvent("cast-started", "transport", protocol), 5s).empty());
        ASSERT_TRUE(decodedAtLeast(1, 15s)) << "no picture decoded";

        const QImage picture = snapshot();
        ASSERT_FALSE(picture.isNull());
        for (int i = 0; i < 4; ++i) {
            const QPoint centre((i % 2) * picture.width() / 2 + picture.width() / 4,
                                (i / 2) * picture.height() / 2 + picture.height() / 4);
            EXPECT_TRUE(near(picture.pixelColor(centre), kBlocks[i]))
                << "block " << i << " arrived as " << picture.pixelColor(centre).name().toStdString();
        }
        cast->writeLine("stop");
        EXPECT_FALSE(receiver->waitForLine(statusEvent("cast-stopped"), 10s).empty());
        EXPECT_TRUE(cast->waitFinished(10s));
        EXPECT_EQ(cast->exitCode(), 0);
    }
}

TEST_F(CastNetns, PauseSoundAndTouchBackAreSteeredFromBothSides) {
    startReceiver();
    auto cast = startCast("udp");
    ASSERT_FALSE(cast->waitForLine(statusEvent("cast", "result", "started"), 15s).empty());
    ASSERT_TRUE(decodedAtLeast(1, 15s));

    cast->writeLine("pause");
    EXPECT_FALSE(receiver->waitForLine(statusEvent("cast-paused", "paused", true), 5s).empty());
    cast->writeLine("resume");
    EXPECT_FALSE(receiver->waitForLine(statusEvent("cast-paused", "paused", false), 5s).empty());

    cast->writeLine("voice off");
    EXPECT_FALSE(cast->waitForLine(statusEvent("exception", "type", 32783), 5s).empty()) << "sound off not confirmed";
    cast->writeLine("voice on");
    EXPECT_FALSE(cast->waitForLine(statusEvent("exception", "type", 32782), 5s).empty()) << "sound on not confirmed";

    // Touches reach the PC only once control is granted.
    receiver->writeLine("{\"cmd\":\"touch\",\"type\":\"touchDown\",\"x\":1000,\"y\":2000}");
    cast->writeLine("control on");
    const QJsonObject granted = jsonLine(cast->waitForLine(statusEvent("exception", "type", 32784), 5s));
    EXPECT_EQ(granted.value("result").toInt(), 1);
    ASSERT_FALSE(receiver->waitForLine(statusEvent("control", "granted", true), 5s).empty());
    receiver->writeLine("{\"cmd\":\"touch\",\"type\":\"touchMove\",\"x\":32768,\"y\":65535}");
    const QJsonObject touch = jsonLine(cast->waitForLine(statusEvent("touch"), 5s));
    EXPECT_EQ(touch.value("type").toString(), QStringLiteral("touchMove")) << "the early touch must not arrive";
    EXPECT_EQ(touch.value("x").toInt(), 32768);
    EXPECT_EQ(touch.value("y").toInt(), 65535);

    // The panel ends the cast: the PC hears 32792 and stops.
    receiver->writeLine("{\"cmd\":\"stop-cast\"}");
    EXPECT_FALSE(cast->waitForLine(statusEvent("exception", "type", 32792), 5s).empty());
    EXPECT_TRUE(cast->waitFinished(10s));
}

TEST_F(CastNetns, ACastSurvivesACutLinkThroughTheWatchdog) {
    startReceiver();
    for (const char* protocol : {"udp", "brx"}) {
        SCOPED_TRACE(protocol);
        auto cast = startCast(protocol, {"--reconnect"});
        ASSERT_FALSE(cast->waitForLine(statusEvent("cast", "result", "started"), 15s).empty());
        ASSERT_TRUE(decodedAtLeast(1, 15s));

        // Long enough for the control link to be given up and for SRT to drop its peer.
        ASSERT_TRUE(net.setLinkUp(false));
        ASSERT_FALSE(cast->waitForLine(statusEvent("exception", "type", 32802), 15s).empty()) << "no reconnecting";
        std::this_thread::sleep_for(7s);  // the outage itself, not a wait for a result
        ASSERT_TRUE(net.setLinkUp(true));
        ASSERT_FALSE(cast->waitForLine(statusEvent("exception", "type", 32803), 40s).empty()) << "not reconnected";

        // Pictures arrive again: after what the receiver said so far, a second with decoded pictures.
        receiver->waitForLine([](const std::string&) { return false; }, 1s);
        paintBlocks(x.connection());  // a change, so the sender has something new to send
        EXPECT_FALSE(receiver->waitForLine([](const std::string& line) {
                                  const QJsonObject o = jsonLine(line);
                                  return o.value("event") == "cast-stats" && o.value("fps").toInt() > 0;
                              }, 20s).empty())
            << "no picture after the link came back";
        cast->writeLine("stop");
        EXPECT_TRUE(cast->waitFinished(15s));
    }
}

TEST_F(CastNetns, APanelThatAsksItsUserAnswersWaitThenTheVerdict) {
    startReceiver({"--require-approval"});
    auto cast = startCast("tcp");
    ASSERT_FALSE(cast->waitForLine(statusEvent("cast", "result", "waiting"), 15s).empty());
    const QJsonObject asked = jsonLine(receiver->waitForLine(statusEvent("approval-needed"), 5s));
    ASSERT_FALSE(asked.isEmpty());
    receiver->writeLine("{\"cmd\":\"approve\",\"client\":" + std::to_string(asked.value("client").toInt()) +
                        ",\"approved\":true}");
    EXPECT_FALSE(cast->waitForLine(statusEvent("exception", "type", 32810), 10s).empty());
    EXPECT_TRUE(decodedAtLeast(1, 15s));
    cast->writeLine("stop");
    EXPECT_TRUE(cast->waitFinished(10s));

    auto denied = startCast("tcp");
    ASSERT_FALSE(denied->waitForLine(statusEvent("cast", "result", "waiting"), 15s).empty());
    const QJsonObject again = jsonLine(receiver->waitForLine(statusEvent("approval-needed"), 5s));
    receiver->writeLine("{\"cmd\":\"approve\",\"client\":" + std::to_string(again.value("client").toInt()) +
                        ",\"approved\":false}");
    EXPECT_FALSE(denied->waitForLine(statusEvent("exception", "type", 32811), 10s).empty());
    EXPECT_TRUE(denied->waitFinished(10s));
}

TEST_F(CastNetns, AnUnknownPcUnderTheApproveRuleIsAskedUntilItsFirstYes) {
    startReceiver({"--access", "approve"});
    auto cast = startCast("tcp");
    ASSERT_FALSE(cast->waitForLine(statusEvent("cast", "result", "waiting"), 15s).empty());
    const QJsonObject asked = jsonLine(receiver->waitForLine(statusEvent("approval-needed"), 5s));
    ASSERT_FALSE(asked.isEmpty());
    receiver->writeLine("{\"cmd\":\"approve\",\"client\":" + std::to_string(asked.value("client").toInt()) +
                        ",\"approved\":true}");
    EXPECT_TRUE(decodedAtLeast(1, 15s));
    cast->writeLine("stop");
    EXPECT_TRUE(cast->waitFinished(10s));

    // Accepted once, the PC is known: its next cast starts without asking.
    auto again = startCast("tcp");
    EXPECT_FALSE(again->waitForLine(statusEvent("cast", "result", "started"), 15s).empty());
    again->writeLine("stop");
    EXPECT_TRUE(again->waitFinished(10s));
}

}  // namespace
