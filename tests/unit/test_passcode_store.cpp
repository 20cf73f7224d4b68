// The passcode store's contract, run against both backends: in memory, and
// a real redis-server on a loopback port (tests/support/RedisServer.h).
// Time comes from a clock the test moves; Redis-only cases cover what
// several instances share and what happens while Redis is away.
#include <gtest/gtest.h>

#include <hiredis/hiredis.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>

#include <deque>
#include <memory>
#include <optional>

#include "RedisServer.h"
#include "protocol/ConnectCode.h"
#include "passcode/MemoryPasscodeStore.h"
#include "passcode/RedisConnection.h"
#include "passcode/RedisPasscodeStore.h"

namespace {

using zv::PasscodeRegistry;
using zv::PasscodeStore;
using Result = PasscodeRegistry::Result;
using Lookup = PasscodeStore::Lookup;

constexpr int kWaitMs = 10000;
const QString kKeyA = QStringLiteral("A").repeated(43);
const QString kKeyB = QStringLiteral("B").repeated(43);

void ensureApp() {
    static int argc = 1;
    static char name[] = "test_passcode_store";
    static char* argv[] = {name, nullptr};
    static QCoreApplication* app = QCoreApplication::instance() ? nullptr : new QCoreApplication(argc, argv);
    (void)app;
}

// Calls an asynchronous store function and waits for its one answer.
template <typename Answer, typename Call>
Answer await(Call call) {
    std::optional<Answer> got;
    int answers = 0;
    call([&](const Answer& answer) {
        got = answer;
        ++answers;
    });
    EXPECT_TRUE(QTest::qWaitFor([&] { return got.has_value(); }, kWaitMs));
    EXPECT_EQ(answers, 1);
    return got.value_or(Answer{});
}

zvtest::RedisServer& sharedRedis() {
    static zvtest::RedisServer server;
    static const bool started = server.start();
    EXPECT_TRUE(started) << "redis-server did not start";
    return server;
}

zv::RedisPasscodeStore::Target targetOf(const zvtest::RedisServer& server) {
    return *zv::RedisPasscodeStore::parseUrl(QString::fromStdString(server.url(3)));
}

enum class Backend { Memory, Redis };

class PasscodeStoreContract : public ::testing::TestWithParam<Backend> {
protected:
    void SetUp() override {
        ensureApp();
        m_store = make();
        if (GetParam() == Backend::Redis) flush();
    }

    std::unique_ptr<PasscodeStore> make() {
        auto clock = [this] { return nowMs; };
        auto picker = [this] {
            if (picks.empty()) return zv::code::generatePasscode();
            const QString next = picks.front();
            picks.pop_front();
            return next;
        };
        if (GetParam() == Backend::Memory) return std::make_unique<zv::MemoryPasscodeStore>(clock, picker);
        auto store = std::make_unique<zv::RedisPasscodeStore>(targetOf(sharedRedis()), clock, picker);
        store->start();
        EXPECT_TRUE(QTest::qWaitFor([&] { return store->isAvailable(); }, kWaitMs));
        return store;
    }

    void flush() {
        zv::RedisConnection connection(QStringLiteral("127.0.0.1"), quint16(sharedRedis().port()), 3);
        connection.start();
        bool done = false;
        connection.command({"FLUSHDB"}, [&](const redisReply* reply) { done = reply != nullptr; });
        ASSERT_TRUE(QTest::qWaitFor([&] { return done; }, kWaitMs));
    }

    PasscodeStore::RegisterAnswer registerAs(const QString& key, const QString& passcode = {}, bool rotate = false,
                                             const QString& source = QStringLiteral("10.0.0.9"), int ttl = 30,
                                             PasscodeStore* store = nullptr) {
        PasscodeStore::Registration r;
        r.request.passcode = passcode;
        r.request.address = QStringLiteral("192.168.1.20");
        r.request.port = panelPort;
        r.request.name = QStringLiteral("Room 4");
        r.request.ttlSeconds = ttl;
        r.request.rotate = rotate;
        r.request.keyId = key;
        r.request.stampMs = ++stamp;
        r.request.certificate = QByteArray("cert\0der", 8);
        r.request.signature = QByteArray("sig\xff", 4);
        r.source = source;
        return await<PasscodeStore::RegisterAnswer>(
            [&](auto done) { (store ? store : m_store.get())->registerPanel(r, done); });
    }
    PasscodeStore::ResolveAnswer resolve(const QString& passcode, const QString& source = QStringLiteral("10.1.1.1"),
                                         PasscodeStore* store = nullptr) {
        return await<PasscodeStore::ResolveAnswer>(
            [&](auto done) { (store ? store : m_store.get())->resolve(passcode, source, done); });
    }
    PasscodeStore::RemoveAnswer remove(const QString& passcode, const QString& key, qint64 stampMs) {
        return await<PasscodeStore::RemoveAnswer>([&](auto done) { m_store->remove(passcode, key, stampMs, done); });
    }
    PasscodeStore::LimitAnswer checkPanel(const QString& source) {
        return await<PasscodeStore::LimitAnswer>([&](auto done) { m_store->checkPanelSource(source, done); });
    }

