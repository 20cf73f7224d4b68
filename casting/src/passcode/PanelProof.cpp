#include "passcode/PanelProof.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <QtEndian>

#include <cstring>

#include "security/KeyId.h"

namespace zv::passcode {

namespace {

template <typename T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* p) const { Free(p); }
};
using X509Ptr = std::unique_ptr<X509, Deleter<X509, X509_free>>;
using MdCtxPtr = std::unique_ptr<EVP_MD_CTX, Deleter<EVP_MD_CTX, EVP_MD_CTX_free>>;
void freeBio(BIO* bio) { BIO_free(bio); }
using BioPtr = std::unique_ptr<BIO, Deleter<BIO, freeBio>>;

constexpr char kRegisterLabel[] = "zv-passcode-register-v1";
constexpr char kUnregisterLabel[] = "zv-passcode-unregister-v1";

// Length-prefixed fields and fixed-size big-endian integers: no two
// different requests give the same bytes.
class Canonical {
public:
    Canonical& text(const std::string& s) {
        u32(quint32(s.size()));
        m_bytes.append(s.data(), int(s.size()));
        return *this;
    }
    Canonical& text(const QString& s) { return text(s.toStdString()); }
    Canonical& u8(quint8 v) {
        m_bytes.append(char(v));
        return *this;
    }
    Canonical& u32(quint32 v) {
        char buffer[4];
        qToBigEndian(v, buffer);
        m_bytes.append(buffer, 4);
        return *this;
    }
    Canonical& u64(quint64 v) {
        char buffer[8];
        qToBigEndian(v, buffer);
        m_bytes.append(buffer, 8);
        return *this;
    }
    QByteArray bytes() const { return m_bytes; }

private:
    QByteArray m_bytes;
};

bool isP256(EVP_PKEY* key) {
    if (key == nullptr || EVP_PKEY_get_base_id(key) != EVP_PKEY_EC) return false;
    char group[64] = {};
    size_t length = 0;
    if (EVP_PKEY_get_utf8_string_param(key, "group", group, sizeof group, &length) != 1) return false;
    return std::strcmp(group, "prime256v1") == 0 || std::strcmp(group, "P-256") == 0;
}

QString keyIdOf(EVP_PKEY* key) {
    unsigned char* spki = nullptr;
    const int length = i2d_PUBKEY(key, &spki);
    if (length <= 0) return {};
    const QString id = keyIdOfPublicKey(QByteArray(reinterpret_cast<const char*>(spki), length));
    OPENSSL_free(spki);
    return id;
}

// OpenSSL's error queue is per thread and shared with Qt's TLS sockets:
// what a refused proof left there must not show up as their error.
bool fail(QString* why, const QString& reason) {
    ERR_clear_error();
    if (why) *why = reason;
    return false;
}

}  // namespace

QByteArray signedBytes(const wire::Register& request, const QString& serviceKeyId) {
    return Canonical()
        .text(std::string(kRegisterLabel))
        .text(serviceKeyId)
        .text(request.passcode())
        .u8(request.rotate() ? 1 : 0)
        .text(request.address())
        .u32(quint32(request.port()))
        .text(request.name())
        .u32(quint32(request.ttl()))
        .u64(quint64(request.proof().timestamp_ms()))
        .bytes();
}

QByteArray signedBytes(const wire::Unregister& request, const QString& serviceKeyId) {
    return Canonical()
        .text(std::string(kUnregisterLabel))
        .text(serviceKeyId)
        .text(request.passcode())
        .u64(quint64(request.proof().timestamp_ms()))
        .bytes();
}

PanelSigner::PanelSigner(const QSslKey& key, const QSslCertificate& certificate) {
    const QByteArray pem = key.toPem();
    BioPtr bio(BIO_new_mem_buf(pem.constData(), pem.size()));
    std::shared_ptr<EVP_PKEY> privateKey(bio ? PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr) : nullptr,
                                         EVP_PKEY_free);
    const QByteArray der = certificate.toDer();
    const auto* data = reinterpret_cast<const unsigned char*>(der.constData());
    X509Ptr cert(der.isEmpty() ? nullptr : d2i_X509(nullptr, &data, der.size()));
    if (!privateKey || !isP256(privateKey.get()) || !cert || X509_check_private_key(cert.get(), privateKey.get()) != 1) {
        ERR_clear_error();
        return;
    }
    m_key = std::move(privateKey);
    m_certificateDer = der;
    m_keyId = keyIdOf(X509_get0_pubkey(cert.get()));
}

bool PanelSigner::sign(wire::Register& request, const QString& serviceKeyId, qint64 timestampMs) const {
    request.mutable_proof()->set_timestamp_ms(timestampMs);
    return signProof(*request.mutable_proof(), signedBytes(request, serviceKeyId));
}

bool PanelSigner::sign(wire::Unregister& request, const QString& serviceKeyId, qint64 timestampMs) const {
    request.mutable_proof()->set_timestamp_ms(timestampMs);
    return signProof(*request.mutable_proof(), signedBytes(request, serviceKeyId));
}

bool PanelSigner::signProof(wire::PanelProof& proof, const QByteArray& bytes) const {
    if (!m_key) return false;
    MdCtxPtr ctx(EVP_MD_CTX_new());
    size_t length = 0;
    if (!ctx || EVP_DigestSignInit(ctx.get(), nullptr, EVP_sha256(), nullptr, m_key.get()) != 1 ||
        EVP_DigestSign(ctx.get(), nullptr, &length, reinterpret_cast<const unsigned char*>(bytes.constData()),
                       size_t(bytes.size())) != 1)
        return fail(nullptr, {});
    std::string signature(length, '\0');
    if (EVP_DigestSign(ctx.get(), reinterpret_cast<unsigned char*>(signature.data()), &length,
                       reinterpret_cast<const unsigned char*>(bytes.constData()), size_t(bytes.size())) != 1)
        return fail(nullptr, {});
    signature.resize(length);
    proof.set_certificate(m_certificateDer.toStdString());
    proof.set_signature(std::move(signature));
    return true;
}

QString verifyProof(const wire::PanelProof& proof, const QByteArray& bytes, QString* why) {
    const std::string& der = proof.certificate();
    if (der.empty() || der.size() > size_t(kMaxCertificateBytes)) {
        fail(why, QStringLiteral("no certificate, or one over %1 bytes").arg(kMaxCertificateBytes));
        return {};
    }
    const auto* data = reinterpret_cast<const unsigned char*>(der.data());
    X509Ptr cert(d2i_X509(nullptr, &data, long(der.size())));
    if (!cert || data != reinterpret_cast<const unsigned char*>(der.data()) + der.size()) {
        fail(why, QStringLiteral("the certificate is no DER X.509 certificate"));
        return {};
    }
    EVP_PKEY* key = X509_get0_pubkey(cert.get());
    if (!isP256(key)) {
        fail(why, QStringLiteral("the certificate's key is not EC P-256"));
        return {};
    }
    MdCtxPtr ctx(EVP_MD_CTX_new());
    const std::string& signature = proof.signature();
    if (!ctx || EVP_DigestVerifyInit(ctx.get(), nullptr, EVP_sha256(), nullptr, key) != 1 ||
        EVP_DigestVerify(ctx.get(), reinterpret_cast<const unsigned char*>(signature.data()), signature.size(),
                         reinterpret_cast<const unsigned char*>(bytes.constData()), size_t(bytes.size())) != 1) {
        fail(why, QStringLiteral("the signature does not verify"));
        return {};
    }
    return keyIdOf(key);
}

}  // namespace zv::passcode
