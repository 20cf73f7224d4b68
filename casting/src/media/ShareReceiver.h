// The PC's receiving end of a reverse screen: takes the panel's SRTP video
// (H.264) and sound (Opus) on UDP and hands out whole encoded units, not
// pictures: the player (Dexo_) decodes and draws them.
//
//   video: udpsrc (peer filter) ─▶ srtpdec ─▶ rtpjitterbuffer ─▶ rtph264depay ─▶
//          h264parse (SPS/PPS with every key frame) ─▶ appsink (access units)
//   sound: udpsrc (peer filter) ─▶ srtpdec ─▶ rtpjitterbuffer ─▶ rtpopusdepay ─▶ appsink
//   RTCP:  the panel's sender reports are taken and dropped (key frames are
//          asked for on the control channel)
//
// The ports are bound by reserve() before the panel is asked (ShareRequest
// names them); start() builds the pipeline on them once the answer gives
// the share id the keys come from.
//
// Threads: reserve(), start() and stop() belong to the owner's thread. The
// unit callback comes on a streaming thread (video and sound on two), the
// error callback on a streaming thread; never call stop() from them.
// statistics() from any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace zv::media {

struct ShareUnit {
    int kind = 1;          // 1 video access unit (Annex B), 2 Opus packet
    bool keyFrame = false;
    bool discontinuity = false;  // something was lost before it
    int64_t ptsUs = 0;
    const uint8_t* data = nullptr;
    size_t size = 0;
};

struct ShareReceiverConfig {
    std::vector<uint8_t> receiveKey;  // the panel's media: mediaKey(share, 2), 44 bytes
    std::string peerAddress;          // the panel; media from elsewhere are dropped
    bool audio = true;
    int latencyMs = 40;               // the jitter buffer's longest wait for a missing packet
};

struct ShareReceiverPorts {
    uint16_t video = 0, audio = 0, rtcp = 0;
};

struct ShareReceiverStatistics {
    uint64_t videoUnits = 0, audioUnits = 0, bytes = 0, packetsRejected = 0, packetsFromOthers = 0;
    double bitrateKbps = 0.0, fps = 0.0;
    int delayMs = 0;  // the receiving side's share of the delay
};

class ShareReceiver {
public:
    using UnitCallback = std::function<void(const ShareUnit& unit)>;
    using ErrorCallback = std::function<void(const std::string& error)>;

    ShareReceiver(UnitCallback units, ErrorCallback error);
    ~ShareReceiver();
    ShareReceiver(const ShareReceiver&) = delete;
    ShareReceiver& operator=(const ShareReceiver&) = delete;

    // Binds the three UDP ports; "" or why not.
    std::string reserve();
    ShareReceiverPorts ports() const;
    std::string start(const ShareReceiverConfig& config);
    void stop();
    bool isRunning() const;
    ShareReceiverStatistics statistics() const;

    struct Impl;

private:
    std::unique_ptr<Impl> m_impl;
};

}  // namespace zv::media
