#include "media/ReceiverPipeline.h"

#include <gst/app/gstappsink.h>
#include <gst/video/video.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "casting/Log.h"
#include "media/GstHandles.h"
#include "media/GstInit.h"
#include "media/PipelineSupport.h"
#include "media/RateMeter.h"
#include "media/UdpPortReservation.h"

namespace zv::media {
namespace {

constexpr int kUdpReceiveBufferBytes = 4194304;
constexpr int kAudioLatencyFloorMs = 40;
constexpr int kRtxDelayMs = 5;
constexpr int kRetransmissionLatencyMs = 100;
constexpr double kSessionBandwidthBytes = 2.5e6;  // 20 Mbit/s: RTCP may use 5 % of it
constexpr int kRtcpMinIntervalMs = 20;

const char* kVideoRtpCaps = "application/x-rtp,media=video,clock-rate=90000,encoding-name=H264,payload=96";
// UDP: the stream accepts NACKs (retransmission) and PLIs (key-frame
// requests); rtpsession sends a PLI only for sources whose caps say so.
const char* kVideoRtpFeedbackCaps =
    "application/x-rtp,media=video,clock-rate=90000,encoding-name=H264,payload=96,"
    "rtcp-fb-nack=(boolean)true,rtcp-fb-nack-pli=(boolean)true";
const char* kVideoStreamCaps = "application/x-rtp-stream,media=video,clock-rate=90000,encoding-name=H264,payload=96";
const char* kAudioRtpCaps = "application/x-rtp,media=audio,clock-rate=48000,encoding-name=OPUS,payload=111";
const char* kAudioStreamCaps = "application/x-rtp-stream,media=audio,clock-rate=48000,encoding-name=OPUS,payload=111";

std::string srtListenUri(const std::string& address, uint16_t port) {
    return "srt://" + address + ":" + std::to_string(port) + "?mode=listener";
}

uint64_t structureUint(const GstStructure* structure, const char* field) {
    guint64 value64 = 0;
    guint value = 0;
    if (gst_structure_get_uint64(structure, field, &value64)) return value64;
    if (gst_structure_get_uint(structure, field, &value)) return value;
    return 0;
}

// Keeps the mapped picture alive as long as the QImage (and its copies) use it.
struct MappedFrame {
    GstVideoFrame frame;
    SamplePtr sample;
};

void releaseMappedFrame(void* data) {
    auto* mapped = static_cast<MappedFrame*>(data);
    gst_video_frame_unmap(&mapped->frame);
    delete mapped;
}

}  // namespace

struct ReceiverPipeline::Impl {
    explicit Impl(ReceiverCallbacks callbacks) : m_callbacks(std::move(callbacks)) {}

    std::string start(const ReceiverConfig& config);
    void stop();
    std::string buildVideo();
    std::string buildAudio();
    std::string buildDecoding(GstElement* pipeline, GstElement* upstream);
    ElementPtr element(const char* factory, const std::string& name, std::string* error);
    void add(GstElement* bin, const ElementPtr& element) { gst_bin_add(GST_BIN(bin), element.get()); }
    void onMessage(GstMessage* message, bool audio);
    void reportError(const std::string& error);
    std::string firstError() const;
    void monitor();
    ReceiverStatistics statistics(bool tick);  // tick: the monitor's once-a-second update of the loss figures
    void onSample(GstAppSink* sink);

    static GstFlowReturn onNewSample(GstAppSink* sink, gpointer self);
    static GstPadProbeReturn onVideoBytes(GstPad* pad, GstPadProbeInfo* info, gpointer self);
    static GstPadProbeReturn onAudioBytes(GstPad* pad, GstPadProbeInfo* info, gpointer self);
    static GstCaps* onRequestPtMap(GstElement* rtpbin, guint session, guint pt, gpointer self);
    static GstElement* onRequestAuxReceiver(GstElement* rtpbin, guint session, gpointer self);
    static void onNewJitterbuffer(GstElement* rtpbin, GstElement* jitterbuffer, guint session, guint ssrc,
                                  gpointer self);
    static void onPadAdded(GstElement* element, GstPad* pad, gpointer self);

    ReceiverCallbacks m_callbacks;
    ReceiverConfig m_config;
    ReceiverPorts m_ports;

    ElementPtr m_pipeline;
    ElementPtr m_videoSource;
    ElementPtr m_depay;
    ElementPtr m_rtcpSink;
    BusForwarder m_bus;
    mutable std::mutex m_jitterMutex;
    ElementPtr m_jitterbuffer;  // the video stream's (UDP: made by rtpbin)
    std::map<guint, ElementPtr> m_jitterbuffers;  // UDP: rtpbin's, by SSRC
    uint64_t m_lastPushed = 0, m_lastLost = 0;
    double m_lossPercent = 0.0;
    bool m_depayLinked = false;

    ElementPtr m_audioPipeline;
    BusForwarder m_audioBus;
    bool m_audioToDevice = false;

