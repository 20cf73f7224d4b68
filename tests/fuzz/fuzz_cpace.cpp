// Fuzz target: arbitrary peer shares and associated data into CPace.finish,
// for both roles. A share is accepted exactly when it is the canonical
// encoding of a ristretto255 element other than the identity, and an
// accepted share always gives a full-length ISK.
#include <cstddef>
#include <cstdint>

#include <QByteArray>

#include <sodium.h>

#include "security/CPace.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size));
    // First byte: how long the share is; the rest after it is the AD.
    const int shareLength = size > 0 ? data[0] % 40 : 0;
    const QByteArray share = bytes.mid(1, shareLength);
    const QByteArray ad = bytes.mid(1 + shareLength);

    // Well formed: the canonical encoding of an element other than the
    // identity, i.e. one that multiplying by 1 gives back unchanged. (Debian's
    // libsodium 1.0.18 lets is_valid_point pass some non-canonical encodings,
    // such as one with the top bit set, which CPace must refuse.)
    bool wellFormed = false;
    if (share.size() == zv::cpace::kShareBytes) {
        unsigned char one[crypto_core_ristretto255_SCALARBYTES] = {1};
        unsigned char again[crypto_core_ristretto255_BYTES];
        wellFormed = crypto_scalarmult_ristretto255(again, one, reinterpret_cast<const unsigned char*>(share.constData())) == 0 &&
                     sodium_memcmp(again, share.constData(), sizeof again) == 0;
    }
    for (auto role : {zv::CPace::Role::Initiator, zv::CPace::Role::Responder}) {
        zv::CPace pace = zv::CPace::start(role, "4F7K2Q9M", "channel", "0123456789abcdef", "ours");
        const auto isk = pace.finish(share, ad);
        if (bool(isk) != wellFormed) __builtin_trap();
        if (isk && (isk->size() != zv::cpace::kIskBytes || pace.transcript().isEmpty())) __builtin_trap();
        if (pace.finish(share, ad)) __builtin_trap();  // never twice
    }
    return 0;
}

#ifdef ZV_FUZZ_STANDALONE
#include "StandaloneDriver.h"

int main(int argc, char** argv) {
    std::vector<QByteArray> samples = {
        // A valid share (the draft's Yb) with AD, the identity, a non-canonical encoding.
        QByteArray::fromHex("20a6206309c0e8e5f579295e35997ac4300ab3fecec3c17f7b604f3e698fa1383c414462"),
        QByteArray::fromHex("200000000000000000000000000000000000000000000000000000000000000000"),
        QByteArray::fromHex("20edffffffffffffffffffffffffffffffffffffffffffffffffffffffffffff7f"),
        QByteArray::fromHex("202b3c6b8c4f3800e7aef6864025b4ed79bd599117e427c41bd47d93d654b4a51c"),
    };
    return zv_fuzz::runStandalone("fuzz_cpace", argc, argv, samples, 20000, 2000, 80);
}
#endif
