// Media encryption and source checks end to end: real pipelines over
// loopback, a relay socket in between where the test needs to see or
// add packets.
// Qt and gtest before Xlib: Xlib's macros (Bool, Status, None) break their headers.
#include <gst/gst.h>
#include <gtest/gtest.h>

#include <QImage>

#include "MediaCastFixture.h"
#include "media/ReceiverPipeline.h"
#include "media/SenderPipeline.h"
#include "media/UdpPortReservation.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Process.h"

using namespace std::chrono_literals;
using namespace zvtest;
using zv::media::MediaTransport;
using zv::media::ReceiverConfig;
using zv::media::ReceiverPipeline;
using zv::media::SenderConfig;
using zv::media::SenderPipeline;

namespace {

using Packet = std::vector<uint8_t>;

// A UDP socket on a loopback address (port 0: any).
int loopbackSocket(const char* address, uint16_t port = 0) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    inet_pton(AF_INET, address, &local.sin_addr);
    if (fd >= 0 && bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

uint16_t boundPort(int fd) {
    sockaddr_in local{};
    socklen_t size = sizeof local;
    getsockname(fd, reinterpret_cast<sockaddr*>(&local), &size);
    return ntohs(local.sin_port);
}

void sendTo(int fd, uint16_t port, const Packet& packet) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    inet_pton(AF_INET, "127.0.0.1", &to.sin_addr);
    sendto(fd, packet.data(), packet.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
}

// Forwards what arrives at its port to 127.0.0.1:target and keeps a copy.
class UdpRelay {
public:
    explicit UdpRelay(uint16_t target) : m_target(target), m_fd(loopbackSocket("127.0.0.1")) {
        m_thread = std::thread([this] { run(); });
    }
    ~UdpRelay() {
        m_stop = true;
        m_thread.join();
        close(m_fd);
    }
    uint16_t port() const { return boundPort(m_fd); }
    std::vector<Packet> packets() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_packets;
    }

private:
    void run() {
        Packet buffer(65536);
        while (!m_stop) {
            pollfd waiting{m_fd, POLLIN, 0};
            if (poll(&waiting, 1, 50) <= 0) continue;
            const ssize_t size = recv(m_fd, buffer.data(), buffer.size(), 0);
            if (size <= 0) continue;
            const Packet packet(buffer.begin(), buffer.begin() + size);
            sendTo(m_fd, m_target, packet);
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_packets.size() < 20000) m_packets.push_back(packet);
        }
    }

    uint16_t m_target;
    int m_fd;
    std::atomic<bool> m_stop{false};
    mutable std::mutex m_mutex;
    std::vector<Packet> m_packets;
    std::thread m_thread;
};

uint32_t ssrcOf(const Packet& packet) {
    return (uint32_t(packet[8]) << 24) | (uint32_t(packet[9]) << 16) | (uint32_t(packet[10]) << 8) | packet[11];
}
uint16_t seqOf(const Packet& packet) { return static_cast<uint16_t>((packet[2] << 8) | packet[3]); }

// A plain RTP packet of the video's kind: an SPS, then an IDR slice start.
Packet forgedRtp(uint32_t ssrc, uint16_t seq) {
    Packet packet(600, 0x55);
    const uint8_t header[] = {0x80, 0x80 | 96, static_cast<uint8_t>(seq >> 8), static_cast<uint8_t>(seq), 0, 0, 0x10, 0,
                              static_cast<uint8_t>(ssrc >> 24), static_cast<uint8_t>(ssrc >> 16),
                              static_cast<uint8_t>(ssrc >> 8), static_cast<uint8_t>(ssrc)};
    const uint8_t payload[] = {0x78, 0x00, 0x04, 0x67, 0x42, 0xc0, 0x1f, 0x00, 0x04, 0x65, 0x88, 0x84, 0x00};
    std::copy(std::begin(header), std::end(header), packet.begin());
    std::copy(std::begin(payload), std::end(payload), packet.begin() + sizeof header);
    return packet;
}

