// WindowCapture against real windows under Xvfb with openbox: enumeration,
// titles and their fall-backs, the excluded titles, validity, minimising,
// activation, outer geometry and previews that show the window's pixels.
#include <gtest/gtest.h>

// Qt before Xlib, whose macros (Bool, Status) break Qt's headers.
#include <QApplication>
#include <QImage>
#include <QListView>
#include <QMouseEvent>
#include <QSignalSpy>
#include <QStyleOptionViewItem>

#include "ui/windowcapture/SelectScreenWindow.h"
#include "ui/windowcapture/WindowCapture.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <algorithm>
#include <chrono>
#include <cstring>

#include "Process.h"
#include "XvfbSession.h"

using qorquicomponents::WindowCapture;
using qorquicomponents::WindowScreenPreviewInfo;
using namespace std::chrono_literals;

namespace {

Window makeWindow(Display* d, unsigned long colour, const char* netName, bool overrideRedirect = false);

// Openbox announces itself before it manages new windows, and a window mapped
// in between stays unmanaged: probe windows are mapped until one appears in
// its client list.
bool windowManagerSettled(zvtest::XvfbSession& session) {
    if (!session.ready()) return false;
    Display* d = session.connection();
    for (int attempt = 0; attempt < 15; ++attempt) {
        const Window probe = makeWindow(d, 0, "probe");
        const bool managed = zvtest::waitFor(
            [&] {
                for (const auto& entry : session.managedWindows()) {
                    if (entry.first == probe) return true;
                }
                return false;
            },
            std::chrono::seconds(1));
        XDestroyWindow(d, probe);
        XSync(d, False);
        if (managed) return true;
    }
    return false;
}

// WindowCapture keeps one display for the process, so every test shares one server.
zvtest::XvfbSession& xserver() {
    static zvtest::XvfbSession session;
    static const bool settled = windowManagerSettled(session);
    (void)settled;
    return session;
}

// A plain test window of one colour, optionally with an EWMH title.
Window makeWindow(Display* d, unsigned long colour, const char* netName, bool overrideRedirect) {
    XSetWindowAttributes attributes{};
    attributes.background_pixel = colour;
    attributes.override_redirect = overrideRedirect ? True : False;
    Window w = XCreateWindow(d, DefaultRootWindow(d), 100, 100, 320, 200, 0, CopyFromParent, InputOutput,
                             CopyFromParent, CWBackPixel | CWOverrideRedirect, &attributes);
    if (netName != nullptr) {
        XChangeProperty(d, w, XInternAtom(d, "_NET_WM_NAME", False), XInternAtom(d, "UTF8_STRING", False), 8,
                        PropModeReplace, reinterpret_cast<const unsigned char*>(netName),
                        static_cast<int>(std::strlen(netName)));
    }
    XMapWindow(d, w);
    XFlush(d);
    return w;
}

// xmessage (Xt) sets no _NET_WM_PID: its window is found by its ICCCM title.
Window windowTitled(Display* d, const char* title) {
    for (const auto& [window, pid] : xserver().managedWindows()) {
        char* name = nullptr;
        const bool match = XFetchName(d, window, &name) != 0 && name != nullptr && std::strcmp(name, title) == 0;
        if (name != nullptr) XFree(name);
        if (match) return window;
    }
    return 0;
}

bool listed(WindowCapture& capture, Window w) { return capture.getTopLevelWindows().contains(w); }

const WindowScreenPreviewInfo* previewOf(const QList<WindowScreenPreviewInfo>& previews, Window w) {
    auto it = std::find_if(previews.begin(), previews.end(),
                           [w](const WindowScreenPreviewInfo& p) { return p.windowId == w; });
    return it == previews.end() ? nullptr : &*it;
}

}  // namespace

