#include "transport/TlsIdentity.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "casting/Log.h"
#include "security/KeyId.h"

namespace zv {

namespace {

template <typename T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* p) const { Free(p); }
};
using PKeyPtr = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY, EVP_PKEY_free>>;
using X509Ptr = std::unique_ptr<X509, Deleter<X509, X509_free>>;
using BignumPtr = std::unique_ptr<BIGNUM, Deleter<BIGNUM, BN_free>>;
void freeBio(BIO* bio) { BIO_free(bio); }
using BioPtr = std::unique_ptr<BIO, Deleter<BIO, freeBio>>;

constexpr int kValidityDays = 20 * 365 + 5;  // 20 years with their leap days
constexpr int kMaxCommonNameChars = 64;      // X.520 upper bound of a CN

BioPtr memoryBio(const QByteArray& data) {
    return BioPtr(BIO_new_mem_buf(data.constData(), data.size()));
}

QByteArray bioContents(BIO* bio) {
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio, &data);
    return QByteArray(data, static_cast<int>(size));
}

QString commonNameFor(const QString& name, const TlsIdentityKind& kind) {
    QString cn = name.trimmed();
    if (cn.isEmpty()) cn = QString::fromUtf8(kind.defaultCommonName);
    if (cn.size() > kMaxCommonNameChars) {
        cn.truncate(kMaxCommonNameChars);
        if (QChar(cn.back()).isHighSurrogate()) cn.chop(1);
    }
    return cn;
}

QString commonNameOf(X509* cert) {
    X509_NAME* subject = X509_get_subject_name(cert);
    const int index = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
    if (index < 0) return {};
    unsigned char* utf8 = nullptr;
    const int length = ASN1_STRING_to_UTF8(&utf8, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, index)));
    if (length < 0) return {};
    const QString cn = QString::fromUtf8(reinterpret_cast<const char*>(utf8), length);
    OPENSSL_free(utf8);
    return cn;
}

bool isP256Key(EVP_PKEY* key) {
    if (EVP_PKEY_get_base_id(key) != EVP_PKEY_EC) return false;
    char group[64] = {};
    size_t length = 0;
    if (EVP_PKEY_get_utf8_string_param(key, "group", group, sizeof group, &length) != 1) return false;
    return std::strcmp(group, "prime256v1") == 0 || std::strcmp(group, "P-256") == 0;
}

// Reads the file; *readable is false when it exists but cannot be read.
QByteArray readFile(const QString& path, bool* readable) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *readable = false;
        return {};
    }
    *readable = true;
    return file.readAll();
}

