// The debug dumps a cast writes while their switches are on: a real cast of a
// private Xvfb over loopback with every dump and the time log switched on;
// the H.264 dump must decode to the screen's picture, and a dump switched off
// mid-cast must stop growing.
#include <gst/app/gstappsink.h>
#include <gst/video/video.h>
#include <gst/gst.h>
#include <gtest/gtest.h>

#include "MediaCastFixture.h"
#include "casting/BusinessSettings.h"
#include "media/ReceiverPipeline.h"
#include "media/SenderPipeline.h"

#include <dirent.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "Process.h"

using namespace std::chrono_literals;
using zv::media::MediaTransport;
using zv::media::ReceiverPipeline;
using zv::media::SenderPipeline;
using namespace zvtest;

namespace {

std::string g_home;

std::string dumpFolder() { return g_home + "/Zelvanor/Zelvanor/Logs/dump"; }

// The one file of the folder whose name starts with prefix, or empty.
std::string findFile(const std::string& folder, const std::string& prefix) {
    std::string found;
    if (DIR* dir = opendir(folder.c_str())) {
        while (dirent* entry = readdir(dir)) {
            const std::string name = entry->d_name;
            if (name.rfind(prefix, 0) == 0) found = folder + "/" + name;
        }
        closedir(dir);
    }
    return found;
}

long long fileSize(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 ? static_cast<long long>(info.st_size) : -1;
}

std::string readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Decodes an Annex B file: the number of pictures and the first one.
int decodeH264File(const std::string& path, QImage* first) {
    GError* error = nullptr;
    const std::string description = "filesrc location=" + path +
                                    " ! h264parse ! avdec_h264 ! videoconvert ! video/x-raw,format=RGB ! "
                                    "appsink name=out sync=false";
    GstElement* pipeline = gst_parse_launch(description.c_str(), &error);
    if (pipeline == nullptr) {
        if (error != nullptr) g_error_free(error);
        return -1;
    }
    GstElement* sink = gst_bin_get_by_name(GST_BIN(pipeline), "out");
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    int pictures = 0;
    while (GstSample* sample = gst_app_sink_try_pull_sample(GST_APP_SINK(sink), 5 * GST_SECOND)) {
        if (pictures++ == 0) {
            GstVideoInfo info;
            gst_video_info_from_caps(&info, gst_sample_get_caps(sample));
            GstMapInfo map;
            GstBuffer* buffer = gst_sample_get_buffer(sample);
            if (gst_buffer_map(buffer, &map, GST_MAP_READ)) {
                *first = QImage(map.data, GST_VIDEO_INFO_WIDTH(&info), GST_VIDEO_INFO_HEIGHT(&info),
                                GST_VIDEO_INFO_PLANE_STRIDE(&info, 0), QImage::Format_RGB888)
                             .copy();
                gst_buffer_unmap(buffer, &map);
            }
        }
        gst_sample_unref(sample);
    }
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(sink);
    gst_object_unref(pipeline);
    return pictures;
}

class StreamDumps : public MediaCast {};

}  // namespace

