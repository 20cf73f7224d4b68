// Reverse screen end to end: the real receiver on one test host shows known
// colour blocks on its own X server and streams that screen; zelvanor-cli on
// the other test host, with an X server of its own, shows it through the
// library's player. The picture is read back from the PC's window and from
// the player's JPEG; clicks, home and back are checked on the panel's screen.
#include <gtest/gtest.h>

#include <QColor>
#include <QImage>
#include <QJsonObject>

#include <X11/Xatom.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>

#include <chrono>
#include <memory>
#include <string>

#include "ColourBlocks.h"
#include "NetnsPair.h"
#include "Process.h"
#include "StatusLines.h"
#include "XvfbSession.h"

namespace {

using namespace std::chrono_literals;
using zvtest::ChildProcess;
using zvtest::jsonLine;
using zvtest::kBlocks;
using zvtest::statusEvent;
constexpr auto near = zvtest::nearColour;

// The panel's screen: 1920x1080, the PC's window 960x540 (half in each direction).
constexpr int kPanelW = 1920, kPanelH = 1080, kWindowW = 960, kWindowH = 540;

QColor pixelOf(Display* display, Window window, int x, int y) {
    XImage* image = XGetImage(display, window, x, y, 1, 1, AllPlanes, ZPixmap);
    if (image == nullptr) return QColor();
    const unsigned long p = XGetPixel(image, 0, 0);
    XDestroyImage(image);
    return QColor(int((p >> 16) & 0xFF), int((p >> 8) & 0xFF), int(p & 0xFF));
}

// Block i's centre in an area of w x h.
QPoint blockCentre(int i, int w, int h) { return QPoint((i % 2) * w / 2 + w / 4, (i / 2) * h / 2 + h / 4); }

void paintBlocks(Display* display, const QColor* colours) {
    const int screen = DefaultScreen(display);
    const Window root = RootWindow(display, screen);
    GC gc = XCreateGC(display, root, 0, nullptr);
    for (int i = 0; i < 4; ++i) {
        XSetForeground(display, gc, colours[i].rgb() & 0xFFFFFF);
        XFillRectangle(display, root, gc, (i % 2) * kPanelW / 2, (i / 2) * kPanelH / 2, kPanelW / 2, kPanelH / 2);
    }
    XFreeGC(display, gc);
    XSync(display, False);
}

class ReverseNetns : public ::testing::Test {
protected:
    void SetUp() override {
        if (!net.ready()) GTEST_SKIP() << "no test hosts: " << net.error();
        ASSERT_TRUE(panelX.ready() && pcX.ready()) << "Xvfb did not start";
        char folder[] = "/tmp/zv-reverse-XXXXXX";
        ASSERT_NE(mkdtemp(folder), nullptr);
        root = folder;
        paintBlocks(panelX.connection(), kBlocks);
    }
    void TearDown() override {
        if (viewer) viewer->stop();
        if (receiver) receiver->stop();
        if (!root.empty()) std::system(("rm -rf " + root).c_str());
    }

    std::vector<std::string> on(const std::string& ns, const std::string& home, const std::string& display,
                                std::vector<std::string> argv) {
        const std::string dir = root + "/" + home;
        std::system(("mkdir -p " + dir).c_str());
        argv.insert(argv.begin(), {"env", "HOME=" + dir, "XDG_CONFIG_HOME=" + dir + "/.config",
                                   "DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + dir + "/no-bus", "DISPLAY=" + display,
                                   "QT_QPA_PLATFORM=xcb", "PULSE_SERVER=unix:" + dir + "/no-sound"});
        return zvtest::NetnsPair::in(ns, argv);
    }

    void startReceiver(bool headless = true, const std::string& access = "open", bool viewOnly = false) {
        std::vector<std::string> argv = {zvtest::builtProgram("zelvanor-receiver"), "--no-discovery", "--access",
                                         access, headless ? "--headless" : "--windowed"};
        if (viewOnly) argv.push_back("--view-only");
        receiver = std::make_unique<ChildProcess>(on(net.a, "panel", panelX.display(), argv),
                                                  ChildProcess::Output::Capture, ChildProcess::Input::Pipe);
        ASSERT_FALSE(receiver->waitForLine(statusEvent("ready"), 20s).empty());
    }

