// A kiosk panel: the receiver on a bare X server (no window manager) covers
// the whole screen itself, and a cast fills it: the four colour blocks of the
// PC's screen are read back from the panel's screen corners. The PC (the
// CLI) casts its own private X server from the other test host.
#include <gtest/gtest.h>

// Qt before Xlib, whose macros (Bool, Status) clash with Qt's names.
#include <QColor>
#include <QPoint>

#include "StatusLines.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "ColourBlocks.h"
#include "NetnsPair.h"
#include "Process.h"
#include "XvfbSession.h"

using namespace std::chrono_literals;
using zvtest::ChildProcess;
using zvtest::statusEvent;

namespace {

QColor pixelAt(Display* display, int x, int y) {
    XImage* image = XGetImage(display, DefaultRootWindow(display), x, y, 1, 1, AllPlanes, ZPixmap);
    if (image == nullptr) return QColor();
    const unsigned long pixel = XGetPixel(image, 0, 0);
    XDestroyImage(image);
    return QColor(static_cast<QRgb>(pixel & 0xFFFFFF));
}

}  // namespace

TEST(KioskNetns, WithoutAWindowManagerACastFillsTheScreen) {
    zvtest::NetnsPair net;
    if (!net.ready()) GTEST_SKIP() << "no test hosts: " << net.error();
    zvtest::XvfbSession pc("1280x720x24");
    ASSERT_TRUE(pc.ready()) << "Xvfb (PC) did not start";
    zvtest::paintBlocks(pc.connection());
    zvtest::XvfbSession panel("1280x720x24", false);
    ASSERT_TRUE(panel.ready()) << "Xvfb (panel) did not start";

    char folder[] = "/tmp/zv-kiosk-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const std::string root = folder;
    auto on = [&](const std::string& ns, const std::string& home, const std::string& display,
                  std::vector<std::string> argv) {
        const std::string dir = root + "/" + home;
        std::system(("mkdir -p " + dir).c_str());
        argv.insert(argv.begin(), {"env", "HOME=" + dir, "XDG_CONFIG_HOME=" + dir + "/.config",
                                   "DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + dir + "/no-bus", "DISPLAY=" + display,
                                   "QT_QPA_PLATFORM=xcb", "PULSE_SERVER=unix:" + dir + "/no-sound"});
        return zvtest::NetnsPair::in(ns, argv);
    };

    // Full screen, not --windowed, not --headless: as a kiosk session starts it.
    ChildProcess receiver(on(net.a, "panel", panel.display(),
                             {zvtest::builtProgram("zelvanor-receiver"), "--no-discovery", "--access", "open"}),
                          ChildProcess::Output::Capture, ChildProcess::Input::Pipe);
    ASSERT_FALSE(receiver.waitForLine(statusEvent("ready"), 20s).empty());
    ChildProcess cast(on(net.b, "pc", pc.display(),
                         {zvtest::builtProgram("zelvanor-cli"), "cast", "--address", net.addressA, "--seconds", "60"}),
                      ChildProcess::Output::Capture, ChildProcess::Input::Pipe);
    ASSERT_FALSE(cast.waitForLine(statusEvent("cast", "result", "started"), 20s).empty());
    ASSERT_FALSE(receiver.waitForLine(statusEvent("cast-started"), 10s).empty());

    // Each corner of the panel's screen shows the block of that corner.
    Display* display = panel.connection();
    const int width = DisplayWidth(display, DefaultScreen(display));
    const int height = DisplayHeight(display, DefaultScreen(display));
    const int inset = 24;
    const QPoint corners[4] = {{inset, inset}, {width - inset, inset}, {inset, height - inset},
                               {width - inset, height - inset}};
    auto filled = [&] {
        for (int i = 0; i < 4; ++i) {
            if (!zvtest::nearColour(pixelAt(display, corners[i].x(), corners[i].y()), zvtest::kBlocks[i]))
                return false;
        }
        return true;
    };
    const bool ok = zvtest::waitFor(filled, 20s);
    std::string seen;
    for (int i = 0; i < 4; ++i) seen += " " + pixelAt(display, corners[i].x(), corners[i].y()).name().toStdString();
    EXPECT_TRUE(ok) << "corners (TL TR BL BR):" << seen;

    cast.writeLine("stop");
    EXPECT_TRUE(cast.waitFinished(10s));
    receiver.writeLine("{\"cmd\":\"quit\"}");
    EXPECT_TRUE(receiver.waitFinished(10s));
    std::system(("rm -rf " + root).c_str());
}
