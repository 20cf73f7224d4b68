// Reverse screen glass to glass, beside the forward cast, at 1080p30.
//
// The panel's screen is a private Xvfb (1920x1080) on which
// bench_media_latency's source role draws the CLOCK_MONOTONIC time in ms
// as 32 black/white squares (and their inverse as a check) 60 times a
// second; its sender role captures and sends it exactly as the panel's
// ShareService does (SenderPipeline, SRTP over UDP, software encoder).
//
//   reverse: this program's player role receives it as the PC does
//            (ShareReceiver → player packets → Dexo_ player drawing into a
//            1920x1080 window of a second Xvfb, the PC's screen) and reads
//            the time back from the window's pixels (XGetImage every 2 ms);
//            latency = X draws on the panel → capture → encode → network →
//            receive → decode → drawn on the PC's X server.
//   forward: bench_media_latency's receiver role (the panel's
//            ReceiverPipeline), which reads the time from the decoded RGB
//            picture, as in docs/performance.md.
//
// Then, without the read-back, the player process's CPU (receive + decode +
// draw, the PC's X server's share listed apart) over the same seconds, for a
// desktop-like screen (only the time changes) and for video-like motion.
//
// Usage: bench_reverse [--seconds N]
// (the role --role player is this program started by itself)
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <libgen.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <iostream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "BenchSupport.h"
#include "Process.h"
#include "XvfbSession.h"
#include "casting/Dexo.h"
#include "media/ShareReceiver.h"
#include "media/UdpPortReservation.h"
#include "player/DexoPacket.h"

namespace {

using namespace zvbench;

// The time pattern of bench_media_latency's source role.
constexpr int kWidth = 1920, kHeight = 1080, kBits = 32, kSquare = 40, kPatternX = 64, kPatternY = 64;

// The sender role's key (bench_media_latency: benchKey(0x3c)).
std::vector<uint8_t> senderKey() {
    std::vector<uint8_t> key(44);
    for (size_t i = 0; i < key.size(); ++i) key[i] = static_cast<uint8_t>(0x3c ^ (i * 29));
    return key;
}

uint32_t nowMs32() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint32_t>(static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u);
}

// The time in the pattern strip (x from kPatternX, y from kPatternY); false when the check row disagrees.
bool readStrip(XImage* strip, uint32_t* value) {
    auto luma = [&](int x, int y) {
        const unsigned long p = XGetPixel(strip, x, y);
        return static_cast<int>(((p >> 16) & 0xff) + ((p >> 8) & 0xff) + (p & 0xff)) / 3;
    };
    uint32_t bits = 0;
    for (int i = 0; i < kBits; ++i) {
        const int x = i * kSquare + kSquare / 2;
        const bool one = luma(x, kSquare / 2) > 128;
        if (one == (luma(x, kSquare + kSquare / 2) > 128)) return false;
        if (one) bits |= 1u << i;
    }
    *value = bits;
    return true;
}

struct Viewer {
    int port = -1;
};

long onUnit(Viewer& viewer, const zv::media::ShareUnit& unit) {
    const auto packet = zv::player::encodePacket(unit.kind, unit.keyFrame ? DEXO_FLAG_KEY : 0, unit.ptsUs, unit.data,
                                                 unit.size);
    return Dexo_InputData(viewer.port, packet.data(), static_cast<unsigned int>(packet.size())) ? 0 : -1;
}

