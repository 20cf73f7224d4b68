// The PC's side of one session with a panel: finds it (CodeResolver), opens
// the TLS control channel, checks the panel's key, says hello, and then keeps
// the link alive with heartbeats until log-out. A lost link shows as missed
// heartbeats (exception 32829 every second) and once as "control link
// broken" (32789), which the watchdog may answer with reconnect().
// Lives on the library's I/O thread; every callback runs there.
#pragma once

#include <QObject>
#include <QTimer>

#include <functional>
#include <memory>
#include <optional>

#include "casting/ExceptionEvents.h"
#include "protocol/MessageDispatcher.h"
#include "security/KeySchedule.h"
#include "session/CodeResolver.h"
#include "transport/MessageChannel.h"

namespace zv {

class KnownPanels;

class ClientSession : public QObject {
    Q_OBJECT
public:
    struct Events {
        // Raises an exception event; fill sets the parameters beyond zero.
        std::function<void(tagNotifyExceptionType_, const std::function<void(tagNotifyExceptionParams_&)>& fill)>
            exception;
    };
    struct LoginResult {
        uint32_t error = 0;  // 0: logged in
        QString detail;
        wire::Refused::Reason refusedReason = wire::Refused::REASON_UNSPECIFIED;  // when the panel refused
        PanelAddress panel;
        QString code;        // the code that reached the panel (normalised)
        wire::Welcome welcome;  // welcome.approved(): false while each cast waits for the panel's user
    };
    using LoginDone = std::function<void(const LoginResult&)>;
    using ReconnectDone = std::function<void(bool reconnected)>;

    static constexpr int kConnectTimeoutMs = 2500;
    static constexpr int kAnswerTimeoutMs = 3000;
    static constexpr int kLinkBrokenAfterMisses = 3;   // 32789 is raised at this many missed beats
    static constexpr int kGiveUpAfterMisses = 15;      // then the session is over (32793)

    ClientSession(Events events, CodeResolver::DiscoveryLookup lookup, std::shared_ptr<KnownPanels> knownPanels,
                  QObject* parent = nullptr);
    ~ClientSession() override;

    // Logs in; done runs once from the event loop. A session already open is
    // logged out first.
    void login(const LoginTarget& target, const wire::Hello& hello, LoginDone done);
    // Orderly end ("bye"); harmless when not logged in.
    void logout();
    // One attempt to get the session back over a new connection (hello with
    // the resume token; a panel that forgot us gets a fresh hello).
    void reconnect(ReconnectDone done);
    void send(const wire::Envelope& envelope);
    // Where the parts riding on the session (casting) register their
    // handlers; bye is the session's own.
    MessageDispatcher<>& dispatcher() { return m_dispatch; }
    // One message of the running session, as if the panel had sent it now
    // (the channel's path; also the fuzz target's way in).
    Dispatch handle(const wire::Envelope& envelope);
    // The panel's answer to a hello sent on channel (KNOWN: no key
    // exchange): a welcome adopts the channel as the session's link, a
    // refusal, a welcome of another protocol major or a key exchange reply
    // drops it; done gets the outcome. Anything else is not an answer
    // (Unexpected or Skipped) and done is not called.
    Dispatch takeAnswer(MessageChannel* channel, const PanelAddress& panel, const wire::Envelope& envelope,
                        LoginDone done);
    // While the watchdog reconnects, missed beats are not reported: the
    // watchdog speaks for the link (32802, then 32803 or 32801).
    void setReconnecting(bool reconnecting) { m_reconnecting = reconnecting; }

    bool isLoggedIn() const { return m_loggedIn; }
    bool hasLink() const { return m_channel != nullptr; }
    int missedBeats() const { return m_missed; }
    const wire::Welcome& welcome() const { return m_welcome; }
    const PanelAddress& panel() const { return m_panel; }
    // The TLS exporter of the session's current control connection (keys
    // of media, per cast and direction: security/KeySchedule.h). Bound to
    // that connection: after a reconnection ask again; without a link, and
    // for a connection that has gone, it gives empty bytes.
    keys::Exporter exporter() const;
    // Loads the PC's TLS identity, kept beside the known-panels file (made
    // there at first start: client-key.pem, mode 0600, and client-cert.pem);
    // false (logged) when it cannot be made. Log-ins call it too.
    bool ensureIdentity();
    // The PC's own key id (its certificate), as panels know it; empty
    // before ensureIdentity().
    QString ownKeyId() const { return m_ownKeyId; }

signals:
    // The session is over (log-out, removal, link given up): casts end with it.
    void ended();

private:
    struct Attempt;
    // Tries panels[index] and, when it fails in a way that leaves room, the
    // next ones; first: the first candidate's failure, the one reported.
    void tryPanels(QList<PanelAddress> panels, int index, const QString& code, std::optional<LoginResult> first,
                   std::function<void(const LoginResult&)> done);
    // code empty: a KNOWN hello (the pin of panel.name is checked first);
    // otherwise the key exchange over code.
    void connectTo(const PanelAddress& panel, const wire::Hello& hello, const QString& code,
                   std::function<void(const LoginResult&)> done);
    void onPakeReply(Attempt& attempt, const wire::PakeReply& reply);
    void onWelcome(Attempt& attempt, const wire::Welcome& welcome);
    void onRefused(Attempt& attempt, const wire::Refused& refused);
    void onBye(const wire::Bye& bye);
    // The error text when name is pinned to another key than key.
    std::optional<QString> pinConflict(const QString& name, const QString& key) const;
    void adopt(MessageChannel* channel, const wire::Welcome& welcome);
    void onMissedBeats(int count);
    void onChannelClosed(const QString& reason);
    void dropChannel();
    void endSession(const QString& reason);

    Events m_events;
    TlsCredentials m_credentials;  // the PC's identity, shown to every panel
    QString m_ownKeyId;
    std::shared_ptr<KnownPanels> m_knownPanels;
    CodeResolver* m_resolver;
    MessageChannel* m_channel = nullptr;
    QTimer m_deadLinkTimer;  // counts missed beats while there is no channel at all
    bool m_loggedIn = false;
    bool m_linkBrokenReported = false;
    bool m_reconnecting = false;
    int m_missed = 0;
    PanelAddress m_panel;
    wire::Hello m_hello;
    wire::Welcome m_welcome;
    MessageDispatcher<Attempt&> m_answers{QStringLiteral("log-in")};
    MessageDispatcher<> m_dispatch{QStringLiteral("session")};
    quint64 m_generation = 0;
};

}  // namespace zv
