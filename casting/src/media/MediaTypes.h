// Types shared by the sender (casting library) and the receiver (panel).
#pragma once

#include <string>

namespace zv::media {

// How the media travel. The values are the protocol's transport numbers
// (ProtocolType: UDP 0, TCP 1, BRX 2).
enum class MediaTransport : int {
    Udp = 0,  // RTP over UDP, with RTCP feedback and retransmission (RFC 4588)
    Tcp = 1,  // RTP over one TCP connection per stream (RFC 4571 framing)
    Srt = 2,  // RTP over SRT, AES-encrypted with a per-cast passphrase
};

inline const char* transportName(MediaTransport transport) {
    switch (transport) {
        case MediaTransport::Udp: return "udp";
        case MediaTransport::Tcp: return "tcp";
        case MediaTransport::Srt: return "srt";
    }
    return "unknown";
}

// The control channel's text names ("udp", "tcp", "brx"; "srt" also accepted).
inline bool transportFromName(const std::string& name, MediaTransport* transport) {
    if (name == "udp") *transport = MediaTransport::Udp;
    else if (name == "tcp") *transport = MediaTransport::Tcp;
    else if (name == "brx" || name == "srt") *transport = MediaTransport::Srt;
    else return false;
    return true;
}

// Which H.264 encoders come first (EncoderChoice.h).
enum class EncoderPreference : int {
    HardwarePreferred = 0,  // the values are CodingMode's
    SoftwarePreferred = 1,
};

// RTP payload types used on every transport.
constexpr int kVideoPayloadType = 96;
constexpr int kVideoRtxPayloadType = 97;
constexpr int kAudioPayloadType = 111;

// Largest RTP packet: UDP keeps well under a 1500-byte Ethernet MTU; SRT
// carries at most 1316 bytes per message in live mode.
constexpr int kRtpMtuUdp = 1400;
constexpr int kRtpMtuSrt = 1316;

}  // namespace zv::media
