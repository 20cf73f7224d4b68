// Glass-to-glass latency of a cast, measured with the picture itself.
//
// On a private Xvfb screen (1920x1080) a source process draws the current
// CLOCK_MONOTONIC time in milliseconds into every frame it shows: 32 black
// or white squares (40 px, large enough to survive H.264) and below them the
// same 32 bits inverted, as a check. A sender process casts the screen with
// SenderPipeline; a receiver process decodes with ReceiverPipeline and reads
// the time back out of each decoded picture, comparing it with the clock at
// that moment. The latency is therefore: X server draws the pixels →
// capture → encode → network → decode → RGB picture in the receiver's
// hands (the panel's own painting and the monitor are not included).
// Only the first decoded picture showing a given time counts.
//
// Sender, receiver and X server are separate processes: their CPU use comes
// from /proc/<pid>/stat over the measuring window. The same run also
// measures plain ffmpeg (x11grab → libx264 ultrafast/zerolatency → MPEG-TS
// over UDP → ffmpeg → raw grey frames into this program), a still desktop
// for 30 s, and UDP with 2 % of the packets dropped.
//
// Every cast is encrypted (SRTP, AES-256-GCM) as in use, except the "plain"
// rows: RTP over UDP without keys (allowPlain), run in turns with the
// encrypted UDP rows (--pairs N times) to show what the encryption costs.
//
// Usage: bench_media_latency [--json FILE] [--seconds N] [--quick] [--only TEXT] [--pairs N]
// (--only "SRTP stage": the SRTP elements alone, SrtpStageTiming.h)
// (the roles --role source|sender|receiver are this program started by itself)
#include <gst/gst.h>

#include <QImage>

#include "media/ReceiverPipeline.h"
#include "media/SenderPipeline.h"
#include "media/UdpPortReservation.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "BenchSupport.h"
#include "Process.h"
#include "SrtpStageTiming.h"
#include "XvfbSession.h"

namespace {

using namespace zvbench;
using zv::media::MediaTransport;

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr int kBits = 32;
constexpr int kSquare = 40;
constexpr int kPatternX = 64;
constexpr int kPatternY = 64;
const char* kSrtKey = "bench-passphrase-0123456789abcdef";

// The cast's keys as the session layer would give them (44 bytes each).
std::vector<uint8_t> benchKey(uint8_t first) {
    std::vector<uint8_t> key(44);
    for (size_t i = 0; i < key.size(); ++i) key[i] = static_cast<uint8_t>(first ^ (i * 29));
    return key;
}
const std::vector<uint8_t> kPcToPanelKey = benchKey(0x3c);
const std::vector<uint8_t> kPanelToPcKey = benchKey(0xa5);

uint32_t nowMs32() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint32_t>(static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u);
}

// ---------------------------------------------------------------- pattern

// Reads the time out of a picture through `luma(x, y)` (0..255, picture
// coordinates of a 1920x1080 frame). False when the check row disagrees.
template <typename Luma>
bool readPattern(const Luma& luma, uint32_t* value) {
    uint32_t bits = 0;
    for (int i = 0; i < kBits; ++i) {
        const int x = kPatternX + i * kSquare + kSquare / 2;
        const bool one = luma(x, kPatternY + kSquare / 2) > 128;
        const bool check = luma(x, kPatternY + kSquare + kSquare / 2) > 128;
        if (one == check) return false;
        if (one) bits |= 1u << i;
    }
    *value = bits;
    return true;
}

struct Samples {
    std::vector<double> latencyMs;
    uint32_t lastValue = 0;
    bool any = false;
    int unreadable = 0;
    std::vector<double> arrivalsMs;  // of the counted pictures, for freezes

    void add(uint32_t value, uint32_t now) {
        if (any && value == lastValue) return;  // the same picture again (a repeat frame)
        any = true;
        lastValue = value;
        latencyMs.push_back(static_cast<double>(static_cast<int32_t>(now - value)));
        arrivalsMs.push_back(static_cast<double>(now));
    }
};

// ---------------------------------------------------------------- roles

volatile sig_atomic_t g_stop = 0;
void onTerm(int) { g_stop = 1; }