TEST(WindowCapture, ListsNamesAndFiltersRealWindows) {
    ASSERT_TRUE(xserver().ready());
    Display* d = xserver().connection();
    WindowCapture capture;
    ASSERT_TRUE(capture.hasDisplay());
    EXPECT_TRUE(capture.ewmhIsSupported());

    // Real programs: xmessage sets only the ICCCM WM_NAME, so its title comes from the fall-back.
    zvtest::ChildProcess named({"xmessage", "-title", "Quarterly figures", "quarterly"});
    zvtest::ChildProcess selector({"xmessage", "-title", "Select Window", "selector"});
    zvtest::ChildProcess waiting({"xmessage", "-title", "WaitWindows", "waiting"});
    Window namedWindow = 0;
    Window selectorWindow = 0;
    Window waitingWindow = 0;
    ASSERT_TRUE(zvtest::waitFor(
        [&] {
            namedWindow = windowTitled(d, "Quarterly figures");
            selectorWindow = windowTitled(d, "Select Window");
            waitingWindow = windowTitled(d, "WaitWindows");
            return namedWindow != 0 && selectorWindow != 0 && waitingWindow != 0;
        },
        15s));
    const Window utf8Window = makeWindow(d, 0x3060c0, "Überblick – Entwurf");
    const Window anonymous = makeWindow(d, 0x808080, nullptr);
    ASSERT_TRUE(zvtest::waitFor([&] { return listed(capture, utf8Window) && listed(capture, anonymous); }, 10s));

    const QList<std::uint64_t> all = capture.getTopLevelWindows();
    for (Window w : {namedWindow, selectorWindow, waitingWindow}) EXPECT_TRUE(all.contains(w));

    EXPECT_EQ(capture.getWindowName(namedWindow), "Quarterly figures");
    EXPECT_EQ(capture.getWindowName(utf8Window), "Überblick – Entwurf");
    EXPECT_EQ(capture.getWindowName(anonymous), "error");

    const QList<WindowScreenPreviewInfo> previews = capture.getPreviewInfo();
    ASSERT_NE(previewOf(previews, namedWindow), nullptr);
    EXPECT_EQ(previewOf(previews, namedWindow)->name, QStringLiteral("Quarterly figures"));
    EXPECT_FALSE(previewOf(previews, namedWindow)->selected);
    ASSERT_NE(previewOf(previews, utf8Window), nullptr);
    EXPECT_EQ(previewOf(previews, selectorWindow), nullptr) << "the program's own selector is never offered";
    EXPECT_EQ(previewOf(previews, waitingWindow), nullptr) << "the wait window is never offered";
    ASSERT_NE(previewOf(previews, anonymous), nullptr);
    EXPECT_EQ(previewOf(previews, anonymous)->name, QStringLiteral("error"));

    // The command-line tool lists the same windows, one JSON line each, with ids that cast --window takes.
    zvtest::ChildProcess cli({zvtest::builtProgram("zelvanor-cli"), "windows"}, zvtest::ChildProcess::Output::Capture);
    const std::string line = cli.waitForLineContaining("Quarterly figures", 15000ms);
    EXPECT_NE(line.find("\"id\":\"" + std::to_string(namedWindow) + "\""), std::string::npos) << line;
    EXPECT_NE(line.find("\"event\":\"window\""), std::string::npos) << line;
    cli.waitForLine([](const std::string&) { return false; }, 15000ms);  // reads to the end
    EXPECT_TRUE(cli.waitFinished(15000ms));
    EXPECT_EQ(cli.exitCode(), 0);
    for (const std::string& l : cli.lines()) EXPECT_EQ(l.find("Select Window"), std::string::npos) << l;

    // Managed windows are valid; a window the manager never saw is not, nor
    // one that has WM_STATE but no _NET_WM_STATE.
    EXPECT_TRUE(capture.isWindowValid(namedWindow));
    EXPECT_GE(capture.getWindowState(namedWindow), 0);
    const Window unmanaged = makeWindow(d, 0x000000, "tooltip", true);
    EXPECT_EQ(capture.getWindowState(unmanaged), -1);
    EXPECT_FALSE(capture.isWindowValid(unmanaged));
    const Atom wmState = XInternAtom(d, "WM_STATE", False);
    const long normal[2] = {NormalState, 0};
    XChangeProperty(d, unmanaged, wmState, wmState, 32, PropModeReplace, reinterpret_cast<const unsigned char*>(normal),
                    2);
    XSync(d, False);
    EXPECT_EQ(capture.getWindowState(unmanaged), NormalState);
    EXPECT_FALSE(capture.isWindowValid(unmanaged));
    EXPECT_FALSE(listed(capture, unmanaged));

    // A window that is gone answers as gone, without an X error ending the process.
    XDestroyWindow(d, anonymous);
    XSync(d, False);
    EXPECT_TRUE(capture.getImageAcordWinId(anonymous).isNull());
    EXPECT_FALSE(capture.isWindowValid(anonymous));
    EXPECT_EQ(capture.getWindowName(anonymous), "error");
    XDestroyWindow(d, unmanaged);
    XDestroyWindow(d, utf8Window);
    XSync(d, False);
}