// The PC: receives, plays into a window on --display, reads the time back.
int runPlayer(int argc, char** argv) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    const double seconds = std::stod(argValue(argc, argv, "--seconds", "10"));
    Display* display = XOpenDisplay(argValue(argc, argv, "--display").c_str());
    if (display == nullptr) return 2;
    XSetWindowAttributes attributes{};
    attributes.override_redirect = True;
    const Window window = XCreateWindow(display, DefaultRootWindow(display), 0, 0, kWidth, kHeight, 0, CopyFromParent,
                                        InputOutput, CopyFromParent, CWOverrideRedirect, &attributes);
    XMapRaised(display, window);
    XSync(display, False);

    Viewer viewer;
    unsigned char header[DEXO_HEADER_SIZE];
    DexoHeader_Default(header);
    if (!Dexo_GetPort(&viewer.port) || !Dexo_SetStreamOpenMode(viewer.port, DEXO_STREAM_REALTIME) ||
        !Dexo_OpenStream(viewer.port, header, DEXO_HEADER_SIZE, 0x500000) ||
        !Dexo_SetDisplayBuf(viewer.port, 0xFFFFFFFFu) || !Dexo_Play(viewer.port, window)) {
        std::cout << "ERROR player " << Dexo_GetLastError(viewer.port) << std::endl;
        return 1;
    }
    zv::media::ShareReceiver receiver([&viewer](const zv::media::ShareUnit& unit) { onUnit(viewer, unit); },
                                      [](const std::string& error) { std::cout << "ERROR " << error << std::endl; });
    std::string error = receiver.reserve();
    zv::media::ShareReceiverConfig config;
    config.receiveKey = senderKey();
    config.peerAddress = "127.0.0.1";
    config.audio = false;
    if (error.empty()) error = receiver.start(config);
    if (!error.empty()) {
        std::cout << "ERROR " << error << std::endl;
        return 1;
    }
    std::cout << "PORTS " << receiver.ports().video << " " << receiver.ports().rtcp << std::endl;

    std::atomic<bool> reading{false}, done{false};
    std::vector<double> latencies, arrivals;
    int unreadable = 0;
    std::thread readBack([&] {
        Display* own = XOpenDisplay(argValue(argc, argv, "--display").c_str());
        uint32_t last = 0;
        bool any = false;
        while (!done) {
            if (!reading) {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                continue;
            }
            XImage* strip = XGetImage(own, window, kPatternX, kPatternY, kBits * kSquare, 2 * kSquare, AllPlanes, ZPixmap);
            const uint32_t now = nowMs32();
            uint32_t value = 0;
            if (strip != nullptr && readStrip(strip, &value)) {
                if (!any || value != last) {
                    latencies.push_back(static_cast<double>(static_cast<int32_t>(now - value)));
                    arrivals.push_back(now);
                }
                any = true;
                last = value;
            } else {
                ++unreadable;
            }
            if (strip != nullptr) XDestroyImage(strip);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        XCloseDisplay(own);
    });
    auto wait = [&](double s) {
        timespec timeout{static_cast<time_t>(s), static_cast<long>((s - std::floor(s)) * 1e9)};
        return sigtimedwait(&set, nullptr, &timeout) < 0;
    };
    bool complete = wait(3);  // warm-up
    if (complete) {
        reading = true;
        std::cout << "MEASURE-START" << std::endl;
        complete = wait(seconds);
        reading = false;
        std::cout << "MEASURE-END" << std::endl;
    }
    if (complete) {
        std::cout << "CPU-START" << std::endl;
        complete = wait(seconds);
        std::cout << "CPU-END" << std::endl;
    }
    done = true;
    readBack.join();
    std::ostringstream list;
    for (double v : latencies) list << v << " ";
    std::cout << "RESULT unreadable=" << unreadable << " gap=" << longestGapMs(arrivals) << std::endl;
    std::cout << "LATENCIES " << list.str() << std::endl;
    if (complete) {
        int signal = 0;
        sigwait(&set, &signal);
    }
    receiver.stop();
    Dexo_Stop(viewer.port);
    Dexo_CloseStream(viewer.port);
    Dexo_FreePort(viewer.port);
    XCloseDisplay(display);
    return 0;
}

struct Row {
    std::string name;
    size_t frames = 0;
    double median = NAN, p90 = NAN, receiverCpu = NAN, pcXCpu = NAN, senderCpu = NAN;
    std::string note;
};

std::string self, latencyTool;

