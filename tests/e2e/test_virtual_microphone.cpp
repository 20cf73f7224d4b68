// The panel's microphone as a source of this PC, with a private PulseAudio:
// over loopback, the test tone sent with the media key arrives in the
// "zelvanor_mic.monitor" source and, sent with another key, nothing does;
// between two test hosts, zelvanor-cli byom asks a real receiver for its
// microphone and the receiver's tone is heard in that source, while a
// view-only panel and a PC without a loopback camera give their reasons.
#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <gtest/gtest.h>

#include <QJsonDocument>
#include <QJsonObject>

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "NetnsPair.h"
#include "Process.h"
#include "StatusLines.h"
#include "media/LoopbackCamera.h"
#include "media/VirtualCamera.h"
#include "media/VirtualMicrophone.h"

using namespace std::chrono_literals;
using zv::media::MicrophoneSender;
using zv::media::VirtualMicrophone;
using zvtest::ChildProcess;
using zvtest::jsonLine;
using zvtest::statusEvent;
using zvtest::textField;

namespace {

std::vector<uint8_t> key(uint8_t first) {
    std::vector<uint8_t> bytes(44);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(first + 3 * i);
    return bytes;
}

bool hasSource(const std::string& name) {
    ChildProcess list({"pactl", "list", "short", "sources"}, ChildProcess::Output::Capture);
    return !list.waitForLineContaining(name, 10s).empty();
}

// Half a second from the source: RMS level and the tone's frequency by zero crossings.
bool record(const std::string& device, double* rms, double* hz) {
    GError* error = nullptr;
    const std::string description = "pulsesrc device=" + device +
                                    " ! audioconvert ! audio/x-raw,format=S16LE,channels=1,rate=48000 ! "
                                    "appsink name=out sync=false";
    GstElement* pipeline = gst_parse_launch(description.c_str(), &error);
    if (pipeline == nullptr) return false;
    GstElement* sink = gst_bin_get_by_name(GST_BIN(pipeline), "out");
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    std::vector<int16_t> samples;
    // Skip the first 200 ms (the stream settling), keep the next 500 ms.
    while (samples.size() < 48000 * 7 / 10) {
        GstSample* sample = gst_app_sink_try_pull_sample(GST_APP_SINK(sink), 3 * GST_SECOND);
        if (sample == nullptr) break;
        GstMapInfo map;
        GstBuffer* buffer = gst_sample_get_buffer(sample);
        if (gst_buffer_map(buffer, &map, GST_MAP_READ)) {
            const auto* data = reinterpret_cast<const int16_t*>(map.data);
            samples.insert(samples.end(), data, data + map.size / 2);
            gst_buffer_unmap(buffer, &map);
        }
        gst_sample_unref(sample);
    }
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(sink);
    gst_object_unref(pipeline);
    if (samples.size() < 48000 * 7 / 10) return false;
    const size_t begin = 48000 / 5;
    double sum = 0;
    int crossings = 0;
    for (size_t i = begin; i < samples.size(); ++i) {
        sum += static_cast<double>(samples[i]) * samples[i];
        if (i > begin && (samples[i - 1] < 0) != (samples[i] < 0)) ++crossings;
    }
    const double seconds = static_cast<double>(samples.size() - begin) / 48000.0;
    *rms = std::sqrt(sum / static_cast<double>(samples.size() - begin));
    *hz = crossings / 2.0 / seconds;
    return true;
}

}  // namespace

TEST(VirtualMicrophone, ThePanelsToneIsASourceOfThisPc) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root (a private PulseAudio)";
    char folder[] = "/tmp/zv-mic-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const std::string root = folder;
    setenv("HOME", root.c_str(), 1);
    setenv("XDG_RUNTIME_DIR", root.c_str(), 1);
    setenv("PULSE_SERVER", ("unix:" + root + "/pulse/native").c_str(), 1);
    ChildProcess pulse({"pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no",
                        "-L", "module-native-protocol-unix", "-L", "module-null-sink sink_name=vsink",
                        "-L", "module-always-sink"},
                       ChildProcess::Output::Capture);
    ASSERT_TRUE(zvtest::waitFor([] { return VirtualMicrophone::hostAvailable(); }, 15s)) << "no PulseAudio";
    gst_init(nullptr, nullptr);

    const auto mediaKey = key(0x21);
    VirtualMicrophone microphone;
    ASSERT_EQ(microphone.start(mediaKey), "");
    ASSERT_NE(microphone.port(), 0);
    EXPECT_TRUE(hasSource("zelvanor_mic.monitor"));

    // Another key: dropped, the source stays silent.
    MicrophoneSender stranger;
    ASSERT_EQ(stranger.start("127.0.0.1", microphone.port(), key(0x77), true), "");
    double rms = 0, hz = 0;
    ASSERT_TRUE(record("zelvanor_mic.monitor", &rms, &hz));
    EXPECT_LT(rms, 50.0);
    EXPECT_FALSE(microphone.receiving());
    stranger.stop();

    MicrophoneSender panel;
    ASSERT_EQ(panel.start("127.0.0.1", microphone.port(), mediaKey, true), "");
    ASSERT_TRUE(zvtest::waitFor([&] { return microphone.receiving(); }, 10s));
    ASSERT_TRUE(record("zelvanor_mic.monitor", &rms, &hz));
    EXPECT_GT(rms, 1000.0);
    EXPECT_NEAR(hz, 440.0, 25.0);

    panel.stop();
    microphone.stop();
    EXPECT_FALSE(hasSource("zelvanor_mic.monitor"));
    pulse.stop();
    std::system(("rm -rf " + root).c_str());
}

