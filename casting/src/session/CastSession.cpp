#include "session/CastSession.h"

#include <cstring>

#include "casting/BusinessSettings.h"
#include "casting/ErrorCodes.h"
#include "casting/Log.h"
#include "media/SenderPipeline.h"
#include "protocol/WireCodec.h"
#include "protocol/WireNames.h"
#include "security/CastKeys.h"
#include "session/ClientSession.h"

namespace zv {

namespace {

wire::Transport wireTransport(ProtocolType type) {
    switch (type) {
        case PROTOCOL_UDP: return wire::TRANSPORT_UDP;
        case PROTOCOL_TCP: return wire::TRANSPORT_TCP;
        case PROTOCOL_BRX: break;
    }
    return wire::TRANSPORT_BRX;
}

wire::CastRequest::Source wireSource(VideoStreamSource source) {
    switch (source) {
        case VIDEO_SOURCE_WINDOW: return wire::CastRequest::SOURCE_WINDOW;
        case VIDEO_SOURCE_FILE: return wire::CastRequest::SOURCE_FILE;
        case VIDEO_SOURCE_SCREEN: break;
    }
    return wire::CastRequest::SOURCE_SCREEN;
}

wire::CastStop castStop(const QString& reason) {
    wire::CastStop stop;
    stop.set_reason(reason.toStdString());
    return stop;
}

bool inPictureRange(int x, int y) { return x >= 0 && x <= 65535 && y >= 0 && y <= 65535; }

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
        send(castStop(QStringLiteral("timeout")));
        teardown();
        finishRequest(FAIL, zv_error::CONNECT_FAILED);
    });
    m_cursorTimer.setInterval(kCursorIntervalMs);
    connect(&m_cursorTimer, &QTimer::timeout, this, &CastSession::sendCursor);
    registerHandlers();
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
        send(castStop(QStringLiteral("replaced")));
        teardown();
        finishRequest(FAIL, zv_error::MIRRORING_ABNORMAL);
    }
    m_options = options;
    m_done = std::move(done);
    m_state = State::Asking;
    m_controlGranted = false;
    m_controlRequested = false;

    m_sender = std::make_unique<media::SenderPipeline>();
    m_sender->setErrorCallback([this](const std::string& error) {
        // A pipeline thread: act on the library's own thread.
        QMetaObject::invokeMethod(this, [this, error] { onSenderError(QString::fromStdString(error)); },
                                  Qt::QueuedConnection);
    });
    wire::CastRequest request;
    request.set_source(wireSource(options.source));
    request.set_transport(wireTransport(options.transport));
    request.set_width(options.width);
    request.set_height(options.height);
    request.set_fps(options.fps);
    request.set_audio(options.audio);
    request.set_control(options.reverseCallback != nullptr);
    request.set_rtcp_port(options.transport == PROTOCOL_UDP ? m_sender->reserveRtcpPort() : 0);
    if (options.transport == PROTOCOL_UDP && request.rtcp_port() == 0) {
        ZV_LOG(WARNING) << " no RTCP port, so no retransmission";
    }
    ZV_LOG(INFO) << " asking to cast the " << castSourceName(request.source()).toStdString() << " over "
                 << transportName(request.transport()).toStdString();
    send(request);
    m_answerTimeout.start(kAnswerTimeoutMs);
}

void CastSession::send(const google::protobuf::Message& body) { m_session->send(wrap(body)); }

void CastSession::registerHandlers() {
    using E = wire::Envelope;
    MessageDispatcher<>& d = m_session->dispatcher();
    d.on(E::kCastPending, [this](const E&) { onPending(); });
    d.on(E::kCastAccepted, [this](const E& e) { onAccepted(e.cast_accepted()); });
    d.on(E::kCastRefused, [this](const E& e) { onRefused(e.cast_refused()); });
    d.on(E::kCastStop, [this](const E& e) { onStop(e.cast_stop()); });
    d.on(E::kCastStats, [this](const E& e) { onStats(e.cast_stats()); });
    d.on(E::kCastStalled, [this](const E&) {
        if (m_state == State::Casting) m_raise(NOTIFY_NO_BITSTREAM, nullptr);
    });
    d.on(E::kCastVoiceState, [this](const E& e) {
        const bool on = e.cast_voice_state().on();
        if (m_sender) m_sender->setAudioEnabled(on);
        m_raise(on ? NOTIFY_VOICE_ON : NOTIFY_VOICE_OFF, nullptr);
    });
    d.on(E::kCastControlState, [this](const E& e) { onControlState(e.cast_control_state()); });
    d.on(E::kTouch, [this](const E& e) { onTouch(e.touch()); });
}

