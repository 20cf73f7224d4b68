// The receiving end of one RTP stream without rtpbin (TCP, SRT, and sound
// over UDP), shared by every receiving pipeline:
//   UDP: udpsrc (peer filter) ─▶ [srtpdec]
//   TCP: tcpserversrc ─▶ RFC 4571 caps ─▶ rtpstreamdepay ─▶ [srtpdec]
//   SRT: srtsrc (listener, AES-256, peer filter) ─▶ caps ─▶ [srtpdec]
// The caller links `last` on (jitter buffer, depayloader...).
#pragma once

#include <gst/gst.h>

#include <cstdint>
#include <string>

#include "media/GstHandles.h"
#include "media/MediaTypes.h"

namespace zv::media {

class PeerFilter;
class SrtpDecoder;

struct StreamSourceSpec {
    MediaTransport transport = MediaTransport::Udp;
    std::string listenAddress = "0.0.0.0";
    uint16_t port = 0;         // 0: any free port
    std::string rtpCaps;       // "application/x-rtp,..." of the stream as it is after srtpdec
    std::string srtPassphrase;
    int latencyMs = 30;        // SRT latency
    std::string prefix;        // element names: <prefix>-src, <prefix>-caps, ...
    int udpBufferBytes = 0;    // UDP receive buffer; 0: the system's
};

struct StreamSource {
    ElementPtr source;             // udpsrc, tcpserversrc or srtsrc
    GstElement* last = nullptr;    // link from here (linkOn)
    const char* lastPad = "src";
    uint16_t srtPort = 0;          // SRT: the port chosen now
};

// Builds into `pipeline`. decoder: null for plain RTP, else a created
// SrtpDecoder whose element is added here. peer: attached when active.
std::string buildStreamSource(GstElement* pipeline, const StreamSourceSpec& spec, PeerFilter& peer,
                              SrtpDecoder* decoder, StreamSource* out);

// last ─▶ next.
bool linkOn(const StreamSource& source, GstElement* next);

// The port a source listens on: UDP once READY, TCP once PLAYING.
uint16_t listeningPort(const StreamSource& source, MediaTransport transport);

// "application/x-rtp,..." as it travels: x-srtp when encrypted, with
// "-stream" inside RFC 4571 framing.
std::string wireCaps(const std::string& rtpCaps, bool encrypted, bool framed);

}  // namespace zv::media
