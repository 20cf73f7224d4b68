// Clients of the passcode service (docs/protocol.md, "Passcode service"):
// PasscodeClient resolves a passcode the user typed to a panel address;
// PasscodeRegistration keeps a panel's passcode registered.
//
// Threads: both are QObjects that work from the event loop of the thread
// they live in; call their functions from that thread (or queue them with
// QMetaObject::invokeMethod). Signals may be connected across threads.
#pragma once

#include <QObject>
#include <QString>

#include "protocol/MessageDispatcher.h"
#include "protocol/ProtocolConstants.h"

class QTcpSocket;
class QTimer;

namespace zv {

class MessageChannel;

class PasscodeClient : public QObject {
    Q_OBJECT
public:
    enum class Failure {
        Unreachable,  // no connection, or the service broke it off or answered nonsense
        Unknown,      // no panel holds the passcode
        RateLimited,  // too many wrong passcodes from here; try later
        Invalid,      // not a passcode (checked before asking, or by the service)
        Timeout,      // no answer within the time given
    };
    Q_ENUM(Failure)

    static constexpr int kDefaultTimeoutMs = 3000;

    explicit PasscodeClient(QObject* parent = nullptr);
    ~PasscodeClient() override;

    // Asks the service at host:port which panel holds passcode (as typed:
    // normalized here). Exactly one of resolved / failed follows, always
    // from the event loop, within about timeoutMs. A call while another
    // resolve runs abandons that one without a signal.
    Q_INVOKABLE void resolve(const QString& host, quint16 port, const QString& passcode,
                             int timeoutMs = kDefaultTimeoutMs);
    // Abandons the running resolve, if any, without a signal.
    void cancel();
    bool isBusy() const { return m_busy; }
    // The service's answer (the connection's path; also the fuzz target's
    // way in): resolved or failed follows, unless the body is unknown here.
    void handle(const wire::Envelope& envelope);

signals:
    void resolved(const QString& address, quint16 port, const QString& name);
    void failed(zv::PasscodeClient::Failure reason, const QString& detail);

private:
    void onConnected();
    void onResolved(const wire::Resolved& answer);
    void onError(const wire::PasscodeError& answer);
    void succeed(const QString& address, quint16 port, const QString& name);
    void fail(Failure reason, const QString& detail);
    void reset();

    QTcpSocket* m_socket = nullptr;
    MessageChannel* m_channel = nullptr;
    QTimer* m_timer;
    QString m_passcode;
    QString m_target;  // host:port, for logs
    quint64 m_request = 0;  // bumped by every resolve and cancel
    bool m_busy = false;
    MessageDispatcher<> m_dispatch{QStringLiteral("passcode client")};
};

class PasscodeRegistration : public QObject {
    Q_OBJECT
public:
    struct Settings {
        QString serviceHost;
        quint16 servicePort = kDefaultPasscodePort;
        QString passcode;  // empty or invalid: one is picked
        QString address;   // the panel's address as clients reach it
        quint16 port = kDefaultControlPort;
        QString name;
        int ttlSeconds = 60;
    };

    static constexpr int kFirstRetryMs = 500;
    static constexpr int kMaxRetryMs = 30000;
    // For connecting and for each answer.
    static constexpr int kAnswerTimeoutMs = 5000;
    // Passcodes tried one after the other on `taken` before backing off.
    static constexpr int kMaxTakenInARow = 8;

    explicit PasscodeRegistration(const Settings& settings, QObject* parent = nullptr);
    // Releases the passcode when the service is connected at the time; it
    // expires on its own otherwise.
    ~PasscodeRegistration() override;

    // Registers and then keeps the passcode registered, renewing every ttl/3
    // and reconnecting with back-off while the service cannot be reached.
    void start();

    QString passcode() const { return m_settings.passcode; }
    // True from the service's confirmation until the link to it is lost or
    // the service refuses.
    bool isRegistered() const { return m_registered; }
    // The service's answer (the connection's path; also the fuzz target's way in).
    void handle(const wire::Envelope& envelope);

signals:
    // Another passcode was picked (the given one was invalid or taken).
    void passcodeChanged(const QString& passcode);
    void registeredChanged(bool registered);
    // The service found the registration invalid (address, port, name or
    // ttl); nothing more is tried.
    void refused(const QString& reason);

private:
    void connectToService();
    void onConnected();
    void sendRegister();
    void onRegistered();
    void onError(const wire::PasscodeError& answer);
    void onLinkLost(const QString& reason);
    void scheduleRetry();
    void dropLink();
    void pickNewPasscode();
    void setRegistered(bool registered);

    Settings m_settings;
    QTcpSocket* m_socket = nullptr;
    MessageChannel* m_channel = nullptr;
    QTimer* m_answerTimer;  // connecting, or waiting for an answer
    QTimer* m_renewTimer;
    QTimer* m_retryTimer;
    int m_retryMs = kFirstRetryMs;
    int m_takenInARow = 0;
    bool m_started = false;
    bool m_stopped = false;  // refused: do nothing more
    bool m_registered = false;
    MessageDispatcher<> m_dispatch{QStringLiteral("passcode registration")};
};

}  // namespace zv
