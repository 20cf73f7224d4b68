// What an eavesdropper on the LAN gets: every frame a host's interfaces
// send and receive (a packet socket in its namespace), taken apart into UDP
// datagrams and TCP streams, and searched for media in the clear:
//   - H.264 parameter sets: an SPS NAL unit (header 0x67 with a valid
//     profile, constraint and level) after an Annex B start code, at the
//     start of an RTP payload (single NAL unit) or inside a STAP-A;
//   - Opus: an RTP stream (one SSRC) whose payloads keep one TOC byte and
//     decode with libopus. Encrypted payloads (SRTP keeps only the RTP
//     header readable) change their first byte at random and rarely decode.
#pragma once

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <netinet/ip.h>
#include <netinet/tcp.h>
#include <netinet/udp.h>
#include <opus/opus.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "NetnsTrio.h"

namespace zvtest {

using Bytes = std::vector<uint8_t>;

struct Datagram {
    std::string source, destination;  // a.b.c.d
    uint16_t sourcePort = 0, destinationPort = 0;
    Bytes payload;
};

struct TcpStream {  // one direction of a connection, in sequence order
    std::string source, destination;
    uint16_t sourcePort = 0, destinationPort = 0;
    Bytes bytes;
};

struct Capture {
    std::vector<Datagram> udp;
    std::vector<TcpStream> tcp;
    size_t frames = 0;
};

class PacketCapture {
public:
    // Starts capturing everything in namespace ns at once.
    explicit PacketCapture(const std::string& ns)
        : m_fd(NetnsTrio::socketIn(ns, AF_PACKET, SOCK_RAW, htons(ETH_P_ALL))) {
        if (m_fd < 0) return;
        const int size = 32 * 1024 * 1024;
        setsockopt(m_fd, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size);
        m_thread = std::thread([this] { run(); });
    }
    ~PacketCapture() { stop(); }
    PacketCapture(const PacketCapture&) = delete;
    PacketCapture& operator=(const PacketCapture&) = delete;

    bool ready() const { return m_fd >= 0; }
    void stop() {
        m_stop = true;
        if (m_thread.joinable()) m_thread.join();
        if (m_fd >= 0) close(m_fd);
        m_fd = -1;
    }
    // What was captured so far as a pcap file (for a look with Wireshark).
    bool writePcap(const std::string& path) const {
        FILE* file = std::fopen(path.c_str(), "wb");
        if (file == nullptr) return false;
        const uint32_t header[6] = {0xa1b2c3d4, 0x00040002, 0, 0, 65535, 1};  // v2.4, Ethernet
        std::fwrite(header, sizeof header, 1, file);
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const Bytes& frame : m_frames) {
            const uint32_t record[4] = {0, 0, static_cast<uint32_t>(frame.size()), static_cast<uint32_t>(frame.size())};
            std::fwrite(record, sizeof record, 1, file);
            std::fwrite(frame.data(), 1, frame.size(), file);
        }
        return std::fclose(file) == 0;
    }
    // What was captured so far, taken apart.
    Capture take() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return dissect(m_frames);
    }

