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

#include "casting/ExceptionEvents.h"
#include "protocol/Messages.h"
#include "session/CodeResolver.h"

namespace zv {

class KnownPanels;
class MessageChannel;

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
        QString refusedReason;  // the panel's reason when it refused
        PanelAddress panel;
        QString code;        // the code that reached the panel (normalised)
        WelcomeMessage welcome;
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
    void login(const LoginTarget& target, const HelloMessage& hello, LoginDone done);
    // Orderly end ("bye"); harmless when not logged in.
    void logout();
    // One attempt to get the session back over a new connection (hello with
    // the resume token; a panel that forgot us gets a fresh hello).
    void reconnect(ReconnectDone done);
    void send(const QCborMap& message);
    // While the watchdog reconnects, missed beats are not reported: the
    // watchdog speaks for the link (32802, then 32803 or 32801).
    void setReconnecting(bool reconnecting) { m_reconnecting = reconnecting; }

    bool isLoggedIn() const { return m_loggedIn; }
    bool hasLink() const { return m_channel != nullptr; }
    int missedBeats() const { return m_missed; }
    const WelcomeMessage& welcome() const { return m_welcome; }
    const PanelAddress& panel() const { return m_panel; }

signals:
    // Any message of the session other than heartbeats (for the cast parts).
    void messageReceived(const QCborMap& message);
    // The session is over (log-out, removal, link given up): casts end with it.
    void ended();

private:
    struct Attempt;
    void connectTo(const PanelAddress& panel, const HelloMessage& hello, std::function<void(const LoginResult&)> done);
    void onAnswer(const std::shared_ptr<Attempt>& attempt, const QCborMap& message);
    void adopt(MessageChannel* channel, const WelcomeMessage& welcome);
    void onMessage(const QCborMap& message);
    void onMissedBeats(int count);
    void onChannelClosed(const QString& reason);
    void dropChannel();
    void endSession(const QString& reason);

    Events m_events;
    CodeResolver* m_resolver;
    std::shared_ptr<KnownPanels> m_knownPanels;
    MessageChannel* m_channel = nullptr;
    QTimer m_deadLinkTimer;  // counts missed beats while there is no channel at all
    bool m_loggedIn = false;
    bool m_linkBrokenReported = false;
    bool m_reconnecting = false;
    int m_missed = 0;
    PanelAddress m_panel;
    HelloMessage m_hello;
    WelcomeMessage m_welcome;
    quint64 m_generation = 0;
};

}  // namespace zv
