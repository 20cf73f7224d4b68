// Message transport over one TCP connection: framing, heartbeats and an
// orderly end. MessageChannel works on a QSslSocket (the control channel,
// either side) or a plain QTcpSocket (the passcode service); TlsServer
// accepts TLS 1.3 connections and hands each out as a MessageChannel.
//
// Threads: both are QObjects used only from the thread they live in (the
// library's I/O thread, the receiver's main thread); the socket moves with
// its channel.
#pragma once

#include <QHash>
#include <QHostAddress>
#include <QObject>
#include <QSslCertificate>
#include <QSslKey>
#include <QString>
#include <QTcpServer>

#include <QElapsedTimer>

#include <deque>
#include <functional>

#include "protocol/WireCodec.h"
#include "protocol/ProtocolConstants.h"

class QSslSocket;
class QTcpSocket;
class QTimer;

namespace zv {

class MessageChannel : public QObject {
    Q_OBJECT
public:
    // Takes ownership of a connected socket (a QSslSocket past its handshake
    // or a plain QTcpSocket). Data or a close that is already pending is
    // handled from the event loop, so signals connected right after
    // construction see everything.
    explicit MessageChannel(QTcpSocket* socket, QObject* parent = nullptr);
    // Destroying an open channel drops the connection without emitting
    // closed. From inside the channel's own signals use deleteLater().
    ~MessageChannel() override;

    bool isOpen() const { return m_state == State::Open; }

    // Queues one envelope, stamped with the protocol major this channel
    // speaks; false (nothing sent) when the channel is not open or the
    // envelope does not fit a frame. wrap() makes an envelope of a message.
    bool send(wire::Envelope envelope);
    // The major stamped on what is sent (kProtocolMajor unless a test panel
    // pretends to be another version).
    void setProtocolMajor(int major) { m_protocolMajor = major; }

    // Ends the channel after the messages already sent have gone out (at
    // most kCloseFlushMs), then emits closed(reason). Incoming data is
    // ignored from now on. Repeated calls do nothing.
    void close(const QString& reason);

    // Sends a Heartbeat{seq: n} every intervalMs and counts whole intervals
    // in which nothing arrived: heartbeatMissed(count) each interval from
    // count 2 on, alive() when data arrives after heartbeatMissed.
    void startHeartbeat(int intervalMs = kHeartbeatIntervalMs);
    void stopHeartbeat();
    int missedHeartbeats() const { return m_missed; }

    // The certificate the peer showed (null for a plain socket).
    QSslCertificate peerCertificate() const;
    QHostAddress peerAddress() const { return m_peerAddress; }
    quint16 peerPort() const { return m_peerPort; }
    // "address:port" for logs.
    QString peerName() const;
    QTcpSocket* socket() const { return m_socket; }

    static constexpr int kCloseFlushMs = 3000;
    // Work per event-loop turn: at most this many bytes are read and this
    // many messages handed out before the channel yields to other events
    // (it carries on in the next turn), so one busy peer cannot starve the
    // thread it shares with others and with the screen.
    static constexpr qint64 kMaxReadBytesPerTurn = 64 * 1024;
    static constexpr int kMaxMessagesPerTurn = 32;
    // A peer that sends more messages than this within one second
    // (heartbeats and pointer updates included) is closed as flooding.
    static constexpr int kDefaultMaxMessagesPerSecond = 400;
    void setMaxMessagesPerSecond(int limit) { m_maxMessagesPerSecond = limit; }

    // Opens a TLS 1.3 connection to host:port. Certificates are not verified
    // (the caller pins the panel key from peerCertificate()). done runs once,
    // in context's thread, with the new channel (owned by the caller) and an
    // empty error, or with nullptr and the reason, also when nothing answers
    // within timeoutMs. Nothing runs if context is destroyed first.
    using ConnectDone = std::function<void(MessageChannel* channel, const QString& error)>;
    static void connectTls(const QString& host, quint16 port, int timeoutMs, QObject* context, ConnectDone done);
    // The same, waiting in the calling thread; nullptr and *error on failure.
    static MessageChannel* connectTlsBlocking(const QString& host, quint16 port, int timeoutMs, QString* error);

signals:
    // Every envelope except heartbeats, which come as heartbeatReceived;
    // also envelopes whose body this build does not know (the receiver's
    // dispatcher skips those).
    void messageReceived(const zv::wire::Envelope& envelope);
    void heartbeatReceived(qint64 seq);
    void heartbeatMissed(int count);
    void alive();
    // Exactly once: "peer closed the connection", "socket error: ...",
    // "protocol error: ..." or the reason given to close().
    void closed(const QString& reason);

private:
    enum class State { Open = 1, Closing, Closed };

