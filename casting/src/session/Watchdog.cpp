#include "session/Watchdog.h"

#include "casting/Log.h"
#include "session/ClientSession.h"

namespace zv {

Watchdog::Watchdog(ClientSession* session, QObject* parent) : QObject(parent), m_session(session) {
    m_retry.setSingleShot(true);
    connect(&m_retry, &QTimer::timeout, this, &Watchdog::tryOnce);
}

void Watchdog::configure(ExceptionCallback callback, void* user) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_callback = std::move(callback);
    m_user = user;
}

void Watchdog::onAbnormal(tagNotifyExceptionType_ type) {
    if (!m_enabled) {
        ZV_LOG(INFO) << " event " << static_cast<int>(type) << ": reconnection is off";
        return;
    }
    if (m_reconnecting) return;
    if (!m_session->isLoggedIn()) {
        ZV_LOG(INFO) << " event " << static_cast<int>(type) << ": no session to reconnect";
        return;
    }
    ZV_LOG(WARNING) << " event " << static_cast<int>(type) << ": reconnecting";
    m_reconnecting = true;
    ++m_generation;
    m_since.start();
    m_session->setReconnecting(true);
    raise(NOTIFY_RECONNECTING);
    tryOnce();
}

void Watchdog::tryOnce() {
    if (!m_reconnecting || m_attemptRunning) return;
    m_attemptRunning = true;
    const quint64 generation = m_generation;
    m_session->reconnect([this, generation](bool reconnected) {
        m_attemptRunning = false;
        if (generation != m_generation || !m_reconnecting) return;
        if (reconnected) {
            finish(true);
        } else if (m_since.elapsed() >= kGiveUpMs) {
            finish(false);
        } else {
            m_retry.start(kRetryIntervalMs);
        }
    });
}

void Watchdog::finish(bool reconnected) {
    m_reconnecting = false;
    m_retry.stop();
    m_session->setReconnecting(false);
    if (reconnected) {
        ZV_LOG(INFO) << " reconnected after " << m_since.elapsed() << " ms";
        raise(NOTIFY_RECONNECTED);
    } else {
        ZV_LOG(WARNING) << " reconnection given up after " << m_since.elapsed() << " ms";
        m_session->logout();
        raise(NOTIFY_RECONNECT_FAILED);
    }
}

void Watchdog::shutdown() {
    ++m_generation;
    if (m_reconnecting) m_session->setReconnecting(false);
    m_reconnecting = false;
    m_retry.stop();
    m_enabled = false;
    configure(nullptr, nullptr);
}

void Watchdog::raise(tagNotifyExceptionType_ type) {
    ExceptionCallback callback;
    void* user;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        callback = m_callback;
        user = m_user;
    }
    if (!callback) return;
    tagNotifyExceptionParams_ params{};
    callback(type, &params, user);
}

}  // namespace zv
