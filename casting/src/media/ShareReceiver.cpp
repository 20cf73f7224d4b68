#include "media/ShareReceiver.h"

#include <gst/app/gstappsink.h>

#include <atomic>
#include <mutex>

#include "casting/Log.h"
#include "media/GstInit.h"
#include "media/PeerFilter.h"
#include "media/PipelineSupport.h"
#include "media/RateMeter.h"
#include "media/RtpReceiving.h"
#include "media/SrtpKeying.h"
#include "media/UdpPortReservation.h"

namespace zv::media {
namespace {

constexpr int kUdpReceiveBufferBytes = 4194304;
const char* kVideoCaps = "application/x-rtp,media=video,clock-rate=90000,encoding-name=H264,payload=96";
const char* kAudioCaps = "application/x-rtp,media=audio,clock-rate=48000,encoding-name=OPUS,payload=111";

}  // namespace

struct ShareReceiver::Impl {
    UnitCallback units;
    ErrorCallback error;
    std::shared_ptr<UdpPortReservation> videoPort, audioPort, rtcpPort;
    ElementPtr pipeline;
    BusForwarder bus;
    PeerFilter peer;
    SrtpDecoder videoSrtp, audioSrtp;
    WarningLimiter warnings;
    RateMeter bytes, frames;
    mutable std::mutex jitterMutex;
    ElementPtr videoJitter;  // for its jitter figure; under jitterMutex
    int latencyMs = 0;
    std::atomic<uint64_t> videoUnits{0}, audioUnits{0};
    std::atomic<bool> running{false};
    std::mutex errorMutex;
    std::string firstError;

