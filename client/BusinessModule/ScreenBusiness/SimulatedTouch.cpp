#include "BusinessModule/ScreenBusiness/SimulatedTouch.h"

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>

#include <chrono>

#include "casting/Log.h"

namespace {
constexpr auto kRepeat = std::chrono::milliseconds(10);
}

SimulatedTouch::~SimulatedTouch() { exitPushMouseThread(); }

bool SimulatedTouch::start() {
    if (m_thread.joinable()) return true;
    Display* display = XOpenDisplay(nullptr);
    if (display == nullptr) {
        ZV_LOG(WARNING) << " no X display for the simulated touch";
        return false;
    }
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_display = display;
        m_exit = false;
    }
    m_thread = std::thread(&SimulatedTouch::sendSimuliteTouch, this);
    return true;
}

void SimulatedTouch::setTouchPoint(int x, int y) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_x = x;
    m_y = y;
}

void SimulatedTouch::setSending(bool sending) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_sending = sending;
    }
    m_wake.notify_all();
}

void SimulatedTouch::exitPushMouseThread() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_exit = true;
    }
    m_wake.notify_all();
    if (m_thread.joinable()) m_thread.join();
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_display != nullptr) XCloseDisplay(m_display);
    m_display = nullptr;
}

void SimulatedTouch::sendSimuliteTouch() {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_exit) {
        if (m_display == nullptr) break;
        if (!m_sending) {
            m_wake.wait(lock, [this] { return m_exit || m_sending; });
            continue;
        }
        XTestFakeMotionEvent(m_display, 0, m_x, m_y, 0);
        XFlush(m_display);
        ++m_moves;
        m_wake.wait_for(lock, kRepeat, [this] { return m_exit || !m_sending; });
    }
}
