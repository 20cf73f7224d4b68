#include "file/FilePlayer.h"

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gst/video/video.h>

#include "casting/Log.h"
#include "file/FileFeed.h"

namespace receiver {

namespace {

// The mapping holds its own reference to the buffer; the sample goes back to
// the sink at once (appsink reuses its sample object, and a sample we kept
// would not be writable for it).
struct MappedFrame {
    GstVideoFrame frame;
};

void releaseMappedFrame(void* data) {
    auto* mapped = static_cast<MappedFrame*>(data);
    gst_video_frame_unmap(&mapped->frame);
    delete mapped;
}

}  // namespace

FilePlayer::FilePlayer(FileFeed* feed, FrameSink frames, QObject* parent)
    : QObject(parent), m_feed(feed), m_frames(std::move(frames)) {}

FilePlayer::~FilePlayer() {
    m_feed->cancel();  // a streaming thread waiting for bytes lets go
    if (m_playbin) gst_element_set_state(m_playbin.get(), GST_STATE_NULL);
    m_bus.detach();
}

void FilePlayer::start() {
    m_playbin = zv::media::makeElement("playbin", "zv-file-player");
    zv::media::ElementPtr sink = zv::media::makeElement("appsink", "zv-file-video");
    if (!m_playbin || !sink) {
        QMetaObject::invokeMethod(this, [this] { fail(QStringLiteral("this panel has no media player (GStreamer playbin)")); },
                                  Qt::QueuedConnection);
        return;
    }
    // BGRx is QImage's RGB32; the file's own size, no scaling here.
    zv::media::CapsPtr caps = zv::media::capsFromString("video/x-raw,format=BGRx");
    g_object_set(sink.get(), "caps", caps.get(), "max-buffers", 2, "drop", TRUE, "sync", TRUE, nullptr);
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = &FilePlayer::onNewSample;
    gst_app_sink_set_callbacks(GST_APP_SINK(sink.get()), &callbacks, this, nullptr);
    g_object_set(m_playbin.get(), "uri", "appsrc://", "video-sink", sink.get(), nullptr);
    m_videoSink = std::move(sink);
    // No subtitles or visualisation: picture and sound as they are.
    g_signal_connect(m_playbin.get(), "source-setup", G_CALLBACK(&FilePlayer::onSourceSetup), this);
    m_bus.attach(m_playbin.get(), [this](GstMessage* message) { onMessage(message); });
    if (gst_element_set_state(m_playbin.get(), GST_STATE_PAUSED) == GST_STATE_CHANGE_FAILURE) {
        QMetaObject::invokeMethod(this, [this] { fail(QStringLiteral("the player does not start")); }, Qt::QueuedConnection);
    }
}

void FilePlayer::onSourceSetup(GstElement*, GstElement* source, gpointer self) {
    auto* player = static_cast<FilePlayer*>(self);
    g_object_set(source, "stream-type", GST_APP_STREAM_TYPE_RANDOM_ACCESS, "format", GST_FORMAT_BYTES, "size",
                 static_cast<gint64>(player->m_feed->size()), nullptr);
    GstAppSrcCallbacks callbacks{};
    callbacks.need_data = &FilePlayer::onNeedData;
    callbacks.seek_data = &FilePlayer::onSeekData;
    gst_app_src_set_callbacks(GST_APP_SRC(source), &callbacks, player, nullptr);
}

gboolean FilePlayer::onSeekData(GstAppSrc*, guint64 offset, gpointer self) {
    static_cast<FilePlayer*>(self)->m_offset = offset;
    return TRUE;
}

void FilePlayer::onNeedData(GstAppSrc* src, guint length, gpointer self) {
    auto* player = static_cast<FilePlayer*>(self);
    const uint64_t offset = player->m_offset;
    if (offset >= player->m_feed->size()) {
        gst_app_src_end_of_stream(src);
        return;
    }
    // Blocks this streaming thread until the bytes are here (or the cast ends).
    const QByteArray bytes = player->m_feed->read(offset, length);
    if (bytes.isEmpty()) {
        gst_app_src_end_of_stream(src);
        return;
    }
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, static_cast<gsize>(bytes.size()), nullptr);
    gst_buffer_fill(buffer, 0, bytes.constData(), static_cast<gsize>(bytes.size()));
    GST_BUFFER_OFFSET(buffer) = offset;
    player->m_offset = offset + static_cast<uint64_t>(bytes.size());
    gst_app_src_push_buffer(src, buffer);
}

GstFlowReturn FilePlayer::onNewSample(GstAppSink* sink, gpointer self) {
    auto* player = static_cast<FilePlayer*>(self);
    zv::media::SamplePtr sample(gst_app_sink_pull_sample(sink));
    if (!sample) return GST_FLOW_OK;
    GstBuffer* buffer = gst_sample_get_buffer(sample.get());
    GstCaps* caps = gst_sample_get_caps(sample.get());
    GstVideoInfo info;
    if (buffer == nullptr || caps == nullptr || !gst_video_info_from_caps(&info, caps)) return GST_FLOW_OK;
    auto* mapped = new MappedFrame;
    if (!gst_video_frame_map(&mapped->frame, &info, buffer, GST_MAP_READ)) {
        delete mapped;
        return GST_FLOW_OK;
    }
    const int width = GST_VIDEO_FRAME_WIDTH(&mapped->frame);
    const int height = GST_VIDEO_FRAME_HEIGHT(&mapped->frame);
    auto* data = static_cast<uchar*>(GST_VIDEO_FRAME_PLANE_DATA(&mapped->frame, 0));
    const int stride = GST_VIDEO_FRAME_PLANE_STRIDE(&mapped->frame, 0);
    player->m_frameWidth = width;
    player->m_frameHeight = height;
    const QImage image(data, width, height, stride, QImage::Format_RGB32, &releaseMappedFrame, mapped);
    if (player->m_frames) player->m_frames(image);
    return GST_FLOW_OK;
}