    std::atomic<bool> m_running{false};
    std::atomic<bool> m_senderPaused{false};
    mutable std::mutex m_errorMutex;
    std::string m_firstError;

    WarningLimiter m_warnings;
    RateMeter m_videoBytes;
    RateMeter m_frames;
    RateMeter m_delaySumUs;   // per picture: arrival to decoded, microseconds
    RateMeter m_audioBytes;
    RateMeter::Clock::time_point m_startTime{};
    int m_srtLatencyMs = 0;

    mutable std::mutex m_frameMutex;
    QImage m_latest;

    std::thread m_monitor;
    std::mutex m_monitorMutex;
    std::condition_variable m_monitorWake;
    bool m_monitorStop = false;
};

ElementPtr ReceiverPipeline::Impl::element(const char* factory, const std::string& name, std::string* error) {
    ElementPtr made = makeElement(factory, name);
    if (!made && error != nullptr && error->empty()) {
        *error = std::string("GStreamer element ") + factory + " is not installed";
    }
    return made;
}

std::string ReceiverPipeline::Impl::firstError() const {
    std::lock_guard<std::mutex> lock(m_errorMutex);
    return m_firstError;
}

void ReceiverPipeline::Impl::reportError(const std::string& error) {
    {
        std::lock_guard<std::mutex> lock(m_errorMutex);
        if (m_firstError.empty()) m_firstError = error;
    }
    if (m_running && m_callbacks.error) m_callbacks.error(error);
}

std::string ReceiverPipeline::Impl::start(const ReceiverConfig& config) {
    stop();
    std::string error = ensureGstInitialized();
    if (!error.empty()) return error;
    if (config.transport == MediaTransport::Srt &&
        (config.srtPassphrase.size() < 10 || config.srtPassphrase.size() > 79)) {
        return "SRT passphrase must have 10 to 79 characters";
    }
    m_config = config;
    if (m_config.latencyMs < 0) m_config.latencyMs = 0;
    if (m_config.stallSeconds <= 0) m_config.stallSeconds = 5;
    m_ports = {};
    {
        std::lock_guard<std::mutex> lock(m_errorMutex);
        m_firstError.clear();
    }
    m_videoBytes.reset();
    m_frames.reset();
    m_delaySumUs.reset();
    m_audioBytes.reset();
    m_lossPercent = 0.0;
    m_lastPushed = m_lastLost = 0;
    m_depayLinked = false;
    m_srtLatencyMs = m_config.transport == MediaTransport::Srt ? m_config.latencyMs : 0;
    {
        std::lock_guard<std::mutex> lock(m_frameMutex);
        m_latest = QImage();
    }

    error = buildVideo();
    if (error.empty() && m_config.audio) {
        const std::string audioError = buildAudio();
        if (!audioError.empty()) {
            ZV_LOG(WARNING) << " no sound for this cast: " << audioError;
            if (m_audioPipeline) gst_element_set_state(m_audioPipeline.get(), GST_STATE_NULL);
            m_audioBus.detach();
            m_audioPipeline.reset();
            m_ports.audio = 0;
        }
    }
    if (!error.empty()) {
        ZV_LOG(ERROR) << " the receiver does not start: " << error;
        dumpPipelineGraph(m_pipeline.get(), "zv-receiver-failed");
        stop();
        return error;
    }
    m_running = true;
    m_startTime = RateMeter::Clock::now();
    {
        std::lock_guard<std::mutex> lock(m_monitorMutex);
        m_monitorStop = false;
    }
    m_monitor = std::thread([this] { monitor(); });
    ZV_LOG(INFO) << " receiving " << transportName(m_config.transport) << " on video port " << m_ports.video
                 << (m_ports.audio != 0 ? ", audio port " + std::to_string(m_ports.audio) : std::string())
                 << (m_ports.rtcp != 0 ? ", RTCP port " + std::to_string(m_ports.rtcp) : std::string())
                 << ", latency " << m_config.latencyMs << " ms";
    return {};
}

std::string ReceiverPipeline::Impl::buildVideo() {
    std::string error;
    m_pipeline = adoptFloating(gst_pipeline_new("zv-receiver"));
    GstElement* pipeline = m_pipeline.get();
    const ReceiverConfig& config = m_config;
    m_bus.attach(pipeline, [this](GstMessage* message) { onMessage(message, false); });
    ElementPtr rtcpSource;

    switch (config.transport) {
        case MediaTransport::Udp: {
            m_videoSource = element("udpsrc", "zv-video-src", &error);
            ElementPtr rtpbin = element("rtpbin", "zv-rtpbin", &error);
            rtcpSource = element("udpsrc", "zv-rtcp-src", &error);
            m_depay = element("rtph264depay", "zv-depay", &error);
            if (!error.empty()) return error;
            CapsPtr caps = capsFromString(kVideoRtpFeedbackCaps);
            g_object_set(m_videoSource.get(), "address", config.listenAddress.c_str(), "port",
                         static_cast<gint>(config.videoPort), "buffer-size", kUdpReceiveBufferBytes, "caps",
                         caps.get(), nullptr);
            CapsPtr rtcpCaps = capsFromString("application/x-rtcp");
            g_object_set(rtcpSource.get(), "address", config.listenAddress.c_str(), "port",
                         static_cast<gint>(config.rtcpPort), "caps", rtcpCaps.get(), nullptr);
            const bool feedback = config.senderRtcpPort != 0 && !config.senderHost.empty();
            // Time for a lost packet to be asked for again (twice if need be).
            // It delays nothing while packets arrive in order.
            const int latencyMs = feedback ? std::max(config.latencyMs, kRetransmissionLatencyMs) : config.latencyMs;
            // do-lost: the depayloader learns of a packet given up on and asks
            // for a key frame at once, instead of waiting for the next one.
            g_object_set(rtpbin.get(), "latency", static_cast<guint>(latencyMs), "drop-on-latency", TRUE,
                         "do-retransmission", feedback ? TRUE : FALSE, "do-lost", TRUE, nullptr);
            setPropertyText(rtpbin.get(), "rtp-profile", feedback ? "avpf" : "avp");
            g_signal_connect(rtpbin.get(), "request-pt-map", G_CALLBACK(&Impl::onRequestPtMap), this);
            g_signal_connect(rtpbin.get(), "new-jitterbuffer", G_CALLBACK(&Impl::onNewJitterbuffer), this);
            g_signal_connect(rtpbin.get(), "pad-added", G_CALLBACK(&Impl::onPadAdded), this);
            if (feedback) {
                g_signal_connect(rtpbin.get(), "request-aux-receiver", G_CALLBACK(&Impl::onRequestAuxReceiver), this);
            }
            for (const ElementPtr* part : {&m_videoSource, &rtpbin, &rtcpSource}) add(pipeline, *part);
            if (!gst_element_link_pads(m_videoSource.get(), "src", rtpbin.get(), "recv_rtp_sink_0") ||
                !gst_element_link_pads(rtcpSource.get(), "src", rtpbin.get(), "recv_rtcp_sink_0")) {
                return "cannot link the UDP sources to rtpbin";
            }
            if (feedback) {
                // RTCP is sized from the session's bandwidth; the default guess
                // is low and would hold NACKs back for the next regular report,
                // past the jitter buffer's deadline. Feedback may go at once.
                GstElement* session = nullptr;
                g_signal_emit_by_name(rtpbin.get(), "get-session", 0u, &session);
                if (session != nullptr) {
                    g_object_set(session, "bandwidth", kSessionBandwidthBytes, "rtcp-min-interval",
                                 static_cast<guint64>(kRtcpMinIntervalMs) * GST_MSECOND, nullptr);
                    gst_object_unref(session);
                }
                m_rtcpSink = element("udpsink", "zv-rtcp-sink", &error);
                if (!error.empty()) return error;
                g_object_set(m_rtcpSink.get(), "host", config.senderHost.c_str(), "port",
                             static_cast<gint>(config.senderRtcpPort), "sync", FALSE, "async", FALSE, "close-socket",
                             FALSE, nullptr);
                add(pipeline, m_rtcpSink);
                if (!gst_element_link_pads(rtpbin.get(), "send_rtcp_src_0", m_rtcpSink.get(), "sink")) {
                    return "cannot link the RTCP sender";
                }
            } else {
                ZV_LOG(WARNING) << " no RTCP port from the sender: lost packets cannot be asked for again";
            }
            // The depayloader and what follows are linked when rtpbin sees the stream (onPadAdded).
            error = buildDecoding(pipeline, nullptr);
            if (!error.empty()) return error;
            break;
        }
        case MediaTransport::Tcp: {
            m_videoSource = element("tcpserversrc", "zv-video-src", &error);
            ElementPtr framing = element("capsfilter", "zv-stream-caps", &error);
            ElementPtr deframing = element("rtpstreamdepay", "zv-deframing", &error);
            ElementPtr jitter = element("rtpjitterbuffer", "zv-jitter", &error);
            m_depay = element("rtph264depay", "zv-depay", &error);
            if (!error.empty()) return error;
            g_object_set(m_videoSource.get(), "host", config.listenAddress.c_str(), "port",
                         static_cast<gint>(config.videoPort), "do-timestamp", TRUE, nullptr);
            CapsPtr caps = capsFromString(kVideoStreamCaps);
            g_object_set(framing.get(), "caps", caps.get(), nullptr);
            g_object_set(jitter.get(), "latency", static_cast<guint>(config.latencyMs), "drop-on-latency", TRUE,
                         "do-lost", TRUE, nullptr);
            for (const ElementPtr* part : {&m_videoSource, &framing, &deframing, &jitter}) add(pipeline, *part);
            if (!gst_element_link_many(m_videoSource.get(), framing.get(), deframing.get(), jitter.get(), nullptr)) {
                return "cannot link the TCP source";
            }
            {
                std::lock_guard<std::mutex> lock(m_jitterMutex);
                m_jitterbuffer = addRef(jitter.get());
            }
            error = buildDecoding(pipeline, jitter.get());
            if (!error.empty()) return error;
            break;
        }
        case MediaTransport::Srt: {
            m_videoSource = element("srtsrc", "zv-video-src", &error);
            ElementPtr rtpCaps = element("capsfilter", "zv-rtp-caps", &error);
            ElementPtr jitter = element("rtpjitterbuffer", "zv-jitter", &error);
            m_depay = element("rtph264depay", "zv-depay", &error);
            if (!error.empty()) return error;
            uint16_t port = config.videoPort;
            if (port == 0) port = pickFreeUdpPort(&error);
            if (port == 0) return error;
            const std::string uri = srtListenUri(config.listenAddress, port);
            g_object_set(m_videoSource.get(), "uri", uri.c_str(), "passphrase", config.srtPassphrase.c_str(), "latency",
                         config.latencyMs, "do-timestamp", TRUE, nullptr);
            setPropertyText(m_videoSource.get(), "pbkeylen", "16");
            CapsPtr caps = capsFromString(kVideoRtpCaps);
            g_object_set(rtpCaps.get(), "caps", caps.get(), nullptr);
            g_object_set(jitter.get(), "latency", static_cast<guint>(config.latencyMs), "drop-on-latency", TRUE,
                         "do-lost", TRUE, nullptr);
            for (const ElementPtr* part : {&m_videoSource, &rtpCaps, &jitter}) add(pipeline, *part);
            if (!gst_element_link_many(m_videoSource.get(), rtpCaps.get(), jitter.get(), nullptr)) {
                return "cannot link the SRT source";
            }
            {
                std::lock_guard<std::mutex> lock(m_jitterMutex);
                m_jitterbuffer = addRef(jitter.get());
            }
            m_ports.video = port;
            error = buildDecoding(pipeline, jitter.get());
            if (!error.empty()) return error;
            break;
        }
    }

    PadPtr received(gst_element_get_static_pad(m_videoSource.get(), "src"));
    gst_pad_add_probe(received.get(), static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST),
                      &Impl::onVideoBytes, this, nullptr);