    std::string buildStream(const char* caps, const char* prefix, UdpPortReservation& port, SrtpDecoder& srtp,
                            int latencyMs, int kind);
    static GstFlowReturn onSample(GstAppSink* sink, gpointer self);
    void deliver(GstAppSink* sink, int kind);
};

ShareReceiver::ShareReceiver(UnitCallback units, ErrorCallback error) : m_impl(std::make_unique<Impl>()) {
    m_impl->units = std::move(units);
    m_impl->error = std::move(error);
}

ShareReceiver::~ShareReceiver() { stop(); }

std::string ShareReceiver::reserve() {
    std::string error;
    Impl& d = *m_impl;
    d.videoPort = UdpPortReservation::bind(0, &error);
    if (d.videoPort) d.audioPort = UdpPortReservation::bind(0, &error);
    if (d.audioPort) d.rtcpPort = UdpPortReservation::bind(0, &error);
    return d.rtcpPort ? std::string() : (error.empty() ? "cannot bind the share's UDP ports" : error);
}

ShareReceiverPorts ShareReceiver::ports() const {
    const Impl& d = *m_impl;
    ShareReceiverPorts ports;
    if (d.videoPort) ports.video = d.videoPort->port();
    if (d.audioPort) ports.audio = d.audioPort->port();
    if (d.rtcpPort) ports.rtcp = d.rtcpPort->port();
    return ports;
}

std::string ShareReceiver::Impl::buildStream(const char* caps, const char* prefix, UdpPortReservation& port,
                                             SrtpDecoder& srtp, int latencyMs, int kind) {
    std::string error;
    StreamSourceSpec spec;
    spec.transport = MediaTransport::Udp;
    spec.port = 0;
    spec.rtpCaps = caps;
    spec.prefix = prefix;
    spec.udpBufferBytes = kUdpReceiveBufferBytes;
    StreamSource source;
    error = buildStreamSource(pipeline.get(), spec, peer, &srtp, &source);
    if (!error.empty()) return error;
    // The port the PC named in its request: the reserved socket, kept by us.
    g_object_set(source.source.get(), "socket", port.socket(), "close-socket", FALSE, nullptr);
    ElementPtr jitter = makeRequiredElement("rtpjitterbuffer", std::string(prefix) + "-jitter", &error);
    ElementPtr depay = makeRequiredElement(kind == 1 ? "rtph264depay" : "rtpopusdepay",
                                           std::string(prefix) + "-depay", &error);
    ElementPtr parse = kind == 1 ? makeRequiredElement("h264parse", std::string(prefix) + "-parse", &error) : nullptr;
    ElementPtr filter = kind == 1 ? makeRequiredElement("capsfilter", std::string(prefix) + "-au", &error) : nullptr;
    ElementPtr sink = makeRequiredElement("appsink", std::string(prefix) + "-units", &error);
    if (!error.empty()) return error;
    g_object_set(jitter.get(), "latency", static_cast<guint>(latencyMs), "drop-on-latency", TRUE, "do-lost", TRUE,
                 nullptr);
    g_object_set(sink.get(), "sync", FALSE, "async", FALSE, "emit-signals", FALSE, "max-buffers", 64u, "drop", TRUE,
                 nullptr);
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = &Impl::onSample;
    gst_app_sink_set_callbacks(GST_APP_SINK(sink.get()), &callbacks, this, nullptr);
    g_object_set_data(G_OBJECT(sink.get()), "zv-kind", GINT_TO_POINTER(kind));
    std::vector<GstElement*> chain = {jitter.get(), depay.get()};
    if (kind == 1) {
        g_object_set(depay.get(), "request-keyframe", TRUE, "wait-for-keyframe", TRUE, nullptr);
        g_object_set(parse.get(), "config-interval", -1, nullptr);
        CapsPtr au = capsFromString("video/x-h264,stream-format=byte-stream,alignment=au");
        g_object_set(filter.get(), "caps", au.get(), nullptr);
        chain.push_back(parse.get());
        chain.push_back(filter.get());
    }
    chain.push_back(sink.get());
    if (kind == 1) {
        std::lock_guard<std::mutex> lock(jitterMutex);
        videoJitter = addRef(jitter.get());
        this->latencyMs = latencyMs;
    }
    gst_bin_add(GST_BIN(pipeline.get()), jitter.get());
    if (!linkOn(source, jitter.get())) return std::string("cannot link the ") + prefix + " jitter buffer";
    for (size_t i = 1; i < chain.size(); ++i) gst_bin_add(GST_BIN(pipeline.get()), chain[i]);
    for (size_t i = 0; i + 1 < chain.size(); ++i) {
        if (!gst_element_link(chain[i], chain[i + 1])) return std::string("cannot link the ") + prefix + " stream";
    }
    countBytes(PadPtr(gst_element_get_static_pad(source.source.get(), "src")).get(), &bytes);
    return {};
}

GstFlowReturn ShareReceiver::Impl::onSample(GstAppSink* sink, gpointer self) {
    static_cast<Impl*>(self)->deliver(sink, GPOINTER_TO_INT(g_object_get_data(G_OBJECT(sink), "zv-kind")));
    return GST_FLOW_OK;
}

void ShareReceiver::Impl::deliver(GstAppSink* sink, int kind) {
    SamplePtr sample(gst_app_sink_pull_sample(sink));
    if (!sample) return;
    GstBuffer* buffer = gst_sample_get_buffer(sample.get());
    GstMapInfo map;
    if (buffer == nullptr || !gst_buffer_map(buffer, &map, GST_MAP_READ)) return;
    ShareUnit unit;
    unit.kind = kind;
    unit.keyFrame = kind == 1 && !GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT);
    unit.discontinuity = GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DISCONT);
    const GstClockTime pts = GST_BUFFER_PTS(buffer);
    unit.ptsUs = GST_CLOCK_TIME_IS_VALID(pts) ? static_cast<int64_t>(pts / GST_USECOND) : 0;
    unit.data = map.data;
    unit.size = map.size;
    if (kind == 1) {
        ++videoUnits;
        frames.add(1);
    } else {
        ++audioUnits;
    }
    if (units) units(unit);
    gst_buffer_unmap(buffer, &map);
}

