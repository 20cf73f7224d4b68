// The sending side of a cast: screen or window capture, H.264 encoding and
// RTP over UDP, TCP or SRT to the panel, plus optional sound (Opus).
//
//   capture thread ─▶ appsrc ─▶ videoscale ─▶ H.264 encoder ─▶ rtph264pay ─▶ transport
//     (X11Capture: DAMAGE-driven grabs, BGRx→I420 of the changed parts)
//   transport  UDP: rtpbin (AVPF, NACK → rtprtxsend, srtpenc/srtpdec) ─▶ udpsink;
//                   RTCP both ways on one socket
//              TCP: srtpenc ─▶ rtpstreampay ─▶ tcpclientsink
//              SRT: srtpenc ─▶ srtsink (caller, AES-256)
//   sound (own pipeline): pulsesrc ─▶ opusenc ─▶ rtpopuspay ─▶ srtpenc ─▶ the same kind of
//                         transport, audio port
//
// Every stream is SRTP (AES-256-GCM, SrtpKeying.h) with the cast's keys;
// SRT adds its own encryption around it. RTCP from anywhere but `host`
// (when it is an IP address) is dropped before it is looked at.
//
// Sizes: width/height 0 send the captured size (a window cast then follows
// the window's size, the panel sees new sizes in-band). A fixed size keeps
// the picture's aspect: it is scaled to fit and padded with black bars, so
// the encoder's size never changes while a window is resized.
//
// Threads: start(), stop() and setAudioEnabled() belong to the owner's
// thread (never call them from the error callback). setPaused(),
// requestKeyFrame() and statistics() may be called from any thread. The
// pipeline runs on threads of its own: the capture thread, GStreamer's
// streaming threads and the encoder's; stop() ends and joins all of them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "media/MediaTypes.h"

namespace zv::media {

class UdpPortReservation;

struct SenderConfig {
    // What is captured.
    std::string displayName;     // X display; empty: $DISPLAY
    unsigned long window = 0;    // 0: the whole screen; otherwise an X11 window id
    int width = 0;               // picture sent; 0 and 0: the captured size (see above)
    int height = 0;
    int fps = 30;                // at most; a still screen sends one frame a second
    int bitrateKbps = 8000;
    bool damageDriven = true;    // capture when the screen changes; false: every frame tick
    EncoderPreference encoderPreference = EncoderPreference::HardwarePreferred;
    std::vector<std::string> encoderCandidates;  // empty: the built-in ranking (EncoderChoice.h)

    // Where the media go.
    MediaTransport transport = MediaTransport::Udp;
    std::string host;            // the panel (IPv4 address or name)
    uint16_t videoPort = 0;      // castAccepted.videoPort

    // UDP: RTCP feedback (NACK for retransmission, key-frame requests). The
    // local port is the one reserveRtcpPort() returned, else rtcpSocket,
    // else localRtcpPort (0: any free port).
    std::shared_ptr<UdpPortReservation> rtcpSocket;
    uint16_t localRtcpPort = 0;
    uint16_t remoteRtcpPort = 0;  // castAccepted.rtcpPort; 0: no feedback, no retransmission

    // Media keys (set by the session layer from its TLS exporter), one per
    // cast and direction, kMediaKeyBytes = 44 each (AES-256-GCM: 32 key + 12
    // salt). sendKey: SRTP/SRTCP of everything this PC sends (video, its
    // retransmissions and RTCP reports, sound; every transport).
    // receiveKey: the panel's SRTCP feedback (UDP: NACK, key-frame requests).
    // Empty keys make start() fail, unless allowPlain.
    std::vector<uint8_t> sendKey;
    std::vector<uint8_t> receiveKey;
    // Sends plain RTP when both keys are empty. Bench and tests only (the
    // benchmark's plain rows, clear-text checks): real casts always pass keys.
    bool allowPlain = false;

    // SRT (BRX): caller mode to the panel's listener, AES-256 on top of SRTP.
    std::string srtPassphrase;   // derived by the session layer (10 to 79 characters)
    int latencyMs = 30;          // SRT latency (castAccepted.latencyMs); keep it low on a LAN

    // Sound.
    bool audio = false;
    uint16_t audioPort = 0;      // castAccepted.audioPort; 0: no sound
    std::string audioDevice = "@DEFAULT_MONITOR@";  // PulseAudio source: the monitor of the default output

    // For tests and benchmarks: drop this fraction (0..1) of the outgoing
    // video packets, retransmissions included (UDP only).
    double simulatedLoss = 0.0;
};

struct SenderStatistics {
    uint64_t framesSent = 0;       // encoded frames
    uint64_t bytesSent = 0;        // video packets as sent (RTP, retransmissions included)
    double fps = 0.0;              // encoded frames over the last second
    double bitrateKbps = 0.0;      // video over the last second
    uint64_t retransmittedPackets = 0;
    uint64_t captureGrabs = 0;     // frames with new pixels (the others repeat the last picture)
    int width = 0;                 // picture sent
    int height = 0;
    bool audioActive = false;
    std::string encoder;           // GStreamer element in use
    bool encrypted = false;        // SRTP (false only with allowPlain and no keys)
};

class SenderPipeline {
public:
    // Called on a pipeline thread (a streaming thread or the capture thread)
    // with a readable reason; post it to your own thread before acting on it.
    using ErrorCallback = std::function<void(const std::string& error)>;

    SenderPipeline();
    ~SenderPipeline();  // stops
    SenderPipeline(const SenderPipeline&) = delete;
    SenderPipeline& operator=(const SenderPipeline&) = delete;

    void setErrorCallback(ErrorCallback callback);  // before start()

    // UDP: binds the local RTCP port now, for castRequest.rtcpPort, before
    // the panel's answer allows start(). 0 when no port could be bound.
    // Kept until stop().
    uint16_t reserveRtcpPort();

    // Builds and starts the pipelines. Returns an empty string, or why the
    // cast cannot start (nothing is left running then). Sound that cannot
    // start (no sound server) does not fail the cast: it is logged once.
    std::string start(const SenderConfig& config);
    // Stops everything; afterwards no thread or element of the cast remains.
    void stop();
    bool isRunning() const;

    // Paused: nothing is captured or sent; the panel keeps the last picture.
    void setPaused(bool paused);
    bool isPaused() const;
    // Sound on or off while casting (castVoice). Turning it on starts the
    // sound pipeline if it is not running (needs audioPort).
    void setAudioEnabled(bool enabled);
    bool audioActive() const;
    // The next frame is a key frame (sent at once even if nothing changed).
    void requestKeyFrame();

    SenderStatistics statistics() const;
    // UDP: the local RTCP port in use.
    uint16_t localRtcpPort() const;

    struct Impl;

private:
    std::unique_ptr<Impl> m_impl;
};

}  // namespace zv::media
