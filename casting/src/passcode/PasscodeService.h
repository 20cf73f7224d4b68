// The passcode service: a TLS server mapping 4-character passcodes to panel
// addresses and keys (docs/protocol.md, "Passcode service"). Clients pin
// the service's own key. Panels prove every register and unregister with
// their TLS key; the service picks the passcodes, and only the key holding
// one renews, rotates or releases it. Resolves return the panel's key id,
// which the PC then requires of the panel. Every request kind is limited per
// source address. The table and the limits live in a PasscodeStore: this
// process's memory, or Redis shared by several instances; while the store
// cannot be reached every request is answered UNAVAILABLE.
//
// Threads: a QObject used from the thread it lives in.
#pragma once

#include <QHash>
#include <QHostAddress>
#include <QObject>
#include <QSslCertificate>
#include <QSslKey>
#include <QString>

#include <functional>

#include "passcode/PasscodeRegistry.h"
#include "passcode/PasscodeStore.h"
#include "protocol/MessageDispatcher.h"
#include "protocol/ProtocolConstants.h"
#include "transport/TlsIdentity.h"

class QTimer;

namespace zv {

class MessageChannel;
class TlsServer;

// The service's own key and certificate, made at its first start.
inline constexpr TlsIdentityKind kPasscodeServiceIdentity{"passcode-key.pem", "passcode-cert.pem",
                                                          "Zelvanor passcode service", "passcode service",
                                                          "serverAuth"};

class PasscodeService : public QObject {
    Q_OBJECT
public:
    using Clock = std::function<qint64()>;  // monotonic milliseconds

    static constexpr int kIdleTimeoutMs = 30000;
    static constexpr int kMaxConnections = 256;
    // How often expired registrations are looked for.
    static constexpr int kExpiryCheckMs = 1000;

    // With the service's TLS key and certificate (listen() fails without).
    PasscodeService(const QSslKey& key, const QSslCertificate& certificate, QObject* parent = nullptr);
    // With a clock of the caller's for registration expiry and the
    // lock-outs, and a picker for new passcodes (tests).
    PasscodeService(const QSslKey& key, const QSslCertificate& certificate, Clock clock,
                    PasscodeRegistry::Picker picker = {}, QObject* parent = nullptr);
    // With a store of the caller's (the service takes it over).
    PasscodeService(const QSslKey& key, const QSslCertificate& certificate, PasscodeStore* store,
                    QObject* parent = nullptr);
    ~PasscodeService() override;

    // The key id clients pin and panels sign for.
    QString keyId() const { return m_keyId; }
    // Milliseconds since 1970 UTC, for the requests' timestamps (tests move it).
    void setWallClock(Clock wallClock) { m_wallClock = std::move(wallClock); }

    // Starts listening; port 0 picks a free one (see port()). False, with
    // errorString(), when the address cannot be bound or there is no key.
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
    // Live registrations as the store last knew them (-1: unknown).
    int registrationCount() const { return m_store->size(); }
    PasscodeStore* store() const { return m_store; }

signals:
    // A passcode newly given to the panel with key panelKey.
    void registered(const QString& passcode, const QString& address, quint16 port, const QString& name,
                    int ttlSeconds, const QString& panelKey);
    // Its holder registered it again before it expired.
    void renewed(const QString& passcode, const QString& address);
    void expired(const QString& passcode, const QString& address);
    // Released by its holder, by unregistering or rotating.
    void unregistered(const QString& passcode, const QString& address);

private:
    void onNewChannel(MessageChannel* channel);
    void handleRegister(MessageChannel* channel, const wire::Register& request);
    void handleResolve(MessageChannel* channel, const wire::Resolve& request);
    void handleUnregister(MessageChannel* channel, const wire::Unregister& request);
    void answerRegister(MessageChannel* channel, const QString& panelKey, const PasscodeStore::RegisterAnswer& answer);
    // The panel key id of a proven request, or empty after refusing it.
    QString checkProof(MessageChannel* channel, const wire::PanelProof& proof, const QByteArray& bytes,
                       const char* what);
    // Refuses and counts one failure for the source.
    void refuseCounted(MessageChannel* channel, wire::PasscodeError::Reason reason);
    void refuse(MessageChannel* channel, wire::PasscodeError::Reason reason);
    void reject(MessageChannel* channel, const QString& reason);
    void expireRegistrations();

    TlsServer* m_server;
    QTimer* m_expiryTimer;
    QString m_keyId;
    bool m_hasIdentity;
    Clock m_wallClock;
    PasscodeStore* m_store;  // entries, wrong-try limiters (resolves; panel requests), new-passcode budgets
    // Open connections and their idle timers.
    QHash<MessageChannel*, QTimer*> m_idleTimers;
    int m_idleTimeoutMs = kIdleTimeoutMs;
    int m_maxConnections = kMaxConnections;
    MessageDispatcher<MessageChannel*> m_dispatch{QStringLiteral("passcode service")};
};

}  // namespace zv