TEST(WindowCapture, PreviewsGeometryMinimiseAndActivation) {
    ASSERT_TRUE(xserver().ready());
    Display* d = xserver().connection();
    WindowCapture capture;
    const Window red = makeWindow(d, 0xd02020, "Red report");
    const Window green = makeWindow(d, 0x20b040, "Green report");
    ASSERT_TRUE(zvtest::waitFor([&] { return listed(capture, red) && listed(capture, green); }, 10s));

    // Each preview is a real grab of that window's own pixels at full size.
    ASSERT_TRUE(zvtest::waitFor(
        [&] {
            const QList<WindowScreenPreviewInfo> previews = capture.getPreviewInfo();
            const auto* r = previewOf(previews, red);
            const auto* g = previewOf(previews, green);
            return r != nullptr && g != nullptr && r->image.size() == QSize(320, 200) &&
                   (r->image.pixel(160, 100) & 0xffffff) == 0xd02020 &&
                   (g->image.pixel(160, 100) & 0xffffff) == 0x20b040;
        },
        10s));

    // Outer geometry: the frame's position, the client's size; it follows a move.
    int w = 0, h = 0, x = 0, y = 0;
    capture.getWinPosAndSize(red, w, h, x, y);
    EXPECT_EQ(w, 320);
    EXPECT_EQ(h, 200);
    Window child = None;
    int rootX = 0, rootY = 0;
    XTranslateCoordinates(d, red, DefaultRootWindow(d), 0, 0, &rootX, &rootY, &child);
    EXPECT_LE(x, rootX);
    EXPECT_LE(y, rootY);
    XMoveWindow(d, red, 400, 300);
    XFlush(d);
    ASSERT_TRUE(zvtest::waitFor(
        [&] {
            int w2 = 0, h2 = 0, x2 = 0, y2 = 0;
            capture.getWinPosAndSize(red, w2, h2, x2, y2);
            return x2 != x || y2 != y;
        },
        10s));
    XResizeWindow(d, red, 500, 260);
    XFlush(d);
    ASSERT_TRUE(zvtest::waitFor(
        [&] {
            capture.getWinPosAndSize(red, w, h, x, y);
            return w == 500 && h == 260;
        },
        10s));

    // Minimised and back: activation by the client message restores the window and gives it focus.
    EXPECT_FALSE(capture.isMinimized(red));
    XIconifyWindow(d, red, DefaultScreen(d));
    XFlush(d);
    ASSERT_TRUE(zvtest::waitFor([&] { return capture.isMinimized(red); }, 10s));
    EXPECT_TRUE(capture.isWindowValid(red));
    capture.restoreWindow(red);
    ASSERT_TRUE(zvtest::waitFor([&] { return !capture.isMinimized(red); }, 10s));
    EXPECT_TRUE(zvtest::waitFor([&] { return capture.isFrontWindow(red); }, 10s));
    capture.restoreWindow(green);
    EXPECT_TRUE(zvtest::waitFor([&] { return capture.isFrontWindow(green) && !capture.isFrontWindow(red); }, 10s));

    // A grabbed image outlives the next enumeration and stays intact after its window goes.
    QImage kept = capture.getImageAcordWinId(green);
    ASSERT_FALSE(kept.isNull());
    XDestroyWindow(d, green);
    XSync(d, False);
    EXPECT_EQ(kept.pixel(10, 10) & 0xffffff, 0x20b040u);
    EXPECT_TRUE(zvtest::waitFor([&] { return !listed(capture, green); }, 10s));
    XDestroyWindow(d, red);
    XSync(d, False);
}