    // Bind the sockets (READY) to learn the ports before anything flows.
    error = changeState(pipeline, GST_STATE_READY, 3000, [this] { return firstError(); });
    if (!error.empty()) return error;
    if (config.transport == MediaTransport::Udp) {
        gint port = 0;
        g_object_get(m_videoSource.get(), "port", &port, nullptr);
        m_ports.video = static_cast<uint16_t>(port);
        g_object_get(rtcpSource.get(), "port", &port, nullptr);
        m_ports.rtcp = static_cast<uint16_t>(port);
        if (m_rtcpSink) {
            // Feedback leaves from our RTCP port, so the sender sees one address for us.
            GSocket* socket = nullptr;
            g_object_get(rtcpSource.get(), "used-socket", &socket, nullptr);
            if (socket != nullptr) {
                g_object_set(m_rtcpSink.get(), "socket", socket, nullptr);
                g_object_unref(socket);
            }
        }
    }
    const GstStateChangeReturn result = gst_element_set_state(pipeline, GST_STATE_PLAYING);
    if (result == GST_STATE_CHANGE_FAILURE) {
        const std::string why = firstError();
        return why.empty() ? "the receiving pipeline does not start" : why;
    }
    if (config.transport == MediaTransport::Tcp) {
        gint port = 0;
        g_object_get(m_videoSource.get(), "current-port", &port, nullptr);
        m_ports.video = static_cast<uint16_t>(port);
        if (port <= 0) return "the TCP listener did not open a port";
    }
    return {};
}

