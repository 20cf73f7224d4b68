// What the media suites share: a private Xvfb screen showing four coloured
// blocks, checks on decoded pictures, and a fixture that starts a receiver
// and a sender aimed at it over loopback with this cast's keys.
// Qt and gtest before Xlib: Xlib's macros (Bool, Status, None) break their headers.
#pragma once

#include <gtest/gtest.h>

#include <QImage>
#include <QRect>

#include "media/ReceiverPipeline.h"
#include "media/SenderPipeline.h"

#include <X11/Xlib.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "XvfbSession.h"

namespace zvtest {

constexpr int kScreenWidth = 1280;
constexpr int kScreenHeight = 720;
inline const char* kPassphrase = "0123456789abcdefABCDEF0123456789";

// A 44-byte media key whose bytes start at `first`.
inline std::vector<uint8_t> mediaKey(uint8_t first) {
    std::vector<uint8_t> key(44);
    for (size_t i = 0; i < key.size(); ++i) key[i] = static_cast<uint8_t>(first + i * 7);
    return key;
}
inline const std::vector<uint8_t> kPcToPanelKey = mediaKey(0x11);
inline const std::vector<uint8_t> kPanelToPcKey = mediaKey(0x85);

struct Colour {
    int r, g, b;
    unsigned long pixel() const {
        return (static_cast<unsigned long>(r) << 16) | (static_cast<unsigned long>(g) << 8) |
               static_cast<unsigned long>(b);
    }
};
constexpr Colour kRed{255, 0, 0}, kGreen{0, 255, 0}, kBlue{0, 0, 255}, kWhite{255, 255, 255}, kBlack{0, 0, 0};
constexpr Colour kMagenta{255, 0, 255}, kCyan{0, 255, 255};
constexpr Colour kBlocks[4] = {kRed, kGreen, kBlue, kWhite};
constexpr Colour kSwapped[4] = {kWhite, kBlue, kGreen, kRed};

inline bool near(QRgb pixel, const Colour& colour, int tolerance = 48) {
    return std::abs(qRed(pixel) - colour.r) <= tolerance && std::abs(qGreen(pixel) - colour.g) <= tolerance &&
           std::abs(qBlue(pixel) - colour.b) <= tolerance;
}

inline std::string describe(QRgb pixel) {
    return "(" + std::to_string(qRed(pixel)) + "," + std::to_string(qGreen(pixel)) + "," +
           std::to_string(qBlue(pixel)) + ")";
}

// The screen as four blocks (red, green / blue, white), kept by the server
// as the root window's background.
inline void drawBlocks(Display* display, const Colour (&blocks)[4]) {
    const Window root = DefaultRootWindow(display);
    const Pixmap pixmap = XCreatePixmap(display, root, kScreenWidth, kScreenHeight,
                                        static_cast<unsigned>(DefaultDepth(display, DefaultScreen(display))));
    GC gc = XCreateGC(display, pixmap, 0, nullptr);
    for (int i = 0; i < 4; ++i) {
        XSetForeground(display, gc, blocks[i].pixel());
        XFillRectangle(display, pixmap, gc, (i % 2) * kScreenWidth / 2, (i / 2) * kScreenHeight / 2,
                       kScreenWidth / 2, kScreenHeight / 2);
    }
    XSetWindowBackgroundPixmap(display, root, pixmap);
    XClearWindow(display, root);
    XFreeGC(display, gc);
    XFreePixmap(display, pixmap);
    XSync(display, False);
}

// Whether a picture shows the four blocks inside `area` (the whole frame, or
// the part left by black bars).
inline bool showsBlocks(const QImage& frame, const Colour (&blocks)[4], QRect area = {}, std::string* why = nullptr) {
    if (frame.isNull()) return false;
    if (area.isNull()) area = frame.rect();
    for (int i = 0; i < 4; ++i) {
        const int x = area.x() + area.width() * (1 + 2 * (i % 2)) / 4;
        const int y = area.y() + area.height() * (1 + 2 * (i / 2)) / 4;
        const QRgb pixel = frame.pixel(x, y);
        if (!near(pixel, blocks[i])) {
            if (why != nullptr) {
                *why = "block " + std::to_string(i) + " at " + std::to_string(x) + "," + std::to_string(y) + " is " +
                       describe(pixel);
            }
            return false;
        }
    }
    return true;
}

// The receiver's side of a loopback cast with this cast's keys (startCast sets the transport).
inline zv::media::ReceiverConfig receiverConfig() {
    zv::media::ReceiverConfig config;
    config.listenAddress = "127.0.0.1";
    config.peerAddress = "127.0.0.1";
    config.srtPassphrase = kPassphrase;
    config.receiveKey = kPcToPanelKey;
    config.sendKey = kPanelToPcKey;
    return config;
}
// The sender's side, without transport and ports.
inline zv::media::SenderConfig senderConfig(const std::string& display) {
    zv::media::SenderConfig config;
    config.displayName = display;
    config.host = "127.0.0.1";
    config.srtPassphrase = kPassphrase;
    config.sendKey = kPcToPanelKey;
    config.receiveKey = kPanelToPcKey;
    return config;
}

class MediaCast : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_xvfb = new XvfbSession(std::to_string(kScreenWidth) + "x" + std::to_string(kScreenHeight) + "x24");
    }
    static void TearDownTestSuite() {
        delete s_xvfb;
        s_xvfb = nullptr;
    }
    void SetUp() override {
        ASSERT_TRUE(s_xvfb->ready()) << "Xvfb with openbox did not start";
        drawBlocks(s_xvfb->connection(), kBlocks);
    }

    static zv::media::SenderConfig senderConfig() { return zvtest::senderConfig(s_xvfb->display()); }

    // Starts `receiver`, then `sender` aimed at it (at sending.videoPort when
    // set, e.g. a relay; else the receiver's port). Empty on success.
    std::string startCast(zv::media::ReceiverPipeline& receiver, zv::media::SenderPipeline& sender,
                          zv::media::MediaTransport transport, zv::media::SenderConfig sending = senderConfig(),
                          zv::media::ReceiverConfig receiving = receiverConfig()) {
        receiving.transport = transport;
        if (transport == zv::media::MediaTransport::Udp) {
            receiving.senderHost = "127.0.0.1";
            receiving.senderRtcpPort = sender.reserveRtcpPort();
        }
        std::string error = receiver.start(receiving);
        if (!error.empty()) return "receiver: " + error;
        const auto ports = receiver.ports();
        sending.transport = transport;
        if (sending.videoPort == 0) sending.videoPort = ports.video;
        sending.remoteRtcpPort = ports.rtcp;
        sending.audioPort = ports.audio;
        error = sender.start(sending);
        return error.empty() ? std::string() : "sender: " + error;
    }

    static inline XvfbSession* s_xvfb = nullptr;
};

}  // namespace zvtest
