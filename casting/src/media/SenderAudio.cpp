// The cast's sound (SenderPipeline.h): its own pipeline, so that a missing
// sound server never stops the picture.
#include "casting/Log.h"
#include "core/CastingConditions.h"
#include "media/SenderPipelineImpl.h"

namespace zv::media {
namespace {
constexpr int kAudioStartTimeoutMs = 3000;
}

void SenderPipeline::Impl::onAudioMessage(GstMessage* message) {
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR && m_audioRunning) {
        // Sound is optional: its failure never ends the cast. (Failures while
        // starting are reported once by startAudio().)
        if (!m_audioFailed.exchange(true)) {
            ZV_LOG(WARNING) << " sound stopped, the cast goes on without it: " << describeMessage(message);
            dumpPipelineGraph(m_audioPipeline.get(), "zv-sender-audio-error");
        }
    }
}

std::string SenderPipeline::Impl::startAudio() {
    const SenderConfig& config = m_config;
    std::string error;
    // GStreamer's pulsesrc leaves a main-loop thread and its descriptors
    // behind each time it fails to reach a server: without one, it is not made.
    std::string soundServer;
    if (!soundServerPresent(&soundServer)) {
        ZV_LOG(WARNING) << " no sound for this cast (" << soundServer << "); the picture goes on without it";
        m_audioFailed = true;
        return soundServer;
    }
    m_audioFailed = false;
    m_audioPipeline = adoptFloating(gst_pipeline_new("zv-sender-audio"));
    GstElement* pipeline = m_audioPipeline.get();
    ElementPtr source = makeRequiredElement("pulsesrc", "zv-audio-src", &error);
    ElementPtr convert = makeRequiredElement("audioconvert", "zv-audio-convert", &error);
    ElementPtr resample = makeRequiredElement("audioresample", "zv-audio-resample", &error);
    ElementPtr format = makeRequiredElement("capsfilter", "zv-audio-format", &error);
    m_audioValve = makeRequiredElement("valve", "zv-audio-valve", &error);
    ElementPtr encoder = makeRequiredElement("opusenc", "zv-opus", &error);
    ElementPtr payloader = makeRequiredElement("rtpopuspay", "zv-audio-payloader", &error);
    if (error.empty()) {
        g_object_set(source.get(), "device", config.audioDevice.c_str(), "buffer-time", static_cast<gint64>(40000),
                     "latency-time", static_cast<gint64>(10000), nullptr);
        CapsPtr caps = capsFromString("audio/x-raw,rate=48000,channels=2");
        g_object_set(format.get(), "caps", caps.get(), nullptr);
        g_object_set(m_audioValve.get(), "drop", m_audioEnabled ? FALSE : TRUE, nullptr);
        g_object_set(encoder.get(), "bitrate", 96000, nullptr);
        setPropertyText(encoder.get(), "frame-size", "10");
        setPropertyText(encoder.get(), "audio-type", "restricted-lowdelay");
        g_object_set(payloader.get(), "pt", static_cast<guint>(kAudioPayloadType), "ssrc", m_videoSsrc ^ 1u, nullptr);
        if (!addAndLink(pipeline, {source.get(), convert.get(), resample.get(), format.get(), m_audioValve.get(),
                                   encoder.get(), payloader.get()})) {
            error = "cannot link the sound elements";
        }
    }
    GstElement* sink = nullptr;
    if (error.empty()) error = buildSendingTail(pipeline, payloader.get(), config.audioPort, "zv-audio", &sink);
    if (error.empty()) {
        m_audioBus.attach(pipeline, [this](GstMessage* message) {
            if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
                std::lock_guard<std::mutex> lock(m_errorMutex);
                if (m_audioStartError.empty()) m_audioStartError = describeMessage(message);
            }
            onAudioMessage(message);
        });
        error = changeState(pipeline, GST_STATE_PLAYING, kAudioStartTimeoutMs, [this] {
            std::lock_guard<std::mutex> lock(m_errorMutex);
            return m_audioStartError;
        });
    }
    if (!error.empty()) {
        ZV_LOG(WARNING) << " no sound for this cast (" << error << "); the picture goes on without it";
        stopAudio();
        m_audioFailed = true;
        return error;
    }
    m_audioFailed = false;
    m_audioRunning = true;
    ZV_LOG(INFO) << " sound from " << config.audioDevice << " to port " << config.audioPort;
    return {};
}

void SenderPipeline::Impl::stopAudio() {
    m_audioRunning = false;
    if (m_audioPipeline) {
        gst_element_set_state(m_audioPipeline.get(), GST_STATE_NULL);
    }
    m_audioBus.detach();
    m_audioValve.reset();
    m_audioPipeline.reset();
    std::lock_guard<std::mutex> lock(m_errorMutex);
    m_audioStartError.clear();
}

void SenderPipeline::Impl::setAudioEnabled(bool enabled) {
    m_audioEnabled = enabled;
    if (!m_running) return;
    if (m_audioPipeline) {
        g_object_set(m_audioValve.get(), "drop", enabled ? FALSE : TRUE, nullptr);
        ZV_LOG(INFO) << " sound " << (enabled ? "on" : "off");
        return;
    }
    if (enabled) {
        if (m_config.audioPort == 0) {
            ZV_LOG(WARNING) << " sound asked for, but the panel gave no audio port";
            return;
        }
        startAudio();
    }
}

bool SenderPipeline::Impl::audioActive() const { return m_audioRunning && !m_audioFailed && m_audioEnabled; }

}  // namespace zv::media
