// The passcode table's rules, on a clock the test moves by hand and with
// passcode candidates the test chooses.
#include <gtest/gtest.h>

#include <QStringList>

#include "passcode/PasscodeRegistry.h"
#include "protocol/ConnectCode.h"

namespace {

using zv::PasscodeRegistry;
using Result = PasscodeRegistry::Result;
using Removal = PasscodeRegistry::Removal;

const QString kKeyA = QStringLiteral("key-of-panel-a");
const QString kKeyB = QStringLiteral("key-of-panel-b");

class PasscodeRegistryTest : public ::testing::Test {
protected:
    qint64 nowMs = 1'000'000;
    qint64 stampMs = 1'700'000'000'000;
    // Candidates handed out in order; random ones once they run out.
    QStringList candidates;
    PasscodeRegistry registry{[this] { return nowMs; },
                              [this] { return candidates.isEmpty() ? zv::code::generatePasscode() : candidates.takeFirst(); }};

    void advanceSeconds(double seconds) { nowMs += qint64(seconds * 1000); }

    PasscodeRegistry::Request request(const QString& key, const QString& passcode = {},
                                      const QString& address = QStringLiteral("192.168.1.20"), int ttl = 60) {
        PasscodeRegistry::Request r;
        r.passcode = passcode;
        r.address = address;
        r.port = 47800;
        r.name = QStringLiteral("Room 1");
        r.ttlSeconds = ttl;
        r.keyId = key;
        r.stampMs = ++stampMs;
        return r;
    }
    PasscodeRegistry::Outcome registerAs(const QString& key, const QString& passcode = {},
                                         const QString& address = QStringLiteral("192.168.1.20"), int ttl = 60) {
        return registry.registerPanel(request(key, passcode, address, ttl));
    }
};

TEST_F(PasscodeRegistryTest, TheRegistryPicksAFreePasscodeAndOnlyItsKeyRenewsIt) {
    candidates = QStringList{QStringLiteral("AB12")};
    auto a = registerAs(kKeyA);
    ASSERT_EQ(a.result, Result::Assigned);
    EXPECT_EQ(a.entry.passcode, "AB12");
    EXPECT_EQ(a.entry.keyId, kKeyA);
    auto entry = registry.resolve("ab12");
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->address, "192.168.1.20");
    EXPECT_EQ(entry->keyId, kKeyA);

    // Taken candidates, malformed ones and the one to avoid are skipped.
    candidates = QStringList{QStringLiteral("AB12"), QStringLiteral("U!U!"), QStringLiteral("CD34")};
    auto b = registerAs(kKeyB, {}, QStringLiteral("192.168.1.21"));
    ASSERT_EQ(b.result, Result::Assigned);
    EXPECT_EQ(b.entry.passcode, "CD34");
    EXPECT_TRUE(candidates.isEmpty());

    // Asking for another key's passcode is no way to take it, nor to learn
    // that it is taken: it is answered with a fresh passcode, the holder's
    // entry untouched.
    candidates = QStringList{QStringLiteral("EF56")};
    auto c = registerAs(kKeyB, QStringLiteral("AB12"), QStringLiteral("192.168.1.22"));
    ASSERT_EQ(c.result, Result::Assigned);
    EXPECT_EQ(c.entry.passcode, "EF56");
    EXPECT_EQ(registry.resolve("AB12")->keyId, kKeyA);
    EXPECT_EQ(registry.resolve("AB12")->address, "192.168.1.20");

    // A panel that lost its passcode (restart, lost answer) and asks with
    // none gets back what its key holds for its address.
    const auto again = registerAs(kKeyB, {}, QStringLiteral("192.168.1.21"));
    ASSERT_EQ(again.result, Result::Renewed);
    EXPECT_EQ(again.entry.passcode, "CD34");
    EXPECT_EQ(registry.heldBy(kKeyB), 2);

    // The holder renews: address, name and ttl follow the latest register,
    // and the expiry counts from it.
    advanceSeconds(50);
    auto renewal = request(kKeyA, QStringLiteral("AB12"), QStringLiteral("192.168.1.30"), 30);
    renewal.name = QStringLiteral("Room 1b");
    const auto renewed = registry.registerPanel(renewal);
    ASSERT_EQ(renewed.result, Result::Renewed);
    EXPECT_EQ(renewed.entry.passcode, "AB12");
    EXPECT_EQ(registry.resolve("AB12")->name, "Room 1b");
    EXPECT_EQ(registry.resolve("AB12")->address, "192.168.1.30");
    advanceSeconds(20);
    EXPECT_TRUE(registry.resolve("AB12"));
    advanceSeconds(10);
    EXPECT_FALSE(registry.resolve("AB12"));

}