// The first SPS in a capture of plain H.264 RTP (single NAL or STAP-A); empty if none.
Packet findSps(const std::vector<Packet>& packets) {
    for (const Packet& packet : packets) {
        if (packet.size() < 14 || (packet[0] & 0xc0) != 0x80 || (packet[1] & 0x7f) != 96) continue;
        const size_t start = 12 + 4 * (packet[0] & 0x0f);
        if (start >= packet.size()) continue;
        const int type = packet[start] & 0x1f;
        if (type == 7) return Packet(packet.begin() + static_cast<long>(start), packet.end());
        for (size_t at = start + 1; type == 24 && at + 2 < packet.size();) {
            const size_t size = (size_t(packet[at]) << 8) | packet[at + 1];
            if (at + 2 + size > packet.size()) break;
            if ((packet[at + 2] & 0x1f) == 7) {
                const auto nal = packet.begin() + static_cast<long>(at + 2);
                return Packet(nal, nal + static_cast<long>(size));
            }
            at += 2 + size;
        }
    }
    return {};
}

bool contains(const Packet& haystack, const Packet& needle) {
    return !needle.empty() &&
           std::search(haystack.begin(), haystack.end(), needle.begin(), needle.end()) != haystack.end();
}

class MediaSecurity : public MediaCast {
protected:
    // A UDP cast whose video goes through `relay`'s port to a fixed receiver port.
    std::string startRelayedCast(ReceiverPipeline& receiver, SenderPipeline& sender, UdpRelay& relay,
                                 uint16_t videoPort, bool plain) {
        ReceiverConfig receiving = receiverConfig();
        receiving.videoPort = videoPort;
        SenderConfig sending = senderConfig();
        sending.videoPort = relay.port();
        if (plain) {
            receiving.allowPlain = sending.allowPlain = true;
            receiving.receiveKey.clear();
            receiving.sendKey.clear();
            sending.sendKey.clear();
            sending.receiveKey.clear();
        }
        return startCast(receiver, sender, MediaTransport::Udp, sending, receiving);
    }
};

TEST_F(MediaSecurity, WrongKeyShowsNothingAndSaysSo) {
    for (MediaTransport transport : {MediaTransport::Udp, MediaTransport::Tcp, MediaTransport::Srt}) {
        SCOPED_TRACE(zv::media::transportName(transport));
        std::mutex mutex;
        std::vector<std::string> errors;
        zv::media::ReceiverCallbacks callbacks;
        callbacks.error = [&](const std::string& error) {
            std::lock_guard<std::mutex> lock(mutex);
            errors.push_back(error);
        };
        ReceiverPipeline receiver(callbacks);
        SenderPipeline sender;
        ReceiverConfig receiving = receiverConfig();
        receiving.receiveKey = mediaKey(0x33);  // another cast's
        ASSERT_EQ(startCast(receiver, sender, transport, senderConfig(), receiving), "");
        EXPECT_TRUE(waitFor(
            [&] {
                std::lock_guard<std::mutex> lock(mutex);
                return !errors.empty();
            },
            15s));
        {
            std::lock_guard<std::mutex> lock(mutex);
            ASSERT_FALSE(errors.empty());
            EXPECT_NE(errors.front().find("fail authentication"), std::string::npos) << errors.front();
        }
        const auto stats = receiver.statistics();
        EXPECT_GT(stats.packetsRejected, 0u);
        EXPECT_EQ(stats.framesDecoded, 0u);
        EXPECT_TRUE(receiver.latestFrame().isNull());
        sender.stop();
        receiver.stop();
    }
}

