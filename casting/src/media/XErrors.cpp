#include "media/XErrors.h"

#include <mutex>
#include <set>

namespace zv::media {
namespace {

std::mutex g_displaysMutex;
std::set<Display*> g_displays;
XErrorHandler g_previousHandler = nullptr;
XIOErrorHandler g_previousIoHandler = nullptr;
thread_local int t_lastError = 0;

int onXError(Display* display, XErrorEvent* event) {
    {
        std::lock_guard<std::mutex> lock(g_displaysMutex);
        if (g_displays.count(display) != 0) {
            t_lastError = event->error_code;
            return 0;
        }
    }
    return g_previousHandler != nullptr ? g_previousHandler(display, event) : 0;
}

// The connection's owner notices the hang-up on its next call.
int onXIoError(Display* display) {
    {
        std::lock_guard<std::mutex> lock(g_displaysMutex);
        if (g_displays.count(display) != 0) return 0;
    }
    return g_previousIoHandler != nullptr ? g_previousIoHandler(display) : 0;
}

}  // namespace

void registerDisplay(Display* display) {
    static std::once_flag once;
    std::call_once(once, [] {
        g_previousHandler = XSetErrorHandler(onXError);
        g_previousIoHandler = XSetIOErrorHandler(onXIoError);
    });
    std::lock_guard<std::mutex> lock(g_displaysMutex);
    g_displays.insert(display);
}

void unregisterDisplay(Display* display) {
    std::lock_guard<std::mutex> lock(g_displaysMutex);
    g_displays.erase(display);
}

int lastXError() { return t_lastError; }

ErrorTrap::ErrorTrap(Display* display) : m_display(display) { t_lastError = 0; }

int ErrorTrap::check() {
    XSync(m_display, False);
    return t_lastError;
}

}  // namespace zv::media
