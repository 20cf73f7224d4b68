#include "player/DexoPlayer.h"

#include <gst/app/gstappsrc.h>
#include <gst/video/video.h>

#include <chrono>
#include <cstdlib>
#include <cstring>

#include "casting/Log.h"
#include "media/GstHandles.h"
#include "media/OverlaySink.h"
#include "media/GstInit.h"
#include "media/PipelineSupport.h"

namespace zv::player {

using media::CapsPtr;
using media::ElementPtr;
using media::SamplePtr;

namespace {

// Whether a sound sink can open its device (a sound server runs).
bool soundSinkStarts(const char* factory) {
    ElementPtr sink = media::makeElement(factory, "zv-probe-sink");
    if (!sink) return false;
    const bool ok = gst_element_set_state(sink.get(), GST_STATE_READY) != GST_STATE_CHANGE_FAILURE;
    gst_element_set_state(sink.get(), GST_STATE_NULL);
    return ok;
}

int64_t nowUs() {
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

struct DexoPlayer::Pipeline {
    ElementPtr pipeline;
    ElementPtr videoSrc, audioSrc, fakeSink;
    media::OverlaySink overlay;  // with a window
    media::BusForwarder bus;
    unsigned long window = 0;
    std::mutex sampleMutex;
    SamplePtr latest;          // the decoded picture shown last, full size
    std::atomic<int>* frames = nullptr;

    // A decoder streaming thread; the pipeline outlives it (stop() joins).
    void onDecoded(GstSample* sample) {
        ++*frames;
        std::lock_guard<std::mutex> lock(sampleMutex);
        latest.reset(gst_sample_ref(sample));
    }
};

DexoPlayer::DexoPlayer() = default;

DexoPlayer::~DexoPlayer() {
    stop();
    close();
}

bool DexoPlayer::setCallback(DexoRunTimeInfoCallback callback, void* user) {
    std::lock_guard<std::mutex> lock(m_callbackMutex);
    m_callback = callback;
    m_user = user;
    return true;
}

bool DexoPlayer::setCallbackMask(unsigned int mask, bool enable) {
    if (enable) m_mask |= mask;
    else m_mask &= ~mask;
    return true;
}

bool DexoPlayer::setOpenMode(int mode) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (mode != DEXO_STREAM_REALTIME && mode != DEXO_STREAM_FILE) return fail(DEXO_ERR_PARAMETER);
    if (m_opened) return fail(DEXO_ERR_ORDER);
    m_mode = mode;
    return true;
}

bool DexoPlayer::open(const unsigned char* header, unsigned int size, unsigned int bufferSize) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_opened) return fail(DEXO_ERR_ORDER);
    DexoStreamHeader parsed{};
    if (!DexoHeader_Parse(header, size, &parsed)) return fail(DEXO_ERR_HEADER);
    if (parsed.systemFormat != DEXO_SYSTEM_PACKETS || parsed.videoFormat != DEXO_VIDEO_H264 ||
        (parsed.audioFormat != DEXO_AUDIO_OPUS && parsed.audioFormat != 0)) {
        return fail(DEXO_ERR_HEADER);
    }
    if (bufferSize < 65536) return fail(DEXO_ERR_PARAMETER);
    const std::string error = media::ensureGstInitialized();
    if (!error.empty()) {
        ZV_LOG(ERROR) << " no media engine: " << error;
        return fail(DEXO_ERR_UNAVAILABLE);
    }
    m_header = parsed;
    m_reader = std::make_unique<PacketReader>(bufferSize);
    m_opened = true;
    m_waitKey = true;
    m_frames = 0;
    m_openedAtUs = nowUs();
    return true;
}

bool DexoPlayer::close() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_pipeline) return fail(DEXO_ERR_ORDER);
    m_reader.reset();
    m_opened = false;
    return true;
}

bool DexoPlayer::setDisplayBuffers(unsigned int count) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_opened) return fail(DEXO_ERR_ORDER);
    if (count == 0) return fail(DEXO_ERR_PARAMETER);
    m_displayBuffers = count > 50 ? 1 : count;
    return true;
}

bool DexoPlayer::syncToAudio(bool sync) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_sync = sync;
    return true;
}

bool DexoPlayer::setSound(bool on) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (on && m_header.audioFormat == 0) return fail(DEXO_ERR_SOUND);
    m_sound = on;
    return true;
}

bool DexoPlayer::setConcealment(unsigned int level) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (level > 1) return fail(DEXO_ERR_PARAMETER);
    m_concealment = level;
    return true;
}

