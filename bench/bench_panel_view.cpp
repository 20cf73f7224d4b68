// The panel's cast view on a 3840x2160 panel: what drawing the picture
// costs the receiver (and its X server), Qt painting RGB pictures against
// the video-overlay sink drawing into the view's window.
//
// A source Xvfb (1920x1080) shows a desktop with a moving area
// (bench_media_latency's source role); this program casts it with
// SenderPipeline at 1080p or scaled to 4K; a panel process on a 3840x2160
// Xvfb shows it full screen in the receiver's VideoView, either as Qt did
// (RGB pictures painted, scaled by QPainter) or through the sink
// (ReceiverConfig::videoWindow). The CPU of the panel process and of its X
// server comes from /proc over the measuring window. A row counts only when
// the panel's screen, read back by pixel, shows the cast's light desktop panel.
//
// Usage: bench_panel_view [--seconds N]
// (--role panel is this program started by itself)
#include <gst/gst.h>

#include <QApplication>
#include <QImage>
#include <QTimer>

#include "media/ReceiverPipeline.h"
#include "media/SenderPipeline.h"
#include "media/VideoView.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "Process.h"
#include "XvfbSession.h"

using namespace zvbench;

namespace {

std::vector<uint8_t> benchKey(uint8_t first) {
    std::vector<uint8_t> key(44);
    for (size_t i = 0; i < key.size(); ++i) key[i] = static_cast<uint8_t>(first + i * 7);
    return key;
}
const std::vector<uint8_t> kPcToPanelKey = benchKey(0x3c);
const std::vector<uint8_t> kPanelToPcKey = benchKey(0xa5);

// Share of a 48x27 grid over the root window that is light (the source's
// light desktop panel, less the moving area, is about 19 % of the picture): 0 when nothing
// reaches the screen.
double lightShareOnScreen() {
    Display* display = XOpenDisplay(nullptr);
    if (display == nullptr) return 0;
    const Window root = DefaultRootWindow(display);
    XWindowAttributes attributes{};
    XGetWindowAttributes(display, root, &attributes);
    int light = 0, total = 0;
    for (int gy = 0; gy < 27; ++gy) {
        for (int gx = 0; gx < 48; ++gx, ++total) {
            XImage* image = XGetImage(display, root, attributes.width * (2 * gx + 1) / 96,
                                      attributes.height * (2 * gy + 1) / 54, 1, 1, AllPlanes, ZPixmap);
            if (image == nullptr) continue;
            const unsigned long pixel = XGetPixel(image, 0, 0);
            XDestroyImage(image);
            const int r = static_cast<int>((pixel >> 16) & 0xff), g = static_cast<int>((pixel >> 8) & 0xff),
                      b = static_cast<int>(pixel & 0xff);
            if (r > 200 && g > 200 && b > 200) ++light;
        }
    }
    XCloseDisplay(display);
    return 100.0 * light / total;
}

int runPanel(int argc, char** argv) {
    const bool overlay = argValue(argc, argv, "--mode") == "overlay";
    const double warmupS = std::stod(argValue(argc, argv, "--warmup", "4"));
    const double measureS = std::stod(argValue(argc, argv, "--seconds", "10"));
    setenv("QT_QPA_PLATFORM", "xcb", 1);
    QApplication app(argc, argv);
    zv::media::VideoView view;
    view.setGeometry(0, 0, 3840, 2160);
    zv::media::ReceiverCallbacks callbacks;
    zv::media::ReceiverConfig config;
    if (overlay) {
        config.videoWindow = view.useVideoWindow();
        callbacks.pictureSize = [&view](int width, int height) { view.setPictureSize(width, height); };
    } else {
        callbacks.frame = [&view](const QImage& frame) { view.presentFrame(frame); };
    }
    view.showFullScreen();
    zv::media::ReceiverPipeline receiver(callbacks);
    QObject::connect(&view, &zv::media::VideoView::surfaceResized, [&receiver] { receiver.windowResized(); });
    config.listenAddress = "127.0.0.1";
    config.senderHost = "127.0.0.1";
    config.peerAddress = "127.0.0.1";
    config.senderRtcpPort = static_cast<uint16_t>(std::stoi(argValue(argc, argv, "--sender-rtcp", "0")));
    config.receiveKey = kPcToPanelKey;
    config.sendKey = kPanelToPcKey;
    zv::media::ReceiverStatistics before;
    QTimer::singleShot(500, [&] {  // the window is full screen by then
        const std::string error = receiver.start(config);
        if (!error.empty()) {
            std::cout << "ERROR " << error << std::endl;
            app.exit(1);
            return;
        }
        std::cout << "PORTS " << receiver.ports().video << " " << receiver.ports().rtcp << std::endl;
        QTimer::singleShot(static_cast<int>(warmupS * 1000), [&] {
            before = receiver.statistics();
            std::cout << "MEASURE-START" << std::endl;
            QTimer::singleShot(static_cast<int>(measureS * 1000), [&] {
                const auto after = receiver.statistics();
                std::cout << "MEASURE-END" << std::endl;
                std::cout << "RESULT decoded=" << (after.framesDecoded - before.framesDecoded)
                          << " width=" << after.width << " light=" << lightShareOnScreen() << std::endl;
                receiver.stop();
                app.quit();
            });
        });
    });
    return app.exec();
}

pid_t newestXvfb() {
    std::string out;
    FILE* pipe = popen(("pgrep -n -P " + std::to_string(getpid()) + " Xvfb").c_str(), "r");
    if (pipe != nullptr) {
        char buffer[64] = {};
        if (fgets(buffer, sizeof buffer, pipe) != nullptr) out = buffer;
        pclose(pipe);
    }
    return out.empty() ? 0 : static_cast<pid_t>(std::stol(out));
}

std::string programDir() {
    char path[4096] = {};
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    std::string self(path, length > 0 ? static_cast<size_t>(length) : 0);
    return self.substr(0, self.rfind('/'));
}

struct Row {
    std::string cast, view;
    double fps = 0, receiverCpu = 0, xCpu = 0, light = 0;
    std::string note;
};

Row run(const std::string& sourceDisplay, pid_t panelX, int width, int height, bool overlay, double seconds) {
    Row row;
    row.cast = std::to_string(width) + "x" + std::to_string(height) + "p30";
    row.view = overlay ? "overlay sink" : "Qt painting";
    zv::media::SenderPipeline sender;
    const uint16_t senderRtcp = sender.reserveRtcpPort();
    zvtest::ChildProcess panel({programDir() + "/bench_panel_view", "--role", "panel", "--mode",
                                overlay ? "overlay" : "qt", "--sender-rtcp", std::to_string(senderRtcp), "--seconds",
                                std::to_string(seconds)},
                               zvtest::ChildProcess::Output::Capture);
    const std::string ports = panel.waitForLineContaining("PORTS", std::chrono::seconds(20));
    if (ports.empty()) {
        row.note = "panel did not start";
        return row;
    }
    std::istringstream fields(ports.substr(6));
    int videoPort = 0, rtcpPort = 0;
    fields >> videoPort >> rtcpPort;
    zv::media::SenderConfig config;
    config.displayName = sourceDisplay;
    config.host = "127.0.0.1";
    config.videoPort = static_cast<uint16_t>(videoPort);
    config.remoteRtcpPort = static_cast<uint16_t>(rtcpPort);
    config.width = width;
    config.height = height;
    config.fps = 30;
    config.bitrateKbps = width > 1920 ? 16000 : 8000;
    config.damageDriven = false;  // a steady 30 pictures a second, whatever the desktop does
    config.encoderPreference = zv::media::EncoderPreference::SoftwarePreferred;
    config.sendKey = kPcToPanelKey;
    config.receiveKey = kPanelToPcKey;
    const std::string error = sender.start(config);
    if (!error.empty()) {
        row.note = "sender: " + error;
        return row;
    }
    if (panel.waitForLineContaining("MEASURE-START", std::chrono::seconds(30)).empty()) {
        row.note = "no measurement";
        return row;
    }
    CpuClock receiverCpu, xCpu;
    receiverCpu.start(panel.pid());
    xCpu.start(panelX);
    panel.waitForLineContaining("MEASURE-END", std::chrono::seconds(static_cast<int>(seconds) + 20));
    row.receiverCpu = receiverCpu.percent();
    row.xCpu = xCpu.percent();
    const auto result = parseFields(panel.waitForLineContaining("RESULT", std::chrono::seconds(20)));
    row.fps = result.count("decoded") ? std::stod(result.at("decoded")) / seconds : 0;
    row.light = result.count("light") ? std::stod(result.at("light")) : 0;
    if (row.light < 10) row.note = "picture not on the screen: CPU figure not valid";
    sender.stop();
    return row;
}

}  // namespace

