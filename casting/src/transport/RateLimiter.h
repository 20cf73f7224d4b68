// Wrong-attempt limiter per source (an address), as the panel and the
// passcode service apply it to codes:
//   - 5 wrong attempts in a row are checked freely; the 5th then locks the
//     source for 2 s, so a 6th at once is refused; each wrong attempt
//     made after a lock-out ended locks it for twice as long as the previous
//     lock-out, at most 5 minutes (2, 4, 8, ... 256, 300, 300 s);
//   - while locked, attempts are refused unchecked (mayAttempt() false) and
//     change nothing;
//   - a right attempt forgets the source.
// A source whose last wrong attempt is over an hour old and that is not
// locked is forgotten too, so the table does not grow without end.
// Thread-safe; the clock is injectable for tests.
#pragma once

#include <QHash>
#include <QMutex>
#include <QString>

#include <functional>

namespace zv {

class RateLimiter {
public:
    using Clock = std::function<qint64()>;  // monotonic milliseconds

    static constexpr int kFreeAttempts = 5;
    static constexpr qint64 kFirstLockMs = 2000;
    static constexpr qint64 kMaxLockMs = 5 * 60 * 1000;
    static constexpr qint64 kForgetAfterMs = 60 * 60 * 1000;

    // Without a clock a monotonic one is used.
    explicit RateLimiter(Clock nowMs = {});

    // Whether an attempt from source may be checked now; if not, how long
    // the lock-out still lasts goes to *retryAfterMs.
    bool mayAttempt(const QString& source, qint64* retryAfterMs = nullptr);
    void recordFailure(const QString& source);
    void recordSuccess(const QString& source);

    // Wrong attempts counted for source (0 when unknown).
    int failures(const QString& source) const;

private:
    struct Entry {
        int failures = 0;
        qint64 lockMs = 0;          // length of the last lock-out
        qint64 lockedUntilMs = 0;   // end of the current lock-out
        qint64 lastFailureMs = 0;
    };
    void pruneLocked(qint64 now);

    Clock m_now;
    mutable QMutex m_mutex;
    QHash<QString, Entry> m_entries;
    qint64 m_lastPruneMs = 0;
};

}  // namespace zv