bool DexoPlayer::play(unsigned long window) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_opened || m_pipeline) return fail(DEXO_ERR_ORDER);
    auto p = std::make_unique<Pipeline>();
    std::string error;
    p->pipeline = media::adoptFloating(gst_pipeline_new("zv-dexo"));
    p->videoSrc = media::makeRequiredElement("appsrc", "zv-dexo-video", &error);
    ElementPtr parse = media::makeRequiredElement("h264parse", "zv-dexo-parse", &error);
    ElementPtr decoder = media::makeElement("avdec_h264", "zv-dexo-decoder");
    if (!decoder) decoder = media::makeElement("openh264dec", "zv-dexo-decoder");
    ElementPtr convert = media::makeRequiredElement("videoconvert", "zv-dexo-convert", &error);
    if (!decoder && error.empty()) error = "no H.264 decoder (install gstreamer1.0-libav)";
    if (error.empty() && window == 0) {
        p->fakeSink = media::makeRequiredElement("fakesink", "zv-dexo-sink", &error);
        if (p->fakeSink) g_object_set(p->fakeSink.get(), "sync", FALSE, "async", FALSE, nullptr);
    }
    if (error.empty() && window != 0) error = p->overlay.build(p->pipeline.get(), window, "zv-dexo");
    if (!error.empty()) {
        ZV_LOG(ERROR) << " player port " << port << ": " << error;
        return fail(DEXO_ERR_DISPLAY);
    }
    if (media::hasProperty(decoder.get(), "thread-type")) {
        media::setPropertyText(decoder.get(), "thread-type", "slice");
        g_object_set(decoder.get(), "output-corrupt", m_concealment == 1 ? TRUE : FALSE, nullptr);
    }
    CapsPtr videoCaps = media::capsFromString("video/x-h264,stream-format=byte-stream,alignment=au");
    g_object_set(p->videoSrc.get(), "caps", videoCaps.get(), "is-live", TRUE, "format", GST_FORMAT_TIME,
                 "do-timestamp", TRUE, "block", FALSE, "max-bytes", static_cast<guint64>(8 * 1024 * 1024), nullptr);
    GstElement* sink = window != 0 ? p->overlay.sink() : p->fakeSink.get();
    const bool live = m_mode == DEXO_STREAM_REALTIME;
    g_object_set(sink, "sync", (m_sync || !live) ? TRUE : FALSE, nullptr);
    const std::string sinkName = window != 0 ? p->overlay.sinkName() : std::string("fakesink");
    if (!media::addAndLink(p->pipeline.get(), {p->videoSrc.get(), parse.get(), decoder.get(), convert.get()}) ||
        !(window != 0 ? gst_element_link(convert.get(), p->overlay.first())
                      : (gst_bin_add(GST_BIN(p->pipeline.get()), p->fakeSink.get()) &&
                         gst_element_link(convert.get(), p->fakeSink.get())))) {
        ZV_LOG(ERROR) << " player port " << port << ": cannot link the video chain";
        return fail(DEXO_ERR_DISPLAY);
    }
    // The decoded picture as it leaves the decoder: for Dexo_GetJPEG, at full size.
    media::PadPtr decoded(gst_element_get_static_pad(decoder.get(), "src"));
    gst_pad_add_probe(
        decoded.get(), GST_PAD_PROBE_TYPE_BUFFER,
        [](GstPad* pad, GstPadProbeInfo* info, gpointer self) {
            CapsPtr caps(gst_pad_get_current_caps(pad));
            GstSample* sample = gst_sample_new(GST_PAD_PROBE_INFO_BUFFER(info), caps.get(), nullptr, nullptr);
            static_cast<Pipeline*>(self)->onDecoded(sample);
            gst_sample_unref(sample);
            return GST_PAD_PROBE_OK;
        },
        p.get(), nullptr);
    p->frames = &m_frames;

    if (m_header.audioFormat == DEXO_AUDIO_OPUS) {
        p->audioSrc = media::makeRequiredElement("appsrc", "zv-dexo-audio", &error);
        ElementPtr opus = media::makeRequiredElement("opusdec", "zv-dexo-opus", &error);
        ElementPtr aconvert = media::makeRequiredElement("audioconvert", "zv-dexo-aconvert", &error);
        ElementPtr resample = media::makeRequiredElement("audioresample", "zv-dexo-resample", &error);
        ElementPtr audioSink = media::makeElement("pulsesink", "zv-dexo-asink");
        if (!audioSink || !soundSinkStarts("pulsesink")) {
            audioSink = media::makeElement("fakesink", "zv-dexo-asink");
            ZV_LOG(INFO) << " player port " << port << ": no sound server, the sound is dropped";
        }
        if (error.empty() && audioSink) {
            CapsPtr audioCaps = media::capsFromString(
                "audio/x-opus,channel-mapping-family=0,rate=48000,channels=" +
                std::to_string(m_header.audioChannels == 1 ? 1 : 2));
            g_object_set(p->audioSrc.get(), "caps", audioCaps.get(), "is-live", TRUE, "format", GST_FORMAT_TIME,
                         "do-timestamp", TRUE, "block", FALSE, nullptr);
            g_object_set(audioSink.get(), "sync", FALSE, "async", FALSE, nullptr);
            if (!media::addAndLink(p->pipeline.get(),
                                   {p->audioSrc.get(), opus.get(), aconvert.get(), resample.get(), audioSink.get()})) {
                ZV_LOG(WARNING) << " player port " << port << ": no sound chain";
                p->audioSrc.reset();
            }
        } else {
            ZV_LOG(WARNING) << " player port " << port << ": no sound: " << error;
            p->audioSrc.reset();
            error.clear();
        }
    }

    p->window = window;
    p->bus.attach(p->pipeline.get(), [this](GstMessage* message) { onBusMessage(message); });
    m_pipeline = std::move(p);
    if (gst_element_set_state(m_pipeline->pipeline.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        ZV_LOG(ERROR) << " player port " << port << ": the pipeline does not start (" << sinkName << ")";
        gst_element_set_state(m_pipeline->pipeline.get(), GST_STATE_NULL);
        m_pipeline.reset();
        return fail(DEXO_ERR_DISPLAY);
    }
    ZV_LOG(INFO) << " player port " << port << " draws into window " << window << " with " << sinkName;
    // What came before Play is shown now.
    Packet packet;
    while (m_reader && m_reader->next(&packet)) push(packet);
    return true;
}

