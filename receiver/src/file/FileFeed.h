// The panel's copy of a file that stays on the PC: blocks of the file asked
// for with range reads (FileRead) as the player needs them, with read-ahead,
// a bounded number of reads in flight (so control messages never queue
// behind much data) and a bounded read rate (the control channel's message
// cap), kept in a small cache. The player's streaming thread blocks in
// read() until its bytes are here; everything else runs on the main thread.
#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <set>

namespace receiver {

class FileFeed : public QObject {
    Q_OBJECT
public:
    static constexpr uint32_t kBlockBytes = 512 * 1024;
    static constexpr int kMaxInFlight = 8;
    static constexpr int kReadAheadBlocks = 8;
    static constexpr int kMaxCachedBlocks = 96;  // 48 MiB
    static constexpr int kMaxReadsPerSecond = 200;

    // Sends one read of [offset, offset + length) tagged requestId.
    using Requester = std::function<void(uint32_t requestId, uint64_t offset, uint32_t length)>;

    FileFeed(uint64_t size, Requester requester, QObject* parent = nullptr);
    ~FileFeed() override;

    uint64_t size() const { return m_size; }

    // Main thread: the answer to a read.
    void deliver(uint32_t requestId, uint64_t offset, const QByteArray& bytes);
    // Main thread: every block, then done(all bytes) once (pictures).
    void fetchAll(std::function<void(const QByteArray&)> done);

    // Any thread but the main one: bytes [offset, offset + length), fewer at
    // the end; empty once cancelled.
    QByteArray read(uint64_t offset, uint32_t length);
    // Wakes and fails every read, now and later (the file cast ends).
    void cancel();

    uint64_t bytesReceived() const { return m_bytesReceived; }

private:
    uint64_t blockCount() const { return (m_size + kBlockBytes - 1) / kBlockBytes; }
    // Main thread: block is wanted now; read-ahead follows it.
    void demand(uint64_t block);
    void pump();
    bool haveLocked(uint64_t block) const { return m_blocks.count(block) != 0; }
    void evictLocked();
    void checkWhole();

    const uint64_t m_size;
    Requester m_requester;

    mutable std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::map<uint64_t, QByteArray> m_blocks;  // under m_mutex
    std::list<uint64_t> m_lru;                // under m_mutex, most recent last
    bool m_cancelled = false;                 // under m_mutex

    // Main thread only.
    std::deque<uint64_t> m_queue;                  // blocks to ask for, first first
    std::map<uint32_t, uint64_t> m_inFlight;       // request id -> block
    std::deque<qint64> m_sentAt;                   // ms of the reads of the last second
    QElapsedTimer m_clock;
    QTimer m_pace;
    uint32_t m_nextRequest = 1;
    uint64_t m_bytesReceived = 0;
    std::function<void(const QByteArray&)> m_wholeDone;
};

}  // namespace receiver
