// The panel's side of a cast: receives RTP (UDP, TCP or SRT), decodes H.264
// and hands out the pictures as QImage (Format_RGB32), plus optional sound
// played on the panel's default output.
//
//   UDP: udpsrc ─▶ rtpbin (srtpdec, jitter buffer, NACK + RFC 4588
//        retransmission, key-frame requests) ─▶ rtph264depay ─▶ decoder ─▶
//        videoconvert ─▶ appsink
//        RTCP: one socket both ways (srtpenc), feedback to the sender's RTCP port
//   TCP: tcpserversrc ─▶ rtpstreamdepay ─▶ srtpdec ─▶ rtpjitterbuffer ─▶ …   (RFC 4571)
//   SRT: srtsrc (listener, AES-256) ─▶ srtpdec ─▶ rtpjitterbuffer ─▶ …
//   sound (own pipeline): … ─▶ srtpdec ─▶ rtpopusdepay ─▶ opusdec ─▶ the default output
//        (PulseAudio, else ALSA, as autoaudiosink would pick; a fakesink when
//        the panel has no sound device, said once in the log)
//
// Only the session's peer is listened to: UDP packets from any other address
// are dropped at the socket's element, SRT callers from elsewhere refused,
// and every packet must pass SRTP authentication (AES-256-GCM) with the
// cast's key before rtpbin, a jitter buffer or a depayloader sees it; an
// injected packet never reaches the decoder. Media that keep failing
// authentication while none pass (a wrong key) end the cast with an error.
//
// The ports are chosen by start() when the config leaves them 0 and are
// readable afterwards (ports()) for castAccepted. The video sink does not
// synchronise to the clock: every picture is shown as soon as it is decoded.
//
// Statistics (statistics(), and the stats callback every second):
//   bitrateKbps  video bytes received (RTP, retransmissions included) over the last second
//   fps          pictures decoded over the last second
//   delayMs      mean, over the pictures of the last second, of the time from
//                the arrival of a picture's packets at the panel (the jitter
//                buffer's arrival-time estimate for its RTP timestamp) to
//                the decoded picture being ready; with SRT the SRT latency is
//                added, since SRT holds packets for that long before
//                delivering them. It does not include the sender's capture
//                and encoding or the LAN transit (see docs/performance.md
//                for glass-to-glass figures).
//   packetsRejected   packets that failed authentication (or were refused a key)
//   packetsFromOthers UDP packets from other addresses, and refused SRT callers
//   lossPercent  packets never recovered (lost after retransmission, or
//                dropped as too late) over the packets expected, last second
//
// Threads: start() and stop() belong to the owner's thread. Callbacks come
// on pipeline threads: frame on the streaming thread (keep it short; hand
// the image to the GUI with a queued call), stats and stalled on the
// receiver's monitor thread, error on a streaming thread. Never call stop()
// from a callback. Everything else may be called from any thread.
#pragma once

#include <QImage>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "media/MediaTypes.h"

namespace zv::media {

struct ReceiverConfig {
    MediaTransport transport = MediaTransport::Udp;
    std::string listenAddress = "0.0.0.0";
    uint16_t videoPort = 0;      // 0: any free port (see ports())
    uint16_t audioPort = 0;      // 0: any free port, when audio is on
    uint16_t rtcpPort = 0;       // UDP: our RTCP port; 0: any free port
    std::string senderHost;      // UDP: where RTCP feedback goes (the client's address)
    uint16_t senderRtcpPort = 0; // UDP: castRequest.rtcpPort; 0: no feedback (no retransmission)
    std::string srtPassphrase;   // SRT: derived by the session layer (10 to 79 characters)