void CastSession::onPending() {
    if (m_state != State::Asking) return;
    ZV_LOG(INFO) << " the panel asks its user";
    m_state = State::Waiting;
    m_answerTimeout.start(120000);  // a person decides
    finishRequest(WAIT_AUTHORIZATION, zv_error::WAIT_AUTHORIZATION);
}

void CastSession::onStop(const wire::CastStop& stop) {
    if (m_state != State::Casting) return;
    if (stop.reason() == kCastInterruptedReason) {
        // The panel heard nothing from us for a while and freed itself: a
        // broken cast, not one its user ended; the watchdog may ask again.
        ZV_LOG(WARNING) << " the panel ended the cast as interrupted";
        teardown();
        m_raise(NOTIFY_MEDIA_LINK_BROKEN, [](tagNotifyExceptionParams_& p) {
            copyReason(p, QString::fromLatin1(kCastInterruptedReason));
        });
        return;
    }
    ZV_LOG(INFO) << " the panel ended the cast: " << stop.reason();
    m_wantsCast = false;
    teardown();
    m_raise(NOTIFY_SCREEN_CAST_ENDED, nullptr);
}

void CastSession::onStats(const wire::CastStats& stats) {
    m_raise(NOTIFY_STREAM_STATISTICS, [&](tagNotifyExceptionParams_& p) {
        p.nBitRateKbps = stats.bitrate_kbps();
        p.nFrameRate = stats.fps();
        p.nDelayMs = stats.delay_ms();
        p.ucLoss = stats.loss_percent() > 0 ? 1 : 0;
        p.ucLossPercent = static_cast<uint8_t>(qBound(0, stats.loss_percent(), 100));
    });
}

void CastSession::onControlState(const wire::CastControlState& control) {
    // Touches drive this PC's mouse: only its own user may switch that on.
    if (control.on() && !m_controlRequested) {
        ZV_LOG(WARNING) << " the panel grants touch control nobody here asked for; ignored";
        return;
    }
    m_controlGranted = control.on();
    m_raise(NOTIFY_REVERSE_CONTROL_ANSWER, [&](tagNotifyExceptionParams_& p) {
        p.nResult = control.on() ? 1 : 0;
        copyReason(p, QString::fromStdString(control.holder()));
    });
}

void CastSession::onTouch(const wire::Touch& touch) {
    if (!m_controlGranted || m_options.reverseCallback == nullptr) return;
    if (!inPictureRange(touch.x(), touch.y()) || touch.type() == wire::Touch::TYPE_UNSPECIFIED ||
        !wire::Touch::Type_IsValid(touch.type())) {
        ZV_LOG(WARNING) << " dropping a touch of type " << touchTypeName(touch.type()).toStdString() << " at "
                        << touch.x() << "," << touch.y();
        return;
    }
    CtrlMouseInfo_S info(touchTypeName(touch.type()).toStdString(), touch.x(), touch.y(), touch.time());
    m_options.reverseCallback(&info, false, 0, 0, m_options.reverseUser);
}

