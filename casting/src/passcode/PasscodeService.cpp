#include "passcode/PasscodeService.h"

#include <QCborMap>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include "casting/Log.h"
#include "protocol/Messages.h"
#include "transport/MessageChannel.h"

namespace zv {

namespace {

std::string text(const QString& s) { return s.toStdString(); }

}  // namespace

PasscodeService::PasscodeService(QObject* parent) : PasscodeService(Clock{}, parent) {}

PasscodeService::PasscodeService(Clock clock, QObject* parent)
    : QObject(parent),
      m_server(new QTcpServer(this)),
      m_expiryTimer(new QTimer(this)),
      m_registry(clock),
      m_limiter(clock) {
    connect(m_server, &QTcpServer::newConnection, this, &PasscodeService::onNewConnection);
    connect(m_expiryTimer, &QTimer::timeout, this, &PasscodeService::expireRegistrations);
}

PasscodeService::~PasscodeService() {
    // Channels are children; closing the server first stops new arrivals
    // while they go.
    m_server->close();
    for (auto it = m_idleTimers.constBegin(); it != m_idleTimers.constEnd(); ++it) it.key()->disconnect(this);
}

bool PasscodeService::listen(const QHostAddress& address, quint16 port) {
    if (!m_server->listen(address, port)) {
        ZV_LOG(ERROR) << " cannot listen on " << text(address.toString()) << ":" << port << ": "
                      << text(m_server->errorString());
        return false;
    }
    m_expiryTimer->start(kExpiryCheckMs);
    ZV_LOG(INFO) << " passcode service listening on " << text(m_server->serverAddress().toString()) << ":"
                 << m_server->serverPort();
    return true;
}

bool PasscodeService::isListening() const { return m_server->isListening(); }
QHostAddress PasscodeService::address() const { return m_server->serverAddress(); }
quint16 PasscodeService::port() const { return m_server->serverPort(); }
QString PasscodeService::errorString() const { return m_server->errorString(); }

void PasscodeService::onNewConnection() {
    while (QTcpSocket* socket = m_server->nextPendingConnection()) {
        if (m_idleTimers.size() >= m_maxConnections) {
            ZV_LOG(WARNING) << " " << m_idleTimers.size() << " connections open; refusing "
                            << text(socket->peerAddress().toString()) << ":" << socket->peerPort();
            socket->abort();
            socket->deleteLater();
            continue;
        }
        auto* channel = new MessageChannel(socket, this);
        auto* idle = new QTimer(channel);
        idle->setSingleShot(true);
        m_idleTimers.insert(channel, idle);

        connect(idle, &QTimer::timeout, channel, [this, channel] {
            ZV_LOG(INFO) << " " << text(channel->peerName()) << " idle for " << m_idleTimeoutMs << " ms";
            channel->close(QStringLiteral("idle time-out"));
        });
        connect(channel, &MessageChannel::messageReceived, this,
                [this, channel](const QCborMap& message) { onMessage(channel, message); });
        connect(channel, &MessageChannel::heartbeatReceived, this,
                [this, channel] { reject(channel, QStringLiteral("unexpected message \"hb\"")); });
        connect(channel, &MessageChannel::closed, this, [this, channel](const QString& reason) {
            ZV_VLOG(1) << " " << text(channel->peerName()) << " gone: " << text(reason);
            m_idleTimers.remove(channel);
            channel->deleteLater();
        });
        idle->start(m_idleTimeoutMs);
    }
}

void PasscodeService::onMessage(MessageChannel* channel, const QCborMap& message) {
    if (!channel->isOpen()) return;
    if (QTimer* idle = m_idleTimers.value(channel)) idle->start(m_idleTimeoutMs);
    const QString type = messageType(message);
    if (type == msg::kRegister) {
        handleRegister(channel, message);
    } else if (type == msg::kResolve) {
        handleResolve(channel, message);
    } else if (type == msg::kUnregister) {
        handleUnregister(channel, message);
    } else {
        reject(channel, QStringLiteral("unexpected message \"%1\"").arg(type));
    }
}

void PasscodeService::handleRegister(MessageChannel* channel, const QCborMap& message) {
    QString error;
    const auto request = parseRegister(message, &error);
    if (!request) return reject(channel, error);
    if (request->port < 1 || request->port > 65535) return refuse(channel, reason::kInvalid);

    const auto result = m_registry.add(request->passcode, request->address, quint16(request->port),
                                       request->name, request->ttl);
    switch (result) {
    case PasscodeRegistry::Result::Invalid:
        ZV_LOG(INFO) << " invalid register from " << text(channel->peerName()) << ": passcode \""
                     << text(request->passcode.left(16)) << "\" address \"" << text(request->address.left(64))
                     << "\" port " << request->port << " ttl " << request->ttl;
        return refuse(channel, reason::kInvalid);
    case PasscodeRegistry::Result::Taken:
        ZV_LOG(INFO) << " " << text(channel->peerName()) << " asked for passcode "
                     << text(request->passcode) << ", held by another address";
        return refuse(channel, reason::kTaken);
    case PasscodeRegistry::Result::Registered:
    case PasscodeRegistry::Result::Renewed:
        break;
    }
    const QString passcode = PasscodeRegistry::canonicalPasscode(request->passcode);
    channel->send(buildRegistered({passcode, request->ttl}));
    if (result == PasscodeRegistry::Result::Registered) {
        expireRegistrations();  // a lapsed holder this one replaced is reported first
        ZV_LOG(INFO) << " passcode " << text(passcode) << " -> " << text(request->address) << ":"
                     << request->port << " \"" << text(request->name) << "\" for " << request->ttl
                     << " s (from " << text(channel->peerName()) << ")";
        emit registered(passcode, request->address, quint16(request->port), request->name, request->ttl);
    } else {
        ZV_VLOG(1) << " passcode " << text(passcode) << " renewed by " << text(request->address);
        emit renewed(passcode, request->address);
    }
}

void PasscodeService::handleResolve(MessageChannel* channel, const QCborMap& message) {
    QString error;
    const auto request = parseResolve(message, &error);
    if (!request) return reject(channel, error);

    const QString source = channel->peerAddress().toString();
    qint64 retryAfterMs = 0;
    if (!m_limiter.mayAttempt(source, &retryAfterMs)) {
        ZV_LOG(INFO) << " resolve from " << text(channel->peerName()) << " refused unchecked, locked for "
                     << retryAfterMs << " ms more";
        return refuse(channel, reason::kRateLimited);
    }
    if (PasscodeRegistry::canonicalPasscode(request->passcode).isEmpty()) {
        m_limiter.recordFailure(source);  // a malformed guess is still a wrong one
        return refuse(channel, reason::kInvalid);
    }
    const auto entry = m_registry.resolve(request->passcode);
    if (!entry) {
        m_limiter.recordFailure(source);
        ZV_LOG(INFO) << " unknown passcode " << text(request->passcode) << " from " << text(channel->peerName())
                     << " (" << m_limiter.failures(source) << " wrong)";
        return refuse(channel, reason::kUnknown);
    }
    m_limiter.recordSuccess(source);
    ZV_VLOG(1) << " " << text(channel->peerName()) << " resolved " << text(entry->passcode);
    channel->send(buildResolved({entry->address, entry->port, entry->name}));
}

void PasscodeService::handleUnregister(MessageChannel* channel, const QCborMap& message) {
    QString error;
    const auto request = parseUnregister(message, &error);
    if (!request) return reject(channel, error);
    if (m_registry.remove(request->passcode, request->address)) {
        const QString passcode = PasscodeRegistry::canonicalPasscode(request->passcode);
        ZV_LOG(INFO) << " passcode " << text(passcode) << " released by " << text(request->address);
        emit unregistered(passcode, request->address);
    }
    channel->send(buildUnregistered());
}

void PasscodeService::refuse(MessageChannel* channel, const QString& reason) {
    channel->send(buildError({reason}));
}

void PasscodeService::reject(MessageChannel* channel, const QString& reason) {
    const QString full = QStringLiteral("protocol error: ") + reason;
    ZV_LOG(WARNING) << " closing the connection with " << text(channel->peerName()) << ": " << text(full);
    channel->close(full);
}

void PasscodeService::expireRegistrations() {
    for (const PasscodeRegistry::Entry& entry : m_registry.expire()) {
        ZV_LOG(INFO) << " passcode " << text(entry.passcode) << " of " << text(entry.address) << " expired";
        emit expired(entry.passcode, entry.address);
    }
}

}  // namespace zv
