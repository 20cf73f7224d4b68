#include "player/DexoPacket.h"

#include <algorithm>
#include <cstring>

#include "casting/Dexo.h"

namespace zv::player {
namespace {

void put32(uint8_t* out, uint32_t value) {
    for (int i = 0; i < 4; ++i) out[i] = static_cast<uint8_t>(value >> (8 * i));
}
uint32_t get32(const uint8_t* in) {
    return uint32_t(in[0]) | uint32_t(in[1]) << 8 | uint32_t(in[2]) << 16 | uint32_t(in[3]) << 24;
}

bool headerValid(const uint8_t* h) {
    if (std::memcmp(h, DEXO_PACKET_MAGIC, 4) != 0) return false;
    if (h[4] != DEXO_KIND_VIDEO && h[4] != DEXO_KIND_AUDIO) return false;
    return get32(h + 8) <= DEXO_MAX_PAYLOAD;
}

}  // namespace

std::vector<uint8_t> encodePacket(int kind, uint8_t flags, int64_t ptsUs, const uint8_t* payload, size_t size) {
    std::vector<uint8_t> out(DEXO_PACKET_HEADER_SIZE + size, 0);
    std::memcpy(out.data(), DEXO_PACKET_MAGIC, 4);
    out[4] = static_cast<uint8_t>(kind);
    out[5] = flags;
    put32(out.data() + 8, static_cast<uint32_t>(size));
    const auto pts = static_cast<uint64_t>(ptsUs);
    put32(out.data() + 16, static_cast<uint32_t>(pts));
    put32(out.data() + 20, static_cast<uint32_t>(pts >> 32));
    if (size > 0) std::memcpy(out.data() + DEXO_PACKET_HEADER_SIZE, payload, size);
    return out;
}

PacketReader::Result PacketReader::append(const uint8_t* data, size_t size) {
    if (size == 0) return Result::Ok;
    if (buffered() + size > m_capacity) return Result::Full;
    if (m_offset > 0 && m_offset >= m_buffer.size() / 2) {
        m_buffer.erase(m_buffer.begin(), m_buffer.begin() + static_cast<std::ptrdiff_t>(m_offset));
        m_offset = 0;
    }
    m_buffer.insert(m_buffer.end(), data, data + size);
    m_malformed = false;
    const bool clean = resynchronise();
    return clean && !m_malformed ? Result::Ok : Result::Malformed;
}

bool PacketReader::resynchronise() {
    // The first place, from `from` on, where a packet may begin: a whole
    // magic, or the start of one at the end of what is buffered.
    auto candidate = [this](size_t from) {
        for (; from < m_buffer.size(); ++from) {
            const size_t n = std::min<size_t>(m_buffer.size() - from, 4);
            if (std::memcmp(m_buffer.data() + from, DEXO_PACKET_MAGIC, n) == 0) break;
        }
        return from;
    };
    bool clean = true;
    for (;;) {
        const size_t at = candidate(m_offset);
        if (at != m_offset) clean = false;
        m_offset = at;
        if (buffered() < DEXO_PACKET_HEADER_SIZE || headerValid(m_buffer.data() + m_offset)) break;
        clean = false;
        ++m_offset;  // a magic with a bad header: look further
    }
    if (!clean) m_malformed = true;
    return clean;
}

bool PacketReader::next(Packet* packet) {
    if (buffered() < DEXO_PACKET_HEADER_SIZE) return false;
    const uint8_t* h = m_buffer.data() + m_offset;
    const size_t length = get32(h + 8);
    if (buffered() < DEXO_PACKET_HEADER_SIZE + length) return false;
    packet->kind = h[4];
    packet->flags = h[5];
    packet->ptsUs = static_cast<int64_t>(uint64_t(get32(h + 16)) | uint64_t(get32(h + 20)) << 32);
    packet->payload.assign(h + DEXO_PACKET_HEADER_SIZE, h + DEXO_PACKET_HEADER_SIZE + length);
    m_offset += DEXO_PACKET_HEADER_SIZE + length;
    if (m_offset == m_buffer.size()) {
        m_buffer.clear();
        m_offset = 0;
    }
    resynchronise();
    return true;
}

void PacketReader::clear() {
    m_buffer.clear();
    m_offset = 0;
}

}  // namespace zv::player
