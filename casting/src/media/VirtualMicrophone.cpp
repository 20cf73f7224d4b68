#include "media/VirtualMicrophone.h"

#include <QProcess>
#include <QStringList>

#include "casting/Log.h"
#include "media/GstInit.h"
#include "media/MediaTypes.h"
#include "media/UdpPortReservation.h"

namespace zv::media {
namespace {

constexpr int kStartTimeoutMs = 5000;

// pactl's output, or empty when it failed.
QString pactl(const QStringList& arguments, bool* ok) {
    QProcess process;
    process.start(QStringLiteral("pactl"), arguments);
    *ok = process.waitForFinished(5000) && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

std::string pipelineError(GstMessage* message) {
    return GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR ? describeMessage(message) : std::string();
}

}  // namespace

bool VirtualMicrophone::hostAvailable() {
    bool ok = false;
    pactl({QStringLiteral("info")}, &ok);
    return ok;
}

uint16_t VirtualMicrophone::reservePort(std::string* error) {
    stop();
    m_reservation = UdpPortReservation::bind(0, error);
    return m_reservation ? m_reservation->port() : 0;
}

std::string VirtualMicrophone::start(const std::vector<uint8_t>& receiveKey) {
    std::shared_ptr<UdpPortReservation> reservation = std::move(m_reservation);
    stop();
    std::string error = ensureGstInitialized();
    if (!error.empty()) return error;
    if (receiveKey.size() != kMediaKeyBytes) return "no media key for the microphone";
    bool ok = false;
    const QString index = pactl({QStringLiteral("load-module"), QStringLiteral("module-null-sink"),
                                 QStringLiteral("sink_name=") + QLatin1String(kSinkName),
                                 QStringLiteral("sink_properties=device.description=Zelvanor-Microphone")},
                                &ok);
    if (!ok) return "the sound server does not take a virtual microphone";
    m_moduleIndex = index.toInt();

    if (!reservation) reservation = UdpPortReservation::bind(0, &error);
    if (!reservation) {
        stop();
        return error;
    }
    m_pipeline = adoptFloating(gst_pipeline_new("zv-virtual-mic"));
    ElementPtr source = makeRequiredElement("udpsrc", "zv-mic-udp", &error);
    ElementPtr jitter = makeRequiredElement("rtpjitterbuffer", "zv-mic-jitter", &error);
    ElementPtr depay = makeRequiredElement("rtpopusdepay", "zv-mic-depay", &error);
    ElementPtr decoder = makeRequiredElement("opusdec", "zv-mic-decoder", &error);
    ElementPtr convert = makeRequiredElement("audioconvert", "zv-mic-convert", &error);
    ElementPtr resample = makeRequiredElement("audioresample", "zv-mic-resample", &error);
    ElementPtr sink = makeRequiredElement("pulsesink", "zv-mic-sink", &error);
    if (error.empty()) error = m_decoder.create(receiveKey, "zv-mic-srtp");
    if (!error.empty()) {
        stop();
        return error;
    }
    CapsPtr caps(gst_caps_new_simple("application/x-srtp", "media", G_TYPE_STRING, "audio", "clock-rate", G_TYPE_INT,
                                     48000, "encoding-name", G_TYPE_STRING, "OPUS", "payload", G_TYPE_INT,
                                     kAudioPayloadType, nullptr));
    g_object_set(source.get(), "socket", reservation->socket(), "caps", caps.get(), nullptr);
    g_object_set(jitter.get(), "latency", 60u, nullptr);
    // Nothing arrives before the panel sends: the sink must not wait for data to play.
    g_object_set(sink.get(), "device", kSinkName, "sync", FALSE, "async", FALSE, nullptr);
    GstElement* pipeline = m_pipeline.get();
    const bool chained =
        addAndLink(pipeline, {jitter.get(), depay.get(), decoder.get(), convert.get(), resample.get(), sink.get()});
    gst_bin_add(GST_BIN(pipeline), source.get());
    gst_bin_add(GST_BIN(pipeline), m_decoder.element());
    if (!chained || !linkThrough(source.get(), m_decoder.element(), jitter.get())) {
        stop();
        return "cannot link the virtual microphone's elements";
    }
    m_port = reservation->port();
    m_bus.attach(pipeline, [](GstMessage* message) {
        const std::string problem = pipelineError(message);
        if (!problem.empty()) ZV_LOG(WARNING) << " virtual microphone: " << problem;
    });
    error = changeState(pipeline, GST_STATE_PLAYING, kStartTimeoutMs, [] { return std::string(); });
    if (!error.empty()) {
        stop();
        return error;
    }
    ZV_LOG(INFO) << " virtual microphone " << kSinkName << ".monitor listening on UDP " << m_port;
    return {};
}

void VirtualMicrophone::stop() {
    if (m_pipeline) gst_element_set_state(m_pipeline.get(), GST_STATE_NULL);
    m_bus.detach();
    m_pipeline.reset();
    m_decoder.reset();
    m_reservation.reset();
    m_port = 0;
    if (m_moduleIndex >= 0) {
        bool ok = false;
        pactl({QStringLiteral("unload-module"), QString::number(m_moduleIndex)}, &ok);
        if (!ok) ZV_LOG(WARNING) << " the virtual microphone's module " << m_moduleIndex << " stays loaded";
        m_moduleIndex = -1;
    }
}

std::string MicrophoneSender::start(const std::string& host, uint16_t port, const std::vector<uint8_t>& sendKey,
                                    bool testTone) {
    stop();
    std::string error = ensureGstInitialized();
    if (!error.empty()) return error;
    if (sendKey.size() != kMediaKeyBytes) return "no media key for the microphone";
    m_pipeline = adoptFloating(gst_pipeline_new("zv-mic-sender"));
    ElementPtr source = makeRequiredElement(testTone ? "audiotestsrc" : "pulsesrc", "zv-mic-src", &error);
    ElementPtr convert = makeRequiredElement("audioconvert", "zv-mic-convert", &error);
    ElementPtr resample = makeRequiredElement("audioresample", "zv-mic-resample", &error);
    ElementPtr encoder = makeRequiredElement("opusenc", "zv-mic-opus", &error);
    ElementPtr payloader = makeRequiredElement("rtpopuspay", "zv-mic-payloader", &error);
    ElementPtr sink = makeRequiredElement("udpsink", "zv-mic-udp", &error);
    ElementPtr srtp;
    if (error.empty()) srtp = makeSrtpEncoder(sendKey, "zv-mic-srtp", &error);
    if (!error.empty()) {
        stop();
        return error;
    }
    if (testTone) g_object_set(source.get(), "is-live", TRUE, "freq", 440.0, "volume", 0.5, nullptr);
    g_object_set(payloader.get(), "pt", static_cast<guint>(kAudioPayloadType), nullptr);
    g_object_set(sink.get(), "host", host.c_str(), "port", static_cast<gint>(port), "sync", FALSE, "async", FALSE,
                 nullptr);
    GstElement* pipeline = m_pipeline.get();
    if (!addAndLink(pipeline, {source.get(), convert.get(), resample.get(), encoder.get(), payloader.get()})) {
        stop();
        return "cannot link the microphone's elements";
    }
    gst_bin_add(GST_BIN(pipeline), srtp.get());
    gst_bin_add(GST_BIN(pipeline), sink.get());
    if (!linkThrough(payloader.get(), srtp.get(), sink.get())) {
        stop();
        return "cannot link the microphone's encryption";
    }
    m_bus.attach(pipeline, [](GstMessage* message) {
        const std::string problem = pipelineError(message);
        if (!problem.empty()) ZV_LOG(WARNING) << " microphone: " << problem;
    });
    error = changeState(pipeline, GST_STATE_PLAYING, kStartTimeoutMs, [] { return std::string(); });
    if (!error.empty()) {
        stop();
        return error;
    }
    ZV_LOG(INFO) << " sending the " << (testTone ? "test tone" : "microphone") << " to " << host << ":" << port;
    return {};
}

void MicrophoneSender::stop() {
    if (m_pipeline) gst_element_set_state(m_pipeline.get(), GST_STATE_NULL);
    m_bus.detach();
    m_pipeline.reset();
}

}  // namespace zv::media
