#include "media/VirtualCamera.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "casting/Log.h"
#include "media/GstInit.h"
#include "media/MediaTypes.h"
#include "media/UdpPortReservation.h"

namespace zv::media {
namespace {

constexpr int kStartTimeoutMs = 5000;
constexpr int kWidth = 640, kHeight = 480, kFps = 15;

std::string pipelineError(GstMessage* message) {
    return GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR ? describeMessage(message) : std::string();
}

GstPadProbeReturn countPicture(GstPad*, GstPadProbeInfo*, gpointer counter) {
    static_cast<std::atomic<uint64_t>*>(counter)->fetch_add(1);
    return GST_PAD_PROBE_OK;
}

}  // namespace

uint16_t VirtualCamera::reservePort(std::string* error) {
    stop();
    m_reservation = UdpPortReservation::bind(0, error);
    return m_reservation ? m_reservation->port() : 0;
}

std::string VirtualCamera::start(const std::vector<uint8_t>& receiveKey, const std::string& device) {
    std::shared_ptr<UdpPortReservation> reservation = std::move(m_reservation);
    stop();
    std::string error = ensureGstInitialized();
    if (!error.empty()) return error;
    if (receiveKey.size() != kMediaKeyBytes) return "no media key for the camera";
    if (!reservation) reservation = UdpPortReservation::bind(0, &error);
    if (!reservation) return error;
    m_pipeline = adoptFloating(gst_pipeline_new("zv-virtual-camera"));
    ElementPtr source = makeRequiredElement("udpsrc", "zv-cam-udp", &error);
    ElementPtr jitter = makeRequiredElement("rtpjitterbuffer", "zv-cam-jitter", &error);
    ElementPtr depay = makeRequiredElement("rtph264depay", "zv-cam-depay", &error);
    ElementPtr parse = makeRequiredElement("h264parse", "zv-cam-parse", &error);
    ElementPtr decoder = makeRequiredElement("avdec_h264", "zv-cam-decoder", &error);
    ElementPtr convert = makeRequiredElement("videoconvert", "zv-cam-convert", &error);
    ElementPtr sink = makeRequiredElement(device.empty() ? "fakesink" : "v4l2sink", "zv-cam-sink", &error);
    if (error.empty()) error = m_decoder.create(receiveKey, "zv-cam-srtp");
    if (!error.empty()) {
        stop();
        return error;
    }
    CapsPtr caps(gst_caps_new_simple("application/x-srtp", "media", G_TYPE_STRING, "video", "clock-rate", G_TYPE_INT,
                                     90000, "encoding-name", G_TYPE_STRING, "H264", "payload", G_TYPE_INT,
                                     kVideoPayloadType, nullptr));
    g_object_set(source.get(), "socket", reservation->socket(), "caps", caps.get(), nullptr);
    g_object_set(jitter.get(), "latency", 100u, nullptr);
    g_object_set(sink.get(), "sync", FALSE, "async", FALSE, nullptr);
    if (!device.empty()) g_object_set(sink.get(), "device", device.c_str(), nullptr);
    GstElement* pipeline = m_pipeline.get();
    const bool chained = addAndLink(
        pipeline, {jitter.get(), depay.get(), parse.get(), decoder.get(), convert.get(), sink.get()});
    gst_bin_add(GST_BIN(pipeline), source.get());
    gst_bin_add(GST_BIN(pipeline), m_decoder.element());
    if (!chained || !linkThrough(source.get(), m_decoder.element(), jitter.get())) {
        stop();
        return "cannot link the virtual camera's elements";
    }
    m_pictures->store(0);
    PadPtr decoded(gst_element_get_static_pad(decoder.get(), "src"));
    gst_pad_add_probe(decoded.get(), GST_PAD_PROBE_TYPE_BUFFER, &countPicture, m_pictures.get(), nullptr);
    m_port = reservation->port();
    m_bus.attach(pipeline, [](GstMessage* message) {
        const std::string problem = pipelineError(message);
        if (!problem.empty()) ZV_LOG(WARNING) << " virtual camera: " << problem;
    });
    error = changeState(pipeline, GST_STATE_PLAYING, kStartTimeoutMs, [] { return std::string(); });
    if (!error.empty()) {
        stop();
        return error;
    }
    ZV_LOG(INFO) << " virtual camera " << (device.empty() ? "(no device)" : device) << " listening on UDP " << m_port;
    return {};
}

void VirtualCamera::stop() {
    if (m_pipeline) gst_element_set_state(m_pipeline.get(), GST_STATE_NULL);
    m_bus.detach();
    m_pipeline.reset();
    m_decoder.reset();
    m_reservation.reset();
    m_port = 0;
}

std::string CameraSender::findCamera(const std::string& devFolder) {
    DIR* dir = opendir(devFolder.c_str());
    if (dir == nullptr) return {};
    std::vector<std::string> names;
    while (dirent* entry = readdir(dir)) {
        if (std::strncmp(entry->d_name, "video", 5) == 0) names.emplace_back(entry->d_name);
    }
    closedir(dir);
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        const std::string path = devFolder + "/" + name;
        const int fd = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0) continue;
        v4l2_capability caps{};
        const bool asked = ioctl(fd, VIDIOC_QUERYCAP, &caps) == 0;
        close(fd);
        const uint32_t can = (caps.capabilities & V4L2_CAP_DEVICE_CAPS) ? caps.device_caps : caps.capabilities;
        const bool loopback =
            std::strncmp(reinterpret_cast<const char*>(caps.driver), "v4l2 loopback", sizeof caps.driver) == 0;
        if (asked && !loopback && (can & V4L2_CAP_VIDEO_CAPTURE)) return path;
    }
    return {};
}

