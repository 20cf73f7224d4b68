#include "security/KeySchedule.h"

#include <sodium.h>

#include "protocol/ConnectCode.h"
#include "security/CPace.h"
#include "security/SodiumInit.h"

namespace zv::keys {

namespace {

constexpr int kHashBytes = crypto_auth_hmacsha256_BYTES;

QByteArray hmacSha256(const QByteArray& key, const QByteArray& data1, const QByteArray& data2 = {}) {
    crypto_auth_hmacsha256_state state;
    QByteArray mac(kHashBytes, '\0');
    crypto_auth_hmacsha256_init(&state, reinterpret_cast<const unsigned char*>(key.constData()), size_t(key.size()));
    crypto_auth_hmacsha256_update(&state, reinterpret_cast<const unsigned char*>(data1.constData()), quint64(data1.size()));
    crypto_auth_hmacsha256_update(&state, reinterpret_cast<const unsigned char*>(data2.constData()), quint64(data2.size()));
    crypto_auth_hmacsha256_final(&state, reinterpret_cast<unsigned char*>(mac.data()));
    sodium_memzero(&state, sizeof state);
    return mac;
}

QByteArray castContext(quint32 castId) {
    QByteArray context(4, '\0');
    context[0] = char(castId >> 24);
    context[1] = char(castId >> 16);
    context[2] = char(castId >> 8);
    context[3] = char(castId);
    return context;
}

// The exporter's answer, if it has exactly the length asked for.
QByteArray exportExactly(const Exporter& exporter, const char* label, const QByteArray& context, int length) {
    if (!exporter) return {};
    QByteArray out = exporter(QByteArray(label), context, length);
    return out.size() == length ? out : QByteArray();
}

}  // namespace

QByteArray hkdfExtract(const QByteArray& salt, const QByteArray& ikm) {
    if (!ensureSodium()) return {};
    // No salt means a string of HashLen zeros (RFC 5869, 2.2).
    return hmacSha256(salt.isEmpty() ? QByteArray(kHashBytes, '\0') : salt, ikm);
}

QByteArray hkdfExpand(const QByteArray& prk, const QByteArray& info, int length) {
    if (length <= 0 || length > 255 * kHashBytes || prk.isEmpty() || !ensureSodium()) return {};
    QByteArray okm;
    QByteArray block;
    for (int i = 1; okm.size() < length; ++i) {
        block = hmacSha256(prk, block + info, QByteArray(1, char(i)));
        okm += block;
    }
    sodium_memzero(block.data(), size_t(block.size()));
    okm.truncate(length);
    return okm;
}

QByteArray hkdfSha256(const QByteArray& ikm, const QByteArray& salt, const QByteArray& info, int length) {
    QByteArray prk = hkdfExtract(salt, ikm);
    QByteArray okm = hkdfExpand(prk, info, length);
    if (!prk.isEmpty()) sodium_memzero(prk.data(), size_t(prk.size()));
    return okm;
}

QByteArray cpaceSid(const Exporter& exporter) { return exportExactly(exporter, kCpaceSidLabel, {}, kCpaceSidBytes); }

QByteArray cpaceChannelId(const QByteArray& panelKeyHash, const QByteArray& pcKeyHash) {
    return cpace::lvCat({QByteArray("panel"), panelKeyHash, QByteArray("pc"), pcKeyHash});
}

QByteArray cpacePassword(const QString& typedCode) { return code::normalize(typedCode).toUtf8(); }

QByteArray sessionSecret(const Exporter& exporter) {
    return exportExactly(exporter, kSessionLabel, {}, kSessionSecretBytes);
}

std::optional<MediaKey> mediaKey(const Exporter& exporter, quint32 castId, MediaDirection direction) {
    const QByteArray context = castContext(castId) + char(direction);
    QByteArray material = exportExactly(exporter, kMediaLabel, context, kMediaKeyBytes + kMediaSaltBytes);
    if (material.isEmpty()) return std::nullopt;
    MediaKey key{material.left(kMediaKeyBytes), material.mid(kMediaKeyBytes)};
    sodium_memzero(material.data(), size_t(material.size()));
    return key;
}

QByteArray srtPassphrase(const Exporter& exporter, quint32 castId) {
    QByteArray secret = exportExactly(exporter, kSrtLabel, castContext(castId), kSrtSecretBytes);
    if (secret.isEmpty()) return {};
    const QByteArray passphrase = secret.toBase64();
    sodium_memzero(secret.data(), size_t(secret.size()));
    return passphrase;
}

}  // namespace zv::keys
