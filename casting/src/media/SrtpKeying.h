// SRTP for the media streams: AES-256-GCM for RTP and RTCP (the GCM tag
// authenticates; no separate HMAC), one 44-byte master key (32 key + 12
// salt) per cast and direction, given by the session layer (the TLS
// exporter). srtpenc encrypts what we send with our sending key; srtpdec
// checks and decrypts what the peer sends with our receiving key.
//
// With rtpbin, useSrtpInRtpbin() hands both to its request-rtp-encoder /
// request-rtcp-encoder / request-rtp-decoder / request-rtcp-decoder signals:
// the encoder sits after the RTP session (retransmissions, made before the
// session, leave encrypted too), the decoder before it (nothing unchecked
// reaches the jitter buffer). Without rtpbin (TCP framing, SRT, sound) the
// elements go straight into the chain with linkThrough().
#pragma once

#include <gst/gst.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "media/GstHandles.h"

namespace zv::media {

constexpr size_t kMediaKeyBytes = 44;  // AES-256-GCM: 32 key + 12 salt
constexpr int kSrtpOverheadBytes = 16;  // the GCM tag SRTP adds to every RTP packet

// Whether a cast's keys allow it to start: both keys of kMediaKeyBytes
// (*encrypted = true), or both empty with allowPlain (*encrypted = false).
// Otherwise a readable reason; never a silent fallback to plain media.
std::string checkMediaKeys(const std::vector<uint8_t>& sendKey, const std::vector<uint8_t>& receiveKey,
                           bool allowPlain, bool* encrypted);

// srtpenc keyed with `key`. Empty and *error set when srtpenc is missing.
ElementPtr makeSrtpEncoder(const std::vector<uint8_t>& key, const std::string& name, std::string* error);

// Links from ─▶ middle ─▶ to, or from ─▶ to when middle is null. middle is
// srtpenc (request pad rtp_sink_0 / rtp_src_0) or srtpdec (rtp_sink / rtp_src).
bool linkThrough(GstElement* from, GstElement* middle, GstElement* to);

// Gives rtpbin our encoder and decoder for session 0 (either may be null).
// Connect before requesting rtpbin's pads: it asks while making them.
void useSrtpInRtpbin(GstElement* rtpbin, GstElement* encoder, GstElement* decoder);

// srtpdec with the cast's receiving key. srtpdec asks for a key for every
// new SSRC it sees; it gets the cast key, so a packet with any SSRC is
// checked, and one that fails the check is dropped. SSRCs keyed but never
// authentic (injected packets) are few at a time: past kMaxUnproven the
// key is refused (the packet dropped unkeyed), and forgetUnproven() drops
// the keys of those that never proved themselves.
class SrtpDecoder {
public:
    static constexpr size_t kMaxUnproven = 8;

    SrtpDecoder() = default;
    SrtpDecoder(const SrtpDecoder&) = delete;
    SrtpDecoder& operator=(const SrtpDecoder&) = delete;

    // Makes srtpdec; "" or why not. create() and reset(): the owner's thread.
    std::string create(const std::vector<uint8_t>& key, const std::string& name);
    GstElement* element() const { return m_element.get(); }
    void reset();

    // Any thread:
    // Packets dropped: failed authentication (or replayed), or an SSRC refused a key.
    uint64_t rejected() const;
    // Whether any packet has passed authentication since create().
    bool anyAuthentic() const;
    // Forgets SSRCs keyed over `age` ago that never passed authentication.
    // Not from a streaming thread of this decoder.
    void forgetUnproven(std::chrono::milliseconds age = std::chrono::seconds(2));

private:
    struct State {
        std::vector<uint8_t> key;
        std::mutex mutex;
        std::map<guint, std::chrono::steady_clock::time_point> unproven;  // keyed, not yet authentic
        std::map<guint, bool> proven;
        std::atomic<uint64_t> refused{0};
        std::atomic<uint64_t> authentic{0};
        std::atomic<guint> lastProven{0};  // spares the lock for the stream just seen
    };
    static GstCaps* onRequestKey(GstElement* decoder, guint ssrc, gpointer state);
    static GstPadProbeReturn onAuthentic(GstPad* pad, GstPadProbeInfo* info, gpointer state);

    mutable std::mutex m_mutex;  // m_element and m_state against reset()
    ElementPtr m_element;
    std::shared_ptr<State> m_state;
};

}  // namespace zv::media