int main(int argc, char** argv) {
    if (argValue(argc, argv, "--role") == "panel") return runPanel(argc, argv);
    const double seconds = std::stod(argValue(argc, argv, "--seconds", "10"));
    gst_init(nullptr, nullptr);
    zvtest::XvfbSession sourceScreen("1920x1080x24");
    zvtest::ChildProcess source({programDir() + "/bench_media_latency", "--role", "source", "--display",
                                 sourceScreen.display(), "--fps", "30", "--motion"});
    zvtest::XvfbSession panelScreen("3840x2160x24");  // DISPLAY for the panel process
    const pid_t panelX = newestXvfb();
    std::vector<Row> rows;
    for (const auto& [width, height] : {std::pair{1920, 1080}, std::pair{3840, 2160}}) {
        for (bool overlay : {false, true}) {
            rows.push_back(run(sourceScreen.display(), panelX, width, height, overlay, seconds));
            const Row& row = rows.back();
            std::cerr << row.cast << " " << row.view << ": receiver " << row.receiverCpu << " %, X " << row.xCpu
                      << " %, " << row.fps << " fps " << row.note << std::endl;
        }
    }
    std::cout << "| panel | cast | view | pictures/s shown | receiver CPU % | panel X server CPU % | sum % | "
                 "receiver CPU ms per picture | light share on screen % | note |\n|---|---|---|---|---|---|---|---|---|---|\n";
    for (const Row& row : rows) {
        char line[512];
        std::snprintf(line, sizeof line, "| 3840x2160 | %s | %s | %.1f | %.1f | %.1f | %.1f | %.1f | %.0f | %s |\n",
                      row.cast.c_str(), row.view.c_str(), row.fps, row.receiverCpu, row.xCpu,
                      row.receiverCpu + row.xCpu, row.fps > 0 ? row.receiverCpu * 10.0 / row.fps : 0.0, row.light,
                      row.note.c_str());
        std::cout << line;
    }
    return 0;
}
