#include "media/SenderPipeline.h"

#include <gst/app/gstappsrc.h>
#include <gst/video/video.h>

#include <algorithm>

#include "casting/Log.h"
#include "media/EncoderChoice.h"
#include "media/GstInit.h"
#include "media/SenderPipelineImpl.h"
#include "media/UdpPortReservation.h"

namespace zv::media {
namespace {

constexpr int kStartTimeoutMs = 5000;

int evenAtLeastTwo(int value) { return std::max(2, value & ~1); }

}  // namespace

std::string SenderPipeline::Impl::firstError() const {
    std::lock_guard<std::mutex> lock(m_errorMutex);
    return m_firstError;
}

void SenderPipeline::Impl::reportError(const std::string& error) {
    {
        std::lock_guard<std::mutex> lock(m_errorMutex);
        if (m_firstError.empty()) m_firstError = error;
    }
    if (m_running && m_onError) m_onError(error);
}

std::string SenderPipeline::Impl::start(const SenderConfig& config) {
    const auto reserved = m_reservedRtcp;
    stop();
    m_reservedRtcp = reserved;
    std::string error = ensureGstInitialized();
    if (!error.empty()) return error;
    if (config.host.empty()) return "no destination host";
    if (config.videoPort == 0) return "no destination video port";
    if (config.fps < 1 || config.fps > 240) return "frame rate out of range: " + std::to_string(config.fps);
    if (config.bitrateKbps < 100) return "bit rate too low: " + std::to_string(config.bitrateKbps) + " kbps";
    if (config.transport == MediaTransport::Srt && !(error = checkSrtPassphrase(config.srtPassphrase)).empty()) {
        return error;
    }
    bool encrypted = false;
    error = checkMediaKeys(config.sendKey, config.receiveKey, config.allowPlain, &encrypted);
    if (!error.empty()) {
        ZV_LOG(ERROR) << " cast refused: " << error;
        return error;
    }
    if (encrypted) {
        m_srtpEncoder = makeSrtpEncoder(config.sendKey, "zv-srtp-enc", &error);
        if (error.empty()) error = m_srtpDecoder.create(config.receiveKey, "zv-srtp-dec");
        if (!error.empty()) {
            stop();
            return error;
        }
    } else {
        ZV_LOG(WARNING) << " media keys missing: this cast is sent unencrypted";
    }
    // RTCP only from the panel (when it is named by address).
    if (!m_peer.setPeer(config.host).empty()) {
        ZV_LOG(INFO) << " " << config.host << " is a name: RTCP not filtered by address";
    }
    m_encrypted = encrypted;
    m_videoSsrc = g_random_int() & ~3u;  // + 1 sound, + 2 retransmissions
    if (m_videoSsrc == 0) m_videoSsrc = 4;
    m_config = config;
    {
        std::lock_guard<std::mutex> lock(m_errorMutex);
        m_firstError.clear();
    }
    m_frames.reset();
    m_bytes.reset();
    m_paused = false;

    CaptureConfig capture;
    capture.displayName = config.displayName;
    capture.window = config.window;
    capture.fps = config.fps;
    capture.damageDriven = config.damageDriven;
    error = m_capture.open(capture);
    if (!error.empty()) {
        ZV_LOG(ERROR) << " cannot capture: " << error;
        return error;
    }

    error = buildVideo(config);
    if (error.empty()) {
        m_bus.attach(m_pipeline.get(), [this](GstMessage* message) { onVideoMessage(message); });
        error = changeState(m_pipeline.get(), GST_STATE_PLAYING, kStartTimeoutMs, [this] { return firstError(); });
    }
    if (!error.empty()) {
        ZV_LOG(ERROR) << " cast does not start: " << error;
        dumpPipelineGraph(m_pipeline.get(), "zv-sender-failed");
        stop();
        return error;
    }
    m_running = true;
    m_capture.setRawTap([this](const uint8_t* bgrx, int stride, int x, int y, int width, int height) {
        if (StreamDump::isSwitchedOn(StreamDump::Rgb) || !m_dump.currentPath(StreamDump::Rgb).empty()) {
            m_dump.writeRgbRect(bgrx, stride, x, y, width, height);
        }
    });
    m_capture.start([this](BufferPtr frame, int width, int height) { pushFrame(std::move(frame), width, height); },
                    [this](const std::string& problem) { reportError(problem); });

    m_audioEnabled = config.audio && config.audioPort != 0;
    if (m_audioEnabled) startAudio();
    ZV_LOG(INFO) << " casting " << m_outputWidth << "x" << m_outputHeight << " at up to " << config.fps << " fps, "
                 << config.bitrateKbps << " kbps, " << m_encoderName << ", " << transportName(config.transport)
                 << (m_encrypted ? " (SRTP)" : " (unencrypted)")
                 << " to " << config.host << ":" << config.videoPort
                 << (config.transport == MediaTransport::Udp
                         ? " (RTCP local " + std::to_string(m_localRtcpPort) + ", remote " +
                               std::to_string(config.remoteRtcpPort) + ")"
                         : std::string());
    return {};
}

std::string SenderPipeline::Impl::buildVideo(const SenderConfig& config) {
    std::string error;
    m_pipeline = adoptFloating(gst_pipeline_new("zv-sender"));
    GstElement* pipeline = m_pipeline.get();

    m_frameWidth = m_capture.width();
    m_frameHeight = m_capture.height();
    m_outputWidth = m_frameWidth;
    m_outputHeight = m_frameHeight;
    const bool fixedSize = config.width > 0 || config.height > 0;
    if (fixedSize) {
        // One side given: the other follows the captured aspect.
        const double aspect = static_cast<double>(m_frameWidth) / m_frameHeight;
        m_outputWidth = evenAtLeastTwo(config.width > 0 ? config.width : static_cast<int>(config.height * aspect));
        m_outputHeight = evenAtLeastTwo(config.height > 0 ? config.height : static_cast<int>(config.width / aspect));
    }

    m_appsrc = makeRequiredElement("appsrc", "zv-capture", &error);
    ElementPtr scale = makeRequiredElement("videoscale", "zv-scale", &error);
    ElementPtr size = makeRequiredElement("capsfilter", "zv-size", &error);
    ElementPtr payloader = makeRequiredElement("rtph264pay", "zv-payloader", &error);
    if (!error.empty()) return error;

    EncoderSettings settings;
    settings.bitrateKbps = config.bitrateKbps;
    settings.fps = config.fps;
    settings.keyFrameIntervalFrames = 2 * config.fps;
    EncoderChoice choice = chooseEncoder(config.encoderPreference, settings, "zv-encoder", config.encoderCandidates);
    if (!choice.encoder) return choice.error;
    {
        std::lock_guard<std::mutex> lock(m_elementsMutex);
        m_encoder = std::move(choice.encoder);
        m_encoderName = choice.candidate.element;
    }

    CapsPtr frameCaps(gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "I420", "width", G_TYPE_INT,
                                          m_frameWidth, "height", G_TYPE_INT, m_frameHeight, "framerate",
                                          GST_TYPE_FRACTION, config.fps, 1, "pixel-aspect-ratio", GST_TYPE_FRACTION,
                                          1, 1, "colorimetry", G_TYPE_STRING, "bt601", nullptr));
    g_object_set(m_appsrc.get(), "caps", frameCaps.get(), "is-live", TRUE, "do-timestamp", TRUE, "format",
                 GST_FORMAT_TIME, "max-buffers", static_cast<guint64>(2), "block", FALSE, nullptr);
    setPropertyText(m_appsrc.get(), "leaky-type", "downstream");  // a late encoder drops the oldest frame
    if (fixedSize) {
        CapsPtr sizeCaps(gst_caps_new_simple("video/x-raw", "width", G_TYPE_INT, m_outputWidth.load(), "height", G_TYPE_INT,
                                             m_outputHeight.load(), "pixel-aspect-ratio", GST_TYPE_FRACTION, 1, 1, nullptr));
        g_object_set(size.get(), "caps", sizeCaps.get(), nullptr);
        g_object_set(scale.get(), "add-borders", TRUE, nullptr);
    }
    // SRT carries whole messages of at most kRtpMtuSrt bytes: room for the SRTP tag.
    const int mtu = config.transport == MediaTransport::Srt ? kRtpMtuSrt - (m_encrypted ? kSrtpOverheadBytes : 0)
                                                            : kRtpMtuUdp;
    g_object_set(payloader.get(), "pt", static_cast<guint>(kVideoPayloadType), "config-interval", 1, "mtu",
                 static_cast<guint>(mtu), "ssrc", m_videoSsrc, nullptr);
    setPropertyText(payloader.get(), "aggregate-mode", "zero-latency");