TEST_F(PasscodeRegistryTest, RotationReplayAndLimits) {
    candidates = QStringList{QStringLiteral("GH78"), QStringLiteral("GH78"), QStringLiteral("JK90")};
    ASSERT_EQ(registerAs(kKeyA).entry.passcode, "GH78");

    // Rotating releases the held passcode for a new one, never the same.
    auto rotate = request(kKeyA, QStringLiteral("GH78"));
    rotate.rotate = true;
    const auto rotated = registry.registerPanel(rotate);
    ASSERT_EQ(rotated.result, Result::Assigned);
    EXPECT_EQ(rotated.entry.passcode, "JK90");
    ASSERT_TRUE(rotated.released);
    EXPECT_EQ(rotated.released->passcode, "GH78");
    EXPECT_FALSE(registry.resolve("GH78"));
    EXPECT_EQ(registry.heldBy(kKeyA), 1);

    // A request no newer than the holder's last one is a replay.
    auto replay = request(kKeyA, QStringLiteral("JK90"));
    replay.stampMs = rotate.stampMs;
    replay.rotate = true;
    EXPECT_EQ(registry.registerPanel(replay).result, Result::Replayed);
    EXPECT_EQ(registry.remove("JK90", kKeyA, rotate.stampMs), Removal::Replayed);
    EXPECT_TRUE(registry.resolve("JK90"));

    // A rotation the registry cannot serve keeps the old passcode.
    auto noBudget = request(kKeyA, QStringLiteral("JK90"));
    noBudget.rotate = true;
    noBudget.mayAssign = false;
    EXPECT_EQ(registry.registerPanel(noBudget).result, Result::Full);
    EXPECT_EQ(registry.resolve("JK90")->keyId, kKeyA);
    // Renewals need no budget.
    auto renewOnly = request(kKeyA, QStringLiteral("JK90"));
    renewOnly.mayAssign = false;
    EXPECT_EQ(registry.registerPanel(renewOnly).result, Result::Renewed);

    // One key holds at most kMaxPerKey passcodes (at different addresses).
    for (int i = registry.heldBy(kKeyA); i < PasscodeRegistry::kMaxPerKey; ++i) {
        ASSERT_EQ(registerAs(kKeyA, {}, QStringLiteral("10.0.0.%1").arg(i + 1)).result, Result::Assigned) << i;
    }
    EXPECT_EQ(registerAs(kKeyA, {}, QStringLiteral("10.0.1.1")).result, Result::Full);
    EXPECT_EQ(registerAs(kKeyB, {}, QStringLiteral("10.0.1.1")).result, Result::Assigned);

    // When no free candidate comes up, nothing is assigned.
    PasscodeRegistry stuck{[this] { return nowMs; }, [] { return QStringLiteral("ZZZZ"); }};
    auto first = request(kKeyA);
    ASSERT_EQ(stuck.registerPanel(first).result, Result::Assigned);
    EXPECT_EQ(stuck.registerPanel(request(kKeyB)).result, Result::Full);
}

