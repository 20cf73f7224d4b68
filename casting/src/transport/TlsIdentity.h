// A TLS identity, the panel's or a PC's: an EC P-256 key and a self-signed
// certificate kept in a folder, and the key ids derived from it
// (docs/protocol.md, "Identity, TLS and pinning"). Free functions, callable
// from any thread.
#pragma once

#include <QSslCertificate>
#include <QSslKey>
#include <QString>

#include <optional>

namespace zv {

inline constexpr char kPanelKeyFileName[] = "panel-key.pem";    // PKCS#8 PEM, mode 0600
inline constexpr char kPanelCertFileName[] = "panel-cert.pem";  // X.509 PEM
inline constexpr char kPcKeyFileName[] = "client-key.pem";       // PKCS#8 PEM, mode 0600
inline constexpr char kPcCertFileName[] = "client-cert.pem";     // X.509 PEM

// Which identity a folder holds: its file names, the name used when none is
// given, how logs call it, and the certificate's extended key usage.
struct TlsIdentityKind {
    const char* keyFileName;
    const char* certFileName;
    const char* defaultCommonName;
    const char* what;
    const char* extendedKeyUsage;
};
inline constexpr TlsIdentityKind kPanelIdentity{kPanelKeyFileName, kPanelCertFileName, "Zelvanor panel", "panel",
                                                "serverAuth"};
inline constexpr TlsIdentityKind kPcIdentity{kPcKeyFileName, kPcCertFileName, "Zelvanor PC", "PC", "clientAuth"};

struct TlsIdentity {
    QSslKey privateKey;
    QSslCertificate certificate;
    QString panelKey;  // panelKeyOf(certificate)
    QString keyId;     // keyIdOf(certificate), 43 characters
};

// Loads the identity from folder, creating the folder, key and certificate
// when missing. A key file that cannot be read or parsed is renamed
// "<name>.broken-<timestamp>" and a new identity is made; a certificate that
// is unreadable, not for the key, or whose CN is not commonName is issued
// anew for the same key (so the panel key stays). New certificates: CN =
// commonName (cut to 64 characters), valid 20 years, random serial.
// Returns nullopt (and the reason in *error) only when files cannot be written.
std::optional<TlsIdentity> loadOrCreateTlsIdentity(const QString& folder, const QString& commonName,
                                                   QString* error = nullptr);
// The same for any kind of identity (kPcIdentity: the PC's, made at first start).
std::optional<TlsIdentity> loadOrCreateTlsIdentity(const QString& folder, const QString& commonName,
                                                   const TlsIdentityKind& kind, QString* error = nullptr);

// First 16 lowercase hex digits of the SHA-256 of the certificate's DER
// SubjectPublicKeyInfo; empty for a null or unparsable certificate.
QString panelKeyOf(const QSslCertificate& certificate);

// The key id of the certificate's public key (security/KeyId.h); empty for a
// null or unparsable certificate.
QString keyIdOf(const QSslCertificate& certificate);

}  // namespace zv