    if (!addAndLink(pipeline, {m_appsrc.get(), scale.get(), size.get(), m_encoder.get(), payloader.get()})) {
        return "cannot link the video elements (" + m_encoderName + ")";
    }

    PadPtr raw(gst_element_get_static_pad(m_appsrc.get(), "src"));
    gst_pad_add_probe(raw.get(), GST_PAD_PROBE_TYPE_BUFFER, &SenderPipeline::Impl::onRawFrame, this, nullptr);
    PadPtr packed(gst_element_get_static_pad(payloader.get(), "src"));
    gst_pad_add_probe(packed.get(), static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST),
                      &SenderPipeline::Impl::onRtpPacked, this, nullptr);
    PadPtr encoded(gst_element_get_static_pad(m_encoder.get(), "src"));
    gst_pad_add_probe(encoded.get(), GST_PAD_PROBE_TYPE_BUFFER, &SenderPipeline::Impl::onEncodedFrame, this, nullptr);
    gst_pad_add_probe(encoded.get(), GST_PAD_PROBE_TYPE_EVENT_UPSTREAM, &SenderPipeline::Impl::onUpstreamEvent, this,
                      nullptr);
    return buildVideoTransport(payloader.get());
}

void SenderPipeline::Impl::pushFrame(BufferPtr frame, int width, int height) {
    if (!m_appsrc || m_paused) return;
    if (width != m_frameWidth || height != m_frameHeight) {
        CapsPtr caps(gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "I420", "width", G_TYPE_INT, width,
                                         "height", G_TYPE_INT, height, "framerate", GST_TYPE_FRACTION, m_config.fps,
                                         1, "pixel-aspect-ratio", GST_TYPE_FRACTION, 1, 1, "colorimetry",
                                         G_TYPE_STRING, "bt601", nullptr));
        gst_app_src_set_caps(GST_APP_SRC(m_appsrc.get()), caps.get());
        ZV_LOG(INFO) << " captured size now " << width << "x" << height;
        m_frameWidth = width;
        m_frameHeight = height;
        if (m_config.width == 0 && m_config.height == 0) {
            m_outputWidth = width;
            m_outputHeight = height;
        }
    }
    gst_app_src_push_buffer(GST_APP_SRC(m_appsrc.get()), frame.release());
}

