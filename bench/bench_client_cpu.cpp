// The desktop client's own CPU while it casts 1080p30 desktop content. The
// real main window (offscreen widgets) casts a private 1920x1080 X server, on
// which a rectangle moves 30 times a second, to a real headless receiver on a
// second test host. Every thread of this process is sampled from /proc and
// put in one of three groups: the library's capture and encoding (the
// zv-capture thread and GStreamer's streaming threads), the bench's own
// painter, and the rest: the client's own cost (GUI thread, watchers, the
// library's session thread and helpers).
//
//   bench_client_cpu [--seconds S]    (default 20; needs root)
#include <QApplication>
#include <QLineEdit>
#include <QPushButton>
#include <QtTest/QtTest>

#include <X11/Xlib.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>

#include "BenchSupport.h"
#include "ColourBlocks.h"
#include "NetnsPair.h"
#include "Process.h"
#include "StatusLines.h"
#include "XvfbSession.h"
#include "ui/ContentWidget/ScreenPage.h"
#include "ui/OrvixUpgrade.h"

using namespace std::chrono_literals;
using qorquicomponents::OrvixUpgrade;
using qorquicomponents::ScreenPage;

namespace {

struct ThreadTicks {
    std::string name;
    double ticks = 0;
};

// utime + stime of every thread of this process, by thread id.
std::map<int, ThreadTicks> sampleThreads() {
    std::map<int, ThreadTicks> threads;
    const QDir tasks(QStringLiteral("/proc/self/task"));
    for (const QString& tid : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        std::ifstream stat(("/proc/self/task/" + tid + "/stat").toStdString());
        std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
        const auto open = text.find('(');
        const auto close = text.rfind(')');
        if (open == std::string::npos || close == std::string::npos) continue;
        ThreadTicks entry;
        entry.name = text.substr(open + 1, close - open - 1);
        std::istringstream fields(text.substr(close + 2));
        std::string field;
        double utime = 0, stime = 0;
        for (int i = 3; fields >> field; ++i) {
            if (i == 14) utime = std::stod(field);
            if (i == 15) {
                stime = std::stod(field);
                break;
            }
        }
        entry.ticks = utime + stime;
        threads[tid.toInt()] = entry;
    }
    return threads;
}

enum class Group { Media, Painter, Client };

Group groupOf(const std::string& name) {
    if (name == "zv-bench-paint") return Group::Painter;
    // GStreamer names its streaming threads "element:pad".
    if (name == "zv-capture" || name.find(':') != std::string::npos) return Group::Media;
    return Group::Client;
}

// Moves a rectangle over the blocks at 30 frames a second, on its own connection.
class Painter {
public:
    explicit Painter(const std::string& display) : m_display(display) {}
    ~Painter() { stop(); }
    void start() {
        m_thread = std::thread([this] { run(); });
    }
    void stop() {
        m_running = false;
        if (m_thread.joinable()) m_thread.join();
    }

private:
    void run() {
        pthread_setname_np(pthread_self(), "zv-bench-paint");
        Display* display = XOpenDisplay(m_display.c_str());
        if (display == nullptr) return;
        const int screen = DefaultScreen(display);
        const int width = DisplayWidth(display, screen), height = DisplayHeight(display, screen);
        const Window root = RootWindow(display, screen);
        GC gc = XCreateGC(display, root, 0, nullptr);
        constexpr int kW = 480, kH = 270;
        auto next = std::chrono::steady_clock::now();
        for (int frame = 0; m_running; ++frame) {
            const int x = (frame * 16) % (width - kW), y = (frame * 9) % (height - kH);
            XSetForeground(display, gc, 0x202020u + static_cast<unsigned>(frame % 200) * 0x010101u);
            XFillRectangle(display, root, gc, x, y, kW, kH);
            XSync(display, False);
            next += std::chrono::milliseconds(33);
            std::this_thread::sleep_until(next);
        }
        XFreeGC(display, gc);
        XCloseDisplay(display);
    }

    std::string m_display;
    std::atomic<bool> m_running{true};
    std::thread m_thread;
};

int fail(const std::string& why) {
    std::fprintf(stderr, "bench_client_cpu: %s\n", why.c_str());
    return 1;
}

// The receiver's latest count of decoded frames (its stats come once a second).
qint64 decodedFrames(zvtest::ChildProcess& receiver) {
    std::string latest = receiver.waitForLine(zvtest::statusEvent("cast-stats"), 10s);
    for (std::string line; !(line = receiver.waitForLine(zvtest::statusEvent("cast-stats"), 100ms)).empty();)
        latest = line;
    return static_cast<qint64>(zvtest::jsonLine(latest).value(QLatin1String("framesDecoded")).toDouble());
}

}  // namespace

