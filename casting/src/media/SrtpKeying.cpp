#include "media/SrtpKeying.h"

#include "casting/Log.h"
#include "media/PipelineSupport.h"

namespace zv::media {
namespace {

constexpr const char* kCipher = "aes-256-gcm";
constexpr const char* kAuth = "null";  // GCM carries its own tag
constexpr guint kReplayWindowPackets = 1024;

BufferPtr keyBuffer(const std::vector<uint8_t>& key) {
    return BufferPtr(gst_buffer_new_memdup(key.data(), key.size()));
}

// The SSRC of an RTP packet (payload types outside 64..80, as srtpdec tells
// them apart) or of the first RTCP packet's sender.
bool packetSsrc(GstBuffer* buffer, guint* ssrc) {
    guint8 head[12];
    const gsize size = gst_buffer_extract(buffer, 0, head, sizeof head);
    if (size < 8) return false;
    const int type = head[1] & 0x7f;
    const bool rtp = type < 64 || type > 80;
    const gsize at = rtp ? 8 : 4;
    if (size < at + 4) return false;
    *ssrc = (guint(head[at]) << 24) | (guint(head[at + 1]) << 16) | (guint(head[at + 2]) << 8) | head[at + 3];
    return true;
}

GstElement* onRequestElement(GstElement*, guint session, gpointer element) {
    // rtpbin keeps one reference per answer, ours stays with the pipeline's owner.
    return session == 0 ? GST_ELEMENT(gst_object_ref(element)) : nullptr;
}

}  // namespace

std::string checkMediaKeys(const std::vector<uint8_t>& sendKey, const std::vector<uint8_t>& receiveKey,
                           bool allowPlain, bool* encrypted) {
    *encrypted = false;
    if (sendKey.empty() && receiveKey.empty()) {
        if (allowPlain) return {};
        return "no media keys for this cast: media are never sent or taken unencrypted";
    }
    if (sendKey.size() != kMediaKeyBytes || receiveKey.size() != kMediaKeyBytes) {
        return "media keys must have " + std::to_string(kMediaKeyBytes) + " bytes (sending key " +
               std::to_string(sendKey.size()) + ", receiving key " + std::to_string(receiveKey.size()) + ")";
    }
    *encrypted = true;
    return {};
}

ElementPtr makeSrtpEncoder(const std::vector<uint8_t>& key, const std::string& name, std::string* error) {
    ElementPtr encoder = makeRequiredElement("srtpenc", name, error);
    if (!encoder) return encoder;
    BufferPtr buffer = keyBuffer(key);
    g_object_set(encoder.get(), "key", buffer.get(), nullptr);
    setPropertyText(encoder.get(), "rtp-cipher", kCipher);
    setPropertyText(encoder.get(), "rtcp-cipher", kCipher);
    setPropertyText(encoder.get(), "rtp-auth", kAuth);
    setPropertyText(encoder.get(), "rtcp-auth", kAuth);
    return encoder;
}

static bool prepareSrtpEncoderForRtpbin(GstElement* encoder) {
    // rtpbin looks for the encoder's source pads before it links anything;
    // srtpenc makes each when its sink pad is asked for.
    for (const char* name : {"rtp_sink_0", "rtcp_sink_0"}) {
        GstPad* pad = gst_element_request_pad_simple(encoder, name);
        if (pad == nullptr) return false;
        gst_object_unref(pad);
    }
    return true;
}

bool linkThrough(GstElement* from, GstElement* middle, GstElement* to) {
    if (middle == nullptr) return gst_element_link(from, to);
    const bool encoder = g_str_has_prefix(GST_OBJECT_NAME(gst_element_get_factory(middle)), "srtpenc");
    return gst_element_link_pads(from, "src", middle, encoder ? "rtp_sink_0" : "rtp_sink") &&
           gst_element_link_pads(middle, encoder ? "rtp_src_0" : "rtp_src", to, "sink");
}

void useSrtpInRtpbin(GstElement* rtpbin, GstElement* encoder, GstElement* decoder) {
    if (encoder != nullptr && !prepareSrtpEncoderForRtpbin(encoder)) {
        ZV_LOG(ERROR) << " srtpenc gave no pads for rtpbin";
    }
    if (encoder != nullptr) {
        g_signal_connect(rtpbin, "request-rtp-encoder", G_CALLBACK(&onRequestElement), encoder);
        g_signal_connect(rtpbin, "request-rtcp-encoder", G_CALLBACK(&onRequestElement), encoder);
    }
    if (decoder != nullptr) {
        g_signal_connect(rtpbin, "request-rtp-decoder", G_CALLBACK(&onRequestElement), decoder);
        g_signal_connect(rtpbin, "request-rtcp-decoder", G_CALLBACK(&onRequestElement), decoder);
    }
}

std::string SrtpDecoder::create(const std::vector<uint8_t>& key, const std::string& name) {
    reset();
    std::string error;
    ElementPtr element = makeRequiredElement("srtpdec", name, &error);
    if (!element) return error;
    auto state = std::make_shared<State>();
    state->key = key;
    g_object_set(element.get(), "replay-window-size", kReplayWindowPackets, nullptr);
    // The handlers keep the state alive as long as the element can call them.
    g_signal_connect_data(element.get(), "request-key", G_CALLBACK(&SrtpDecoder::onRequestKey),
                          new std::shared_ptr<State>(state),
                          [](gpointer data, GClosure*) { delete static_cast<std::shared_ptr<State>*>(data); },
                          GConnectFlags(0));
    for (const char* padName : {"rtp_src", "rtcp_src"}) {
        PadPtr pad(gst_element_get_static_pad(element.get(), padName));
        gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_BUFFER, &SrtpDecoder::onAuthentic,
                          new std::shared_ptr<State>(state),
                          [](gpointer data) { delete static_cast<std::shared_ptr<State>*>(data); });
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_element = std::move(element);
    m_state = std::move(state);
    return {};
}

void SrtpDecoder::reset() {
    ElementPtr element;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        element = std::move(m_element);
        m_state.reset();
    }
}