GstPadProbeReturn SenderPipeline::Impl::onEncodedFrame(GstPad* pad, GstPadProbeInfo* info, gpointer self) {
    auto* impl = static_cast<SenderPipeline::Impl*>(self);
    impl->m_frames.add(1);
    GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    if (StreamDump::isSwitchedOn(StreamDump::TimeLog)) {
        impl->m_dump.markEncoded(GST_BUFFER_PTS(buffer), impl->runningTimeNow());
    }
    if (StreamDump::isSwitchedOn(StreamDump::H264) || !impl->m_dump.currentPath(StreamDump::H264).empty()) {
        CapsPtr caps(gst_pad_get_current_caps(pad));
        // A new file should start playing at once: ask for a key frame (the
        // encoder only queues the request; onUpstreamEvent wakes the capture).
        if (impl->m_dump.writeH264(buffer, caps.get())) {
            gst_pad_send_event(pad, gst_video_event_new_upstream_force_key_unit(GST_CLOCK_TIME_NONE, TRUE, 0));
        }
    }
    return GST_PAD_PROBE_OK;
}

GstPadProbeReturn SenderPipeline::Impl::onRawFrame(GstPad*, GstPadProbeInfo* info, gpointer self) {
    auto* impl = static_cast<SenderPipeline::Impl*>(self);
    GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    impl->m_dump.markQueued(GST_BUFFER_PTS(buffer), impl->runningTimeNow());
    impl->m_dump.writeI420(buffer, impl->m_frameWidth, impl->m_frameHeight);
    return GST_PAD_PROBE_OK;
}