// Writes data under a temporary name created with the given mode, then
// renames it over path, so no reader ever sees a partial or wider file.
bool writeFileAtomically(const QString& path, const QByteArray& data, mode_t mode, QString* error) {
    const QByteArray target = QFile::encodeName(path);
    const QByteArray temp = target + ".tmp-" + QByteArray::number(qint64(::getpid()));
    ::unlink(temp.constData());
    const int fd = ::open(temp.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (fd < 0) {
        *error = QStringLiteral("cannot create %1: %2").arg(QFile::decodeName(temp), QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    qsizetype written = 0;
    while (written < data.size()) {
        const ssize_t n = ::write(fd, data.constData() + written, size_t(data.size() - written));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        written += n;
    }
    const bool ok = written == data.size() && ::fsync(fd) == 0;
    const int savedErrno = errno;
    ::close(fd);
    if (!ok || ::rename(temp.constData(), target.constData()) != 0) {
        *error = QStringLiteral("cannot write %1: %2").arg(path, QString::fromLocal8Bit(std::strerror(ok ? errno : savedErrno)));
        ::unlink(temp.constData());
        return false;
    }
    return true;
}

// Moves a bad file out of the way, keeping it for whoever wants to look.
bool keepAside(const QString& path, const QString& why, QString* error) {
    const QString base = path + QStringLiteral(".broken-") + QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    QString aside = base;
    for (int n = 2; QFileInfo::exists(aside); ++n) aside = base + QLatin1Char('-') + QString::number(n);
    if (!QFile::rename(path, aside)) {
        *error = QStringLiteral("cannot move the unusable %1 aside").arg(path);
        ZV_LOG(ERROR) << " " << error->toStdString() << " (" << why.toStdString() << ")";
        return false;
    }
    ZV_LOG(WARNING) << " " << path.toStdString() << " " << why.toStdString() << "; kept as " << aside.toStdString();
    return true;
}

PKeyPtr generateKey() { return PKeyPtr(EVP_EC_gen("P-256")); }

X509Ptr makeCertificate(EVP_PKEY* key, const QString& commonName, const char* extendedKeyUsage) {
    X509Ptr cert(X509_new());
    BignumPtr serial(BN_new());
    if (!cert || !serial) return nullptr;
    // 127 random bits: positive and within the 20 octets a serial may have.
    if (X509_set_version(cert.get(), 2) != 1 || BN_rand(serial.get(), 127, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) != 1 ||
        !BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(cert.get())))
        return nullptr;
    if (!X509_gmtime_adj(X509_getm_notBefore(cert.get()), 0) ||
        !X509_time_adj_ex(X509_getm_notAfter(cert.get()), kValidityDays, 0, nullptr))
        return nullptr;
    const QByteArray cn = commonName.toUtf8();
    X509_NAME* name = X509_get_subject_name(cert.get());
    if (X509_NAME_add_entry_by_NID(name, NID_commonName, MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char*>(cn.constData()), cn.size(), -1, 0) != 1 ||
        X509_set_issuer_name(cert.get(), name) != 1 || X509_set_pubkey(cert.get(), key) != 1)
        return nullptr;
    X509V3_CTX ctx;
    X509V3_set_ctx_nodb(&ctx);
    X509V3_set_ctx(&ctx, cert.get(), cert.get(), nullptr, nullptr, 0);
    // No keyUsage: with one lacking keyCertSign, OpenSSL (and Qt's
    // isSelfSigned) would no longer see the certificate as its own issuer.
    for (const auto& [nid, value] : {std::pair{NID_basic_constraints, "critical,CA:FALSE"},
                                     std::pair{NID_ext_key_usage, extendedKeyUsage}}) {
        X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value);
        const bool added = ext && X509_add_ext(cert.get(), ext, -1) == 1;
        X509_EXTENSION_free(ext);
        if (!added) return nullptr;
    }
    if (X509_sign(cert.get(), key, EVP_sha256()) <= 0) return nullptr;
    return cert;
}

QByteArray privateKeyPem(EVP_PKEY* key) {
    BioPtr bio(BIO_new(BIO_s_mem()));
    if (!bio || PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr) != 1) return {};
    return bioContents(bio.get());
}

QByteArray certificatePem(X509* cert) {
    BioPtr bio(BIO_new(BIO_s_mem()));
    if (!bio || PEM_write_bio_X509(bio.get(), cert) != 1) return {};
    return bioContents(bio.get());
}

}  // namespace

std::optional<TlsIdentity> loadOrCreateTlsIdentity(const QString& folder, const QString& commonName, QString* error) {
    return loadOrCreateTlsIdentity(folder, commonName, kPanelIdentity, error);
}

