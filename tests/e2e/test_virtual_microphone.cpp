// The panel's microphone as a source of this PC, over loopback with a private
// PulseAudio: the test tone sent with the media key arrives in the
// "zelvanor_mic.monitor" source; sent with another key, nothing does.
#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "Process.h"
#include "media/VirtualMicrophone.h"

using namespace std::chrono_literals;
using zv::media::MicrophoneSender;
using zv::media::VirtualMicrophone;
using zvtest::ChildProcess;

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
