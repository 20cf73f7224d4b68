#include "session/CastSession.h"

#include <cstring>

#include "casting/BusinessSettings.h"
#include "casting/ErrorCodes.h"
#include "casting/Log.h"
#include "media/SenderPipeline.h"
#include "protocol/Messages.h"
#include "session/ClientSession.h"

namespace zv {

namespace {

QString transportName(ProtocolType type) {
    switch (type) {
        case PROTOCOL_UDP: return QStringLiteral("udp");
        case PROTOCOL_TCP: return QStringLiteral("tcp");
        case PROTOCOL_BRX: break;
    }
    return QStringLiteral("brx");
}

QString sourceName(VideoStreamSource source) {
    switch (source) {
        case VIDEO_SOURCE_WINDOW: return QStringLiteral("window");
        case VIDEO_SOURCE_FILE: return QStringLiteral("file");
        case VIDEO_SOURCE_SCREEN: break;
    }
    return QStringLiteral("screen");
}

void copyReason(tagNotifyExceptionParams_& params, const QString& text) {
    const QByteArray bytes = text.toUtf8().left(sizeof params.szReason - 1);
    std::memcpy(params.szReason, bytes.constData(), static_cast<size_t>(bytes.size()));
    params.szReason[bytes.size()] = '\0';
}

}  // namespace

CastSession::CastSession(ClientSession* session, Raise raise, ReportError reportError, QObject* parent)
    : QObject(parent), m_session(session), m_raise(std::move(raise)), m_reportError(std::move(reportError)) {
    m_answerTimeout.setSingleShot(true);
    connect(&m_answerTimeout, &QTimer::timeout, this, [this] {
        ZV_LOG(WARNING) << " the panel did not answer the cast request";
        m_session->send(buildCastStop({QStringLiteral("timeout")}));
        teardown();
        finishRequest(FAIL, zv_error::CONNECT_FAILED);
    });
    m_cursorTimer.setInterval(kCursorIntervalMs);
    connect(&m_cursorTimer, &QTimer::timeout, this, &CastSession::sendCursor);
    connect(m_session, &ClientSession::messageReceived, this, &CastSession::onMessage);
    connect(m_session, &ClientSession::ended, this, [this] {
        if (m_state == State::Idle) return;
        ZV_LOG(INFO) << " the session ended: the cast ends with it";
        m_wantsCast = false;
        teardown();
        finishRequest(FAIL, zv_error::CONNECT_FAILED);
    });
}

CastSession::~CastSession() { teardown(); }

void CastSession::request(const CastOptions& options, RequestDone done) {
    m_paused = false;
    ask(options, std::move(done));
}

void CastSession::ask(const CastOptions& options, RequestDone done) {
    if (!m_session->isLoggedIn()) {
        done(FAIL, zv_error::CONNECT_FAILED);
        return;
    }
    if (m_state != State::Idle) {
        m_session->send(buildCastStop({QStringLiteral("replaced")}));
        teardown();
        finishRequest(FAIL, zv_error::MIRRORING_ABNORMAL);
    }
    m_options = options;
    m_done = std::move(done);
    m_state = State::Asking;
    m_controlGranted = false;

    m_sender = std::make_unique<media::SenderPipeline>();
    m_sender->setErrorCallback([this](const std::string& error) {
        // A pipeline thread: act on the library's own thread.
        QMetaObject::invokeMethod(this, [this, error] { onSenderError(QString::fromStdString(error)); },
                                  Qt::QueuedConnection);
    });
    CastRequestMessage request;
    request.source = sourceName(options.source);
    request.transport = transportName(options.transport);
    request.width = options.width;
    request.height = options.height;
    request.fps = options.fps;
    request.audio = options.audio;
    request.control = options.reverseCallback != nullptr;
    request.rtcpPort = options.transport == PROTOCOL_UDP ? m_sender->reserveRtcpPort() : 0;
    if (options.transport == PROTOCOL_UDP && request.rtcpPort == 0) {
        ZV_LOG(WARNING) << " no RTCP port, so no retransmission";
    }
    ZV_LOG(INFO) << " asking to cast the " << request.source.toStdString() << " over "
                 << request.transport.toStdString();
    m_session->send(buildCastRequest(request));
    m_answerTimeout.start(kAnswerTimeoutMs);
}

void CastSession::onMessage(const QCborMap& message) {
    const QString type = messageType(message);
    QString error;
    if (type == msg::kCastAccepted) {
        if (const auto accepted = parseCastAccepted(message, &error)) onAccepted(*accepted);
    } else if (type == msg::kCastRefused) {
        if (const auto refused = parseCastRefused(message, &error)) onRefused(*refused);
    } else if (type == msg::kCastPending) {
        if (m_state != State::Asking) return;
        ZV_LOG(INFO) << " the panel asks its user";
        m_state = State::Waiting;
        m_answerTimeout.start(120000);  // a person decides
        finishRequest(WAIT_AUTHORIZATION, zv_error::WAIT_AUTHORIZATION);
    } else if (type == msg::kCastStop) {
        if (m_state != State::Casting) return;
        const auto stop = parseCastStop(message, &error);
        ZV_LOG(INFO) << " the panel ended the cast: " << (stop ? stop->reason.toStdString() : std::string("?"));
        m_wantsCast = false;
        teardown();
        m_raise(NOTIFY_SCREEN_CAST_ENDED, nullptr);
    } else if (type == msg::kCastStats) {
        if (const auto stats = parseCastStats(message, &error)) {
            m_raise(NOTIFY_STREAM_STATISTICS, [&](tagNotifyExceptionParams_& p) {
                p.nBitRateKbps = stats->bitrateKbps;
                p.nFrameRate = stats->fps;
                p.nDelayMs = stats->delayMs;
                p.ucLoss = stats->lossPercent > 0 ? 1 : 0;
                p.ucLossPercent = static_cast<uint8_t>(qBound(0, stats->lossPercent, 100));
            });
        }
    } else if (type == msg::kCastStalled) {
        if (m_state == State::Casting) m_raise(NOTIFY_NO_BITSTREAM, nullptr);
    } else if (type == msg::kCastVoiceState) {
        if (const auto voice = parseCastSwitch(message, msg::kCastVoiceState, &error)) {
            if (m_sender) m_sender->setAudioEnabled(voice->on);
            m_raise(voice->on ? NOTIFY_VOICE_ON : NOTIFY_VOICE_OFF, nullptr);
        }
    } else if (type == msg::kCastControlState) {
        if (const auto control = parseCastControlState(message, &error)) {
            m_controlGranted = control->on;
            m_raise(NOTIFY_REVERSE_CONTROL_ANSWER, [&](tagNotifyExceptionParams_& p) {
                p.nResult = control->on ? 1 : 0;
                copyReason(p, control->holder);
            });
        }
    } else if (type == msg::kTouch) {
        const auto touch = parseTouch(message, &error);
        if (!touch || !m_controlGranted || m_options.reverseCallback == nullptr) return;
        CtrlMouseInfo_S info(touch->type.toStdString(), touch->x, touch->y, touch->time);
        m_options.reverseCallback(&info, false, 0, 0, m_options.reverseUser);
    }
    if (!error.isEmpty()) ZV_LOG(WARNING) << " bad cast message: " << error.toStdString();
}

void CastSession::onAccepted(const CastAcceptedMessage& accepted) {
    if (m_state != State::Asking && m_state != State::Waiting) return;
    const bool wasWaiting = m_state == State::Waiting;
    m_answerTimeout.stop();

    media::SenderConfig config;
    config.window = m_options.source == VIDEO_SOURCE_WINDOW ? static_cast<unsigned long>(m_options.windowId) : 0;
    // Scale down to the panel's screen when it is smaller than ours; never up.
    int screenWidth = 0, screenHeight = 0;
    BusinessSettings::getInstance().getRealCapResolution(screenWidth, screenHeight);
    const bool panelSmaller = accepted.width > 0 && accepted.height > 0 && screenWidth > 0 &&
                              (accepted.width < screenWidth || accepted.height < screenHeight);
    config.width = panelSmaller ? accepted.width : m_options.width;
    config.height = panelSmaller ? accepted.height : m_options.height;
    config.fps = m_options.fps > 0 ? m_options.fps : 30;
    config.transport = static_cast<media::MediaTransport>(m_options.transport);
    config.host = m_session->panel().address.toStdString();
    config.videoPort = static_cast<uint16_t>(accepted.videoPort);
    config.remoteRtcpPort = static_cast<uint16_t>(accepted.rtcpPort);
    config.srtPassphrase = accepted.srtKey.toStdString();
    config.allowPlain = true;  // until the session passes this cast's keys
    if (accepted.latencyMs > 0) config.latencyMs = accepted.latencyMs;
    config.audio = m_options.audio && accepted.audioPort > 0;
    config.audioPort = static_cast<uint16_t>(accepted.audioPort);
    config.encoderPreference = m_options.softwareEncoderPreferred ? media::EncoderPreference::SoftwarePreferred
                                                                  : media::EncoderPreference::HardwarePreferred;
    const QString error = QString::fromStdString(m_sender->start(config));
    if (!error.isEmpty()) {
        ZV_LOG(ERROR) << " the media could not start: " << error.toStdString();
        m_session->send(buildCastStop({QStringLiteral("senderFailed")}));
        teardown();
        if (wasWaiting) {
            m_raise(NOTIFY_AUTHORIZATION_DENIED, [](tagNotifyExceptionParams_& p) { copyReason(p, QStringLiteral("senderFailed")); });
        } else {
            finishRequest(FAIL, zv_error::MIRRORING_ABNORMAL);
        }
        return;
    }
    m_state = State::Casting;
    m_wantsCast = true;
    if (m_paused) pause(true);  // a cast resumed by the watchdog keeps the user's pause
    if (m_options.mouseCallback != nullptr) m_cursorTimer.start();
    ZV_LOG(INFO) << " casting to " << config.host << ":" << config.videoPort << " with "
                 << m_sender->statistics().encoder;
    m_raise(NOTIFY_PANEL_RESOLUTION, [&](tagNotifyExceptionParams_& p) {
        p.nWidth = accepted.width;
        p.nHeight = accepted.height;
    });
    if (wasWaiting) {
        m_raise(NOTIFY_AUTHORIZATION_GRANTED, nullptr);
    } else {
        finishRequest(SUCCESS, 0);
    }
}

void CastSession::onRefused(const CastRefusedMessage& refused) {
    if (m_state != State::Asking && m_state != State::Waiting) return;
    const bool wasWaiting = m_state == State::Waiting;
    ZV_LOG(WARNING) << " cast refused: " << refused.reason.toStdString() << " " << refused.text.toStdString();
    teardown();
    if (wasWaiting) {
        m_raise(NOTIFY_AUTHORIZATION_DENIED, [&](tagNotifyExceptionParams_& p) { copyReason(p, refused.reason); });
        return;
    }
    // The same refusal texts the panel family uses, so the client's reason rules apply.
    m_raise(NOTIFY_REQUEST_REFUSED, [&](tagNotifyExceptionParams_& p) {
        copyReason(p, refused.reason == QLatin1String("denied") ? QStringLiteral("server does not allow screen projection.")
                                                                 : refused.reason);
    });
    finishRequest(FAIL, 0);  // the event above tells the client why
}

void CastSession::onSenderError(const QString& error) {
    if (m_state != State::Casting) return;
    ZV_LOG(ERROR) << " the cast broke: " << error.toStdString();
    m_session->send(buildCastStop({QStringLiteral("senderFailed")}));
    const bool windowCast = m_options.source == VIDEO_SOURCE_WINDOW;
    teardown();
    if (windowCast) {
        // Most often the window was closed: that is the user's business, not a fault to retry.
        m_wantsCast = false;
        m_reportError(zv_error::WINDOW_SOURCE_ABNORMAL);
        return;
    }
    // The client's watchdog may ask for the cast again (resume); it decides, not us.
    m_raise(NOTIFY_STREAM_SEND_FAILED, [&](tagNotifyExceptionParams_& p) { copyReason(p, error); });
}

void CastSession::resume(std::function<void(bool)> done) {
    if (!m_wantsCast) return done(true);
    // After an outage the media paths on both sides are in doubt (SRT drops
    // its peer, decoders wait for key frames, ports may be gone): a fresh
    // cast with the same options is the one sure way back, and costs less
    // than the outage did.
    if (m_state != State::Idle) teardown();
    ZV_LOG(INFO) << " asking for the broken cast again";
    ask(m_options, [this, done](ProjectOrShareReqResult result, uint32_t) {
        m_wantsCast = result != FAIL;
        done(result != FAIL);
    });
}

void CastSession::finishRequest(ProjectOrShareReqResult result, uint32_t error) {
    if (!m_done) return;
    RequestDone done = std::move(m_done);
    m_done = nullptr;
    done(result, error);
}

void CastSession::pause(bool paused) {
    if (m_state != State::Casting) return;
    m_paused = paused;
    m_sender->setPaused(paused);
    m_session->send(buildCastSwitch(msg::kCastPause, {paused}));
}

bool CastSession::setVoice(bool on) {
    if (m_state != State::Casting) return false;
    m_session->send(buildCastSwitch(msg::kCastVoice, {on}));
    return true;
}

bool CastSession::setControl(bool on) {
    if (m_state != State::Casting) return false;
    m_session->send(buildCastSwitch(msg::kCastControl, {on}));
    if (!on) m_controlGranted = false;
    return true;
}

void CastSession::stop(const QString& reason) {
    m_wantsCast = false;
    m_paused = false;
    if (m_state == State::Idle) return;
    ZV_LOG(INFO) << " stopping the cast: " << reason.toStdString();
    m_session->send(buildCastStop({reason}));
    teardown();
    finishRequest(FAIL, zv_error::MIRRORING_ABNORMAL);
}

void CastSession::sendCursor() {
    if (m_options.mouseCallback == nullptr) return;
    int x = 0, y = 0;
    MOUSESTATUS status = MOUSE_STATUS_NORMAL;
    bool visible = true;
    m_options.mouseCallback(x, y, status, m_options.mouseUser, visible);
    const CursorMessage cursor{qBound(0, x, 65535), qBound(0, y, 65535), visible && status != MOUSE_STATUS_HIDDEN};
    if (cursor.x == m_lastCursor.x && cursor.y == m_lastCursor.y && cursor.visible == m_lastCursor.visible) return;
    m_lastCursor = cursor;
    m_session->send(buildCursor(cursor));
}

void CastSession::teardown() {
    m_answerTimeout.stop();
    m_cursorTimer.stop();
    m_lastCursor = CursorMessage{-1, -1, false};
    if (m_sender) m_sender->stop();
    m_sender.reset();
    m_state = State::Idle;
    m_controlGranted = false;
}

}  // namespace zv