    // Media keys (set by the session layer from its TLS exporter), one per
    // cast and direction, kMediaKeyBytes = 44 each (AES-256-GCM: 32 key + 12
    // salt; media/SrtpKeying.h). receiveKey: checks and decrypts all the PC
    // sends (video, retransmissions, sound, its RTCP reports; every
    // transport) = the PC's sendKey. sendKey: our SRTCP feedback (UDP) = the
    // PC's receiveKey. Empty keys make start() fail, unless allowPlain.
    std::vector<uint8_t> receiveKey;
    std::vector<uint8_t> sendKey;
    // Takes plain RTP when both keys are empty. Bench and tests only (the
    // benchmark's plain rows, clear-text checks): real casts always pass keys.
    bool allowPlain = false;
    // The session peer's IP address (the control connection's remote
    // address; ::ffff:a.b.c.d is taken as a.b.c.d): media from anywhere else
    // are dropped. Empty: senderHost. Both empty: start() fails, unless allowPlain.
    std::string peerAddress;
    int latencyMs = 30;          // SRT latency and the jitter buffer's longest wait for a missing packet
                                 // (UDP with feedback: at least 100 ms, time for a retransmission; no
                                 // picture waits while packets arrive in order)
    bool audio = false;
    // An X window to draw into (the view's native child): the sink scales
    // to it (media/OverlaySink.h) and no QImage is made per picture: the
    // frame callback gets a null image (the moment a picture is drawn, not
    // its pixels); latestFrame() then reads the sink's
    // last picture (at the window's size on the software path). 0: pictures
    // go to the frame callback and latestFrame() as QImage.
    unsigned long videoWindow = 0;
    int stallSeconds = 5;        // the stalled callback after this long without media
};

struct ReceiverPorts {
    uint16_t video = 0;
    uint16_t audio = 0;  // 0 without sound
    uint16_t rtcp = 0;   // UDP only
};

struct ReceiverStatistics {
    double bitrateKbps = 0.0;
    double fps = 0.0;
    int delayMs = 0;
    double lossPercent = 0.0;
    uint64_t framesDecoded = 0;
    uint64_t bytesReceived = 0;
    uint64_t packetsLost = 0;           // since start, never recovered
    uint64_t packetsRetransmitted = 0;  // since start, asked for and received again (UDP)
    int width = 0;                      // of the last picture
    int height = 0;
    uint64_t audioBytes = 0;
    bool audioPlaying = false;          // sound arrives and goes to a real device
    uint64_t packetsRejected = 0;       // failed authentication, video and sound
    uint64_t packetsFromOthers = 0;     // not from the peer's address
    bool encrypted = false;
};

struct ReceiverCallbacks {
    std::function<void(const QImage& frame)> frame;                 // streaming thread
    std::function<void(const ReceiverStatistics& stats)> stats;     // monitor thread, every second
    std::function<void(int secondsWithoutMedia)> stalled;           // monitor thread, every stallSeconds while stalled
    std::function<void(const std::string& error)> error;            // streaming thread
    std::function<void(int width, int height)> pictureSize;         // window mode: the stream's size changed (streaming thread)
};

class ReceiverPipeline {
public:
    explicit ReceiverPipeline(ReceiverCallbacks callbacks = {});
    ~ReceiverPipeline();  // stops
    ReceiverPipeline(const ReceiverPipeline&) = delete;
    ReceiverPipeline& operator=(const ReceiverPipeline&) = delete;

    // Listens on the ports and starts decoding when media arrive. Returns an
    // empty string, or why it cannot (nothing is left running then).
    std::string start(const ReceiverConfig& config);
    // Stops everything; afterwards no thread or element of the cast remains.
    void stop();
    bool isRunning() const;

    // The ports in use, after start().
    ReceiverPorts ports() const;
    // The newest decoded picture (null before the first one). The one-slot
    // buffer always holds the latest: a slow reader skips pictures, never
    // falls behind.
    QImage latestFrame() const;
    ReceiverStatistics statistics() const;
    // Window mode: the window changed size (the software path rescales); any thread.
    void windowResized();
    // While the sender is paused (castPause) no stalled notices are given.
    void setSenderPaused(bool paused);

    struct Impl;

private:
    std::unique_ptr<Impl> m_impl;
};

}  // namespace zv::media
