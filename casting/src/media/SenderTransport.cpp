// The video's way from the payloader to the panel (SenderPipeline.h).
#include <algorithm>

#include "casting/Log.h"
#include "media/SenderPipelineImpl.h"
#include "media/UdpPortReservation.h"

namespace zv::media {

std::string SenderPipeline::Impl::buildVideoTransport(GstElement* payloader) {
    GstElement* sink = nullptr;
    GstElement* pipeline = m_pipeline.get();
    const std::string error = m_config.transport == MediaTransport::Udp
                                  ? buildUdpVideo(payloader, &sink)
                                  : buildSendingTail(pipeline, payloader, m_config.videoPort, "zv-video", &sink);
    if (!error.empty()) return error;
    PadPtr sent(gst_element_get_static_pad(sink, "sink"));
    countBytes(sent.get(), &m_bytes);
    return {};
}

std::string SenderPipeline::Impl::buildSendingTail(GstElement* pipeline, GstElement* payloader, uint16_t port,
                                                   const std::string& prefix, GstElement** sinkOut) {
    const SenderConfig& config = m_config;
    std::string error;
    ElementPtr encoder;
    if (m_encrypted) encoder = makeSrtpEncoder(config.sendKey, prefix + "-srtp", &error);
    ElementPtr framing;  // TCP: RFC 4571 length prefixes
    ElementPtr sink;
    switch (config.transport) {
        case MediaTransport::Udp:
            sink = makeRequiredElement("udpsink", prefix + "-sink", &error);
            if (sink) g_object_set(sink.get(), "host", config.host.c_str(), "port", static_cast<gint>(port), nullptr);
            break;
        case MediaTransport::Tcp:
            framing = makeRequiredElement("rtpstreampay", prefix + "-framing", &error);
            sink = makeRequiredElement("tcpclientsink", prefix + "-sink", &error);
            if (sink) g_object_set(sink.get(), "host", config.host.c_str(), "port", static_cast<gint>(port), nullptr);
            break;
        case MediaTransport::Srt:
            sink = makeRequiredElement("srtsink", prefix + "-sink", &error);
            if (sink) {
                configureSrt(sink.get(), srtUri(config.host, port, false), config.srtPassphrase, config.latencyMs);
            }
            break;
    }
    if (!error.empty()) return error;
    g_object_set(sink.get(), "sync", FALSE, "async", FALSE, nullptr);
    for (const ElementPtr* part : {&encoder, &framing, &sink}) {
        if (*part) gst_bin_add(GST_BIN(pipeline), part->get());
    }
    GstElement* first = framing ? framing.get() : sink.get();
    if (!linkThrough(payloader, encoder.get(), first) || (framing && !gst_element_link(framing.get(), sink.get()))) {
        return std::string("cannot link the ") + transportName(config.transport) + " sink";
    }
    *sinkOut = sink.get();
    return {};
}

// payloader ─▶ rtpbin (RTX, SRTP) ─▶ [loss] ─▶ udpsink; RTCP in and out on one socket.
std::string SenderPipeline::Impl::buildUdpVideo(GstElement* payloader, GstElement** sinkOut) {
    const SenderConfig& config = m_config;
    GstElement* pipeline = m_pipeline.get();
    std::string error;
    ElementPtr rtpbin = makeRequiredElement("rtpbin", "zv-rtpbin", &error);
    ElementPtr sink = makeRequiredElement("udpsink", "zv-video-sink", &error);
    ElementPtr loss;
    if (config.simulatedLoss > 0.0) loss = makeRequiredElement("identity", "zv-loss", &error);
    if (!error.empty()) return error;
    const bool feedback = config.remoteRtcpPort != 0;
    setPropertyText(rtpbin.get(), "rtp-profile", feedback ? "avpf" : "avp");
    if (feedback) {
        g_signal_connect(rtpbin.get(), "request-aux-sender", G_CALLBACK(&SenderPipeline::Impl::onRequestAuxSender),
                         this);
    }
    if (m_encrypted) useSrtpInRtpbin(rtpbin.get(), m_srtpEncoder.get(), m_srtpDecoder.element());
    g_object_set(sink.get(), "host", config.host.c_str(), "port", static_cast<gint>(config.videoPort), "sync", FALSE,
                 "async", FALSE, "buffer-size", 1 << 20, nullptr);
    gst_bin_add(GST_BIN(pipeline), rtpbin.get());
    gst_bin_add(GST_BIN(pipeline), sink.get());

    PadPtr rtpSink(gst_element_request_pad_simple(rtpbin.get(), "send_rtp_sink_0"));
    PadPtr payloaded(gst_element_get_static_pad(payloader, "src"));
    if (!rtpSink || gst_pad_link(payloaded.get(), rtpSink.get()) != GST_PAD_LINK_OK) {
        return "cannot link the payloader to rtpbin";
    }
    PadPtr rtpOut(gst_element_get_static_pad(rtpbin.get(), "send_rtp_src_0"));
    GstElement* next = sink.get();
    if (loss) {
        g_object_set(loss.get(), "drop-probability", static_cast<gfloat>(config.simulatedLoss), nullptr);
        gst_bin_add(GST_BIN(pipeline), loss.get());
        if (!gst_element_link(loss.get(), sink.get())) return "cannot link the loss simulator";
        next = loss.get();
    }
    PadPtr nextIn(gst_element_get_static_pad(next, "sink"));
    if (!rtpOut || gst_pad_link(rtpOut.get(), nextIn.get()) != GST_PAD_LINK_OK) {
        return "cannot link rtpbin to the UDP sink";
    }
    *sinkOut = sink.get();

    // RTCP: one socket, ours, for both directions.
    m_rtcpSocket = m_reservedRtcp ? m_reservedRtcp : config.rtcpSocket;
    if (!m_rtcpSocket) m_rtcpSocket = UdpPortReservation::bind(config.localRtcpPort, &error);
    if (!m_rtcpSocket) return error;
    m_localRtcpPort = m_rtcpSocket->port();
    ElementPtr rtcpIn = makeRequiredElement("udpsrc", "zv-rtcp-src", &error);
    if (!error.empty()) return error;
    CapsPtr rtcpCaps = capsFromString(m_encrypted ? "application/x-srtcp" : "application/x-rtcp");
    g_object_set(rtcpIn.get(), "socket", m_rtcpSocket->socket(), "close-socket", FALSE, "caps", rtcpCaps.get(),
                 nullptr);
    m_peer.attachToUdpSource(rtcpIn.get());
    gst_bin_add(GST_BIN(pipeline), rtcpIn.get());
    PadPtr rtcpSink(gst_element_request_pad_simple(rtpbin.get(), "recv_rtcp_sink_0"));
    PadPtr rtcpInOut(gst_element_get_static_pad(rtcpIn.get(), "src"));
    if (!rtcpSink || gst_pad_link(rtcpInOut.get(), rtcpSink.get()) != GST_PAD_LINK_OK) {
        return "cannot link the RTCP receiver";
    }
    if (!feedback) {
        ZV_LOG(WARNING) << " no RTCP port from the panel: no retransmission of lost packets";
        return {};
    }
    ElementPtr rtcpOut = makeRequiredElement("udpsink", "zv-rtcp-sink", &error);
    if (!error.empty()) return error;
    g_object_set(rtcpOut.get(), "socket", m_rtcpSocket->socket(), "close-socket", FALSE, "host", config.host.c_str(),
                 "port", static_cast<gint>(config.remoteRtcpPort), "sync", FALSE, "async", FALSE, nullptr);
    gst_bin_add(GST_BIN(pipeline), rtcpOut.get());
    PadPtr rtcpSrc(gst_element_request_pad_simple(rtpbin.get(), "send_rtcp_src_0"));
    PadPtr rtcpOutIn(gst_element_get_static_pad(rtcpOut.get(), "sink"));
    if (!rtcpSrc || gst_pad_link(rtcpSrc.get(), rtcpOutIn.get()) != GST_PAD_LINK_OK) {
        return "cannot link the RTCP sender";
    }
    return {};
}

GstElement* SenderPipeline::Impl::onRequestAuxSender(GstElement*, guint session, gpointer self) {
    auto* sender = static_cast<SenderPipeline::Impl*>(self);
    if (session != 0) return nullptr;
    ElementPtr rtx;
    GstElement* bin = makeRetransmissionBin(true, &rtx);
    if (bin == nullptr) return nullptr;
    // The retransmission stream's SSRC is ours too: one key, never two streams on one SSRC.
    StructurePtr ssrcs(gst_structure_new("application/x-rtp-ssrc-map", std::to_string(sender->m_videoSsrc).c_str(),
                                         G_TYPE_UINT, sender->m_videoSsrc ^ 2u, nullptr));
    g_object_set(rtx.get(), "ssrc-map", ssrcs.get(), nullptr);
    {
        std::lock_guard<std::mutex> lock(sender->m_elementsMutex);
        sender->m_rtx = std::move(rtx);
    }
    return bin;  // floating: rtpbin takes it
}

}  // namespace zv::media
