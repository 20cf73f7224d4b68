#include "security/KeyConfirmation.h"

#include <sodium.h>

#include "security/KeySchedule.h"
#include "security/SodiumInit.h"

namespace zv {

namespace {

constexpr char kConfirmKeyInfo[] = "zv-confirm-key";
constexpr int kConfirmKeyBytes = 64;

QByteArray labelFor(CPace::Role role) {
    return role == CPace::Role::Initiator ? QByteArray("zv-confirm-pc") : QByteArray("zv-confirm-panel");
}

}  // namespace

QByteArray confirmationTag(const QByteArray& isk, CPace::Role role, const QByteArray& transcript) {
    if (isk.isEmpty() || !ensureSodium()) return {};
    QByteArray key = keys::hkdfSha256(isk, {}, QByteArray(kConfirmKeyInfo), kConfirmKeyBytes);
    if (key.isEmpty()) return {};
    // The label and transcript length-prefixed, so no two inputs run together.
    const QByteArray message = cpace::lvCat({labelFor(role), transcript});
    crypto_auth_hmacsha512_state state;
    QByteArray tag(crypto_auth_hmacsha512_BYTES, '\0');
    crypto_auth_hmacsha512_init(&state, reinterpret_cast<const unsigned char*>(key.constData()), size_t(key.size()));
    crypto_auth_hmacsha512_update(&state, reinterpret_cast<const unsigned char*>(message.constData()),
                                  quint64(message.size()));
    crypto_auth_hmacsha512_final(&state, reinterpret_cast<unsigned char*>(tag.data()));
    sodium_memzero(&state, sizeof state);
    sodium_memzero(key.data(), size_t(key.size()));
    return tag;
}

bool verifyConfirmationTag(const QByteArray& isk, CPace::Role role, const QByteArray& transcript,
                           const QByteArray& tag) {
    const QByteArray expected = confirmationTag(isk, role, transcript);
    if (expected.isEmpty() || tag.size() != expected.size()) return false;
    return sodium_memcmp(expected.constData(), tag.constData(), size_t(expected.size())) == 0;
}

}  // namespace zv
