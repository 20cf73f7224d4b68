// The packets of the player's stream (layout in casting/Dexo.h): writing
// one, and reading them back from a byte stream cut anywhere.
//
// Threads: plain objects; one reader per stream, used by one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zv::player {

struct Packet {
    int kind = 0;          // DEXO_KIND_VIDEO or DEXO_KIND_AUDIO
    uint8_t flags = 0;     // DEXO_FLAG_*
    int64_t ptsUs = 0;
    std::vector<uint8_t> payload;
};

// Header and payload, ready for the stream callback.
std::vector<uint8_t> encodePacket(int kind, uint8_t flags, int64_t ptsUs, const uint8_t* payload, size_t size);

class PacketReader {
public:
    explicit PacketReader(size_t capacity) : m_capacity(capacity) {}

    enum class Result { Ok, Full, Malformed };
    // Appends bytes; whole packets become available through next(). Full:
    // the bytes would pass the capacity and were dropped (nothing else
    // changes). Malformed: a header was wrong; the bytes up to the next
    // "ZDPK" were dropped, and what follows is read on.
    Result append(const uint8_t* data, size_t size);
    bool next(Packet* packet);
    size_t buffered() const { return m_buffer.size() - m_offset; }
    void clear();

private:
    // Drops leading bytes that cannot start a packet; false once a bad
    // header was skipped.
    bool resynchronise();

    size_t m_capacity;
    std::vector<uint8_t> m_buffer;
    size_t m_offset = 0;
    bool m_malformed = false;
};

}  // namespace zv::player
