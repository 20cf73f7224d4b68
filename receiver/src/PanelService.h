// The panel's session service: accepts TLS control connections, checks each
// client's hello (protocol version, connect code with rate limiting, how many
// clients), keeps sessions alive with heartbeats, lets a client that lost its
// link resume its session for a while, and removes clients on request.
// Lives on the receiver's main thread.
#pragma once

#include <QElapsedTimer>
#include <QHostAddress>
#include <QMap>
#include <QObject>
#include <QSslCertificate>
#include <QSslKey>
#include <QTimer>

#include "protocol/Messages.h"
#include "transport/RateLimiter.h"

namespace zv {
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
};

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
        bool requireCode = false;
        int protocolVersion = -1;    // -1: this build's
        int minProtocolVersion = -1; // -1: this build's
        int screenWidth = 0;
        int screenHeight = 0;
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
    bool sendToClient(qint64 id, const QCborMap& message);
    // The address a client's control connection comes from (for media).
    QHostAddress clientAddress(qint64 id) const;

signals:
    void clientJoined(const receiver::ClientInfo& client);
    void clientResumed(const receiver::ClientInfo& client);
    void clientLeft(const receiver::ClientInfo& client, const QString& reason);
    void clientReport(const receiver::ClientInfo& client, const zv::ReportMessage& report);
    void helloRefused(const QString& from, const QString& reason);
    // Session messages for the parts that cast (everything but hello, bye, report).
    void clientMessage(qint64 clientId, const QCborMap& message);

private:
    struct Session {
        ClientInfo info;
        zv::MessageChannel* channel = nullptr;  // null while the client is away
        QString resumeToken;
        QElapsedTimer awaySince;
    };

    void onNewChannel(zv::MessageChannel* channel);
    void onHello(zv::MessageChannel* channel, const QCborMap& message);
    void refuse(zv::MessageChannel* channel, const QString& reason, const QString& text);
    void attach(Session& session, zv::MessageChannel* channel);
    void detach(Session& session, const QString& why);
    void onSessionMessage(qint64 id, const QCborMap& message);
    void endSession(qint64 id, const QString& reason, bool byeToClient);
    void sweepAway();
    zv::WelcomeMessage welcomeFor(const Session& session, zv::MessageChannel* channel, bool resumed) const;

    Settings m_settings;
    QString m_panelKey;
    CodeKeeper* m_codes;
    zv::TlsServer* m_server;
    zv::RateLimiter m_limiter;
    QMap<qint64, Session> m_sessions;
    // Resume tokens of removed clients: a PC that lost its link while being
    // removed must hear so when it comes back, not get its session again.
    QHash<QString, QElapsedTimer> m_removedTokens;
    qint64 m_nextId = 1;
    QTimer* m_sweep;
};

}  // namespace receiver
