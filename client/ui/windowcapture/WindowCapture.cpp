#include "WindowCapture.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include "casting/Log.h"

namespace qorquicomponents {

namespace {

// One connection for the whole process, opened by the first WindowCapture.
Display* m_WindowCaptureDisplay = nullptr;

Atom existingAtom(const char* name) { return XInternAtom(m_WindowCaptureDisplay, name, True); }

// Frees an Xlib property buffer when it goes out of scope.
struct XFreeGuard {
    unsigned char* data = nullptr;
    ~XFreeGuard() {
        if (data != nullptr) XFree(data);
    }
};

// Reads up to `length` 32-bit items of a property; false when absent or of another type.
bool readProperty(Window window, Atom property, Atom type, long length, XFreeGuard& out, unsigned long& items) {
    Atom actualType = None;
    int actualFormat = 0;
    unsigned long after = 0;
    items = 0;
    if (XGetWindowProperty(m_WindowCaptureDisplay, window, property, 0, length, False, type, &actualType,
                           &actualFormat, &items, &after, &out.data) != Success)
        return false;
    if (out.data == nullptr || actualType == None) return false;
    if (type != AnyPropertyType && actualType != type) return false;
    return true;
}

// Releases the grabbed XImage when the last QImage sharing its pixels goes.
void releaseXImage(void* image) {
    if (image != nullptr) XDestroyImage(static_cast<XImage*>(image));
}

// An X error on this connection (a window that vanished between two calls)
// makes the call fail instead of ending the program; other displays keep the
// handler they had.
XErrorHandler g_previousHandler = nullptr;

int onXError(Display* display, XErrorEvent* event) {
    if (display == m_WindowCaptureDisplay) return 0;
    return g_previousHandler != nullptr ? g_previousHandler(display, event) : 0;
}

QImage wrapImage(XImage* image) {
    if (image == nullptr) return {};
    QImage wrapped(reinterpret_cast<const uchar*>(image->data), image->width, image->height, image->bytes_per_line,
                   QImage::Format_RGB32, releaseXImage, image);
    if (wrapped.isNull()) XDestroyImage(image);
    return wrapped;
}

}  // namespace

WindowCapture::WindowCapture() {
    if (m_WindowCaptureDisplay == nullptr) {
        m_WindowCaptureDisplay = XOpenDisplay(nullptr);
        if (m_WindowCaptureDisplay == nullptr)
            ZV_LOG(ERROR) << " cannot open the X display";
        else
            g_previousHandler = XSetErrorHandler(onXError);
    }
    m_excludedTitles = {QStringLiteral("Select Window"),
                        QStringLiteral("Zelvanor"),
                        QString::fromUtf8("泽尔瓦诺"),
                        QStringLiteral("Kobrin"),
                        QString::fromUtf8("科布林"),
                        QStringLiteral("DDE Dock"),
                        QStringLiteral("UKUI Panel"),
                        QStringLiteral("WaitWindows")};
}

bool WindowCapture::hasDisplay() const { return m_WindowCaptureDisplay != nullptr; }

bool WindowCapture::ewmhIsSupported() {
    if (!hasDisplay()) return false;
    Atom check = existingAtom("_NET_SUPPORTING_WM_CHECK");
    if (check == None) return false;
    XFreeGuard rootValue;
    unsigned long items = 0;
    if (!readProperty(DefaultRootWindow(m_WindowCaptureDisplay), check, XA_WINDOW, 1, rootValue, items) || items < 1)
        return false;
    Window named = *reinterpret_cast<Window*>(rootValue.data);
    XFreeGuard ownValue;
    if (!readProperty(named, check, XA_WINDOW, 1, ownValue, items) || items < 1) return false;
    return *reinterpret_cast<Window*>(ownValue.data) == named;
}

QList<std::uint64_t> WindowCapture::getTopLevelWindows() {
    QList<std::uint64_t> windows;
    if (!ewmhIsSupported()) return windows;
    Atom clientList = existingAtom("_NET_CLIENT_LIST");
    if (clientList == None) return windows;
    for (int screen = 0; screen < ScreenCount(m_WindowCaptureDisplay); ++screen) {
        XFreeGuard value;
        unsigned long items = 0;
        if (!readProperty(RootWindow(m_WindowCaptureDisplay, screen), clientList, AnyPropertyType, 0x7fffffff, value,
                          items))
            continue;
        const auto* ids = reinterpret_cast<const Window*>(value.data);
        for (unsigned long i = 0; i < items; ++i) windows.append(ids[i]);
    }
    return windows;
}

bool WindowCapture::isWindowDesktop(std::uint64_t window) {
    if (!hasDisplay()) return false;
    Atom type = XInternAtom(m_WindowCaptureDisplay, "_NET_WM_WINDOW_TYPE", False);
    Atom desktop = XInternAtom(m_WindowCaptureDisplay, "_NET_WM_WINDOW_TYPE_DESKTOP", False);
    XFreeGuard value;
    unsigned long items = 0;
    if (!readProperty(window, type, XA_ATOM, 1, value, items) || items < 1) return false;
    return *reinterpret_cast<Atom*>(value.data) == desktop;
}

QImage WindowCapture::getImageAcordWinId(std::uint64_t window) {
    if (!hasDisplay()) return {};
    XWindowAttributes attributes{};
    if (XGetWindowAttributes(m_WindowCaptureDisplay, window, &attributes) == 0) return {};
    if (attributes.width <= 0 || attributes.height <= 0) return {};
    XImage* image = XGetImage(m_WindowCaptureDisplay, window, 0, 0, static_cast<unsigned>(attributes.width),
                              static_cast<unsigned>(attributes.height), AllPlanes, ZPixmap);
    return wrapImage(image);
}

QList<WindowScreenPreviewInfo> WindowCapture::getPreviewInfo() {
    QList<WindowScreenPreviewInfo> previews;
    for (std::uint64_t window : getTopLevelWindows()) {
        if (window == 0) break;
        if (isWindowDesktop(window)) continue;
        QImage image = getImageAcordWinId(window);
        if (image.isNull()) continue;
        const QString title = QString::fromStdString(getWindowName(window));
        if (m_excludedTitles.contains(title)) continue;
        WindowScreenPreviewInfo info;
        info.name = title;
        info.windowId = window;
        info.image = image;
        previews.append(info);
    }
    return previews;
}

std::string WindowCapture::getWindowAtom(std::uint64_t window, const char* propertyName) {
    std::string result = "unknown";
    if (!hasDisplay()) return "error";
    Atom property = XInternAtom(m_WindowCaptureDisplay, propertyName, False);
    XTextProperty text{};
    if (XGetTextProperty(m_WindowCaptureDisplay, window, &text, property) == 0 &&
        XGetWMName(m_WindowCaptureDisplay, window, &text) == 0)
        return "error";
    if (text.value == nullptr) return "error";
    if (text.encoding != XA_STRING) {
        char** list = nullptr;
        int count = 0;
        // UTF-8 whatever the process locale is: the callers read the text as UTF-8.
        if (Xutf8TextPropertyToTextList(m_WindowCaptureDisplay, &text, &list, &count) >= Success && count > 0 &&
            list != nullptr) {
            result = list[0];
        }
        if (list != nullptr) XFreeStringList(list);
    } else {
        result.assign(reinterpret_cast<const char*>(text.value), text.nitems);
    }
    XFree(text.value);
    return result;
}

std::string WindowCapture::getWindowName(std::uint64_t window) { return getWindowAtom(window, "_NET_WM_NAME"); }

long WindowCapture::getWindowState(std::uint64_t window) {
    if (!hasDisplay()) return -1;
    Atom wmState = XInternAtom(m_WindowCaptureDisplay, "WM_STATE", False);
    XFreeGuard value;
    unsigned long items = 0;
    if (!readProperty(window, wmState, wmState, 2, value, items) || items < 1) return -1;
    return *reinterpret_cast<long*>(value.data);
}

bool WindowCapture::isWindowValid(std::uint64_t window) {
    if (getWindowState(window) == -1) return false;
    Atom netState = XInternAtom(m_WindowCaptureDisplay, "_NET_WM_STATE", False);
    XFreeGuard value;
    unsigned long items = 0;
    return readProperty(window, netState, XA_ATOM, 1, value, items);
}

bool WindowCapture::isMinimized(std::uint64_t window) {
    if (!hasDisplay()) return false;
    Atom netState = XInternAtom(m_WindowCaptureDisplay, "_NET_WM_STATE", False);
    Atom hidden = XInternAtom(m_WindowCaptureDisplay, "_NET_WM_STATE_HIDDEN", False);
    XFreeGuard value;
    unsigned long items = 0;
    if (!readProperty(window, netState, XA_ATOM, 1024, value, items)) return false;
    const auto* atoms = reinterpret_cast<const Atom*>(value.data);
    for (unsigned long i = 0; i < items; ++i) {
        if (atoms[i] == hidden) return true;
    }
    return false;
}

bool WindowCapture::isFrontWindow(std::uint64_t window) {
    if (!hasDisplay()) return false;
    Window focus = None;
    int revert = 0;
    XGetInputFocus(m_WindowCaptureDisplay, &focus, &revert);
    return focus == window;
}

void WindowCapture::getWinPosAndSize(std::uint64_t window, int& width, int& height, int& x, int& y) {
    width = height = x = y = 0;
    if (!hasDisplay()) return;
    Window child = None;
    int rootX = 0;
    int rootY = 0;
    XTranslateCoordinates(m_WindowCaptureDisplay, window, DefaultRootWindow(m_WindowCaptureDisplay), 0, 0, &rootX,
                          &rootY, &child);
    XWindowAttributes attributes{};
    if (XGetWindowAttributes(m_WindowCaptureDisplay, window, &attributes) == 0) return;
    width = attributes.width;
    height = attributes.height;
    x = rootX - attributes.x;
    y = rootY - attributes.y;
}

void WindowCapture::raiseWindow(std::uint64_t window) {
    if (!hasDisplay()) return;
    XRaiseWindow(m_WindowCaptureDisplay, window);
    XFlush(m_WindowCaptureDisplay);
}

void WindowCapture::restoreWindow(std::uint64_t window) {
    if (!hasDisplay()) return;
    XEvent event{};
    event.xclient.type = ClientMessage;
    event.xclient.window = window;
    event.xclient.message_type = XInternAtom(m_WindowCaptureDisplay, "_NET_ACTIVE_WINDOW", False);
    event.xclient.format = 32;
    event.xclient.data.l[0] = 2;  // source indication: pager
    event.xclient.data.l[1] = 0;  // timestamp
    XSendEvent(m_WindowCaptureDisplay, DefaultRootWindow(m_WindowCaptureDisplay), False,
               SubstructureRedirectMask | SubstructureNotifyMask, &event);
    XFlush(m_WindowCaptureDisplay);
}

}  // namespace qorquicomponents