void FilePlayer::onMessage(GstMessage* message) {
    // A streaming thread or the one changing state: act on the main thread.
    switch (GST_MESSAGE_TYPE(message)) {
        case GST_MESSAGE_ERROR: {
            const std::string text = zv::media::logPipelineMessage(message, m_playbin.get(), "zv-file-error", m_warnings);
            QMetaObject::invokeMethod(this, [this, text] { fail(QString::fromStdString(text)); }, Qt::QueuedConnection);
            break;
        }
        case GST_MESSAGE_WARNING: zv::media::logPipelineMessage(message, m_playbin.get(), "zv-file-warning", m_warnings); break;
        case GST_MESSAGE_EOS:
            QMetaObject::invokeMethod(this, [this] {
                if (m_state == State::Failed) return;
                m_state = State::Ended;
                emit ended();
                emit stateChanged();
            }, Qt::QueuedConnection);
            break;
        case GST_MESSAGE_ASYNC_DONE:
            QMetaObject::invokeMethod(this, [this] {
                if (m_state != State::Starting) return;
                m_state = m_wantPaused ? State::Paused : State::Playing;
                if (!m_wantPaused) gst_element_set_state(m_playbin.get(), GST_STATE_PLAYING);
                emit prerolled();
                emit stateChanged();
            }, Qt::QueuedConnection);
            break;
        default: break;
    }
}

void FilePlayer::fail(const QString& text) {
    if (m_state == State::Failed) return;
    m_state = State::Failed;
    m_feed->cancel();
    emit stateChanged();
    emit failed(text);  // last: its receiver may delete this player
}

void FilePlayer::setPaused(bool paused) {
    m_wantPaused = paused;
    if (m_state == State::Starting || m_state == State::Failed || !m_playbin) return;
    if (m_state == State::Ended && !paused) return;  // a seek plays it again
    gst_element_set_state(m_playbin.get(), paused ? GST_STATE_PAUSED : GST_STATE_PLAYING);
    m_state = paused ? State::Paused : State::Playing;
    emit stateChanged();
}

void FilePlayer::seek(int64_t positionMs) {
    if (!m_playbin || m_state == State::Starting || m_state == State::Failed) return;
    const int64_t duration = durationMs();
    if (duration > 0) positionMs = std::min(positionMs, duration);
    // Key frames: a far seek shows a picture at once instead of decoding up to the exact spot.
    gst_element_seek_simple(m_playbin.get(), GST_FORMAT_TIME,
                            static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_KEY_UNIT),
                            std::max<int64_t>(0, positionMs) * GST_MSECOND);
    if (m_state == State::Ended) {
        m_state = m_wantPaused ? State::Paused : State::Playing;
        gst_element_set_state(m_playbin.get(), m_wantPaused ? GST_STATE_PAUSED : GST_STATE_PLAYING);
        emit stateChanged();
    }
}

void FilePlayer::setVolume(int volume) {
    m_volume = std::clamp(volume, 0, 100);
    if (m_playbin) g_object_set(m_playbin.get(), "volume", m_volume / 100.0, nullptr);
}

int64_t FilePlayer::positionMs() const {
    gint64 position = 0;
    if (!m_playbin || !gst_element_query_position(m_playbin.get(), GST_FORMAT_TIME, &position)) return 0;
    return position / static_cast<gint64>(GST_MSECOND);
}

int64_t FilePlayer::durationMs() const {
    gint64 duration = 0;
    if (!m_playbin || !gst_element_query_duration(m_playbin.get(), GST_FORMAT_TIME, &duration) || duration < 0) {
        return -1;
    }
    return duration / static_cast<gint64>(GST_MSECOND);
}

QSize FilePlayer::videoSize() const {
    if (m_frameWidth > 0) return {m_frameWidth.load(), m_frameHeight.load()};
    // Before the first frame is played: what the sink prerolled with.
    if (!m_videoSink) return {};
    zv::media::PadPtr pad(gst_element_get_static_pad(m_videoSink.get(), "sink"));
    zv::media::CapsPtr caps(pad ? gst_pad_get_current_caps(pad.get()) : nullptr);
    GstVideoInfo info;
    if (!caps || !gst_video_info_from_caps(&info, caps.get())) return {};
    return {GST_VIDEO_INFO_WIDTH(&info), GST_VIDEO_INFO_HEIGHT(&info)};
}

int FilePlayer::audioStreams() const {
    gint n = 0;
    if (m_playbin) g_object_get(m_playbin.get(), "n-audio", &n, nullptr);
    return n;
}

int FilePlayer::videoStreams() const {
    gint n = 0;
    if (m_playbin) g_object_get(m_playbin.get(), "n-video", &n, nullptr);
    return n;
}

}  // namespace receiver