    std::unique_ptr<ChildProcess> launchViewer(const std::string& home) {
        const std::vector<std::string> argv = {zvtest::builtProgram("zelvanor-cli"), "reverse", "--address",
                                               net.addressA, "--seconds", "90"};
        return std::make_unique<ChildProcess>(on(net.b, home, pcX.display(), argv), ChildProcess::Output::Capture,
                                              ChildProcess::Input::Pipe);
    }

    void startViewer(const std::vector<std::string>& extra = {}) {
        std::vector<std::string> argv = {zvtest::builtProgram("zelvanor-cli"), "reverse", "--address", net.addressA,
                                         "--seconds", "90", "--window-size",
                                         std::to_string(kWindowW) + "x" + std::to_string(kWindowH)};
        argv.insert(argv.end(), extra.begin(), extra.end());
        viewer = std::make_unique<ChildProcess>(on(net.b, "pc", pcX.display(), argv), ChildProcess::Output::Capture,
                                                ChildProcess::Input::Pipe);
        const QJsonObject window = jsonLine(viewer->waitForLine(statusEvent("window"), 20s));
        playerWindow = static_cast<Window>(window.value("id").toDouble());
        ASSERT_FALSE(viewer->waitForLine(statusEvent("reverse", "result", "started"), 20s).empty());
        ASSERT_FALSE(receiver->waitForLine(statusEvent("share-started"), 5s).empty());
        ASSERT_FALSE(viewer->waitForLine(statusEvent("first-picture", "width", kPanelW), 20s).empty());
    }

    // Whether the PC's player window shows these four colours where the blocks are.
    bool windowShows(const QColor* colours) {
        for (int i = 0; i < 4; ++i) {
            const QPoint c = blockCentre(i, kWindowW, kWindowH);
            if (!near(pixelOf(pcX.connection(), playerWindow, c.x(), c.y()), colours[i])) return false;
        }
        return true;
    }

    QImage snapshot() {
        const std::string path = root + "/MirrorPhoto_" + std::to_string(++snapshots) + ".jpg";
        viewer->writeLine("snapshot " + path);
        const QJsonObject answer = jsonLine(viewer->waitForLine(statusEvent("snapshot"), 10s));
        return answer.value("saved").toBool() ? QImage(QString::fromStdString(path), "JPG") : QImage();
    }

    // A window on the panel's screen that records what reaches it.
    Window probeWindow(int x, int y, int w, int h) {
        Display* d = panelX.connection();
        const Window w0 = XCreateSimpleWindow(d, DefaultRootWindow(d), x, y, static_cast<unsigned>(w),
                                              static_cast<unsigned>(h), 0, 0, WhitePixel(d, DefaultScreen(d)));
        XSizeHints hints{};
        hints.flags = USPosition | PPosition;
        hints.x = x;
        hints.y = y;
        XSetWMNormalHints(d, w0, &hints);
        XSelectInput(d, w0, ButtonPressMask | ButtonReleaseMask | KeyPressMask | StructureNotifyMask);
        XMapRaised(d, w0);
        XSync(d, False);
        EXPECT_TRUE(nextEvent(w0, MapNotify, 5s).type == MapNotify);
        return w0;
    }
    XEvent nextEvent(Window window, int type, std::chrono::milliseconds timeout) {
        Display* d = panelX.connection();
        XEvent found{};
        zvtest::waitFor(
            [&] {
                while (XPending(d) > 0) {
                    XEvent event;
                    XNextEvent(d, &event);
                    if (event.xany.window == window && event.type == type) {
                        found = event;
                        return true;
                    }
                }
                return false;
            },
            timeout);
        return found;
    }