TEST_F(MediaSecurity, InjectedRtpNeverReachesTheDecoder) {
    std::atomic<int> errors{0};
    zv::media::ReceiverCallbacks callbacks;
    callbacks.error = [&](const std::string&) { ++errors; };
    ReceiverPipeline receiver(callbacks);
    SenderPipeline sender;
    const uint16_t videoPort = zv::media::pickFreeUdpPort();
    UdpRelay relay(videoPort);
    ASSERT_EQ(startRelayedCast(receiver, sender, relay, videoPort, false), "");
    ASSERT_TRUE(waitFor([&] { return showsBlocks(receiver.latestFrame(), kBlocks); }, 15s));
    const std::vector<Packet> seen = relay.packets();
    ASSERT_FALSE(seen.empty());
    const uint32_t ssrc = ssrcOf(seen.back());
    const uint16_t seq = seqOf(seen.back());
    const auto before = receiver.statistics();
    EXPECT_EQ(before.packetsRejected, 0u);

    // From the peer's address (another socket): the cast's SSRC with the
    // next sequence numbers, then streams of their own. From elsewhere: the same.
    const int local = loopbackSocket("127.0.0.1");
    const int stranger = loopbackSocket("127.0.0.2");
    ASSERT_GE(local, 0);
    ASSERT_GE(stranger, 0);
    constexpr int kEach = 20;
    for (int i = 1; i <= kEach; ++i) {
        sendTo(local, videoPort, forgedRtp(ssrc, static_cast<uint16_t>(seq + i)));
        sendTo(local, videoPort, forgedRtp(0x5eed0000u + static_cast<uint32_t>(i), static_cast<uint16_t>(i)));
        sendTo(stranger, videoPort, forgedRtp(ssrc, static_cast<uint16_t>(seq + kEach + i)));
    }
    close(local);
    close(stranger);
    EXPECT_TRUE(waitFor([&] { return receiver.statistics().packetsFromOthers >= kEach; }, 5s));
    EXPECT_TRUE(waitFor([&] { return receiver.statistics().packetsRejected >= 2 * kEach; }, 5s));
    // Each forged packet dropped where it was checked, nothing else: none got further.
    const auto after = receiver.statistics();
    EXPECT_EQ(after.packetsFromOthers, static_cast<uint64_t>(kEach));
    EXPECT_EQ(after.packetsRejected, static_cast<uint64_t>(2 * kEach));

    // The cast goes on undisturbed.
    drawBlocks(s_xvfb->connection(), kSwapped);
    EXPECT_TRUE(waitFor([&] { return showsBlocks(receiver.latestFrame(), kSwapped); }, 10s));
    EXPECT_EQ(receiver.statistics().packetsLost, 0u);
    EXPECT_EQ(errors.load(), 0);
}

TEST_F(MediaSecurity, CapturedStreamHoldsNoH264InTheClear) {
    // The same picture plain first: the check finds the stream's SPS there.
    Packet sps;
    {
        ReceiverPipeline receiver;
        SenderPipeline sender;
        const uint16_t videoPort = zv::media::pickFreeUdpPort();
        UdpRelay relay(videoPort);
        ASSERT_EQ(startRelayedCast(receiver, sender, relay, videoPort, true), "");
        ASSERT_TRUE(waitFor([&] { return showsBlocks(receiver.latestFrame(), kBlocks); }, 15s));
        EXPECT_FALSE(receiver.statistics().encrypted);
        sps = findSps(relay.packets());
        ASSERT_GE(sps.size(), 8u) << "no SPS in the plain capture";
    }
    ReceiverPipeline receiver;
    SenderPipeline sender;
    const uint16_t videoPort = zv::media::pickFreeUdpPort();
    UdpRelay relay(videoPort);
    ASSERT_EQ(startRelayedCast(receiver, sender, relay, videoPort, false), "");
    ASSERT_TRUE(waitFor([&] { return showsBlocks(receiver.latestFrame(), kBlocks); }, 15s));
    const size_t shown = relay.packets().size();  // the first key frame, SPS and all, is among them
    sender.requestKeyFrame();  // and one more, with a new picture so frames flow at once
    drawBlocks(s_xvfb->connection(), kSwapped);
    ASSERT_TRUE(waitFor([&] { return relay.packets().size() > shown && showsBlocks(receiver.latestFrame(), kSwapped); },
                        15s));
    // Not findSps on the capture: one ciphertext packet in 32 starts with a
    // byte that reads as NAL type 7. The plain cast's exact SPS is the check.
    const std::vector<Packet> captured = relay.packets();
    const Packet startCode = {0x00, 0x00, 0x01, 0x67};
    for (const Packet& packet : captured) {
        ASSERT_FALSE(contains(packet, sps)) << "the SPS in the clear";
        ASSERT_FALSE(contains(packet, startCode)) << "an Annex B SPS in the clear";
    }
}

}  // namespace
