// The receiver's sound pipeline (ReceiverPipeline.h): its own, so that a
// panel without a sound device still shows the picture.
#include <algorithm>

#include "casting/Log.h"
#include "media/ReceiverPipelineImpl.h"
#include "media/RtpReceiving.h"

namespace zv::media {
namespace {
constexpr int kAudioLatencyFloorMs = 40;
const char* kAudioRtpCaps = "application/x-rtp,media=audio,clock-rate=48000,encoding-name=OPUS,payload=111";
}  // namespace

std::string ReceiverPipeline::Impl::buildAudio() {
    std::string error;
    const ReceiverConfig& config = m_config;
    m_audioPipeline = adoptFloating(gst_pipeline_new("zv-receiver-audio"));
    GstElement* pipeline = m_audioPipeline.get();
    m_audioBus.attach(pipeline, [this](GstMessage* message) { onMessage(message, true); });
    StreamSource source;
    if (m_encrypted) error = m_audioSrtp.create(config.receiveKey, "zv-audio-srtp");
    if (error.empty()) {
        error = buildStreamSource(pipeline, streamSpec(config.audioPort, kAudioRtpCaps, "zv-audio"), m_peer,
                                  m_encrypted ? &m_audioSrtp : nullptr, &source);
    }
    if (!error.empty()) return error;

    ElementPtr jitter = makeRequiredElement("rtpjitterbuffer", "zv-audio-jitter", &error);
    ElementPtr depay = makeRequiredElement("rtpopusdepay", "zv-audio-depay", &error);
    ElementPtr decoder = makeRequiredElement("opusdec", "zv-audio-decoder", &error);
    ElementPtr convert = makeRequiredElement("audioconvert", "zv-audio-convert", &error);
    ElementPtr resample = makeRequiredElement("audioresample", "zv-audio-resample", &error);
    if (!error.empty()) return error;
    g_object_set(jitter.get(), "latency", static_cast<guint>(std::max(config.latencyMs, kAudioLatencyFloorMs)),
                 "drop-on-latency", TRUE, nullptr);

    // A panel without a sound device still takes the stream (and says so
    // once). The outputs autoaudiosink would pick, in its order, each tried
    // up to PAUSED, where a sink opens its device (autoaudiosink itself
    // reports success even when its sink cannot open one).
    ElementPtr output;
    m_audioToDevice = false;
    for (const char* candidate : {"pulsesink", "alsasink"}) {
        ElementPtr sink = makeElement(candidate, "zv-audio-out");
        if (!sink) continue;
        const bool opens = gst_element_set_state(sink.get(), GST_STATE_PAUSED) != GST_STATE_CHANGE_FAILURE;
        gst_element_set_state(sink.get(), GST_STATE_NULL);
        if (opens) {
            output = std::move(sink);
            m_audioToDevice = true;
            ZV_LOG(INFO) << " sound plays through " << candidate;
            break;
        }
    }
    if (!output) {
        ZV_LOG(WARNING) << " no sound device on this panel: the cast's sound is received but not played";
        output = makeRequiredElement("fakesink", "zv-audio-out", &error);
        if (output) g_object_set(output.get(), "sync", FALSE, "async", FALSE, nullptr);
    }
    if (!output) return error;
    if (!addAndLink(pipeline, {jitter.get(), depay.get(), decoder.get(), convert.get(), resample.get(), output.get()}) ||
        !linkOn(source, jitter.get())) {
        return "cannot link the sound elements";
    }
    PadPtr received(gst_element_get_static_pad(source.source.get(), "src"));
    gst_pad_add_probe(received.get(), GST_PAD_PROBE_TYPE_BUFFER, &Impl::onAudioBytes, this, nullptr);

    error = changeState(pipeline, GST_STATE_READY, 3000, [this] { return firstError(); });
    if (!error.empty()) return error;
    if (config.transport != MediaTransport::Tcp) m_ports.audio = listeningPort(source, config.transport);
    if (gst_element_set_state(pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        return "the sound pipeline does not start";
    }
    if (config.transport == MediaTransport::Tcp) m_ports.audio = listeningPort(source, config.transport);
    return {};
}

GstPadProbeReturn ReceiverPipeline::Impl::onAudioBytes(GstPad*, GstPadProbeInfo* info, gpointer self) {
    static_cast<Impl*>(self)->m_audioBytes.add(gst_buffer_get_size(GST_PAD_PROBE_INFO_BUFFER(info)));
    return GST_PAD_PROBE_OK;
}

}  // namespace zv::media