// Draws the time at `fps` until terminated; with --motion also a moving
// 960x540 picture (video-like content) every frame.
int runSource(int argc, char** argv) {
    signal(SIGTERM, onTerm);
    const int fps = std::stoi(argValue(argc, argv, "--fps", "60"));
    const bool motion = hasFlag(argc, argv, "--motion");
    Display* display = XOpenDisplay(argValue(argc, argv, "--display").c_str());
    if (display == nullptr) return 2;
    const Window root = DefaultRootWindow(display);
    const int depth = DefaultDepth(display, DefaultScreen(display));
    GC gc = XCreateGC(display, root, 0, nullptr);
    // A desktop-like background: grey with a few panels.
    XSetForeground(display, gc, 0x3c4650);
    XFillRectangle(display, root, gc, 0, 0, kWidth, kHeight);
    XSetForeground(display, gc, 0xe8e8e8);
    XFillRectangle(display, root, gc, 200, 300, 1400, 650);
    XSetForeground(display, gc, 0x2060c0);
    XFillRectangle(display, root, gc, 200, 300, 1400, 40);
    const int patternWidth = kBits * kSquare, patternHeight = 2 * kSquare;
    const Pixmap pattern = XCreatePixmap(display, root, patternWidth, patternHeight, static_cast<unsigned>(depth));
    std::vector<uint32_t> moving(960 * 540);
    XImage* movingImage = XCreateImage(display, DefaultVisual(display, DefaultScreen(display)), 24, ZPixmap, 0,
                                       reinterpret_cast<char*>(moving.data()), 960, 540, 32, 0);
    timespec next{};
    clock_gettime(CLOCK_MONOTONIC, &next);
    const long periodNs = 1000000000L / fps;
    for (uint32_t frame = 0; !g_stop; ++frame) {
        if (motion) {
            for (int y = 0; y < 540; ++y) {
                for (int x = 0; x < 960; ++x) {
                    const uint32_t r = (x + frame * 6) & 0xff, g = (y + frame * 3) & 0xff, b = ((x ^ y) + frame * 5) & 0xff;
                    moving[static_cast<size_t>(y) * 960 + x] = (r << 16) | (g << 8) | b;
                }
            }
            XPutImage(display, root, gc, movingImage, 0, 0, 480, 400, 960, 540);
        }
        // The time last, drawn in one request, so a capture never sees half of it.
        const uint32_t value = nowMs32();
        for (int i = 0; i < kBits; ++i) {
            const bool one = (value >> i) & 1u;
            XSetForeground(display, gc, one ? 0xffffff : 0x000000);
            XFillRectangle(display, pattern, gc, i * kSquare, 0, kSquare, kSquare);
            XSetForeground(display, gc, one ? 0x000000 : 0xffffff);
            XFillRectangle(display, pattern, gc, i * kSquare, kSquare, kSquare, kSquare);
        }
        XCopyArea(display, pattern, root, gc, 0, 0, patternWidth, patternHeight, kPatternX, kPatternY);
        XFlush(display);
        next.tv_nsec += periodNs;
        while (next.tv_nsec >= 1000000000L) {
            next.tv_nsec -= 1000000000L;
            ++next.tv_sec;
        }
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
    }
    movingImage->data = nullptr;
    XDestroyImage(movingImage);
    XFreePixmap(display, pattern);
    XFreeGC(display, gc);
    XCloseDisplay(display);
    return 0;
}

MediaTransport transportArg(const std::string& name) {
    MediaTransport transport = MediaTransport::Udp;
    zv::media::transportFromName(name, &transport);
    return transport;
}

// Sigwait-based stop: the signal is blocked before any thread starts.
void blockTerm(sigset_t* set) {
    sigemptyset(set);
    sigaddset(set, SIGTERM);
    sigaddset(set, SIGINT);
    pthread_sigmask(SIG_BLOCK, set, nullptr);
}