TEST(WindowCapture, SelectionGridChoosesConfirmsAndRefills) {
    ASSERT_TRUE(xserver().ready());
    Display* d = xserver().connection();
    static int argc = 1;
    static char name[] = "test_window_capture";
    static char* argv[] = {name, nullptr};
    QApplication app(argc, argv);
    const Window first = makeWindow(d, 0x4040a0, "Slides");
    const Window second = makeWindow(d, 0xa0a040, "Minutes");
    WindowCapture capture;
    ASSERT_TRUE(zvtest::waitFor([&] { return listed(capture, first) && listed(capture, second); }, 10s));

    qorquicomponents::SelectScreenWindow_linux selector;
    selector.show();
    auto* model = selector.model();
    ASSERT_NE(model, nullptr);
    ASSERT_GE(model->rowCount(), 2);
    // The first preview is chosen after every fill; the roles carry title, id, image and flag.
    const QModelIndex top = model->index(0, 0);
    EXPECT_EQ(selector.chosenWindow(), model->data(top, Qt::UserRole + 2).value<quint64>());
    EXPECT_TRUE(model->data(top, Qt::UserRole + 4).toBool());
    EXPECT_FALSE(model->data(top, Qt::UserRole + 3).value<QImage>().isNull());
    EXPECT_FALSE(model->data(top, Qt::UserRole + 5).isValid());
    EXPECT_FALSE(model->data(model->index(99, 0), Qt::UserRole + 1).isValid());
    int secondRow = -1;
    for (int row = 0; row < model->rowCount(); ++row) {
        if (model->data(model->index(row, 0), Qt::UserRole + 2).value<quint64>() == second) secondRow = row;
    }
    ASSERT_GE(secondRow, 0);
    EXPECT_EQ(model->data(model->index(secondRow, 0), Qt::UserRole + 1).toString(), QStringLiteral("Minutes"));

    // A press inside a tile's preview rectangle chooses it; one beside it does not.
    QSignalSpy chosen(selector.delegate(), &qorquicomponents::SelectScreenWindowDelegate::signalChooseWindow);
    QStyleOptionViewItem option;
    option.rect = QRect(0, 0, 168, 160);
    QMouseEvent outside(QEvent::MouseButtonPress, QPointF(4, 40), Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
    EXPECT_FALSE(selector.delegate()->editorEvent(&outside, model, option, model->index(secondRow, 0)));
    QMouseEvent inside(QEvent::MouseButtonPress, QPointF(12 + 143, 40), Qt::RightButton, Qt::RightButton,
                       Qt::NoModifier);
    EXPECT_TRUE(selector.delegate()->editorEvent(&inside, model, option, model->index(secondRow, 0)));
    ASSERT_EQ(chosen.count(), 1);
    EXPECT_EQ(selector.chosenWindow(), static_cast<std::uint64_t>(second));
    EXPECT_TRUE(model->data(model->index(secondRow, 0), Qt::UserRole + 4).toBool());
    EXPECT_FALSE(model->data(top, Qt::UserRole + 4).toBool());

    // Confirming a minimised window restores it, starts the cast with its id and hides the grid.
    XIconifyWindow(d, second, DefaultScreen(d));
    XFlush(d);
    ASSERT_TRUE(zvtest::waitFor([&] { return capture.isMinimized(second); }, 10s));
    QSignalSpy started(&selector, &qorquicomponents::SelectScreenWindow_linux::signalStartWindowScreen);
    selector.onConfirmBtnClicked();
    ASSERT_EQ(started.count(), 1);
    EXPECT_EQ(started.at(0).at(0).value<quint64>(), static_cast<quint64>(second));
    EXPECT_FALSE(selector.isVisible());
    EXPECT_EQ(selector.delegate()->currentScreenWindowId(), static_cast<std::uint64_t>(second));
    EXPECT_TRUE(zvtest::waitFor([&] { return !capture.isMinimized(second); }, 10s));
    selector.resetScreenWindowState();
    EXPECT_EQ(selector.delegate()->currentScreenWindowId(), 0u);

    // A chosen window that closed meanwhile is never sent: the grid refills and stays open.
    selector.show();
    selector.onChooseWindow(first);
    XDestroyWindow(d, first);
    XSync(d, False);
    ASSERT_TRUE(zvtest::waitFor([&] { return !listed(capture, first); }, 10s));
    selector.onConfirmBtnClicked();
    EXPECT_EQ(started.count(), 1);
    EXPECT_TRUE(selector.isVisible());
    for (const auto& preview : model->previews()) EXPECT_NE(preview.windowId, static_cast<std::uint64_t>(first));
    selector.hide();
    XDestroyWindow(d, second);
    XSync(d, False);
}