    void onReadyRead();
    void drain();
    void scheduleDrain();
    bool countMessage();
    void onDisconnected();
    void onSocketError();
    void onHeartbeatTick();
    void onCloseTimeout();
    void decode(const QByteArray& data);
    bool noteHeard();
    bool deliverPending(int budget);
    void peerClosed();
    void failProtocol(const QString& reason);
    void finish(const QString& reason);

    QTcpSocket* m_socket;
    QTimer* m_heartbeatTimer;
    QTimer* m_closeTimer;
    FrameDecoder m_decoder;
    std::deque<wire::Envelope> m_pending;  // decoded, not yet handed out
    bool m_drainScheduled = false;
    bool m_peerGone = false;  // the peer closed; what it sent before is still handed out
    int m_maxMessagesPerSecond = kDefaultMaxMessagesPerSecond;
    QElapsedTimer m_rateWindow;
    int m_messagesInWindow = 0;
    State m_state = State::Open;
    QString m_closeReason;
    QHostAddress m_peerAddress;
    quint16 m_peerPort = 0;
    qint64 m_heartbeatSeq = 0;
    int m_protocolMajor = kProtocolMajor;
    int m_missed = 0;
    bool m_heardSinceTick = false;
};

// Accepts TLS 1.3 connections with the given identity. Each connection whose
// handshake completes within the handshake time-out is emitted as
// newChannel (parented to the server; take it over with setParent or
// delete it); failed or slow handshakes are logged, reported by
// handshakeFailed and dropped.
//
// A connection waits from its accept until the owner calls settled() for its
// channel (the panel: when the session begins); one that closes or is
// destroyed before stops waiting by itself. Beyond maxWaitingPerSource
// waiting connections from one address, or maxWaiting in all, new
// connections are closed at once, before any TLS work.
class TlsServer : public QTcpServer {
    Q_OBJECT
public:
    TlsServer(const QSslKey& key, const QSslCertificate& certificate, QObject* parent = nullptr);

    void setHandshakeTimeoutMs(int ms) { m_handshakeTimeoutMs = ms; }
    int pendingHandshakes() const { return m_pendingHandshakes; }

    static constexpr int kDefaultHandshakeTimeoutMs = 5000;
    static constexpr int kDefaultMaxWaitingPerSource = 4;
    static constexpr int kDefaultMaxWaiting = 32;
    void setWaitingCaps(int perSource, int total) {
        m_maxWaitingPerSource = perSource;
        m_maxWaiting = total;
    }
    void settled(MessageChannel* channel);
    // Connections waiting now (handshaking or not yet settled).
    int waiting() const { return m_waitingTotal; }
    int waitingFrom(const QHostAddress& address) const;
    // Connections closed at once by the caps so far.
    quint64 turnedAway() const { return m_turnedAway; }

signals:
    void newChannel(zv::MessageChannel* channel);
    void handshakeFailed(const QString& peer, const QString& reason);

protected:
    void incomingConnection(qintptr socketDescriptor) override;

private:
    void acceptHandshake(QSslSocket* socket, QTimer* timer, const QString& source);
    void dropHandshake(QSslSocket* socket, QTimer* timer, const QString& peer, const QString& source,
                       const QString& reason);
    void stopWaiting(const QString& source);
    void stopWaiting(QObject* channel);

    QSslKey m_key;
    QSslCertificate m_certificate;
    int m_handshakeTimeoutMs = kDefaultHandshakeTimeoutMs;
    int m_pendingHandshakes = 0;
    int m_maxWaitingPerSource = kDefaultMaxWaitingPerSource;
    int m_maxWaiting = kDefaultMaxWaiting;
    int m_waitingTotal = 0;
    QHash<QString, int> m_waitingBySource;
    QHash<QObject*, QString> m_waitingChannels;  // accepted, not yet settled -> source
    quint64 m_turnedAway = 0;
    QElapsedTimer m_lastTurnAwayLog;
};

}  // namespace zv
