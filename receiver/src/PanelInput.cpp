#include "PanelInput.h"

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include "casting/Log.h"

namespace receiver {

PanelInput::PanelInput(const QString& displayName) {
    const QByteArray name = displayName.toLocal8Bit();
    m_display = XOpenDisplay(name.isEmpty() ? nullptr : name.constData());
    if (m_display == nullptr) {
        m_reason = QStringLiteral("no X display");
        return;
    }
    int event = 0, error = 0, major = 0, minor = 0;
    if (!XTestQueryExtension(m_display, &event, &error, &major, &minor)) {
        m_reason = QStringLiteral("the X server has no XTest");
        XCloseDisplay(m_display);
        m_display = nullptr;
    }
    if (m_display == nullptr) ZV_LOG(WARNING) << " the panel cannot be operated from a PC: " << m_reason.toStdString();
}

PanelInput::~PanelInput() {
    if (m_display != nullptr) XCloseDisplay(m_display);
}

bool PanelInput::touch(Touch type, int x, int y, int* px, int* py) {
    if (m_display == nullptr) return false;
    Screen* screen = DefaultScreenOfDisplay(m_display);
    const int X = toPixel(x, WidthOfScreen(screen));
    const int Y = toPixel(y, HeightOfScreen(screen));
    // One atomic action for the other X clients.
    XTestGrabControl(m_display, True);
    XTestFakeMotionEvent(m_display, DefaultScreen(m_display), X, Y, 0);
    if (type == Touch::Down) XTestFakeButtonEvent(m_display, 1, True, 0);
    if (type == Touch::Up) XTestFakeButtonEvent(m_display, 1, False, 0);
    XTestGrabControl(m_display, False);
    XFlush(m_display);
    if (px != nullptr) *px = X;
    if (py != nullptr) *py = Y;
    return true;
}

bool PanelInput::back() {
    if (m_display == nullptr) return false;
    const KeyCode alt = XKeysymToKeycode(m_display, XK_Alt_L);
    const KeyCode left = XKeysymToKeycode(m_display, XK_Left);
    if (alt == 0 || left == 0) return false;
    XTestGrabControl(m_display, True);
    XTestFakeKeyEvent(m_display, alt, True, 0);
    XTestFakeKeyEvent(m_display, left, True, 0);
    XTestFakeKeyEvent(m_display, left, False, 0);
    XTestFakeKeyEvent(m_display, alt, False, 0);
    XTestGrabControl(m_display, False);
    XFlush(m_display);
    return true;
}

}  // namespace receiver
