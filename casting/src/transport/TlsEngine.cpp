#include "transport/TlsEngine.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <QStringList>

#include "casting/Log.h"
#include "security/KeyId.h"

namespace zv {

namespace {

template <typename T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* p) const { Free(p); }
};
using CtxPtr = std::unique_ptr<SSL_CTX, Deleter<SSL_CTX, SSL_CTX_free>>;
using PKeyPtr = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY, EVP_PKEY_free>>;
using X509Ptr = std::unique_ptr<X509, Deleter<X509, X509_free>>;
void freeBio(BIO* bio) { BIO_free(bio); }
using BioPtr = std::unique_ptr<BIO, Deleter<BIO, freeBio>>;

constexpr int kReadChunk = 16384;      // one TLS record of plaintext
constexpr int kMaxExportBytes = 4096;  // far above any key we derive

// Chains are not verified: peers are self-signed and pinned by key id.
int acceptAnyChain(int /*preverifyOk*/, X509_STORE_CTX* /*store*/) { return 1; }

// The thread's OpenSSL error queue as one line, emptying the queue.
QString takeOpenSslErrors() {
    QStringList lines;
    while (const unsigned long code = ERR_get_error()) {
        char text[256];
        ERR_error_string_n(code, text, sizeof text);
        lines << QString::fromLatin1(text);
    }
    return lines.join(QStringLiteral("; "));
}

// The subject's common name (the name the peer's certificate was made
// with), empty if it has none.
QString commonNameOf(X509* certificate) {
    X509_NAME* subject = X509_get_subject_name(certificate);
    const int index = subject ? X509_NAME_get_index_by_NID(subject, NID_commonName, -1) : -1;
    if (index < 0) return QString();
    ASN1_STRING* data = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, index));
    unsigned char* utf8 = nullptr;
    const int length = ASN1_STRING_to_UTF8(&utf8, data);
    if (length < 0) return QString();
    const QString name = QString::fromUtf8(reinterpret_cast<const char*>(utf8), length);
    OPENSSL_free(utf8);
    return name;
}

QByteArray publicKeyDer(EVP_PKEY* key) {
    if (!key) return {};
    unsigned char* der = nullptr;
    const int length = i2d_PUBKEY(key, &der);
    if (length <= 0) return {};
    QByteArray out(reinterpret_cast<const char*>(der), length);
    OPENSSL_free(der);
    return out;
}

BIO* memoryBio(const QByteArray& data) { return BIO_new_mem_buf(data.constData(), data.size()); }

}  // namespace

void TlsEngine::SslDeleter::operator()(ssl_st* ssl) const { SSL_free(ssl); }

const char* toString(TlsEngine::State state) {
    switch (state) {
    case TlsEngine::State::Handshaking: return "handshaking";
    case TlsEngine::State::Established: return "established";
    case TlsEngine::State::Closed: return "closed";
    case TlsEngine::State::Failed: return "failed";
    }
    return "?";
}

TlsEngine::TlsEngine(Mode mode, const QByteArray& privateKeyPem, const QByteArray& certificatePem,
                     bool requireClientCertificate)
    : m_mode(mode), m_requireClientCertificate(requireClientCertificate) {
    ERR_clear_error();
    if (!setUp(privateKeyPem, certificatePem)) return;
    if (m_mode == Mode::Client) continueHandshake();  // ClientHello
}

TlsEngine::~TlsEngine() = default;

