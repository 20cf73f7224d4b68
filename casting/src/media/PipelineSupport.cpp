#include "media/PipelineSupport.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>

#include "casting/Log.h"
#include "media/MediaTypes.h"

namespace zv::media {

std::string describeMessage(GstMessage* message) {
    if (message == nullptr) return {};
    GError* raw = nullptr;
    gchar* rawDetail = nullptr;
    switch (GST_MESSAGE_TYPE(message)) {
        case GST_MESSAGE_ERROR:
            gst_message_parse_error(message, &raw, &rawDetail);
            break;
        case GST_MESSAGE_WARNING:
            gst_message_parse_warning(message, &raw, &rawDetail);
            break;
        default:
            return GST_MESSAGE_TYPE_NAME(message);
    }
    ErrorPtr error(raw);
    GCharPtr detail(rawDetail);
    std::string text = GST_MESSAGE_SRC(message) != nullptr ? GST_OBJECT_NAME(GST_MESSAGE_SRC(message)) : "pipeline";
    text += ": ";
    text += error ? error->message : "unknown error";
    if (detail) {
        // The detail's first line names the source file; the last part is the useful one.
        std::string more = detail.get();
        const auto colon = more.rfind(":\n");
        if (colon != std::string::npos) more = more.substr(colon + 2);
        for (char& c : more) {
            if (c == '\n') c = ' ';
        }
        text += " (" + more + ")";
    }
    return text;
}

void dumpPipelineGraph(GstElement* pipeline, const std::string& name) {
    if (pipeline == nullptr || !GST_IS_BIN(pipeline)) return;
    const char* dir = std::getenv("GST_DEBUG_DUMP_DOT_DIR");
    if (dir == nullptr || *dir == '\0') return;
    GST_DEBUG_BIN_TO_DOT_FILE_WITH_TS(GST_BIN(pipeline), GST_DEBUG_GRAPH_SHOW_ALL, name.c_str());
    ZV_LOG(INFO) << " pipeline graph written to " << dir << " (" << name << ")";
}

bool hasProperty(GstElement* element, const char* property) {
    return element != nullptr && g_object_class_find_property(G_OBJECT_GET_CLASS(element), property) != nullptr;
}

bool setPropertyText(GstElement* element, const char* property, const char* value) {
    if (!hasProperty(element, property)) {
        ZV_LOG(WARNING) << " " << (element ? GST_OBJECT_NAME(element) : "null") << " has no property " << property;
        return false;
    }
    gst_util_set_object_arg(G_OBJECT(element), property, value);
    return true;
}

void BusForwarder::attach(GstElement* pipeline, Handler handler) {
    detach();
    m_handler = std::move(handler);
    m_bus.reset(gst_element_get_bus(pipeline));
    if (m_bus) gst_bus_set_sync_handler(m_bus.get(), &BusForwarder::onMessage, this, nullptr);
}

void BusForwarder::detach() {
    if (m_bus) {
        gst_bus_set_sync_handler(m_bus.get(), nullptr, nullptr, nullptr);
        m_bus.reset();
    }
    m_handler = nullptr;
}

GstBusSyncReply BusForwarder::onMessage(GstBus*, GstMessage* message, gpointer self) {
    auto* forwarder = static_cast<BusForwarder*>(self);
    if (forwarder->m_handler) forwarder->m_handler(message);
    gst_message_unref(message);  // a handler that drops a message owns it
    return GST_BUS_DROP;
}

bool WarningLimiter::admit(const std::string& text, int* suppressed) {
    constexpr auto kInterval = std::chrono::seconds(5);
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto now = std::chrono::steady_clock::now();
    if (text == m_last && now - m_lastTime < kInterval) {
        ++m_suppressed;
        return false;
    }
    *suppressed = m_suppressed;
    m_suppressed = 0;
    m_last = text;
    m_lastTime = now;
    return true;
}

std::string changeState(GstElement* pipeline, GstState state, int timeoutMs,
                        const std::function<std::string()>& firstError) {
    GstStateChangeReturn result = gst_element_set_state(pipeline, state);
    if (result == GST_STATE_CHANGE_ASYNC) {
        result = gst_element_get_state(pipeline, nullptr, nullptr,
                                       static_cast<GstClockTime>(timeoutMs) * GST_MSECOND);
    }
    if (result == GST_STATE_CHANGE_FAILURE) {
        std::string why = firstError ? firstError() : std::string();
        if (why.empty()) why = std::string("could not change to ") + gst_element_state_get_name(state);
        return why;
    }
    if (result == GST_STATE_CHANGE_ASYNC) {
        std::string why = firstError ? firstError() : std::string();
        if (why.empty()) {
            why = std::string("no ") + gst_element_state_get_name(state) + " state within " +
                  std::to_string(timeoutMs) + " ms";
        }
        return why;
    }
    return {};
}

ElementPtr makeRequiredElement(const char* factory, const std::string& name, std::string* error) {
    ElementPtr made = makeElement(factory, name);
    if (!made && error != nullptr && error->empty()) {
        *error = std::string("GStreamer element ") + factory + " is not installed";
    }
    return made;
}

uint64_t structureUint(const GstStructure* structure, const char* field) {
    guint64 value64 = 0;
    guint value = 0;
    if (gst_structure_get_uint64(structure, field, &value64)) return value64;
    if (gst_structure_get_uint(structure, field, &value)) return value;
    return 0;
}

std::string logPipelineMessage(GstMessage* message, GstElement* pipeline, const std::string& dumpName,
                               WarningLimiter& warnings) {
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
        const std::string text = describeMessage(message);
        ZV_LOG(ERROR) << " " << text;
        dumpPipelineGraph(pipeline, dumpName);
        return text;
    }
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_WARNING) {
        const std::string text = describeMessage(message);
        int suppressed = 0;
        if (warnings.admit(text, &suppressed)) {
            ZV_LOG(WARNING) << " " << text
                            << (suppressed > 0 ? " (" + std::to_string(suppressed) + " more like it before)" : "");
        }
    }
    return {};
}

