// The panel's session service: accepts TLS control connections, lets each
// client in by the log-in handshake (protocol version; the key exchange over
// the code with per-source and global limits on wrong tries; or the PC's
// known key; the access rule; how many clients), keeps sessions alive with
// heartbeats, lets a client that lost its link resume its session for a
// while (same PC key only), and removes clients on request.
// Definitions: PanelService.cpp (sessions), PanelGreeting.cpp (everything
// before the welcome). Lives on the receiver's main thread.
#pragma once

#include <QElapsedTimer>
#include <QHostAddress>
#include <QMap>
#include <QObject>
#include <QSslCertificate>
#include <QSslKey>
#include <QTimer>

#include <map>
#include <memory>

#include "KnownDevices.h"
#include "TryBudget.h"
#include "discovery/PanelAccess.h"
#include "protocol/MessageDispatcher.h"
#include "security/KeySchedule.h"
#include "transport/RateLimiter.h"

namespace zv {
class CodeProof;
class MessageChannel;
class TlsServer;
}  // namespace zv

namespace receiver {

class CodeKeeper;

struct ClientInfo {
    qint64 id = 0;
    QString host;     // the PC's host name as it gave it
    QString address;  // where it connects from
    bool viaCode = false;
    QString key;           // the PC's certificate key id
    bool approved = true;  // false: each cast waits for the panel's user
};

class ApprovalGate;

class PanelService : public QObject {
    Q_OBJECT
public:
    struct Settings {
        QString name;
        QString model = QStringLiteral("Zelvanor Receiver");
        QString software;
        QHostAddress listenAddress = QHostAddress::AnyIPv4;
        quint16 port = 47800;
        int maxClients = 4;
        // Who gets in without the code: a known PC always; an unknown one
        // under Open at once, under Approve with each cast asked, under Code not.
        zv::PanelAccess access = zv::PanelAccess::Approve;
        QString knownDevicesPath;  // empty: known devices are kept in memory only
        // Flood limits: sessions (kept ones included) from one address, and
        // connections not yet in a session (TLS handshake, hello) from one
        // address and in all; beyond those a new connection is closed at once.
        int maxSessionsPerSource = 2;
        int maxWaitingPerSource = 4;
        int maxWaiting = 32;
        int protocolMajor = -1;  // -1: this build's (tests pretend to be other versions)
        int protocolMinor = -1;  // -1: this build's
        int screenWidth = 0;
        int screenHeight = 0;
        uint32_t capabilities = 0;  // BusinessCap bits: what this panel offers
    };

    static constexpr int kHelloTimeoutMs = 5000;
    static constexpr int kDropAfterMissedBeats = 15;
    static constexpr int kResumeWindowMs = 60000;

    PanelService(Settings settings, const QSslKey& key, const QSslCertificate& certificate, QString panelKey,
                 CodeKeeper* codes, QObject* parent = nullptr);
    ~PanelService() override;

