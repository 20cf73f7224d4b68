#include "PanelService.h"

#include <QRandomGenerator>
#include <QTcpSocket>
#include <QTimer>

#include "CodeKeeper.h"
#include "casting/Log.h"
#include "casting/SessionRecords.h"
#include "protocol/ProtocolConstants.h"
#include "transport/MessageChannel.h"

namespace receiver {

namespace {

QString randomToken() {
    quint32 words[4];
    QRandomGenerator::system()->fillRange(words);
    return QString::fromLatin1(QByteArray(reinterpret_cast<const char*>(words), sizeof words).toHex());
}

}  // namespace

PanelService::PanelService(Settings settings, const QSslKey& key, const QSslCertificate& certificate, QString panelKey,
                           CodeKeeper* codes, QObject* parent)
    : QObject(parent),
      m_settings(std::move(settings)),
      m_panelKey(std::move(panelKey)),
      m_codes(codes),
      m_server(new zv::TlsServer(key, certificate, this)),
      m_sweep(new QTimer(this)) {
    if (m_settings.protocolVersion < 0) m_settings.protocolVersion = zv::kProtocolVersion;
    if (m_settings.minProtocolVersion < 0) m_settings.minProtocolVersion = zv::kMinProtocolVersion;
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
            session.channel->send(zv::buildBye({QStringLiteral("panelShutdown")}));
            session.channel->socket()->flush();
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
    auto* timeout = new QTimer(channel);
    timeout->setSingleShot(true);
    connect(timeout, &QTimer::timeout, channel, [channel] { channel->close(QStringLiteral("no hello in time")); });
    timeout->start(kHelloTimeoutMs);
    connect(channel, &zv::MessageChannel::messageReceived, this, [this, channel, timeout](const QCborMap& message) {
        timeout->stop();
        disconnect(channel, &zv::MessageChannel::messageReceived, this, nullptr);
        onHello(channel, message);
    });
    connect(channel, &zv::MessageChannel::closed, channel, [channel](const QString& reason) {
        ZV_LOG(INFO) << " " << channel->peerName().toStdString() << " left before its session began: "
                     << reason.toStdString();
        channel->deleteLater();
    });
}

void PanelService::refuse(zv::MessageChannel* channel, const QString& reason, const QString& text) {
    ZV_LOG(WARNING) << " refused " << channel->peerName().toStdString() << ": " << reason.toStdString() << " ("
                    << text.toStdString() << ")";
    emit helloRefused(channel->peerName(), reason);
    channel->send(zv::buildRefused({reason, text}));
    channel->close(QStringLiteral("refused: ") + reason);
}

void PanelService::onHello(zv::MessageChannel* channel, const QCborMap& message) {
    QString error;
    const std::optional<zv::HelloMessage> hello = zv::parseHello(message, &error);
    if (!hello) {
        channel->close(QStringLiteral("protocol error: expected hello: ") + error);
        return;
    }
    if (hello->proto < m_settings.minProtocolVersion) {
        refuse(channel, zv::reason::kVersionTooOld,
               QStringLiteral("this panel needs protocol %1 or later").arg(m_settings.minProtocolVersion));
        return;
    }
    if (hello->resume) {
        if (m_removedTokens.contains(*hello->resume)) {
            refuse(channel, zv::reason::kLogOutByServer, QStringLiteral("removed by the panel"));
            return;
        }
        for (Session& session : m_sessions) {
            if (session.resumeToken == *hello->resume) {
                ZV_LOG(INFO) << " client " << session.info.id << " resumes from " << channel->peerName().toStdString();
                attach(session, channel);
                channel->send(zv::buildWelcome(welcomeFor(session, channel, true)));
                emit clientResumed(session.info);
                return;
            }
        }
        refuse(channel, zv::reason::kUnknownSession, QStringLiteral("no such session any more"));
        return;
    }

    const QString source = channel->peerAddress().toString();
    if (hello->code.isEmpty()) {
        if (m_settings.requireCode) {
            refuse(channel, zv::reason::kWrongCode, QStringLiteral("this panel needs its connect code"));
            return;
        }
    } else {
        qint64 retryAfterMs = 0;
        if (!m_limiter.mayAttempt(source, &retryAfterMs)) {
            refuse(channel, zv::reason::kRateLimited,
                   QStringLiteral("too many wrong codes; try again in %1 s").arg((retryAfterMs + 999) / 1000));
            return;
        }
        if (!m_codes->matches(hello->code)) {
            m_limiter.recordFailure(source);
            refuse(channel, zv::reason::kWrongCode, QStringLiteral("wrong connect code"));
            return;
        }
        m_limiter.recordSuccess(source);
    }
    if (m_sessions.size() >= m_settings.maxClients) {
        refuse(channel, zv::reason::kTooManyClients,
               QStringLiteral("this panel takes %1 clients at once").arg(m_settings.maxClients));
        return;
    }

    Session session;
    session.info.id = m_nextId++;
    session.info.host = hello->host;
    session.info.address = source;
    session.info.viaCode = !hello->code.isEmpty();
    session.resumeToken = randomToken();
    Session& stored = m_sessions[session.info.id] = session;
    attach(stored, channel);
    channel->send(zv::buildWelcome(welcomeFor(stored, channel, false)));
    m_codes->setBusy(true);
    ZV_LOG(INFO) << " client " << stored.info.id << " \"" << stored.info.host.toStdString() << "\" joined from "
                 << source.toStdString();
    emit clientJoined(stored.info);
}

zv::WelcomeMessage PanelService::welcomeFor(const Session& session, zv::MessageChannel* channel, bool resumed) const {
    zv::WelcomeMessage welcome;
    welcome.proto = m_settings.protocolVersion;
    welcome.minProto = m_settings.minProtocolVersion;
    welcome.session = session.info.id;
    welcome.resume = session.resumeToken;
    welcome.heartbeatMs = zv::kHeartbeatIntervalMs;
    welcome.resumed = resumed;
    welcome.panel.model = m_settings.model;
    welcome.panel.name = m_settings.name;
    welcome.panel.key = m_panelKey;
    welcome.panel.address = channel->socket()->localAddress().toString();
    welcome.panel.port = port();
    welcome.panel.width = m_settings.screenWidth;
    welcome.panel.height = m_settings.screenHeight;
    welcome.panel.deviceType = CLIENT_DEVICE_PANEL;
    welcome.panel.software = m_settings.software;
    // What the panel can do grows with the casting parts; none is offered yet.
    welcome.caps.bits = 0;
    welcome.caps.maxClients = m_settings.maxClients;
    welcome.caps.maxWidth = m_settings.screenWidth;
    welcome.caps.maxHeight = m_settings.screenHeight;
    return welcome;
}

void PanelService::attach(Session& session, zv::MessageChannel* channel) {
    if (session.channel != nullptr && session.channel != channel) {
        zv::MessageChannel* old = session.channel;
        disconnect(old, nullptr, this, nullptr);
        old->deleteLater();
    }
    disconnect(channel, nullptr, this, nullptr);
    disconnect(channel, &zv::MessageChannel::closed, channel, nullptr);
    session.channel = channel;
    const qint64 id = session.info.id;
    connect(channel, &zv::MessageChannel::messageReceived, this,
            [this, id](const QCborMap& message) { onSessionMessage(id, message); });
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

void PanelService::onSessionMessage(qint64 id, const QCborMap& message) {
    auto it = m_sessions.find(id);
    if (it == m_sessions.end()) return;
    const QString type = zv::messageType(message);
    QString error;
    if (type == zv::msg::kBye) {
        endSession(id, QStringLiteral("logged out"), false);
    } else if (type == zv::msg::kReport) {
        if (const auto report = zv::parseReport(message, &error)) {
            ZV_LOG(INFO) << " client " << id << " reports " << report->event.toStdString();
            emit clientReport(it->info, *report);
        }
    } else if (type == zv::msg::kHello) {
        if (it->channel != nullptr) it->channel->close(QStringLiteral("protocol error: second hello"));
    } else {
        emit clientMessage(id, message);
    }
}

bool PanelService::sendToClient(qint64 id, const QCborMap& message) {
    const auto it = m_sessions.constFind(id);
    return it != m_sessions.constEnd() && it->channel != nullptr && it->channel->send(message);
}

QHostAddress PanelService::clientAddress(qint64 id) const {
    const auto it = m_sessions.constFind(id);
    return it != m_sessions.constEnd() ? QHostAddress(it->info.address) : QHostAddress();
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
        if (byeToClient) session.channel->send(zv::buildBye({zv::reason::kLogOutByServer}));
        connect(session.channel, &zv::MessageChannel::closed, session.channel, &QObject::deleteLater);
        session.channel->close(reason);
    }
    ZV_LOG(INFO) << " client " << id << " left: " << reason.toStdString();
    emit clientLeft(session.info, reason);
    m_codes->sessionEnded();
    if (m_sessions.isEmpty()) m_codes->setBusy(false);
}

}  // namespace receiver
