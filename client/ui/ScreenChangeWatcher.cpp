#include "ui/ScreenChangeWatcher.h"

#include <X11/Xlib.h>
#include <X11/extensions/Xrandr.h>
#include <fcntl.h>
#include <cerrno>
#include <poll.h>
#include <unistd.h>

#include "casting/Log.h"

namespace qorquicomponents {

namespace {
Display* asDisplay(void* display) { return static_cast<Display*>(display); }
}  // namespace

ScreenChangeWatcher::ScreenChangeWatcher(QObject* parent) : QObject(parent) {}

ScreenChangeWatcher::~ScreenChangeWatcher() { stop(); }

bool ScreenChangeWatcher::start() {
    if (m_thread.joinable()) return true;
    Display* display = XOpenDisplay(nullptr);
    if (display == nullptr) {
        ZV_LOG(INFO) << " no X display: screen size changes are not watched";
        return false;
    }
    int errorBase = 0;
    if (!XRRQueryExtension(display, &m_eventBase, &errorBase)) {
        ZV_LOG(WARNING) << " the X server has no RandR: screen size changes are not watched";
        XCloseDisplay(display);
        return false;
    }
    if (pipe2(m_wakeFds, O_CLOEXEC) != 0) {
        XCloseDisplay(display);
        return false;
    }
    const int screen = DefaultScreen(display);
    m_lastSize = QSize(DisplayWidth(display, screen), DisplayHeight(display, screen));
    XRRSelectInput(display, RootWindow(display, screen), RRScreenChangeNotifyMask);
    XFlush(display);
    m_display = display;
    m_running = true;
    m_thread = std::thread(&ScreenChangeWatcher::run, this);
    return true;
}

void ScreenChangeWatcher::stop() {
    if (!m_thread.joinable()) return;
    m_running = false;
    const char wake = 1;
    if (write(m_wakeFds[1], &wake, 1) != 1) ZV_LOG(WARNING) << " could not wake the screen watcher";
    m_thread.join();
    XCloseDisplay(asDisplay(m_display));
    m_display = nullptr;
    close(m_wakeFds[0]);
    close(m_wakeFds[1]);
    m_wakeFds[0] = m_wakeFds[1] = -1;
}

void ScreenChangeWatcher::run() {
    Display* display = asDisplay(m_display);
    pollfd fds[2] = {{ConnectionNumber(display), POLLIN, 0}, {m_wakeFds[0], POLLIN, 0}};
    while (m_running) {
        // Events already read into Xlib's queue do not show on the socket.
        while (m_running && XPending(display) > 0) {
            XEvent event;
            XNextEvent(display, &event);
            if (event.type != m_eventBase + RRScreenChangeNotify) continue;
            XRRUpdateConfiguration(&event);
            const auto* change = reinterpret_cast<const XRRScreenChangeNotifyEvent*>(&event);
            const bool rotated = change->rotation & (RR_Rotate_90 | RR_Rotate_270);
            const QSize size = rotated ? QSize(change->height, change->width) : QSize(change->width, change->height);
            if (size == m_lastSize) continue;
            ZV_LOG(INFO) << " screen size changed from " << m_lastSize.width() << "x" << m_lastSize.height() << " to "
                         << size.width() << "x" << size.height();
            m_lastSize = size;
            emit signalScreenSizeChanged(size.width(), size.height());
        }
        if (!m_running) break;
        if (poll(fds, 2, -1) < 0 && errno != EINTR) break;
        if (fds[0].revents & (POLLERR | POLLHUP)) {
            ZV_LOG(WARNING) << " the X connection of the screen watcher closed";
            break;
        }
    }
}

MonitorLayout ScreenChangeWatcher::readMonitorLayout() {
    MonitorLayout layout;
    Display* display = XOpenDisplay(nullptr);
    if (display == nullptr) return layout;
    const int screen = DefaultScreen(display);
    layout.screen = QSize(DisplayWidth(display, screen), DisplayHeight(display, screen));
    int eventBase = 0, errorBase = 0;
    if (XRRQueryExtension(display, &eventBase, &errorBase)) {
        if (XRRScreenResources* resources = XRRGetScreenResourcesCurrent(display, RootWindow(display, screen))) {
            for (int i = 0; i < resources->ncrtc; ++i) {
                XRRCrtcInfo* crtc = XRRGetCrtcInfo(display, resources, resources->crtcs[i]);
                if (crtc == nullptr) continue;
                if (crtc->mode != None && crtc->noutput > 0) ++layout.monitors;
                XRRFreeCrtcInfo(crtc);
            }
            XRRFreeScreenResources(resources);
        }
    }
    // A screen without RandR outputs is still one monitor.
    if (layout.monitors == 0) layout.monitors = 1;
    XCloseDisplay(display);
    return layout;
}

}  // namespace qorquicomponents