    bool start(QString* error);
    quint16 port() const;
    const QString& panelKey() const { return m_panelKey; }
    QList<ClientInfo> clients() const;
    // Ends a client's session as the panel's user asked ("logOutByServer").
    bool removeClient(qint64 id);
    // A session message to one client; false when it has no link now.
    bool sendToClient(qint64 id, const zv::wire::Envelope& envelope);
    // Where the parts riding on a session (casting) register their
    // handlers; hello, bye and report are the service's own.
    zv::MessageDispatcher<qint64>& dispatcher() { return m_dispatch; }
    // The first message on a new connection, which must be a hello (the
    // connection's path; also the fuzz target's, with a channel of its own).
    zv::Dispatch greet(zv::MessageChannel* channel, const zv::wire::Envelope& envelope);
    // A message of client id's session; one of a client the panel does not
    // know is dropped (Unexpected).
    zv::Dispatch handle(qint64 id, const zv::wire::Envelope& envelope);
    // Whether client id's casts go ahead without asking the panel's user.
    bool isApproved(qint64 id) const;
    // The panel's user accepted client id: its session is approved and its
    // PC known from now on.
    void approve(qint64 id);
    // Asks the panel's user before an unknown PC casts, shares, plays a file
    // or borrows the camera.
    ApprovalGate& approvals() { return *m_approvals; }
    const KnownDevices& knownDevices() const { return m_known; }
    const TryBudget& tryBudget() const { return m_budget; }
    // The address a client's control connection comes from (for media).
    QHostAddress clientAddress(qint64 id) const;
    // How long nothing (not even a heartbeat) came from the client: since
    // the last data on its link, also while it is away; -1 without session.
    qint64 quietMs(qint64 id) const;
    // The TLS exporter of client id's current control connection (keys of
    // media: security/KeySchedule.h). Bound to that connection: after the
    // client resumes on a new one, ask again; without a link, and for a
    // connection that has gone, it gives empty bytes.
    zv::keys::Exporter exporter(qint64 id) const;

signals:
    void clientJoined(const receiver::ClientInfo& client);
    void clientResumed(const receiver::ClientInfo& client);
    void clientLeft(const receiver::ClientInfo& client, const QString& reason);
    void clientReport(const receiver::ClientInfo& client, const zv::wire::Report& report);
    void helloRefused(const QString& from, const QString& reason);

private:
    struct Session {
        ClientInfo info;  // info.key: resumed only by the same PC
        zv::MessageChannel* channel = nullptr;  // null while the client is away
        QString resumeToken;
        QElapsedTimer awaySince;
        QElapsedTimer lastHeard;
    };

    // A key exchange the panel answered, waiting for the PC's confirmation.
    struct PendingProof {
        std::shared_ptr<zv::CodeProof> proof;
        zv::wire::Hello hello;
        QString source;
    };

    void onNewChannel(zv::MessageChannel* channel);
    void onHello(zv::MessageChannel* channel, const zv::wire::Hello& hello);
    void startProof(zv::MessageChannel* channel, const zv::wire::Hello& hello);
    void onPakeConfirm(zv::MessageChannel* channel, const zv::wire::PakeConfirm& confirm);
    // The PC has shown its right (proven: the code); the access rule, resume
    // and the client limit decide.
    void admit(zv::MessageChannel* channel, const zv::wire::Hello& hello, bool proven);
    bool resume(zv::MessageChannel* channel, const std::string& token);
    void refuse(zv::MessageChannel* channel, zv::wire::Refused::Reason reason, const QString& text);
    void attach(Session& session, zv::MessageChannel* channel);
    void detach(Session& session, const QString& why);
    void onReport(qint64 id, const zv::wire::Report& report);
    void endSession(qint64 id, const QString& reason, bool byeToClient);
    void sweepAway();
    int sessionsFrom(const QString& source) const;
    void heard(qint64 id);
    zv::wire::Envelope welcomeFor(const Session& session, zv::MessageChannel* channel, bool resumed) const;

    Settings m_settings;
    QString m_panelKey;
    CodeKeeper* m_codes;
    zv::TlsServer* m_server;
    zv::RateLimiter m_limiter;
    TryBudget m_budget;
    KnownDevices m_known;
    std::map<zv::MessageChannel*, PendingProof> m_pending;
    QMap<qint64, Session> m_sessions;
    // Resume tokens of removed clients: a PC that lost its link while being
    // removed must hear so when it comes back, not get its session again.
    QHash<QString, QElapsedTimer> m_removedTokens;
    qint64 m_nextId = 1;
    QTimer* m_sweep;
    ApprovalGate* m_approvals;  // a child of this service
    zv::MessageDispatcher<zv::MessageChannel*> m_greeting{QStringLiteral("panel, before hello")};
    zv::MessageDispatcher<qint64> m_dispatch{QStringLiteral("panel")};
};

}  // namespace receiver