    zvtest::NetnsPair net;
    zvtest::XvfbSession panelX{"1920x1080x24"};
    zvtest::XvfbSession pcX{"1280x720x24"};
    std::string root;
    std::unique_ptr<ChildProcess> receiver, viewer;
    Window playerWindow = 0;
    int snapshots = 0;
};

TEST_F(ReverseNetns, ThePanelsScreenIsShownInThePcsWindowAndSnapshotsAreJpegs) {
    startReceiver();
    startViewer();
    // Drawn by the sink into the window, scaled to it.
    EXPECT_TRUE(zvtest::waitFor([&] { return windowShows(kBlocks); }, 10s))
        << "the window shows " << pixelOf(pcX.connection(), playerWindow, 240, 135).name().toStdString();

    // The stream's figures reach the PC once a second, from the receiving pipeline.
    const QJsonObject figures = jsonLine(viewer->waitForLine(
        [](const std::string& line) {
            const QJsonObject o = jsonLine(line);
            return o.value("type").toInt() == 32806 && o.value("bitrateKbps").toInt() > 0;
        },
        10s));
    EXPECT_FALSE(figures.isEmpty()) << "no statistics with a bit rate";
    EXPECT_GT(figures.value("delayMs").toInt(), 0);

    const QImage picture = snapshot();
    ASSERT_FALSE(picture.isNull()) << "the snapshot is no readable JPEG";
    EXPECT_EQ(picture.size(), QSize(kPanelW, kPanelH));  // the picture itself, not the window
    for (int i = 0; i < 4; ++i) {
        const QPoint c = blockCentre(i, picture.width(), picture.height());
        EXPECT_TRUE(near(picture.pixelColor(c), kBlocks[i])) << "block " << i << ": " << picture.pixelColor(c).name().toStdString();
    }

    // A damaged picture: the player reports it, the PC asks for a key frame,
    // the panel sends one and the picture follows the screen again.
    viewer->writeLine("corrupt");
    EXPECT_FALSE(viewer->waitForLine(statusEvent("decode-error"), 5s).empty());
    EXPECT_FALSE(receiver->waitForLine(statusEvent("share-key-frame"), 5s).empty()) << "no key frame asked for";
    const QColor swapped[4] = {kBlocks[3], kBlocks[2], kBlocks[1], kBlocks[0]};
    paintBlocks(panelX.connection(), swapped);
    EXPECT_TRUE(zvtest::waitFor([&] { return windowShows(swapped); }, 10s)) << "the picture did not recover";

    // The panel ends it: the PC is told the reverse screen ended.
    receiver->writeLine("{\"cmd\":\"stop-share\"}");
    EXPECT_FALSE(viewer->waitForLine(statusEvent("exception", "type", 32827), 10s).empty());
    EXPECT_TRUE(viewer->waitFinished(15s));
}

TEST_F(ReverseNetns, ClicksReachThePanelOnlyWithControlAndHomeAndBackAct) {
    startReceiver(/*headless=*/false);
    const Window probe = probeWindow(kPanelW / 2 - 100, kPanelH / 2 - 100, 200, 200);
    startViewer();

    // Without control the click is refused by the panel and nothing is pressed.
    viewer->writeLine("click " + std::to_string(kWindowW / 2) + "," + std::to_string(kWindowH / 2));
    EXPECT_FALSE(viewer->waitForLine(statusEvent("exception", "type", 32808), 10s).empty()) << "no 'control invalid'";
    EXPECT_NE(nextEvent(probe, ButtonPress, 500ms).type, ButtonPress) << "a click went through without control";

    viewer->writeLine("control on");
    const QJsonObject granted = jsonLine(viewer->waitForLine(statusEvent("exception", "type", 32784), 10s));
    ASSERT_EQ(granted.value("result").toInt(), 1);
    viewer->writeLine("click " + std::to_string(kWindowW / 2) + "," + std::to_string(kWindowH / 2));
    const XEvent press = nextEvent(probe, ButtonPress, 10s);
    ASSERT_EQ(press.type, ButtonPress) << "the click did not reach the panel";
    EXPECT_EQ(press.xbutton.button, 1u);
    EXPECT_NEAR(press.xbutton.x_root, kPanelW / 2, 2);
    EXPECT_NEAR(press.xbutton.y_root, kPanelH / 2, 2);
    EXPECT_EQ(nextEvent(probe, ButtonRelease, 5s).type, ButtonRelease);

    // back: Alt+Left to the focused window.
    XSetInputFocus(panelX.connection(), probe, RevertToParent, CurrentTime);
    XSync(panelX.connection(), False);
    viewer->writeLine("back");
    XEvent key = nextEvent(probe, KeyPress, 10s);
    ASSERT_EQ(key.type, KeyPress) << "back sent no key";
    EXPECT_EQ(XLookupKeysym(&key.xkey, 0), static_cast<KeySym>(XK_Alt_L));
    key = nextEvent(probe, KeyPress, 5s);
    EXPECT_EQ(XLookupKeysym(&key.xkey, 0), static_cast<KeySym>(XK_Left));
    EXPECT_TRUE(key.xkey.state & Mod1Mask) << "Left without Alt";

    // home: the receiver's idle screen comes on top of the probe.
    viewer->writeLine("home");
    EXPECT_FALSE(receiver->waitForLine(statusEvent("share-home", "shown", true), 10s).empty());
    const Window idle = panelX.windowOfPid(receiver->pid());
    EXPECT_TRUE(zvtest::waitFor(
        [&] {
            Atom type;
            int format;
            unsigned long count = 0, after = 0;
            unsigned char* data = nullptr;
            Display* d = panelX.connection();
            XGetWindowProperty(d, DefaultRootWindow(d), XInternAtom(d, "_NET_CLIENT_LIST_STACKING", False), 0, 4096,
                               False, XA_WINDOW, &type, &format, &count, &after, &data);
            const bool top = data != nullptr && count > 0 && reinterpret_cast<Window*>(data)[count - 1] == idle;
            if (data != nullptr) XFree(data);
            return idle != 0 && top;
        },
        10s))
        << "the idle screen is not on top";
}

TEST_F(ReverseNetns, ThePanelsUserDecidesUnderTheApproveRuleAndOneScreenIsSharedAtATime) {
    startReceiver(/*headless=*/true, "approve");
    // Denied: the PC is told and gives up.
    auto denied = launchViewer("pc-denied");
    ASSERT_FALSE(denied->waitForLine(statusEvent("reverse", "result", "waiting"), 20s).empty());
    QJsonObject asked = jsonLine(receiver->waitForLine(statusEvent("approval-needed", "kind", "share"), 10s));
    receiver->writeLine("{\"cmd\":\"approve\",\"client\":" + std::to_string(asked.value("client").toInt()) +
                        ",\"approved\":false}");
    EXPECT_FALSE(denied->waitForLine(statusEvent("exception", "type", 32811), 10s).empty());
    EXPECT_TRUE(denied->waitFinished(15s));

    // Allowed: the picture follows.
    auto viewer1 = launchViewer("pc-allowed");
    ASSERT_FALSE(viewer1->waitForLine(statusEvent("reverse", "result", "waiting"), 20s).empty());
    asked = jsonLine(receiver->waitForLine(statusEvent("approval-needed", "kind", "share"), 10s));
    receiver->writeLine("{\"cmd\":\"approve\",\"client\":" + std::to_string(asked.value("client").toInt()) + "}");
    EXPECT_FALSE(viewer1->waitForLine(statusEvent("exception", "type", 32810), 10s).empty());
    EXPECT_FALSE(viewer1->waitForLine(statusEvent("first-picture"), 20s).empty());

    // Another PC meanwhile is refused with "race fail.".
    auto second = launchViewer("pc-second");
    const QJsonObject refused = jsonLine(second->waitForLine(statusEvent("exception", "type", 32797), 20s));
    EXPECT_EQ(refused.value("reason").toString(), "race fail.");
    EXPECT_FALSE(second->waitForLine(statusEvent("reverse", "result", "failed"), 10s).empty());
    viewer1->writeLine("stop");
    EXPECT_TRUE(viewer1->waitFinished(15s));
}

TEST_F(ReverseNetns, AViewOnlyPanelRefusesControlAsNonsupportAndIgnoresClicks) {
    startReceiver(/*headless=*/true, "open", /*viewOnly=*/true);
    startViewer();
    viewer->writeLine("control on");
    const QJsonObject answer = jsonLine(viewer->waitForLine(statusEvent("exception", "type", 32784), 10s));
    EXPECT_EQ(answer.value("result").toInt(), 0);
    EXPECT_EQ(answer.value("reason").toString(), "nonsupport");
    viewer->writeLine("click 10,10");
    EXPECT_FALSE(viewer->waitForLine(statusEvent("exception", "type", 32808), 10s).empty());
    EXPECT_TRUE(receiver->waitForLine(statusEvent("share-input"), 500ms).empty()) << "a click was injected";
}

TEST_F(ReverseNetns, AStreamThatStopsArrivingEndsTheReverseScreenWithNoBitStream) {
    startReceiver();
    startViewer();
    ASSERT_TRUE(net.setLinkUp(false));
    EXPECT_FALSE(viewer->waitForLine(statusEvent("exception", "type", 32770), 15s).empty())
        << "no 'no bit stream' notice";
    EXPECT_FALSE(viewer->waitForLine(statusEvent("reverse-stopped"), 10s).empty());
}

}  // namespace
