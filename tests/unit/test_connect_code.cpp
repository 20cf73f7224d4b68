// Connect codes: the 40-bit layout against codes worked out by hand, the
// address classes and their borders, and what users type.
#include <gtest/gtest.h>

#include <QHostAddress>
#include <QSet>

#include "protocol/ConnectCode.h"

namespace {

using namespace zv::code;

quint32 ip(const char* text) { return QHostAddress(QString::fromLatin1(text)).toIPv4Address(); }

int classOfCode(const QString& code) {
    return int(QByteArray(kAlphabet).indexOf(code.at(0).toLatin1())) >> 3;  // top 2 of the first 5 bits
}

TEST(ConnectCode, EncodesTheAddressInItsClassAndDecodesItBack) {
    struct Case {
        const char* address;
        quint32 secret;
        const char* code;  // worked out by hand from the bit layout
        int cls;
    };
    const Case cases[] = {
        {"192.168.1.20", 0x12345, "012G28T5", 0},
        {"172.20.3.4", 0x2AAAA, "A0615ANA", 1},
        {"10.1.2.3", 0x1FFF, "G1081QZZ", 2},
        {"8.8.8.8", 0x3F, "R81040HZ", 3},
        {"127.0.0.1", 0, "VZ000020", 3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.address);
        const QString code = makeCode(ip(c.address), c.secret);
        EXPECT_EQ(code, QLatin1String(c.code));
        EXPECT_EQ(classOfCode(code), c.cls);
        EXPECT_TRUE(isValidCode(code));
        ASSERT_TRUE(decodeAddress(code));
        EXPECT_EQ(*decodeAddress(code), ip(c.address));
    }

    // Borders of the classes, and that only the secret bits the class leaves
    // are used: a secret differing above them gives the same code.
    struct Border {
        const char* address;
        int cls;
        int secretBits;
    };
    const Border borders[] = {
        {"192.168.0.0", 0, 22},   {"192.168.255.255", 0, 22}, {"192.167.255.255", 3, 6}, {"192.169.0.0", 3, 6},
        {"172.16.0.0", 1, 18},    {"172.31.255.255", 1, 18},  {"172.15.255.255", 3, 6},  {"172.32.0.0", 3, 6},
        {"10.0.0.0", 2, 14},      {"10.255.255.255", 2, 14},  {"11.0.0.0", 3, 6},        {"0.0.0.0", 3, 6},
        {"255.255.255.255", 3, 6},
    };
    for (const Border& b : borders) {
        SCOPED_TRACE(b.address);
        const quint32 secret = 0x2A5A5A5Au;
        const QString code = makeCode(ip(b.address), secret);
        EXPECT_EQ(classOfCode(code), b.cls);
        EXPECT_EQ(decodeAddress(code).value_or(1), ip(b.address));
        EXPECT_EQ(makeCode(ip(b.address), secret ^ (1u << b.secretBits)), code);
        EXPECT_NE(makeCode(ip(b.address), secret ^ (1u << (b.secretBits - 1))), code);
    }

    // Generated codes carry the address; secrets differ between calls.
    QSet<QString> codes;
    for (int i = 0; i < 50; ++i) {
        const QString code = generateCode(ip("192.168.7.9"));
        EXPECT_TRUE(isValidCode(code));
        EXPECT_EQ(code.size(), kConnectCodeLength);
        EXPECT_EQ(decodeAddress(code).value_or(0), ip("192.168.7.9"));
        codes.insert(code);
    }
    EXPECT_GT(codes.size(), 1);
}

TEST(ConnectCode, NormalizesWhatUsersType) {
    EXPECT_EQ(normalize(QStringLiteral(" 012g-28t5 ")), QStringLiteral("012G28T5"));
    EXPECT_EQ(normalize(QStringLiteral("o0O-iIlL")), QStringLiteral("0001111"));
    EXPECT_EQ(normalize(QStringLiteral("ab\tcd\n")), QStringLiteral("ABCD"));
    EXPECT_EQ(normalize(QStringLiteral("u!é")), QStringLiteral("U!É"));  // kept, so rejected later
    EXPECT_EQ(normalize(QString()), QString());

    // A code read aloud with the look-alike letters still finds the panel.
    const QString code = makeCode(ip("10.1.2.3"), 0x1FFF);  // G1081QZZ
    EXPECT_EQ(decodeAddress(normalize(QStringLiteral("g-lO8I-qzz"))).value_or(0), ip("10.1.2.3"));
    EXPECT_EQ(normalize(QStringLiteral("g1o81qzz")), code);
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
