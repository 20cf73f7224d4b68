#include "BusinessModule/ScreenBusiness/ScreenControl.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>

#include <algorithm>
#include <cmath>
#include <mutex>
#include <vector>

#include "casting/Log.h"

namespace {

constexpr double kPanelUnits = 65535.0;
constexpr int kWheelEventsPerNotch = 5;

std::mutex g_mutex;
Display* g_display = nullptr;
unsigned long g_window = 0;
int g_wheelCount = 0;
int g_wheelFirstY = 0;
int g_screenWidth = 0;
int g_screenHeight = 0;

// --- Window questions (caller holds g_mutex and g_display is open) ----------

bool readAtoms(Window window, const char* property, std::vector<Atom>* atoms) {
    const Atom name = XInternAtom(g_display, property, True);
    if (name == None) return false;
    Atom type = None;
    int format = 0;
    unsigned long count = 0, after = 0;
    unsigned char* data = nullptr;
    if (XGetWindowProperty(g_display, window, name, 0, 1024, False, XA_ATOM, &type, &format, &count, &after,
                           &data) != Success) {
        return false;
    }
    const bool found = type == XA_ATOM && data != nullptr;
    if (found && atoms != nullptr) {
        const auto* values = reinterpret_cast<const Atom*>(data);
        atoms->assign(values, values + count);
    }
    if (data != nullptr) XFree(data);
    return found;
}

bool hasWmState(Window window) {
    const Atom name = XInternAtom(g_display, "WM_STATE", True);
    if (name == None) return false;
    Atom type = None;
    int format = 0;
    unsigned long count = 0, after = 0;
    unsigned char* data = nullptr;
    const bool read = XGetWindowProperty(g_display, window, name, 0, 2, False, name, &type, &format, &count, &after,
                                         &data) == Success &&
                      data != nullptr && count > 0;
    if (data != nullptr) XFree(data);
    return read;
}

bool windowValid(Window window) { return hasWmState(window) && readAtoms(window, "_NET_WM_STATE", nullptr); }

bool windowMinimized(Window window) {
    std::vector<Atom> states;
    if (!readAtoms(window, "_NET_WM_STATE", &states)) return false;
    const Atom hidden = XInternAtom(g_display, "_NET_WM_STATE_HIDDEN", False);
    return std::find(states.begin(), states.end(), hidden) != states.end();
}

bool windowInFront(Window window) {
    Window focus = None;
    int revert = 0;
    XGetInputFocus(g_display, &focus, &revert);
    return focus == window;
}

bool windowGeometry(Window window, QRect* rect) {
    XWindowAttributes attributes;
    if (XGetWindowAttributes(g_display, window, &attributes) == 0) return false;
    int x = 0, y = 0;
    Window child = None;
    XTranslateCoordinates(g_display, window, DefaultRootWindow(g_display), 0, 0, &x, &y, &child);
    *rect = QRect(x - attributes.x, y - attributes.y, attributes.width, attributes.height);
    return true;
}

void readScreenSize() {
    if (g_display == nullptr) return;
    Screen* screen = XScreenOfDisplay(g_display, 0);
    g_screenWidth = WidthOfScreen(screen);
    g_screenHeight = HeightOfScreen(screen);
}

void move(int x, int y) { XTestFakeMotionEvent(g_display, 0, x, y, 0); }
void button(unsigned int number, bool pressed) { XTestFakeButtonEvent(g_display, number, pressed ? True : False, 0); }

}  // namespace

bool ScreenControl::initReverseControl() {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (g_display != nullptr) XCloseDisplay(g_display);
    g_display = XOpenDisplay(nullptr);
    if (g_display == nullptr) {
        ZV_LOG(WARNING) << "  Create display failed";
        return false;
    }
    ZV_LOG(INFO) << " Create display successed";
    readScreenSize();
    return true;
}

void ScreenControl::unInitReverseControl() {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (g_display != nullptr) XCloseDisplay(g_display);
    g_display = nullptr;
}

bool ScreenControl::hasDisplay() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_display != nullptr;
}

void ScreenControl::setScreenWindowHWND(unsigned long window) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_window = window;
}

unsigned long ScreenControl::getScreenWindowHWND() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_window;
}

void ScreenControl::setScreenResolutionInfo(int& width, int& height) {
    std::lock_guard<std::mutex> lock(g_mutex);
    readScreenSize();
    if (g_display == nullptr) return;
    width = g_screenWidth;
    height = g_screenHeight;
}

QPoint ScreenControl::mapWholeScreen(int x, int y, int screenWidth, int screenHeight) {
    const auto scale = [](int units, int size) {
        return static_cast<int>(static_cast<long long>(size) * units / 65535);
    };
    return QPoint(scale(x, screenWidth), scale(y, screenHeight));
}

double ScreenControl::windowZoom(int screenWidth, int screenHeight, int windowWidth, int windowHeight) {
    if (windowWidth <= 0 || windowHeight <= 0) return 1.0;
    const double byWidth = static_cast<double>(screenWidth) / std::min(windowWidth, screenWidth);
    // Only the width is bounded by the screen; the height is used as it is.
    const double byHeight = static_cast<double>(screenHeight) / windowHeight;
    const double zoom = byHeight > byWidth ? byWidth : byHeight;
    return zoom < 1.0 ? 1.0 : std::trunc(zoom);
}

