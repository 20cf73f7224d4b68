// Soak: memory (RSS), threads and open file descriptors of the sender
// (zelvanor-cli cast) and the receiver (headless) over a long 1080p30 cast of
// a screen on which an area moves 30 times a second, then over many
// log-in/cast/stop cycles against the same receiver. Two test hosts
// (network namespaces); needs root.
//
//   bench_soak [--minutes M] [--every-seconds S] [--cycles N] [--cycle-seconds C]
//   defaults: 60 minutes sampled every 300 s, then 200 cycles of 1 s casts.
#include <QJsonObject>

#include <X11/Xlib.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "BenchSupport.h"
#include "ColourBlocks.h"
#include "NetnsPair.h"
#include "Process.h"
#include "StatusLines.h"
#include "XvfbSession.h"

using namespace std::chrono_literals;
using zvtest::ChildProcess;

namespace {

struct Usage {
    long rssKiB = -1;
    long threads = -1;
    long fds = -1;
};

Usage usageOf(pid_t pid) {
    Usage usage;
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        std::istringstream fields(line);
        std::string key;
        fields >> key;
        if (key == "VmRSS:") fields >> usage.rssKiB;
        if (key == "Threads:") fields >> usage.threads;
    }
    const std::string fdDir = "/proc/" + std::to_string(pid) + "/fd";
    const std::string command = "ls " + fdDir + " 2>/dev/null | wc -l";
    if (FILE* pipe = popen(command.c_str(), "r")) {
        long count = -1;
        if (fscanf(pipe, "%ld", &count) == 1) usage.fds = count;
        pclose(pipe);
    }
    return usage;
}

void printRow(const std::string& when, const Usage& sender, const Usage& receiver) {
    std::printf("| %s | %.1f | %ld | %ld | %.1f | %ld | %ld |\n", when.c_str(), sender.rssKiB / 1024.0, sender.threads,
                sender.fds, receiver.rssKiB / 1024.0, receiver.threads, receiver.fds);
    std::fflush(stdout);
}

void printHeader(const char* first) {
    std::printf("| %s | sender RSS MiB | sender threads | sender fds | receiver RSS MiB | receiver threads | "
                "receiver fds |\n|---|---|---|---|---|---|---|\n",
                first);
}

// Moves an area over the colour blocks at 30 frames a second.
class Painter {
public:
    explicit Painter(std::string display) : m_display(std::move(display)) {
        m_thread = std::thread([this] { run(); });
    }
    ~Painter() {
        m_running = false;
        m_thread.join();
    }

private:
    void run() {
        pthread_setname_np(pthread_self(), "zv-bench-paint");
        Display* display = XOpenDisplay(m_display.c_str());
        if (display == nullptr) return;
        const int screen = DefaultScreen(display);
        const int width = DisplayWidth(display, screen), height = DisplayHeight(display, screen);
        GC gc = XCreateGC(display, RootWindow(display, screen), 0, nullptr);
        auto next = std::chrono::steady_clock::now();
        for (int frame = 0; m_running; ++frame) {
            XSetForeground(display, gc, 0x303030u + static_cast<unsigned>(frame % 160) * 0x010101u);
            XFillRectangle(display, RootWindow(display, screen), gc, (frame * 16) % (width - 480),
                           (frame * 9) % (height - 270), 480, 270);
            XSync(display, False);
            next += 33ms;
            std::this_thread::sleep_until(next);
        }
        XFreeGC(display, gc);
        XCloseDisplay(display);
    }
    std::string m_display;
    std::atomic<bool> m_running{true};
    std::thread m_thread;
};

}  // namespace

