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

#include <QHostAddress>
#include <QObject>
#include <QSslCertificate>
#include <QSslKey>
#include <QString>
#include <QTcpServer>

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
    // Ciphertext (or plain bytes) from the socket to frames; false when the
    // channel ended on the way.
    bool takeIncoming(const QByteArray& data);
    void writeOut(const QByteArray& plain);
    void onDisconnected();
    void onSocketError();
    void onHeartbeatTick();
    void onCloseTimeout();
    void processIncoming(const QByteArray& data);
    void failProtocol(const QString& reason);
    void finish(const QString& reason);

    QTcpSocket* m_socket;
    std::unique_ptr<TlsEngine> m_tls;
    QTimer* m_heartbeatTimer;
    QTimer* m_closeTimer;
    FrameDecoder m_decoder;
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
class TlsServer : public QTcpServer {
    Q_OBJECT
public:
    TlsServer(const QSslKey& key, const QSslCertificate& certificate, QObject* parent = nullptr);
    explicit TlsServer(TlsCredentials credentials, QObject* parent = nullptr);

    void setHandshakeTimeoutMs(int ms) { m_handshakeTimeoutMs = ms; }
    int pendingHandshakes() const { return m_pendingHandshakes; }

    static constexpr int kDefaultHandshakeTimeoutMs = 5000;
    // Connections beyond this many unfinished handshakes are closed at once.
    static constexpr int kMaxPendingHandshakes = 64;

signals:
    void newChannel(zv::MessageChannel* channel);
    void handshakeFailed(const QString& peer, const QString& reason);

protected:
    void incomingConnection(qintptr socketDescriptor) override;

private:
    TlsCredentials m_credentials;
    int m_handshakeTimeoutMs = kDefaultHandshakeTimeoutMs;
    int m_pendingHandshakes = 0;
};

}  // namespace zv