std::string ShareReceiver::start(const ShareReceiverConfig& config) {
    Impl& d = *m_impl;
    if (d.running) return "already receiving";
    if (!d.rtcpPort) return "no ports reserved";
    std::string error = ensureGstInitialized();
    if (!error.empty()) return error;
    if (config.receiveKey.size() != kMediaKeyBytes) return "no key for the share's media";
    error = d.peer.setPeer(config.peerAddress);
    if (!error.empty()) return error;
    error = d.videoSrtp.create(config.receiveKey, "zv-share-video-srtp");
    if (error.empty() && config.audio) error = d.audioSrtp.create(config.receiveKey, "zv-share-audio-srtp");
    if (!error.empty()) return error;
    d.pipeline = adoptFloating(gst_pipeline_new("zv-share-receiver"));
    d.bus.attach(d.pipeline.get(), [&d](GstMessage* message) {
        const std::string why = logPipelineMessage(message, d.pipeline.get(), "share-receiver", d.warnings);
        if (why.empty()) return;
        {
            std::lock_guard<std::mutex> lock(d.errorMutex);
            if (d.firstError.empty()) d.firstError = why;
        }
        if (d.running && d.error) d.error(why);
    });
    error = d.buildStream(kVideoCaps, "zv-share-video", *d.videoPort, d.videoSrtp, config.latencyMs, 1);
    if (error.empty() && config.audio) {
        error = d.buildStream(kAudioCaps, "zv-share-audio", *d.audioPort, d.audioSrtp, config.latencyMs, 2);
    }
    if (error.empty()) {
        // The panel's RTCP sender reports: taken from the socket so they do not bounce.
        ElementPtr rtcp = makeRequiredElement("udpsrc", "zv-share-rtcp", &error);
        ElementPtr drop = makeRequiredElement("fakesink", "zv-share-rtcp-drop", &error);
        if (error.empty()) {
            g_object_set(rtcp.get(), "socket", d.rtcpPort->socket(), "close-socket", FALSE, nullptr);
            g_object_set(drop.get(), "sync", FALSE, "async", FALSE, nullptr);
            if (!addAndLink(d.pipeline.get(), {rtcp.get(), drop.get()})) error = "cannot link the RTCP sink";
        }
    }
    if (error.empty()) {
        d.running = true;
        error = changeState(d.pipeline.get(), GST_STATE_PLAYING, 3000, [&d] {
            std::lock_guard<std::mutex> lock(d.errorMutex);
            return d.firstError;
        });
    }
    if (!error.empty()) {
        stop();
        return error;
    }
    ZV_LOG(INFO) << " receiving the panel's screen on UDP " << d.videoPort->port();
    return {};
}

void ShareReceiver::stop() {
    Impl& d = *m_impl;
    d.running = false;
    if (d.pipeline) {
        gst_element_set_state(d.pipeline.get(), GST_STATE_NULL);
        d.bus.detach();
        d.pipeline.reset();
    }
    {
        std::lock_guard<std::mutex> lock(d.jitterMutex);
        d.videoJitter.reset();
    }
    d.videoSrtp.reset();
    d.audioSrtp.reset();
}

bool ShareReceiver::isRunning() const { return m_impl->running; }

ShareReceiverStatistics ShareReceiver::statistics() const {
    const Impl& d = *m_impl;
    ShareReceiverStatistics s;
    s.videoUnits = d.videoUnits;
    s.audioUnits = d.audioUnits;
    s.bytes = d.bytes.total();
    s.bitrateKbps = d.bytes.perSecond() * 8.0 / 1000.0;
    s.fps = d.frames.perSecond();
    s.packetsRejected = d.videoSrtp.rejected() + d.audioSrtp.rejected();
    s.packetsFromOthers = d.peer.dropped();
    // What this side adds to the picture's age: the jitter buffer's hold
    // plus the jitter it measures on the arriving packets.
    s.delayMs = d.latencyMs;
    std::lock_guard<std::mutex> lock(d.jitterMutex);
    if (d.videoJitter) {
        GstStructure* stats = nullptr;
        g_object_get(d.videoJitter.get(), "stats", &stats, nullptr);
        if (stats != nullptr) {
            guint64 jitterNs = 0;
            if (gst_structure_get_uint64(stats, "avg-jitter", &jitterNs)) s.delayMs += static_cast<int>(jitterNs / 1000000);
            gst_structure_free(stats);
        }
    }
    return s;
}

}  // namespace zv::media