    qint64 nowMs = 1700000000000;
    qint64 stamp = 1700000000000;
    quint16 panelPort = 47800;
    std::deque<QString> picks;
    std::unique_ptr<PasscodeStore> m_store;
};

TEST_P(PasscodeStoreContract, RegistersRenewsRotatesAndReleasesWithTheHoldersKeyOnly) {
    picks = {QStringLiteral("AB12"), QStringLiteral("CD34")};
    auto first = registerAs(kKeyA);
    ASSERT_EQ(first.status, PasscodeStore::Status::Ok);
    ASSERT_EQ(first.outcome.result, Result::Assigned);
    EXPECT_EQ(first.outcome.entry.passcode, QStringLiteral("AB12"));

    auto found = resolve(QStringLiteral("ab12"));  // typed in lower case
    ASSERT_EQ(found.result, Lookup::Found);
    EXPECT_EQ(found.entry.passcode, QStringLiteral("AB12"));
    EXPECT_EQ(found.entry.address, QStringLiteral("192.168.1.20"));
    EXPECT_EQ(found.entry.port, 47800);
    EXPECT_EQ(found.entry.name, QStringLiteral("Room 4"));
    EXPECT_EQ(found.entry.keyId, kKeyA);
    // The proof is kept with the entry, binary-safe.
    EXPECT_EQ(found.entry.certificate, QByteArray("cert\0der", 8));
    EXPECT_EQ(found.entry.signature, QByteArray("sig\xff", 4));

    // A heartbeat without the passcode (a restarted panel) renews by address.
    auto renewed = registerAs(kKeyA);
    EXPECT_EQ(renewed.outcome.result, Result::Renewed);
    EXPECT_EQ(renewed.outcome.entry.passcode, QStringLiteral("AB12"));
    // Another key naming the passcode gets one of its own, never this one.
    picks = {QStringLiteral("AB12"), QStringLiteral("EF56")};
    auto other = registerAs(kKeyB, QStringLiteral("AB12"));
    EXPECT_EQ(other.outcome.result, Result::Assigned);
    EXPECT_EQ(other.outcome.entry.passcode, QStringLiteral("EF56"));

    // A replayed (not newer) request changes nothing.
    --stamp;
    --stamp;
    EXPECT_EQ(registerAs(kKeyA, QStringLiteral("AB12")).outcome.result, Result::Replayed);
    stamp += 2;

    picks = {QStringLiteral("CD34")};
    auto rotated = registerAs(kKeyA, QStringLiteral("AB12"), true);
    ASSERT_EQ(rotated.outcome.result, Result::Assigned);
    EXPECT_EQ(rotated.outcome.entry.passcode, QStringLiteral("CD34"));
    ASSERT_TRUE(rotated.outcome.released.has_value());
    EXPECT_EQ(rotated.outcome.released->passcode, QStringLiteral("AB12"));
    EXPECT_EQ(resolve(QStringLiteral("AB12")).result, Lookup::Unknown);

    EXPECT_EQ(remove(QStringLiteral("CD34"), kKeyB, ++stamp).removal, PasscodeRegistry::Removal::NotHeld);
    EXPECT_EQ(remove(QStringLiteral("CD34"), kKeyA, stamp - 5).removal, PasscodeRegistry::Removal::Replayed);
    auto removed = remove(QStringLiteral("cd34"), kKeyA, ++stamp);
    EXPECT_EQ(removed.removal, PasscodeRegistry::Removal::Removed);
    EXPECT_EQ(removed.removed.address, QStringLiteral("192.168.1.20"));
    EXPECT_EQ(resolve(QStringLiteral("CD34")).result, Lookup::Unknown);
    EXPECT_EQ(resolve(QStringLiteral("EF56")).result, Lookup::Found);
}

TEST_P(PasscodeStoreContract, EntriesLapseUnlessRenewedAndLapsedPasscodesAreGivenAgain) {
    picks = {QStringLiteral("GH78")};
    ASSERT_EQ(registerAs(kKeyA, {}, false, QStringLiteral("10.0.0.9"), 10).outcome.result, Result::Assigned);
    nowMs += 9000;
    EXPECT_EQ(resolve(QStringLiteral("GH78")).result, Lookup::Found);
    EXPECT_EQ(registerAs(kKeyA, QStringLiteral("GH78"), false, QStringLiteral("10.0.0.9"), 10).outcome.result,
              Result::Renewed);
    nowMs += 9000;
    EXPECT_EQ(resolve(QStringLiteral("GH78")).result, Lookup::Found);
    nowMs += 1001;
    EXPECT_EQ(resolve(QStringLiteral("GH78")).result, Lookup::Unknown);
    m_store->takeExpired();
    // Free again: another panel may get it, and the old holder's renewal is a new assignment.
    picks = {QStringLiteral("GH78")};
    auto taken = registerAs(kKeyB);
    ASSERT_EQ(taken.outcome.result, Result::Assigned);
    EXPECT_EQ(taken.outcome.entry.passcode, QStringLiteral("GH78"));
    EXPECT_EQ(resolve(QStringLiteral("GH78")).entry.keyId, kKeyB);
}

TEST_P(PasscodeStoreContract, NoPasscodeIsHandedOutTwiceAndLimitsHold) {
    // Every candidate taken: full, never a second holder.
    picks = {QStringLiteral("JK90")};
    ASSERT_EQ(registerAs(kKeyA).outcome.result, Result::Assigned);
    picks.assign(PasscodeRegistry::kPickAttempts + 1, QStringLiteral("JK90"));
    auto full = registerAs(kKeyB);
    EXPECT_EQ(full.outcome.result, Result::Full);
    EXPECT_TRUE(full.budgetLeft);
    EXPECT_EQ(resolve(QStringLiteral("JK90")).entry.keyId, kKeyA);

    // One key holds at most kMaxPerKey, one per panel (address and port).
    picks.clear();
    const QString keyC = QStringLiteral("C").repeated(43);
    int assigned = 0;
    for (int i = 0; i < PasscodeRegistry::kMaxPerKey + 2; ++i) {
        for (int k = 0; k < 4; ++k) picks.push_back(zv::code::generatePasscode());
        panelPort = quint16(47000 + i);
        if (registerAs(keyC).outcome.result == Result::Assigned) ++assigned;
    }
    EXPECT_EQ(assigned, PasscodeRegistry::kMaxPerKey);
    auto over = registerAs(keyC);
    EXPECT_EQ(over.outcome.result, Result::Full);
    EXPECT_EQ(over.held, PasscodeRegistry::kMaxPerKey);
    panelPort = 47000;
    EXPECT_EQ(registerAs(keyC).outcome.result, Result::Renewed);  // what it holds still renews
}

TEST_P(PasscodeStoreContract, WrongPasscodesLockTheSourceAndPanelFailuresLockPanelRequests) {
    const QString guesser = QStringLiteral("10.6.6.6");
    for (int i = 0; i < 4; ++i) EXPECT_EQ(resolve(QStringLiteral("QQQQ"), guesser).result, Lookup::Unknown);
    auto fifth = resolve(QStringLiteral("no!"), guesser);
    EXPECT_EQ(fifth.result, Lookup::Invalid);
    EXPECT_EQ(fifth.failures, 5);
    auto locked = resolve(QStringLiteral("QQQQ"), guesser);
    EXPECT_EQ(locked.result, Lookup::RateLimited);
    EXPECT_GT(locked.retryAfterMs, 0);
    EXPECT_LE(locked.retryAfterMs, 2000);
    EXPECT_EQ(resolve(QStringLiteral("QQQQ"), QStringLiteral("10.1.1.2")).result, Lookup::Unknown);  // others not
    nowMs += 2001;
    EXPECT_EQ(resolve(QStringLiteral("QQQQ"), guesser).result, Lookup::Unknown);
    EXPECT_EQ(resolve(QStringLiteral("QQQQ"), guesser).result, Lookup::RateLimited);  // 4 s now

    const QString panel = QStringLiteral("10.7.7.7");
    EXPECT_TRUE(checkPanel(panel).allowed);
    for (int i = 0; i < zv::RateLimiter::kFreeAttempts; ++i) m_store->recordPanelFailure(panel);
    auto refused = checkPanel(panel);
    EXPECT_EQ(refused.status, PasscodeStore::Status::Ok);
    EXPECT_FALSE(refused.allowed);
    EXPECT_TRUE(checkPanel(QStringLiteral("10.7.7.8")).allowed);
}

TEST_P(PasscodeStoreContract, OneSourceRunsOutOfNewPasscodes) {
    const QString nat = QStringLiteral("10.9.9.9");
    int assigned = 0;
    PasscodeStore::RegisterAnswer last;
    for (int i = 0; i < zv::SourceBudget::kBurst + 1; ++i) {
        const QString key = QStringLiteral("K%1").arg(i, 42, 10, QLatin1Char('x'));
        last = registerAs(key, {}, false, nat);
        if (last.outcome.result == Result::Assigned) ++assigned;
    }
    EXPECT_EQ(assigned, zv::SourceBudget::kBurst);
    EXPECT_EQ(last.outcome.result, Result::Full);
    EXPECT_FALSE(last.budgetLeft);
    nowMs += zv::SourceBudget::kRefillMs;
    EXPECT_EQ(registerAs(QStringLiteral("L").repeated(43), {}, false, nat).outcome.result, Result::Assigned);
}

INSTANTIATE_TEST_SUITE_P(Backends, PasscodeStoreContract, ::testing::Values(Backend::Memory, Backend::Redis),
                         [](const auto& info) { return info.param == Backend::Memory ? "Memory" : "Redis"; });

// What several instances share through one Redis, and Redis going away.
class RedisPasscodeStoreTest : public PasscodeStoreContract {};

TEST_P(RedisPasscodeStoreTest, InstancesShareEntriesAndOneWrongTryBudget) {
    auto second = make();
    picks = {QStringLiteral("RS12")};
    ASSERT_EQ(registerAs(kKeyA).outcome.result, Result::Assigned);
    EXPECT_EQ(resolve(QStringLiteral("RS12"), QStringLiteral("10.1.1.1"), second.get()).entry.keyId, kKeyA);
    // Both instances pick the same candidate at once: one gets it.
    picks.assign(2 * zv::RedisPasscodeStore::kCandidates, QStringLiteral("TV34"));
    std::optional<PasscodeStore::RegisterAnswer> a, b;
    PasscodeStore::Registration ra, rb;
    for (auto* r : {&ra, &rb}) {
        r->request.address = QStringLiteral("192.168.1.30");
        r->request.port = 47800;
        r->request.ttlSeconds = 30;
        r->request.stampMs = ++stamp;
        r->source = QStringLiteral("10.0.0.5");
    }
    ra.request.keyId = kKeyB;
    rb.request.keyId = QStringLiteral("D").repeated(43);
    m_store->registerPanel(ra, [&](const auto& answer) { a = answer; });
    second->registerPanel(rb, [&](const auto& answer) { b = answer; });
    ASSERT_TRUE(QTest::qWaitFor([&] { return a && b; }, kWaitMs));
    EXPECT_EQ(int(a->outcome.result == Result::Assigned) + int(b->outcome.result == Result::Assigned), 1);

    const QString guesser = QStringLiteral("10.6.6.6");
    for (int i = 0; i < 3; ++i) resolve(QStringLiteral("QQQQ"), guesser);
    resolve(QStringLiteral("QQQQ"), guesser, second.get());
    EXPECT_EQ(resolve(QStringLiteral("QQQQ"), guesser, second.get()).failures, 5);
    EXPECT_EQ(resolve(QStringLiteral("RS12"), guesser).result, Lookup::RateLimited);
}

TEST_P(RedisPasscodeStoreTest, AnswersUnavailableWhileRedisIsAwayAndRecoversByItself) {
    zvtest::RedisServer own;
    ASSERT_TRUE(own.start());
    // By name: looked up without blocking the loop, again at each reconnection.
    auto byName = targetOf(own);
    byName.host = QStringLiteral("localhost");
    zv::RedisPasscodeStore store(byName, [this] { return nowMs; });
    QSignalSpy availability(&store, &PasscodeStore::availabilityChanged);
    store.start();
    ASSERT_TRUE(QTest::qWaitFor([&] { return store.isAvailable(); }, kWaitMs));
    picks = {QStringLiteral("VW56")};
    ASSERT_EQ(registerAs(kKeyA, {}, false, QStringLiteral("10.0.0.9"), 30, &store).status, PasscodeStore::Status::Ok);

    own.kill();
    // Every kind of call answers, and answers Unavailable.
    EXPECT_EQ(resolve(QStringLiteral("VW56"), QStringLiteral("10.1.1.1"), &store).result, Lookup::Unavailable);
    EXPECT_EQ(registerAs(kKeyA, {}, false, QStringLiteral("10.0.0.9"), 30, &store).status,
              PasscodeStore::Status::Unavailable);
    EXPECT_EQ(await<PasscodeStore::LimitAnswer>([&](auto done) { store.checkPanelSource("10.0.0.9", done); }).status,
              PasscodeStore::Status::Unavailable);
    EXPECT_FALSE(store.isAvailable());

    ASSERT_TRUE(own.start());  // no persistence: empty
    ASSERT_TRUE(QTest::qWaitFor([&] { return store.isAvailable(); }, kWaitMs));
    EXPECT_GE(availability.count(), 2);
    EXPECT_EQ(resolve(QStringLiteral("VW56"), QStringLiteral("10.1.1.1"), &store).result, Lookup::Unknown);
    // The panel's next heartbeat puts it back (a fresh passcode: a request
    // never gets the one it names unless it holds it, or registering would
    // tell which passcodes are free).
    auto back = registerAs(kKeyA, QStringLiteral("VW56"), false, QStringLiteral("10.0.0.9"), 30, &store);
    ASSERT_EQ(back.outcome.result, Result::Assigned);
    EXPECT_EQ(resolve(back.outcome.entry.passcode, QStringLiteral("10.1.1.1"), &store).entry.keyId, kKeyA);
}

TEST_P(RedisPasscodeStoreTest, AHungRedisIsGivenUpWithinTheReplyTimeOut) {
    zvtest::RedisServer own;
    ASSERT_TRUE(own.start());
    zv::RedisPasscodeStore store(targetOf(own), [this] { return nowMs; });
    store.start();
    ASSERT_TRUE(QTest::qWaitFor([&] { return store.isAvailable(); }, kWaitMs));

    own.pause();
    QElapsedTimer waited;
    waited.start();
    // The call answers (Unavailable) once the reply time-out drops the
    // connection; the event loop runs all the while.
    EXPECT_EQ(resolve(QStringLiteral("AB12"), QStringLiteral("10.1.1.1"), &store).result, Lookup::Unavailable);
    EXPECT_GE(waited.elapsed(), zv::RedisConnection::kReplyTimeoutMs - 100);
    EXPECT_LT(waited.elapsed(), zv::RedisConnection::kReplyTimeoutMs * 3);
    own.resume();
    EXPECT_TRUE(QTest::qWaitFor([&] { return store.isAvailable(); }, kWaitMs));
    EXPECT_EQ(resolve(QStringLiteral("AB12"), QStringLiteral("10.1.1.1"), &store).result, Lookup::Unknown);
}

INSTANTIATE_TEST_SUITE_P(Shared, RedisPasscodeStoreTest, ::testing::Values(Backend::Redis),
                         [](const auto&) { return std::string("Redis"); });

TEST(RedisPasscodeStoreUrl, ReadsHostPortAndDatabase) {
    auto t = zv::RedisPasscodeStore::parseUrl(QStringLiteral("redis://10.0.0.5:6380/2"));
    ASSERT_TRUE(t);
    EXPECT_EQ(t->host, QStringLiteral("10.0.0.5"));
    EXPECT_EQ(t->port, 6380);
    EXPECT_EQ(t->database, 2);
    t = zv::RedisPasscodeStore::parseUrl(QStringLiteral("redis://cache.example"));
    ASSERT_TRUE(t);
    EXPECT_EQ(t->port, 6379);
    EXPECT_EQ(t->database, 0);
    for (const char* bad : {"http://h:1/0", "redis://", "redis://h:0", "redis://h/x", "redis://h/16", "redis://u:p@h",
                            "redis://h:70000", "memory"}) {
        EXPECT_FALSE(zv::RedisPasscodeStore::parseUrl(QString::fromLatin1(bad))) << bad;
    }
}

}  // namespace