int runSender(int argc, char** argv) {
    sigset_t set;
    blockTerm(&set);
    zv::media::SenderConfig config;
    config.displayName = argValue(argc, argv, "--display");
    config.transport = transportArg(argValue(argc, argv, "--transport", "udp"));
    config.host = "127.0.0.1";
    config.videoPort = static_cast<uint16_t>(std::stoi(argValue(argc, argv, "--port")));
    config.localRtcpPort = static_cast<uint16_t>(std::stoi(argValue(argc, argv, "--rtcp-local", "0")));
    config.remoteRtcpPort = static_cast<uint16_t>(std::stoi(argValue(argc, argv, "--rtcp-remote", "0")));
    config.fps = std::stoi(argValue(argc, argv, "--fps", "30"));
    config.bitrateKbps = std::stoi(argValue(argc, argv, "--bitrate", "8000"));
    config.srtPassphrase = kSrtKey;
    config.latencyMs = std::stoi(argValue(argc, argv, "--latency", "30"));
    config.simulatedLoss = std::stod(argValue(argc, argv, "--loss", "0"));
    config.encoderPreference = zv::media::EncoderPreference::SoftwarePreferred;
    config.allowPlain = hasFlag(argc, argv, "--plain");
    if (!config.allowPlain) {
        config.sendKey = kPcToPanelKey;
        config.receiveKey = kPanelToPcKey;
    }
    zv::media::SenderPipeline sender;
    const std::string error = sender.start(config);
    if (!error.empty()) {
        std::cout << "ERROR " << error << std::endl;
        return 1;
    }
    std::cout << "SENDING " << sender.statistics().encoder << std::endl;
    int signal = 0;
    sigwait(&set, &signal);
    const auto stats = sender.statistics();
    std::cout << "SENT frames=" << stats.framesSent << " bytes=" << stats.bytesSent
              << " rtx=" << stats.retransmittedPackets << std::endl;
    sender.stop();
    return 0;
}

int runReceiver(int argc, char** argv) {
    sigset_t set;
    blockTerm(&set);
    const double warmupS = std::stod(argValue(argc, argv, "--warmup", "3"));
    const double measureS = std::stod(argValue(argc, argv, "--seconds", "10"));
    std::mutex mutex;
    Samples samples;
    std::atomic<bool> measuring{false};
    zv::media::ReceiverCallbacks callbacks;
    callbacks.frame = [&](const QImage& image) {
        const uint32_t now = nowMs32();
        if (!measuring || image.width() != kWidth || image.height() != kHeight) return;
        uint32_t value = 0;
        const auto luma = [&](int x, int y) {
            int sum = 0;
            for (int dy = -2; dy <= 2; dy += 2) {
                const auto* row = reinterpret_cast<const QRgb*>(image.constScanLine(y + dy));
                for (int dx = -2; dx <= 2; dx += 2) sum += qGray(row[x + dx]);
            }
            return sum / 9;
        };
        std::lock_guard<std::mutex> lock(mutex);
        if (readPattern(luma, &value)) {
            samples.add(value, now);
        } else {
            ++samples.unreadable;
        }
    };
    zv::media::ReceiverPipeline receiver(callbacks);
    zv::media::ReceiverConfig config;
    config.transport = transportArg(argValue(argc, argv, "--transport", "udp"));
    config.listenAddress = "127.0.0.1";
    config.senderHost = "127.0.0.1";
    config.senderRtcpPort = static_cast<uint16_t>(std::stoi(argValue(argc, argv, "--sender-rtcp", "0")));
    config.srtPassphrase = kSrtKey;
    config.latencyMs = std::stoi(argValue(argc, argv, "--latency", "30"));
    config.peerAddress = "127.0.0.1";
    config.allowPlain = hasFlag(argc, argv, "--plain");
    if (!config.allowPlain) {
        config.receiveKey = kPcToPanelKey;
        config.sendKey = kPanelToPcKey;
    }
    const std::string error = receiver.start(config);
    if (!error.empty()) {
        std::cout << "ERROR " << error << std::endl;
        return 1;
    }
    const auto ports = receiver.ports();
    std::cout << "PORTS " << ports.video << " " << ports.rtcp << std::endl;

    auto waitSeconds = [&](double seconds) {
        timespec timeout{static_cast<time_t>(seconds), static_cast<long>((seconds - std::floor(seconds)) * 1e9)};
        return sigtimedwait(&set, nullptr, &timeout) < 0;  // true: the time passed, no signal
    };
    if (!waitSeconds(warmupS)) return 0;
    const auto before = receiver.statistics();
    measuring = true;
    std::cout << "MEASURE-START" << std::endl;
    const bool complete = waitSeconds(measureS);
    measuring = false;
    const auto after = receiver.statistics();
    std::cout << "MEASURE-END" << std::endl;
    std::lock_guard<std::mutex> lock(mutex);
    std::cout << "RESULT frames=" << samples.latencyMs.size() << " unreadable=" << samples.unreadable
              << " decoded=" << (after.framesDecoded - before.framesDecoded)
              << " bytes=" << (after.bytesReceived - before.bytesReceived) << " lost=" << after.packetsLost
              << " rtx=" << after.packetsRetransmitted << " delay=" << after.delayMs
              << " gap=" << longestGapMs(samples.arrivalsMs) << " complete=" << complete << std::endl;
    std::ostringstream list;
    for (double value : samples.latencyMs) list << value << " ";
    std::cout << "LATENCIES " << list.str() << std::endl;
    if (complete) {
        int signal = 0;
        sigwait(&set, &signal);
    }
    receiver.stop();
    return 0;
}