TEST_F(PasscodeRegistryTest, ExpiryFreesThePasscodeAndIsReportedOnce) {
    candidates = QStringList{QStringLiteral("AAAA"), QStringLiteral("BBBB"), QStringLiteral("CCCC")};
    ASSERT_EQ(registerAs(kKeyA, {}, QStringLiteral("10.1.1.1"), 10).result, Result::Assigned);
    ASSERT_EQ(registerAs(kKeyA, {}, QStringLiteral("10.1.1.2"), 20).result, Result::Assigned);
    ASSERT_EQ(registerAs(kKeyA, {}, QStringLiteral("10.1.1.3"), 600).result, Result::Assigned);
    ASSERT_TRUE(registry.nextExpiryMs());
    EXPECT_EQ(*registry.nextExpiryMs(), nowMs + 10'000);

    advanceSeconds(9.999);
    EXPECT_TRUE(registry.expire().isEmpty());
    EXPECT_TRUE(registry.resolve("AAAA"));

    advanceSeconds(15);
    // Exactly at or after the expiry the entry is gone, even before expire() ran.
    EXPECT_FALSE(registry.resolve("AAAA"));
    EXPECT_FALSE(registry.resolve("BBBB"));
    // Its holder cannot renew it any more, and the passcode may go to another key.
    EXPECT_EQ(registry.heldBy(kKeyA), 1);
    candidates = QStringList{QStringLiteral("AAAA")};
    const auto other = registerAs(kKeyB, {}, QStringLiteral("10.9.9.9"));
    ASSERT_EQ(other.result, Result::Assigned);
    EXPECT_EQ(other.entry.passcode, "AAAA");

    // Both expiries are reported, also the one the new holder replaced.
    const auto gone = registry.expire();
    ASSERT_EQ(gone.size(), 2);
    EXPECT_EQ(gone[0].passcode, "AAAA");
    EXPECT_EQ(gone[0].address, "10.1.1.1");
    EXPECT_EQ(gone[1].passcode, "BBBB");
    EXPECT_TRUE(registry.expire().isEmpty());
    EXPECT_EQ(registry.size(), 2);
    EXPECT_EQ(registry.resolve("AAAA")->keyId, kKeyB);
    EXPECT_EQ(registry.remove("AAAA", kKeyA, ++stampMs), Removal::NotHeld);
    EXPECT_TRUE(registry.resolve("AAAA"));
}

TEST_F(PasscodeRegistryTest, OnlyTheHoldingKeyUnregisters) {
    candidates = QStringList{QStringLiteral("ZZ99")};
    ASSERT_EQ(registerAs(kKeyA).result, Result::Assigned);
    EXPECT_EQ(registry.remove("ZZ99", kKeyB, ++stampMs), Removal::NotHeld);
    EXPECT_EQ(registry.remove("ZZ98", kKeyA, ++stampMs), Removal::NotHeld);
    EXPECT_EQ(registry.remove("bad!", kKeyA, ++stampMs), Removal::NotHeld);
    EXPECT_EQ(registry.remove("ZZ99", QString(), ++stampMs), Removal::NotHeld);
    EXPECT_TRUE(registry.resolve("ZZ99"));

    PasscodeRegistry::Entry removed;
    EXPECT_EQ(registry.remove("zz99", kKeyA, ++stampMs, &removed), Removal::Removed);
    EXPECT_EQ(removed.passcode, "ZZ99");
    EXPECT_FALSE(registry.resolve("ZZ99"));
    EXPECT_EQ(registry.remove("ZZ99", kKeyA, ++stampMs), Removal::NotHeld);
    EXPECT_EQ(registry.size(), 0);
    EXPECT_EQ(registry.heldBy(kKeyA), 0);
    EXPECT_FALSE(registry.nextExpiryMs());
}

TEST_F(PasscodeRegistryTest, MalformedRequestsAreRefusedAndChangeNothing) {
    candidates = QStringList{QStringLiteral("G00D")};
    ASSERT_EQ(registerAs(kKeyA).result, Result::Assigned);

    for (const char* passcode : {"ABC", "ABCDE", "AB U", "ABU1", "AB-!", "\xc3\x84" "BC1"}) {
        EXPECT_EQ(registerAs(kKeyB, QString::fromUtf8(passcode)).result, Result::Invalid) << passcode;
        EXPECT_FALSE(registry.resolve(QString::fromUtf8(passcode))) << passcode;
    }
    for (const char* address : {"", "localhost", "192.168.0", "192.168.0.256", "1.2.3.4 ",
                                "fe80::1%eth0", "::ffff:1.2.3.4.5"}) {
        EXPECT_EQ(registerAs(kKeyB, {}, QString::fromLatin1(address)).result, Result::Invalid) << address;
    }
    auto bad = [&](auto change) {
        auto r = request(kKeyB);
        change(r);
        return registry.registerPanel(r).result;
    };
    EXPECT_EQ(bad([](auto& r) { r.port = 0; }), Result::Invalid);
    EXPECT_EQ(bad([](auto& r) { r.ttlSeconds = 9; }), Result::Invalid);
    EXPECT_EQ(bad([](auto& r) { r.ttlSeconds = 601; }), Result::Invalid);
    EXPECT_EQ(bad([](auto& r) { r.ttlSeconds = -60; }), Result::Invalid);
    EXPECT_EQ(bad([](auto& r) { r.name = QString(PasscodeRegistry::kMaxNameLength + 1, 'n'); }), Result::Invalid);
    EXPECT_EQ(bad([](auto& r) { r.keyId.clear(); }), Result::Invalid);
    // An invalid request from the holder does not touch its entry either.
    EXPECT_EQ(registerAs(kKeyA, QStringLiteral("G00D"), QStringLiteral("192.168.1.20"), 5).result, Result::Invalid);
    EXPECT_EQ(registry.resolve("GOOD")->ttlSeconds, 60);
    EXPECT_EQ(registry.size(), 1);

    // The limits themselves and IPv6 are accepted.
    EXPECT_EQ(registerAs(kKeyB, {}, QStringLiteral("fd00::2"), 10).result, Result::Assigned);
    EXPECT_EQ(bad([](auto& r) {
                  r.address = QStringLiteral("192.168.0.2");
                  r.port = 65535;
                  r.ttlSeconds = 600;
                  r.name = QString(PasscodeRegistry::kMaxNameLength, 'n');
              }),
              Result::Assigned);
}

}  // namespace
