#include "CastService.h"

#include <QDateTime>
#include <QPointer>

#include <chrono>

#include "ApprovalGate.h"
#include "PanelService.h"
#include "casting/Log.h"
#include "media/ReceiverPipeline.h"
#include "protocol/WireCodec.h"
#include "protocol/WireNames.h"
#include "security/CastKeys.h"

namespace receiver {

CastService::CastService(Settings settings, PanelService* panel, QObject* parent)
    : QObject(parent), m_settings(settings), m_panel(panel) {
    registerHandlers();
    m_casterCheck.setInterval(1000);
    connect(&m_casterCheck, &QTimer::timeout, this, &CastService::checkCasterHeard);
    connect(m_panel, &PanelService::clientLeft, this, [this](const ClientInfo& client, const QString&) {
        if (isCasting() && m_status.client == client.id) teardown(QStringLiteral("the PC left"), false);
    });
}

CastService::~CastService() { teardown(QStringLiteral("panel closing"), true); }

void CastService::windowResized() {
    if (m_pipeline) m_pipeline->windowResized();
}

QImage CastService::latestFrame() const { return m_pipeline ? m_pipeline->latestFrame() : QImage(); }

void CastService::registerHandlers() {
    using E = zv::wire::Envelope;
    zv::MessageDispatcher<qint64>& d = m_panel->dispatcher();
    d.on(E::kCastRequest, [this](const E& e, qint64 client) { onRequest(client, e.cast_request()); });
    d.on(E::kCastStop, [this](const E&, qint64 client) {
        if (fromCaster(client)) teardown(QStringLiteral("stopped by the PC"), false);
        m_panel->approvals().withdraw(client, ApprovalGate::Kind::Cast);
    });
    d.on(E::kCastPause, [this](const E& e, qint64 client) { onPause(client, e.cast_pause().paused()); });
    d.on(E::kCastVoice, [this](const E& e, qint64 client) { onVoice(client, e.cast_voice().on()); });
    d.on(E::kCastControl, [this](const E& e, qint64 client) { onControl(client, e.cast_control().on()); });
    d.on(E::kCursor, [this](const E& e, qint64 client) { onCursor(client, e.cursor()); });
}

void CastService::send(qint64 client, const google::protobuf::Message& body) {
    m_panel->sendToClient(client, zv::wrap(body));
}

void CastService::refuse(qint64 client, const QString& reason, const QString& text) {
    zv::wire::CastRefused refused;
    refused.set_reason(reason.toStdString());
    refused.set_text(text.toStdString());
    send(client, refused);
}

void CastService::onPause(qint64 client, bool paused) {
    if (!fromCaster(client)) return;
    m_status.paused = paused;
    m_pipeline->setSenderPaused(paused);
    emit pausedChanged(paused);
}

void CastService::onVoice(qint64 client, bool on) {
    if (!fromCaster(client)) return;
    // The panel plays whatever sound arrives; the PC switches its sender.
    zv::wire::CastVoiceState state;
    state.set_on(on);
    send(client, state);
}

void CastService::onControl(qint64 client, bool on) {
    if (!fromCaster(client)) return;
    m_controlGranted = on;
    zv::wire::CastControlState state;
    state.set_on(on);
    send(client, state);
    emit controlChanged(on);
}

void CastService::onCursor(qint64 client, const zv::wire::Cursor& cursor) {
    if (!fromCaster(client)) return;
    if (cursor.x() < 0 || cursor.x() > 65535 || cursor.y() < 0 || cursor.y() > 65535) {
        ZV_LOG(WARNING) << " client " << client << " sent a pointer outside the picture: " << cursor.x() << ","
                        << cursor.y();
        return;
    }
    emit cursorMoved(cursor.x(), cursor.y(), cursor.visible());
}

void CastService::onRequest(qint64 client, const zv::wire::CastRequest& request) {
    if (isCasting() && m_status.client != client) {
        ZV_LOG(INFO) << " client " << client << " asks to cast while client " << m_status.client << " casts";
        refuse(client, QStringLiteral("race fail."), QStringLiteral("another PC is casting"));
        return;
    }
    if (isCasting()) teardown(QStringLiteral("the PC starts anew"), false);
    // A PC let in under the "approve" rule asks the panel's user each time
    // until the user accepts it once (then it is a known PC).
    const QPointer<CastService> self(this);
    const bool known = m_panel->approvals().admit(
        client, ApprovalGate::Kind::Cast, m_settings.requireApproval, [self, client, request](bool approved) {
            if (self.isNull()) return;
            if (approved) {
                self->start(client, request);
            } else {
                self->refuse(client, QStringLiteral("denied"), QStringLiteral("not allowed"));
            }
        });
    if (!known) {
        send(client, zv::wire::CastPending());
        return;
    }
    start(client, request);
}

void CastService::start(qint64 client, const zv::wire::CastRequest& request) {
    zv::media::ReceiverConfig config;
    const QString transport = zv::transportName(request.transport());
    if (!zv::media::transportFromName(transport.toStdString(), &config.transport)) {
        refuse(client, QStringLiteral("nonsupport"), QStringLiteral("unknown transport ") + transport);
        return;
    }
    if (request.rtcp_port() < 0 || request.rtcp_port() > 65535) {
        refuse(client, QStringLiteral("nonsupport"), QStringLiteral("RTCP port %1 out of range").arg(request.rtcp_port()));
        return;
    }
    // Media are taken only from where the control connection comes from.
    config.senderHost = m_panel->clientAddress(client).toString().toStdString();
    config.peerAddress = config.senderHost;
    config.senderRtcpPort = static_cast<uint16_t>(request.rtcp_port());
    config.latencyMs = m_settings.latencyMs;
    config.audio = request.audio();
    config.stallSeconds = kStallSeconds;
    // Every cast gets a fresh id, and so keys of its own (a restart too).
    const quint32 castId = m_nextCastId++;
    const auto castKeys = zv::keys::castKeys(m_panel->exporter(client), castId, zv::keys::CastSide::Panel);
    if (!castKeys) {
        ZV_LOG(ERROR) << " no keys for a cast of client " << client << ": its control connection has gone";
        refuse(client, QStringLiteral("busy"), QStringLiteral("no keys for the cast"));
        return;
    }
    config.sendKey = castKeys->sendKey;
    config.receiveKey = castKeys->receiveKey;
    config.srtPassphrase = castKeys->srtPassphrase;

    // Callbacks come on pipeline threads: everything is handed to this thread.
    zv::media::ReceiverCallbacks callbacks;
    m_awaitingFirstFrame = true;
    callbacks.frame = [this, sink = m_frameSink](const QImage& frame) {
        if (m_awaitingFirstFrame.exchange(false)) {
            const qint64 now = std::chrono::duration_cast<std::chrono::milliseconds>(
                                   std::chrono::steady_clock::now().time_since_epoch())
                                   .count();
            QMetaObject::invokeMethod(this, [this, now] { emit firstFrame(m_status.client, now); },
                                      Qt::QueuedConnection);
        }
        if (sink && !frame.isNull()) sink(frame);
    };
    config.videoWindow = m_videoWindow;
    callbacks.pictureSize = m_pictureSize;
    callbacks.stats = [this](const zv::media::ReceiverStatistics& stats) {
        QMetaObject::invokeMethod(
            this,
            [this, stats] {
                if (!isCasting()) return;
                if (stats.bytesReceived > m_bytesAtLastStats) m_mediaHeard.start();
                m_bytesAtLastStats = stats.bytesReceived;
                m_status.framesDecoded = stats.framesDecoded;
                m_status.packetsRejected = stats.packetsRejected;
                m_status.packetsFromOthers = stats.packetsFromOthers;
                m_status.fps = qRound(stats.fps);
                m_status.bitrateKbps = qRound(stats.bitrateKbps);
                m_status.delayMs = stats.delayMs;
                m_status.lossPercent = qRound(stats.lossPercent);
                zv::wire::CastStats report;
                report.set_bitrate_kbps(m_status.bitrateKbps);
                report.set_fps(m_status.fps);
                report.set_delay_ms(m_status.delayMs);
                report.set_loss_percent(m_status.lossPercent);
                send(m_status.client, report);
                emit statistics(m_status);
            },
            Qt::QueuedConnection);
    };
    callbacks.stalled = [this](int seconds) {
        QMetaObject::invokeMethod(
            this,
            [this, seconds] {
                if (!isCasting()) return;
                ZV_LOG(WARNING) << " no media from client " << m_status.client << " for " << seconds << " s";
                zv::wire::CastStalled stalled;
                stalled.set_seconds(seconds);
                send(m_status.client, stalled);
            },
            Qt::QueuedConnection);
    };
    callbacks.error = [this](const std::string& error) {
        QMetaObject::invokeMethod(
            this,
            [this, error] {
                if (!isCasting()) return;
                ZV_LOG(ERROR) << " the cast broke: " << error;
                teardown(QStringLiteral("media error"), true);
            },
            Qt::QueuedConnection);
    };

    auto pipeline = std::make_unique<zv::media::ReceiverPipeline>(callbacks);
    const std::string error = pipeline->start(config);
    if (!error.empty()) {
        ZV_LOG(ERROR) << " cannot receive the cast: " << error;
        refuse(client, QStringLiteral("busy"), QString::fromStdString(error));
        return;
    }
    m_pipeline = std::move(pipeline);
    const zv::media::ReceiverPorts ports = m_pipeline->ports();
    m_status = CastStatus{};
    m_status.client = client;
    m_status.transport = transport;
    m_controlGranted = false;
    m_mediaHeard.start();
    m_bytesAtLastStats = 0;
    m_casterCheck.start();

    zv::wire::CastAccepted accepted;
    accepted.set_transport(request.transport());
    accepted.set_video_port(ports.video);
    accepted.set_audio_port(ports.audio);
    accepted.set_rtcp_port(ports.rtcp);
    accepted.set_cast_id(castId);
    accepted.set_latency_ms(m_settings.latencyMs);
    accepted.set_width(m_settings.screenWidth);
    accepted.set_height(m_settings.screenHeight);
    send(client, accepted);
    ZV_LOG(INFO) << " client " << client << " casts over " << transport.toStdString() << ", video port "
                 << ports.video;
    emit castStarted(m_status);
}

void CastService::touch(const QString& type, int x, int y) {
    if (!isCasting() || !m_controlGranted) return;
    const zv::wire::Touch::Type wireType = zv::touchTypeFromName(type);
    if (wireType == zv::wire::Touch::TYPE_UNSPECIFIED) {
        ZV_LOG(WARNING) << " no touch type \"" << type.toStdString() << "\"";
        return;
    }
    zv::wire::Touch touch;
    touch.set_type(wireType);
    touch.set_x(qBound(0, x, 65535));
    touch.set_y(qBound(0, y, 65535));
    touch.set_time(QDateTime::currentMSecsSinceEpoch());
    send(m_status.client, touch);
}

void CastService::stopCast(const QString& reason) { teardown(reason, true); }

void CastService::checkCasterHeard() {
    if (!isCasting()) return;
    const qint64 linkQuietMs = m_panel->quietMs(m_status.client);
    const qint64 mediaQuietMs = m_mediaHeard.elapsed();
    const bool linkQuiet = linkQuietMs < 0 || linkQuietMs >= kInterruptAfterMs;
    if (!linkQuiet || mediaQuietMs < kInterruptAfterMs) return;
    const int quietSeconds = int(qMin(mediaQuietMs, linkQuietMs < 0 ? mediaQuietMs : linkQuietMs) / 1000);
    ZV_LOG(WARNING) << " nothing from client " << m_status.client << " for " << quietSeconds
                    << " s, neither media nor heartbeats: the cast is interrupted and the panel free";
    emit castInterrupted(m_status.client, quietSeconds);
    // Told if its link still stands; its session stays for it to come back.
    teardown(QString::fromLatin1(zv::kCastInterruptedReason), true);
}

void CastService::teardown(const QString& reason, bool tellClient) {
    if (!m_pipeline) return;
    const qint64 client = m_status.client;
    if (tellClient) {
        zv::wire::CastStop stop;
        stop.set_reason(reason.toStdString());
        send(client, stop);
    }
    m_casterCheck.stop();
    m_pipeline->stop();
    m_pipeline.reset();
    m_controlGranted = false;
    ZV_LOG(INFO) << " cast of client " << client << " ended: " << reason.toStdString();
    emit castStopped(client, reason);
}

}  // namespace receiver
