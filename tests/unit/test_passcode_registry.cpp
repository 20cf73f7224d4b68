// The passcode table's rules, on a clock the test moves by hand.
#include <gtest/gtest.h>

#include "passcode/PasscodeRegistry.h"

namespace {

using zv::PasscodeRegistry;
using Result = PasscodeRegistry::Result;

class PasscodeRegistryTest : public ::testing::Test {
protected:
    qint64 nowMs = 1'000'000;
    PasscodeRegistry registry{[this] { return nowMs; }};

    void advanceSeconds(double seconds) { nowMs += qint64(seconds * 1000); }
};

TEST_F(PasscodeRegistryTest, RegisterTakenAndRenew) {
    EXPECT_EQ(registry.add("AB12", "192.168.1.20", 47800, "Room 1", 60), Result::Registered);
    auto entry = registry.resolve("AB12");
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->address, "192.168.1.20");
    EXPECT_EQ(entry->port, 47800);
    EXPECT_EQ(entry->name, "Room 1");

    // Another panel cannot take it, and the holder's entry is left intact.
    EXPECT_EQ(registry.add("AB12", "192.168.1.21", 47801, "Intruder", 60), Result::Taken);
    EXPECT_EQ(registry.resolve("AB12")->address, "192.168.1.20");
    EXPECT_EQ(registry.resolve("AB12")->name, "Room 1");

    // The holder renews: its port, name and ttl follow the latest register.
    advanceSeconds(50);
    EXPECT_EQ(registry.add("AB12", "192.168.1.20", 47900, "Room 1b", 30), Result::Renewed);
    entry = registry.resolve("AB12");
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->port, 47900);
    EXPECT_EQ(entry->name, "Room 1b");
    EXPECT_EQ(registry.size(), 1);

    // The renewal counted from its own time: past the first ttl, within the second.
    advanceSeconds(20);
    EXPECT_TRUE(registry.resolve("AB12"));
    advanceSeconds(10);
    EXPECT_FALSE(registry.resolve("AB12"));

    // One address may hold several passcodes.
    EXPECT_EQ(registry.add("CD34", "192.168.1.20", 47800, "Room 1", 60), Result::Registered);
    EXPECT_EQ(registry.add("CD35", "192.168.1.20", 47800, "Room 1", 60), Result::Registered);
}

TEST_F(PasscodeRegistryTest, PasscodesAreReadAsTheUserMayTypeThem) {
    EXPECT_EQ(registry.add("ab1o", "10.0.0.5", 47800, "Lab", 60), Result::Registered);
    // Lower case, and O read as 0 / I and L read as 1, name the same passcode.
    auto entry = registry.resolve("AB10");
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->passcode, "AB10");
    EXPECT_TRUE(registry.resolve("abio"));
    EXPECT_TRUE(registry.resolve("ABLO"));
    EXPECT_EQ(registry.add("AB10", "10.0.0.6", 47800, "Other", 60), Result::Taken);
    EXPECT_EQ(registry.add("ABI0", "10.0.0.5", 47800, "Lab", 60), Result::Renewed);
}