TEST_F(StreamDumps, SwitchedOnDumpsAreWrittenAndStopWhenSwitchedOff) {
    BusinessSettings& settings = BusinessSettings::getInstance();
    settings.setIsWriteH264Flow(true);
    settings.setIsWriteYUVFlow(true);
    settings.setIsWriteRTPFlow(true);
    settings.setIsWriteRGBFlow(true);
    settings.setIsWriteRGBFlowAfterYUV(true);
    settings.setIsRecordTimeLog(true);

    ReceiverPipeline receiver;
    SenderPipeline sender;
    ASSERT_EQ(startCast(receiver, sender, MediaTransport::Udp), "");
    std::string why = "no picture";
    ASSERT_TRUE(waitFor([&] { return showsBlocks(receiver.latestFrame(), kBlocks, {}, &why); }, 15s)) << why;
    // A few more pictures, so that every dump has seen frames.
    drawBlocks(s_xvfb->connection(), kSwapped);
    ASSERT_TRUE(waitFor([&] { return showsBlocks(receiver.latestFrame(), kSwapped, {}, &why); }, 10s)) << why;

    std::string h264, yuv, rtp, rgb, rgbAfter, timeLog;
    const bool allThere = waitFor(
        [&] {
            h264 = findFile(dumpFolder(), "h264_");
            yuv = findFile(dumpFolder(), "yuv_1280x720_");
            rtp = findFile(dumpFolder(), "rtp_");
            rgb = findFile(dumpFolder(), "rgb_2");
            rgbAfter = findFile(dumpFolder(), "rgb_1280x720_");
            timeLog = findFile(g_home + "/Zelvanor/Zelvanor/Logs", "TimeLog_");
            return !h264.empty() && !yuv.empty() && !rtp.empty() && !rgb.empty() && !rgbAfter.empty() &&
                   !timeLog.empty();
        },
        10s);
    ASSERT_TRUE(allThere) << "h264 " << h264 << ", yuv " << yuv << ", rtp " << rtp << ", rgb " << rgb
                          << ", rgb after " << rgbAfter << ", time log " << timeLog;

    // Switched off mid-cast: the H.264 file is closed at the next frame and stops growing.
    settings.setIsWriteH264Flow(false);
    drawBlocks(s_xvfb->connection(), kBlocks);
    ASSERT_TRUE(waitFor([&] { return showsBlocks(receiver.latestFrame(), kBlocks, {}, &why); }, 10s)) << why;
    const long long closedSize = fileSize(h264);
    drawBlocks(s_xvfb->connection(), kSwapped);
    ASSERT_TRUE(waitFor([&] { return showsBlocks(receiver.latestFrame(), kSwapped, {}, &why); }, 10s)) << why;
    const uint64_t framesBefore = sender.statistics().framesSent;
    ASSERT_TRUE(waitFor([&] { return sender.statistics().framesSent > framesBefore + 2; }, 10s));
    EXPECT_EQ(fileSize(h264), closedSize);
    sender.stop();
    receiver.stop();
    settings.restoreDefault();

    // The H.264 dump plays: it decodes to the screen as it was cast.
    QImage first;
    const int pictures = decodeH264File(h264, &first);
    EXPECT_GE(pictures, 2);
    EXPECT_TRUE(showsBlocks(first, kBlocks, {}, &why)) << why;

    // Raw frames: whole I420 and RGB24 pictures of the cast's size; the RGB
    // one shows the blocks.
    EXPECT_EQ(fileSize(yuv) % (kScreenWidth * kScreenHeight * 3 / 2), 0);
    EXPECT_GT(fileSize(yuv), 0);
    const std::string rgbFrames = readAll(rgbAfter);
    ASSERT_GE(rgbFrames.size(), static_cast<size_t>(kScreenWidth * kScreenHeight * 3));
    EXPECT_EQ(rgbFrames.size() % (kScreenWidth * kScreenHeight * 3), 0u);
    const QImage rgbFirst(reinterpret_cast<const uchar*>(rgbFrames.data()), kScreenWidth, kScreenHeight,
                          kScreenWidth * 3, QImage::Format_RGB888);
    EXPECT_TRUE(showsBlocks(rgbFirst, kBlocks, {}, &why)) << why;

    // Grabbed rectangles: a header and BGRx rows; the first grab is the whole screen.
    const std::string grabs = readAll(rgb);
    ASSERT_GE(grabs.size(), 16u);
    uint32_t header[4];
    std::memcpy(header, grabs.data(), sizeof header);
    EXPECT_EQ(header[2], static_cast<uint32_t>(kScreenWidth));
    EXPECT_EQ(header[3], static_cast<uint32_t>(kScreenHeight));

    // RTP before encryption, two-byte length framing, H.264 payload type.
    const std::string packets = readAll(rtp);
    ASSERT_GE(packets.size(), 14u);
    const size_t firstLength = (static_cast<uint8_t>(packets[0]) << 8) | static_cast<uint8_t>(packets[1]);
    EXPECT_GE(firstLength, 12u);
    EXPECT_EQ(static_cast<uint8_t>(packets[2]) & 0xc0, 0x80);
    EXPECT_EQ(static_cast<uint8_t>(packets[3]) & 0x7f, zv::media::kVideoPayloadType);

    // One time-log line per frame with the three stage times.
    const std::string times = readAll(timeLog);
    EXPECT_EQ(times.rfind("frame 1 queue ", 0), 0u) << times.substr(0, 200);
    EXPECT_NE(times.find(" encode "), std::string::npos);
    EXPECT_NE(times.find(" pack "), std::string::npos);
}

int main(int argc, char** argv) {
    char folder[] = "/tmp/zv-dump-XXXXXX";
    if (mkdtemp(folder) == nullptr) return 1;
    g_home = folder;
    setenv("HOME", folder, 1);
    setenv("PULSE_SERVER", (g_home + "/no-sound").c_str(), 1);
    gst_init(&argc, &argv);
    ::testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    if (!getenv("ZV_KEEP")) std::system(("rm -rf " + g_home).c_str());
    return result;
}
