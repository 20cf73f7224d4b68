#include "TryBudget.h"

#include <QElapsedTimer>

#include <algorithm>

#include "casting/Log.h"

namespace receiver {

TryBudget::TryBudget(bool fixedCode, Clock clock) : m_fixed(fixedCode), m_clock(std::move(clock)) {}

qint64 TryBudget::now() const {
    if (m_clock) return m_clock();
    static QElapsedTimer started = [] {
        QElapsedTimer t;
        t.start();
        return t;
    }();
    return started.elapsed();
}

bool TryBudget::mayTry(qint64* retryAfterMs) const {
    const qint64 left = m_lockedUntil - now();
    if (retryAfterMs != nullptr) *retryAfterMs = std::max<qint64>(left, 0);
    return left <= 0;
}

bool TryBudget::recordFailure() {
    if (++m_failures < kBudget) return false;
    m_failures = 0;
    if (m_fixed) {
        m_lockedUntil = now() + m_nextLockMs;
        ZV_LOG(WARNING) << " " << kBudget << " wrong code tries: the fixed code takes no tries for "
                        << m_nextLockMs / 1000 << " s";
        m_nextLockMs = std::min(m_nextLockMs * 2, kMaxLockMs);
    } else {
        ZV_LOG(WARNING) << " " << kBudget << " wrong code tries: the code is replaced";
    }
    return true;
}

void TryBudget::cancelFailure() {
    if (m_failures > 0) --m_failures;
}

}  // namespace receiver