void CastSession::onAccepted(const wire::CastAccepted& accepted) {
    if (m_state != State::Asking && m_state != State::Waiting) return;
    const bool wasWaiting = m_state == State::Waiting;
    m_answerTimeout.stop();

    media::SenderConfig config;
    config.window = m_options.source == VIDEO_SOURCE_WINDOW ? static_cast<unsigned long>(m_options.windowId) : 0;
    // Scale down to the panel's screen when it is smaller than ours; never up.
    int screenWidth = 0, screenHeight = 0;
    BusinessSettings::getInstance().getRealCapResolution(screenWidth, screenHeight);
    const bool panelSmaller = accepted.width() > 0 && accepted.height() > 0 && screenWidth > 0 &&
                              (accepted.width() < screenWidth || accepted.height() < screenHeight);
    config.width = panelSmaller ? accepted.width() : m_options.width;
    config.height = panelSmaller ? accepted.height() : m_options.height;
    config.fps = m_options.fps > 0 ? m_options.fps : 30;
    config.transport = static_cast<media::MediaTransport>(m_options.transport);
    config.host = m_session->panel().address.toStdString();
    config.videoPort = static_cast<uint16_t>(accepted.video_port());
    config.remoteRtcpPort = static_cast<uint16_t>(accepted.rtcp_port());
    // This cast's keys, from the TLS connection the panel's answer came on.
    const auto castKeys = keys::castKeys(m_session->exporter(), accepted.cast_id(), keys::CastSide::Pc);
    if (castKeys) {
        config.sendKey = castKeys->sendKey;
        config.receiveKey = castKeys->receiveKey;
        config.srtPassphrase = castKeys->srtPassphrase;
    }
    if (accepted.latency_ms() > 0) config.latencyMs = accepted.latency_ms();
    config.audio = m_options.audio && accepted.audio_port() > 0;
    config.audioPort = static_cast<uint16_t>(accepted.audio_port());
    config.encoderPreference = m_options.softwareEncoderPreferred ? media::EncoderPreference::SoftwarePreferred
                                                                  : media::EncoderPreference::HardwarePreferred;
    const QString error = castKeys ? QString::fromStdString(m_sender->start(config))
                                   : QStringLiteral("no keys for the cast: the control connection has gone");
    if (!error.isEmpty()) {
        ZV_LOG(ERROR) << " the media could not start: " << error.toStdString();
        send(castStop(QStringLiteral("senderFailed")));
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
        p.nWidth = accepted.width();
        p.nHeight = accepted.height();
    });
    if (wasWaiting) {
        m_raise(NOTIFY_AUTHORIZATION_GRANTED, nullptr);
    } else {
        finishRequest(SUCCESS, 0);
    }
}

void CastSession::onRefused(const wire::CastRefused& refused) {
    if (m_state != State::Asking && m_state != State::Waiting) return;
    const bool wasWaiting = m_state == State::Waiting;
    const QString reason = QString::fromStdString(refused.reason());
    ZV_LOG(WARNING) << " cast refused: " << refused.reason() << " " << refused.text();
    teardown();
    if (wasWaiting) {
        m_raise(NOTIFY_AUTHORIZATION_DENIED, [&](tagNotifyExceptionParams_& p) { copyReason(p, reason); });
        return;
    }
    // The same refusal texts the panel family uses, so the client's reason rules apply.
    m_raise(NOTIFY_REQUEST_REFUSED, [&](tagNotifyExceptionParams_& p) {
        copyReason(p, reason == QLatin1String("denied") ? QStringLiteral("server does not allow screen projection.")
                                                        : reason);
    });
    finishRequest(FAIL, 0);  // the event above tells the client why
}

void CastSession::onSenderError(const QString& error) {
    if (m_state != State::Casting) return;
    ZV_LOG(ERROR) << " the cast broke: " << error.toStdString();
    send(castStop(QStringLiteral("senderFailed")));
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
    wire::CastPause pause;
    pause.set_paused(paused);
    send(pause);
}

bool CastSession::setVoice(bool on) {
    if (m_state != State::Casting) return false;
    wire::CastVoice voice;
    voice.set_on(on);
    send(voice);
    return true;
}

bool CastSession::setControl(bool on) {
    if (m_state != State::Casting) return false;
    wire::CastControl control;
    control.set_on(on);
    send(control);
    m_controlRequested = on;
    if (!on) m_controlGranted = false;
    return true;
}

void CastSession::stop(const QString& reason) {
    m_wantsCast = false;
    m_paused = false;
    if (m_state == State::Idle) return;
    ZV_LOG(INFO) << " stopping the cast: " << reason.toStdString();
    send(castStop(reason));
    teardown();
    finishRequest(FAIL, zv_error::MIRRORING_ABNORMAL);
}

void CastSession::sendCursor() {
    if (m_options.mouseCallback == nullptr) return;
    int x = 0, y = 0;
    MOUSESTATUS status = MOUSE_STATUS_NORMAL;
    bool visible = true;
    m_options.mouseCallback(x, y, status, m_options.mouseUser, visible);
    const CursorState cursor{qBound(0, x, 65535), qBound(0, y, 65535), visible && status != MOUSE_STATUS_HIDDEN};
    if (cursor == m_lastCursor) return;
    m_lastCursor = cursor;
    wire::Cursor message;
    message.set_x(cursor.x);
    message.set_y(cursor.y);
    message.set_visible(cursor.visible);
    send(message);
}

void CastSession::teardown() {
    m_answerTimeout.stop();
    m_cursorTimer.stop();
    m_lastCursor = CursorState{};
    if (m_sender) m_sender->stop();
    m_sender.reset();
    m_state = State::Idle;
    m_controlGranted = false;
    m_controlRequested = false;
}

}  // namespace zv
