// Counts events (frames, bytes) and tells their rate over the last second.
// Thread-safe; add() is cheap enough for every packet.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <utility>

namespace zv::media {

class RateMeter {
public:
    using Clock = std::chrono::steady_clock;

    void add(uint64_t amount, Clock::time_point now = Clock::now()) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_samples.emplace_back(now, amount);
        m_windowSum += amount;
        m_total += amount;
        m_last = now;
        m_any = true;
        prune(now);
    }
    // Amount per second over the last second.
    double perSecond(Clock::time_point now = Clock::now()) const {
        std::lock_guard<std::mutex> lock(m_mutex);
        prune(now);
        return static_cast<double>(m_windowSum);
    }
    uint64_t total() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_total;
    }
    // When the last event came; false if none yet.
    bool lastEvent(Clock::time_point* when) const {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_any) *when = m_last;
        return m_any;
    }
    void reset() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_samples.clear();
        m_windowSum = m_total = 0;
        m_any = false;
    }

private:
    void prune(Clock::time_point now) const {
        const auto horizon = now - std::chrono::seconds(1);
        while (!m_samples.empty() && m_samples.front().first <= horizon) {
            m_windowSum -= m_samples.front().second;
            m_samples.pop_front();
        }
    }

    mutable std::mutex m_mutex;
    mutable std::deque<std::pair<Clock::time_point, uint64_t>> m_samples;
    mutable uint64_t m_windowSum = 0;
    uint64_t m_total = 0;
    Clock::time_point m_last{};
    bool m_any = false;
};

}  // namespace zv::media
