// How many new passcodes each source address may still be given: a bucket
// of kBurst that refills by one every kRefillMs. Panels behind one address
// (a building's NAT) start together and rotate at most every 20 s each; a
// source that makes keys to fill the table runs dry.
//
// Threads: used from one thread; the clock is the caller's.
#pragma once

#include <QHash>
#include <QString>

#include <functional>

namespace zv {

class SourceBudget {
public:
    using Clock = std::function<qint64()>;  // monotonic milliseconds

    static constexpr int kBurst = 30;
    static constexpr qint64 kRefillMs = 2000;

    explicit SourceBudget(Clock clock) : m_now(std::move(clock)) {}

    bool available(const QString& source);
    void take(const QString& source);

private:
    struct Bucket {
        int used = 0;           // tokens out, as of sinceMs
        qint64 sinceMs = 0;
    };
    void refill(Bucket& bucket, qint64 now) const;
    void prune(qint64 now);

    Clock m_now;
    QHash<QString, Bucket> m_buckets;
    qint64 m_lastPruneMs = 0;
};

}  // namespace zv