int main(int argc, char** argv) {
    const double minutes = std::atof(zvbench::argValue(argc, argv, "--minutes", "60").c_str());
    const int every = std::max(1, std::atoi(zvbench::argValue(argc, argv, "--every-seconds", "300").c_str()));
    const int cycles = std::max(0, std::atoi(zvbench::argValue(argc, argv, "--cycles", "200").c_str()));
    const int cycleSeconds = std::max(1, std::atoi(zvbench::argValue(argc, argv, "--cycle-seconds", "1").c_str()));
    if (geteuid() != 0) {
        std::fprintf(stderr, "bench_soak: needs root (network namespaces)\n");
        return 1;
    }
    char folder[] = "/tmp/zv-soak-XXXXXX";
    if (mkdtemp(folder) == nullptr) return 1;
    const std::string root = folder;
    zvtest::XvfbSession x("1920x1080x24");
    zvtest::NetnsPair net;
    if (!x.ready() || !net.ready()) {
        std::fprintf(stderr, "bench_soak: no X server or test hosts (%s)\n", net.error().c_str());
        return 1;
    }
    zvtest::paintBlocks(x.connection());
    auto on = [&](const std::string& ns, const std::string& home, std::vector<std::string> argv) {
        const std::string dir = root + "/" + home;
        std::system(("mkdir -p " + dir).c_str());
        argv.insert(argv.begin(), {"env", "HOME=" + dir, "XDG_CONFIG_HOME=" + dir + "/.config",
                                   "DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + dir + "/no-bus", "DISPLAY=" + x.display(),
                                   "PULSE_SERVER=unix:" + dir + "/no-sound"});
        return zvtest::NetnsPair::in(ns, argv);
    };
    ChildProcess receiver(on(net.a, "panel",
                             {zvtest::builtProgram("zelvanor-receiver"), "--headless", "--no-discovery", "--access",
                              "open", "--max-clients", "4"}),
                          ChildProcess::Output::Capture, ChildProcess::Input::Pipe);
    if (receiver.waitForLine(zvtest::statusEvent("ready"), 20s).empty()) {
        std::fprintf(stderr, "bench_soak: the receiver did not start\n");
        return 1;
    }
    Painter painter(x.display());
    // Reads what the programs print until the given time: a pipe nobody reads
    // fills up in minutes and blocks the writer (the receiver then misses
    // its heartbeats, which would end the cast, not measure it).
    const auto never = [](const std::string&) { return false; };
    auto readOutputUntil = [&](std::chrono::steady_clock::time_point until, ChildProcess& sender) {
        while (std::chrono::steady_clock::now() < until) {
            sender.waitForLine(never, 100ms);
            receiver.waitForLine(never, 100ms);
        }
    };

    // One long cast.
    const int castSeconds = static_cast<int>(minutes * 60);
    std::printf("\nSoak: one 1920x1080 cast at 30 fps with a moving 480x270 area for %.1f min, sampled every %d s\n\n",
                minutes, every);
    printHeader("minute");
    {
        ChildProcess sender(on(net.b, "pc",
                               {zvtest::builtProgram("zelvanor-cli"), "cast", "--address", net.addressA, "--seconds",
                                std::to_string(castSeconds + 30)}),
                            ChildProcess::Output::Capture, ChildProcess::Input::Pipe);
        if (sender.waitForLine(zvtest::statusEvent("cast", "result", "started"), 20s).empty()) {
            std::fprintf(stderr, "bench_soak: the cast did not start\n");
            return 1;
        }
        const auto start = std::chrono::steady_clock::now();
        for (int at = 0;; at += every) {
            readOutputUntil(start + std::chrono::seconds(at), sender);
            char when[32];
            std::snprintf(when, sizeof when, "%.1f", at / 60.0);
            printRow(when, usageOf(sender.pid()), usageOf(receiver.pid()));
            if (at + every > castSeconds) break;
        }
        sender.writeLine("stop");
        sender.waitFinished(20s);
    }

    // Many short sessions against the same receiver: the sender is one
    // process, so what it keeps per session would show.
    if (cycles > 0) {
        std::printf("\nSoak: %d cycles of log-in, %d s cast, stop, log-out (one sender process)\n\n", cycles,
                    cycleSeconds);
        printHeader("after cycle");
        ChildProcess sender(on(net.b, "pc-cycles",
                               {zvtest::builtProgram("zelvanor-cli"), "cast", "--address", net.addressA, "--seconds",
                                std::to_string(cycleSeconds), "--cycles", std::to_string(cycles + 1)}),
                            ChildProcess::Output::Capture, ChildProcess::Input::Pipe);
        // One cycle more than sampled: the sender exits after its last.
        std::set<int> samples = {1, 2, 5, 10, 25, 50, 100, 150, cycles};
        for (int n = 1; n <= cycles; ++n) {
            const std::string line = sender.waitForLine(
                [n](const std::string& text) {
                    const QJsonObject o = zvtest::jsonLine(text);
                    return o.value(QLatin1String("event")) == QLatin1String("cycle") &&
                           o.value(QLatin1String("n")).toInt() == n;
                },
                60s);
            if (line.empty()) {
                std::fprintf(stderr, "bench_soak: cycle %d did not finish\n", n);
                return 1;
            }
            receiver.waitForLine(never, 20ms);
            if (samples.count(n)) printRow(std::to_string(n), usageOf(sender.pid()), usageOf(receiver.pid()));
        }
        sender.waitFinished(20s);
    }
    receiver.writeLine("{\"cmd\":\"quit\"}");
    receiver.waitFinished(10s);
    std::system(("rm -rf " + root).c_str());
    return 0;
}
