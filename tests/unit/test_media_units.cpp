// Pieces of the media engine that need no display: the colour conversion
// against BT.601 reference values, the encoder ranking, port reservation,
// media keys, the SRTP decoder's key handling and the peer address rule.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <vector>

#include "media/EncoderChoice.h"
#include "media/GstInit.h"
#include "media/I420Converter.h"
#include "media/PeerFilter.h"
#include "media/RtpReceiving.h"
#include "media/SrtpKeying.h"
#include "media/UdpPortReservation.h"

using namespace zv::media;

namespace {

struct Frame {
    int width, height;
    std::vector<uint8_t> y, u, v;
    Frame(int w, int h) : width(w), height(h), y(w * h, 1), u(w * h / 4, 2), v(w * h / 4, 3) {}
    I420Planes planes() { return {y.data(), u.data(), v.data(), width, width / 2}; }
};

std::vector<uint8_t> bgrx(int width, int height, uint8_t r, uint8_t g, uint8_t b) {
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4);
    for (size_t i = 0; i < pixels.size(); i += 4) {
        pixels[i] = b;
        pixels[i + 1] = g;
        pixels[i + 2] = r;
        pixels[i + 3] = 0;
    }
    return pixels;
}

// BT.601 limited range: black 16/128/128, white 235/128/128, red 82/90/240,
// green 145/54/34, blue 41/240/110.
TEST(I420Converter, MatchesBt601AndTouchesOnlyItsRectangle) {
    struct Case {
        uint8_t r, g, b;
        int y, u, v;
    };
    for (const Case& c : {Case{0, 0, 0, 16, 128, 128}, Case{255, 255, 255, 235, 128, 128},
                          Case{255, 0, 0, 82, 90, 240}, Case{0, 255, 0, 145, 54, 34}, Case{0, 0, 255, 41, 240, 110}}) {
        SCOPED_TRACE(std::to_string(c.r) + "," + std::to_string(c.g) + "," + std::to_string(c.b));
        Frame frame(16, 8);
        const auto source = bgrx(6, 4, c.r, c.g, c.b);
        convertBgrxToI420(source.data(), 6 * 4, 6, 4, frame.planes(), 4, 2);
        EXPECT_NEAR(frame.y[2 * 16 + 4], c.y, 1);
        EXPECT_NEAR(frame.y[5 * 16 + 9], c.y, 1);
        EXPECT_NEAR(frame.u[1 * 8 + 2], c.u, 1);
        EXPECT_NEAR(frame.v[2 * 8 + 4], c.v, 1);
        // Outside the 6x4 block at (4, 2): untouched.
        EXPECT_EQ(frame.y[2 * 16 + 3], 1);
        EXPECT_EQ(frame.y[2 * 16 + 10], 1);
        EXPECT_EQ(frame.y[6 * 16 + 4], 1);
        EXPECT_EQ(frame.u[1 * 8 + 1], 2);
        EXPECT_EQ(frame.u[1 * 8 + 5], 2);
        EXPECT_EQ(frame.v[0 * 8 + 2], 3);
    }
    // Chroma is the mean of each 2x2 block: a red/blue checkerboard gives magenta's.
    std::vector<uint8_t> mixed = bgrx(2, 2, 255, 0, 0);
    mixed[4] = 255, mixed[6] = 0;    // (1, 0) blue
    mixed[8] = 255, mixed[10] = 0;   // (0, 1) blue
    Frame frame(2, 2);
    convertBgrxToI420(mixed.data(), 8, 2, 2, frame.planes(), 0, 0);
    EXPECT_NEAR(frame.u[0], (90 + 240) / 2, 1);
    EXPECT_NEAR(frame.v[0], (240 + 110) / 2, 1);

    fillI420Black(frame.planes(), 0, 0, 2, 2);
    EXPECT_EQ(frame.y[3], 16);
    EXPECT_EQ(frame.u[0], 128);
}

TEST(EncoderChoice, RanksWhatExistsAndExplainsWhatDoesNot) {
    const auto software = rankedEncoders(EncoderPreference::SoftwarePreferred);
    ASSERT_FALSE(software.empty()) << "x264enc or openh264enc should be installed";
    EXPECT_FALSE(software.front().hardware);
    // Without a render node no hardware encoder is offered at all.
    if (firstRenderNode().empty()) {
        for (const auto& candidate : rankedEncoders(EncoderPreference::HardwarePreferred)) {
            EXPECT_FALSE(candidate.hardware) << candidate.element;
        }
        EXPECT_FALSE(hardwareH264EncoderAvailable());
    }

    const auto only = rankedEncoders(EncoderPreference::HardwarePreferred, {"zv-missing", "x264enc"});
    ASSERT_EQ(only.size(), 1u);
    EXPECT_EQ(only.front().element, "x264enc");

    EncoderSettings settings;
    settings.bitrateKbps = 4000;
    auto chosen = chooseEncoder(EncoderPreference::SoftwarePreferred, settings, "zv-test-encoder", {"x264enc"});
    ASSERT_TRUE(chosen.encoder) << chosen.error;
    EXPECT_EQ(std::string(GST_OBJECT_NAME(chosen.encoder.get())), "zv-test-encoder");
    guint bitrate = 0;
    g_object_get(chosen.encoder.get(), "bitrate", &bitrate, nullptr);
    EXPECT_EQ(bitrate, 4000u);

    auto none = chooseEncoder(EncoderPreference::SoftwarePreferred, settings, "zv-test-encoder", {"zv-missing"});
    EXPECT_FALSE(none.encoder);
    EXPECT_NE(none.error.find("no H.264 encoder"), std::string::npos) << none.error;
    EXPECT_NE(none.error.find("zv-missing"), std::string::npos) << none.error;
}