namespace {
GstPadProbeReturn onBytes(GstPad*, GstPadProbeInfo* info, gpointer meter) {
    if ((info->type & GST_PAD_PROBE_TYPE_BUFFER) != 0) {
        static_cast<RateMeter*>(meter)->add(gst_buffer_get_size(GST_PAD_PROBE_INFO_BUFFER(info)));
    } else if ((info->type & GST_PAD_PROBE_TYPE_BUFFER_LIST) != 0) {
        static_cast<RateMeter*>(meter)->add(gst_buffer_list_calculate_size(GST_PAD_PROBE_INFO_BUFFER_LIST(info)));
    }
    return GST_PAD_PROBE_OK;
}
}  // namespace

void countBytes(GstPad* pad, RateMeter* meter) {
    gst_pad_add_probe(pad, static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST),
                      &onBytes, meter, nullptr);
}

GstElement* makeRetransmissionBin(bool sending, ElementPtr* rtxOut) {
    const char* factory = sending ? "rtprtxsend" : "rtprtxreceive";
    GstElement* rtx = gst_element_factory_make(factory, "zv-rtx");
    if (rtx == nullptr) {
        ZV_LOG(WARNING) << " " << factory << " missing: no retransmission";
        return nullptr;
    }
    StructurePtr map(gst_structure_new("application/x-rtp-pt-map", std::to_string(kVideoPayloadType).c_str(),
                                       G_TYPE_UINT, static_cast<guint>(kVideoRtxPayloadType), nullptr));
    g_object_set(rtx, "payload-type-map", map.get(), nullptr);
    // Keep a second of packets: NACKs on a LAN come back within milliseconds.
    if (sending) g_object_set(rtx, "max-size-time", 1000u, "max-size-packets", 0u, nullptr);
    GstElement* bin = gst_bin_new("zv-rtx-bin");
    gst_bin_add(GST_BIN(bin), rtx);
    PadPtr src(gst_element_get_static_pad(rtx, "src"));
    PadPtr sink(gst_element_get_static_pad(rtx, "sink"));
    gst_element_add_pad(bin, gst_ghost_pad_new("src_0", src.get()));
    gst_element_add_pad(bin, gst_ghost_pad_new("sink_0", sink.get()));
    if (rtxOut != nullptr) *rtxOut = addRef(rtx);
    return bin;
}

std::string srtUri(const std::string& host, uint16_t port, bool listener) {
    return "srt://" + host + ":" + std::to_string(port) + (listener ? "?mode=listener" : "?mode=caller");
}

void configureSrt(GstElement* element, const std::string& uri, const std::string& passphrase, int latencyMs) {
    g_object_set(element, "uri", uri.c_str(), "passphrase", passphrase.c_str(), "latency", std::max(0, latencyMs),
                 nullptr);
    setPropertyText(element, "pbkeylen", "32");  // AES-256
}

std::string checkSrtPassphrase(const std::string& passphrase) {
    if (passphrase.size() < 10 || passphrase.size() > 79) return "SRT passphrase must have 10 to 79 characters";
    return {};
}

bool addAndLink(GstElement* bin, const std::vector<GstElement*>& chain) {
    for (GstElement* element : chain) gst_bin_add(GST_BIN(bin), element);
    for (size_t i = 0; i + 1 < chain.size(); ++i) {
        if (!gst_element_link(chain[i], chain[i + 1])) return false;
    }
    return true;
}

void releaseFreedMemory() { malloc_trim(0); }

}  // namespace zv::media
