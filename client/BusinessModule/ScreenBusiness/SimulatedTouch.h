// Simulated touch: a thread that keeps the X pointer on a stored touch point
// (every 10 ms while sending) through an X connection of its own, for panels
// that report a held touch only once. It waits, without spinning, while
// nothing is to be sent, and ends when its X connection cannot be had or
// exitPushMouseThread is called.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

struct _XDisplay;

class SimulatedTouch {
public:
    SimulatedTouch() = default;
    ~SimulatedTouch();
    SimulatedTouch(const SimulatedTouch&) = delete;
    SimulatedTouch& operator=(const SimulatedTouch&) = delete;

    // Opens the X connection (default display) and starts the thread; false
    // without a display. Harmless when already running.
    bool start();
    // The point in screen pixels, and whether it is being sent.
    void setTouchPoint(int x, int y);
    void setSending(bool sending);
    // Stops the thread and waits for it; closes the X connection.
    void exitPushMouseThread();

    bool isRunning() const { return m_thread.joinable(); }
    // Pointer moves made so far.
    long moves() const { return m_moves; }

private:
    void sendSimuliteTouch();

    std::thread m_thread;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    _XDisplay* m_display = nullptr;  // the thread's own; opened by start, closed by exit
    bool m_exit = false;
    bool m_sending = false;
    int m_x = 0;
    int m_y = 0;
    std::atomic<long> m_moves{0};
};
