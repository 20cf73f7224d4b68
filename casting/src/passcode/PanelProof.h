// Panel requests to the passcode service carry a PanelProof: the panel's
// certificate and an ECDSA P-256 / SHA-256 signature made with its TLS key
// over the request's canonical bytes (docs/protocol.md, "Passcode service").
// The bytes name the service's key id and a timestamp, so a proof made for
// one service is useless at another and soon useless at the same one.
//
// Threads: plain functions and an immutable signer, usable from any thread.
#pragma once

#include <QByteArray>
#include <QSslCertificate>
#include <QSslKey>
#include <QString>

#include <memory>

#include "proto/passcode.pb.h"

using EVP_PKEY = struct evp_pkey_st;

namespace zv::passcode {

// How far a request's timestamp may be from the service's clock.
inline constexpr qint64 kMaxClockSkewMs = 60 * 1000;
// Larger certificates are refused unread.
inline constexpr int kMaxCertificateBytes = 8 * 1024;

// The canonical bytes a proof signs (the proof's timestamp included, its
// other fields not).
QByteArray signedBytes(const wire::Register& request, const QString& serviceKeyId);
QByteArray signedBytes(const wire::Unregister& request, const QString& serviceKeyId);

class PanelSigner {
public:
    // The panel's TLS key and certificate; isValid() is false when the key is
    // not EC P-256 or the certificate is not for it.
    PanelSigner(const QSslKey& key, const QSslCertificate& certificate);

    bool isValid() const { return m_key != nullptr; }
    // The key id of the panel key (security/KeyId.h).
    QString keyId() const { return m_keyId; }

    // Fills request's proof for the service with that key id; false when
    // this signer is not valid or signing fails.
    bool sign(wire::Register& request, const QString& serviceKeyId, qint64 timestampMs) const;
    bool sign(wire::Unregister& request, const QString& serviceKeyId, qint64 timestampMs) const;

private:
    bool signProof(wire::PanelProof& proof, const QByteArray& bytes) const;

    std::shared_ptr<EVP_PKEY> m_key;
    QByteArray m_certificateDer;
    QString m_keyId;
};

// The key id of the panel whose certificate is in proof when the signature
// verifies over bytes; empty otherwise, with the reason in *why. Does not
// look at the timestamp (the caller's clock decides).
QString verifyProof(const wire::PanelProof& proof, const QByteArray& bytes, QString* why = nullptr);

}  // namespace zv::passcode
