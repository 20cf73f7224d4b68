// The reverse screen's building blocks without a network: the player's
// stream header and packets, the touch JSON the client sends, and the
// Dexo_ player itself decoding a real H.264 stream (no window: decode only).
#include <gtest/gtest.h>

#include <QDateTime>
#include <QImage>

#include <gst/app/gstappsink.h>
#include <gst/gst.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "casting/Dexo.h"
#include "media/GstInit.h"
#include "player/DexoPacket.h"
#include "session/ShareSession.h"

namespace {

using zv::player::Packet;
using zv::player::PacketReader;

std::vector<uint8_t> bytesOf(const char* text) { return std::vector<uint8_t>(text, text + std::strlen(text)); }

TEST(ReversePlayer, StreamHeaderHasTheFortyBytesOfTheTable) {
    unsigned char header[DEXO_HEADER_SIZE];
    DexoHeader_Default(header);
    const unsigned char expected[DEXO_HEADER_SIZE] = {'Z', 'D', 'X', 'F', 0, 0, 0, 0, 4, 0, 0x00, 0x01, 0x01, 0x20,
                                                      2,   16,  0x80, 0xBB, 0, 0, 0x00, 0xFA, 0, 0};
    EXPECT_EQ(0, std::memcmp(header, expected, sizeof expected));
    DexoStreamHeader parsed{};
    ASSERT_TRUE(DexoHeader_Parse(header, DEXO_HEADER_SIZE, &parsed));
    EXPECT_EQ(parsed.sampleRate, 48000u);
    EXPECT_EQ(parsed.audioBitrate, 64000u);
    EXPECT_FALSE(DexoHeader_Parse(header, DEXO_HEADER_SIZE - 1, &parsed));
    header[0] = 'X';
    EXPECT_FALSE(DexoHeader_Parse(header, DEXO_HEADER_SIZE, &parsed));
}

TEST(ReversePlayer, PacketsComeBackWhereverTheStreamIsCutAndGarbageIsSkipped) {
    const std::vector<uint8_t> video = {0, 0, 0, 1, 'v', 'i', 'd', 'e', 'o'};
    std::vector<uint8_t> stream = zv::player::encodePacket(DEXO_KIND_VIDEO, DEXO_FLAG_KEY, 1234567890123LL,
                                                           video.data(), video.size());
    const std::vector<uint8_t> audio = zv::player::encodePacket(DEXO_KIND_AUDIO, 0, 5, video.data(), 3);
    const std::vector<uint8_t> garbage = bytesOf("ZDPgarbageZD");
    stream.insert(stream.end(), garbage.begin(), garbage.end());
    stream.insert(stream.end(), audio.begin(), audio.end());

    for (size_t cut = 0; cut <= stream.size(); ++cut) {
        SCOPED_TRACE(cut);
        PacketReader reader(1 << 16);
        reader.append(stream.data(), cut);
        reader.append(stream.data() + cut, stream.size() - cut);
        Packet packet;
        ASSERT_TRUE(reader.next(&packet));
        EXPECT_EQ(packet.kind, DEXO_KIND_VIDEO);
        EXPECT_EQ(packet.flags, DEXO_FLAG_KEY);
        EXPECT_EQ(packet.ptsUs, 1234567890123LL);
        EXPECT_EQ(packet.payload, video);
        ASSERT_TRUE(reader.next(&packet));
        EXPECT_EQ(packet.kind, DEXO_KIND_AUDIO);
        EXPECT_EQ(packet.payload.size(), 3u);
        EXPECT_FALSE(reader.next(&packet));
        EXPECT_EQ(reader.buffered(), 0u);
    }

    // A header that lies (kind 9, or a payload past the limit) is reported and skipped.
    std::vector<uint8_t> bad = zv::player::encodePacket(DEXO_KIND_VIDEO, 0, 0, video.data(), video.size());
    bad[4] = 9;
    PacketReader reader(1 << 16);
    EXPECT_EQ(reader.append(bad.data(), bad.size()), PacketReader::Result::Malformed);
    Packet packet;
    EXPECT_FALSE(reader.next(&packet));
    bad[4] = DEXO_KIND_VIDEO;
    bad[11] = 0x7F;
    EXPECT_EQ(reader.append(bad.data(), bad.size()), PacketReader::Result::Malformed);
    EXPECT_FALSE(reader.next(&packet));

    // More than the stream buffer holds is refused whole.
    PacketReader small(40);
    const std::vector<uint8_t> big = zv::player::encodePacket(DEXO_KIND_VIDEO, 0, 0, video.data(), video.size());
    EXPECT_EQ(small.append(big.data(), big.size()), PacketReader::Result::Ok);
    EXPECT_EQ(small.append(big.data(), big.size()), PacketReader::Result::Full);
    EXPECT_TRUE(small.next(&packet));
    EXPECT_FALSE(small.next(&packet));
}

// The reverse-screen window's text, built the way it builds it.
QByteArray clientJson(const char* type, int x, int y) {
    return QByteArray("{\n\"touchControl\":\n{\n\t\"id\":1,\n\t\"timestamp\":") +
           QByteArray::number(QDateTime::currentMSecsSinceEpoch()) + ",\n\t\"ctrlType\":\"" + type + "\",\n\t\"x\":" +
           QByteArray::number(x) + ",\n\t\"y\":" + QByteArray::number(y) + "\n}\n}\n";
}

TEST(ReversePlayer, TouchJsonOfTheClientIsReadAndAnythingElseRefused) {
    zv::wire::ShareInput input;
    QString why;
    ASSERT_TRUE(zv::ShareSession::parseInput(clientJson("touchDown", 0, 65535), &input, &why)) << why.toStdString();
    EXPECT_EQ(input.type(), zv::wire::ShareInput::TOUCH_DOWN);
    EXPECT_EQ(input.x(), 0);
    EXPECT_EQ(input.y(), 65535);
    EXPECT_GT(input.time(), 1600000000000LL);
    struct Case {
        const char* type;
        zv::wire::ShareInput::Type expected;
    };
    for (const Case& c : {Case{"touchMove", zv::wire::ShareInput::TOUCH_MOVE}, Case{"touchUp", zv::wire::ShareInput::TOUCH_UP},
                          Case{"home", zv::wire::ShareInput::HOME}, Case{"back", zv::wire::ShareInput::BACK}}) {
        ASSERT_TRUE(zv::ShareSession::parseInput(clientJson(c.type, 0, 0), &input, &why)) << c.type;
        EXPECT_EQ(input.type(), c.expected);
    }
    for (const QByteArray& bad : {clientJson("touchdown", 1, 1), clientJson("mouseWheel", 1, 1),
                                  clientJson("touchDown", 65536, 1), clientJson("touchDown", 1, -1),
                                  QByteArray("{\"touchControl\":{\"ctrlType\":\"touchDown\"}}"), QByteArray("[1,2]"),
                                  QByteArray("{\"touchControl\":"), QByteArray()}) {
        why.clear();
        EXPECT_FALSE(zv::ShareSession::parseInput(bad, &input, &why)) << bad.toStdString();
        EXPECT_FALSE(why.isEmpty());
    }
}

TEST(ReversePlayer, PortsAndCallOrderFailWithTheirReason) {
    int port = -1;
    ASSERT_TRUE(Dexo_GetPort(&port));
    EXPECT_FALSE(Dexo_InputData(port, "x", 1));
    EXPECT_EQ(Dexo_GetLastError(port), DEXO_ERR_ORDER);
    EXPECT_FALSE(Dexo_Play(port, 0));
    EXPECT_EQ(Dexo_GetLastError(port), DEXO_ERR_ORDER);
    unsigned char header[DEXO_HEADER_SIZE];
    DexoHeader_Default(header);
    header[10] = 0x02;  // a video format this player lacks
    EXPECT_FALSE(Dexo_OpenStream(port, header, DEXO_HEADER_SIZE, 0x500000));
    EXPECT_EQ(Dexo_GetLastError(port), DEXO_ERR_HEADER);
    unsigned char jpeg[16];
    unsigned int size = 0;
    EXPECT_FALSE(Dexo_GetJPEG(port, jpeg, sizeof jpeg, &size));
    EXPECT_EQ(Dexo_GetLastError(port), DEXO_ERR_NO_PICTURE);
    EXPECT_TRUE(Dexo_FreePort(port));
    EXPECT_FALSE(Dexo_FreePort(port));
    EXPECT_FALSE(Dexo_Stop(DEXO_MAX_PORTS));
    EXPECT_EQ(Dexo_GetLastError(DEXO_MAX_PORTS), DEXO_ERR_PORT);

    std::vector<int> ports;
    for (int i = 0; i < DEXO_MAX_PORTS; ++i) {
        ASSERT_TRUE(Dexo_GetPort(&port));
        ports.push_back(port);
    }
    EXPECT_FALSE(Dexo_GetPort(&port));
    for (int p : ports) Dexo_FreePort(p);
}

// A few seconds of a red test picture as H.264 access units.
std::vector<std::vector<uint8_t>> encodedRedFrames(int count) {
    std::vector<std::vector<uint8_t>> units;
    GstElement* pipeline = gst_parse_launch(
        ("videotestsrc pattern=red num-buffers=" + std::to_string(count) +
         " ! video/x-raw,width=320,height=240,framerate=30/1 ! x264enc tune=zerolatency key-int-max=30 ! "
         "h264parse config-interval=-1 ! video/x-h264,stream-format=byte-stream,alignment=au ! appsink name=out sync=false")
            .c_str(),
        nullptr);
    if (pipeline == nullptr) return units;
    GstElement* sink = gst_bin_get_by_name(GST_BIN(pipeline), "out");
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    while (GstSample* sample = gst_app_sink_pull_sample(GST_APP_SINK(sink))) {
        GstBuffer* buffer = gst_sample_get_buffer(sample);
        std::vector<uint8_t> unit(gst_buffer_get_size(buffer));
        gst_buffer_extract(buffer, 0, unit.data(), unit.size());
        units.push_back(std::move(unit));
        gst_sample_unref(sample);
    }
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(sink);
    gst_object_unref(pipeline);
    return units;
}

std::atomic<int> g_decodeErrors{0};
void countErrors(int, RunTimeInfo* info, void*) {
    if (info->nErrorCode == int(DEXO_ERR_DECODE)) ++g_decodeErrors;
}

TEST(ReversePlayer, DecodesARealStreamIntoAJpegAndReportsDamagedPictures) {
    ASSERT_EQ(zv::media::ensureGstInitialized(), "");
    if (!gst_registry_check_feature_version(gst_registry_get(), "x264enc", 1, 0, 0)) GTEST_SKIP() << "no x264enc";
    const auto units = encodedRedFrames(10);
    ASSERT_EQ(units.size(), 10u);

    int port = -1;
    ASSERT_TRUE(Dexo_GetPort(&port));
    ASSERT_TRUE(Dexo_SetRunTimeInfoCallBackEx(port, DEXO_MODULE_DECODER, &countErrors, nullptr));
    ASSERT_TRUE(Dexo_SetRunTimeInfoCallbackType(port, DEXO_MODULE_DECODER, DEXO_INFO_DECODE_ERROR, 1));
    ASSERT_TRUE(Dexo_SetStreamOpenMode(port, DEXO_STREAM_REALTIME));
    unsigned char header[DEXO_HEADER_SIZE];
    DexoHeader_Default(header);
    ASSERT_TRUE(Dexo_OpenStream(port, header, DEXO_HEADER_SIZE, 0x500000));
    ASSERT_TRUE(Dexo_SetDisplayBuf(port, 0xFFFFFFFFu));
    ASSERT_TRUE(Dexo_Play(port, 0));
    for (size_t i = 0; i < units.size(); ++i) {
        const auto packet = zv::player::encodePacket(DEXO_KIND_VIDEO, i == 0 ? DEXO_FLAG_KEY : 0, 0, units[i].data(),
                                                     units[i].size());
        // Cut in two, as the network may hand it over.
        ASSERT_TRUE(Dexo_InputData(port, packet.data(), 7));
        ASSERT_TRUE(Dexo_InputData(port, packet.data() + 7, static_cast<unsigned int>(packet.size() - 7)));
    }
    int width = 0, height = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (width == 0 && std::chrono::steady_clock::now() < deadline) {
        Dexo_GetPictureSize(port, &width, &height);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ASSERT_EQ(width, 320);
    EXPECT_EQ(height, 240);
    std::vector<unsigned char> jpeg(4147200);
    unsigned int size = 0;
    ASSERT_TRUE(Dexo_GetJPEG(port, jpeg.data(), static_cast<unsigned int>(jpeg.size()), &size));
    const QImage picture = QImage::fromData(jpeg.data(), static_cast<int>(size), "JPG");
    ASSERT_FALSE(picture.isNull());
    const QColor centre = picture.pixelColor(160, 120);
    EXPECT_GT(centre.red(), 200);
    EXPECT_LT(centre.green(), 50);

    // Not H.264: refused, reported, and the player waits for the next key frame.
    const std::vector<uint8_t> junk(64, 0xA5);
    const auto damaged = zv::player::encodePacket(DEXO_KIND_VIDEO, 0, 0, junk.data(), junk.size());
    EXPECT_FALSE(Dexo_InputData(port, damaged.data(), static_cast<unsigned int>(damaged.size())));
    EXPECT_EQ(Dexo_GetLastError(port), DEXO_ERR_DECODE);
    EXPECT_EQ(g_decodeErrors.load(), 1);

    EXPECT_TRUE(Dexo_Stop(port));
    EXPECT_TRUE(Dexo_CloseStream(port));
    EXPECT_TRUE(Dexo_FreePort(port));
}

}  // namespace