private:
    void run() {
        Bytes buffer(65536 + 64);
        while (!m_stop) {
            pollfd waiting{m_fd, POLLIN, 0};
            if (poll(&waiting, 1, 50) <= 0) continue;
            sockaddr_ll from{};
            socklen_t size = sizeof from;
            const ssize_t n = recvfrom(m_fd, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&from), &size);
            if (n <= 0) continue;
            // A frame sent from here to here shows up twice on lo; once is enough.
            if (from.sll_ifindex == 1 && from.sll_pkttype == PACKET_OUTGOING) continue;
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_bytes < kMaxBytes) {
                m_frames.emplace_back(buffer.begin(), buffer.begin() + n);
                m_bytes += static_cast<size_t>(n);
            }
        }
    }

    static std::string dotted(uint32_t networkOrder) {
        char text[INET_ADDRSTRLEN] = {};
        inet_ntop(AF_INET, &networkOrder, text, sizeof text);
        return text;
    }

    static Capture dissect(const std::vector<Bytes>& frames) {
        Capture capture;
        capture.frames = frames.size();
        using Key = std::tuple<std::string, uint16_t, std::string, uint16_t>;
        std::map<Key, std::map<uint32_t, Bytes>> segments;  // by sequence number: resent ones count once
        for (const Bytes& frame : frames) {
            if (frame.size() < sizeof(ether_header) + sizeof(iphdr)) continue;
            const auto* ethernet = reinterpret_cast<const ether_header*>(frame.data());
            if (ntohs(ethernet->ether_type) != ETHERTYPE_IP) continue;
            const uint8_t* ip = frame.data() + sizeof(ether_header);
            const size_t available = frame.size() - sizeof(ether_header);
            iphdr header;
            std::memcpy(&header, ip, sizeof header);
            const size_t ipLength = header.ihl * 4u;
            size_t total = ntohs(header.tot_len);
            if (total == 0 || total > available) total = available;  // offloaded giant segments
            if (ipLength < sizeof(iphdr) || total < ipLength || (ntohs(header.frag_off) & 0x1fff) != 0) continue;
            const uint8_t* body = ip + ipLength;
            const size_t bodySize = total - ipLength;
            if (header.protocol == IPPROTO_UDP && bodySize >= sizeof(udphdr)) {
                udphdr udp;
                std::memcpy(&udp, body, sizeof udp);
                capture.udp.push_back({dotted(header.saddr), dotted(header.daddr), ntohs(udp.source), ntohs(udp.dest),
                                       Bytes(body + sizeof udp, body + bodySize)});
            } else if (header.protocol == IPPROTO_TCP && bodySize >= sizeof(tcphdr)) {
                tcphdr tcp;
                std::memcpy(&tcp, body, sizeof tcp);
                const size_t dataOffset = tcp.doff * 4u;
                if (dataOffset > bodySize || dataOffset == bodySize) continue;
                const Key key{dotted(header.saddr), ntohs(tcp.source), dotted(header.daddr), ntohs(tcp.dest)};
                segments[key].emplace(ntohl(tcp.seq), Bytes(body + dataOffset, body + bodySize));
            }
        }
        for (const auto& [key, bySequence] : segments) {
            TcpStream stream{std::get<0>(key), std::get<2>(key), std::get<1>(key), std::get<3>(key), {}};
            // In order from the first captured segment (sequence numbers wrap; the
            // distance from the first one does not, for what a test sends).
            const uint32_t first = bySequence.begin()->first;
            std::vector<std::pair<uint32_t, const Bytes*>> ordered;
            for (const auto& [sequence, bytes] : bySequence) ordered.emplace_back(sequence - first, &bytes);
            std::sort(ordered.begin(), ordered.end());
            uint32_t next = 0;
            for (const auto& [offset, bytes] : ordered) {
                if (offset + bytes->size() <= next) continue;
                const size_t skip = offset < next ? next - offset : 0;
                stream.bytes.insert(stream.bytes.end(), bytes->begin() + static_cast<long>(skip), bytes->end());
                next = offset + static_cast<uint32_t>(bytes->size());
            }
            capture.tcp.push_back(std::move(stream));
        }
        return capture;
    }

    static constexpr size_t kMaxBytes = 400u * 1024 * 1024;
    int m_fd;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
    mutable std::mutex m_mutex;
    std::vector<Bytes> m_frames;
    size_t m_bytes = 0;
};

// ---- what the search looks for ----