GstPadProbeReturn SenderPipeline::Impl::onRtpPacked(GstPad*, GstPadProbeInfo* info, gpointer self) {
    auto* impl = static_cast<SenderPipeline::Impl*>(self);
    const bool rtp = StreamDump::isSwitchedOn(StreamDump::Rtp) || !impl->m_dump.currentPath(StreamDump::Rtp).empty();
    const bool timed = StreamDump::isSwitchedOn(StreamDump::TimeLog);
    if (!rtp && !timed) return GST_PAD_PROBE_OK;
    GstClockTime pts = GST_CLOCK_TIME_NONE;
    if (GST_PAD_PROBE_INFO_TYPE(info) & GST_PAD_PROBE_TYPE_BUFFER_LIST) {
        GstBufferList* list = GST_PAD_PROBE_INFO_BUFFER_LIST(info);
        const guint count = gst_buffer_list_length(list);
        for (guint i = 0; i < count; ++i) {
            GstBuffer* packet = gst_buffer_list_get(list, i);
            if (rtp) impl->m_dump.writeRtp(packet);
            if (i == 0) pts = GST_BUFFER_PTS(packet);
        }
    } else {
        GstBuffer* packet = GST_PAD_PROBE_INFO_BUFFER(info);
        if (rtp) impl->m_dump.writeRtp(packet);
        pts = GST_BUFFER_PTS(packet);
    }
    if (timed) impl->m_dump.markPacked(pts, impl->runningTimeNow());
    return GST_PAD_PROBE_OK;
}

GstClockTime SenderPipeline::Impl::runningTimeNow() const {
    if (!StreamDump::isSwitchedOn(StreamDump::TimeLog) || !m_pipeline) return GST_CLOCK_TIME_NONE;
    GstClock* clock = gst_element_get_clock(m_pipeline.get());
    if (clock == nullptr) return GST_CLOCK_TIME_NONE;
    const GstClockTime now = gst_clock_get_time(clock);
    gst_object_unref(clock);
    const GstClockTime base = gst_element_get_base_time(m_pipeline.get());
    return now >= base ? now - base : GST_CLOCK_TIME_NONE;
}

// Key-frame requests reach the encoder as upstream events (ours, or the
// panel's PLI through rtpbin): make sure a frame follows even on a still
// screen, or the request would wait for the next change.
GstPadProbeReturn SenderPipeline::Impl::onUpstreamEvent(GstPad*, GstPadProbeInfo* info, gpointer self) {
    GstEvent* event = GST_PAD_PROBE_INFO_EVENT(info);
    if (event != nullptr && gst_video_event_is_force_key_unit(event)) {
        static_cast<SenderPipeline::Impl*>(self)->m_capture.requestFrame();
    }
    return GST_PAD_PROBE_OK;
}

void SenderPipeline::Impl::onVideoMessage(GstMessage* message) {
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) {
        ZV_LOG(WARNING) << " the video stream ended";
        reportError("the video stream ended");
        return;
    }
    const std::string error = logPipelineMessage(message, m_pipeline.get(), "zv-sender-error", m_warnings);
    if (!error.empty()) reportError(error);
}

void SenderPipeline::Impl::setPaused(bool paused) {
    if (m_paused.exchange(paused) == paused) return;
    m_capture.setPaused(paused);
    ZV_LOG(INFO) << " cast " << (paused ? "paused" : "resumed");
}

