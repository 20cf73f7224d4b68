#include "PanelService.h"

#include <QRandomGenerator>
#include <QTcpSocket>
#include <QTimer>

#include "ApprovalGate.h"
#include "CodeKeeper.h"
#include "casting/Log.h"
#include "casting/SessionRecords.h"
#include "protocol/ProtocolConstants.h"
#include "protocol/WireNames.h"
#include "transport/MessageChannel.h"

namespace receiver {


PanelService::PanelService(Settings settings, const QSslKey& key, const QSslCertificate& certificate, QString panelKey,
                           CodeKeeper* codes, QObject* parent)
    : QObject(parent),
      m_settings(std::move(settings)),
      m_panelKey(std::move(panelKey)),
      m_codes(codes),
      m_server(new zv::TlsServer(key, certificate, this)),
      m_budget(codes->isFixed()),
      m_known(m_settings.knownDevicesPath),
      m_sweep(new QTimer(this)),
      m_approvals(new ApprovalGate(this, this)) {
    if (m_settings.protocolMajor < 0) m_settings.protocolMajor = zv::kProtocolMajor;
    if (m_settings.protocolMinor < 0) m_settings.protocolMinor = zv::kProtocolMinor;
    using E = zv::wire::Envelope;
    m_greeting.on(E::kHello, [this](const E& e, zv::MessageChannel* channel) { onHello(channel, e.hello()); });
    m_greeting.on(E::kPakeConfirm,
                  [this](const E& e, zv::MessageChannel* channel) { onPakeConfirm(channel, e.pake_confirm()); });
    m_dispatch.on(E::kBye, [this](const E&, qint64 id) { endSession(id, QStringLiteral("logged out"), false); });
    m_dispatch.on(E::kReport, [this](const E& e, qint64 id) { onReport(id, e.report()); });
    m_dispatch.on(E::kHello, [this](const E&, qint64 id) {
        const auto it = m_sessions.find(id);
        if (it != m_sessions.end() && it->channel != nullptr) it->channel->close(QStringLiteral("protocol error: second hello"));
    });
    m_server->setWaitingCaps(m_settings.maxWaitingPerSource, m_settings.maxWaiting);
    connect(m_server, &zv::TlsServer::newChannel, this, &PanelService::onNewChannel);
    connect(m_server, &zv::TlsServer::handshakeFailed, this, [this](const QString& peer, const QString& reason) {
        emit helloRefused(peer, QStringLiteral("tls: ") + reason);
    });
    m_sweep->setInterval(1000);
    connect(m_sweep, &QTimer::timeout, this, &PanelService::sweepAway);
    m_sweep->start();
}

PanelService::~PanelService() {
    for (Session& session : m_sessions) {
        if (session.channel != nullptr) {
            zv::wire::Bye bye;
            bye.set_reason("panelShutdown");
            session.channel->send(zv::wrap(bye));
            session.channel->flush();
        }
    }
}

bool PanelService::start(QString* error) {
    if (!m_server->listen(m_settings.listenAddress, m_settings.port)) {
        if (error != nullptr) *error = m_server->errorString();
        return false;
    }
    return true;
}

quint16 PanelService::port() const { return m_server->serverPort(); }

QList<ClientInfo> PanelService::clients() const {
    QList<ClientInfo> result;
    for (const Session& session : m_sessions) result << session.info;
    return result;
}

void PanelService::onNewChannel(zv::MessageChannel* channel) {
    channel->setParent(this);
    channel->setProtocolMajor(m_settings.protocolMajor);
    auto* timeout = new QTimer(channel);
    timeout->setSingleShot(true);
    connect(timeout, &QTimer::timeout, channel, [channel] { channel->close(QStringLiteral("no hello in time")); });
    timeout->start(kHelloTimeoutMs);
    // The time-out runs until the handshake is over (a key exchange takes
    // two messages); once the session begins, attach() cuts this connection.
    connect(channel, &zv::MessageChannel::messageReceived, this,
            [this, channel, timeout](const zv::wire::Envelope& envelope) {
                if (greet(channel, envelope) != zv::Dispatch::Skipped && m_pending.count(channel) == 0) timeout->stop();
            });
    connect(channel, &zv::MessageChannel::closed, channel, [channel](const QString& reason) {
        ZV_LOG(INFO) << " " << channel->peerName().toStdString() << " left before its session began: "
                     << reason.toStdString();
        channel->deleteLater();
    });
}

zv::wire::Envelope PanelService::welcomeFor(const Session& session, zv::MessageChannel* channel, bool resumed) const {
    zv::wire::Envelope envelope;
    zv::wire::Welcome& welcome = *envelope.mutable_welcome();
    welcome.set_major(uint32_t(m_settings.protocolMajor));
    welcome.set_minor(uint32_t(m_settings.protocolMinor));
    welcome.set_session(session.info.id);
    welcome.set_resume(session.resumeToken.toStdString());
    welcome.set_heartbeat_ms(zv::kHeartbeatIntervalMs);
    welcome.set_resumed(resumed);
    welcome.set_approved(session.info.approved);
    zv::wire::PanelInfo& panel = *welcome.mutable_panel();
    panel.set_model(m_settings.model.toStdString());
    panel.set_name(m_settings.name.toStdString());
    panel.set_key(m_panelKey.toStdString());
    panel.set_address(channel->localAddress().toString().toStdString());
    panel.set_port(port());
    panel.set_width(m_settings.screenWidth);
    panel.set_height(m_settings.screenHeight);
    panel.set_device_type(CLIENT_DEVICE_PANEL);
    panel.set_software(m_settings.software.toStdString());
    zv::wire::PanelCaps& caps = *welcome.mutable_caps();
    caps.set_bits(m_settings.capabilities);
    caps.set_max_clients(m_settings.maxClients);
    caps.set_max_width(m_settings.screenWidth);
    caps.set_max_height(m_settings.screenHeight);
    return envelope;
}

void PanelService::attach(Session& session, zv::MessageChannel* channel) {
    if (session.channel != nullptr && session.channel != channel) {
        zv::MessageChannel* old = session.channel;
        disconnect(old, nullptr, this, nullptr);
        old->deleteLater();
    }
    disconnect(channel, nullptr, this, nullptr);
    disconnect(channel, &zv::MessageChannel::closed, channel, nullptr);
    m_server->settled(channel);  // in a session now: no longer counts as waiting
    session.channel = channel;
    const qint64 id = session.info.id;
    session.lastHeard.start();
    connect(channel, &zv::MessageChannel::messageReceived, this, [this, id](const zv::wire::Envelope& envelope) {
        heard(id);
        handle(id, envelope);
    });
    connect(channel, &zv::MessageChannel::heartbeatReceived, this, [this, id] { heard(id); });
    connect(channel, &zv::MessageChannel::heartbeatMissed, this, [this, id, channel](int count) {
        if (count < kDropAfterMissedBeats) return;
        auto it = m_sessions.find(id);
        if (it != m_sessions.end() && it->channel == channel) detach(*it, QStringLiteral("no heartbeat"));
    });
    connect(channel, &zv::MessageChannel::closed, this, [this, id, channel](const QString& reason) {
        auto it = m_sessions.find(id);
        if (it != m_sessions.end() && it->channel == channel) detach(*it, reason);
    });
    channel->startHeartbeat(zv::kHeartbeatIntervalMs);
}

void PanelService::detach(Session& session, const QString& why) {
    ZV_LOG(WARNING) << " client " << session.info.id << " lost its link (" << why.toStdString()
                    << "); its session is kept " << kResumeWindowMs / 1000 << " s for it to come back";
    zv::MessageChannel* channel = session.channel;
    session.channel = nullptr;
    session.awaySince.start();
    disconnect(channel, nullptr, this, nullptr);
    channel->deleteLater();
}

void PanelService::sweepAway() {
    QList<qint64> expired;
    for (const Session& session : m_sessions) {
        if (session.channel == nullptr && session.awaySince.isValid() && session.awaySince.elapsed() >= kResumeWindowMs) {
            expired << session.info.id;
        }
    }
    for (qint64 id : expired) endSession(id, QStringLiteral("link lost"), false);
    for (auto it = m_removedTokens.begin(); it != m_removedTokens.end();) {
        it = it->elapsed() >= kResumeWindowMs ? m_removedTokens.erase(it) : std::next(it);
    }
}

void PanelService::heard(qint64 id) {
    const auto it = m_sessions.find(id);
    if (it != m_sessions.end()) it->lastHeard.start();
}

qint64 PanelService::quietMs(qint64 id) const {
    const auto it = m_sessions.constFind(id);
    if (it == m_sessions.constEnd()) return -1;
    return it->lastHeard.isValid() ? it->lastHeard.elapsed() : 0;
}

int PanelService::sessionsFrom(const QString& source) const {
    int count = 0;
    for (const Session& session : m_sessions) count += session.info.address == source ? 1 : 0;
    return count;
}

zv::Dispatch PanelService::handle(qint64 id, const zv::wire::Envelope& envelope) {
    if (!m_sessions.contains(id)) {
        ZV_VLOG(1) << " dropping a " << zv::bodyName(envelope).toStdString() << " of client " << id
                   << ", which has no session";
        return zv::Dispatch::Unexpected;
    }
    const zv::Dispatch result = m_dispatch.dispatch(envelope, id);
    if (result == zv::Dispatch::Unexpected) {
        ZV_LOG(WARNING) << " client " << id << " sent an unexpected " << zv::bodyName(envelope).toStdString();
    }
    return result;
}

void PanelService::onReport(qint64 id, const zv::wire::Report& report) {
    const auto it = m_sessions.constFind(id);
    if (it == m_sessions.constEnd()) return;
    ZV_LOG(INFO) << " client " << id << " reports " << report.event();
    emit clientReport(it->info, report);
}

bool PanelService::sendToClient(qint64 id, const zv::wire::Envelope& envelope) {
    const auto it = m_sessions.constFind(id);
    return it != m_sessions.constEnd() && it->channel != nullptr && it->channel->send(envelope);
}

QHostAddress PanelService::clientAddress(qint64 id) const {
    const auto it = m_sessions.constFind(id);
    if (it == m_sessions.constEnd()) return QHostAddress();
    // The current connection's peer: a resumed session may come from elsewhere.
    return it->channel != nullptr ? it->channel->peerAddress() : QHostAddress(it->info.address);
}

bool PanelService::isApproved(qint64 id) const {
    const auto it = m_sessions.constFind(id);
    return it != m_sessions.constEnd() && it->info.approved;
}

void PanelService::approve(qint64 id) {
    const auto it = m_sessions.find(id);
    if (it == m_sessions.end()) return;
    it->info.approved = true;
    m_known.record(it->info.key, it->info.host);
}

zv::keys::Exporter PanelService::exporter(qint64 id) const {
    const auto it = m_sessions.constFind(id);
    if (it != m_sessions.constEnd() && it->channel != nullptr) return it->channel->exporter();
    return [](const QByteArray&, const QByteArray&, int) { return QByteArray(); };
}

bool PanelService::removeClient(qint64 id) {
    if (!m_sessions.contains(id)) return false;
    endSession(id, QStringLiteral("removed"), true);
    return true;
}

void PanelService::endSession(qint64 id, const QString& reason, bool byeToClient) {
    auto it = m_sessions.find(id);
    if (it == m_sessions.end()) return;
    Session session = *it;
    m_sessions.erase(it);
    if (byeToClient) m_removedTokens[session.resumeToken].start();
    if (session.channel != nullptr) {
        disconnect(session.channel, nullptr, this, nullptr);
        if (byeToClient) {
            zv::wire::Bye bye;
            bye.set_reason("logOutByServer");  // the PC passes it on to its user as it is
            session.channel->send(zv::wrap(bye));
        }
        connect(session.channel, &zv::MessageChannel::closed, session.channel, &QObject::deleteLater);
        session.channel->close(reason);
    }
    ZV_LOG(INFO) << " client " << id << " left: " << reason.toStdString();
    emit clientLeft(session.info, reason);
    m_codes->sessionEnded();
    if (m_sessions.isEmpty()) m_codes->setBusy(false);
}

}  // namespace receiver
