#include "session/ShareSession.h"

#include <QDateTime>
#include <QHostAddress>
#include <QHostInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstring>

#include "casting/Dexo.h"
#include "casting/ErrorCodes.h"
#include "casting/Log.h"
#include "media/ShareReceiver.h"
#include "player/DexoPacket.h"
#include "protocol/WireCodec.h"
#include "security/CastKeys.h"
#include "session/ClientSession.h"

namespace zv {

namespace {

void copyReason(tagNotifyExceptionParams_& params, const QString& text) {
    const QByteArray bytes = text.toUtf8().left(sizeof params.szReason - 1);
    std::memcpy(params.szReason, bytes.constData(), static_cast<size_t>(bytes.size()));
    params.szReason[bytes.size()] = '\0';
}

wire::ShareStop shareStop(const QString& reason) {
    wire::ShareStop stop;
    stop.set_reason(reason.toStdString());
    return stop;
}

// The panel's IP address for the peer filter: as given, or looked up.
QString peerAddress(const QString& address) {
    QHostAddress ip;
    if (ip.setAddress(address)) return ip.toString();
    const QHostInfo info = QHostInfo::fromName(address);
    return info.addresses().isEmpty() ? QString() : info.addresses().first().toString();
}

}  // namespace

ShareSession::ShareSession(ClientSession* session, Raise raise, QObject* parent)
    : QObject(parent), m_session(session), m_raise(std::move(raise)) {
    m_answerTimeout.setSingleShot(true);
    connect(&m_answerTimeout, &QTimer::timeout, this, [this] {
        ZV_LOG(WARNING) << " the panel did not answer the share request";
        send(shareStop(QStringLiteral("timeout")));
        teardown();
        finishRequest(FAIL, zv_error::CONNECT_FAILED);
    });
    m_stallCheck.setInterval(1000);
    connect(&m_stallCheck, &QTimer::timeout, this, &ShareSession::checkStalled);
    registerHandlers();
    connect(m_session, &ClientSession::ended, this, [this] {
        if (m_state == State::Idle) return;
        ZV_LOG(INFO) << " the session ended: the reverse screen ends with it";
        teardown();
        finishRequest(FAIL, zv_error::CONNECT_FAILED);
    });
}

ShareSession::~ShareSession() { teardown(); }

void ShareSession::send(const google::protobuf::Message& body) { m_session->send(wrap(body)); }

void ShareSession::registerHandlers() {
    using E = wire::Envelope;
    MessageDispatcher<>& d = m_session->dispatcher();
    d.on(E::kSharePending, [this](const E&) {
        if (m_state != State::Asking) return;
        ZV_LOG(INFO) << " the panel asks its user";
        m_state = State::Waiting;
        m_answerTimeout.start(120000);  // a person decides
        finishRequest(WAIT_AUTHORIZATION, zv_error::WAIT_AUTHORIZATION);
    });
    d.on(E::kShareAccepted, [this](const E& e) { onAccepted(e.share_accepted()); });
    d.on(E::kShareRefused, [this](const E& e) { onRefused(e.share_refused()); });
    d.on(E::kShareStop, [this](const E& e) { onPanelStop(e.share_stop()); });
    d.on(E::kShareControlState, [this](const E& e) { onControlState(e.share_control_state()); });
    d.on(E::kShareVoiceState, [this](const E& e) {
        if (m_state == State::Sharing) ZV_LOG(INFO) << " the panel's sound is " << (e.share_voice_state().on() ? "on" : "off");
    });
    d.on(E::kShareControlInvalid, [this](const E&) {
        if (m_state == State::Sharing) m_raise(NOTIFY_REVERSE_CONTROL_INVALID, nullptr);
    });
    d.on(E::kShareRestart, [this](const E&) {
        if (m_state == State::Sharing) m_raise(NOTIFY_SHARE_RESTORE_SETTINGS, nullptr);
    });
}

void ShareSession::request(StreamDataCallback callback, void* user, bool voice, RequestDone done) {
    if (!m_session->isLoggedIn()) {
        done(FAIL, zv_error::CONNECT_FAILED);
        return;
    }
    if (m_state != State::Idle) {
        send(shareStop(QStringLiteral("replaced")));
        teardown();
        finishRequest(FAIL, zv_error::REVERSE_ABNORMAL);
    }
    m_done = std::move(done);
    m_voice = voice;
    {
        std::lock_guard<std::mutex> lock(m_delivery->mutex);
        m_delivery->callback = callback;
        m_delivery->user = user;
    }
    // Units arrive on receiving threads: framed and handed straight on.
    std::weak_ptr<Delivery> delivery = m_delivery;
    auto units = [delivery](const media::ShareUnit& unit) {
        const auto d = delivery.lock();
        if (!d) return;
        uint8_t flags = unit.keyFrame ? DEXO_FLAG_KEY : 0;
        if (unit.discontinuity) flags |= DEXO_FLAG_DISCONTINUITY;
        std::vector<uint8_t> packet = player::encodePacket(unit.kind, flags, unit.ptsUs, unit.data, unit.size);
        std::lock_guard<std::mutex> lock(d->mutex);
        if (d->callback != nullptr) {
            d->callback(unit.kind, reinterpret_cast<char*>(packet.data()), static_cast<int>(packet.size()), d->user);
        }
    };
    auto error = [this](const std::string& why) {
        QMetaObject::invokeMethod(
            this,
            [this, why] {
                if (m_state != State::Sharing) return;
                ZV_LOG(ERROR) << " the reverse screen broke: " << why;
                send(shareStop(QStringLiteral("receiverFailed")));
                teardown();
                m_raise(NOTIFY_REVERSE_LINK_BROKEN, [&](tagNotifyExceptionParams_& p) {
                    copyReason(p, QString::fromStdString(why));
                });
            },
            Qt::QueuedConnection);
    };
    m_receiver = std::make_unique<media::ShareReceiver>(units, error);
    const std::string reserveError = m_receiver->reserve();
    if (!reserveError.empty()) {
        ZV_LOG(ERROR) << " cannot receive a reverse screen: " << reserveError;
        teardown();
        finishRequest(FAIL, zv_error::REVERSE_ABNORMAL);
        return;
    }
    const media::ShareReceiverPorts ports = m_receiver->ports();
    wire::ShareRequest request;
    request.set_transport(wire::TRANSPORT_UDP);
    request.set_video_port(ports.video);
    request.set_audio_port(ports.audio);
    request.set_rtcp_port(ports.rtcp);
    request.set_fps(30);
    request.set_voice(voice);
    m_state = State::Asking;
    ZV_LOG(INFO) << " asking for the panel's screen, video to UDP " << ports.video;
    send(request);
    m_answerTimeout.start(kAnswerTimeoutMs);
}

void ShareSession::onAccepted(const wire::ShareAccepted& accepted) {
    if (m_state != State::Asking && m_state != State::Waiting) return;
    const bool wasWaiting = m_state == State::Waiting;
    m_answerTimeout.stop();
    // The share's keys, from the TLS connection the answer came on; the
    // panel's media are "direction 2" of this share id.
    const auto keys = keys::castKeys(m_session->exporter(), accepted.share_id(), keys::CastSide::Pc);
    media::ShareReceiverConfig config;
    config.peerAddress = peerAddress(m_session->panel().address).toStdString();
    config.audio = accepted.audio();
    std::string error;
    if (!keys) {
        error = "no keys for the share: the control connection has gone";
    } else if (config.peerAddress.empty()) {
        error = "the panel's address is unknown";
    } else {
        config.receiveKey = keys->receiveKey;
        error = m_receiver->start(config);
    }
    if (!error.empty()) {
        ZV_LOG(ERROR) << " the reverse screen could not start: " << error;
        send(shareStop(QStringLiteral("receiverFailed")));
        teardown();
        if (wasWaiting) {
            m_raise(NOTIFY_AUTHORIZATION_DENIED, [](tagNotifyExceptionParams_& p) { copyReason(p, QStringLiteral("receiverFailed")); });
        } else {
            finishRequest(FAIL, zv_error::REVERSE_ABNORMAL);
        }
        return;
    }
    m_state = State::Sharing;
    m_lastBytes = 0;
    m_quietSeconds = 0;
    m_stallCheck.start();
    ZV_LOG(INFO) << " showing the panel's screen " << accepted.width() << "x" << accepted.height() << " ("
                 << accepted.encoder() << ")";
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

void ShareSession::onRefused(const wire::ShareRefused& refused) {
    if (m_state != State::Asking && m_state != State::Waiting) return;
    const bool wasWaiting = m_state == State::Waiting;
    const QString reason = QString::fromStdString(refused.reason());
    ZV_LOG(WARNING) << " reverse screen refused: " << refused.reason() << " " << refused.text();
    teardown();
    if (wasWaiting) {
        m_raise(NOTIFY_AUTHORIZATION_DENIED, [&](tagNotifyExceptionParams_& p) { copyReason(p, reason); });
        return;
    }
    m_raise(NOTIFY_REQUEST_REFUSED, [&](tagNotifyExceptionParams_& p) {
        copyReason(p, reason == QLatin1String("denied") ? QStringLiteral("server does not allow screen share.")
                                                        : reason);
    });
    finishRequest(FAIL, 0);
}

void ShareSession::onPanelStop(const wire::ShareStop& stop) {
    if (m_state == State::Idle) return;
    const bool sharing = m_state == State::Sharing;
    ZV_LOG(INFO) << " the panel ended the reverse screen: " << stop.reason();
    teardown();
    if (sharing) {
        m_raise(NOTIFY_REVERSE_SCREEN_ENDED, [&](tagNotifyExceptionParams_& p) {
            copyReason(p, QString::fromStdString(stop.reason()));
        });
    } else {
        finishRequest(FAIL, zv_error::REVERSE_ABNORMAL);
    }
}

void ShareSession::onControlState(const wire::ShareControlState& state) {
    if (m_state != State::Sharing) return;
    if (state.revoked()) {
        // Taken away on the panel: the client reads a non-zero result as "off".
        m_raise(NOTIFY_REVERSE_CONTROL_OFF, [](tagNotifyExceptionParams_& p) { p.nResult = 1; });
        return;
    }
    m_raise(NOTIFY_REVERSE_CONTROL_ANSWER, [&](tagNotifyExceptionParams_& p) {
        p.nResult = state.on() ? 1 : 0;
        copyReason(p, QString::fromStdString(state.holder()));
    });
}

void ShareSession::checkStalled() {
    if (m_state != State::Sharing || !m_receiver) return;
    const media::ShareReceiverStatistics stats = m_receiver->statistics();
    // Once a second, as the forward cast's figures: the sidebar's overlay shows them.
    m_raise(NOTIFY_STREAM_STATISTICS, [&](tagNotifyExceptionParams_& p) {
        p.nBitRateKbps = static_cast<int>(stats.bitrateKbps);
        p.nFrameRate = static_cast<int>(stats.fps + 0.5);
        p.nDelayMs = stats.delayMs;
        p.ucLoss = stats.packetsRejected > 0 ? 1 : 0;
    });
    const quint64 bytes = stats.bytes;
    m_quietSeconds = bytes > m_lastBytes ? 0 : m_quietSeconds + 1;
    m_lastBytes = bytes;
    if (m_quietSeconds < kStallSeconds) return;
    ZV_LOG(WARNING) << " nothing from the panel's stream for " << m_quietSeconds << " s: the reverse screen ends";
    send(shareStop(QStringLiteral("stalled")));
    teardown();
    m_raise(NOTIFY_NO_BITSTREAM, nullptr);
}

bool ShareSession::requestKeyFrame() {
    if (m_state != State::Sharing) return false;
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    if (now - m_lastKeyFrameMs < kKeyFrameGapMs) return true;
    m_lastKeyFrameMs = now;
    ZV_LOG(INFO) << " asking the panel for a key frame";
    send(wire::ShareKeyFrame());
    return true;
}

bool ShareSession::setVoice(bool on) {
    if (m_state != State::Sharing) return false;
    wire::ShareVoice voice;
    voice.set_on(on);
    send(voice);
    return true;
}

bool ShareSession::setControl(bool on) {
    if (m_state != State::Sharing) return false;
    wire::ShareControl control;
    control.set_on(on);
    send(control);
    return true;
}

bool ShareSession::sendInput(const wire::ShareInput& input) {
    if (m_state != State::Sharing) return false;
    send(input);
    return true;
}

bool ShareSession::parseInput(const QByteArray& json, wire::ShareInput* input, QString* error) {
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    const QJsonObject touch = document.object().value(QStringLiteral("touchControl")).toObject();
    if (parseError.error != QJsonParseError::NoError || touch.isEmpty()) {
        *error = QStringLiteral("not a touchControl object");
        return false;
    }
    static const QHash<QString, wire::ShareInput::Type> types = {
        {QStringLiteral("touchDown"), wire::ShareInput::TOUCH_DOWN},
        {QStringLiteral("touchMove"), wire::ShareInput::TOUCH_MOVE},
        {QStringLiteral("touchUp"), wire::ShareInput::TOUCH_UP},
        {QStringLiteral("home"), wire::ShareInput::HOME},
        {QStringLiteral("back"), wire::ShareInput::BACK},
    };
    const QString type = touch.value(QStringLiteral("ctrlType")).toString();
    const auto found = types.find(type);
    if (found == types.end()) {
        *error = QStringLiteral("unknown ctrlType \"%1\"").arg(type);
        return false;
    }
    const QJsonValue x = touch.value(QStringLiteral("x")), y = touch.value(QStringLiteral("y"));
    if (!x.isDouble() || !y.isDouble() || x.toDouble() < 0 || x.toDouble() > 65535 || y.toDouble() < 0 ||
        y.toDouble() > 65535) {
        *error = QStringLiteral("x and y must be 0..65535");
        return false;
    }
    input->set_type(found.value());
    input->set_x(x.toInt());
    input->set_y(y.toInt());
    input->set_id(touch.value(QStringLiteral("id")).toInt(1));
    input->set_time(static_cast<qint64>(touch.value(QStringLiteral("timestamp")).toDouble()));
    return true;
}

void ShareSession::stop(const QString& reason) {
    if (m_state == State::Idle) return;
    ZV_LOG(INFO) << " stopping the reverse screen: " << reason.toStdString();
    send(shareStop(reason));
    teardown();
    finishRequest(FAIL, zv_error::REVERSE_ABNORMAL);
}

void ShareSession::finishRequest(ProjectOrShareReqResult result, uint32_t error) {
    if (!m_done) return;
    RequestDone done = std::move(m_done);
    m_done = nullptr;
    done(result, error);
}

void ShareSession::teardown() {
    m_answerTimeout.stop();
    m_stallCheck.stop();
    if (m_receiver) m_receiver->stop();  // no unit is delivered after this
    m_receiver.reset();
    {
        std::lock_guard<std::mutex> lock(m_delivery->mutex);
        m_delivery->callback = nullptr;
        m_delivery->user = nullptr;
    }
    m_state = State::Idle;
}

}  // namespace zv
