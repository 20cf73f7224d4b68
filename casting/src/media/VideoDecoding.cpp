#include "media/VideoDecoding.h"

#include "media/PipelineSupport.h"

namespace zv::media {

std::string buildH264Decoding(GstElement* pipeline, const GstAppSinkCallbacks& callbacks, gpointer user,
                              ElementPtr* depay) {
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
    ElementPtr convert = makeRequiredElement("videoconvert", "zv-convert", &error);
    ElementPtr rgb = makeRequiredElement("capsfilter", "zv-rgb", &error);
    ElementPtr sink = makeRequiredElement("appsink", "zv-frames", &error);
    if (!error.empty()) return error;
    g_object_set(depayloader.get(), "request-keyframe", TRUE, "wait-for-keyframe", TRUE, nullptr);
    CapsPtr caps = capsFromString("video/x-raw,format=BGRx");
    g_object_set(rgb.get(), "caps", caps.get(), nullptr);
    g_object_set(sink.get(), "sync", FALSE, "async", FALSE, "max-buffers", 1u, "drop", TRUE, "emit-signals", FALSE,
                 "enable-last-sample", FALSE, nullptr);
    GstAppSinkCallbacks copy = callbacks;
    gst_app_sink_set_callbacks(GST_APP_SINK(sink.get()), &copy, user, nullptr);
    if (!addAndLink(pipeline, {depayloader.get(), decoder.get(), convert.get(), rgb.get(), sink.get()})) {
        return "cannot link the decoder";
    }
    *depay = std::move(depayloader);
    return {};
}

}  // namespace zv::media
