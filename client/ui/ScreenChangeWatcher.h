// Watches the X screen for changes of its size (XRandR RRScreenChangeNotify)
// on a thread of its own with its own X connection. A change of the screen's
// width or height is reported as signalScreenSizeChanged, emitted on that
// thread: connect to it queued (the default for receivers on another thread).
// Also measures the monitor layout for a cast.
#pragma once

#include <QObject>
#include <QSize>

#include <atomic>
#include <thread>

namespace qorquicomponents {

// The PC's monitors as XRandR reports them.
struct MonitorLayout {
    int monitors = 0;  // active outputs (CRTCs with a mode)
    QSize screen;      // the whole X screen, which a copy-mode cast captures
};

class ScreenChangeWatcher : public QObject {
    Q_OBJECT

public:
    explicit ScreenChangeWatcher(QObject* parent = nullptr);
    ~ScreenChangeWatcher() override;

    // Opens its connection and starts watching; false without an X display or
    // without the RandR extension.
    bool start();
    void stop();
    bool isRunning() const { return m_thread.joinable(); }

    // One look at the monitors on the default display (its own connection).
    // An empty layout without a display.
    static MonitorLayout readMonitorLayout();

signals:
    void signalScreenSizeChanged(int width, int height);

private:
    void run();

    void* m_display = nullptr;
    int m_eventBase = 0;
    int m_wakeFds[2] = {-1, -1};
    QSize m_lastSize;
    std::atomic<bool> m_running{false};
    std::thread m_thread;
};

}  // namespace qorquicomponents
