#include "ShareService.h"

#include <QPointer>

#include "ApprovalGate.h"
#include "PanelInput.h"
#include "PanelService.h"
#include "casting/Log.h"
#include "media/SenderPipeline.h"
#include "protocol/WireCodec.h"
#include "security/CastKeys.h"

namespace receiver {

namespace {

const char* inputName(zv::wire::ShareInput::Type type) {
    switch (type) {
        case zv::wire::ShareInput::TOUCH_DOWN: return "touchDown";
        case zv::wire::ShareInput::TOUCH_MOVE: return "touchMove";
        case zv::wire::ShareInput::TOUCH_UP: return "touchUp";
        case zv::wire::ShareInput::HOME: return "home";
        case zv::wire::ShareInput::BACK: return "back";
        default: break;
    }
    return "unknown";
}

}  // namespace

ShareService::ShareService(Settings settings, PanelService* panel, QObject* parent)
    : QObject(parent), m_settings(std::move(settings)), m_panel(panel) {
    registerHandlers();
    connect(m_panel, &PanelService::clientLeft, this, [this](const ClientInfo& client, const QString&) {
        if (m_client == client.id) teardown(QStringLiteral("the PC left"), false);
    });
}

ShareService::~ShareService() { teardown(QStringLiteral("panel closing"), true); }

void ShareService::registerHandlers() {
    using E = zv::wire::Envelope;
    zv::MessageDispatcher<qint64>& d = m_panel->dispatcher();
    d.on(E::kShareRequest, [this](const E& e, qint64 client) { onRequest(client, e.share_request()); });
    d.on(E::kShareStop, [this](const E&, qint64 client) {
        m_panel->approvals().withdraw(client, ApprovalGate::Kind::Share);
        if (client == m_client) teardown(QStringLiteral("stopped by the PC"), false);
    });
    d.on(E::kShareKeyFrame, [this](const E&, qint64 client) {
        if (client != m_client || !m_sender) return;
        m_sender->requestKeyFrame();  // honoured with the next frame, changed or not
        emit keyFrameRequested(client);
    });
    d.on(E::kShareVoice, [this](const E& e, qint64 client) {
        if (client != m_client || !m_sender) return;
        m_sender->setAudioEnabled(e.share_voice().on());
        zv::wire::ShareVoiceState state;
        state.set_on(e.share_voice().on() && m_sender->audioActive());
        send(client, state);
    });
    d.on(E::kShareControl, [this](const E& e, qint64 client) { onControl(client, e.share_control().on()); });
    d.on(E::kShareInput, [this](const E& e, qint64 client) { onInput(client, e.share_input()); });
}

void ShareService::send(qint64 client, const google::protobuf::Message& body) {
    m_panel->sendToClient(client, zv::wrap(body));
}

void ShareService::refuse(qint64 client, const QString& reason, const QString& text) {
    zv::wire::ShareRefused refused;
    refused.set_reason(reason.toStdString());
    refused.set_text(text.toStdString());
    send(client, refused);
}

QString ShareService::hostOf(qint64 client) const {
    for (const ClientInfo& info : m_panel->clients()) {
        if (info.id == client) return info.host;
    }
    return QString();
}

void ShareService::onRequest(qint64 client, const zv::wire::ShareRequest& request) {
    if (isSharing() && m_client != client) {
        refuse(client, QStringLiteral("race fail."), QStringLiteral("another PC is watching this screen"));
        return;
    }
    if (isSharing()) teardown(QStringLiteral("the PC starts anew"), false);
    if (request.transport() != zv::wire::TRANSPORT_UDP && request.transport() != zv::wire::TRANSPORT_UNSPECIFIED) {
        refuse(client, QStringLiteral("nonsupport"), QStringLiteral("the reverse screen travels over UDP only"));
        return;
    }
    auto port = [](int value) { return value > 0 && value <= 65535; };
    if (!port(request.video_port()) || !port(request.rtcp_port()) ||
        (request.audio_port() != 0 && !port(request.audio_port()))) {
        refuse(client, QStringLiteral("nonsupport"), QStringLiteral("ports out of range"));
        return;
    }
    const QPointer<ShareService> self(this);
    const bool known = m_panel->approvals().admit(
        client, ApprovalGate::Kind::Share, m_settings.requireApproval, [self, client, request](bool approved) {
            if (self.isNull()) return;
            if (approved) {
                self->start(client, request);
            } else {
                self->refuse(client, QStringLiteral("denied"), QStringLiteral("not allowed"));
            }
        });
    if (!known) {
        send(client, zv::wire::SharePending());
        return;
    }
    start(client, request);
}

void ShareService::start(qint64 client, const zv::wire::ShareRequest& request) {
    const quint32 shareId = m_nextShareId++;
    const auto keys = zv::keys::castKeys(m_panel->exporter(client), shareId, zv::keys::CastSide::Panel);
    if (!keys) {
        refuse(client, QStringLiteral("busy"), QStringLiteral("no keys for the share"));
        return;
    }
    auto sender = std::make_unique<zv::media::SenderPipeline>();
    sender->setErrorCallback([this](const std::string& error) {
        QMetaObject::invokeMethod(
            this,
            [this, error] {
                if (!isSharing()) return;
                ZV_LOG(ERROR) << " the reverse screen broke: " << error;
                teardown(QStringLiteral("senderFailed"), true);
            },
            Qt::QueuedConnection);
    });
    zv::media::SenderConfig config;
    config.displayName = m_settings.displayName.toStdString();
    config.fps = request.fps() > 0 && request.fps() <= 60 ? request.fps() : 30;
    config.width = request.max_width();
    config.height = request.max_height();
    config.bitrateKbps = m_settings.bitrateKbps;
    config.transport = zv::media::MediaTransport::Udp;
    config.host = m_panel->clientAddress(client).toString().toStdString();
    config.videoPort = static_cast<uint16_t>(request.video_port());
    config.remoteRtcpPort = static_cast<uint16_t>(request.rtcp_port());
    config.localRtcpPort = 0;
    const uint16_t rtcpPort = sender->reserveRtcpPort();
    config.sendKey = keys->sendKey;        // direction 2: panel to PC
    config.receiveKey = keys->receiveKey;  // direction 1: the PC's RTCP
    // Sound from the default output's monitor when a sound server runs.
    config.audio = request.audio_port() != 0;
    config.audioPort = static_cast<uint16_t>(request.audio_port());
    const std::string error = sender->start(config);
    if (!error.empty()) {
        ZV_LOG(ERROR) << " cannot stream the panel's screen: " << error;
        refuse(client, QStringLiteral("busy"), QString::fromStdString(error));
        return;
    }
    if (!request.voice()) sender->setAudioEnabled(false);
    m_sender = std::move(sender);
    // The X connection for touches, opened with the first share.
    if (!m_input) m_input = std::make_unique<PanelInput>(m_settings.displayName);
    m_client = client;
    const zv::media::SenderStatistics stats = m_sender->statistics();
    zv::wire::ShareAccepted accepted;
    accepted.set_share_id(shareId);
    accepted.set_width(stats.width);
    accepted.set_height(stats.height);
    accepted.set_fps(config.fps);
    accepted.set_rtcp_port(rtcpPort);
    accepted.set_audio(config.audio);
    accepted.set_encoder(stats.encoder);
    accepted.set_device_type(m_settings.deviceType);
    send(client, accepted);
    ZV_LOG(INFO) << " client " << client << " sees this screen (" << stats.width << "x" << stats.height << ", "
                 << stats.encoder << ")";
    emit shareStarted(client, stats.width, stats.height, QString::fromStdString(stats.encoder));
}

void ShareService::onControl(qint64 client, bool on) {
    if (client != m_client || !m_sender) return;
    zv::wire::ShareControlState state;
    if (!on) {
        if (m_controlHolder == client) m_controlHolder = 0;
    } else if (m_settings.viewOnly || !m_input->available()) {
        state.set_holder("nonsupport");
    } else if (m_controlHolder != 0 && m_controlHolder != client) {
        const QString holder = hostOf(m_controlHolder);
        state.set_holder((holder.isEmpty() ? QStringLiteral("another PC") : holder).toStdString());
    } else {
        m_controlHolder = client;
    }
    state.set_on(on && m_controlHolder == client);
    send(client, state);
    emit controlChanged(client, state.on(), QString::fromStdString(state.holder()));
}

void ShareService::onInput(qint64 client, const zv::wire::ShareInput& input) {
    if (client != m_client || !m_sender) return;
    if (m_controlHolder != client) {
        send(client, zv::wire::ShareControlInvalid());
        return;
    }
    const int x = input.x(), y = input.y();
    if (x < 0 || x > 65535 || y < 0 || y > 65535) {
        ZV_LOG(WARNING) << " client " << client << " touched outside the screen: " << x << "," << y;
        return;
    }
    int px = -1, py = -1;
    switch (input.type()) {
        case zv::wire::ShareInput::TOUCH_DOWN: m_input->touch(PanelInput::Touch::Down, x, y, &px, &py); break;
        case zv::wire::ShareInput::TOUCH_MOVE: m_input->touch(PanelInput::Touch::Move, x, y, &px, &py); break;
        case zv::wire::ShareInput::TOUCH_UP: m_input->touch(PanelInput::Touch::Up, x, y, &px, &py); break;
        case zv::wire::ShareInput::HOME: emit homeRequested(); break;
        case zv::wire::ShareInput::BACK: m_input->back(); break;
        default:
            ZV_LOG(WARNING) << " client " << client << " sent an input of unknown type " << input.type();
            return;
    }
    emit inputInjected(QString::fromLatin1(inputName(input.type())), x, y, px, py);
}

void ShareService::stopShare(const QString& reason) { teardown(reason, true); }

void ShareService::teardown(const QString& reason, bool tellClient) {
    if (!m_sender) return;
    const qint64 client = m_client;
    if (tellClient) {
        zv::wire::ShareStop stop;
        stop.set_reason(reason.toStdString());
        send(client, stop);
    }
    m_sender->stop();
    m_sender.reset();
    m_client = 0;
    if (m_controlHolder == client) m_controlHolder = 0;
    ZV_LOG(INFO) << " reverse screen of client " << client << " ended: " << reason.toStdString();
    emit shareStopped(client, reason);
}

}  // namespace receiver