void SenderPipeline::Impl::requestKeyFrame() {
    std::lock_guard<std::mutex> lock(m_elementsMutex);
    if (!m_running || !m_encoder) return;
    PadPtr pad(gst_element_get_static_pad(m_encoder.get(), "src"));
    gst_pad_send_event(pad.get(), gst_video_event_new_upstream_force_key_unit(GST_CLOCK_TIME_NONE, TRUE, 0));
}

SenderStatistics SenderPipeline::Impl::statistics() const {
    SenderStatistics stats;
    const auto now = RateMeter::Clock::now();
    stats.framesSent = m_frames.total();
    stats.bytesSent = m_bytes.total();
    stats.fps = m_frames.perSecond(now);
    stats.bitrateKbps = m_bytes.perSecond(now) * 8.0 / 1000.0;
    {
        std::lock_guard<std::mutex> lock(m_elementsMutex);
        if (m_rtx) {
            guint packets = 0;
            g_object_get(m_rtx.get(), "num-rtx-packets", &packets, nullptr);
            stats.retransmittedPackets = packets;
        }
        stats.encoder = m_encoderName;
    }
    stats.captureGrabs = m_capture.counters().grabs;
    stats.width = m_outputWidth;
    stats.height = m_outputHeight;
    stats.audioActive = audioActive();
    stats.encrypted = m_encrypted;
    return stats;
}

void SenderPipeline::Impl::stop() {
    const bool wasRunning = m_running.exchange(false);
    m_capture.stop();  // no more frames into appsrc
    stopAudio();
    if (m_pipeline) {
        gst_element_set_state(m_pipeline.get(), GST_STATE_NULL);
    }
    m_bus.detach();
    m_appsrc.reset();
    {
        std::lock_guard<std::mutex> lock(m_elementsMutex);
        m_encoder.reset();
        m_rtx.reset();
    }
    m_pipeline.reset();
    m_dump.close();
    m_srtpEncoder.reset();
    m_srtpDecoder.reset();
    m_rtcpSocket.reset();
    m_reservedRtcp.reset();
    m_localRtcpPort = 0;
    if (wasRunning) {
        releaseFreedMemory();
        ZV_LOG(INFO) << " cast stopped";
    }
}

}  // namespace zv::media

namespace zv::media {

SenderPipeline::SenderPipeline() : m_impl(std::make_unique<Impl>()) {}
SenderPipeline::~SenderPipeline() { m_impl->stop(); }

void SenderPipeline::setErrorCallback(ErrorCallback callback) { m_impl->m_onError = std::move(callback); }

uint16_t SenderPipeline::reserveRtcpPort() {
    if (!m_impl->m_reservedRtcp) {
        std::string error;
        m_impl->m_reservedRtcp = UdpPortReservation::bind(0, &error);
        if (!m_impl->m_reservedRtcp) {
            ZV_LOG(ERROR) << " " << error;
            return 0;
        }
    }
    return m_impl->m_reservedRtcp->port();
}

std::string SenderPipeline::start(const SenderConfig& config) { return m_impl->start(config); }
void SenderPipeline::stop() { m_impl->stop(); }
bool SenderPipeline::isRunning() const { return m_impl->m_running; }
void SenderPipeline::setPaused(bool paused) { m_impl->setPaused(paused); }
bool SenderPipeline::isPaused() const { return m_impl->m_paused; }
void SenderPipeline::setAudioEnabled(bool enabled) { m_impl->setAudioEnabled(enabled); }
bool SenderPipeline::audioActive() const { return m_impl->audioActive(); }
void SenderPipeline::requestKeyFrame() { m_impl->requestKeyFrame(); }
SenderStatistics SenderPipeline::statistics() const { return m_impl->statistics(); }
uint16_t SenderPipeline::localRtcpPort() const { return m_impl->m_localRtcpPort; }

}  // namespace zv::media
