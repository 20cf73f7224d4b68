// One end of a TLS 1.3 connection on memory buffers, with no socket: the
// owner moves ciphertext between feedCiphertext()/takeCiphertext() and its
// transport. OpenSSL is used directly because Qt 5 does not offer the TLS
// exporter that our key schedule needs.
//
// Both ends show a key and a self-signed certificate; chains are never
// verified, each side pins the other by key id (security/KeyId.h). The
// server requires a client certificate and fails the handshake without one.
// Only TLS 1.3 is spoken; no session tickets or resumption.
//
// Threads: an engine is used by one thread at a time (no locking inside);
// separate engines may run in separate threads.
#pragma once

#include <QByteArray>
#include <QString>

#include <memory>

struct ssl_st;

namespace zv {

class TlsEngine {
public:
    enum class Mode { Client = 1, Server };
    enum class State {
        Handshaking = 1,
        Established,  // handshake done, data flows
        Closed,       // close_notify sent or received
        Failed,       // errorString() says why; nothing more flows
    };

    // privateKeyPem: the key (PKCS#8 or traditional PEM); certificatePem: a
    // certificate for it. A bad key or certificate gives an engine in state
    // Failed. A client has its ClientHello in takeCiphertext() at once.
    // A client with both PEMs empty shows no certificate (the passcode
    // service's clients); a server with requireClientCertificate false
    // accepts such clients (their key ids are then empty).
    TlsEngine(Mode mode, const QByteArray& privateKeyPem, const QByteArray& certificatePem,
              bool requireClientCertificate = true);
    ~TlsEngine();
    TlsEngine(const TlsEngine&) = delete;
    TlsEngine& operator=(const TlsEngine&) = delete;

    Mode mode() const { return m_mode; }
    State state() const { return m_state; }
    bool isEstablished() const { return m_state == State::Established; }
    QString errorString() const { return m_error; }

    // Bytes the peer sent, in any pieces. Drives the handshake and decrypts
    // what has arrived. False once the engine has failed; the alert for the
    // peer is then in takeCiphertext().
    bool feedCiphertext(const QByteArray& bytes);
    // What to send to the peer now (handshake, records, alerts); empties it.
    QByteArray takeCiphertext();
    bool hasCiphertext() const;

    // Encrypts data for the peer. Before the handshake is done the data waits
    // and goes out when it completes. False when failed or closed.
    bool writePlaintext(const QByteArray& data);
    // What the peer sent so far, decrypted; empties it.
    QByteArray readPlaintext();
    bool hasPlaintext() const { return !m_plaintext.isEmpty(); }
    // Whether the peer ended the connection with close_notify.
    bool peerClosed() const { return m_peerClosed; }
    // Sends close_notify (in takeCiphertext()) and moves to Closed.
    void close();

    // RFC 8446 exporter (SSL_export_keying_material): length (1..4096)
    // bytes for label and context. Empty before the handshake is done.
    QByteArray exportKeyingMaterial(const QByteArray& label, const QByteArray& context, int length) const;

    // The peer's DER SubjectPublicKeyInfo, its SHA-256 and its key id; empty
    // before the handshake is done.
    QByteArray peerPublicKeyDer() const { return m_peerSpki; }
    // The common name of the peer's certificate (a panel's is its name at
    // first start; the peer chooses it, so it proves nothing by itself).
    QString peerCommonName() const { return m_peerCommonName; }
    QByteArray peerKeyHash() const;
    QString peerKeyId() const;
    // The same for our own key; empty only when the engine failed to set up.
    QByteArray ownPublicKeyDer() const { return m_ownSpki; }
    QByteArray ownKeyHash() const;
    QString ownKeyId() const;

    struct SslDeleter {
        void operator()(ssl_st* ssl) const;
    };

private:
    bool setUp(const QByteArray& privateKeyPem, const QByteArray& certificatePem);
    bool peerMustShowKey() const { return m_mode == Mode::Client || m_requireClientCertificate; }
    void continueHandshake();
    void drainIncoming();
    void flushPendingWrites();
    void fail(const QString& what);

    Mode m_mode;
    bool m_requireClientCertificate = true;
    State m_state = State::Handshaking;
    QString m_error;
    std::unique_ptr<ssl_st, SslDeleter> m_ssl;
    QByteArray m_plaintext;
    QByteArray m_pendingWrites;  // written before the handshake finished
    QByteArray m_ownSpki;
    QByteArray m_peerSpki;
    QString m_peerCommonName;
    bool m_peerClosed = false;
    bool m_handshakeDone = false;
};

const char* toString(TlsEngine::State state);

}  // namespace zv
