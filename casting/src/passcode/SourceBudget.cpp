#include "passcode/SourceBudget.h"

namespace zv {

void SourceBudget::refill(Bucket& bucket, qint64 now) const {
    const qint64 back = (now - bucket.sinceMs) / kRefillMs;
    if (back <= 0) return;
    if (back >= bucket.used) {
        bucket.used = 0;
        bucket.sinceMs = now;
    } else {
        bucket.used -= int(back);
        bucket.sinceMs += back * kRefillMs;
    }
}

bool SourceBudget::available(const QString& source) {
    const qint64 now = m_now();
    prune(now);
    auto it = m_buckets.find(source);
    if (it == m_buckets.end()) return true;
    refill(*it, now);
    return it->used < kBurst;
}

void SourceBudget::take(const QString& source) {
    const qint64 now = m_now();
    auto it = m_buckets.find(source);
    if (it == m_buckets.end()) it = m_buckets.insert(source, Bucket{0, now});
    refill(*it, now);
    if (it->used == 0) it->sinceMs = now;
    ++it->used;
}

void SourceBudget::prune(qint64 now) {
    // Full buckets say nothing: dropped now and then so the table stays small.
    if (now - m_lastPruneMs < kBurst * kRefillMs) return;
    m_lastPruneMs = now;
    for (auto it = m_buckets.begin(); it != m_buckets.end();) {
        refill(*it, now);
        it = it->used == 0 ? m_buckets.erase(it) : std::next(it);
    }
}

}  // namespace zv
