#include "transport/RateLimiter.h"

#include <algorithm>
#include <chrono>

namespace zv {

RateLimiter::RateLimiter(Clock nowMs) : m_now(std::move(nowMs)) {
    if (!m_now) {
        m_now = [] {
            using namespace std::chrono;
            return qint64(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
        };
    }
    m_lastPruneMs = m_now();
}

bool RateLimiter::mayAttempt(const QString& source, qint64* retryAfterMs) {
    QMutexLocker lock(&m_mutex);
    const qint64 now = m_now();
    pruneLocked(now);
    const auto it = m_entries.constFind(source);
    const qint64 remaining = it == m_entries.constEnd() ? 0 : it->lockedUntilMs - now;
    if (retryAfterMs) *retryAfterMs = std::max<qint64>(remaining, 0);
    return remaining <= 0;
}

void RateLimiter::recordFailure(const QString& source) {
    QMutexLocker lock(&m_mutex);
    const qint64 now = m_now();
    Entry& e = m_entries[source];
    if (now < e.lockedUntilMs) return;  // refused unchecked: not an attempt
    e.failures += 1;
    e.lastFailureMs = now;
    if (e.failures >= kFreeAttempts) {
        e.lockMs = e.lockMs == 0 ? kFirstLockMs : std::min(e.lockMs * 2, kMaxLockMs);
        e.lockedUntilMs = now + e.lockMs;
    }
}

void RateLimiter::recordSuccess(const QString& source) {
    QMutexLocker lock(&m_mutex);
    m_entries.remove(source);
}

int RateLimiter::failures(const QString& source) const {
    QMutexLocker lock(&m_mutex);
    return m_entries.value(source).failures;
}

void RateLimiter::pruneLocked(qint64 now) {
    if (now - m_lastPruneMs < kForgetAfterMs / 4) return;
    m_lastPruneMs = now;
    for (auto it = m_entries.begin(); it != m_entries.end();) {
        if (now >= it->lockedUntilMs && now - it->lastFailureMs > kForgetAfterMs)
            it = m_entries.erase(it);
        else
            ++it;
    }
}

}  // namespace zv