// depay ─▶ decoder ─▶ videoconvert ─▶ BGRx ─▶ appsink; linked to upstream
// when given (UDP links later, from rtpbin's pad).
std::string ReceiverPipeline::Impl::buildDecoding(GstElement* pipeline, GstElement* upstream) {
    std::string error;
    ElementPtr decoder = makeElement("avdec_h264", "zv-decoder");
    if (decoder) {
        setPropertyText(decoder.get(), "thread-type", "slice");  // frame threads would add frames of delay
        g_object_set(decoder.get(), "output-corrupt", FALSE, nullptr);
    } else {
        decoder = makeElement("openh264dec", "zv-decoder");
    }
    if (!decoder) return "no H.264 decoder (install gstreamer1.0-libav)";
    ElementPtr convert = element("videoconvert", "zv-convert", &error);
    ElementPtr rgb = element("capsfilter", "zv-rgb", &error);
    ElementPtr sink = element("appsink", "zv-frames", &error);
    if (!error.empty()) return error;
    g_object_set(m_depay.get(), "request-keyframe", TRUE, "wait-for-keyframe", TRUE, nullptr);
    CapsPtr caps = capsFromString("video/x-raw,format=BGRx");
    g_object_set(rgb.get(), "caps", caps.get(), nullptr);
    g_object_set(sink.get(), "sync", FALSE, "async", FALSE, "max-buffers", 1u, "drop", TRUE, "emit-signals", FALSE,
                 "enable-last-sample", FALSE, nullptr);
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = &Impl::onNewSample;
    gst_app_sink_set_callbacks(GST_APP_SINK(sink.get()), &callbacks, this, nullptr);
    for (const ElementPtr* part : {&m_depay, &decoder, &convert, &rgb, &sink}) add(pipeline, *part);
    if (!gst_element_link_many(m_depay.get(), decoder.get(), convert.get(), rgb.get(), sink.get(), nullptr)) {
        return "cannot link the decoder";
    }
    if (upstream != nullptr && !gst_element_link(upstream, m_depay.get())) return "cannot link the depayloader";
    return {};
}

