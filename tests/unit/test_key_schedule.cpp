// HKDF against RFC 5869, the exporter-based derivations (labels, contexts,
// lengths) with a recording exporter, and key ids.
#include <gtest/gtest.h>

#include <QByteArray>
#include <QCryptographicHash>
#include <QList>

#include "security/CastKeys.h"
#include "security/KeyId.h"
#include "security/KeySchedule.h"

using namespace zv;

namespace {

QByteArray hex(const char* text) { return QByteArray::fromHex(text); }

QByteArray range(int from, int to) {
    QByteArray out;
    for (int i = from; i < to; ++i) out += char(i);
    return out;
}

// Answers like an exporter: a hash of what was asked, so different
// questions give different answers, and records every question.
struct RecordingExporter {
    struct Call {
        QByteArray label;
        QByteArray context;
        int length;
    };
    QList<Call> calls;
    int shortBy = 0;  // > 0: answer with fewer bytes than asked

    keys::Exporter function() {
        return [this](const QByteArray& label, const QByteArray& context, int length) {
            calls.append({label, context, length});
            QByteArray out;
            for (int block = 0; out.size() < length; ++block)
                out += QCryptographicHash::hash(label + '|' + context + char(block), QCryptographicHash::Sha256);
            return out.left(length - shortBy);
        };
    }
};

}  // namespace

TEST(Hkdf, MatchesRfc5869) {
    // Test case 1.
    const QByteArray ikm(22, '\x0b');
    EXPECT_EQ(keys::hkdfExtract(range(0, 13), ikm).toHex(),
              QByteArray("077709362c2e32df0ddc3f0dc47bba6390b6c73bb50f9c3122ec844ad7c2b3e5"));
    EXPECT_EQ(keys::hkdfSha256(ikm, range(0, 13), range(0xf0, 0xfa), 42).toHex(),
              QByteArray("3cb25f25faacd57a90434f64d0362f2a2d2d0a90cf1a5a4c5db02d56ecc4c5bf34007208d5b887185865"));
    // Test case 2: long inputs, output over several blocks.
    EXPECT_EQ(keys::hkdfSha256(range(0, 80), range(0x60, 0xb0), range(0xb0, 0x100), 82).toHex(),
              QByteArray("b11e398dc80327a1c8e7f78c596a49344f012eda2d4efad8a050cc4c19afa97c59045a99cac7827271cb41c65e590e0"
                         "9da3275600c2f09b8367793a9aca3db71cc30c58179ec3e87c14c01d5c1f3434f1d87"));
    // Test case 3: no salt, no info.
    EXPECT_EQ(keys::hkdfExtract({}, ikm).toHex(),
              QByteArray("19ef24a32c717b167f33a91d6f648bdf96596776afdb6377ac434c1c293ccb04"));
    EXPECT_EQ(keys::hkdfSha256(ikm, {}, {}, 42).toHex(),
              QByteArray("8da4e775a563c18f715f802a063c5a31b8a11f5c5ee1879ec3454e5f3c738d2d9d201395faa4b61a96c8"));

    // Limits: 255 blocks at most, nothing for no length or no key.
    const QByteArray prk = keys::hkdfExtract({}, ikm);
    EXPECT_EQ(keys::hkdfExpand(prk, {}, 255 * 32).size(), 255 * 32);
    EXPECT_TRUE(keys::hkdfExpand(prk, {}, 255 * 32 + 1).isEmpty());
    EXPECT_TRUE(keys::hkdfExpand(prk, {}, 0).isEmpty());
    EXPECT_TRUE(keys::hkdfExpand({}, {}, 32).isEmpty());
    // A shorter output is a prefix of a longer one.
    EXPECT_EQ(keys::hkdfExpand(prk, "i", 20), keys::hkdfExpand(prk, "i", 70).left(20));
}

TEST(KeySchedule, ExporterLabelsContextsAndLengths) {
    RecordingExporter exporter;
    const keys::Exporter fn = exporter.function();

    EXPECT_EQ(keys::cpaceSid(fn).size(), 16);
    EXPECT_EQ(keys::sessionSecret(fn).size(), 32);
    const auto toPanel = keys::mediaKey(fn, 0x01020304u, keys::MediaDirection::PcToPanel);
    const auto toPc = keys::mediaKey(fn, 0x01020304u, keys::MediaDirection::PanelToPc);
    const auto otherCast = keys::mediaKey(fn, 7, keys::MediaDirection::PcToPanel);
    const QByteArray srt = keys::srtPassphrase(fn, 0xA0B0C0D0u);
    ASSERT_EQ(exporter.calls.size(), 6);

    EXPECT_EQ(exporter.calls[0].label, "EXPORTER-zelvanor-cpace-sid");
    EXPECT_TRUE(exporter.calls[0].context.isEmpty());
    EXPECT_EQ(exporter.calls[1].label, "EXPORTER-zelvanor-session");
    EXPECT_TRUE(exporter.calls[1].context.isEmpty());
    EXPECT_EQ(exporter.calls[2].label, "EXPORTER-zelvanor-media");
    EXPECT_EQ(exporter.calls[2].context, hex("0102030401"));
    EXPECT_EQ(exporter.calls[2].length, 44);
    EXPECT_EQ(exporter.calls[3].context, hex("0102030402"));
    EXPECT_EQ(exporter.calls[4].context, hex("0000000701"));
    EXPECT_EQ(exporter.calls[5].label, "EXPORTER-zelvanor-srt");
    EXPECT_EQ(exporter.calls[5].context, hex("a0b0c0d0"));
    EXPECT_EQ(exporter.calls[5].length, 24);

    ASSERT_TRUE(toPanel && toPc && otherCast);
    EXPECT_EQ(toPanel->key.size(), 32);
    EXPECT_EQ(toPanel->salt.size(), 12);
    EXPECT_NE(toPanel->key, toPc->key);
    EXPECT_NE(toPanel->key, otherCast->key);
    EXPECT_NE(toPanel->salt, toPc->salt);

    EXPECT_EQ(srt.size(), 32);
    EXPECT_EQ(QByteArray::fromBase64(srt).size(), 24);

    // An exporter that cannot answer (no session) gives nothing, never a short key.
    exporter.shortBy = 1;
    EXPECT_TRUE(keys::cpaceSid(fn).isEmpty());
    EXPECT_TRUE(keys::sessionSecret(fn).isEmpty());
    EXPECT_FALSE(keys::mediaKey(fn, 1, keys::MediaDirection::PcToPanel));
    EXPECT_TRUE(keys::srtPassphrase(fn, 1).isEmpty());
    EXPECT_TRUE(keys::sessionSecret(keys::Exporter()).isEmpty());
}