// ---------------------------------------------------------------- orchestration

pid_t xvfbPid(const std::string& display) {
    // Xvfb was started by XvfbSession; find it by its display socket owner is
    // overkill: the newest Xvfb child of ours is it.
    std::string out;
    FILE* pipe = popen(("pgrep -n -P " + std::to_string(getpid()) + " Xvfb").c_str(), "r");
    if (pipe != nullptr) {
        char buffer[64] = {};
        if (fgets(buffer, sizeof buffer, pipe) != nullptr) out = buffer;
        pclose(pipe);
    }
    (void)display;
    return out.empty() ? 0 : static_cast<pid_t>(std::stol(out));
}

struct Row {
    std::string name;
    std::string transport;
    int fps = 0;
    size_t frames = 0;
    double deliveredFps = 0;
    double median = NAN, p90 = NAN, minimum = NAN, maximum = NAN;
    double senderCpu = NAN, receiverCpu = NAN, xCpu = NAN;
    double bitrateKbps = NAN;
    double longestGap = NAN;
    double panelDelay = NAN;  // the receiver's own delay estimate (statistics().delayMs)
    int unreadable = 0;
    std::string note;
};

std::string self;
std::string displayName;
pid_t xPid = 0;

// Interrupted: the children started by spawn() and the roles end with us;
// the X server would not.
void onInterrupt(int) {
    if (xPid > 0) kill(xPid, SIGTERM);
    _exit(130);
}

void fillLatency(Row& row, const std::vector<double>& latencies, double seconds) {
    row.frames = latencies.size();
    row.deliveredFps = static_cast<double>(latencies.size()) / seconds;
    row.median = percentile(latencies, 0.5);
    row.p90 = percentile(latencies, 0.9);
    if (!latencies.empty()) {
        row.minimum = *std::min_element(latencies.begin(), latencies.end());
        row.maximum = *std::max_element(latencies.begin(), latencies.end());
    }
}