std::string CameraSender::start(const std::string& host, uint16_t port, const std::vector<uint8_t>& sendKey,
                                const std::string& device) {
    stop();
    std::string error = ensureGstInitialized();
    if (!error.empty()) return error;
    if (sendKey.size() != kMediaKeyBytes) return "no media key for the camera";
    m_pipeline = adoptFloating(gst_pipeline_new("zv-camera-sender"));
    ElementPtr source = makeRequiredElement(device.empty() ? "videotestsrc" : "v4l2src", "zv-cam-src", &error);
    ElementPtr convert = makeRequiredElement("videoconvert", "zv-cam-convert", &error);
    ElementPtr scale = makeRequiredElement("videoscale", "zv-cam-scale", &error);
    ElementPtr rate = makeRequiredElement("videorate", "zv-cam-rate", &error);
    ElementPtr filter = makeRequiredElement("capsfilter", "zv-cam-caps", &error);
    ElementPtr encoder = makeRequiredElement("x264enc", "zv-cam-encoder", &error);
    ElementPtr payloader = makeRequiredElement("rtph264pay", "zv-cam-payloader", &error);
    ElementPtr sink = makeRequiredElement("udpsink", "zv-cam-udp", &error);
    ElementPtr srtp;
    if (error.empty()) srtp = makeSrtpEncoder(sendKey, "zv-cam-srtp", &error);
    if (!error.empty()) {
        stop();
        return error;
    }
    if (device.empty()) {
        g_object_set(source.get(), "is-live", TRUE, "pattern", 18 /* ball */, nullptr);
    } else {
        g_object_set(source.get(), "device", device.c_str(), nullptr);
    }
    CapsPtr caps(gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "I420", "width", G_TYPE_INT, kWidth,
                                     "height", G_TYPE_INT, kHeight, "framerate", GST_TYPE_FRACTION, kFps, 1, nullptr));
    g_object_set(filter.get(), "caps", caps.get(), nullptr);
    gst_util_set_object_arg(G_OBJECT(encoder.get()), "tune", "zerolatency");
    gst_util_set_object_arg(G_OBJECT(encoder.get()), "speed-preset", "ultrafast");
    g_object_set(encoder.get(), "bitrate", 1000u, "key-int-max", static_cast<guint>(kFps * 2), nullptr);
    g_object_set(payloader.get(), "pt", static_cast<guint>(kVideoPayloadType), "config-interval", -1, nullptr);
    g_object_set(sink.get(), "host", host.c_str(), "port", static_cast<gint>(port), "sync", FALSE, "async", FALSE,
                 nullptr);
    GstElement* pipeline = m_pipeline.get();
    if (!addAndLink(pipeline, {source.get(), convert.get(), scale.get(), rate.get(), filter.get(), encoder.get(),
                               payloader.get()})) {
        stop();
        return "cannot link the camera's elements";
    }
    gst_bin_add(GST_BIN(pipeline), srtp.get());
    gst_bin_add(GST_BIN(pipeline), sink.get());
    if (!linkThrough(payloader.get(), srtp.get(), sink.get())) {
        stop();
        return "cannot link the camera's encryption";
    }
    m_bus.attach(pipeline, [](GstMessage* message) {
        const std::string problem = pipelineError(message);
        if (!problem.empty()) ZV_LOG(WARNING) << " camera: " << problem;
    });
    error = changeState(pipeline, GST_STATE_PLAYING, kStartTimeoutMs, [] { return std::string(); });
    if (!error.empty()) {
        stop();
        return error;
    }
    ZV_LOG(INFO) << " sending the " << (device.empty() ? "test picture" : device) << " to " << host << ":" << port;
    return {};
}

void CameraSender::stop() {
    if (m_pipeline) gst_element_set_state(m_pipeline.get(), GST_STATE_NULL);
    m_bus.detach();
    m_pipeline.reset();
}

}  // namespace zv::media