bool SrtpDecoder::anyAuthentic() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_state && m_state->authentic.load() > 0;
}

// Streaming thread, with srtpdec's object lock held: nothing here may call srtpdec.
GstCaps* SrtpDecoder::onRequestKey(GstElement*, guint ssrc, gpointer data) {
    State& state = **static_cast<std::shared_ptr<State>*>(data);
    {
        std::lock_guard<std::mutex> lock(state.mutex);
        if (state.proven.count(ssrc) == 0 && state.unproven.count(ssrc) == 0) {
            if (state.unproven.size() >= kMaxUnproven) {
                ++state.refused;
                return nullptr;
            }
            state.unproven[ssrc] = std::chrono::steady_clock::now();
        }
    }
    BufferPtr key = keyBuffer(state.key);
    return gst_caps_new_simple("application/x-srtp", "srtp-key", GST_TYPE_BUFFER, key.get(), "srtp-cipher",
                               G_TYPE_STRING, kCipher, "srtp-auth", G_TYPE_STRING, kAuth, "srtcp-cipher",
                               G_TYPE_STRING, kCipher, "srtcp-auth", G_TYPE_STRING, kAuth, nullptr);
}

GstPadProbeReturn SrtpDecoder::onAuthentic(GstPad*, GstPadProbeInfo* info, gpointer data) {
    State& state = **static_cast<std::shared_ptr<State>*>(data);
    state.authentic.fetch_add(1);
    guint ssrc = 0;
    if (!packetSsrc(GST_PAD_PROBE_INFO_BUFFER(info), &ssrc) || state.lastProven.load() == ssrc) return GST_PAD_PROBE_OK;
    std::lock_guard<std::mutex> lock(state.mutex);
    if (state.unproven.erase(ssrc) > 0) state.proven[ssrc] = true;
    state.lastProven = ssrc;
    return GST_PAD_PROBE_OK;
}

uint64_t SrtpDecoder::rejected() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_element || !m_state) return 0;
    GstStructure* raw = nullptr;
    g_object_get(m_element.get(), "stats", &raw, nullptr);
    StructurePtr stats(raw);
    const uint64_t dropped = stats ? structureUint(stats.get(), "recv-drop-count") : 0;
    return dropped + m_state->refused.load();
}

void SrtpDecoder::forgetUnproven(std::chrono::milliseconds age) {
    ElementPtr element;
    std::shared_ptr<State> state;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        element = addRef(m_element.get());
        state = m_state;
    }
    if (!element || !state) return;
    std::vector<guint> stale;
    {
        std::lock_guard<std::mutex> lock(state->mutex);
        const auto horizon = std::chrono::steady_clock::now() - age;
        for (auto it = state->unproven.begin(); it != state->unproven.end();) {
            if (it->second <= horizon) {
                stale.push_back(it->first);
                it = state->unproven.erase(it);
            } else {
                ++it;
            }
        }
    }
    for (guint ssrc : stale) g_signal_emit_by_name(element.get(), "remove-key", ssrc);
    if (!stale.empty()) ZV_LOG(WARNING) << " forgot " << stale.size() << " stream(s) that never passed authentication";
}

}  // namespace zv::media
