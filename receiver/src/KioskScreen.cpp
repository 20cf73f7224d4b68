#include "KioskScreen.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWidget>

#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <memory>

#include "casting/Log.h"

namespace receiver {

namespace {

struct DisplayCloser {
    void operator()(Display* display) const { XCloseDisplay(display); }
};
struct XFreer {
    void operator()(unsigned char* data) const { XFree(data); }
};

// The window a _NET_SUPPORTING_WM_CHECK property on window names, or 0.
Window checkWindow(Display* display, Window window) {
    const Atom check = XInternAtom(display, "_NET_SUPPORTING_WM_CHECK", True);
    if (check == None) return 0;
    Atom type = None;
    int format = 0;
    unsigned long count = 0, after = 0;
    unsigned char* raw = nullptr;
    const int status = XGetWindowProperty(display, window, check, 0, 1, False, XA_WINDOW, &type, &format, &count,
                                          &after, &raw);
    std::unique_ptr<unsigned char, XFreer> data(raw);
    if (status != Success || type != XA_WINDOW || format != 32 || count != 1 || !data) return 0;
    return *reinterpret_cast<const Window*>(data.get());
}

int ignoreErrors(Display*, XErrorEvent*) { return 0; }

}  // namespace

bool windowManagerRunning() {
    if (QGuiApplication::platformName() != QLatin1String("xcb")) return false;
    std::unique_ptr<Display, DisplayCloser> display(XOpenDisplay(nullptr));
    if (!display) return false;
    // A window manager that died leaves a stale property whose window is
    // gone: reading it then fails, which must not end the receiver.
    const auto previous = XSetErrorHandler(ignoreErrors);
    const Window child = checkWindow(display.get(), DefaultRootWindow(display.get()));
    const bool running = child != 0 && checkWindow(display.get(), child) == child;
    XSync(display.get(), False);
    XSetErrorHandler(previous);
    return running;
}

void showWholeScreen(QWidget* window) {
    if (QGuiApplication::platformName() != QLatin1String("xcb") || windowManagerRunning()) {
        window->showFullScreen();
        return;
    }
    // The primary output of XRandR; the root window's size without XRandR.
    QScreen* screen = QGuiApplication::primaryScreen();
    const QRect area = screen != nullptr ? screen->geometry() : QRect(0, 0, 1280, 720);
    if (!(window->windowFlags() & Qt::FramelessWindowHint)) {
        ZV_LOG(INFO) << " no window manager: the window covers the screen itself (" << area.width() << "x"
                     << area.height() << "+" << area.x() << "+" << area.y() << ")";
        window->setWindowFlag(Qt::FramelessWindowHint, true);
    }
    window->setGeometry(area);
    window->show();
    window->raise();
    window->activateWindow();
}

}  // namespace receiver
