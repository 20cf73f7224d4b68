#include "media/RtpReceiving.h"

#include "media/PeerFilter.h"
#include "media/PipelineSupport.h"
#include "media/SrtpKeying.h"
#include "media/UdpPortReservation.h"

namespace zv::media {

std::string wireCaps(const std::string& rtpCaps, bool encrypted, bool framed) {
    const std::string plain = "application/x-rtp";
    if (rtpCaps.compare(0, plain.size(), plain) != 0) return rtpCaps;
    return std::string(encrypted ? "application/x-srtp" : plain) + (framed ? "-stream" : "") +
           rtpCaps.substr(plain.size());
}

std::string buildStreamSource(GstElement* pipeline, const StreamSourceSpec& spec, PeerFilter& peer,
                              SrtpDecoder* decoder, StreamSource* out) {
    std::string error;
    const bool encrypted = decoder != nullptr && decoder->element() != nullptr;
    const std::string& prefix = spec.prefix;
    ElementPtr source;
    ElementPtr caps = makeRequiredElement("capsfilter", prefix + "-caps", &error);
    ElementPtr deframing;
    switch (spec.transport) {
        case MediaTransport::Udp:
            source = makeRequiredElement("udpsrc", prefix + "-src", &error);
            if (!source) return error;
            g_object_set(source.get(), "address", spec.listenAddress.c_str(), "port", static_cast<gint>(spec.port),
                         nullptr);
            if (spec.udpBufferBytes > 0) g_object_set(source.get(), "buffer-size", spec.udpBufferBytes, nullptr);
            peer.attachToUdpSource(source.get());
            break;
        case MediaTransport::Tcp:
            source = makeRequiredElement("tcpserversrc", prefix + "-src", &error);
            deframing = makeRequiredElement("rtpstreamdepay", prefix + "-deframing", &error);
            if (!error.empty()) return error;
            g_object_set(source.get(), "host", spec.listenAddress.c_str(), "port", static_cast<gint>(spec.port),
                         "do-timestamp", TRUE, nullptr);
            break;
        case MediaTransport::Srt: {
            source = makeRequiredElement("srtsrc", prefix + "-src", &error);
            if (!source) return error;
            out->srtPort = spec.port != 0 ? spec.port : pickFreeUdpPort(&error);
            if (out->srtPort == 0) return error;
            configureSrt(source.get(), srtUri(spec.listenAddress, out->srtPort, true), spec.srtPassphrase,
                         spec.latencyMs);
            g_object_set(source.get(), "do-timestamp", TRUE, nullptr);
            peer.attachToSrtListener(source.get());
            break;
        }
    }
    if (!error.empty()) return error;
    CapsPtr wire = capsFromString(wireCaps(spec.rtpCaps, encrypted, spec.transport == MediaTransport::Tcp));
    g_object_set(caps.get(), "caps", wire.get(), nullptr);
    std::vector<GstElement*> chain = {source.get(), caps.get()};
    if (deframing) chain.push_back(deframing.get());
    if (!addAndLink(pipeline, chain)) return "cannot link the " + prefix + " source";
    out->last = chain.back();
    if (encrypted) {
        gst_bin_add(GST_BIN(pipeline), decoder->element());
        if (!gst_element_link_pads(out->last, "src", decoder->element(), "rtp_sink")) {
            return "cannot link the " + prefix + " SRTP decoder";
        }
        out->last = decoder->element();
        out->lastPad = "rtp_src";
    }
    out->source = std::move(source);
    return {};
}

bool linkOn(const StreamSource& source, GstElement* next) {
    return gst_element_link_pads(source.last, source.lastPad, next, "sink");
}

uint16_t listeningPort(const StreamSource& source, MediaTransport transport) {
    if (transport == MediaTransport::Srt) return source.srtPort;
    gint port = 0;
    g_object_get(source.source.get(), transport == MediaTransport::Tcp ? "current-port" : "port", &port, nullptr);
    return static_cast<uint16_t>(port > 0 ? port : 0);
}

}  // namespace zv::media