std::string ReceiverPipeline::Impl::buildAudio() {
    std::string error;
    const ReceiverConfig& config = m_config;
    m_audioPipeline = adoptFloating(gst_pipeline_new("zv-receiver-audio"));
    GstElement* pipeline = m_audioPipeline.get();
    m_audioBus.attach(pipeline, [this](GstMessage* message) { onMessage(message, true); });
    std::vector<ElementPtr> chain;
    ElementPtr source;
    uint16_t port = config.audioPort;
    switch (config.transport) {
        case MediaTransport::Udp: {
            source = element("udpsrc", "zv-audio-src", &error);
            if (!source) return error;
            CapsPtr caps = capsFromString(kAudioRtpCaps);
            g_object_set(source.get(), "address", config.listenAddress.c_str(), "port", static_cast<gint>(port), "caps",
                         caps.get(), nullptr);
            break;
        }
        case MediaTransport::Tcp: {
            source = element("tcpserversrc", "zv-audio-src", &error);
            ElementPtr framing = element("capsfilter", "zv-audio-stream-caps", &error);
            ElementPtr deframing = element("rtpstreamdepay", "zv-audio-deframing", &error);
            if (!error.empty()) return error;
            g_object_set(source.get(), "host", config.listenAddress.c_str(), "port", static_cast<gint>(port),
                         "do-timestamp", TRUE, nullptr);
            CapsPtr caps = capsFromString(kAudioStreamCaps);
            g_object_set(framing.get(), "caps", caps.get(), nullptr);
            chain.push_back(std::move(framing));
            chain.push_back(std::move(deframing));
            break;
        }
        case MediaTransport::Srt: {
            source = element("srtsrc", "zv-audio-src", &error);
            ElementPtr rtpCaps = element("capsfilter", "zv-audio-rtp-caps", &error);
            if (!error.empty()) return error;
            if (port == 0) port = pickFreeUdpPort(&error);
            if (port == 0) return error;
            const std::string uri = srtListenUri(config.listenAddress, port);
            g_object_set(source.get(), "uri", uri.c_str(), "passphrase", config.srtPassphrase.c_str(), "latency",
                         config.latencyMs, "do-timestamp", TRUE, nullptr);
            setPropertyText(source.get(), "pbkeylen", "16");
            CapsPtr caps = capsFromString(kAudioRtpCaps);
            g_object_set(rtpCaps.get(), "caps", caps.get(), nullptr);
            chain.push_back(std::move(rtpCaps));
            m_ports.audio = port;
            break;
        }
    }
    ElementPtr jitter = element("rtpjitterbuffer", "zv-audio-jitter", &error);
    ElementPtr depay = element("rtpopusdepay", "zv-audio-depay", &error);
    ElementPtr decoder = element("opusdec", "zv-audio-decoder", &error);
    ElementPtr convert = element("audioconvert", "zv-audio-convert", &error);
    ElementPtr resample = element("audioresample", "zv-audio-resample", &error);
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
        output = element("fakesink", "zv-audio-out", &error);
        if (output) g_object_set(output.get(), "sync", FALSE, "async", FALSE, nullptr);
    }
    if (!output) return error;

    std::vector<GstElement*> links = {source.get()};
    add(pipeline, source);
    for (auto& part : chain) {
        add(pipeline, part);
        links.push_back(part.get());
    }
    for (const ElementPtr* part : {&jitter, &depay, &decoder, &convert, &resample, &output}) {
        add(pipeline, *part);
        links.push_back(part->get());
    }
    for (size_t i = 0; i + 1 < links.size(); ++i) {
        if (!gst_element_link(links[i], links[i + 1])) return "cannot link the sound elements";
    }
    PadPtr received(gst_element_get_static_pad(source.get(), "src"));
    gst_pad_add_probe(received.get(), GST_PAD_PROBE_TYPE_BUFFER, &Impl::onAudioBytes, this, nullptr);

    error = changeState(pipeline, GST_STATE_READY, 3000, [this] { return firstError(); });
    if (!error.empty()) return error;
    if (config.transport == MediaTransport::Udp) {
        gint bound = 0;
        g_object_get(source.get(), "port", &bound, nullptr);
        m_ports.audio = static_cast<uint16_t>(bound);
    }
    if (gst_element_set_state(pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        return "the sound pipeline does not start";
    }
    if (config.transport == MediaTransport::Tcp) {
        gint bound = 0;
        g_object_get(source.get(), "current-port", &bound, nullptr);
        m_ports.audio = static_cast<uint16_t>(bound);
    }
    return {};
}

