// A private X server for tests: Xvfb on a free display with the openbox
// window manager (EWMH) unless asked for a bare one, started on construction
// and stopped on destruction.
// Sets DISPLAY for the test process and for the children it starts.
#pragma once

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "Process.h"

namespace zvtest {

class XvfbSession {
public:
    // windowManager false: a bare X server, as on a kiosk panel.
    explicit XvfbSession(const std::string& geometry = "1920x1080x24", bool windowManager = true) {
        int fds[2];
        if (pipe(fds) != 0) return;
        m_xvfb.start({"Xvfb", "-displayfd", std::to_string(fds[1]), "-screen", "0", geometry, "-nolisten", "tcp",
                      "-noreset"});
        close(fds[1]);
        std::string number;
        char c;
        while (read(fds[0], &c, 1) == 1 && c != '\n') number += c;
        close(fds[0]);
        if (number.empty()) return;
        m_display = ":" + number;
        setenv("DISPLAY", m_display.c_str(), 1);
        setenv("QT_QPA_PLATFORM", "xcb", 1);  // the suites run offscreen; these programs need the real server
        m_connection = XOpenDisplay(m_display.c_str());
        if (m_connection == nullptr) return;
        if (!windowManager) {
            m_ready = true;
            return;
        }
        m_openbox.start({"openbox", "--sm-disable"});
        m_ready = waitFor([this] { return windowManagerRunning(); }, std::chrono::seconds(15));
    }
    ~XvfbSession() {
        m_openbox.stop();
        if (m_connection != nullptr) XCloseDisplay(m_connection);
        m_xvfb.stop();
    }

    bool ready() const { return m_ready; }
    const std::string& display() const { return m_display; }
    Display* connection() const { return m_connection; }

    // Top-level windows the window manager lists, with their owner's pid.
    std::vector<std::pair<Window, long>> managedWindows() const {
        std::vector<std::pair<Window, long>> result;
        for (Window w : windowList("_NET_CLIENT_LIST")) result.emplace_back(w, cardinal(w, "_NET_WM_PID"));
        return result;
    }
    Window windowOfPid(pid_t pid) const {
        for (const auto& [window, owner] : managedWindows()) {
            if (owner == pid) return window;
        }
        return 0;
    }
    // Asks the window manager to close a window, as the title bar's close button does.
    void requestClose(Window window) const {
        XEvent event{};
        event.xclient.type = ClientMessage;
        event.xclient.window = window;
        event.xclient.message_type = XInternAtom(m_connection, "_NET_CLOSE_WINDOW", False);
        event.xclient.format = 32;
        event.xclient.data.l[0] = CurrentTime;
        event.xclient.data.l[1] = 2;  // source: pager/user
        XSendEvent(m_connection, DefaultRootWindow(m_connection), False,
                   SubstructureRedirectMask | SubstructureNotifyMask, &event);
        XFlush(m_connection);
    }

private:
    bool windowManagerRunning() const { return !windowList("_NET_SUPPORTING_WM_CHECK").empty(); }

    std::vector<Window> windowList(const char* property) const {
        std::vector<Window> result;
        Atom actualType;
        int format;
        unsigned long count = 0, after = 0;
        unsigned char* data = nullptr;
        const Atom atom = XInternAtom(m_connection, property, False);
        if (XGetWindowProperty(m_connection, DefaultRootWindow(m_connection), atom, 0, 4096, False, XA_WINDOW,
                               &actualType, &format, &count, &after, &data) == Success &&
            data != nullptr) {
            const auto* windows = reinterpret_cast<const Window*>(data);
            result.assign(windows, windows + count);
        }
        if (data != nullptr) XFree(data);
        return result;
    }
    long cardinal(Window window, const char* property) const {
        Atom actualType;
        int format;
        unsigned long count = 0, after = 0;
        unsigned char* data = nullptr;
        long value = -1;
        const Atom atom = XInternAtom(m_connection, property, False);
        if (XGetWindowProperty(m_connection, window, atom, 0, 1, False, XA_CARDINAL, &actualType, &format, &count,
                               &after, &data) == Success &&
            data != nullptr && count == 1) {
            value = *reinterpret_cast<const long*>(data);
        }
        if (data != nullptr) XFree(data);
        return value;
    }

    ChildProcess m_xvfb;
    ChildProcess m_openbox;
    std::string m_display;
    Display* m_connection = nullptr;
    bool m_ready = false;
};

}  // namespace zvtest
