#include "media/SenderPipeline.h"

#include <gst/app/gstappsrc.h>
#include <gst/video/video.h>

#include <algorithm>
#include <atomic>
#include <mutex>

#include "casting/Log.h"
#include "media/GstHandles.h"
#include "media/GstInit.h"
#include "media/PipelineSupport.h"
#include "media/RateMeter.h"
#include "media/UdpPortReservation.h"
#include "media/X11Capture.h"
#include "media/EncoderChoice.h"

namespace zv::media {
namespace {

constexpr int kStartTimeoutMs = 5000;
constexpr int kAudioStartTimeoutMs = 3000;

std::string srtUri(const std::string& host, uint16_t port) {
    return "srt://" + host + ":" + std::to_string(port) + "?mode=caller";
}

int evenAtLeastTwo(int value) { return std::max(2, value & ~1); }

}  // namespace

struct SenderPipeline::Impl {
    std::string start(const SenderConfig& config);
    void stop();
    std::string buildVideo(const SenderConfig& config);
    std::string buildVideoTransport(GstElement* payloader);
    std::string startAudio();
    void stopAudio();
    void setAudioEnabled(bool enabled);
    bool audioActive() const;
    void setPaused(bool paused);
    void requestKeyFrame();
    SenderStatistics statistics() const;
    void onVideoMessage(GstMessage* message);
    void onAudioMessage(GstMessage* message);
    void reportError(const std::string& error);
    void pushFrame(BufferPtr frame, int width, int height);
    std::string firstError() const;
    void addElement(GstElement* bin, const ElementPtr& element);
    ElementPtr element(const char* factory, const std::string& name, std::string* error);

    static GstPadProbeReturn onEncodedFrame(GstPad* pad, GstPadProbeInfo* info, gpointer self);
    static GstPadProbeReturn onSentPacket(GstPad* pad, GstPadProbeInfo* info, gpointer self);
    static GstPadProbeReturn onUpstreamEvent(GstPad* pad, GstPadProbeInfo* info, gpointer self);
    static GstElement* onRequestAuxSender(GstElement* rtpbin, guint session, gpointer self);

    SenderConfig m_config;
    ErrorCallback m_onError;
    X11Capture m_capture;

    ElementPtr m_pipeline;
    ElementPtr m_appsrc;
    ElementPtr m_encoder;
    ElementPtr m_rtx;
    BusForwarder m_bus;
    std::shared_ptr<UdpPortReservation> m_reservedRtcp;  // from reserveRtcpPort()
    std::shared_ptr<UdpPortReservation> m_rtcpSocket;    // in use
    std::atomic<uint16_t> m_localRtcpPort{0};
    std::string m_encoderName;
    int m_frameWidth = 0;  // caps on appsrc (the capture thread's once started)
    int m_frameHeight = 0;
    std::atomic<int> m_outputWidth{0};  // picture sent
    std::atomic<int> m_outputHeight{0};
    mutable std::mutex m_elementsMutex;  // m_encoder, m_rtx and m_encoderName against stop()

    ElementPtr m_audioPipeline;
    ElementPtr m_audioValve;
    BusForwarder m_audioBus;
    std::atomic<bool> m_audioEnabled{false};
    std::atomic<bool> m_audioFailed{false};
    std::atomic<bool> m_audioRunning{false};

    std::atomic<bool> m_running{false};
    std::atomic<bool> m_paused{false};
    mutable std::mutex m_errorMutex;
    std::string m_firstError;
    std::string m_audioStartError;
    RateMeter m_frames;
    RateMeter m_bytes;
    WarningLimiter m_warnings;
};

ElementPtr SenderPipeline::Impl::element(const char* factory, const std::string& name, std::string* error) {
    ElementPtr made = makeElement(factory, name);
    if (!made && error != nullptr && error->empty()) {
        *error = std::string("GStreamer element ") + factory + " is not installed";
    }
    return made;
}

void SenderPipeline::Impl::addElement(GstElement* bin, const ElementPtr& element) {
    gst_bin_add(GST_BIN(bin), element.get());  // the bin takes a reference of its own
}

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
    if (config.transport == MediaTransport::Srt &&
        (config.srtPassphrase.size() < 10 || config.srtPassphrase.size() > 79)) {
        return "SRT passphrase must have 10 to 79 characters";
    }
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
    m_capture.start([this](BufferPtr frame, int width, int height) { pushFrame(std::move(frame), width, height); },
                    [this](const std::string& problem) { reportError(problem); });