GstCaps* ReceiverPipeline::Impl::onRequestPtMap(GstElement*, guint session, guint pt, gpointer) {
    if (session != 0) return nullptr;
    if (pt == kVideoPayloadType) return gst_caps_from_string(kVideoRtpFeedbackCaps);
    if (pt == kVideoRtxPayloadType) {
        return gst_caps_from_string("application/x-rtp,media=video,clock-rate=90000,encoding-name=RTX,apt=96");
    }
    return nullptr;
}

GstElement* ReceiverPipeline::Impl::onRequestAuxReceiver(GstElement*, guint session, gpointer) {
    if (session != 0) return nullptr;
    GstElement* rtx = gst_element_factory_make("rtprtxreceive", "zv-rtx");
    if (rtx == nullptr) {
        ZV_LOG(WARNING) << " rtprtxreceive missing: no retransmission";
        return nullptr;
    }
    GstElement* bin = gst_bin_new("zv-rtx-bin");
    StructurePtr map(gst_structure_new("application/x-rtp-pt-map", std::to_string(kVideoPayloadType).c_str(),
                                       G_TYPE_UINT, static_cast<guint>(kVideoRtxPayloadType), nullptr));
    g_object_set(rtx, "payload-type-map", map.get(), nullptr);
    gst_bin_add(GST_BIN(bin), rtx);
    PadPtr src(gst_element_get_static_pad(rtx, "src"));
    PadPtr sink(gst_element_get_static_pad(rtx, "sink"));
    gst_element_add_pad(bin, gst_ghost_pad_new("src_0", src.get()));
    gst_element_add_pad(bin, gst_ghost_pad_new("sink_0", sink.get()));
    return bin;  // floating: rtpbin takes it
}

void ReceiverPipeline::Impl::onNewJitterbuffer(GstElement*, GstElement* jitterbuffer, guint session, guint ssrc,
                                               gpointer self) {
    if (session != 0) return;
    auto* impl = static_cast<Impl*>(self);
    // One per SSRC, the retransmission stream's included (its RTCP makes
    // one): the video's is picked when its pad appears (onPadAdded).
    // The sender's frames leave after a capture and an encode of varying
    // length, so the jitter looks large; waiting for that long before
    // asking again would use up the latency. Ask soon after a gap.
    // And no guessing when the next packet is due: a still screen sends one
    // frame a second, and a packet "missing" in between would be asked for,
    // given up as lost (a key-frame request) and dropped as late when it comes.
    g_object_set(jitterbuffer, "rtx-delay", kRtxDelayMs, "rtx-next-seqnum", FALSE, nullptr);
    std::lock_guard<std::mutex> lock(impl->m_jitterMutex);
    impl->m_jitterbuffers[ssrc] = addRef(jitterbuffer);
}

void ReceiverPipeline::Impl::onPadAdded(GstElement* element, GstPad* pad, gpointer self) {
    auto* impl = static_cast<Impl*>(self);
    const std::string name = takeString(gst_pad_get_name(pad));
    if (name.rfind("recv_rtp_src_0_", 0) != 0) return;
    PadPtr depaySink(gst_element_get_static_pad(impl->m_depay.get(), "sink"));
    if (!gst_pad_is_linked(depaySink.get())) {
        // recv_rtp_src_<session>_<ssrc>_<pt>
        const guint ssrc = static_cast<guint>(std::strtoul(name.c_str() + std::strlen("recv_rtp_src_0_"), nullptr, 10));
        {
            std::lock_guard<std::mutex> lock(impl->m_jitterMutex);
            const auto found = impl->m_jitterbuffers.find(ssrc);
            if (found != impl->m_jitterbuffers.end()) impl->m_jitterbuffer = addRef(found->second.get());
            impl->m_lastPushed = impl->m_lastLost = 0;
        }
        if (gst_pad_link(pad, depaySink.get()) != GST_PAD_LINK_OK) {
            impl->reportError("cannot link the received stream to the depayloader");
        }
        return;
    }
    // A second sender stream (a restarted sender): it is not shown, but it must not stall rtpbin.
    ZV_LOG(WARNING) << " another stream arrived (" << name << "); ignoring it";
    GstElement* bin = GST_ELEMENT(gst_element_get_parent(element));
    GstElement* sink = gst_element_factory_make("fakesink", nullptr);
    g_object_set(sink, "sync", FALSE, "async", FALSE, nullptr);
    gst_bin_add(GST_BIN(bin), sink);
    gst_element_sync_state_with_parent(sink);
    PadPtr sinkPad(gst_element_get_static_pad(sink, "sink"));
    gst_pad_link(pad, sinkPad.get());
    gst_object_unref(bin);
}