bool DexoPlayer::stop() {
    std::unique_ptr<Pipeline> p;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        p = std::move(m_pipeline);
    }
    if (!p) return fail(DEXO_ERR_ORDER);
    // Outside the lock: the streaming threads may be waiting for it.
    gst_element_set_state(p->pipeline.get(), GST_STATE_NULL);
    p->bus.detach();
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_reader) m_reader->clear();
    m_waitKey = true;
    return true;
}

bool DexoPlayer::input(const uint8_t* data, size_t size) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_opened || !m_reader) return fail(DEXO_ERR_ORDER);
    if (data == nullptr && size > 0) return fail(DEXO_ERR_PARAMETER);
    const PacketReader::Result result = m_reader->append(data, size);
    if (result == PacketReader::Result::Full) {
        m_waitKey = true;
        return fail(DEXO_ERR_BUFFER_FULL);
    }
    bool ok = true;
    if (m_pipeline) {
        Packet packet;
        while (m_reader->next(&packet)) ok = push(packet) && ok;
    }
    if (result == PacketReader::Result::Malformed) {
        ZV_LOG(WARNING) << " player port " << port << ": malformed stream data skipped";
        m_waitKey = true;
        report(DEXO_INFO_STREAM_ERROR, DEXO_ERR_STREAM);
        return fail(DEXO_ERR_STREAM);
    }
    return ok || fail(DEXO_ERR_DECODE);
}

// With the lock held.
bool DexoPlayer::push(Packet& packet) {
    Pipeline* p = m_pipeline.get();
    if (packet.kind == DEXO_KIND_AUDIO) {
        if (!m_sound || !p->audioSrc) return true;
    } else {
        const bool key = (packet.flags & DEXO_FLAG_KEY) != 0;
        const bool annexB = packet.payload.size() >= 4 && packet.payload[0] == 0 && packet.payload[1] == 0 &&
                            (packet.payload[2] == 1 || (packet.payload[2] == 0 && packet.payload[3] == 1));
        if (!annexB) {
            // Not H.264 at all: the decoder would choke on it; wait for a clean start.
            m_waitKey = true;
            report(DEXO_INFO_DECODE_ERROR, DEXO_ERR_DECODE);
            return fail(DEXO_ERR_DECODE);
        }
        if ((packet.flags & DEXO_FLAG_DISCONTINUITY) != 0 && !key && m_concealment == 0) m_waitKey = true;
        if (m_waitKey && !key) return true;
        if (key) m_waitKey = false;
    }
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, packet.payload.size(), nullptr);
    gst_buffer_fill(buffer, 0, packet.payload.data(), packet.payload.size());
    if (packet.kind == DEXO_KIND_VIDEO && (packet.flags & DEXO_FLAG_KEY) == 0) {
        GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT);
    }
    GstElement* src = packet.kind == DEXO_KIND_VIDEO ? p->videoSrc.get() : p->audioSrc.get();
    const GstFlowReturn flow = gst_app_src_push_buffer(GST_APP_SRC(src), buffer);
    return flow == GST_FLOW_OK || flow == GST_FLOW_FLUSHING;
}