Row runOurs(const std::string& name, const std::string& transport, int fps, double seconds, bool motion,
            double loss, bool plain = false) {
    Row row;
    row.name = name;
    row.transport = transport + (plain ? " plain" : " SRTP");
    row.fps = fps;
    zvtest::ChildProcess source;
    std::vector<std::string> sourceArgs = {self, "--role", "source", "--display", displayName, "--fps", "60"};
    if (motion) sourceArgs.push_back("--motion");
    source.start(sourceArgs);
    const uint16_t senderRtcp = zv::media::pickFreeUdpPort();
    std::vector<std::string> receiverArgs = {self,          "--role",    "receiver", "--transport", transport,
                                             "--sender-rtcp", std::to_string(senderRtcp), "--seconds",
                                             std::to_string(seconds)};
    if (plain) receiverArgs.push_back("--plain");
    zvtest::ChildProcess receiver(receiverArgs, zvtest::ChildProcess::Output::Capture);
    const std::string ports = receiver.waitForLineContaining("PORTS", std::chrono::seconds(10));
    if (ports.empty()) {
        row.note = "receiver did not start";
        return row;
    }
    std::istringstream portFields(ports.substr(6));
    int videoPort = 0, rtcpPort = 0;
    portFields >> videoPort >> rtcpPort;
    std::vector<std::string> senderArgs = {self, "--role", "sender", "--display", displayName, "--transport",
                                           transport, "--port", std::to_string(videoPort), "--rtcp-local",
                                           std::to_string(senderRtcp), "--rtcp-remote", std::to_string(rtcpPort),
                                           "--fps", std::to_string(fps), "--loss", std::to_string(loss)};
    if (plain) senderArgs.push_back("--plain");
    zvtest::ChildProcess sender(senderArgs, zvtest::ChildProcess::Output::Capture);
    const std::string sending = sender.waitForLine(
        [](const std::string& line) { return line.rfind("SENDING", 0) == 0 || line.rfind("ERROR", 0) == 0; },
        std::chrono::seconds(15));
    if (sending.rfind("SENDING", 0) != 0) {
        row.note = "sender: " + sending;
        return row;
    }
    if (receiver.waitForLineContaining("MEASURE-START", std::chrono::seconds(30)).empty()) {
        row.note = "no measurement";
        return row;
    }
    CpuClock senderCpu, receiverCpu, xCpu;
    senderCpu.start(sender.pid());
    receiverCpu.start(receiver.pid());
    xCpu.start(xPid);
    receiver.waitForLineContaining("MEASURE-END", std::chrono::seconds(static_cast<int>(seconds) + 30));
    row.senderCpu = senderCpu.percent();
    row.receiverCpu = receiverCpu.percent();
    row.xCpu = xCpu.percent();
    const auto result = parseFields(receiver.waitForLineContaining("RESULT", std::chrono::seconds(10)));
    const auto latencies = parseList(receiver.waitForLineContaining("LATENCIES", std::chrono::seconds(10)));
    fillLatency(row, latencies, seconds);
    if (result.count("bytes")) row.bitrateKbps = std::stod(result.at("bytes")) * 8 / 1000 / seconds;
    if (result.count("gap")) row.longestGap = std::stod(result.at("gap"));
    if (result.count("delay")) row.panelDelay = std::stod(result.at("delay"));
    if (result.count("unreadable")) row.unreadable = std::stoi(result.at("unreadable"));
    if (loss > 0 && result.count("lost")) {
        row.note = "lost " + result.at("lost") + " packets after retransmission, " + result.at("rtx") + " recovered";
    }
    return row;
}

// Starts a program that ends with us (also when we are killed); its
// standard output goes to stdoutFd when given.
pid_t spawn(const std::vector<std::string>& argv, int stdoutFd = -1) {
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (stdoutFd >= 0) dup2(stdoutFd, STDOUT_FILENO);
        const int devnull = open("/dev/null", O_WRONLY);
        dup2(devnull, STDERR_FILENO);
        std::vector<char*> args;
        for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        execvp(args[0], args.data());
        _exit(127);
    }
    return pid;
}

void stopProcess(pid_t pid) {
    if (pid <= 0) return;
    kill(pid, SIGTERM);
    const bool ended = zvtest::waitFor([&] { return waitpid(pid, nullptr, WNOHANG) == pid; }, std::chrono::seconds(5));
    if (!ended) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
}

// Plain ffmpeg: x11grab → libx264 ultrafast zerolatency → MPEG-TS/UDP → ffmpeg → grey frames here.
Row runFfmpeg(int fps, double seconds) {
    Row row;
    row.name = "ffmpeg baseline";
    row.transport = "udp (mpegts)";
    row.fps = fps;
    zvtest::ChildProcess source({self, "--role", "source", "--display", displayName, "--fps", "60"});
    const uint16_t port = zv::media::pickFreeUdpPort();
    const std::string url = "udp://127.0.0.1:" + std::to_string(port);
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return row;  // no other child may hold the pipe open
    const pid_t receiverPid = spawn({"ffmpeg", "-nostdin", "-i", url + "?fifo_size=1000000&overrun_nonfatal=1", "-f",
                                     "rawvideo", "-pix_fmt", "gray", "-"},
                                    fds[1]);
    close(fds[1]);
    const pid_t senderPid =
        spawn({"ffmpeg", "-nostdin", "-loglevel", "error", "-f", "x11grab", "-framerate", std::to_string(fps),
               "-video_size", "1920x1080", "-i", displayName, "-c:v", "libx264", "-preset", "ultrafast", "-tune",
               "zerolatency", "-b:v", "8M", "-g", std::to_string(2 * fps), "-f", "mpegts", url});
    const size_t frameBytes = static_cast<size_t>(kWidth) * kHeight;
    std::vector<uint8_t> frame(frameBytes);
    Samples samples;
    auto start = std::chrono::steady_clock::now();
    const double warmup = 3;
    bool measuring = false;
    bool first = true;
    CpuClock senderCpu, receiverCpu, xCpu;
    for (;;) {
        size_t have = 0;
        while (have < frameBytes) {
            pollfd pfd{fds[0], POLLIN, 0};
            if (poll(&pfd, 1, first ? 20000 : 5000) <= 0) break;  // the first picture waits for probing
            const ssize_t n = read(fds[0], frame.data() + have, frameBytes - have);
            if (n <= 0) break;
            have += static_cast<size_t>(n);
        }
        if (have < frameBytes) {
            row.note = "the ffmpeg receiver stopped";
            break;
        }
        const uint32_t now = nowMs32();
        if (first) {
            first = false;
            start = std::chrono::steady_clock::now();
        }
        const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (!measuring && elapsed >= warmup) {
            measuring = true;
            senderCpu.start(senderPid);
            receiverCpu.start(receiverPid);
            xCpu.start(xPid);
        }
        if (measuring) {
            uint32_t value = 0;
            const auto luma = [&](int x, int y) { return frame[static_cast<size_t>(y) * kWidth + x]; };
            if (readPattern(luma, &value)) {
                samples.add(value, now);
            } else {
                ++samples.unreadable;
            }
        }
        if (elapsed >= warmup + seconds) break;
    }
    if (measuring) {
        row.senderCpu = senderCpu.percent();
        row.receiverCpu = receiverCpu.percent();
        row.xCpu = xCpu.percent();
    }
    close(fds[0]);
    stopProcess(receiverPid);
    stopProcess(senderPid);
    fillLatency(row, samples.latencyMs, seconds);
    row.unreadable = samples.unreadable;
    row.longestGap = longestGapMs(samples.arrivalsMs);
    return row;
}

