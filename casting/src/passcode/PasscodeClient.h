// The PC's client of the passcode service (docs/protocol.md, "Passcode
// service"): resolves a passcode the user typed to a panel's address and key,
// over TLS to a service whose key is pinned (passcode/PasscodePins.h).
// The panel's side is PasscodeRegistration.
//
// Threads: a QObject that works from the event loop of the thread it lives
// in; call its functions from that thread (or queue them with
// QMetaObject::invokeMethod). Signals may be connected across threads.
#pragma once

#include <QList>
#include <QObject>
#include <QString>

#include <optional>

#include "passcode/PasscodePins.h"

#include "protocol/MessageDispatcher.h"
#include "protocol/ProtocolConstants.h"
#include "transport/MessageChannel.h"

class QTimer;

namespace zv {

class MessageChannel;

class PasscodeClient : public QObject {
    Q_OBJECT
public:
    enum class Failure {
        Unreachable,        // no connection, or the service broke it off or answered nonsense
        Unknown,            // no panel holds the passcode
        RateLimited,        // too many wrong passcodes from here; try later
        Invalid,            // not a passcode (checked before asking, or by the service)
        Timeout,            // no answer within the time given
        ServiceKeyChanged,  // the service showed another key than the one pinned for it
    };
    Q_ENUM(Failure)

    static constexpr int kDefaultTimeoutMs = 3000;
    // With several servers, how long each but the last may take before the
    // next is asked.
    static constexpr int kPerServerTimeoutMs = 1000;

    // Pins in pinsPath (empty: PasscodePins::defaultPcPath()).
    explicit PasscodeClient(QObject* parent = nullptr, const QString& pinsPath = QString());
    ~PasscodeClient() override;

    // Asks the service at host:port which panel holds passcode (as typed:
    // normalized here). Exactly one of resolved / failed follows, always
    // from the event loop, within about timeoutMs. A call while another
    // resolve runs abandons that one without a signal.
    Q_INVOKABLE void resolve(const QString& host, quint16 port, const QString& passcode,
                             int timeoutMs = kDefaultTimeoutMs);
    // The same through a list of instances, asked in order: one that cannot
    // be reached, shows a key other than its pin, answers UNAVAILABLE or does
    // not answer within kPerServerTimeoutMs gives way to the next (the last
    // has timeoutMs). An answer (found, unknown, rate limited) ends it.
    void resolve(const QList<PasscodeServerAddress>& servers, const QString& passcode,
                 int timeoutMs = kDefaultTimeoutMs);
    // Abandons the running resolve, if any, without a signal.
    void cancel();
    bool isBusy() const { return m_busy; }
    // The service's answer (the connection's path; also the fuzz target's
    // way in): resolved or failed follows, unless the body is unknown here.
    void handle(const wire::Envelope& envelope);

signals:
    // panelKey: the key id of the panel that registered the passcode; the
    // log-in must meet exactly that key.
    void resolved(const QString& address, quint16 port, const QString& name, const QString& panelKey);
    void failed(zv::PasscodeClient::Failure reason, const QString& detail);

private:
    void onConnected(MessageChannel* channel);
    void onResolved(const wire::Resolved& answer);
    void onError(const wire::PasscodeError& answer);
    void succeed(const QString& address, quint16 port, const QString& name, const QString& panelKey);
    void fail(Failure reason, const QString& detail);
    void reset();
    void tryServer(int index);
    TlsCredentials pcCredentials();

    QString m_pinsPath;
    TlsCredentials m_credentials;  // loaded on first use
    MessageChannel* m_channel = nullptr;
    QTimer* m_timer;
    QList<PasscodeServerAddress> m_servers;
    int m_index = 0;  // the server asked now
    int m_timeoutMs = kDefaultTimeoutMs;
    std::optional<Failure> m_keyChanged;  // a server on the way showed another key: reported if none answers
    QString m_keyChangedDetail;
    QString m_host;
    quint16 m_port = 0;
    QString m_passcode;
    QString m_target;  // host:port, for logs
    quint64 m_request = 0;  // bumped by every resolve and cancel
    bool m_busy = false;
    MessageDispatcher<> m_dispatch{QStringLiteral("passcode client")};
};

}  // namespace zv
