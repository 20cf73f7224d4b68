// The passcode service: a plain TCP server mapping 4-character passcodes to
// panel addresses (docs/protocol.md, "Passcode service"). Panels register and
// renew; clients resolve, with wrong passcodes rate-limited per source
// address. Everything lives in memory.
//
// Threads: a QObject used from the thread it lives in.
#pragma once

#include <QHash>
#include <QHostAddress>
#include <QObject>
#include <QString>

#include <functional>

#include "passcode/PasscodeRegistry.h"
#include "protocol/MessageDispatcher.h"
#include "protocol/ProtocolConstants.h"
#include "transport/RateLimiter.h"

class QTcpServer;
class QTimer;

namespace zv {

class MessageChannel;

class PasscodeService : public QObject {
    Q_OBJECT
public:
    using Clock = std::function<qint64()>;  // monotonic milliseconds

    static constexpr int kIdleTimeoutMs = 30000;
    static constexpr int kMaxConnections = 256;
    // How often expired registrations are looked for.
    static constexpr int kExpiryCheckMs = 1000;

    explicit PasscodeService(QObject* parent = nullptr);
    // With a clock of the caller's for registration expiry and the
    // wrong-passcode lock-outs (tests).
    explicit PasscodeService(Clock clock, QObject* parent = nullptr);
    ~PasscodeService() override;

    // Starts listening; port 0 picks a free one (see port()). False, with
    // errorString(), when the address cannot be bound.
    bool listen(const QHostAddress& address = QHostAddress::Any, quint16 port = kDefaultPasscodePort);
    bool isListening() const;
    QHostAddress address() const;
    quint16 port() const;
    QString errorString() const;

    // Limits, changeable before or while listening.
    void setIdleTimeoutMs(int ms) { m_idleTimeoutMs = ms; }
    void setMaxConnections(int count) { m_maxConnections = count; }

    int connectionCount() const { return m_idleTimers.size(); }

    // One request that arrived on channel (the connections' path; also the
    // fuzz target's way in, with a channel of its own).
    void handle(MessageChannel* channel, const wire::Envelope& envelope);
    int registrationCount() const { return m_registry.size(); }

signals:
    // A passcode newly held by address.
    void registered(const QString& passcode, const QString& address, quint16 port, const QString& name,
                    int ttlSeconds);
    // Its holder registered it again before it expired.
    void renewed(const QString& passcode, const QString& address);
    void expired(const QString& passcode, const QString& address);
    void unregistered(const QString& passcode, const QString& address);

private:
    void onNewConnection();
    void handleRegister(MessageChannel* channel, const wire::Register& request);
    void handleResolve(MessageChannel* channel, const wire::Resolve& request);
    void handleUnregister(MessageChannel* channel, const wire::Unregister& request);
    void refuse(MessageChannel* channel, wire::PasscodeError::Reason reason);
    void reject(MessageChannel* channel, const QString& reason);
    void expireRegistrations();

    QTcpServer* m_server;
    QTimer* m_expiryTimer;
    PasscodeRegistry m_registry;
    RateLimiter m_limiter;
    // Open connections and their idle timers.
    QHash<MessageChannel*, QTimer*> m_idleTimers;
    int m_idleTimeoutMs = kIdleTimeoutMs;
    int m_maxConnections = kMaxConnections;
    MessageDispatcher<MessageChannel*> m_dispatch{QStringLiteral("passcode service")};
};

}  // namespace zv
