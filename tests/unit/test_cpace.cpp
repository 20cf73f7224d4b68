// CPace against the published CPACE-RISTR255-SHA512 vectors, its abort
// cases, runs between two fresh instances, and the key confirmation tags.
#include <gtest/gtest.h>

#include <QByteArray>

#include "security/CPace.h"
#include "security/KeyConfirmation.h"

using namespace zv;

namespace {

QByteArray hex(const char* text) { return QByteArray::fromHex(text); }

// draft-irtf-cfrg-cpace, "Test vector for CPace using group ristretto255 and hash SHA-512".
const QByteArray kPrs = "Password";
const QByteArray kCi = hex("0a41696e69746961746f720a42726573706f6e646572");
const QByteArray kSid = hex("7e4b4791d6a8ef019b936c79fb7f2c57");
const QByteArray kYa = hex("383a85dd236978f17f8c8545b50dabc52a39fcdab2cf8bc531ce040ff77ca82d");
const QByteArray kYb = hex("a6206309c0e8e5f579295e35997ac4300ab3fecec3c17f7b604f3e698fa1383c");
const QByteArray kScalarA = hex("da3d23700a9e5699258aef94dc060dfda5ebb61f02a5ea77fad53f4ff0976d08");
const QByteArray kScalarB = hex("d2316b454718c35362d83d69df6320f38578ed5984651435e2949762d900b80d");
const QByteArray kK = hex("fa1d0318864e2cacb26875f1b791c9ae83204fe8359addb53e95a2e98893853f");
const QByteArray kIskIr = hex(
    "e91ccb2c0f5e0d0993a33956e3be59754f3f2b07db57631f5394452ea2e7b435"
    "4674eb1f5686c078462bf83bec72e8743df440108e638f3526d9b90e85be096f");

}  // namespace

TEST(CPace, StringHelpersMatchTheDraft) {
    EXPECT_EQ(cpace::prependLen(""), hex("00"));
    EXPECT_EQ(cpace::prependLen("1234"), hex("0431323334"));
    QByteArray range127;
    for (int i = 0; i < 127; ++i) range127 += char(i);
    EXPECT_EQ(cpace::prependLen(range127), hex("7f") + range127);
    const QByteArray range128 = range127 + char(127);
    EXPECT_EQ(cpace::prependLen(range128), hex("8001") + range128);
    EXPECT_EQ(cpace::prependLen(QByteArray(16384, 'x')).left(4), hex("808001") + 'x');  // three length bytes
    EXPECT_EQ(cpace::lvCat({"1234", "5", "", "6789"}), hex("04313233340135000436373839"));

    const QByteArray generatorString = hex(
        "11435061636552697374726574746f3235350850617373776f726464"
        "00000000000000000000000000000000000000000000000000000000"
        "00000000000000000000000000000000000000000000000000000000"
        "00000000000000000000000000000000000000000000000000000000"
        "00000000000000000000000000000000160a41696e69746961746f72"
        "0a42726573706f6e646572107e4b4791d6a8ef019b936c79fb7f2c57");
    EXPECT_EQ(cpace::generatorString(cpace::kDsi, kPrs, kCi, kSid), generatorString);
    // A password longer than the first block gets no padding at all.
    const QByteArray longPrs(200, 'p');
    EXPECT_EQ(cpace::generatorString(cpace::kDsi, longPrs, kCi, kSid),
              cpace::lvCat({cpace::kDsi, longPrs, "", kCi, kSid}));
}