TEST(KeySchedule, CastKeysPairUpAcrossTheTwoSides) {
    RecordingExporter exporter;
    const keys::Exporter fn = exporter.function();
    const auto pc = keys::castKeys(fn, 41, keys::CastSide::Pc);
    const auto panel = keys::castKeys(fn, 41, keys::CastSide::Panel);
    const auto next = keys::castKeys(fn, 42, keys::CastSide::Pc);
    ASSERT_TRUE(pc && panel && next);
    EXPECT_EQ(pc->sendKey.size(), 44u);
    EXPECT_EQ(pc->sendKey, panel->receiveKey);
    EXPECT_EQ(pc->receiveKey, panel->sendKey);
    EXPECT_NE(pc->sendKey, pc->receiveKey);
    EXPECT_EQ(pc->srtPassphrase, panel->srtPassphrase);
    EXPECT_EQ(pc->srtPassphrase.size(), 32u);
    // A restarted cast gets a new id and so keys of its own.
    EXPECT_NE(next->sendKey, pc->sendKey);
    EXPECT_NE(next->receiveKey, pc->receiveKey);
    EXPECT_NE(next->srtPassphrase, pc->srtPassphrase);
    // The PC->panel key is the exporter's 44 bytes for (cast id, direction 1).
    const auto direct = keys::mediaKey(fn, 41, keys::MediaDirection::PcToPanel);
    ASSERT_TRUE(direct);
    const QByteArray joined = direct->key + direct->salt;
    EXPECT_EQ(pc->sendKey, std::vector<uint8_t>(joined.begin(), joined.end()));

    exporter.shortBy = 1;
    EXPECT_FALSE(keys::castKeys(fn, 41, keys::CastSide::Pc));
    EXPECT_FALSE(keys::castKeys(keys::Exporter(), 41, keys::CastSide::Panel));
}

TEST(KeySchedule, CpaceInputs) {
    const QByteArray panelHash(32, 'P');
    const QByteArray pcHash(32, 'C');
    EXPECT_EQ(keys::cpaceChannelId(panelHash, pcHash), QByteArray("\x05panel\x20") + panelHash + "\x02pc\x20" + pcHash);
    EXPECT_NE(keys::cpaceChannelId(panelHash, pcHash), keys::cpaceChannelId(pcHash, panelHash));

    EXPECT_EQ(keys::cpacePassword(QStringLiteral("4f7k-2q9m")), "4F7K2Q9M");
    EXPECT_EQ(keys::cpacePassword(QStringLiteral(" iLo0 ")), "1100");
    EXPECT_EQ(keys::cpacePassword(QStringLiteral("ab cd")), keys::cpacePassword(QStringLiteral("A-B-C-D")));
}

TEST(KeyId, Base64UrlOfTheKeyHash) {
    const QByteArray spki = hex("3059301306072a8648ce3d020106082a8648ce3d03010703420004") + QByteArray(64, '\x11');
    const QByteArray hash = QCryptographicHash::hash(spki, QCryptographicHash::Sha256);
    EXPECT_EQ(keyHashOfPublicKey(spki), hash);
    const QString id = keyIdOfPublicKey(spki);
    EXPECT_EQ(id.size(), kKeyIdChars);
    EXPECT_EQ(id, QString::fromLatin1(hash.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals)));
    EXPECT_FALSE(id.contains(QLatin1Char('+')) || id.contains(QLatin1Char('/')) || id.contains(QLatin1Char('=')));
    EXPECT_EQ(keyHashOfKeyId(id), hash);
    EXPECT_EQ(shortKeyId(id), id.left(8));

    // All 0xff: the id ends in "8" (111100), whose last 2 bits are unused;
    // "9" (111101) spells the same bytes and is not accepted.
    const QString allOnes = keyIdOfHash(QByteArray(32, '\xff'));
    EXPECT_TRUE(allOnes.endsWith(QStringLiteral("__8")));
    EXPECT_EQ(keyHashOfKeyId(allOnes), QByteArray(32, '\xff'));
    EXPECT_TRUE(keyHashOfKeyId(allOnes.left(42) + QLatin1Char('9')).isEmpty());
    EXPECT_TRUE(keyHashOfKeyId(id.left(42)).isEmpty());
    EXPECT_TRUE(keyHashOfKeyId(id.left(42) + QLatin1Char('*')).isEmpty());
    EXPECT_TRUE(keyIdOfHash(hash.left(31)).isEmpty());
    EXPECT_TRUE(keyIdOfPublicKey({}).isEmpty());
}
