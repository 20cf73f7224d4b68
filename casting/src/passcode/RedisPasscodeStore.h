// The passcode store in Redis, shared by every service instance that names
// the same database: entries, the panel keys' passcode sets, the per-source
// limiters and new-passcode budgets. Each request is one Lua script run
// atomically in Redis, so two instances can never hand out one passcode
// twice nor count one source's wrong tries apart. Times are the instances'
// wall clocks (ms since 1970, passed to every script): keep them in NTP.
//
// Keys (prefix "zv:pc:"): e:CODE (hash: address, port, name, ttl, exp, key,
// stamp, cert, sig), k:KEYID (set of codes), live (sorted set code -> exp),
// lim:r:SOURCE and lim:p:SOURCE (wrong-try limiters), b:SOURCE (budget).
// Every key carries a Redis expiry, so nothing outlives its use by much.
//
// Threads: a QObject used from the thread it lives in.
#pragma once

#include <QUrl>

#include <optional>

#include "passcode/PasscodeStore.h"

struct redisReply;

namespace zv {

class RedisConnection;

class RedisPasscodeStore : public PasscodeStore {
    Q_OBJECT
public:
    // Candidates sent with each register: the table is kept under a tenth
    // full, so all of them being taken is practically impossible.
    static constexpr int kCandidates = 16;

    struct Target {
        QString host;
        quint16 port = 6379;
        int database = 0;
    };
    // "redis://HOST[:PORT][/DB]"; nothing when malformed.
    static std::optional<Target> parseUrl(const QString& url);

    // clock: milliseconds since 1970 (empty: the system's); picker as the registry's.
    RedisPasscodeStore(const Target& target, Clock clock = {}, PasscodeRegistry::Picker picker = {},
                       QObject* parent = nullptr);
    ~RedisPasscodeStore() override;

    // Connects (and keeps reconnecting); answers Unavailable until connected.
    void start();

    void registerPanel(const Registration& registration, RegisterDone done) override;
    void resolve(const QString& passcode, const QString& source, ResolveDone done) override;
    void remove(const QString& passcode, const QString& keyId, qint64 stampMs, RemoveDone done) override;
    void checkPanelSource(const QString& source, LimitDone done) override;
    void recordPanelFailure(const QString& source) override;
    // Refreshes size() (Redis reports no expiries).
    QList<PasscodeRegistry::Entry> takeExpired() override;
    int size() const override { return m_size; }
    bool isAvailable() const override;
    QString describe() const override;

private:
    struct Script;
    // Runs script with args (EVALSHA, EVAL when Redis lacks it); done gets
    // the reply, or nullptr when there is none or it is an error.
    void run(const Script& script, const QList<QByteArray>& args, std::function<void(const redisReply*)> done);

    Target m_target;
    Clock m_clock;
    PasscodeRegistry::Picker m_picker;
    RedisConnection* m_connection;
    int m_size = -1;
};

}  // namespace zv
