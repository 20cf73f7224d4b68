#include "media/PipelineSupport.h"

#include <cstdlib>

#include "casting/Log.h"

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

}  // namespace zv::media