std::optional<TlsIdentity> loadOrCreateTlsIdentity(const QString& folder, const QString& commonName,
                                                   const TlsIdentityKind& kind, QString* error) {
    QString localError;
    QString& err = error ? *error : localError;
    if (!QDir().mkpath(folder)) {
        err = QStringLiteral("cannot create the folder %1").arg(folder);
        ZV_LOG(ERROR) << " " << err.toStdString();
        return std::nullopt;
    }
    const QString keyPath = QDir(folder).filePath(QLatin1String(kind.keyFileName));
    const QString certPath = QDir(folder).filePath(QLatin1String(kind.certFileName));
    const QString cn = commonNameFor(commonName, kind);

    PKeyPtr key;
    QByteArray keyPem;
    if (QFileInfo::exists(keyPath)) {
        bool readable = false;
        keyPem = readFile(keyPath, &readable);
        if (readable) {
            BioPtr bio = memoryBio(keyPem);
            key.reset(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr));
        }
        if (!key || !isP256Key(key.get())) {
            key.reset();
            const QString why = !readable ? QStringLiteral("cannot be read") : QStringLiteral("holds no usable EC P-256 key");
            if (!keepAside(keyPath, why, &err)) return std::nullopt;
        } else if ((QFile::permissions(keyPath) & ~(QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser | QFile::WriteUser)) != 0) {
            ZV_LOG(WARNING) << " " << keyPath.toStdString() << " was readable by others; now 0600";
            QFile::setPermissions(keyPath, QFile::ReadOwner | QFile::WriteOwner);
        }
    }

    X509Ptr cert;
    if (key && QFileInfo::exists(certPath)) {
        bool readable = false;
        const QByteArray certPem = readFile(certPath, &readable);
        if (readable) {
            BioPtr bio = memoryBio(certPem);
            cert.reset(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
        }
        if (!cert || X509_check_private_key(cert.get(), key.get()) != 1) {
            cert.reset();
            if (!keepAside(certPath, QStringLiteral("does not hold a certificate for the key"), &err)) return std::nullopt;
        } else if (commonNameOf(cert.get()) != cn) {
            ZV_LOG(INFO) << " " << kind.what << " name changed from \"" << commonNameOf(cert.get()).toStdString() << "\" to \""
                         << cn.toStdString() << "\": issuing a new certificate for the same key";
            cert.reset();
        }
    }

    if (!key) {
        key = generateKey();
        keyPem = key ? privateKeyPem(key.get()) : QByteArray();
        if (keyPem.isEmpty()) {
            err = QStringLiteral("cannot generate an EC P-256 key");
            ZV_LOG(ERROR) << " " << err.toStdString();
            return std::nullopt;
        }
        if (!writeFileAtomically(keyPath, keyPem, 0600, &err)) {
            ZV_LOG(ERROR) << " " << err.toStdString();
            return std::nullopt;
        }
        ZV_LOG(INFO) << " new " << kind.what << " key written to " << keyPath.toStdString();
    }

    QByteArray certPem;
    if (cert) {
        certPem = certificatePem(cert.get());
    } else {
        cert = makeCertificate(key.get(), cn, kind.extendedKeyUsage);
        certPem = cert ? certificatePem(cert.get()) : QByteArray();
        if (certPem.isEmpty()) {
            err = QStringLiteral("cannot make a self-signed certificate");
            ZV_LOG(ERROR) << " " << err.toStdString();
            return std::nullopt;
        }
        if (!writeFileAtomically(certPath, certPem, 0644, &err)) {
            ZV_LOG(ERROR) << " " << err.toStdString();
            return std::nullopt;
        }
    }

    TlsIdentity identity;
    identity.privateKey = QSslKey(keyPem, QSsl::Ec, QSsl::Pem, QSsl::PrivateKey);
    identity.certificate = QSslCertificate(certPem, QSsl::Pem);
    identity.panelKey = panelKeyOf(identity.certificate);
    identity.keyId = keyIdOf(identity.certificate);
    if (identity.privateKey.isNull() || identity.certificate.isNull() || identity.keyId.isEmpty()) {
        err = QStringLiteral("Qt cannot use the key or certificate in %1").arg(folder);
        ZV_LOG(ERROR) << " " << err.toStdString();
        return std::nullopt;
    }
    ZV_LOG(INFO) << " " << kind.what << " identity " << identity.keyId.toStdString() << " (CN \"" << cn.toStdString() << "\") from "
                 << folder.toStdString();
    return identity;
}

namespace {

// The DER SubjectPublicKeyInfo of the certificate's key; empty if none.
QByteArray publicKeyDerOf(const QSslCertificate& certificate) {
    if (certificate.isNull()) return {};
    const QByteArray der = certificate.toDer();
    const unsigned char* p = reinterpret_cast<const unsigned char*>(der.constData());
    X509Ptr x509(d2i_X509(nullptr, &p, der.size()));
    if (!x509) return {};
    EVP_PKEY* publicKey = X509_get0_pubkey(x509.get());
    if (!publicKey) return {};
    unsigned char* spki = nullptr;
    const int length = i2d_PUBKEY(publicKey, &spki);
    if (length <= 0) return {};
    const QByteArray spkiDer(reinterpret_cast<const char*>(spki), length);
    OPENSSL_free(spki);
    return spkiDer;
}

}  // namespace

QString panelKeyOf(const QSslCertificate& certificate) {
    const QByteArray der = publicKeyDerOf(certificate);
    if (der.isEmpty()) return {};
    return QString::fromLatin1(QCryptographicHash::hash(der, QCryptographicHash::Sha256).toHex().left(16));
}

QString keyIdOf(const QSslCertificate& certificate) { return keyIdOfPublicKey(publicKeyDerOf(certificate)); }

}  // namespace zv