    m_audioEnabled = config.audio && config.audioPort != 0;
    if (m_audioEnabled) startAudio();
    ZV_LOG(INFO) << " casting " << m_outputWidth << "x" << m_outputHeight << " at up to " << config.fps << " fps, "
                 << config.bitrateKbps << " kbps, " << m_encoderName << ", " << transportName(config.transport)
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

    m_appsrc = element("appsrc", "zv-capture", &error);
    ElementPtr scale = element("videoscale", "zv-scale", &error);
    ElementPtr size = element("capsfilter", "zv-size", &error);
    ElementPtr payloader = element("rtph264pay", "zv-payloader", &error);
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
    const int mtu = config.transport == MediaTransport::Srt ? kRtpMtuSrt : kRtpMtuUdp;
    g_object_set(payloader.get(), "pt", static_cast<guint>(kVideoPayloadType), "config-interval", 1, "mtu",
                 static_cast<guint>(mtu), nullptr);
    setPropertyText(payloader.get(), "aggregate-mode", "zero-latency");

    for (const ElementPtr* part : {&m_appsrc, &scale, &size, &m_encoder, &payloader}) addElement(pipeline, *part);
    if (!gst_element_link_many(m_appsrc.get(), scale.get(), size.get(), m_encoder.get(), payloader.get(), nullptr)) {
        return "cannot link the video elements (" + m_encoderName + ")";
    }

    PadPtr encoded(gst_element_get_static_pad(m_encoder.get(), "src"));
    gst_pad_add_probe(encoded.get(), GST_PAD_PROBE_TYPE_BUFFER, &SenderPipeline::Impl::onEncodedFrame, this, nullptr);
    gst_pad_add_probe(encoded.get(), GST_PAD_PROBE_TYPE_EVENT_UPSTREAM, &SenderPipeline::Impl::onUpstreamEvent, this,
                      nullptr);
    return buildVideoTransport(payloader.get());
}