// The camera's pair over loopback: the test picture sent with the key is
// decoded on the PC (into the loopback device where this machine has one);
// with another key nothing is.
TEST(VirtualCamera, ThePanelsPictureIsDecodedOnThisPc) {
    gst_init(nullptr, nullptr);
    const auto mediaKey = key(0x35);
    zv::media::VirtualCamera camera;
    std::string error;
    const uint16_t port = camera.reservePort(&error);
    ASSERT_NE(port, 0) << error;
    ASSERT_EQ(camera.start(mediaKey, zv::media::findLoopbackCamera()), "");
    EXPECT_EQ(camera.port(), port) << "the port told to the panel is the one listened on";

    zv::media::CameraSender stranger;
    ASSERT_EQ(stranger.start("127.0.0.1", port, key(0x78), ""), "");
    EXPECT_FALSE(zvtest::waitFor([&] { return camera.pictures() > 0; }, 1500ms));
    EXPECT_FALSE(camera.receiving());
    stranger.stop();

    zv::media::CameraSender panel;
    ASSERT_EQ(panel.start("127.0.0.1", port, mediaKey, ""), "");
    ASSERT_TRUE(zvtest::waitFor([&] { return camera.pictures() >= 10; }, 15s)) << camera.pictures() << " pictures";
    EXPECT_TRUE(camera.receiving());
    panel.stop();
    camera.stop();
}

namespace {

// A private PulseAudio of the test's own, reached by its socket from either test host.
class PrivatePulse {
public:
    explicit PrivatePulse(const std::string& root)
        : m_server(useServerIn(root)),
          m_process({"pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no", "-L",
                      "module-native-protocol-unix", "-L", "module-null-sink sink_name=vsink", "-L",
                      "module-always-sink"},
                     ChildProcess::Output::Capture) {}
    bool ready() { return zvtest::waitFor([] { return VirtualMicrophone::hostAvailable(); }, 15s); }
    const std::string& server() const { return m_server; }

private:
    // The test process and the server it starts both use the folder.
    static std::string useServerIn(const std::string& root) {
        const std::string server = "unix:" + root + "/pulse/native";
        setenv("HOME", root.c_str(), 1);
        setenv("XDG_RUNTIME_DIR", root.c_str(), 1);
        setenv("PULSE_SERVER", server.c_str(), 1);
        return server;
    }

    std::string m_server;
    ChildProcess m_process;
};

class ByomNetns : public ::testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "needs root (test hosts, a private PulseAudio)";
        if (!net.ready()) GTEST_SKIP() << "no test hosts: " << net.error();
        char folder[] = "/tmp/zv-byom-XXXXXX";
        ASSERT_NE(mkdtemp(folder), nullptr);
        root = folder;
        pulse = std::make_unique<PrivatePulse>(root);
        ASSERT_TRUE(pulse->ready()) << "no PulseAudio";
        gst_init(nullptr, nullptr);
    }
    void TearDown() override {
        if (pc) pc->stop();
        if (receiver) receiver->stop();
        pulse.reset();
        if (!root.empty()) std::system(("rm -rf " + root).c_str());
    }

    // The panel has no sound server (it sends its test tone); the PC has the test's.
    std::vector<std::string> on(const std::string& ns, const std::string& home, const std::string& sound,
                                std::vector<std::string> argv) {
        const std::string dir = root + "/" + home;
        std::system(("mkdir -p " + dir).c_str());
        argv.insert(argv.begin(), {"env", "HOME=" + dir, "XDG_CONFIG_HOME=" + dir + "/.config",
                                   "DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + dir + "/no-bus",
                                   "QT_QPA_PLATFORM=offscreen", "PULSE_SERVER=" + sound});
        return zvtest::NetnsPair::in(ns, argv);
    }

    void startReceiver(const std::vector<std::string>& extra) {
        std::vector<std::string> argv = {zvtest::builtProgram("zelvanor-receiver"), "--headless", "--no-discovery",
                                         "--access", "open"};
        argv.insert(argv.end(), extra.begin(), extra.end());
        receiver = std::make_unique<ChildProcess>(on(net.a, "panel", "unix:" + root + "/no-sound", argv),
                                                  ChildProcess::Output::Capture, ChildProcess::Input::Pipe);
        ASSERT_FALSE(receiver->waitForLine(statusEvent("ready"), 20s).empty());
    }

    std::unique_ptr<ChildProcess> byom(const std::vector<std::string>& extra) {
        std::vector<std::string> argv = {zvtest::builtProgram("zelvanor-cli"), "byom", "--address", net.addressA};
        argv.insert(argv.end(), extra.begin(), extra.end());
        return std::make_unique<ChildProcess>(on(net.b, "pc", pulse->server(), argv), ChildProcess::Output::Capture,
                                              ChildProcess::Input::Pipe);
    }

    // The PC's failure line, after the command ended with 1.
    QJsonObject failure(const std::vector<std::string>& extra) {
        auto tool = byom(extra);
        const QJsonObject line = jsonLine(tool->waitForLine(statusEvent("byom", "result", "failed"), 30s));
        EXPECT_TRUE(tool->waitFinished(10s));
        EXPECT_EQ(tool->exitCode(), 1);
        return line;
    }

    zvtest::NetnsPair net;
    std::string root;
    std::unique_ptr<PrivatePulse> pulse;
    std::unique_ptr<ChildProcess> receiver;
    std::unique_ptr<ChildProcess> pc;
};

}  // namespace