// An SPS NAL unit starts at data[i]: header 0x67 (what encoders write), a
// known profile, reserved constraint bits 0, a level H.264 defines, and
// parameter set id 0 (its first bit set).
inline bool spsAt(const Bytes& data, size_t i) {
    if (i + 5 > data.size() || data[i] != 0x67) return false;
    static const uint8_t profiles[] = {66, 77, 88, 100, 110, 122, 244, 44, 118, 128};
    static const uint8_t levels[] = {9, 10, 11, 12, 13, 20, 21, 22, 30, 31, 32, 40, 41, 42, 50, 51, 52};
    return std::find(std::begin(profiles), std::end(profiles), data[i + 1]) != std::end(profiles) &&
           (data[i + 2] & 0x03) == 0 && std::find(std::begin(levels), std::end(levels), data[i + 3]) != std::end(levels) &&
           (data[i + 4] & 0x80) != 0;
}

// Where data holds an Annex B SPS (start code, then an SPS), or npos.
inline size_t findAnnexBSps(const Bytes& data) {
    for (size_t i = 3; i + 5 <= data.size(); ++i) {
        if (data[i] == 0x67 && data[i - 1] == 1 && data[i - 2] == 0 && data[i - 3] == 0 && spsAt(data, i)) return i;
    }
    return std::string::npos;
}

struct RtpPacket {
    std::string source;  // the sender's address
    uint32_t ssrc;
    uint8_t payloadType;
    Bytes payload;
};

// RTP in a datagram, or in an RFC 4571 stream (16-bit length before each).
inline bool parseRtp(const uint8_t* data, size_t size, RtpPacket* packet) {
    if (size < 13 || (data[0] & 0xc0) != 0x80) return false;
    size_t start = 12 + 4u * (data[0] & 0x0f);
    if ((data[0] & 0x10) != 0) {  // header extension
        if (start + 4 > size) return false;
        start += 4 + 4u * ((size_t(data[start + 2]) << 8) | data[start + 3]);
    }
    size_t end = size;
    if ((data[0] & 0x20) != 0 && data[size - 1] < size) end -= data[size - 1];  // padding
    if (start >= end) return false;
    packet->ssrc = (uint32_t(data[8]) << 24) | (uint32_t(data[9]) << 16) | (uint32_t(data[10]) << 8) | data[11];
    packet->payloadType = data[1] & 0x7f;
    packet->payload.assign(data + start, data + end);
    return true;
}

inline std::vector<RtpPacket> rtpPackets(const Capture& capture) {
    std::vector<RtpPacket> packets;
    RtpPacket packet;
    for (const Datagram& d : capture.udp) {
        packet.source = d.source;
        if (parseRtp(d.payload.data(), d.payload.size(), &packet)) packets.push_back(packet);
        // SRT: a data packet (first bit 0) carries it after its 16-byte header.
        if (d.payload.size() > 16 && (d.payload[0] & 0x80) == 0 &&
            parseRtp(d.payload.data() + 16, d.payload.size() - 16, &packet)) {
            packets.push_back(packet);
        }
    }
    for (const TcpStream& stream : capture.tcp) {
        packet.source = stream.source;
        for (size_t at = 0; at + 2 < stream.bytes.size();) {
            const size_t size = (size_t(stream.bytes[at]) << 8) | stream.bytes[at + 1];
            if (size == 0 || at + 2 + size > stream.bytes.size()) break;
            if (!parseRtp(stream.bytes.data() + at + 2, size, &packet)) break;  // not RFC 4571 (TLS, SRT, ...)
            packets.push_back(packet);
            at += 2 + size;
        }
    }
    return packets;
}

// RTP packets from source whose payload type is dynamic but not video's
// (96) or its retransmissions' (97): sound.
inline size_t soundPacketsFrom(const Capture& capture, const std::string& source) {
    size_t count = 0;
    for (const RtpPacket& packet : rtpPackets(capture))
        count += packet.source == source && packet.payloadType > 97 && packet.payloadType < 128 ? 1 : 0;
    return count;
}