int main(int argc, char* argv[]) {
    const int seconds = std::max(5, std::atoi(zvbench::argValue(argc, argv, "--seconds", "20").c_str()));
    if (geteuid() != 0) return fail("needs root (network namespaces for the two hosts)");
    char folder[] = "/tmp/zv-bench-cpu-XXXXXX";
    if (mkdtemp(folder) == nullptr) return fail("no temporary folder");
    const std::string root = folder;
    const std::string home = root + "/pc";
    std::system(("mkdir -p " + home + " " + root + "/panel").c_str());
    setenv("HOME", home.c_str(), 1);
    setenv("XDG_CONFIG_HOME", (home + "/.config").c_str(), 1);
    setenv("PULSE_SERVER", ("unix:" + root + "/no-sound").c_str(), 1);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + root + "/no-bus").c_str(), 1);

    int result = 0;
    {
        zvtest::XvfbSession x("1920x1080x24");
        if (!x.ready()) return fail("Xvfb did not start");
        zvtest::paintBlocks(x.connection());
        zvtest::NetnsPair net;
        if (!net.ready()) return fail("no test hosts: " + net.error());
        if (!zvtest::NetnsPair::enter(net.b)) return fail("cannot enter the client's host");
        zvtest::ChildProcess receiver(
            zvtest::NetnsPair::in(net.a, {"env", "HOME=" + root + "/panel",
                                          "XDG_CONFIG_HOME=" + root + "/panel/.config",
                                          zvtest::builtProgram("zelvanor-receiver"), "--headless", "--no-discovery",
                                          "--name", "Bench"}),
            zvtest::ChildProcess::Output::Capture, zvtest::ChildProcess::Input::Pipe);
        const QJsonObject ready = zvtest::jsonLine(receiver.waitForLine(zvtest::statusEvent("ready"), 20s));
        const QString code = ready.value(QLatin1String("code")).toString();
        if (code.isEmpty()) return fail("the receiver did not start");

        setenv("QT_QPA_PLATFORM", "offscreen", 1);
        QApplication app(argc, argv);
        auto window = std::make_unique<OrvixUpgrade>(nullptr);
        window->show();
        window->findChild<QPushButton*>(QStringLiteral("screenTitleBtn"))->click();
        ScreenPage* page = window->getScreenPage();
        page->getScreenCodeEdit()->setText(code);
        page->getStartScreenBtn()->click();
        if (!QTest::qWaitFor([&] { return window->getCurrentStatus() == OrvixUpgrade::ScreeningStatus; }, 30000))
            return fail("the cast did not start");
        if (receiver.waitForLine(zvtest::statusEvent("cast-started"), 10s).empty())
            return fail("the receiver saw no cast");

        Painter painter(x.display());
        painter.start();
        QTest::qWait(3000);  // the encoder settles on moving content
        const qint64 framesBefore = decodedFrames(receiver);
        zvbench::CpuClock receiverCpu;
        receiverCpu.start(receiver.pid());
        const auto before = sampleThreads();
        const auto startedAt = std::chrono::steady_clock::now();
        QTest::qWait(seconds * 1000);  // the GUI thread keeps running its event loop meanwhile
        const auto after = sampleThreads();
        const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - startedAt).count();
        const double receiverPercent = receiverCpu.percent();
        const qint64 framesAfter = decodedFrames(receiver);
        painter.stop();

        const double tick = static_cast<double>(sysconf(_SC_CLK_TCK));
        std::map<Group, double> groups;
        std::map<std::string, double> clientThreads;
        for (const auto& [tid, now] : after) {
            const auto was = before.find(tid);
            const double used = now.ticks - (was != before.end() ? was->second.ticks : 0);
            const double percent = used / tick / wall * 100.0;
            const Group group = groupOf(now.name);
            groups[group] += percent;
            if (group == Group::Client)
                clientThreads[tid == getpid() ? std::string("GUI (main)") : now.name] += percent;
        }
        std::printf("\nClient CPU while casting 1920x1080 at 30 fps with a moving 480x270 area (%d s)\n\n", seconds);
        std::printf("| part | %% of one core |\n|---|---|\n");
        std::printf("| library capture + encoding (zv-capture, GStreamer threads) | %.1f |\n", groups[Group::Media]);
        std::printf("| **client's own** (every other thread) | **%.2f** |\n", groups[Group::Client]);
        for (const auto& [name, percent] : clientThreads)
            if (percent >= 0.05) std::printf("| &nbsp;&nbsp;%s | %.2f |\n", name.c_str(), percent);
        std::printf("| receiver process (decoding, headless) | %.1f |\n", receiverPercent);
        std::printf("| frames decoded by the receiver per second | %.1f |\n",
                    static_cast<double>(framesAfter - framesBefore) / wall);
        std::printf("\ntarget: client's own < 3 %% of a core -> %s\n", groups[Group::Client] < 3.0 ? "met" : "MISSED");

        page->stopButton()->click();
        if (!QTest::qWaitFor([&] { return window->getCurrentStatus() != OrvixUpgrade::ScreeningStatus; }, 20000))
            std::fprintf(stderr, "bench_client_cpu: the cast did not stop\n");
        window.reset();
        result = groups[Group::Client] < 3.0 ? 0 : 2;
    }
    std::system(("rm -rf " + root).c_str());
    return result;
}