// A still desktop: only the sender's (and the X server's) CPU matters.
Row runStill(double seconds) {
    Row row;
    row.name = "still desktop";
    row.transport = "udp SRTP";
    row.fps = 30;
    const uint16_t senderRtcp = zv::media::pickFreeUdpPort();
    zvtest::ChildProcess receiver({self, "--role", "receiver", "--transport", "udp", "--sender-rtcp",
                                   std::to_string(senderRtcp), "--seconds", std::to_string(seconds)},
                                  zvtest::ChildProcess::Output::Capture);
    const std::string ports = receiver.waitForLineContaining("PORTS", std::chrono::seconds(10));
    std::istringstream portFields(ports.size() > 6 ? ports.substr(6) : "0 0");
    int videoPort = 0, rtcpPort = 0;
    portFields >> videoPort >> rtcpPort;
    zvtest::ChildProcess sender({self, "--role", "sender", "--display", displayName, "--transport", "udp", "--port",
                                 std::to_string(videoPort), "--rtcp-local", std::to_string(senderRtcp),
                                 "--rtcp-remote", std::to_string(rtcpPort), "--fps", "30"},
                                zvtest::ChildProcess::Output::Capture);
    sender.waitForLineContaining("SENDING", std::chrono::seconds(15));
    if (receiver.waitForLineContaining("MEASURE-START", std::chrono::seconds(30)).empty()) {
        row.note = "no measurement";
        return row;
    }
    CpuClock senderCpu, receiverCpu, xCpu;
    senderCpu.start(sender.pid());
    receiverCpu.start(receiver.pid());
    xCpu.start(xPid);
    receiver.waitForLineContaining("MEASURE-END", std::chrono::seconds(static_cast<int>(seconds) + 30));
    row.senderCpu = senderCpu.percent();
    row.receiverCpu = receiverCpu.percent();
    row.xCpu = xCpu.percent();
    const auto result = parseFields(receiver.waitForLineContaining("RESULT", std::chrono::seconds(10)));
    if (result.count("bytes")) row.bitrateKbps = std::stod(result.at("bytes")) * 8 / 1000 / seconds;
    if (result.count("decoded")) {
        row.deliveredFps = std::stod(result.at("decoded")) / seconds;
        row.note = result.at("decoded") + " frames decoded (repeats of the still picture)";
    }
    return row;
}

std::string number(double value, int decimals = 1) {
    if (std::isnan(value)) return "-";
    std::ostringstream out;
    out.setf(std::ios::fixed);
    out.precision(decimals);
    out << value;
    return out.str();
}

std::string jsonNumber(double value) { return std::isnan(value) ? "null" : number(value, 2); }

std::string jsonEscape(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out;
}

