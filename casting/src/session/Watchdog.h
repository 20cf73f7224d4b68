// The watchdog behind Daemon: when the session's link or its cast breaks
// while reconnection is on, it reports 32802 (reconnecting), retries every
// second — the session over a new connection when the control link is in
// doubt, then the cast the user still wants — and reports 32803
// (reconnected) or, after kGiveUpMs, 32801 (given up). Lives on the
// library's I/O thread.
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <atomic>
#include <mutex>

#include "casting/Callbacks.h"

namespace zv {

class CastSession;
class ClientSession;

class Watchdog : public QObject {
    Q_OBJECT
public:
    static constexpr int kGiveUpMs = 30000;
    static constexpr int kRetryIntervalMs = 1000;

    Watchdog(ClientSession* session, CastSession* cast, QObject* parent = nullptr);

    // Any thread.
    void configure(ExceptionCallback callback, void* user);
    void setEnabled(bool enabled) { m_enabled = enabled; }
    bool isEnabled() const { return m_enabled; }

    // I/O thread: an abnormal event handed over by the client.
    void onAbnormal(tagNotifyExceptionType_ type);
    // I/O thread: stop any reconnection and forget the callback.
    void shutdown();
    bool isReconnecting() const { return m_reconnecting; }

private:
    void tryOnce();
    void afterAttempt(bool ok);
    void finish(bool reconnected);
    void raise(tagNotifyExceptionType_ type);

    ClientSession* m_session;
    CastSession* m_cast;
    bool m_linkInDoubt = false;  // the control link must be replaced, not only the cast
    std::atomic<bool> m_enabled{false};
    std::mutex m_mutex;
    ExceptionCallback m_callback;
    void* m_user = nullptr;
    bool m_reconnecting = false;
    bool m_attemptRunning = false;
    QElapsedTimer m_since;
    QTimer m_retry;
    quint64 m_generation = 0;
};

}  // namespace zv
