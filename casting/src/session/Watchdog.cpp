#include "session/Watchdog.h"

#include "casting/Log.h"
#include "session/CastSession.h"
#include "session/ClientSession.h"

namespace zv {

namespace {

// Events about the media only: the control link may be fine.
bool isMediaEvent(tagNotifyExceptionType_ type) {
    return type == NOTIFY_STREAM_SEND_FAILED || type == NOTIFY_ENCODER_FAILED || type == NOTIFY_CAPTURE_FAILED ||
           type == NOTIFY_MEDIA_LINK_BROKEN;
}

}  // namespace

Watchdog::Watchdog(ClientSession* session, CastSession* cast, QObject* parent)
    : QObject(parent), m_session(session), m_cast(cast) {
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
    m_linkInDoubt = !isMediaEvent(type) || !m_session->hasLink() || m_session->missedBeats() > 0;
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
    auto resumeCast = [this, generation] {
        m_cast->resume([this, generation](bool resumed) {
            if (generation == m_generation) afterAttempt(resumed);
        });
    };
    if (!m_linkInDoubt) {
        resumeCast();
        return;
    }
    m_session->reconnect([this, generation, resumeCast](bool reconnected) {
        if (generation != m_generation) return;
        if (!reconnected) return afterAttempt(false);
        m_linkInDoubt = false;  // the link is new; from here on only the cast may need asking again
        resumeCast();
    });
}

void Watchdog::afterAttempt(bool ok) {
    m_attemptRunning = false;
    if (!m_reconnecting) return;
    if (!m_session->isLoggedIn()) {
        // The session ended meanwhile (removed by the panel, logged out): its
        // own event told the client; nothing is left to reconnect.
        ZV_LOG(INFO) << " the session ended while reconnecting";
        m_reconnecting = false;
        m_retry.stop();
        m_session->setReconnecting(false);
        return;
    }
    if (ok) {
        finish(true);
    } else if (m_since.elapsed() >= kGiveUpMs) {
        finish(false);
    } else {
        m_retry.start(kRetryIntervalMs);
    }
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
        m_cast->stop(QStringLiteral("reconnection failed"));
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