TEST(CPace, ReproducesTheDraftVectors) {
    EXPECT_EQ(cpace::calculateGenerator(kPrs, kCi, kSid).toHex(),
              QByteArray("5e25411ca1ad7c9debfd0b33ad987a95cefef2d3f15dcc8bd26415a5dfe2e15a"));

    CPace a = CPace::startWithScalarForTesting(CPace::Role::Initiator, kPrs, kCi, kSid, "ADa", kScalarA);
    CPace b = CPace::startWithScalarForTesting(CPace::Role::Responder, kPrs, kCi, kSid, "ADb", kScalarB);
    EXPECT_EQ(a.share().toHex(), kYa.toHex());
    EXPECT_EQ(b.share().toHex(), kYb.toHex());
    EXPECT_EQ(cpace::scalarMultVfy(kScalarA, kYb).value_or("").toHex(), kK.toHex());
    EXPECT_EQ(cpace::scalarMultVfy(kScalarB, kYa).value_or("").toHex(), kK.toHex());

    const auto iskA = a.finish(b.share(), "ADb");
    const auto iskB = b.finish(a.share(), "ADa");
    ASSERT_TRUE(iskA && iskB);
    EXPECT_EQ(iskA->toHex(), kIskIr.toHex());
    EXPECT_EQ(iskB->toHex(), kIskIr.toHex());
    const QByteArray transcript = hex(
        "20383a85dd236978f17f8c8545b50dabc52a39fcdab2cf8bc531ce04"
        "0ff77ca82d0341446120a6206309c0e8e5f579295e35997ac4300ab3"
        "fecec3c17f7b604f3e698fa1383c03414462");
    EXPECT_EQ(a.transcript(), transcript);
    EXPECT_EQ(b.transcript(), transcript);

    // The draft's valid scalar_mult case.
    EXPECT_EQ(cpace::scalarMultVfy(hex("7cd0e075fa7955ba52c02759a6c90dbbfc10e6d40aea8d283e407d88cf538a05"),
                                   hex("2c3c6b8c4f3800e7aef6864025b4ed79bd599117e427c41bd47d93d654b4a51c"))
                  .value_or("")
                  .toHex(),
              QByteArray("7c13645fe790a468f62c39beb7388e541d8405d1ade69d1778c5fe3e7f6b600e"));
}

TEST(CPace, AbortsOnInvalidPeerShares) {
    const QByteArray s = hex("7cd0e075fa7955ba52c02759a6c90dbbfc10e6d40aea8d283e407d88cf538a05");
    const QByteArray invalid = hex("2b3c6b8c4f3800e7aef6864025b4ed79bd599117e427c41bd47d93d654b4a51c");  // Y_i1
    const QByteArray identity(32, '\0');                                                                  // Y_i2
    EXPECT_FALSE(cpace::scalarMultVfy(s, invalid));
    EXPECT_FALSE(cpace::scalarMultVfy(s, identity));

    // The field prime p = 2^255 - 19 is a non-canonical encoding of 0; 0xff..7f likewise.
    const QByteArray nonCanonical = hex("edffffffffffffffffffffffffffffffffffffffffffffffffffffffffffff7f");
    const QByteArray highBit = hex("0000000000000000000000000000000000000000000000000000000000000080");
    const QByteArray negative = hex("0100000000000000000000000000000000000000000000000000000000000000");  // odd: negative
    for (const QByteArray& bad :
         {invalid, identity, nonCanonical, highBit, negative, kYb.left(31), kYb + char(0), QByteArray()}) {
        CPace a = CPace::start(CPace::Role::Initiator, kPrs, kCi, kSid, "ADa");
        EXPECT_FALSE(a.finish(bad, "ADb")) << bad.toHex().constData();
        EXPECT_TRUE(a.transcript().isEmpty());
        // The scalar is gone after a failed attempt: even a good share fails now.
        EXPECT_FALSE(a.finish(kYb, "ADb"));
    }
    // Wrong scalar lengths are refused rather than read past.
    EXPECT_FALSE(cpace::scalarMultVfy(s.left(31), kYa));
    CPace noScalar = CPace::startWithScalarForTesting(CPace::Role::Initiator, kPrs, kCi, kSid, "ADa", "short");
    EXPECT_TRUE(noScalar.share().isEmpty());
    EXPECT_FALSE(noScalar.finish(kYb, "ADb"));
}

