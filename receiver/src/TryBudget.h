// The panel's budget of wrong code tries, over all sources (the per-source
// RateLimiter stops one PC; this stops many). A try counts from the moment
// the panel answered a key exchange, and is taken back when the PC's key
// confirmation arrives valid. After kBudget failures:
//   - a generated code is replaced (exhausted() -> the caller renews it and
//     reset()s): the guesses so far were all spent on a code that is gone;
//   - a fixed code cannot change: every code try is refused for a lock-out
//     that doubles from kFirstLockMs (up to kMaxLockMs), the count restarting
//     after each lock-out.
// Threads: the receiver's main thread.
#pragma once

#include <QtGlobal>

#include <functional>

namespace receiver {

class TryBudget {
public:
    static constexpr int kBudget = 20;
    static constexpr qint64 kFirstLockMs = 30000;
    static constexpr qint64 kMaxLockMs = 60LL * 60 * 1000;

    using Clock = std::function<qint64()>;  // monotonic milliseconds
    explicit TryBudget(bool fixedCode, Clock clock = {});

    // Whether code tries are taken now; *retryAfterMs says for how long not.
    bool mayTry(qint64* retryAfterMs = nullptr) const;
    // A failed try counted; true when that used up the budget (a generated
    // code must then be renewed; for a fixed code the lock-out starts).
    bool recordFailure();
    // A try that turned out right.
    void cancelFailure();
    int failures() const { return m_failures; }
    void reset() { m_failures = 0; }

private:
    qint64 now() const;

    bool m_fixed;
    Clock m_clock;
    int m_failures = 0;
    qint64 m_lockedUntil = 0;
    qint64 m_nextLockMs = kFirstLockMs;
};

}  // namespace receiver