int runAll(int argc, char** argv) {
    const double seconds = std::stod(argValue(argc, argv, "--seconds", "10"));
    const bool quick = hasFlag(argc, argv, "--quick");
    const std::string jsonPath = argValue(argc, argv, "--json", "");
    zvtest::XvfbSession xvfb("1920x1080x24");
    if (!xvfb.ready()) {
        std::cerr << "Xvfb with openbox did not start" << std::endl;
        return 1;
    }
    displayName = xvfb.display();
    xPid = xvfbPid(displayName);
    signal(SIGINT, onInterrupt);
    signal(SIGTERM, onInterrupt);

    std::vector<Row> rows;
    auto run = [&](Row row) {
        std::cerr << "  " << row.name << " " << row.transport << " " << row.fps << " fps: median " << number(row.median)
                  << " ms, sender " << number(row.senderCpu) << " %, receiver " << number(row.receiverCpu) << " %"
                  << (row.note.empty() ? "" : " (" + row.note + ")") << std::endl;
        rows.push_back(std::move(row));
    };
    // --only TEXT: just the cases whose name contains TEXT (ffmpeg, loss, still, 1080p60, ...).
    const std::string only = argValue(argc, argv, "--only", "");
    const auto want = [&](const std::string& name) { return only.empty() || name.find(only) != std::string::npos; };
    const std::vector<std::string> transports =
        quick ? std::vector<std::string>{"udp"} : std::vector<std::string>{"udp", "tcp", "srt"};
    for (int fps : {30, 60}) {
        const std::string name = "zelvanor " + std::to_string(kHeight) + "p" + std::to_string(fps);
        for (const auto& transport : transports) {
            if (want(name + " " + transport)) run(runOurs(name, transport, fps, seconds, false, 0));
        }
        if (want("ffmpeg " + std::to_string(fps))) run(runFfmpeg(fps, seconds));
    }
    if (!quick) {
        const std::string moving = "zelvanor 1080p30, moving 960x540 area";
        const std::string lossy = "zelvanor 1080p30, 2 % loss, moving area";
        if (want(moving)) run(runOurs(moving, "udp", 30, seconds, true, 0));
        if (want(lossy)) run(runOurs(lossy, "udp", 30, seconds, true, 0.02));
    }
    if (want("still desktop")) run(runStill(quick ? 10 : 30));

    // What SRTP costs: plain and encrypted UDP at 1080p30 in turns, so
    // that the machine's other load falls on both alike; with the moving
    // area, where 8 Mbit/s go through the cipher.
    const int pairs = std::stoi(argValue(argc, argv, "--pairs", quick ? "1" : "3"));
    const std::string pairName = "zelvanor 1080p30, moving area, SRTP vs plain";
    std::vector<Row> plainRows, srtpRows;
    for (int i = 0; i < pairs && want(pairName); ++i) {
        plainRows.push_back(runOurs(pairName, "udp", 30, seconds, true, 0, true));
        run(plainRows.back());
        srtpRows.push_back(runOurs(pairName, "udp", 30, seconds, true, 0, false));
        run(srtpRows.back());
    }

    std::cout << "\n| case | transport | fps asked | pictures | fps got | median ms | p90 ms | min ms | max ms | "
                 "longest gap ms | panel's delay estimate ms | sender CPU % | receiver CPU % | X server CPU % | kbit/s | note |\n"
              << "|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|\n";
    for (const Row& row : rows) {
        std::cout << "| " << row.name << " | " << row.transport << " | " << row.fps << " | " << row.frames << " | "
                  << number(row.deliveredFps) << " | " << number(row.median) << " | " << number(row.p90) << " | "
                  << number(row.minimum) << " | " << number(row.maximum) << " | " << number(row.longestGap, 0) << " | "
                  << number(row.panelDelay, 0) << " | " << number(row.senderCpu) << " | " << number(row.receiverCpu) << " | " << number(row.xCpu) << " | "
                  << number(row.bitrateKbps, 0) << " | " << row.note
                  << (row.unreadable > 0 ? (row.note.empty() ? "" : "; ") + std::to_string(row.unreadable) +
                                               " pictures unreadable"
                                         : "")
                  << " |\n";
    }
    if (!plainRows.empty()) {
        const auto middle = [](const std::vector<Row>& of, double Row::*field) {
            std::vector<double> values;
            for (const Row& row : of) values.push_back(row.*field);
            return percentile(values, 0.5);
        };
        const double plainLatency = middle(plainRows, &Row::median), srtpLatency = middle(srtpRows, &Row::median);
        std::cout << "\nSRTP against plain UDP, 1080p30 with a moving area, middle of " << plainRows.size()
                  << " runs each: median latency " << number(srtpLatency) << " ms vs " << number(plainLatency)
                  << " ms (" << number(100.0 * (srtpLatency - plainLatency) / plainLatency) << " %), sender CPU "
                  << number(middle(srtpRows, &Row::senderCpu)) << " % vs " << number(middle(plainRows, &Row::senderCpu))
                  << " %, receiver CPU " << number(middle(srtpRows, &Row::receiverCpu)) << " % vs "
                  << number(middle(plainRows, &Row::receiverCpu)) << " %\n";
    }
    if (want("SRTP stage")) {
        // 714 packets a second carry 8 Mbit/s: the stage's CPU share at that rate.
        constexpr double kPacketsPerSecond = 8e6 / 8 / 1400;
        const SrtpStageTiming plain = timeSrtpStage(20000, false), srtp = timeSrtpStage(20000, true);
        std::cout << "\nSRTP stage alone (srtpenc + srtpdec, 1400-byte packets, 20000 each): "
                  << (srtp.error.empty() ? "" : srtp.error + "; ") << "median " << number(srtp.medianUs, 1)
                  << " us per packet vs " << number(plain.medianUs, 1) << " us straight through (p99 "
                  << number(srtp.p99Us, 1) << " vs " << number(plain.p99Us, 1) << "), CPU "
                  << number(srtp.cpuUsPerPacket, 1) << " vs " << number(plain.cpuUsPerPacket, 1)
                  << " us per packet = +"
                  << number((srtp.cpuUsPerPacket - plain.cpuUsPerPacket) * kPacketsPerSecond / 1e4, 2)
                  << " % of a core at 8 Mbit/s\n";
    }
    if (!jsonPath.empty()) {
        std::ofstream json(jsonPath);
        json << "{\n  \"seconds\": " << seconds << ",\n  \"rows\": [\n";
        for (size_t i = 0; i < rows.size(); ++i) {
            const Row& row = rows[i];
            json << "    {\"case\": \"" << jsonEscape(row.name) << "\", \"transport\": \"" << row.transport
                 << "\", \"fps\": " << row.fps << ", \"pictures\": " << row.frames
                 << ", \"deliveredFps\": " << jsonNumber(row.deliveredFps) << ", \"medianMs\": " << jsonNumber(row.median)
                 << ", \"p90Ms\": " << jsonNumber(row.p90) << ", \"minMs\": " << jsonNumber(row.minimum)
                 << ", \"maxMs\": " << jsonNumber(row.maximum) << ", \"longestGapMs\": " << jsonNumber(row.longestGap)
                 << ", \"panelDelayEstimateMs\": " << jsonNumber(row.panelDelay)
                 << ", \"senderCpuPercent\": " << jsonNumber(row.senderCpu)
                 << ", \"receiverCpuPercent\": " << jsonNumber(row.receiverCpu)
                 << ", \"xServerCpuPercent\": " << jsonNumber(row.xCpu) << ", \"bitrateKbps\": "
                 << jsonNumber(row.bitrateKbps) << ", \"unreadable\": " << row.unreadable << ", \"note\": \""
                 << jsonEscape(row.note) << "\"}" << (i + 1 < rows.size() ? "," : "") << "\n";
        }
        json << "  ]\n}\n";
        std::cerr << "JSON written to " << jsonPath << std::endl;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    self = argv[0];
    if (self.find('/') == std::string::npos) self = "/proc/self/exe";
    char resolved[4096] = {};
    const ssize_t n = readlink("/proc/self/exe", resolved, sizeof resolved - 1);
    if (n > 0) self = std::string(resolved, static_cast<size_t>(n));
    const std::string role = argValue(argc, argv, "--role", "");
    if (!role.empty()) prctl(PR_SET_PDEATHSIG, SIGTERM);  // never outlive the benchmark
    if (role == "source") return runSource(argc, argv);
    if (role == "sender") return runSender(argc, argv);
    if (role == "receiver") return runReceiver(argc, argv);
    return runAll(argc, argv);
}
