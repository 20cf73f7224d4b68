// CPace, the balanced PAKE of draft-irtf-cfrg-cpace, for the suite
// CPACE-RISTR255-SHA512 (ristretto255, SHA-512) in the initiator-responder
// setting, on libsodium. It turns the short code both people know into a
// strong key (ISK) that only the two ends of this TLS session share.
//
// Messages travel in our own protobuf fields, so the network encoding is
// the caller's: each side sends its share Y and associated data AD; the ISK
// covers transcript = lv_cat(Ya, ADa) || lv_cat(Yb, ADb), initiator first.
//
// Threads: a CPace object is plain data used by one thread at a time; the
// free functions are callable from any thread.
#pragma once

#include <QByteArray>

#include <array>
#include <initializer_list>
#include <optional>

namespace zv {

// The draft's string and group helpers, public for tests and for the key
// confirmation that hashes the same transcript.
namespace cpace {

inline constexpr int kShareBytes = 32;   // encoded ristretto255 element
inline constexpr int kScalarBytes = 32;  // little-endian scalar
inline constexpr int kIskBytes = 64;     // SHA-512 output
inline constexpr int kHashBlockBytes = 128;  // SHA-512 input block (s_in_bytes)
inline constexpr char kDsi[] = "CPaceRistretto255";

// LEB128 length of data, then data.
QByteArray prependLen(const QByteArray& data);
// prependLen of each part, concatenated.
QByteArray lvCat(std::initializer_list<QByteArray> parts);
// lv_cat(DSI, PRS, zero padding filling the first hash block, CI, sid).
QByteArray generatorString(const QByteArray& dsi, const QByteArray& prs, const QByteArray& ci, const QByteArray& sid,
                           int hashBlockBytes = kHashBlockBytes);
// The encoded generator g = element_derivation(SHA-512(generator string)).
QByteArray calculateGenerator(const QByteArray& prs, const QByteArray& ci, const QByteArray& sid);
// encode(decode(point)^scalar); nullopt when point is not a canonical
// encoding of an element, or is, or gives, the identity (G.I).
std::optional<QByteArray> scalarMultVfy(const QByteArray& scalar, const QByteArray& point);

}  // namespace cpace

class CPace {
public:
    enum class Role { Initiator = 1, Responder };

    // Computes the generator from prs (the password-related string), ci (the
    // channel identifier) and sid, samples a fresh scalar and our share.
    static CPace start(Role role, const QByteArray& prs, const QByteArray& ci, const QByteArray& sid,
                       const QByteArray& ad);
    // The same with a given scalar (kScalarBytes, little-endian): only for
    // reproducing published test vectors. Never reuse a scalar.
    static CPace startWithScalarForTesting(Role role, const QByteArray& prs, const QByteArray& ci,
                                           const QByteArray& sid, const QByteArray& ad, const QByteArray& scalar);

    CPace(CPace&& other) noexcept;
    CPace& operator=(CPace&& other) noexcept;
    CPace(const CPace&) = delete;
    CPace& operator=(const CPace&) = delete;
    ~CPace();  // wipes the scalar

    Role role() const { return m_role; }
    // Our share Y (kShareBytes); empty only if the generator came out as
    // the identity, which no real input does (finish then fails too).
    QByteArray share() const { return m_share; }
    const QByteArray& ad() const { return m_ad; }

    // The ISK (kIskBytes) from the peer's share and associated data, or
    // nullopt when the share is not kShareBytes, not a valid encoding, or
    // yields the identity: the peer must then be treated as having failed.
    // Works once: the scalar is wiped afterwards, later calls give nullopt.
    std::optional<QByteArray> finish(const QByteArray& peerShare, const QByteArray& peerAd);

    // lv_cat(Ya, ADa) || lv_cat(Yb, ADb) after a successful finish(), else empty.
    const QByteArray& transcript() const { return m_transcript; }

private:
    CPace(Role role, const QByteArray& sid, const QByteArray& ad);
    void begin(const QByteArray& prs, const QByteArray& ci);
    void wipe();

    Role m_role;
    QByteArray m_sid;
    QByteArray m_ad;
    QByteArray m_share;
    QByteArray m_transcript;
    std::array<unsigned char, cpace::kScalarBytes> m_scalar{};
    bool m_hasScalar = false;
};

}  // namespace zv