QPoint ScreenControl::mapWindow(int x, int y, int screenWidth, int screenHeight, const QRect& window) {
    const double r = windowZoom(screenWidth, screenHeight, window.width(), window.height());
    const double w = window.width(), h = window.height();
    const double left = std::trunc(w / 2 + (window.x() - (screenWidth / 2.0) / r));
    const double top = std::trunc(h / 2 + (window.y() - (screenHeight / 2.0) / r));
    const int px = static_cast<int>(std::trunc(screenWidth * static_cast<double>(x) / (kPanelUnits * r) + left));
    const int py = static_cast<int>(std::trunc(screenHeight * static_cast<double>(y) / (kPanelUnits * r) + top));
    return QPoint(px, py);
}

bool ScreenControl::windowPointToPanel(int cx, int cy, int screenWidth, int screenHeight, const QRect& window,
                                       int& x, int& y) {
    const int w = window.width(), h = window.height();
    if (w <= 0 || h <= 0 || screenWidth <= 0 || screenHeight <= 0) return false;
    if (cx < window.left() || cx > window.left() + w || cy < window.top() || cy > window.top() + h) return false;
    const int byWidth = screenWidth / std::min(w, screenWidth);
    const int byHeight = screenHeight / h;
    int r = byHeight > byWidth ? byWidth : byHeight;
    if (r == 0) r = 1;
    const int areaWidth = screenWidth / r, areaHeight = screenHeight / r;
    const int left = w / 2 + (window.left() - areaWidth / 2);
    const int top = h / 2 + (window.top() - areaHeight / 2);
    x = static_cast<int>(static_cast<long long>(cx - left) * 65535 / areaWidth);
    y = static_cast<int>(static_cast<long long>(cy - top) * 65535 / areaHeight);
    return true;
}

int ScreenControl::wheelStep(int y) {
    ++g_wheelCount;
    if (g_wheelCount == 1) g_wheelFirstY = y;
    if (g_wheelCount < kWheelEventsPerNotch) return 0;
    g_wheelCount = 0;
    return y > g_wheelFirstY ? 4 : 5;
}

void ScreenControl::resetWheel() { g_wheelCount = 0; }

void ScreenControl::linuxReverseControl(int x, int y, const std::string& type) {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (g_display == nullptr) return;
    readScreenSize();
    QPoint target;
    if (g_window == 0) {
        target = mapWholeScreen(x, y, g_screenWidth, g_screenHeight);
    } else {
        const Window window = g_window;
        if (!windowValid(window) || windowMinimized(window)) return;
        if (!windowInFront(window)) XRaiseWindow(g_display, window);
        QRect geometry;
        if (!windowGeometry(window, &geometry)) return;
        target = mapWindow(x, y, g_screenWidth, g_screenHeight, geometry);
    }

    XTestGrabControl(g_display, True);
    if (type == "touchDown" || type == "mouseLeftDown") {
        move(target.x(), target.y());
        button(1, true);
    } else if (type == "touchMove" || type == "mouseLeftDrag" || type == "mouseRightDrag") {
        move(target.x(), target.y());
    } else if (type == "touchUp" || type == "mouseLeftUp") {
        move(target.x(), target.y());
        button(1, false);
        g_wheelCount = 0;
    } else if (type == "mouseRightDown") {
        move(target.x(), target.y());
        button(1, false);
        button(3, true);
    } else if (type == "mouseRightUp") {
        move(target.x(), target.y());
        button(3, false);
    } else if (type == "mouseWheel") {
        button(1, false);
        // One notch per five wheel events, as a wheel button click.
        if (const int notch = wheelStep(target.y())) {
            button(static_cast<unsigned>(notch), true);
            button(static_cast<unsigned>(notch), false);
        }
    } else {
        ZV_LOG(INFO) << " Unknown reverse type: " << type;
    }
    XTestGrabControl(g_display, False);
    XFlush(g_display);
}

void ScreenControl::getMousePosition(int& x, int& y, int& width, int& height) {
    std::lock_guard<std::mutex> lock(g_mutex);
    readScreenSize();
    width = g_screenWidth;
    height = g_screenHeight;
    if (width <= 0 || height <= 0) return;
    const QList<QScreen*> screens = QGuiApplication::screens();
    const qreal ratio = screens.isEmpty() ? 1.0 : screens.first()->devicePixelRatio();
    const QPoint cursor = QCursor::pos();
    if (g_window == 0) {
        const int whole = static_cast<int>(ratio);
        x = static_cast<int>(static_cast<long long>(cursor.x()) * whole * 65535 / width);
        y = static_cast<int>(static_cast<long long>(cursor.y()) * whole * 65535 / height);
        return;
    }
    if (g_display == nullptr || !windowValid(g_window)) return;
    QRect geometry;
    if (!windowGeometry(g_window, &geometry)) return;
    const int cx = static_cast<int>(cursor.x() * ratio);
    const int cy = static_cast<int>(cursor.y() * ratio);
    windowPointToPanel(cx, cy, width, height, geometry, x, y);
}