std::string SenderPipeline::Impl::buildVideoTransport(GstElement* payloader) {
    const SenderConfig& config = m_config;
    GstElement* pipeline = m_pipeline.get();
    std::string error;
    ElementPtr sink;

    switch (config.transport) {
        case MediaTransport::Udp: {
            ElementPtr rtpbin = element("rtpbin", "zv-rtpbin", &error);
            sink = element("udpsink", "zv-video-sink", &error);
            ElementPtr loss;
            if (config.simulatedLoss > 0.0) loss = element("identity", "zv-loss", &error);
            if (!error.empty()) return error;
            const bool feedback = config.remoteRtcpPort != 0;
            setPropertyText(rtpbin.get(), "rtp-profile", feedback ? "avpf" : "avp");
            if (feedback) {
                g_signal_connect(rtpbin.get(), "request-aux-sender", G_CALLBACK(&SenderPipeline::Impl::onRequestAuxSender),
                                 this);
            }
            g_object_set(sink.get(), "host", config.host.c_str(), "port", static_cast<gint>(config.videoPort), "sync",
                         FALSE, "async", FALSE, "buffer-size", 1 << 20, nullptr);
            addElement(pipeline, rtpbin);
            addElement(pipeline, sink);

            PadPtr rtpSink(gst_element_request_pad_simple(rtpbin.get(), "send_rtp_sink_0"));
            PadPtr payloaded(gst_element_get_static_pad(payloader, "src"));
            if (!rtpSink || gst_pad_link(payloaded.get(), rtpSink.get()) != GST_PAD_LINK_OK) {
                return "cannot link the payloader to rtpbin";
            }
            PadPtr rtpOut(gst_element_get_static_pad(rtpbin.get(), "send_rtp_src_0"));
            GstElement* next = sink.get();
            if (loss) {
                g_object_set(loss.get(), "drop-probability", static_cast<gfloat>(config.simulatedLoss), nullptr);
                addElement(pipeline, loss);
                if (!gst_element_link(loss.get(), sink.get())) return "cannot link the loss simulator";
                next = loss.get();
            }
            PadPtr nextIn(gst_element_get_static_pad(next, "sink"));
            if (!rtpOut || gst_pad_link(rtpOut.get(), nextIn.get()) != GST_PAD_LINK_OK) {
                return "cannot link rtpbin to the UDP sink";
            }

            // RTCP: one socket, ours, for both directions.
            m_rtcpSocket = m_reservedRtcp ? m_reservedRtcp : config.rtcpSocket;
            if (!m_rtcpSocket) m_rtcpSocket = UdpPortReservation::bind(config.localRtcpPort, &error);
            if (!m_rtcpSocket) return error;
            m_localRtcpPort = m_rtcpSocket->port();
            ElementPtr rtcpIn = element("udpsrc", "zv-rtcp-src", &error);
            if (!error.empty()) return error;
            CapsPtr rtcpCaps = capsFromString("application/x-rtcp");
            g_object_set(rtcpIn.get(), "socket", m_rtcpSocket->socket(), "close-socket", FALSE, "caps",
                         rtcpCaps.get(), nullptr);
            addElement(pipeline, rtcpIn);
            PadPtr rtcpSink(gst_element_request_pad_simple(rtpbin.get(), "recv_rtcp_sink_0"));
            PadPtr rtcpInOut(gst_element_get_static_pad(rtcpIn.get(), "src"));
            if (!rtcpSink || gst_pad_link(rtcpInOut.get(), rtcpSink.get()) != GST_PAD_LINK_OK) {
                return "cannot link the RTCP receiver";
            }
            if (feedback) {
                ElementPtr rtcpOut = element("udpsink", "zv-rtcp-sink", &error);
                if (!error.empty()) return error;
                g_object_set(rtcpOut.get(), "socket", m_rtcpSocket->socket(), "close-socket", FALSE, "host",
                             config.host.c_str(), "port", static_cast<gint>(config.remoteRtcpPort), "sync", FALSE,
                             "async", FALSE, nullptr);
                addElement(pipeline, rtcpOut);
                PadPtr rtcpSrc(gst_element_request_pad_simple(rtpbin.get(), "send_rtcp_src_0"));
                PadPtr rtcpOutIn(gst_element_get_static_pad(rtcpOut.get(), "sink"));
                if (!rtcpSrc || gst_pad_link(rtcpSrc.get(), rtcpOutIn.get()) != GST_PAD_LINK_OK) {
                    return "cannot link the RTCP sender";
                }
            } else {
                ZV_LOG(WARNING) << " no RTCP port from the panel: no retransmission of lost packets";
            }
            break;
        }
        case MediaTransport::Tcp: {
            ElementPtr framing = element("rtpstreampay", "zv-framing", &error);
            sink = element("tcpclientsink", "zv-video-sink", &error);
            if (!error.empty()) return error;
            g_object_set(sink.get(), "host", config.host.c_str(), "port", static_cast<gint>(config.videoPort), "sync",
                         FALSE, "async", FALSE, nullptr);
            addElement(pipeline, framing);
            addElement(pipeline, sink);
            if (!gst_element_link_many(payloader, framing.get(), sink.get(), nullptr)) {
                return "cannot link the TCP sink";
            }
            break;
        }
        case MediaTransport::Srt: {
            sink = element("srtsink", "zv-video-sink", &error);
            if (!error.empty()) return error;
            const std::string uri = srtUri(config.host, config.videoPort);
            g_object_set(sink.get(), "uri", uri.c_str(), "passphrase", config.srtPassphrase.c_str(), "latency",
                         std::max(0, config.latencyMs), "sync", FALSE, "async", FALSE, nullptr);
            setPropertyText(sink.get(), "pbkeylen", "16");
            addElement(pipeline, sink);
            if (!gst_element_link(payloader, sink.get())) return "cannot link the SRT sink";
            break;
        }
    }
    PadPtr sent(gst_element_get_static_pad(sink.get(), "sink"));
    gst_pad_add_probe(sent.get(), static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST),
                      &SenderPipeline::Impl::onSentPacket, this, nullptr);
    return {};
}

