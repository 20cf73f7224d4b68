#include "passcode/PasscodeService.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include "casting/Log.h"
#include "protocol/WireCodec.h"
#include "transport/MessageChannel.h"

namespace zv {

namespace {

std::string text(const QString& s) { return s.toStdString(); }
QString qtext(const std::string& s) { return QString::fromStdString(s); }

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
    using E = wire::Envelope;
    m_dispatch.on(E::kRegisterPasscode,
                  [this](const E& e, MessageChannel* channel) { handleRegister(channel, e.register_passcode()); });
    m_dispatch.on(E::kResolve, [this](const E& e, MessageChannel* channel) { handleResolve(channel, e.resolve()); });
    m_dispatch.on(E::kUnregister,
                  [this](const E& e, MessageChannel* channel) { handleUnregister(channel, e.unregister()); });
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
                [this, channel](const wire::Envelope& envelope) { handle(channel, envelope); });
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

void PasscodeService::handle(MessageChannel* channel, const wire::Envelope& envelope) {
    if (!channel->isOpen()) return;
    if (QTimer* idle = m_idleTimers.value(channel)) idle->start(m_idleTimeoutMs);
    if (m_dispatch.dispatch(envelope, channel) == Dispatch::Unexpected) {
        reject(channel, QStringLiteral("unexpected message \"%1\"").arg(bodyName(envelope)));
    }
}

void PasscodeService::handleRegister(MessageChannel* channel, const wire::Register& request) {
    if (request.port() < 1 || request.port() > 65535) return refuse(channel, wire::PasscodeError::INVALID);
    const QString passcodeText = qtext(request.passcode());
    const QString address = qtext(request.address());
    const QString name = qtext(request.name());

    const auto result = m_registry.add(passcodeText, address, quint16(request.port()), name, request.ttl());
    switch (result) {
    case PasscodeRegistry::Result::Invalid:
        ZV_LOG(INFO) << " invalid register from " << text(channel->peerName()) << ": passcode \""
                     << text(passcodeText.left(16)) << "\" address \"" << text(address.left(64)) << "\" port "
                     << request.port() << " ttl " << request.ttl();
        return refuse(channel, wire::PasscodeError::INVALID);
    case PasscodeRegistry::Result::Taken:
        ZV_LOG(INFO) << " " << text(channel->peerName()) << " asked for passcode " << text(passcodeText)
                     << ", held by another address";
        return refuse(channel, wire::PasscodeError::TAKEN);
    case PasscodeRegistry::Result::Registered:
    case PasscodeRegistry::Result::Renewed:
        break;
    }
    const QString passcode = PasscodeRegistry::canonicalPasscode(passcodeText);
    wire::Registered answer;
    answer.set_passcode(passcode.toStdString());
    answer.set_ttl(request.ttl());
    channel->send(wrap(answer));
    if (result == PasscodeRegistry::Result::Registered) {
        expireRegistrations();  // a lapsed holder this one replaced is reported first
        ZV_LOG(INFO) << " passcode " << text(passcode) << " -> " << text(address) << ":" << request.port() << " \""
                     << text(name) << "\" for " << request.ttl() << " s (from " << text(channel->peerName()) << ")";
        emit registered(passcode, address, quint16(request.port()), name, request.ttl());
    } else {
        ZV_VLOG(1) << " passcode " << text(passcode) << " renewed by " << text(address);
        emit renewed(passcode, address);
    }
}

void PasscodeService::handleResolve(MessageChannel* channel, const wire::Resolve& request) {
    const QString passcode = qtext(request.passcode());
    const QString source = channel->peerAddress().toString();
    qint64 retryAfterMs = 0;
    if (!m_limiter.mayAttempt(source, &retryAfterMs)) {
        ZV_LOG(INFO) << " resolve from " << text(channel->peerName()) << " refused unchecked, locked for "
                     << retryAfterMs << " ms more";
        return refuse(channel, wire::PasscodeError::RATE_LIMITED);
    }
    if (PasscodeRegistry::canonicalPasscode(passcode).isEmpty()) {
        m_limiter.recordFailure(source);  // a malformed guess is still a wrong one
        return refuse(channel, wire::PasscodeError::INVALID);
    }
    const auto entry = m_registry.resolve(passcode);
    if (!entry) {
        m_limiter.recordFailure(source);
        ZV_LOG(INFO) << " unknown passcode " << text(passcode.left(16)) << " from " << text(channel->peerName())
                     << " (" << m_limiter.failures(source) << " wrong)";
        return refuse(channel, wire::PasscodeError::UNKNOWN);
    }
    m_limiter.recordSuccess(source);
    ZV_VLOG(1) << " " << text(channel->peerName()) << " resolved " << text(entry->passcode);
    wire::Resolved answer;
    answer.set_address(entry->address.toStdString());
    answer.set_port(entry->port);
    answer.set_name(entry->name.toStdString());
    channel->send(wrap(answer));
}

void PasscodeService::handleUnregister(MessageChannel* channel, const wire::Unregister& request) {
    const QString address = qtext(request.address());
    if (m_registry.remove(qtext(request.passcode()), address)) {
        const QString passcode = PasscodeRegistry::canonicalPasscode(qtext(request.passcode()));
        ZV_LOG(INFO) << " passcode " << text(passcode) << " released by " << text(address);
        emit unregistered(passcode, address);
    }
    channel->send(wrap(wire::Unregistered()));
}

void PasscodeService::refuse(MessageChannel* channel, wire::PasscodeError::Reason reason) {
    wire::PasscodeError error;
    error.set_reason(reason);
    channel->send(wrap(error));
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