bool TlsEngine::setUp(const QByteArray& privateKeyPem, const QByteArray& certificatePem) {
    PKeyPtr key;
    X509Ptr cert;
    const bool anonymous = m_mode == Mode::Client && privateKeyPem.isEmpty() && certificatePem.isEmpty();
    if (!anonymous) {
        BioPtr bio(memoryBio(privateKeyPem));
        if (bio) key.reset(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr));
        BioPtr certBio(memoryBio(certificatePem));
        if (certBio) cert.reset(PEM_read_bio_X509(certBio.get(), nullptr, nullptr, nullptr));
    }
    if (!anonymous && (!key || !cert)) {
        fail(!key ? QStringLiteral("cannot read the private key") : QStringLiteral("cannot read the certificate"));
        return false;
    }

    CtxPtr ctx(SSL_CTX_new(m_mode == Mode::Server ? TLS_server_method() : TLS_client_method()));
    if (!ctx) {
        fail(QStringLiteral("cannot create a TLS context"));
        return false;
    }
    const int verify = m_mode == Mode::Server && m_requireClientCertificate
                           ? SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT
                           : SSL_VERIFY_PEER;
    SSL_CTX_set_verify(ctx.get(), verify, acceptAnyChain);
    SSL_CTX_set_session_cache_mode(ctx.get(), SSL_SESS_CACHE_OFF);
    SSL_CTX_set_options(ctx.get(), SSL_OP_NO_TICKET);
    if (SSL_CTX_set_min_proto_version(ctx.get(), TLS1_3_VERSION) != 1 ||
        SSL_CTX_set_max_proto_version(ctx.get(), TLS1_3_VERSION) != 1 || SSL_CTX_set_num_tickets(ctx.get(), 0) != 1) {
        fail(QStringLiteral("cannot limit the context to TLS 1.3"));
        return false;
    }
    if (!anonymous && (SSL_CTX_use_certificate(ctx.get(), cert.get()) != 1 ||
                       SSL_CTX_use_PrivateKey(ctx.get(), key.get()) != 1 || SSL_CTX_check_private_key(ctx.get()) != 1)) {
        fail(QStringLiteral("the certificate does not fit the private key"));
        return false;
    }

    m_ssl.reset(SSL_new(ctx.get()));  // holds its own reference to ctx
    BIO* in = BIO_new(BIO_s_mem());
    BIO* out = BIO_new(BIO_s_mem());
    if (!m_ssl || !in || !out) {
        BIO_free(in);
        BIO_free(out);
        fail(QStringLiteral("cannot create a TLS connection"));
        return false;
    }
    // Reading an empty memory BIO means "wait for more", not end of file.
    BIO_set_mem_eof_return(in, -1);
    BIO_set_mem_eof_return(out, -1);
    SSL_set_bio(m_ssl.get(), in, out);  // the connection owns both now
    if (m_mode == Mode::Server)
        SSL_set_accept_state(m_ssl.get());
    else
        SSL_set_connect_state(m_ssl.get());

    if (cert) m_ownSpki = publicKeyDer(X509_get0_pubkey(cert.get()));
    return true;
}

bool TlsEngine::feedCiphertext(const QByteArray& bytes) {
    if (m_state == State::Failed) return false;
    if (m_state == State::Closed || bytes.isEmpty()) return true;
    ERR_clear_error();
    if (BIO_write(SSL_get_rbio(m_ssl.get()), bytes.constData(), bytes.size()) != bytes.size()) {
        fail(QStringLiteral("cannot buffer incoming data"));
        return false;
    }
    if (m_state == State::Handshaking) continueHandshake();
    if (m_state == State::Established) drainIncoming();
    return m_state != State::Failed;
}

void TlsEngine::continueHandshake() {
    const int result = SSL_do_handshake(m_ssl.get());
    if (result == 1) {
        X509* peer = SSL_get0_peer_certificate(m_ssl.get());
        if (peer != nullptr) {
            m_peerSpki = publicKeyDer(X509_get0_pubkey(peer));
            m_peerCommonName = commonNameOf(peer);
        }
        if (m_peerSpki.isEmpty() && peerMustShowKey()) {
            fail(QStringLiteral("the peer showed no usable public key"));
            return;
        }
        m_state = State::Established;
        m_handshakeDone = true;
        ZV_VLOG(1) << " TLS 1.3 established with " << peerKeyId().toStdString() << " ("
                   << SSL_get_cipher_name(m_ssl.get()) << ")";
        flushPendingWrites();
        return;
    }
    const int error = SSL_get_error(m_ssl.get(), result);
    if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) return;
    fail(QStringLiteral("TLS handshake failed"));
}

