// Message transport over one TCP connection: framing, heartbeats and an
// orderly end. MessageChannel works on a QTcpSocket, either through a
// TlsEngine (the control channel, either side: TLS 1.3 with the exporter our
// keys come from) or plain (the passcode service); TlsServer accepts TLS 1.3
// connections and hands each out as a MessageChannel.
//
// Threads: both are QObjects used only from the thread they live in (the
// library's I/O thread, the receiver's main thread); the socket moves with
// its channel.
#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QHostAddress>
#include <QObject>
#include <QSslCertificate>
#include <QSslKey>
#include <QString>
#include <QTcpServer>

#include <deque>
#include <functional>
#include <memory>

#include "protocol/WireCodec.h"
#include "protocol/ProtocolConstants.h"
#include "security/KeySchedule.h"

class QTcpSocket;
class QTimer;

namespace zv {

class TlsEngine;

// The key and certificate one end shows in the TLS handshake, as PEM.
struct TlsCredentials {
    QByteArray privateKeyPem;
    QByteArray certificatePem;

    bool isNull() const { return privateKeyPem.isEmpty() || certificatePem.isEmpty(); }
    static TlsCredentials of(const QSslKey& key, const QSslCertificate& certificate) {
        return {key.toPem(), certificate.toPem()};
    }
};

class MessageChannel : public QObject {
    Q_OBJECT
public:
    // Takes ownership of a connected socket and, for an encrypted channel,
    // of the TlsEngine whose handshake is done on it (null: plain). Data or
    // a close that is already pending (also plaintext the engine decrypted
    // with the handshake's last flight) is handled from the event loop, so
    // signals connected right after construction see everything.
    explicit MessageChannel(QTcpSocket* socket, QObject* parent = nullptr);
    MessageChannel(QTcpSocket* socket, std::unique_ptr<TlsEngine> tls, QObject* parent = nullptr);
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

    bool isEncrypted() const { return m_tls != nullptr; }
    // The peer's and our own key (security/KeyId.h): the 32-byte SHA-256 of
    // the SubjectPublicKeyInfo and its 43-character id. Empty when plain.
    QByteArray peerKeyHash() const;
    QString peerKeyId() const;
    QString peerCommonName() const;
    QByteArray ownKeyHash() const;
    // The TLS exporter of this connection. It answers only while the channel
    // exists (empty bytes afterwards, or for a plain channel): keys derived
    // from it belong to this connection.
    keys::Exporter exporter() const;

    QHostAddress peerAddress() const { return m_peerAddress; }
    quint16 peerPort() const { return m_peerPort; }
    QHostAddress localAddress() const;
    quint16 localPort() const;
    // "address:port" for logs.
    QString peerName() const;
    // The socket underneath; bytes written to it skip the encryption.
    QTcpSocket* socket() const { return m_socket; }
    // Pushes what is queued to the kernel now (before the thread may end).
    void flush();
    // Bytes sent as they are, without framing, inside the encryption if any:
    // only for tests of what a broken or hostile peer sends.
    bool sendRawForTesting(const QByteArray& bytes);

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

    // Opens a TLS 1.3 connection to host:port showing credentials (the PC's
    // identity). Certificates are not verified: the caller pins the panel by
    // peerKeyId(). done runs once, in context's thread, with the new channel
    // (owned by the caller) and an empty error, or with nullptr and the
    // reason, also when the handshake is not done within timeoutMs. Nothing
    // runs if context is destroyed first. With TLS 1.3 the client's
    // handshake ends before the server has checked the client certificate:
    // the panel's first answer is the real acceptance.
    using ConnectDone = std::function<void(MessageChannel* channel, const QString& error)>;
    static void connectTls(const QString& host, quint16 port, int timeoutMs, const TlsCredentials& credentials,
                           QObject* context, ConnectDone done);
    // The same, waiting in the calling thread; nullptr and *error on failure.
    static MessageChannel* connectTlsBlocking(const QString& host, quint16 port, int timeoutMs,
                                              const TlsCredentials& credentials, QString* error);
    // The same without a certificate of our own, for servers that do not ask
    // for one (the passcode service); the caller pins the server by peerKeyId().
    static void connectTls(const QString& host, quint16 port, int timeoutMs, QObject* context, ConnectDone done) {
        connectTls(host, port, timeoutMs, TlsCredentials{}, context, std::move(done));
    }
    static MessageChannel* connectTlsBlocking(const QString& host, quint16 port, int timeoutMs, QString* error) {
        return connectTlsBlocking(host, port, timeoutMs, TlsCredentials{}, error);
    }

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
    // Ciphertext (or plain bytes) from the socket to decoded envelopes
    // waiting to be handed out; false when the channel ended on the way.
    bool takeIncoming(const QByteArray& data);
    bool takePlain(const QByteArray& plain);
    void writeOut(const QByteArray& plain);
    bool deliverPending(int budget);
    bool countMessage();
    void peerClosed();
    void onDisconnected();
    void onSocketError();
    void onHeartbeatTick();
    void onCloseTimeout();
    void failProtocol(const QString& reason);
    void finish(const QString& reason);

    QTcpSocket* m_socket;
    std::unique_ptr<TlsEngine> m_tls;
    QTimer* m_heartbeatTimer;
    QTimer* m_closeTimer;
    FrameDecoder m_decoder;
    std::deque<wire::Envelope> m_pending;  // decoded, not yet handed out
    bool m_drainScheduled = false;
    bool m_peerGone = false;  // no more input: what came before is still handed out
    QString m_inputError;     // TLS failed; reported once what came before is handed out
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

// Accepts TLS 1.3 connections with the given identity; every client must
// show a certificate. Each connection whose handshake completes within the
// handshake time-out is emitted as newChannel (parented to the server; take
// it over with setParent or delete it); failed or slow handshakes are
// logged, reported by handshakeFailed and dropped.
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
    explicit TlsServer(TlsCredentials credentials, QObject* parent = nullptr);

    void setHandshakeTimeoutMs(int ms) { m_handshakeTimeoutMs = ms; }
    // Whether clients must show a certificate (default: yes; the control
    // channel needs the PC's key). The passcode service does not ask.
    void setClientCertificateRequired(bool required) { m_requireClientCertificate = required; }
    int pendingHandshakes() const { return m_pendingHandshakes; }

    static constexpr int kDefaultHandshakeTimeoutMs = 5000;
    // Connections beyond this many unfinished handshakes are closed at once.
    static constexpr int kMaxPendingHandshakes = 64;

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
    void waitingChannel(MessageChannel* channel, const QString& source);
    void stopWaiting(const QString& source);
    void stopWaiting(QObject* channel);

    TlsCredentials m_credentials;
    bool m_requireClientCertificate = true;
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