GstPadProbeReturn ReceiverPipeline::Impl::onVideoBytes(GstPad*, GstPadProbeInfo* info, gpointer self) {
    auto* impl = static_cast<Impl*>(self);
    if ((info->type & GST_PAD_PROBE_TYPE_BUFFER) != 0) {
        impl->m_videoBytes.add(gst_buffer_get_size(GST_PAD_PROBE_INFO_BUFFER(info)));
    } else if ((info->type & GST_PAD_PROBE_TYPE_BUFFER_LIST) != 0) {
        impl->m_videoBytes.add(gst_buffer_list_calculate_size(GST_PAD_PROBE_INFO_BUFFER_LIST(info)));
    }
    return GST_PAD_PROBE_OK;
}

GstPadProbeReturn ReceiverPipeline::Impl::onAudioBytes(GstPad*, GstPadProbeInfo* info, gpointer self) {
    static_cast<Impl*>(self)->m_audioBytes.add(gst_buffer_get_size(GST_PAD_PROBE_INFO_BUFFER(info)));
    return GST_PAD_PROBE_OK;
}

GstFlowReturn ReceiverPipeline::Impl::onNewSample(GstAppSink* sink, gpointer self) {
    static_cast<Impl*>(self)->onSample(sink);
    return GST_FLOW_OK;
}

void ReceiverPipeline::Impl::onSample(GstAppSink* sink) {
    SamplePtr sample(gst_app_sink_pull_sample(sink));
    if (!sample) return;
    GstBuffer* buffer = gst_sample_get_buffer(sample.get());
    GstCaps* caps = gst_sample_get_caps(sample.get());
    GstVideoInfo info;
    if (buffer == nullptr || caps == nullptr || !gst_video_info_from_caps(&info, caps)) return;

    // Arrival (the buffer's time, in running time) to now.
    const GstSegment* segment = gst_sample_get_segment(sample.get());
    GstClock* clock = gst_element_get_clock(GST_ELEMENT(sink));
    if (clock != nullptr && segment != nullptr && GST_BUFFER_PTS_IS_VALID(buffer)) {
        const GstClockTime now = gst_clock_get_time(clock) - gst_element_get_base_time(GST_ELEMENT(sink));
        const GstClockTime arrival = gst_segment_to_running_time(segment, GST_FORMAT_TIME, GST_BUFFER_PTS(buffer));
        if (GST_CLOCK_TIME_IS_VALID(arrival) && now >= arrival) {
            m_delaySumUs.add((now - arrival) / GST_USECOND);
        }
    }
    if (clock != nullptr) gst_object_unref(clock);

    auto* mapped = new MappedFrame;
    if (!gst_video_frame_map(&mapped->frame, &info, buffer, GST_MAP_READ)) {
        delete mapped;
        return;
    }
    const int width = GST_VIDEO_FRAME_WIDTH(&mapped->frame);
    const int height = GST_VIDEO_FRAME_HEIGHT(&mapped->frame);
    auto* data = static_cast<uchar*>(GST_VIDEO_FRAME_PLANE_DATA(&mapped->frame, 0));
    const int stride = GST_VIDEO_FRAME_PLANE_STRIDE(&mapped->frame, 0);
    mapped->sample = std::move(sample);
    // BGRx in memory is QImage's RGB32 (0xffRRGGBB) on little-endian machines.
    QImage image(data, width, height, stride, QImage::Format_RGB32, &releaseMappedFrame, mapped);
    m_frames.add(1);
    {
        std::lock_guard<std::mutex> lock(m_frameMutex);
        m_latest = image;
    }
    if (m_callbacks.frame) m_callbacks.frame(image);
}