TEST(CPace, FreshRunsAgreeOnlyWithTheSameInputs) {
    auto run = [](const QByteArray& prsA, const QByteArray& prsB, const QByteArray& ciB, const QByteArray& sidB,
                  const QByteArray& adAseenByB) {
        CPace a = CPace::start(CPace::Role::Initiator, prsA, kCi, kSid, "hello");
        CPace b = CPace::start(CPace::Role::Responder, prsB, ciB, sidB, "reply");
        const auto iskB = b.finish(a.share(), adAseenByB);
        const auto iskA = a.finish(b.share(), "reply");
        EXPECT_TRUE(iskA && iskB);
        EXPECT_EQ(iskA.value_or("").size(), cpace::kIskBytes);
        return iskA.value_or("a") == iskB.value_or("b");
    };
    EXPECT_TRUE(run("4F7K2Q9M", "4F7K2Q9M", kCi, kSid, "hello"));
    EXPECT_FALSE(run("4F7K2Q9M", "4F7K2Q9N", kCi, kSid, "hello"));      // wrong code
    EXPECT_FALSE(run("4F7K2Q9M", "4F7K2Q9M", "other", kSid, "hello"));  // other channel (keys)
    EXPECT_FALSE(run("4F7K2Q9M", "4F7K2Q9M", kCi, "other sid", "hello"));
    EXPECT_FALSE(run("4F7K2Q9M", "4F7K2Q9M", kCi, kSid, "altered"));  // associated data changed in transit

    // Shares are fresh each time, and a moved-from instance cannot finish.
    CPace first = CPace::start(CPace::Role::Initiator, kPrs, kCi, kSid, {});
    CPace second = CPace::start(CPace::Role::Initiator, kPrs, kCi, kSid, {});
    EXPECT_NE(first.share(), second.share());
    CPace moved = std::move(first);
    EXPECT_FALSE(first.finish(kYb, {}));  // NOLINT(bugprone-use-after-move): checking it was wiped
    EXPECT_TRUE(moved.finish(kYb, {}));
}

TEST(KeyConfirmation, TagsBindKeyRoleAndTranscript) {
    CPace a = CPace::start(CPace::Role::Initiator, kPrs, kCi, kSid, "pc");
    CPace b = CPace::start(CPace::Role::Responder, kPrs, kCi, kSid, "panel");
    const QByteArray iskB = b.finish(a.share(), "pc").value_or("");
    const QByteArray iskA = a.finish(b.share(), "panel").value_or("");
    ASSERT_FALSE(iskA.isEmpty());

    const QByteArray tagB = confirmationTag(iskB, CPace::Role::Responder, b.transcript());
    const QByteArray tagA = confirmationTag(iskA, CPace::Role::Initiator, a.transcript());
    EXPECT_EQ(tagA.size(), kConfirmationTagBytes);
    EXPECT_NE(tagA, tagB);  // a tag cannot be reflected back to its sender
    EXPECT_TRUE(verifyConfirmationTag(iskA, CPace::Role::Responder, a.transcript(), tagB));
    EXPECT_TRUE(verifyConfirmationTag(iskB, CPace::Role::Initiator, b.transcript(), tagA));

    EXPECT_FALSE(verifyConfirmationTag(iskA, CPace::Role::Initiator, a.transcript(), tagB));
    EXPECT_FALSE(verifyConfirmationTag(iskA, CPace::Role::Responder, a.transcript() + "x", tagB));
    QByteArray otherIsk = iskA;
    otherIsk[0] = char(otherIsk[0] ^ 1);
    EXPECT_FALSE(verifyConfirmationTag(otherIsk, CPace::Role::Responder, a.transcript(), tagB));
    QByteArray flipped = tagB;
    flipped[63] = char(flipped[63] ^ 0x80);
    EXPECT_FALSE(verifyConfirmationTag(iskA, CPace::Role::Responder, a.transcript(), flipped));
    EXPECT_FALSE(verifyConfirmationTag(iskA, CPace::Role::Responder, a.transcript(), tagB.left(32)));
    EXPECT_FALSE(verifyConfirmationTag(iskA, CPace::Role::Responder, a.transcript(), {}));
    EXPECT_FALSE(verifyConfirmationTag({}, CPace::Role::Responder, a.transcript(), tagB));
    EXPECT_TRUE(confirmationTag({}, CPace::Role::Initiator, a.transcript()).isEmpty());
}
