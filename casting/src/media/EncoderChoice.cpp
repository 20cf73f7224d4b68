#include "media/EncoderChoice.h"

#include <glob.h>

#include <mutex>

#include "casting/Log.h"
#include "media/GstInit.h"
#include "media/PipelineSupport.h"

namespace zv::media {
namespace {

struct TableRow {
    const char* element;
    bool hardware;
};
constexpr TableRow kTable[] = {
    {"vaapih264enc", true},
    {"vah264enc", true},
    {"x264enc", false},
    {"openh264enc", false},
};

bool isHardwareName(const std::string& name) {
    for (const auto& row : kTable) {
        if (name == row.element) return row.hardware;
    }
    return false;
}

// A hardware encoder counts only if it can open its device.
bool reachesReady(GstElement* element) {
    const GstStateChangeReturn result = gst_element_set_state(element, GST_STATE_READY);
    const bool ok = result != GST_STATE_CHANGE_FAILURE;
    gst_element_set_state(element, GST_STATE_NULL);
    return ok;
}

bool factoryExists(const std::string& name) {
    ElementFactoryPtr factory(gst_element_factory_find(name.c_str()));
    return factory != nullptr;
}

void configure(GstElement* encoder, const std::string& element, const EncoderSettings& settings) {
    const int keyInterval = settings.keyFrameIntervalFrames > 0 ? settings.keyFrameIntervalFrames : 2 * settings.fps;
    if (element == "x264enc") {
        setPropertyText(encoder, "tune", "zerolatency");
        setPropertyText(encoder, "speed-preset", "ultrafast");
        g_object_set(encoder, "bitrate", static_cast<guint>(settings.bitrateKbps), "key-int-max",
                     static_cast<guint>(keyInterval), nullptr);
        // One frame period of VBV at most a few frames: an I frame may still
        // be large, but the rate stays even at the packet level.
        g_object_set(encoder, "vbv-buf-capacity", static_cast<guint>(300), nullptr);
    } else if (element == "openh264enc") {
        g_object_set(encoder, "bitrate", static_cast<guint>(settings.bitrateKbps) * 1000u, "gop-size",
                     static_cast<guint>(keyInterval), nullptr);
        setPropertyText(encoder, "usage-type", "screen");
        setPropertyText(encoder, "complexity", "low");
        setPropertyText(encoder, "rate-control", "bitrate");
    } else if (element == "vaapih264enc") {
        setPropertyText(encoder, "rate-control", "cbr");
        g_object_set(encoder, "bitrate", static_cast<guint>(settings.bitrateKbps), "keyframe-period",
                     static_cast<guint>(keyInterval), nullptr);
    } else if (element == "vah264enc") {
        setPropertyText(encoder, "rate-control", "cbr");
        g_object_set(encoder, "bitrate", static_cast<guint>(settings.bitrateKbps), "key-int-max",
                     static_cast<guint>(keyInterval), "b-frames", 0u, nullptr);
    }
}

}  // namespace

std::string firstRenderNode() {
    glob_t found{};
    std::string node;
    if (glob("/dev/dri/renderD*", 0, nullptr, &found) == 0 && found.gl_pathc > 0) node = found.gl_pathv[0];
    globfree(&found);
    return node;
}

std::vector<EncoderCandidate> rankedEncoders(EncoderPreference preference, const std::vector<std::string>& only) {
    if (!ensureGstInitialized().empty()) return {};
    std::vector<EncoderCandidate> names;
    if (only.empty()) {
        for (const auto& row : kTable) names.push_back({row.element, row.hardware});
    } else {
        for (const auto& name : only) names.push_back({name, isHardwareName(name)});
    }
    const bool renderNode = !firstRenderNode().empty();
    std::vector<EncoderCandidate> hardware, software;
    for (const auto& candidate : names) {
        if (!factoryExists(candidate.element)) continue;
        if (candidate.hardware) {
            if (renderNode) hardware.push_back(candidate);
        } else {
            software.push_back(candidate);
        }
    }
    std::vector<EncoderCandidate> ranked;
    auto append = [&ranked](const std::vector<EncoderCandidate>& part) {
        ranked.insert(ranked.end(), part.begin(), part.end());
    };
    if (preference == EncoderPreference::SoftwarePreferred) {
        append(software);
        append(hardware);
    } else {
        append(hardware);
        append(software);
    }
    return ranked;
}

EncoderChoice chooseEncoder(EncoderPreference preference, const EncoderSettings& settings,
                            const std::string& elementName, const std::vector<std::string>& only) {
    EncoderChoice choice;
    const std::string initError = ensureGstInitialized();
    if (!initError.empty()) {
        choice.error = initError;
        return choice;
    }
    std::string tried;
    for (const auto& candidate : rankedEncoders(preference, only)) {
        ElementPtr encoder = makeElement(candidate.element.c_str(), elementName);
        if (!encoder || (candidate.hardware && !reachesReady(encoder.get()))) {
            tried += (tried.empty() ? "" : ", ") + candidate.element + " (does not load)";
            continue;
        }
        configure(encoder.get(), candidate.element, settings);
        choice.encoder = std::move(encoder);
        choice.candidate = candidate;
        ZV_LOG(INFO) << " H.264 encoder: " << candidate.element << (candidate.hardware ? " (hardware)" : "");
        return choice;
    }
    std::string wanted;
    if (only.empty()) {
        for (const auto& row : kTable) wanted += (wanted.empty() ? "" : ", ") + std::string(row.element);
    } else {
        for (const auto& name : only) wanted += (wanted.empty() ? "" : ", ") + name;
    }
    choice.error = "no H.264 encoder available (looked for " + wanted + ")";
    if (!tried.empty()) choice.error += "; tried " + tried;
    choice.error += "; install gstreamer1.0-plugins-ugly (x264enc) or gstreamer1.0-plugins-bad (openh264enc)";
    ZV_LOG(ERROR) << " " << choice.error;
    return choice;
}

bool hardwareH264EncoderAvailable() {
    static std::once_flag once;
    static bool available = false;
    std::call_once(once, [] {
        for (const auto& candidate : rankedEncoders(EncoderPreference::HardwarePreferred)) {
            if (!candidate.hardware) continue;
            ElementPtr encoder = makeElement(candidate.element.c_str(), "probe-encoder");
            if (encoder && reachesReady(encoder.get())) {
                available = true;
                ZV_LOG(INFO) << " hardware H.264 encoder available: " << candidate.element << " on "
                             << firstRenderNode();
                return;
            }
        }
        ZV_LOG(INFO) << " no hardware H.264 encoder (render node: "
                     << (firstRenderNode().empty() ? "none" : firstRenderNode()) << ")";
    });
    return available;
}

}  // namespace zv::media