void ReceiverPipeline::Impl::onMessage(GstMessage* message, bool audio) {
    switch (GST_MESSAGE_TYPE(message)) {
        case GST_MESSAGE_ERROR: {
            const std::string text = describeMessage(message);
            if (audio) {
                ZV_LOG(WARNING) << " sound: " << text << " (the picture goes on)";
                dumpPipelineGraph(m_audioPipeline.get(), "zv-receiver-audio-error");
                return;
            }
            ZV_LOG(ERROR) << " " << text;
            dumpPipelineGraph(m_pipeline.get(), "zv-receiver-error");
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
            ZV_LOG(INFO) << " the sender closed the " << (audio ? "sound" : "video") << " stream";
            break;
        default:
            break;
    }
}

ReceiverStatistics ReceiverPipeline::Impl::statistics(bool tick) {
    ReceiverStatistics stats;
    const auto now = RateMeter::Clock::now();
    stats.bytesReceived = m_videoBytes.total();
    stats.bitrateKbps = m_videoBytes.perSecond(now) * 8.0 / 1000.0;
    stats.framesDecoded = m_frames.total();
    stats.fps = m_frames.perSecond(now);
    const double frames = stats.fps;
    if (frames > 0) stats.delayMs = static_cast<int>(m_delaySumUs.perSecond(now) / frames / 1000.0 + 0.5) + m_srtLatencyMs;
    stats.audioBytes = m_audioBytes.total();
    stats.audioPlaying = m_audioToDevice && m_audioBytes.perSecond(now) > 0;
    {
        std::lock_guard<std::mutex> lock(m_frameMutex);
        stats.width = m_latest.width();
        stats.height = m_latest.height();
    }
    std::lock_guard<std::mutex> lock(m_jitterMutex);
    if (m_jitterbuffer) {
        GstStructure* raw = nullptr;
        g_object_get(m_jitterbuffer.get(), "stats", &raw, nullptr);
        StructurePtr jitterStats(raw);
        if (jitterStats && tick) {
            const uint64_t pushed = structureUint(jitterStats.get(), "num-pushed");
            const uint64_t lost = structureUint(jitterStats.get(), "num-lost");
            stats.packetsLost = lost;
            stats.packetsRetransmitted = structureUint(jitterStats.get(), "rtx-success-count");
            const uint64_t newPushed = pushed - std::min(pushed, m_lastPushed);
            const uint64_t newLost = lost - std::min(lost, m_lastLost);
            if (newPushed + newLost > 0) {
                m_lossPercent = 100.0 * static_cast<double>(newLost) / static_cast<double>(newPushed + newLost);
            }
            m_lastPushed = pushed;
            m_lastLost = lost;
        } else if (jitterStats) {
            stats.packetsLost = structureUint(jitterStats.get(), "num-lost");
            stats.packetsRetransmitted = structureUint(jitterStats.get(), "rtx-success-count");
        }
    }
    stats.lossPercent = m_lossPercent;
    return stats;
}

void ReceiverPipeline::Impl::monitor() {
    int nextStallNotice = m_config.stallSeconds;
    std::unique_lock<std::mutex> lock(m_monitorMutex);
    while (!m_monitorStop) {
        m_monitorWake.wait_for(lock, std::chrono::seconds(1), [this] { return m_monitorStop; });
        if (m_monitorStop) break;
        lock.unlock();
        const ReceiverStatistics stats = statistics(true);
        if (m_callbacks.stats) m_callbacks.stats(stats);

        RateMeter::Clock::time_point last = m_startTime;
        m_videoBytes.lastEvent(&last);
        const auto quiet = std::chrono::duration_cast<std::chrono::seconds>(RateMeter::Clock::now() - last).count();
        if (quiet < m_config.stallSeconds || m_senderPaused) {
            nextStallNotice = m_config.stallSeconds;
        } else if (quiet >= nextStallNotice) {
            ZV_LOG(WARNING) << " no media for " << quiet << " s";
            if (m_callbacks.stalled) m_callbacks.stalled(static_cast<int>(quiet));
            nextStallNotice = static_cast<int>(quiet) + m_config.stallSeconds;
        }
        lock.lock();
    }
}

void ReceiverPipeline::Impl::stop() {
    const bool wasRunning = m_running.exchange(false);
    {
        std::lock_guard<std::mutex> lock(m_monitorMutex);
        m_monitorStop = true;
    }
    m_monitorWake.notify_all();
    if (m_monitor.joinable()) m_monitor.join();
    if (m_audioPipeline) gst_element_set_state(m_audioPipeline.get(), GST_STATE_NULL);
    m_audioBus.detach();
    m_audioPipeline.reset();
    if (m_pipeline) gst_element_set_state(m_pipeline.get(), GST_STATE_NULL);
    m_bus.detach();
    {
        std::lock_guard<std::mutex> lock(m_jitterMutex);
        m_jitterbuffer.reset();
        m_jitterbuffers.clear();
    }
    m_videoSource.reset();
    m_depay.reset();
    m_rtcpSink.reset();
    m_pipeline.reset();
    if (wasRunning) ZV_LOG(INFO) << " receiver stopped";
}

ReceiverPipeline::ReceiverPipeline(ReceiverCallbacks callbacks) : m_impl(std::make_unique<Impl>(std::move(callbacks))) {}
ReceiverPipeline::~ReceiverPipeline() { m_impl->stop(); }
std::string ReceiverPipeline::start(const ReceiverConfig& config) { return m_impl->start(config); }
void ReceiverPipeline::stop() { m_impl->stop(); }
bool ReceiverPipeline::isRunning() const { return m_impl->m_running; }
ReceiverPorts ReceiverPipeline::ports() const { return m_impl->m_ports; }

QImage ReceiverPipeline::latestFrame() const {
    std::lock_guard<std::mutex> lock(m_impl->m_frameMutex);
    return m_impl->m_latest;
}

ReceiverStatistics ReceiverPipeline::statistics() const { return m_impl->statistics(false); }

void ReceiverPipeline::setSenderPaused(bool paused) { m_impl->m_senderPaused = paused; }

}  // namespace zv::media