void DexoPlayer::onBusMessage(GstMessage* message) {
    const GstMessageType type = GST_MESSAGE_TYPE(message);
    if (type != GST_MESSAGE_ERROR && type != GST_MESSAGE_WARNING) return;
    const std::string source = GST_MESSAGE_SRC(message) ? GST_OBJECT_NAME(GST_MESSAGE_SRC(message)) : "";
    GError* error = nullptr;
    gchar* debug = nullptr;
    if (type == GST_MESSAGE_ERROR) gst_message_parse_error(message, &error, &debug);
    else gst_message_parse_warning(message, &error, &debug);
    ZV_LOG(WARNING) << " player port " << port << ": " << source << ": " << (error ? error->message : "?");
    if (error) g_error_free(error);
    g_free(debug);
    if (source == "zv-dexo-decoder" || source == "zv-dexo-parse") {
        report(DEXO_INFO_DECODE_ERROR, DEXO_ERR_DECODE);
    } else if (type == GST_MESSAGE_ERROR) {
        report(DEXO_INFO_STREAM_ERROR, source == "zv-dexo-sink" ? DEXO_ERR_DISPLAY : DEXO_ERR_STREAM);
    }
}

void DexoPlayer::report(unsigned int type, unsigned int error) {
    if ((m_mask & type) == 0) return;
    DexoRunTimeInfoCallback callback;
    void* user;
    {
        std::lock_guard<std::mutex> lock(m_callbackMutex);
        callback = m_callback;
        user = m_user;
    }
    if (callback == nullptr) return;
    RunTimeInfo info{};
    info.nModule = DEXO_MODULE_DECODER;
    info.nType = static_cast<int>(type);
    info.nFrameNum = m_frames;
    info.nTimeStamp = static_cast<int>((nowUs() - m_openedAtUs) / 1000);
    info.nErrorCode = static_cast<int>(error);
    callback(port, &info, user);
}

bool DexoPlayer::windowChanged() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_pipeline) return fail(DEXO_ERR_ORDER);
    if (m_pipeline->window != 0) m_pipeline->overlay.fit();
    return true;
}

bool DexoPlayer::jpeg(unsigned char* buffer, unsigned int size, unsigned int* written) {
    if (buffer == nullptr || written == nullptr) return fail(DEXO_ERR_PARAMETER);
    SamplePtr latest;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_pipeline) return fail(DEXO_ERR_NO_PICTURE);
        std::lock_guard<std::mutex> sampleLock(m_pipeline->sampleMutex);
        if (m_pipeline->latest) latest.reset(gst_sample_ref(m_pipeline->latest.get()));
    }
    if (!latest) return fail(DEXO_ERR_NO_PICTURE);
    CapsPtr jpegCaps = media::capsFromString("image/jpeg");
    GError* error = nullptr;
    SamplePtr converted(gst_video_convert_sample(latest.get(), jpegCaps.get(), 2 * GST_SECOND, &error));
    if (!converted) {
        ZV_LOG(WARNING) << " player port " << port << ": no JPEG: " << (error ? error->message : "?");
        if (error) g_error_free(error);
        return fail(DEXO_ERR_ENCODE);
    }
    GstBuffer* out = gst_sample_get_buffer(converted.get());
    const gsize bytes = gst_buffer_get_size(out);
    if (bytes > size) return fail(DEXO_ERR_PARAMETER);
    gst_buffer_extract(out, 0, buffer, bytes);
    *written = static_cast<unsigned int>(bytes);
    return true;
}

bool DexoPlayer::pictureSize(int* width, int* height) {
    if (width == nullptr || height == nullptr) return fail(DEXO_ERR_PARAMETER);
    *width = *height = 0;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_pipeline) return true;
    std::lock_guard<std::mutex> sampleLock(m_pipeline->sampleMutex);
    if (!m_pipeline->latest) return true;
    GstVideoInfo info;
    if (gst_video_info_from_caps(&info, gst_sample_get_caps(m_pipeline->latest.get()))) {
        *width = GST_VIDEO_INFO_WIDTH(&info);
        *height = GST_VIDEO_INFO_HEIGHT(&info);
    }
    return true;
}

}  // namespace zv::player
