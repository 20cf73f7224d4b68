// The panel's client of the passcode service (docs/protocol.md, "Passcode
// service"): keeps a passcode registered for this panel, over TLS to a
// service whose key is pinned (passcode/PasscodePins.h). The service picks
// the passcode; every request is signed with the panel's TLS key. rotate()
// asks for a new one (CodeKeeper decides when).
//
// Threads: a QObject that works from the event loop of the thread it lives
// in. Signals may be connected across threads.
#pragma once

#include <QList>
#include <QObject>
#include <QSslCertificate>
#include <QSslKey>
#include <QString>

#include "passcode/PanelProof.h"
#include "passcode/PasscodePins.h"
#include "protocol/MessageDispatcher.h"
#include "protocol/ProtocolConstants.h"

class QTimer;

namespace zv {

class MessageChannel;

class PasscodeRegistration : public QObject {
    Q_OBJECT
public:
    struct Settings {
        QString serviceHost;
        quint16 servicePort = kDefaultPasscodePort;
        QString serviceKey;  // the service's key id if given (HOST:PORT#KEYID); empty: pinned on first use
        // Further instances of the service (one directory in a shared store),
        // tried in turn when the one in use cannot be reached, does not answer
        // within kListAnswerTimeoutMs or answers UNAVAILABLE. Each has its own pin.
        QList<PasscodeServerAddress> moreServices;
        QString pinsPath;    // the panel's passcode-servers file
        QString address;     // the panel's address as clients reach it
        quint16 port = kDefaultControlPort;
        QString name;
        int ttlSeconds = 60;
        // The panel's TLS identity, which signs the requests (initialised
        // here so that Settings{} compiles: QSslCertificate's constructor is explicit).
        QSslKey panelKey = QSslKey();
        QSslCertificate panelCertificate = QSslCertificate();
    };

    static constexpr int kFirstRetryMs = 500;
    static constexpr int kMaxRetryMs = 30000;
    // For connecting and for each answer.
    static constexpr int kAnswerTimeoutMs = 5000;
    // The same with further instances to move to.
    static constexpr int kListAnswerTimeoutMs = 1000;

    explicit PasscodeRegistration(const Settings& settings, QObject* parent = nullptr);
    // Releases the passcode when the service is connected at the time; it
    // expires on its own otherwise.
    ~PasscodeRegistration() override;

    // Registers and then keeps the passcode registered, renewing every ttl/3
    // and reconnecting with back-off while the service cannot be reached.
    void start();
    // Asks the service for a new passcode (now, or with the next register).
    void rotate();

    // The passcode the service gave; empty until the first answer.
    QString passcode() const { return m_passcode; }
    QString serviceKey() const { return m_serviceKey; }
    // The instance in use now, HOST:PORT.
    QString serviceInUse() const { return m_services.value(m_current).hostPort(); }
    // True from the service's confirmation until the link to it is lost or
    // the service refuses.
    bool isRegistered() const { return m_registered; }
    // The service's answer (the connection's path; also the fuzz target's way in).
    void handle(const wire::Envelope& envelope);

signals:
    // The service gave this panel another passcode.
    void passcodeChanged(const QString& passcode);
    void registeredChanged(bool registered);
    // Nothing more is tried: the service's key is not the pinned one, the
    // panel key cannot sign, or the service found the registration invalid
    // or its proof bad. reason says which, for the log and status.
    void refused(const QString& reason);

private:
    void connectToService();
    void onConnected(MessageChannel* channel);
    void sendRegister();
    void onRegistered(const wire::Registered& answer);
    void onError(const wire::PasscodeError& answer);
    void onLinkLost(const QString& reason);
    void giveUp(const QString& reason);
    void scheduleRetry();
    void dropLink();
    void setRegistered(bool registered);
    qint64 nextStampMs();

    Settings m_settings;
    QList<PasscodeServerAddress> m_services;  // the first from serviceHost/Port/Key, then moreServices
    int m_current = 0;
    int m_answerTimeoutMs = kAnswerTimeoutMs;
    bool m_nextSoon = false;  // the next retry goes to another instance: no back-off
    passcode::PanelSigner m_signer;
    QString m_passcode;
    QString m_serviceKey;  // the key the connected service showed (and passed the pin check)
    MessageChannel* m_channel = nullptr;
    quint64 m_link = 0;  // bumped by every connect and drop
    QTimer* m_answerTimer;  // connecting, or waiting for an answer
    QTimer* m_renewTimer;
    QTimer* m_retryTimer;
    int m_retryMs = kFirstRetryMs;
    qint64 m_lastStampMs = 0;
    bool m_started = false;
    bool m_stopped = false;  // refused: do nothing more
    bool m_registered = false;
    bool m_inFlight = false;        // a register awaits its answer
    bool m_rotateWanted = false;    // rotate() not yet sent
    bool m_rotateInFlight = false;  // the register in flight asks to rotate
    MessageDispatcher<> m_dispatch{QStringLiteral("passcode registration")};
};

}  // namespace zv
