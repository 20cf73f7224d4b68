#include "file/FileFeed.h"

#include <algorithm>

#include "casting/Log.h"

namespace receiver {

FileFeed::FileFeed(uint64_t size, Requester requester, QObject* parent)
    : QObject(parent), m_size(size), m_requester(std::move(requester)) {
    m_clock.start();
    m_pace.setSingleShot(true);
    connect(&m_pace, &QTimer::timeout, this, &FileFeed::pump);
}

FileFeed::~FileFeed() { cancel(); }

void FileFeed::cancel() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_cancelled = true;
    }
    m_arrived.notify_all();
}

QByteArray FileFeed::read(uint64_t offset, uint32_t length) {
    if (offset >= m_size || length == 0) return {};
    const uint64_t end = std::min<uint64_t>(m_size, offset + length);
    QByteArray out;
    out.reserve(static_cast<int>(end - offset));
    std::unique_lock<std::mutex> lock(m_mutex);
    uint64_t at = offset;
    while (at < end) {
        const uint64_t block = at / kBlockBytes;
        const auto found = m_blocks.find(block);
        if (found == m_blocks.end()) {
            if (m_cancelled) return {};
            QMetaObject::invokeMethod(this, [this, block] { demand(block); }, Qt::QueuedConnection);
            m_arrived.wait(lock, [&] { return m_cancelled || haveLocked(block); });
            continue;
        }
        const uint64_t inBlock = at - block * kBlockBytes;
        const uint64_t take = std::min<uint64_t>(end - at, static_cast<uint64_t>(found->second.size()) - inBlock);
        if (take == 0) return out;  // a short block: the PC's file is shorter than announced
        out.append(found->second.constData() + inBlock, static_cast<int>(take));
        at += take;
        m_lru.remove(block);
        m_lru.push_back(block);
    }
    // Keep reading ahead of a player that plays from the cache.
    const uint64_t next = end / kBlockBytes + 1;
    lock.unlock();
    if (next < blockCount()) QMetaObject::invokeMethod(this, [this, next] { demand(next); }, Qt::QueuedConnection);
    return out;
}

void FileFeed::demand(uint64_t block) {
    if (block >= blockCount()) return;
    std::deque<uint64_t> wanted;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (uint64_t b = block; b < std::min<uint64_t>(blockCount(), block + kReadAheadBlocks + 1); ++b) {
            if (!haveLocked(b)) wanted.push_back(b);
        }
    }
    auto inFlight = [this](uint64_t b) {
        return std::any_of(m_inFlight.begin(), m_inFlight.end(), [b](const auto& r) { return r.second == b; });
    };
    // What is wanted now goes first; older read-ahead (a seek left it) is dropped.
    if (m_wholeDone == nullptr) m_queue.clear();
    for (auto it = wanted.rbegin(); it != wanted.rend(); ++it) {
        if (!inFlight(*it) && std::find(m_queue.begin(), m_queue.end(), *it) == m_queue.end()) {
            m_queue.push_front(*it);
        }
    }
    pump();
}

void FileFeed::pump() {
    const qint64 now = m_clock.elapsed();
    while (!m_sentAt.empty() && now - m_sentAt.front() >= 1000) m_sentAt.pop_front();
    while (!m_queue.empty() && static_cast<int>(m_inFlight.size()) < kMaxInFlight) {
        if (static_cast<int>(m_sentAt.size()) >= kMaxReadsPerSecond) {
            if (!m_pace.isActive()) m_pace.start(static_cast<int>(1000 - (now - m_sentAt.front())) + 1);
            return;
        }
        const uint64_t block = m_queue.front();
        m_queue.pop_front();
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (haveLocked(block) || m_cancelled) continue;
        }
        const uint32_t id = m_nextRequest++;
        m_inFlight[id] = block;
        m_sentAt.push_back(now);
        const uint64_t offset = block * kBlockBytes;
        m_requester(id, offset, static_cast<uint32_t>(std::min<uint64_t>(kBlockBytes, m_size - offset)));
    }
}

void FileFeed::deliver(uint32_t requestId, uint64_t offset, const QByteArray& bytes) {
    const auto found = m_inFlight.find(requestId);
    if (found == m_inFlight.end() || found->second * kBlockBytes != offset) {
        ZV_LOG(WARNING) << " data for no read of ours (request " << requestId << ", offset " << offset << ")";
        return;
    }
    const uint64_t block = found->second;
    m_inFlight.erase(found);
    const uint64_t expected = std::min<uint64_t>(kBlockBytes, m_size - offset);
    if (static_cast<uint64_t>(bytes.size()) > expected) {
        ZV_LOG(WARNING) << " too many bytes for block " << block << "; asking again";
        m_queue.push_front(block);
        pump();
        return;
    }
    m_bytesReceived += static_cast<uint64_t>(bytes.size());
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_blocks[block] = bytes;
        m_lru.remove(block);
        m_lru.push_back(block);
        if (m_wholeDone == nullptr) evictLocked();
    }
    m_arrived.notify_all();
    pump();
    if (m_wholeDone) checkWhole();
}

void FileFeed::evictLocked() {
    while (static_cast<int>(m_blocks.size()) > kMaxCachedBlocks && !m_lru.empty()) {
        m_blocks.erase(m_lru.front());
        m_lru.pop_front();
    }
}

void FileFeed::fetchAll(std::function<void(const QByteArray&)> done) {
    m_wholeDone = std::move(done);
    m_queue.clear();
    for (uint64_t b = 0; b < blockCount(); ++b) m_queue.push_back(b);
    pump();
    checkWhole();
}

void FileFeed::checkWhole() {
    QByteArray whole;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_blocks.size() < blockCount()) return;
        whole.reserve(static_cast<int>(m_size));
        for (const auto& [block, bytes] : m_blocks) whole.append(bytes);
    }
    auto done = std::move(m_wholeDone);
    m_wholeDone = nullptr;
    done(whole);
}

}  // namespace receiver