void TlsEngine::drainIncoming() {
    char buffer[kReadChunk];
    for (;;) {
        size_t got = 0;
        if (SSL_read_ex(m_ssl.get(), buffer, sizeof buffer, &got) == 1) {
            m_plaintext.append(buffer, int(got));
            continue;
        }
        const int error = SSL_get_error(m_ssl.get(), 0);
        if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) return;
        if (error == SSL_ERROR_ZERO_RETURN) {
            m_peerClosed = true;
            SSL_shutdown(m_ssl.get());  // answer with our close_notify
            m_state = State::Closed;
            return;
        }
        fail(QStringLiteral("cannot decrypt incoming data"));
        return;
    }
}

QByteArray TlsEngine::takeCiphertext() {
    if (!m_ssl) return {};
    BIO* out = SSL_get_wbio(m_ssl.get());
    const int pending = int(BIO_ctrl_pending(out));
    if (pending <= 0) return {};
    QByteArray bytes(pending, Qt::Uninitialized);
    const int got = BIO_read(out, bytes.data(), pending);
    bytes.resize(got > 0 ? got : 0);
    return bytes;
}

bool TlsEngine::hasCiphertext() const { return m_ssl && BIO_ctrl_pending(SSL_get_wbio(m_ssl.get())) > 0; }

bool TlsEngine::writePlaintext(const QByteArray& data) {
    if (m_state == State::Failed || m_state == State::Closed) return false;
    m_pendingWrites += data;
    if (m_state == State::Established) flushPendingWrites();
    return m_state != State::Failed;
}

void TlsEngine::flushPendingWrites() {
    if (m_pendingWrites.isEmpty()) return;
    ERR_clear_error();
    size_t written = 0;
    // Without partial writes SSL_write_ex takes everything into records at
    // once; the memory BIO never pushes back.
    if (SSL_write_ex(m_ssl.get(), m_pendingWrites.constData(), size_t(m_pendingWrites.size()), &written) != 1) {
        fail(QStringLiteral("cannot encrypt outgoing data"));
        return;
    }
    m_pendingWrites.clear();
}

QByteArray TlsEngine::readPlaintext() {
    QByteArray out;
    out.swap(m_plaintext);
    return out;
}

void TlsEngine::close() {
    if (m_state == State::Failed || m_state == State::Closed) return;
    ERR_clear_error();
    if (m_state == State::Established) SSL_shutdown(m_ssl.get());
    m_state = State::Closed;
    m_pendingWrites.clear();
}

QByteArray TlsEngine::exportKeyingMaterial(const QByteArray& label, const QByteArray& context, int length) const {
    if (!m_ssl || !m_handshakeDone || m_state == State::Failed || length <= 0 || length > kMaxExportBytes)
        return {};
    ERR_clear_error();
    QByteArray out(length, '\0');
    // TLS 1.3 treats "no context" and an empty one alike; always pass it.
    if (SSL_export_keying_material(m_ssl.get(), reinterpret_cast<unsigned char*>(out.data()), size_t(length),
                                   label.constData(), size_t(label.size()),
                                   reinterpret_cast<const unsigned char*>(context.constData()), size_t(context.size()),
                                   1) != 1) {
        ZV_LOG(WARNING) << " export failed: " << takeOpenSslErrors().toStdString();
        return {};
    }
    return out;
}

QByteArray TlsEngine::peerKeyHash() const { return keyHashOfPublicKey(m_peerSpki); }
QString TlsEngine::peerKeyId() const { return keyIdOfPublicKey(m_peerSpki); }
QByteArray TlsEngine::ownKeyHash() const { return keyHashOfPublicKey(m_ownSpki); }
QString TlsEngine::ownKeyId() const { return keyIdOfPublicKey(m_ownSpki); }

void TlsEngine::fail(const QString& what) {
    const QString details = takeOpenSslErrors();
    m_error = details.isEmpty() ? what : what + QStringLiteral(": ") + details;
    m_state = State::Failed;
    m_pendingWrites.clear();
    ZV_LOG(WARNING) << " " << (m_mode == Mode::Server ? "server" : "client") << ": " << m_error.toStdString();
}

}  // namespace zv