TEST_F(ByomNetns, ThePanelsToneBecomesTheSourceOfALoggedInPc) {
    startReceiver({});
    pc = byom({"--microphone", "--seconds", "60"});
    const QJsonObject started = jsonLine(pc->waitForLine(statusEvent("byom", "result", "started"), 30s));
    ASSERT_FALSE(started.isEmpty()) << "the PC did not get the microphone";
    EXPECT_EQ(textField(started, "microphone"), "zelvanor_mic.monitor");
    EXPECT_TRUE(started.value("testTone").toBool()) << "the panel has no microphone: its tone is lent";
    EXPECT_FALSE(receiver->waitForLine(statusEvent("devices-started", "testTone", true), 5s).empty());
    ASSERT_FALSE(pc->waitForLine(statusEvent("byom-receiving"), 15s).empty());
    EXPECT_TRUE(hasSource("zelvanor_mic.monitor"));

    double rms = 0, hz = 0;
    ASSERT_TRUE(record("zelvanor_mic.monitor", &rms, &hz));
    EXPECT_GT(rms, 1000.0);
    EXPECT_NEAR(hz, 440.0, 25.0);

    // Stopped on the PC: the panel stops sending and the source goes away.
    pc->writeLine("stop");
    EXPECT_FALSE(pc->waitForLine(statusEvent("byom", "result", "stopped"), 15s).empty());
    EXPECT_FALSE(receiver->waitForLine(statusEvent("devices-stopped", "reason", "stopped by the PC"), 10s).empty());
    EXPECT_TRUE(zvtest::waitFor([] { return !hasSource("zelvanor_mic.monitor"); }, 10s));
}

TEST_F(ByomNetns, RefusalsSayWhy) {
    startReceiver({"--view-only"});
    const QJsonObject viewOnly = failure({"--microphone", "--seconds", "5"});
    EXPECT_EQ(textField(viewOnly, "reason"), "nonsupport");
    EXPECT_EQ(textField(viewOnly, "text"), "this panel does not share its camera or microphone");
    EXPECT_FALSE(receiver->waitForLine(statusEvent("devices-refused", "reason", "nonsupport"), 5s).empty());
    EXPECT_FALSE(hasSource("zelvanor_mic.monitor")) << "a refused request leaves no source behind";

    // This machine has no v4l2loopback device: the camera cannot be hosted.
    if (!zv::media::findLoopbackCamera().empty()) return;
    const QJsonObject camera = failure({"--camera", "--seconds", "5"});
    EXPECT_EQ(textField(camera, "reason"), "notsupported");
    EXPECT_EQ(textField(camera, "text").rfind("not supported: this PC cannot host a virtual camera", 0), 0u);
}

// Under the "approve" rule the panel's user decides whether an unknown PC
// may borrow the devices; the PC waits meanwhile and hears the refusal.
TEST_F(ByomNetns, AnUnknownPcWaitsForThePanelsUser) {
    startReceiver({"--access", "approve"});
    auto tool = byom({"--microphone", "--seconds", "5"});
    const QJsonObject asked = jsonLine(receiver->waitForLine(statusEvent("approval-needed", "kind", "devices"), 30s));
    ASSERT_FALSE(asked.isEmpty());
    const QJsonObject no{{"cmd", "approve"}, {"client", asked.value("client")}, {"approved", false}};
    receiver->writeLine(QJsonDocument(no).toJson(QJsonDocument::Compact).toStdString());
    const QJsonObject line = jsonLine(tool->waitForLine(statusEvent("byom", "result", "failed"), 30s));
    EXPECT_EQ(textField(line, "reason"), "denied");
    EXPECT_TRUE(tool->waitFinished(10s));
    EXPECT_FALSE(hasSource("zelvanor_mic.monitor"));
}