Row run(const std::string& name, bool reverse, bool motion, double seconds, zvtest::XvfbSession& panel,
        zvtest::XvfbSession& pc, pid_t pcXPid) {
    Row row;
    row.name = name;
    std::vector<std::string> sourceArgs = {latencyTool, "--role", "source", "--display", panel.display(), "--fps", "60"};
    if (motion) sourceArgs.push_back("--motion");
    zvtest::ChildProcess source(sourceArgs);
    const std::string localRtcp = std::to_string(zv::media::pickFreeUdpPort());
    std::vector<std::string> receiverArgs =
        reverse ? std::vector<std::string>{self, "--role", "player", "--display", pc.display(), "--seconds",
                                           std::to_string(seconds)}
                : std::vector<std::string>{latencyTool, "--role", "receiver", "--transport", "udp", "--sender-rtcp",
                                           localRtcp, "--seconds", std::to_string(seconds)};
    zvtest::ChildProcess receiver(receiverArgs, zvtest::ChildProcess::Output::Capture);
    const std::string ports = receiver.waitForLineContaining("PORTS", std::chrono::seconds(15));
    if (ports.empty()) {
        row.note = "receiver did not start";
        return row;
    }
    std::istringstream fields(ports.substr(6));
    int video = 0, rtcp = 0;
    fields >> video >> rtcp;
    zvtest::ChildProcess sender({latencyTool, "--role", "sender", "--display", panel.display(), "--transport", "udp",
                                 "--port", std::to_string(video), "--rtcp-local", localRtcp, "--rtcp-remote",
                                 std::to_string(rtcp), "--fps", "30"},
                                zvtest::ChildProcess::Output::Capture);
    if (sender.waitForLineContaining("SENDING", std::chrono::seconds(15)).empty()) {
        row.note = "sender did not start";
        return row;
    }
    receiver.waitForLineContaining("MEASURE-START", std::chrono::seconds(30));
    CpuClock receiverCpu, xCpu, senderCpu;
    receiverCpu.start(receiver.pid());
    xCpu.start(pcXPid);
    senderCpu.start(sender.pid());
    receiver.waitForLineContaining("MEASURE-END", std::chrono::seconds(static_cast<int>(seconds) + 30));
    row.senderCpu = senderCpu.percent();
    if (!reverse) row.receiverCpu = receiverCpu.percent();
    if (reverse) {
        receiver.waitForLineContaining("CPU-START", std::chrono::seconds(10));
        receiverCpu.start(receiver.pid());
        xCpu.start(pcXPid);
        receiver.waitForLineContaining("CPU-END", std::chrono::seconds(static_cast<int>(seconds) + 30));
        row.receiverCpu = receiverCpu.percent();
        row.pcXCpu = xCpu.percent();
    }
    const auto latencies = parseList(receiver.waitForLineContaining("LATENCIES", std::chrono::seconds(20)));
    row.frames = latencies.size();
    row.median = percentile(latencies, 0.5);
    row.p90 = percentile(latencies, 0.9);
    sender.stop();
    receiver.stop();
    source.stop();
    return row;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string role = argValue(argc, argv, "--role");
    if (role == "player") return runPlayer(argc, argv);
    self = argv[0];
    std::vector<char> path(self.begin(), self.end());
    path.push_back('\0');
    latencyTool = std::string(dirname(path.data())) + "/bench_media_latency";
    const double seconds = std::stod(argValue(argc, argv, "--seconds", "10"));

    zvtest::XvfbSession panel("1920x1080x24");
    zvtest::XvfbSession pc("1920x1080x24");
    if (!panel.ready() || !pc.ready()) {
        std::cerr << "no Xvfb" << std::endl;
        return 1;
    }
    std::string pidText;
    if (FILE* pipe = popen(("pgrep -n -P " + std::to_string(getpid()) + " Xvfb").c_str(), "r")) {
        char buffer[64] = {};
        if (fgets(buffer, sizeof buffer, pipe) != nullptr) pidText = buffer;
        pclose(pipe);
    }
    const pid_t pcXPid = pidText.empty() ? 0 : static_cast<pid_t>(std::stol(pidText));
    std::vector<Row> rows;
    rows.push_back(run("forward cast, decoded picture (desktop)", false, false, seconds, panel, pc, pcXPid));
    rows.push_back(run("reverse screen, drawn in the PC's window (desktop)", true, false, seconds, panel, pc, pcXPid));
    rows.push_back(run("reverse screen, drawn in the PC's window (motion)", true, true, seconds, panel, pc, pcXPid));

    std::printf("| row | pictures | median ms | p90 ms | sender CPU %% | PC/receiver CPU %% | PC X server CPU %% | note |\n");
    std::printf("|---|---|---|---|---|---|---|---|\n");
    for (const Row& r : rows) {
        std::printf("| %s | %zu | %.1f | %.1f | %.0f | %.0f | %s | %s |\n", r.name.c_str(), r.frames, r.median, r.p90,
                    r.senderCpu, r.receiverCpu,
                    std::isnan(r.pcXCpu) ? "-" : std::to_string(static_cast<int>(std::lround(r.pcXCpu))).c_str(),
                    r.note.c_str());
    }
    return 0;
}