GstElement* SenderPipeline::Impl::onRequestAuxSender(GstElement*, guint session, gpointer self) {
    auto* sender = static_cast<SenderPipeline::Impl*>(self);
    if (session != 0) return nullptr;
    GstElement* bin = gst_bin_new("zv-rtx-bin");
    GstElement* rtx = gst_element_factory_make("rtprtxsend", "zv-rtx");
    if (rtx == nullptr) {
        gst_object_unref(gst_object_ref_sink(bin));
        ZV_LOG(WARNING) << " rtprtxsend missing: no retransmission";
        return nullptr;
    }
    StructurePtr map(gst_structure_new("application/x-rtp-pt-map", std::to_string(kVideoPayloadType).c_str(),
                                       G_TYPE_UINT, static_cast<guint>(kVideoRtxPayloadType), nullptr));
    // Keep a second of packets: NACKs on a LAN come back within milliseconds.
    g_object_set(rtx, "payload-type-map", map.get(), "max-size-time", 1000u, "max-size-packets", 0u, nullptr);
    gst_bin_add(GST_BIN(bin), rtx);
    PadPtr src(gst_element_get_static_pad(rtx, "src"));
    PadPtr sink(gst_element_get_static_pad(rtx, "sink"));
    gst_element_add_pad(bin, gst_ghost_pad_new("src_0", src.get()));
    gst_element_add_pad(bin, gst_ghost_pad_new("sink_0", sink.get()));
    {
        std::lock_guard<std::mutex> lock(sender->m_elementsMutex);
        sender->m_rtx = addRef(rtx);
    }
    return bin;  // floating: rtpbin takes it
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

GstPadProbeReturn SenderPipeline::Impl::onEncodedFrame(GstPad*, GstPadProbeInfo*, gpointer self) {
    static_cast<SenderPipeline::Impl*>(self)->m_frames.add(1);
    return GST_PAD_PROBE_OK;
}

GstPadProbeReturn SenderPipeline::Impl::onSentPacket(GstPad*, GstPadProbeInfo* info, gpointer self) {
    auto* sender = static_cast<SenderPipeline::Impl*>(self);
    if ((info->type & GST_PAD_PROBE_TYPE_BUFFER) != 0) {
        sender->m_bytes.add(gst_buffer_get_size(GST_PAD_PROBE_INFO_BUFFER(info)));
    } else if ((info->type & GST_PAD_PROBE_TYPE_BUFFER_LIST) != 0) {
        sender->m_bytes.add(gst_buffer_list_calculate_size(GST_PAD_PROBE_INFO_BUFFER_LIST(info)));
    }
    return GST_PAD_PROBE_OK;
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
    switch (GST_MESSAGE_TYPE(message)) {
        case GST_MESSAGE_ERROR: {
            const std::string text = describeMessage(message);
            ZV_LOG(ERROR) << " " << text;
            dumpPipelineGraph(m_pipeline.get(), "zv-sender-error");
            reportError(text);
            break;
        }
        case GST_MESSAGE_WARNING: {
            const std::string text = describeMessage(message);
            int suppressed = 0;
            if (m_warnings.admit(text, &suppressed)) {
                ZV_LOG(WARNING) << " " << text
                                << (suppressed > 0 ? " (" + std::to_string(suppressed) + " more like it before)" : "");
            }
            break;
        }
        case GST_MESSAGE_EOS:
            ZV_LOG(WARNING) << " the video stream ended";
            reportError("the video stream ended");
            break;
        default:
            break;
    }
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
    m_audioFailed = false;
    m_audioPipeline = adoptFloating(gst_pipeline_new("zv-sender-audio"));
    GstElement* pipeline = m_audioPipeline.get();
    ElementPtr source = element("pulsesrc", "zv-audio-src", &error);
    ElementPtr convert = element("audioconvert", "zv-audio-convert", &error);
    ElementPtr resample = element("audioresample", "zv-audio-resample", &error);
    ElementPtr format = element("capsfilter", "zv-audio-format", &error);
    m_audioValve = element("valve", "zv-audio-valve", &error);
    ElementPtr encoder = element("opusenc", "zv-opus", &error);
    ElementPtr payloader = element("rtpopuspay", "zv-audio-payloader", &error);
    std::vector<ElementPtr> tail;
    switch (config.transport) {
        case MediaTransport::Udp: {
            tail.push_back(element("udpsink", "zv-audio-sink", &error));
            if (tail.back()) {
                g_object_set(tail.back().get(), "host", config.host.c_str(), "port",
                             static_cast<gint>(config.audioPort), "sync", FALSE, "async", FALSE, nullptr);
            }
            break;
        }
        case MediaTransport::Tcp: {
            tail.push_back(element("rtpstreampay", "zv-audio-framing", &error));
            tail.push_back(element("tcpclientsink", "zv-audio-sink", &error));
            if (tail.back()) {
                g_object_set(tail.back().get(), "host", config.host.c_str(), "port",
                             static_cast<gint>(config.audioPort), "sync", FALSE, "async", FALSE, nullptr);
            }
            break;
        }
        case MediaTransport::Srt: {
            tail.push_back(element("srtsink", "zv-audio-sink", &error));
            if (tail.back()) {
                const std::string uri = srtUri(config.host, config.audioPort);
                g_object_set(tail.back().get(), "uri", uri.c_str(), "passphrase", config.srtPassphrase.c_str(),
                             "latency", std::max(0, config.latencyMs), "sync", FALSE, "async", FALSE, nullptr);
                setPropertyText(tail.back().get(), "pbkeylen", "16");
            }
            break;
        }
    }
    if (error.empty()) {
        g_object_set(source.get(), "device", config.audioDevice.c_str(), "buffer-time", static_cast<gint64>(40000),
                     "latency-time", static_cast<gint64>(10000), nullptr);
        CapsPtr caps = capsFromString("audio/x-raw,rate=48000,channels=2");
        g_object_set(format.get(), "caps", caps.get(), nullptr);
        g_object_set(m_audioValve.get(), "drop", m_audioEnabled ? FALSE : TRUE, nullptr);
        g_object_set(encoder.get(), "bitrate", 96000, nullptr);
        setPropertyText(encoder.get(), "frame-size", "10");
        setPropertyText(encoder.get(), "audio-type", "restricted-lowdelay");
        g_object_set(payloader.get(), "pt", static_cast<guint>(kAudioPayloadType), nullptr);
        std::vector<const ElementPtr*> chain = {&source, &convert, &resample, &format, &m_audioValve, &encoder,
                                                &payloader};
        for (const auto& part : tail) chain.push_back(&part);
        for (const ElementPtr* part : chain) addElement(pipeline, *part);
        for (size_t i = 0; i + 1 < chain.size() && error.empty(); ++i) {
            if (!gst_element_link((*chain[i]).get(), (*chain[i + 1]).get())) error = "cannot link the sound elements";
        }
    }
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
    m_rtcpSocket.reset();
    m_reservedRtcp.reset();
    m_localRtcpPort = 0;
    if (wasRunning) ZV_LOG(INFO) << " cast stopped";
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
