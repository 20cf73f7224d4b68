// SIGTERM and SIGINT end the event loop cleanly (peers told, the LAN
// announcement withdrawn) instead of killing the process mid-way.
// blockStopSignals() must run first in main, before any thread exists, so
// every thread inherits the block and the signals wait in a signalfd.
#pragma once

#include <QObject>

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

}  // namespace zv