// Streams (SSRC, payload type) of at least 10 packets that read as plain
// Opus: one TOC byte for nine in ten packets, and nine in ten decode.
inline std::vector<std::string> clearOpusStreams(const Capture& capture) {
    std::map<std::pair<uint32_t, uint8_t>, std::vector<const RtpPacket*>> streams;
    const std::vector<RtpPacket> packets = rtpPackets(capture);
    for (const RtpPacket& packet : packets) {
        if (packet.payloadType >= 96) streams[{packet.ssrc, packet.payloadType}].push_back(&packet);
    }
    std::vector<std::string> found;
    int error = 0;
    OpusDecoder* decoder = opus_decoder_create(48000, 2, &error);
    std::vector<opus_int16> pcm(5760 * 2);
    for (const auto& [id, list] : streams) {
        if (list.size() < 10) continue;
        std::map<uint8_t, size_t> tocs;
        size_t decoded = 0;
        for (const RtpPacket* packet : list) {
            ++tocs[packet->payload[0]];
            opus_decoder_ctl(decoder, OPUS_RESET_STATE);
            if (opus_decode(decoder, packet->payload.data(), static_cast<opus_int32>(packet->payload.size()), pcm.data(),
                            5760, 0) > 0) {
                ++decoded;
            }
        }
        size_t commonToc = 0;
        for (const auto& [toc, count] : tocs) commonToc = std::max(commonToc, count);
        if (commonToc * 10 >= list.size() * 9 && decoded * 10 >= list.size() * 9) {
            found.push_back("SSRC " + std::to_string(id.first) + " PT " + std::to_string(id.second) + ": " +
                            std::to_string(decoded) + " of " + std::to_string(list.size()) + " packets decode");
        }
    }
    opus_decoder_destroy(decoder);
    return found;
}

// An RTP payload that is an SPS: a small single NAL unit packet, or a
// STAP-A (NRI 3: 0x78) one of whose units is an SPS, the units' sizes
// adding up to the payload's.
inline bool rtpPayloadIsSps(const Bytes& payload) {
    if (payload.size() <= 80 && spsAt(payload, 0)) return true;
    if (payload.size() < 8 || payload[0] != 0x78) return false;
    bool sps = false;
    size_t at = 1;
    while (at + 2 < payload.size()) {
        const size_t size = (size_t(payload[at]) << 8) | payload[at + 1];
        if (size == 0 || at + 2 + size > payload.size()) return false;
        sps = sps || (size <= 64 && spsAt(payload, at + 2));
        at += 2 + size;
    }
    return sps && at == payload.size();
}

// Every place a capture shows H.264 parameter sets in the clear (at most a few).
inline std::vector<std::string> clearH264(const Capture& capture) {
    std::vector<std::string> found;
    auto where = [](const std::string& kind, const std::string& from, uint16_t fromPort, const std::string& to,
                    uint16_t toPort, size_t offset) {
        return kind + " " + from + ":" + std::to_string(fromPort) + " -> " + to + ":" + std::to_string(toPort) +
               ": Annex B SPS at byte " + std::to_string(offset);
    };
    for (const Datagram& d : capture.udp) {
        const size_t at = findAnnexBSps(d.payload);
        if (at != std::string::npos && found.size() < 5)
            found.push_back(where("udp", d.source, d.sourcePort, d.destination, d.destinationPort, at));
    }
    for (const TcpStream& s : capture.tcp) {
        const size_t at = findAnnexBSps(s.bytes);
        if (at != std::string::npos && found.size() < 10)
            found.push_back(where("tcp", s.source, s.sourcePort, s.destination, s.destinationPort, at));
    }
    for (const RtpPacket& packet : rtpPackets(capture)) {
        if (found.size() < 15 && rtpPayloadIsSps(packet.payload))
            found.push_back("RTP SSRC " + std::to_string(packet.ssrc) + " PT " + std::to_string(packet.payloadType) +
                            ": SPS payload");
    }
    return found;
}

}  // namespace zvtest