TEST(UdpPortReservation, HoldsThePortUntilDropped) {
    std::string error;
    auto first = UdpPortReservation::bind(0, &error);
    ASSERT_TRUE(first) << error;
    ASSERT_NE(first->port(), 0);
    const uint16_t port = first->port();
    EXPECT_FALSE(UdpPortReservation::bind(port, &error));
    EXPECT_NE(error.find(std::to_string(port)), std::string::npos) << error;
    first.reset();
    EXPECT_TRUE(UdpPortReservation::bind(port, &error)) << error;
}

// Both keys or none (and then only when plain is allowed); never half.
TEST(MediaKeys, BothFullKeysOrExplicitlyPlain) {
    const std::vector<uint8_t> key(kMediaKeyBytes, 7), shortKey(30, 7), none;
    bool encrypted = true;
    EXPECT_EQ(checkMediaKeys(key, key, false, &encrypted), "");
    EXPECT_TRUE(encrypted);
    EXPECT_EQ(checkMediaKeys(key, key, true, &encrypted), "");
    EXPECT_TRUE(encrypted);
    EXPECT_NE(checkMediaKeys(none, none, false, &encrypted).find("no media keys"), std::string::npos);
    EXPECT_EQ(checkMediaKeys(none, none, true, &encrypted), "");
    EXPECT_FALSE(encrypted);
    EXPECT_NE(checkMediaKeys(key, none, true, &encrypted).find("44 bytes"), std::string::npos);
    EXPECT_NE(checkMediaKeys(shortKey, key, false, &encrypted).find("44 bytes"), std::string::npos);
    EXPECT_FALSE(encrypted);

    EXPECT_EQ(wireCaps("application/x-rtp,payload=96", true, false), "application/x-srtp,payload=96");
    EXPECT_EQ(wireCaps("application/x-rtp,payload=96", true, true), "application/x-srtp-stream,payload=96");
    EXPECT_EQ(wireCaps("application/x-rtp,payload=96", false, true), "application/x-rtp-stream,payload=96");
}

// srtpdec asks for a key per SSRC: the cast key with AES-256-GCM, but only
// for a few unproven SSRCs at a time; forgetting makes room again.
TEST(SrtpDecoder, KeysFewUnknownStreamsAndForgetsThem) {
    ASSERT_EQ(ensureGstInitialized(), "");
    const std::vector<uint8_t> key(kMediaKeyBytes, 0x42);
    SrtpDecoder decoder;
    ASSERT_EQ(decoder.create(key, "test-srtpdec"), "");
    auto requestKey = [&](guint ssrc) {
        GstCaps* caps = nullptr;
        g_signal_emit_by_name(decoder.element(), "request-key", ssrc, &caps);
        return caps;
    };
    GstCaps* caps = requestKey(1000);
    ASSERT_NE(caps, nullptr);
    const GstStructure* structure = gst_caps_get_structure(caps, 0);
    EXPECT_STREQ(gst_structure_get_string(structure, "srtp-cipher"), "aes-256-gcm");
    EXPECT_STREQ(gst_structure_get_string(structure, "srtcp-cipher"), "aes-256-gcm");
    EXPECT_STREQ(gst_structure_get_string(structure, "srtp-auth"), "null");
    GstBuffer* given = nullptr;
    ASSERT_TRUE(gst_structure_get(structure, "srtp-key", GST_TYPE_BUFFER, &given, nullptr));
    EXPECT_EQ(gst_buffer_get_size(given), kMediaKeyBytes);
    EXPECT_EQ(gst_buffer_memcmp(given, 0, key.data(), key.size()), 0);
    gst_buffer_unref(given);
    gst_caps_unref(caps);

    for (guint ssrc = 1001; ssrc < 1000 + SrtpDecoder::kMaxUnproven; ++ssrc) {
        caps = requestKey(ssrc);
        EXPECT_NE(caps, nullptr) << ssrc;
        if (caps != nullptr) gst_caps_unref(caps);
    }
    EXPECT_EQ(requestKey(2000), nullptr);
    EXPECT_EQ(decoder.rejected(), 1u);
    caps = requestKey(1003);  // one already keyed is asked again (srtpdec forgot it): still given
    EXPECT_NE(caps, nullptr);
    if (caps != nullptr) gst_caps_unref(caps);

    decoder.forgetUnproven(std::chrono::milliseconds(0));
    caps = requestKey(2000);
    EXPECT_NE(caps, nullptr);
    if (caps != nullptr) gst_caps_unref(caps);
    EXPECT_FALSE(decoder.anyAuthentic());
}

TEST(PeerFilter, TakesIpAddressesOnly) {
    PeerFilter filter;
    EXPECT_EQ(filter.setPeer("10.0.0.2"), "");
    EXPECT_TRUE(filter.active());
    EXPECT_EQ(filter.setPeer("::ffff:10.0.0.2"), "");
    EXPECT_EQ(filter.setPeer("fe80::1"), "");
    EXPECT_NE(filter.setPeer("panel.local").find("not an IP address"), std::string::npos);
    EXPECT_FALSE(filter.active());
    EXPECT_EQ(filter.dropped(), 0u);
}

}  // namespace
