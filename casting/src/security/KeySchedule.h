// Keys derived from a TLS session and the code: HKDF-SHA-256 (RFC 5869) and
// the exporter labels of the control channel.
// Every derivation takes the session's exporter as a function, so it can be
// checked without TLS; with a TlsEngine pass
//   [&](auto& label, auto& context, int n) { return engine.exportKeyingMaterial(label, context, n); }
//
// Threads: pure functions, callable from any thread (the exporter is called
// in the caller's thread).
#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <functional>
#include <optional>

namespace zv::keys {

// RFC 5869 with SHA-256. Empty on failure or a length outside 1 .. 255*32.
QByteArray hkdfExtract(const QByteArray& salt, const QByteArray& ikm);
QByteArray hkdfExpand(const QByteArray& prk, const QByteArray& info, int length);
QByteArray hkdfSha256(const QByteArray& ikm, const QByteArray& salt, const QByteArray& info, int length);

// The TLS exporter (RFC 8446, 7.5): length bytes for label and context;
// empty when it cannot export (no session yet).
using Exporter = std::function<QByteArray(const QByteArray& label, const QByteArray& context, int length)>;

inline constexpr char kCpaceSidLabel[] = "EXPORTER-zelvanor-cpace-sid";
inline constexpr char kSessionLabel[] = "EXPORTER-zelvanor-session";
inline constexpr char kMediaLabel[] = "EXPORTER-zelvanor-media";
inline constexpr char kSrtLabel[] = "EXPORTER-zelvanor-srt";

constexpr int kCpaceSidBytes = 16;
constexpr int kSessionSecretBytes = 32;
constexpr int kMediaKeyBytes = 32;   // AES-256-GCM key
constexpr int kMediaSaltBytes = 12;  // GCM nonce salt
constexpr int kSrtSecretBytes = 24;  // base64: 32 characters, within SRT's 10..79

// The CPace session id: 16 exporter bytes, empty context.
QByteArray cpaceSid(const Exporter& exporter);
// The CPace channel identifier: lv_cat("panel", panelKeyHash, "pc", pcKeyHash)
// over the raw 32-byte SHA-256 of each side's SubjectPublicKeyInfo.
QByteArray cpaceChannelId(const QByteArray& panelKeyHash, const QByteArray& pcKeyHash);
// The CPace password string: the code as typed, made canonical
// (code::normalize: no spaces or dashes, upper case, I/L read as 1, O as 0).
QByteArray cpacePassword(const QString& typedCode);

// The secret of the whole session, after the PAKE or a log-in with a known key.
QByteArray sessionSecret(const Exporter& exporter);

enum class MediaDirection : quint8 { PcToPanel = 1, PanelToPc = 2 };
struct MediaKey {
    QByteArray key;   // kMediaKeyBytes
    QByteArray salt;  // kMediaSaltBytes
};
// Per cast and direction: 44 exporter bytes with context castId (u32 big
// endian) || direction byte. nullopt when the exporter gives nothing.
std::optional<MediaKey> mediaKey(const Exporter& exporter, quint32 castId, MediaDirection direction);

// Per cast: base64 of 24 exporter bytes with context castId (u32 big endian).
// Empty when the exporter gives nothing.
QByteArray srtPassphrase(const Exporter& exporter, quint32 castId);

}  // namespace zv::keys
