#include "security/KeyId.h"

#include <QCryptographicHash>

namespace zv {

namespace {
constexpr auto kBase64Options = QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals;
}

QByteArray keyHashOfPublicKey(const QByteArray& spkiDer) {
    if (spkiDer.isEmpty()) return {};
    return QCryptographicHash::hash(spkiDer, QCryptographicHash::Sha256);
}

QString keyIdOfHash(const QByteArray& keyHash) {
    if (keyHash.size() != kKeyHashBytes) return {};
    return QString::fromLatin1(keyHash.toBase64(kBase64Options));
}

QString keyIdOfPublicKey(const QByteArray& spkiDer) { return keyIdOfHash(keyHashOfPublicKey(spkiDer)); }

QByteArray keyHashOfKeyId(const QString& keyId) {
    if (keyId.size() != kKeyIdChars) return {};
    const auto decoded = QByteArray::fromBase64Encoding(keyId.toLatin1(), kBase64Options | QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded || decoded.decoded.size() != kKeyHashBytes) return {};
    // Only the canonical spelling: the last character carries 2 unused bits.
    if (keyIdOfHash(decoded.decoded) != keyId) return {};
    return decoded.decoded;
}

QString shortKeyId(const QString& keyId) { return keyId.left(kShortKeyIdChars); }

}  // namespace zv