TEST_F(PasscodeRegistryTest, ExpiryFreesThePasscodeAndIsReportedOnce) {
    ASSERT_EQ(registry.add("AAAA", "10.1.1.1", 47800, "A", 10), Result::Registered);
    ASSERT_EQ(registry.add("BBBB", "10.1.1.2", 47800, "B", 20), Result::Registered);
    ASSERT_EQ(registry.add("CCCC", "10.1.1.3", 47800, "C", 600), Result::Registered);
    ASSERT_TRUE(registry.nextExpiryMs());
    EXPECT_EQ(*registry.nextExpiryMs(), nowMs + 10'000);

    advanceSeconds(9.999);
    EXPECT_TRUE(registry.expire().isEmpty());
    EXPECT_TRUE(registry.resolve("AAAA"));

    advanceSeconds(15);
    // Exactly at or after the expiry the entry is gone, even before expire() ran.
    EXPECT_FALSE(registry.resolve("AAAA"));
    EXPECT_FALSE(registry.resolve("BBBB"));
    // Another address may take an expired passcode at once.
    EXPECT_EQ(registry.add("AAAA", "10.9.9.9", 47800, "New", 60), Result::Registered);

    // Both expiries are reported, also the one the new holder replaced.
    const auto gone = registry.expire();
    ASSERT_EQ(gone.size(), 2);
    EXPECT_EQ(gone[0].passcode, "AAAA");
    EXPECT_EQ(gone[0].address, "10.1.1.1");
    EXPECT_EQ(gone[1].passcode, "BBBB");
    EXPECT_EQ(gone[1].address, "10.1.1.2");
    EXPECT_TRUE(registry.expire().isEmpty());
    EXPECT_EQ(registry.size(), 2);
    EXPECT_EQ(registry.resolve("AAAA")->address, "10.9.9.9");
    EXPECT_TRUE(registry.resolve("CCCC"));

    // A holder that comes back after expiry registers anew rather than
    // renewing; its lapsed entry and the second AAAA are reported.
    advanceSeconds(600);
    EXPECT_EQ(registry.add("CCCC", "10.1.1.3", 47800, "C", 60), Result::Registered);
    EXPECT_EQ(registry.expire().size(), 2);
    // An owner releasing an entry that had already run out reports its expiry.
    advanceSeconds(60);
    EXPECT_FALSE(registry.remove("CCCC", "10.1.1.3"));
    const auto released = registry.expire();
    ASSERT_EQ(released.size(), 1);
    EXPECT_EQ(released[0].passcode, "CCCC");
    EXPECT_EQ(registry.size(), 0);
}

TEST_F(PasscodeRegistryTest, OnlyTheHoldingAddressUnregisters) {
    ASSERT_EQ(registry.add("ZZ99", "172.16.4.4", 47800, "Hall", 60), Result::Registered);
    EXPECT_FALSE(registry.remove("ZZ99", "172.16.4.5"));
    EXPECT_FALSE(registry.remove("ZZ98", "172.16.4.4"));
    EXPECT_FALSE(registry.remove("bad!", "172.16.4.4"));
    EXPECT_TRUE(registry.resolve("ZZ99"));

    EXPECT_TRUE(registry.remove("zz99", "172.16.4.4"));
    EXPECT_FALSE(registry.resolve("ZZ99"));
    EXPECT_FALSE(registry.remove("ZZ99", "172.16.4.4"));
    EXPECT_EQ(registry.size(), 0);
    EXPECT_FALSE(registry.nextExpiryMs());
    EXPECT_EQ(registry.add("ZZ99", "172.16.4.5", 47800, "Other", 60), Result::Registered);
}

TEST_F(PasscodeRegistryTest, MalformedRequestsAreRefusedAndChangeNothing) {
    ASSERT_EQ(registry.add("GOOD", "192.168.0.1", 47800, "Held", 60), Result::Registered);

    for (const char* passcode : {"", "ABC", "ABCDE", "AB U", "ABU1", "AB-1", "\xc3\x84" "BC1"}) {
        EXPECT_EQ(registry.add(QString::fromUtf8(passcode), "192.168.0.2", 47800, "x", 60),
                  Result::Invalid)
            << passcode;
        EXPECT_FALSE(registry.resolve(QString::fromUtf8(passcode))) << passcode;
    }
    for (const char* address : {"", "localhost", "192.168.0", "192.168.0.256", "1.2.3.4 ",
                                "fe80::1%eth0", "::ffff:1.2.3.4.5"}) {
        EXPECT_EQ(registry.add("ABCD", address, 47800, "x", 60), Result::Invalid) << address;
    }
    EXPECT_EQ(registry.add("ABCD", "192.168.0.2", 0, "x", 60), Result::Invalid);
    EXPECT_EQ(registry.add("ABCD", "192.168.0.2", 47800, "x", 9), Result::Invalid);
    EXPECT_EQ(registry.add("ABCD", "192.168.0.2", 47800, "x", 601), Result::Invalid);
    EXPECT_EQ(registry.add("ABCD", "192.168.0.2", 47800, "x", -60), Result::Invalid);
    EXPECT_EQ(registry.add("ABCD", "192.168.0.2", 47800,
                           QString(PasscodeRegistry::kMaxNameLength + 1, 'n'), 60),
              Result::Invalid);
    // An invalid request from the holder does not touch its entry either.
    EXPECT_EQ(registry.add("GOOD", "192.168.0.1", 47800, "x", 5), Result::Invalid);
    EXPECT_EQ(registry.resolve("GOOD")->name, "Held");
    EXPECT_EQ(registry.size(), 1);

    // The limits themselves and IPv6 are accepted.
    EXPECT_EQ(registry.add("ABCD", "fd00::2", 1, "", 10), Result::Registered);
    EXPECT_EQ(registry.add("ABCE", "192.168.0.2", 65535,
                           QString(PasscodeRegistry::kMaxNameLength, 'n'), 600),
              Result::Registered);
}

}  // namespace
