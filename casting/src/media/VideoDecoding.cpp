#include "media/VideoDecoding.h"

#include "media/OverlaySink.h"
#include "media/PipelineSupport.h"

namespace zv::media {

namespace {

// rtph264depay ─▶ decoder ─▶ videoconvert, added to pipeline and linked.
std::string buildDecoderChain(GstElement* pipeline, ElementPtr* depay, ElementPtr* convert) {
    std::string error;
    ElementPtr depayloader = makeRequiredElement("rtph264depay", "zv-depay", &error);
    ElementPtr decoder = makeElement("avdec_h264", "zv-decoder");
    if (decoder) {
        setPropertyText(decoder.get(), "thread-type", "slice");  // frame threads would add frames of delay
        g_object_set(decoder.get(), "output-corrupt", FALSE, nullptr);
    } else {
        decoder = makeElement("openh264dec", "zv-decoder");
    }
    if (!decoder) return "no H.264 decoder (install gstreamer1.0-libav)";
    ElementPtr converter = makeRequiredElement("videoconvert", "zv-convert", &error);
    if (!error.empty()) return error;
    g_object_set(depayloader.get(), "request-keyframe", TRUE, "wait-for-keyframe", TRUE, nullptr);
    if (!addAndLink(pipeline, {depayloader.get(), decoder.get(), converter.get()})) return "cannot link the decoder";
    *depay = std::move(depayloader);
    *convert = std::move(converter);
    return {};
}

}  // namespace

std::string buildH264Decoding(GstElement* pipeline, const GstAppSinkCallbacks& callbacks, gpointer user,
                              ElementPtr* depay) {
    ElementPtr convert;
    std::string error = buildDecoderChain(pipeline, depay, &convert);
    if (!error.empty()) return error;
    ElementPtr rgb = makeRequiredElement("capsfilter", "zv-rgb", &error);
    ElementPtr sink = makeRequiredElement("appsink", "zv-frames", &error);
    if (!error.empty()) return error;
    CapsPtr caps = capsFromString("video/x-raw,format=BGRx");
    g_object_set(rgb.get(), "caps", caps.get(), nullptr);
    g_object_set(sink.get(), "sync", FALSE, "async", FALSE, "max-buffers", 1u, "drop", TRUE, "emit-signals", FALSE,
                 "enable-last-sample", FALSE, nullptr);
    GstAppSinkCallbacks copy = callbacks;
    gst_app_sink_set_callbacks(GST_APP_SINK(sink.get()), &copy, user, nullptr);
    if (!addAndLink(pipeline, {rgb.get(), sink.get()}) || !gst_element_link(convert.get(), rgb.get())) {
        return "cannot link the picture sink";
    }
    return {};
}

std::string buildH264DecodingToWindow(GstElement* pipeline, OverlaySink* overlay, unsigned long window,
                                      ElementPtr* depay) {
    ElementPtr convert;
    std::string error = buildDecoderChain(pipeline, depay, &convert);
    if (!error.empty()) return error;
    error = overlay->build(pipeline, window, "zv-view");
    if (!error.empty()) return error;
    // The last picture stays readable (snapshots, pixel checks).
    g_object_set(overlay->sink(), "enable-last-sample", TRUE, nullptr);
    return gst_element_link(convert.get(), overlay->first()) ? std::string() : "cannot link the video sink";
}

}  // namespace zv::media
