// How a public key is named: the SHA-256 of its DER SubjectPublicKeyInfo,
// written base64url without padding (43 characters, fits the 48-byte key
// fields), shown shortened where people read it. Both sides pin by it.
//
// Threads: pure functions, callable from any thread.
#pragma once

#include <QByteArray>
#include <QString>

namespace zv {

inline constexpr int kKeyHashBytes = 32;
inline constexpr int kKeyIdChars = 43;
inline constexpr int kShortKeyIdChars = 8;

// SHA-256 of the DER SubjectPublicKeyInfo; empty for empty input.
QByteArray keyHashOfPublicKey(const QByteArray& spkiDer);
// The key id of a 32-byte key hash; empty for anything else.
QString keyIdOfHash(const QByteArray& keyHash);
// keyIdOfHash(keyHashOfPublicKey(spkiDer)).
QString keyIdOfPublicKey(const QByteArray& spkiDer);
// The raw hash back from a key id; empty when keyId is not one.
QByteArray keyHashOfKeyId(const QString& keyId);
// The first kShortKeyIdChars characters, for people to compare.
QString shortKeyId(const QString& keyId);

}  // namespace zv
