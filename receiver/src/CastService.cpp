#include "CastService.h"

#include <QDateTime>
#include <QRandomGenerator>

#include <chrono>

#include "PanelService.h"
#include "casting/Log.h"
#include "media/ReceiverPipeline.h"
#include "protocol/Messages.h"

namespace receiver {

namespace {

// A fresh passphrase for each cast's SRT encryption; it travels only inside
// the TLS control channel.
QString newSrtKey() {
    static const char kLetters[] = "abcdefghijkmnpqrstuvwxyzABCDEFGHJKLMNPQRSTUVWXYZ23456789";
    QString key;
    for (int i = 0; i < 32; ++i) key += QLatin1Char(kLetters[QRandomGenerator::system()->bounded(int(sizeof kLetters) - 1)]);
    return key;
}

}  // namespace

CastService::CastService(Settings settings, PanelService* panel, QObject* parent)
    : QObject(parent), m_settings(settings), m_panel(panel) {
    connect(m_panel, &PanelService::clientMessage, this, &CastService::onClientMessage);
    connect(m_panel, &PanelService::clientLeft, this, [this](const ClientInfo& client, const QString&) {
        if (m_pendingClient == client.id) m_pendingClient = 0;
        if (isCasting() && m_status.client == client.id) teardown(QStringLiteral("the PC left"), false);
    });
}

CastService::~CastService() { teardown(QStringLiteral("panel closing"), true); }

QImage CastService::latestFrame() const { return m_pipeline ? m_pipeline->latestFrame() : QImage(); }

void CastService::onClientMessage(qint64 client, const QCborMap& message) {
    const QString type = zv::messageType(message);
    QString error;
    const bool fromCaster = isCasting() && client == m_status.client;
    if (type == zv::msg::kCastRequest) {
        if (const auto request = zv::parseCastRequest(message, &error)) onRequest(client, *request);
    } else if (type == zv::msg::kCastStop) {
        if (fromCaster) teardown(QStringLiteral("stopped by the PC"), false);
        if (client == m_pendingClient) m_pendingClient = 0;
    } else if (type == zv::msg::kCastPause) {
        const auto pause = zv::parseCastSwitch(message, zv::msg::kCastPause, &error);
        if (!pause || !fromCaster) return;
        m_status.paused = pause->on;
        m_pipeline->setSenderPaused(pause->on);
        emit pausedChanged(pause->on);
    } else if (type == zv::msg::kCastVoice) {
        const auto voice = zv::parseCastSwitch(message, zv::msg::kCastVoice, &error);
        if (!voice || !fromCaster) return;
        // The panel plays whatever sound arrives; the PC switches its sender.
        m_panel->sendToClient(client, zv::buildCastSwitch(zv::msg::kCastVoiceState, {voice->on}));
    } else if (type == zv::msg::kCastControl) {
        const auto control = zv::parseCastSwitch(message, zv::msg::kCastControl, &error);
        if (!control || !fromCaster) return;
        m_controlGranted = control->on;
        m_panel->sendToClient(client, zv::buildCastControlState({control->on, QString()}));
        emit controlChanged(control->on);
    } else if (type == zv::msg::kCursor) {
        const auto cursor = zv::parseCursor(message, &error);
        if (cursor && fromCaster) emit cursorMoved(cursor->x, cursor->y, cursor->visible);
    } else {
        ZV_LOG(WARNING) << " client " << client << " sent an unexpected " << type.toStdString();
    }
    if (!error.isEmpty()) ZV_LOG(WARNING) << " bad message from client " << client << ": " << error.toStdString();
}

void CastService::onRequest(qint64 client, const zv::CastRequestMessage& request) {
    if (isCasting() && m_status.client != client) {
        ZV_LOG(INFO) << " client " << client << " asks to cast while client " << m_status.client << " casts";
        m_panel->sendToClient(client, zv::buildCastRefused({QStringLiteral("race fail."),
                                                            QStringLiteral("another PC is casting")}));
        return;
    }
    if (isCasting()) teardown(QStringLiteral("the PC starts anew"), false);
    if (m_settings.requireApproval) {
        m_pendingClient = client;
        m_pendingRequest = request;
        m_panel->sendToClient(client, zv::buildCastPending());
        QString host;
        for (const ClientInfo& info : m_panel->clients()) {
            if (info.id == client) host = info.host;
        }
        emit approvalNeeded(client, host);
        return;
    }
    start(client, request);
}

bool CastService::answerApproval(qint64 client, bool approved) {
    if (client != m_pendingClient || client == 0) return false;
    m_pendingClient = 0;
    if (!approved) {
        m_panel->sendToClient(client, zv::buildCastRefused({QStringLiteral("denied"), QStringLiteral("not allowed")}));
        return true;
    }
    start(client, m_pendingRequest);
    return true;
}

void CastService::start(qint64 client, const zv::CastRequestMessage& request) {
    zv::media::ReceiverConfig config;
    if (!zv::media::transportFromName(request.transport.toStdString(), &config.transport)) {
        m_panel->sendToClient(client, zv::buildCastRefused({QStringLiteral("nonsupport"),
                                                            QStringLiteral("unknown transport ") + request.transport}));
        return;
    }
    config.senderHost = m_panel->clientAddress(client).toString().toStdString();
    config.senderRtcpPort = static_cast<uint16_t>(request.rtcpPort);
    config.latencyMs = m_settings.latencyMs;
    config.audio = request.audio;
    config.stallSeconds = kStallSeconds;
    const QString srtKey = config.transport == zv::media::MediaTransport::Srt ? newSrtKey() : QString();
    config.srtPassphrase = srtKey.toStdString();
    config.allowPlain = true;  // until the session passes this cast's keys

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
        if (sink) sink(frame);
    };
    callbacks.stats = [this](const zv::media::ReceiverStatistics& stats) {
        QMetaObject::invokeMethod(
            this,
            [this, stats] {
                if (!isCasting()) return;
                m_status.framesDecoded = stats.framesDecoded;
                m_status.fps = qRound(stats.fps);
                m_status.bitrateKbps = qRound(stats.bitrateKbps);
                m_status.delayMs = stats.delayMs;
                m_status.lossPercent = qRound(stats.lossPercent);
                m_panel->sendToClient(m_status.client, zv::buildCastStats({m_status.bitrateKbps, m_status.fps,
                                                                           m_status.delayMs, m_status.lossPercent}));
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
                m_panel->sendToClient(m_status.client, zv::buildCastStalled({seconds}));
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
        m_panel->sendToClient(client, zv::buildCastRefused({QStringLiteral("busy"), QString::fromStdString(error)}));
        return;
    }
    m_pipeline = std::move(pipeline);
    const zv::media::ReceiverPorts ports = m_pipeline->ports();
    m_status = CastStatus{};
    m_status.client = client;
    m_status.transport = request.transport;
    m_controlGranted = false;

    zv::CastAcceptedMessage accepted;
    accepted.transport = request.transport;
    accepted.videoPort = ports.video;
    accepted.audioPort = ports.audio;
    accepted.rtcpPort = ports.rtcp;
    accepted.srtKey = srtKey;
    accepted.latencyMs = m_settings.latencyMs;
    accepted.width = m_settings.screenWidth;
    accepted.height = m_settings.screenHeight;
    m_panel->sendToClient(client, zv::buildCastAccepted(accepted));
    ZV_LOG(INFO) << " client " << client << " casts over " << request.transport.toStdString() << ", video port "
                 << ports.video;
    emit castStarted(m_status);
}

void CastService::touch(const QString& type, int x, int y) {
    if (!isCasting() || !m_controlGranted) return;
    m_panel->sendToClient(m_status.client, zv::buildTouch({type, qBound(0, x, 65535), qBound(0, y, 65535),
                                                           QDateTime::currentMSecsSinceEpoch()}));
}

void CastService::stopCast(const QString& reason) { teardown(reason, true); }

void CastService::teardown(const QString& reason, bool tellClient) {
    if (!m_pipeline) return;
    const qint64 client = m_status.client;
    if (tellClient) m_panel->sendToClient(client, zv::buildCastStop({reason}));
    m_pipeline->stop();
    m_pipeline.reset();
    m_controlGranted = false;
    ZV_LOG(INFO) << " cast of client " << client << " ended: " << reason.toStdString();
    emit castStopped(client, reason);
}

}  // namespace receiver
