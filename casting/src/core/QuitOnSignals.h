// SIGTERM, SIGINT and SIGHUP end the event loop cleanly (peers told, the LAN
// announcement withdrawn) instead of killing the process mid-way.
// blockStopSignals() must run first in main, before any thread exists, so
// every thread inherits the block and the signals wait in a signalfd.
#pragma once

#include <QObject>

#include <thread>

class QSocketNotifier;

namespace zv {

void blockStopSignals();

class QuitOnSignals : public QObject {
    Q_OBJECT
public:
    explicit QuitOnSignals(QObject* parent = nullptr);
    ~QuitOnSignals() override;
    bool isWatching() const { return m_fd >= 0; }

private:
    int m_fd = -1;
    QSocketNotifier* m_notifier = nullptr;
};

// For programs without an event loop to end (the CLI): a stop signal writes
// the log out, then ends the process by that signal as before. Made first in
// main, before any thread exists; its thread is joined on destruction.
class FlushOnSignals {
public:
    FlushOnSignals();
    ~FlushOnSignals();
    FlushOnSignals(const FlushOnSignals&) = delete;
    FlushOnSignals& operator=(const FlushOnSignals&) = delete;

private:
    void run();
    int m_signals = -1;
    int m_stop = -1;
    std::thread m_thread;
};

}  // namespace zv
