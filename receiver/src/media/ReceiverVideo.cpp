// The receiver's video pipeline and rtpbin's callbacks (ReceiverPipeline.h).
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "casting/Log.h"
#include "media/ReceiverPipelineImpl.h"
#include "media/RtpReceiving.h"
#include "media/VideoDecoding.h"

namespace zv::media {
namespace {

constexpr int kUdpReceiveBufferBytes = 4194304;
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

}  // namespace

std::string ReceiverPipeline::Impl::buildVideo() {
    m_pipeline = adoptFloating(gst_pipeline_new("zv-receiver"));
    GstElement* pipeline = m_pipeline.get();
    m_bus.attach(pipeline, [this](GstMessage* message) { onMessage(message, false); });
    const std::string error =
        m_config.transport == MediaTransport::Udp ? buildUdpVideo(pipeline) : buildStreamVideo(pipeline);
    if (!error.empty()) return error;
    return startVideo(pipeline, gst_bin_get_by_name(GST_BIN(pipeline), "zv-rtcp-src"));
}

// udpsrc ─▶ rtpbin (srtpdec, jitter buffer, retransmission) ─▶ depayloader …
std::string ReceiverPipeline::Impl::buildUdpVideo(GstElement* pipeline) {
    const ReceiverConfig& config = m_config;
    std::string error;
    m_videoSource = makeRequiredElement("udpsrc", "zv-video-src", &error);
    ElementPtr rtpbin = makeRequiredElement("rtpbin", "zv-rtpbin", &error);
    ElementPtr rtcpSource = makeRequiredElement("udpsrc", "zv-rtcp-src", &error);
    if (!error.empty()) return error;
    CapsPtr caps = capsFromString(wireCaps(kVideoRtpFeedbackCaps, m_encrypted, false));
    g_object_set(m_videoSource.get(), "address", config.listenAddress.c_str(), "port",
                 static_cast<gint>(config.videoPort), "buffer-size", kUdpReceiveBufferBytes, "caps", caps.get(),
                 nullptr);
    CapsPtr rtcpCaps = capsFromString(m_encrypted ? "application/x-srtcp" : "application/x-rtcp");
    g_object_set(rtcpSource.get(), "address", config.listenAddress.c_str(), "port",
                 static_cast<gint>(config.rtcpPort), "caps", rtcpCaps.get(), nullptr);
    m_peer.attachToUdpSource(m_videoSource.get());
    m_peer.attachToUdpSource(rtcpSource.get());
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
    if (m_encrypted) useSrtpInRtpbin(rtpbin.get(), m_srtpEncoder.get(), m_videoSrtp.element());
    for (const ElementPtr* part : {&m_videoSource, &rtpbin, &rtcpSource}) gst_bin_add(GST_BIN(pipeline), part->get());
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
        m_rtcpSink = makeRequiredElement("udpsink", "zv-rtcp-sink", &error);
        if (!error.empty()) return error;
        g_object_set(m_rtcpSink.get(), "host", config.senderHost.c_str(), "port",
                     static_cast<gint>(config.senderRtcpPort), "sync", FALSE, "async", FALSE, "close-socket", FALSE,
                     nullptr);
        gst_bin_add(GST_BIN(pipeline), m_rtcpSink.get());
        if (!gst_element_link_pads(rtpbin.get(), "send_rtcp_src_0", m_rtcpSink.get(), "sink")) {
            return "cannot link the RTCP sender";
        }
    } else {
        ZV_LOG(WARNING) << " no RTCP port from the sender: lost packets cannot be asked for again";
    }
    // The depayloader and what follows are linked when rtpbin sees the stream (onPadAdded).
    return buildDecoding(pipeline);
}

// TCP or SRT: source ─▶ srtpdec ─▶ rtpjitterbuffer ─▶ depayloader …
std::string ReceiverPipeline::Impl::buildStreamVideo(GstElement* pipeline) {
    const ReceiverConfig& config = m_config;
    std::string error;
    StreamSource source;
    error = buildStreamSource(pipeline, streamSpec(config.videoPort, kVideoRtpCaps, "zv-video"), m_peer,
                              m_encrypted ? &m_videoSrtp : nullptr, &source);
    if (!error.empty()) return error;
    m_videoSource = std::move(source.source);
    m_ports.video = source.srtPort;
    ElementPtr jitter = makeRequiredElement("rtpjitterbuffer", "zv-jitter", &error);
    if (!error.empty()) return error;
    g_object_set(jitter.get(), "latency", static_cast<guint>(config.latencyMs), "drop-on-latency", TRUE, "do-lost",
                 TRUE, nullptr);
    gst_bin_add(GST_BIN(pipeline), jitter.get());
    if (!linkOn(source, jitter.get())) return "cannot link the jitter buffer";
    {
        std::lock_guard<std::mutex> lock(m_jitterMutex);
        m_jitterbuffer = addRef(jitter.get());
    }
    error = buildDecoding(pipeline);
    if (!error.empty()) return error;
    return gst_element_link(jitter.get(), m_depay.get()) ? std::string() : "cannot link the depayloader";
}

std::string ReceiverPipeline::Impl::buildDecoding(GstElement* pipeline) {
    if (m_config.videoWindow != 0) return buildWindowDecoding(pipeline);
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = &Impl::onNewSample;
    return buildH264Decoding(pipeline, callbacks, this, &m_depay);
}

// Binds the sockets (READY) to learn the ports before anything flows, then plays.
std::string ReceiverPipeline::Impl::startVideo(GstElement* pipeline, GstElement* rtcpSource) {
    ElementPtr rtcp(rtcpSource);  // the reference gst_bin_get_by_name gave
    PadPtr received(gst_element_get_static_pad(m_videoSource.get(), "src"));
    countBytes(received.get(), &m_videoBytes);
    std::string error = changeState(pipeline, GST_STATE_READY, 3000, [this] { return firstError(); });
    if (!error.empty()) return error;
    if (m_config.transport == MediaTransport::Udp) {
        gint port = 0;
        g_object_get(m_videoSource.get(), "port", &port, nullptr);
        m_ports.video = static_cast<uint16_t>(port);
        g_object_get(rtcp.get(), "port", &port, nullptr);
        m_ports.rtcp = static_cast<uint16_t>(port);
        if (m_rtcpSink) {
            // Feedback leaves from our RTCP port, so the sender sees one address for us.
            GSocket* socket = nullptr;
            g_object_get(rtcp.get(), "used-socket", &socket, nullptr);
            if (socket != nullptr) {
                g_object_set(m_rtcpSink.get(), "socket", socket, nullptr);
                g_object_unref(socket);
            }
        }
    }
    if (gst_element_set_state(pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        const std::string why = firstError();
        return why.empty() ? "the receiving pipeline does not start" : why;
    }
    if (m_config.transport == MediaTransport::Tcp) {
        gint port = 0;
        g_object_get(m_videoSource.get(), "current-port", &port, nullptr);
        m_ports.video = static_cast<uint16_t>(port);
        if (port <= 0) return "the TCP listener did not open a port";
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
    return session == 0 ? makeRetransmissionBin(false) : nullptr;  // floating: rtpbin takes it
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

}  // namespace zv::media
