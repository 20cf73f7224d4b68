// Connect codes: the 40-bit layout against codes worked out by hand, the
// classes and the address candidates they give, and what users type.
#include <gtest/gtest.h>

#include <QHostAddress>
#include <QSet>

#include "protocol/ConnectCode.h"

namespace {

using namespace zv::code;

quint32 ip(const char* text) { return QHostAddress(QString::fromLatin1(text)).toIPv4Address(); }

int classOfCode(const QString& code) {  // the top 2 of the first 5 bits
    return int(QByteArray(kAlphabet).indexOf(code.at(0).toLatin1())) >> 3;
}

TEST(ConnectCode, CarriesTheAddressOnlyWhereTwentySecretBitsRemain) {
    struct Case {
        const char* address;
        quint64 secret;
        const char* code;  // worked out by hand from the bit layout
        int cls;
        int secretBits;
    };
    const Case cases[] = {
        {"192.168.1.20", 0x12345, "012G28T5", 0, 22},
        {"172.20.3.4", 0xAAAAA, "80R4NANA", 1, 20},
        {"10.1.2.3", 0x1FFF, "A0G307ZZ", 1, 20},
        {"127.0.0.1", 0, "80010000", 1, 20},
        {"0.0.0.0", 0x3FFFFFFFFFull, "QZZZZZZZ", 2, 38},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.address);
        const QString code = makeCode(ip(c.address), c.secret);
        EXPECT_EQ(code, QLatin1String(c.code));
        EXPECT_EQ(classOfCode(code), c.cls);
        EXPECT_TRUE(isValidCode(code));
        EXPECT_EQ(secretBits(code), c.secretBits);
        EXPECT_GE(secretBits(code), kMinSecretBits);
        // Only the secret bits the class leaves are used.
        EXPECT_EQ(makeCode(ip(c.address), c.secret ^ (quint64(1) << c.secretBits)), code);
        EXPECT_NE(makeCode(ip(c.address), c.secret ^ (quint64(1) << (c.secretBits - 1))), code);
    }

    // Class 0 carries the whole address.
    EXPECT_EQ(decodeAddress(QStringLiteral("012G28T5")).value_or(0), ip("192.168.1.20"));
    EXPECT_EQ(addressCandidates(QStringLiteral("012G28T5"), {}), QList<quint32>{ip("192.168.1.20")});
    EXPECT_EQ(classOfCode(makeCode(ip("192.168.255.255"), 0)), 0);
    EXPECT_EQ(classOfCode(makeCode(ip("192.169.0.0"), 0)), 1);

    // Class 1 takes the high 14 bits from the PC's own addresses: one
    // candidate per distinct /14, none without addresses.
    const QString campus = makeCode(ip("10.1.2.3"), 0x1FFF);
    EXPECT_FALSE(decodeAddress(campus));
    EXPECT_EQ(addressCandidates(campus, {ip("10.2.200.7"), ip("10.3.0.1"), ip("172.16.9.9"), 0}),
              (QList<quint32>{ip("10.1.2.3"), ip("172.17.2.3")}));
    EXPECT_TRUE(addressCandidates(campus, {}).isEmpty());
    EXPECT_EQ(addressCandidates(makeCode(ip("127.0.0.1"), 77), {ip("127.0.0.1")}), QList<quint32>{ip("127.0.0.1")});

    // Class 2 and the reserved class 3 carry none.
    EXPECT_TRUE(addressCandidates(QStringLiteral("QZZZZZZZ"), {ip("10.0.0.1")}).isEmpty());
    EXPECT_TRUE(addressCandidates(QStringLiteral("ZZZZZZZZ"), {ip("10.0.0.1")}).isEmpty());
    EXPECT_FALSE(decodeAddress(QStringLiteral("ZZZZZZZZ")));

    // Generated codes carry the address; secrets differ between calls.
    QSet<QString> codes;
    for (int i = 0; i < 50; ++i) {
        const QString code = generateCode(ip("192.168.7.9"));
        EXPECT_TRUE(isValidCode(code));
        EXPECT_EQ(code.size(), kConnectCodeLength);
        EXPECT_EQ(decodeAddress(code).value_or(0), ip("192.168.7.9"));
        codes.insert(code);
    }
    EXPECT_GT(codes.size(), 40);
}

TEST(ConnectCode, NormalizesWhatUsersType) {
    EXPECT_EQ(normalize(QStringLiteral(" 012g-28t5 ")), QStringLiteral("012G28T5"));
    EXPECT_EQ(normalize(QStringLiteral("o0O-iIlL")), QStringLiteral("0001111"));
    EXPECT_EQ(normalize(QStringLiteral("ab\tcd\n")), QStringLiteral("ABCD"));
    EXPECT_EQ(normalize(QStringLiteral("u!é")), QStringLiteral("U!É"));  // kept, so rejected later
    EXPECT_EQ(normalize(QString()), QString());

    // A code read aloud with the look-alike letters still finds the panel.
    const QString code = makeCode(ip("192.168.1.20"), 0x12345);  // 012G28T5
    EXPECT_EQ(decodeAddress(normalize(QStringLiteral("Ol2g-28t5"))).value_or(0), ip("192.168.1.20"));
    EXPECT_EQ(normalize(QStringLiteral("o12g28t5")), code);
}

TEST(ConnectCode, RejectsWrongLengthsAndCharacters) {
    EXPECT_FALSE(isValidCode(QStringLiteral("ABC")));
    EXPECT_TRUE(isValidCode(QStringLiteral("ABCD")));
    EXPECT_TRUE(isValidCode(QStringLiteral("ABCDE")));
    EXPECT_TRUE(isValidCode(QStringLiteral("ABCDEFGH")));
    EXPECT_FALSE(isValidCode(QStringLiteral("ABCDEFGHJ")));
    EXPECT_FALSE(isValidCode(QString()));
    for (const char* bad : {"ABCI", "ABCL", "ABCO", "ABCU", "abcd", "AB-D", "AB D", "AB!D", "ABC\xc3\x89"})
        EXPECT_FALSE(isValidCode(QString::fromUtf8(bad))) << bad;

    EXPECT_TRUE(isValidPasscode(QStringLiteral("Z9Z9")));
    EXPECT_FALSE(isValidPasscode(QStringLiteral("Z9Z9Z")));
    EXPECT_FALSE(isValidPasscode(QStringLiteral("Z9U9")));

    EXPECT_FALSE(decodeAddress(QStringLiteral("012G28T")));     // 7: found only by discovery
    EXPECT_FALSE(decodeAddress(QStringLiteral("012G28T55")));   // 9
    EXPECT_FALSE(decodeAddress(QStringLiteral("012G28TU")));    // U is not in the alphabet
    EXPECT_FALSE(decodeAddress(QStringLiteral("012g28t5")));    // not normalized
    EXPECT_FALSE(decodeAddress(QString()));

    QSet<QString> passcodes;
    for (int i = 0; i < 50; ++i) {
        const QString passcode = generatePasscode();
        EXPECT_TRUE(isValidPasscode(passcode)) << passcode.toStdString();
        passcodes.insert(passcode);
    }
    EXPECT_GT(passcodes.size(), 1);
}

}  // namespace
