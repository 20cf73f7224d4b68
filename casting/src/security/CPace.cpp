#include "security/CPace.h"

#include <sodium.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "casting/Log.h"
#include "security/SodiumInit.h"

namespace zv {

namespace cpace {

namespace {

const unsigned char* bytes(const QByteArray& data) { return reinterpret_cast<const unsigned char*>(data.constData()); }

QByteArray sha512(const QByteArray& data) {
    QByteArray digest(crypto_hash_sha512_BYTES, '\0');
    crypto_hash_sha512(reinterpret_cast<unsigned char*>(digest.data()), bytes(data), quint64(data.size()));
    return digest;
}

// Wipes a buffer this code owns alone (no implicit sharing to detach from).
void wipeBuffer(QByteArray& data) {
    if (!data.isEmpty()) sodium_memzero(data.data(), size_t(data.size()));
    data.clear();
}

}  // namespace

QByteArray prependLen(const QByteArray& data) {
    QByteArray out;
    quint64 length = quint64(data.size());
    do {
        unsigned char byte = length & 0x7f;
        length >>= 7;
        if (length != 0) byte |= 0x80;
        out.append(char(byte));
    } while (length != 0);
    return out + data;
}

QByteArray lvCat(std::initializer_list<QByteArray> parts) {
    QByteArray out;
    for (const QByteArray& part : parts) out += prependLen(part);
    return out;
}

QByteArray generatorString(const QByteArray& dsi, const QByteArray& prs, const QByteArray& ci, const QByteArray& sid,
                           int hashBlockBytes) {
    // The padding makes DSI and PRS fill the first hash block, so the work
    // hashed does not depend on how long the password is.
    const int zpad = std::max(0, hashBlockBytes - 1 - int(prependLen(prs).size()) - int(prependLen(dsi).size()));
    return lvCat({dsi, prs, QByteArray(zpad, '\0'), ci, sid});
}

QByteArray calculateGenerator(const QByteArray& prs, const QByteArray& ci, const QByteArray& sid) {
    ensureSodium();
    QByteArray genStr = generatorString(QByteArray(kDsi), prs, ci, sid);
    QByteArray hash = sha512(genStr);
    QByteArray generator(crypto_core_ristretto255_BYTES, '\0');
    crypto_core_ristretto255_from_hash(reinterpret_cast<unsigned char*>(generator.data()), bytes(hash));
    wipeBuffer(genStr);
    wipeBuffer(hash);
    return generator;
}

std::optional<QByteArray> scalarMultVfy(const QByteArray& scalar, const QByteArray& point) {
    if (scalar.size() != kScalarBytes || point.size() != kShareBytes || !ensureSodium()) return std::nullopt;
    // No canonical encoding has the top bit set; Debian's libsodium (1.0.18)
    // ignores it when decoding, so a flipped bit would pass as the same point.
    if ((uint8_t(point.at(kShareBytes - 1)) & 0x80) != 0) return std::nullopt;
    QByteArray result(crypto_core_ristretto255_BYTES, '\0');
    // Fails on a non-canonical or invalid encoding and on an identity result;
    // the identity as input yields the identity, so it fails as well.
    if (crypto_scalarmult_ristretto255(reinterpret_cast<unsigned char*>(result.data()), bytes(scalar), bytes(point)) != 0)
        return std::nullopt;
    return result;
}

}  // namespace cpace

CPace::CPace(Role role, const QByteArray& sid, const QByteArray& ad) : m_role(role), m_sid(sid), m_ad(ad) {}

CPace CPace::start(Role role, const QByteArray& prs, const QByteArray& ci, const QByteArray& sid, const QByteArray& ad) {
    CPace pace(role, sid, ad);
    if (ensureSodium()) {
        crypto_core_ristretto255_scalar_random(pace.m_scalar.data());  // uniform in 1 .. order-1
        pace.m_hasScalar = true;
    }
    pace.begin(prs, ci);
    return pace;
}

CPace CPace::startWithScalarForTesting(Role role, const QByteArray& prs, const QByteArray& ci, const QByteArray& sid,
                                       const QByteArray& ad, const QByteArray& scalar) {
    CPace pace(role, sid, ad);
    if (scalar.size() == cpace::kScalarBytes) {
        std::memcpy(pace.m_scalar.data(), scalar.constData(), pace.m_scalar.size());
        pace.m_hasScalar = true;
    }
    pace.begin(prs, ci);
    return pace;
}

void CPace::begin(const QByteArray& prs, const QByteArray& ci) {
    QByteArray generator = cpace::calculateGenerator(prs, ci, m_sid);
    const QByteArray scalar = QByteArray::fromRawData(reinterpret_cast<const char*>(m_scalar.data()), int(m_scalar.size()));
    std::optional<QByteArray> share = m_hasScalar ? cpace::scalarMultVfy(scalar, generator) : std::nullopt;
    sodium_memzero(generator.data(), size_t(generator.size()));
    if (share) {
        m_share = *share;
    } else {
        ZV_LOG(ERROR) << " no share: the scalar is missing or the generator is degenerate";
        wipe();
    }
}

std::optional<QByteArray> CPace::finish(const QByteArray& peerShare, const QByteArray& peerAd) {
    if (!m_hasScalar) return std::nullopt;
    const QByteArray scalar = QByteArray::fromRawData(reinterpret_cast<const char*>(m_scalar.data()), int(m_scalar.size()));
    std::optional<QByteArray> k = cpace::scalarMultVfy(scalar, peerShare);
    wipe();  // one use only, whatever the outcome
    if (!k) return std::nullopt;

    const QByteArray ours = cpace::lvCat({m_share, m_ad});
    const QByteArray theirs = cpace::lvCat({peerShare, peerAd});
    m_transcript = m_role == Role::Initiator ? ours + theirs : theirs + ours;

    QByteArray input = cpace::lvCat({QByteArray(cpace::kDsi) + "_ISK", m_sid, *k}) + m_transcript;
    QByteArray isk(crypto_hash_sha512_BYTES, '\0');
    crypto_hash_sha512(reinterpret_cast<unsigned char*>(isk.data()), reinterpret_cast<const unsigned char*>(input.constData()),
                       quint64(input.size()));
    sodium_memzero(input.data(), size_t(input.size()));
    sodium_memzero(k->data(), size_t(k->size()));
    return isk;
}

void CPace::wipe() {
    sodium_memzero(m_scalar.data(), m_scalar.size());
    m_hasScalar = false;
}

CPace::CPace(CPace&& other) noexcept
    : m_role(other.m_role),
      m_sid(std::move(other.m_sid)),
      m_ad(std::move(other.m_ad)),
      m_share(std::move(other.m_share)),
      m_transcript(std::move(other.m_transcript)),
      m_scalar(other.m_scalar),
      m_hasScalar(other.m_hasScalar) {
    other.wipe();
}

CPace& CPace::operator=(CPace&& other) noexcept {
    if (this != &other) {
        m_role = other.m_role;
        m_sid = std::move(other.m_sid);
        m_ad = std::move(other.m_ad);
        m_share = std::move(other.m_share);
        m_transcript = std::move(other.m_transcript);
        m_scalar = other.m_scalar;
        m_hasScalar = other.m_hasScalar;
        other.wipe();
    }
    return *this;
}

CPace::~CPace() { wipe(); }

}  // namespace zv
