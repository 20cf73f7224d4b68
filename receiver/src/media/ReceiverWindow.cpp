// The receiver drawing into the view's window (ReceiverConfig::videoWindow):
// the sink scales, nothing is converted to QImage per picture; pictures are
// counted and timed on their way into the sink.
#include <gst/video/video.h>

#include "casting/Log.h"
#include "media/ReceiverPipelineImpl.h"
#include "media/VideoDecoding.h"

namespace zv::media {
namespace {

constexpr GstClockTime kConvertTimeout = GST_SECOND;

}  // namespace

std::string ReceiverPipeline::Impl::buildWindowDecoding(GstElement* pipeline) {
    auto overlay = std::make_unique<OverlaySink>();
    const std::string error = buildH264DecodingToWindow(pipeline, overlay.get(), m_config.videoWindow, &m_depay);
    if (!error.empty()) return error;
    ZV_LOG(INFO) << " drawing into window 0x" << std::hex << m_config.videoWindow << std::dec << " with "
                 << overlay->sinkName();
    // The decoded picture, before any scaling: its size and timing are the stream's.
    PadPtr pad(gst_element_get_static_pad(overlay->first(), "sink"));
    gst_pad_add_probe(pad.get(), static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM),
                      &Impl::onDrawnPicture, this, nullptr);
    std::lock_guard<std::mutex> lock(m_frameMutex);
    m_overlay = std::move(overlay);
    return {};
}

GstPadProbeReturn ReceiverPipeline::Impl::onDrawnPicture(GstPad* pad, GstPadProbeInfo* info, gpointer self) {
    auto* impl = static_cast<Impl*>(self);
    if ((info->type & GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM) != 0) {
        GstEvent* event = GST_PAD_PROBE_INFO_EVENT(info);
        if (GST_EVENT_TYPE(event) != GST_EVENT_CAPS) return GST_PAD_PROBE_OK;
        GstCaps* caps = nullptr;
        gst_event_parse_caps(event, &caps);
        GstVideoInfo video;
        if (caps == nullptr || !gst_video_info_from_caps(&video, caps)) return GST_PAD_PROBE_OK;
        {
            std::lock_guard<std::mutex> lock(impl->m_frameMutex);
            impl->m_windowWidth = GST_VIDEO_INFO_WIDTH(&video);
            impl->m_windowHeight = GST_VIDEO_INFO_HEIGHT(&video);
        }
        if (impl->m_callbacks.pictureSize) {
            impl->m_callbacks.pictureSize(GST_VIDEO_INFO_WIDTH(&video), GST_VIDEO_INFO_HEIGHT(&video));
        }
        return GST_PAD_PROBE_OK;
    }
    GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    GstEvent* segmentEvent = gst_pad_get_sticky_event(pad, GST_EVENT_SEGMENT, 0);
    const GstSegment* segment = nullptr;
    if (segmentEvent != nullptr) gst_event_parse_segment(segmentEvent, &segment);
    GstElement* element = gst_pad_get_parent_element(pad);
    if (element != nullptr && buffer != nullptr) {
        impl->noteDecoded(element, buffer, segment);
        if (impl->m_callbacks.frame) impl->m_callbacks.frame(QImage());
    }
    if (element != nullptr) gst_object_unref(element);
    if (segmentEvent != nullptr) gst_event_unref(segmentEvent);
    return GST_PAD_PROBE_OK;
}

// One decoded picture: counted, and its arrival-to-decoded time added up.
void ReceiverPipeline::Impl::noteDecoded(GstElement* element, GstBuffer* buffer, const GstSegment* segment) {
    GstClock* clock = gst_element_get_clock(element);
    if (clock != nullptr && segment != nullptr && GST_BUFFER_PTS_IS_VALID(buffer)) {
        const GstClockTime now = gst_clock_get_time(clock) - gst_element_get_base_time(element);
        const GstClockTime arrival = gst_segment_to_running_time(segment, GST_FORMAT_TIME, GST_BUFFER_PTS(buffer));
        if (GST_CLOCK_TIME_IS_VALID(arrival) && now >= arrival) m_delaySumUs.add((now - arrival) / GST_USECOND);
    }
    if (clock != nullptr) gst_object_unref(clock);
    m_frames.add(1);
}

// Window mode: the sink's last picture as RGB32, made only when asked for.
QImage ReceiverPipeline::Impl::windowFrame() const {
    SamplePtr sample;
    {
        std::lock_guard<std::mutex> lock(m_frameMutex);
        if (!m_overlay) return m_latest;
        GstSample* last = nullptr;
        g_object_get(m_overlay->sink(), "last-sample", &last, nullptr);
        sample.reset(last);
    }
    if (!sample) return {};
    CapsPtr rgb = capsFromString("video/x-raw,format=BGRx");
    GError* error = nullptr;
    SamplePtr converted(gst_video_convert_sample(sample.get(), rgb.get(), kConvertTimeout, &error));
    if (!converted) {
        ZV_LOG(WARNING) << " cannot read the shown picture: " << (error != nullptr ? error->message : "unknown");
        if (error != nullptr) g_error_free(error);
        return {};
    }
    GstVideoInfo info;
    GstBuffer* buffer = gst_sample_get_buffer(converted.get());
    GstVideoFrame frame;
    if (buffer == nullptr || !gst_video_info_from_caps(&info, gst_sample_get_caps(converted.get())) ||
        !gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ)) {
        return {};
    }
    const QImage image(static_cast<const uchar*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0)), GST_VIDEO_FRAME_WIDTH(&frame),
                       GST_VIDEO_FRAME_HEIGHT(&frame), GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0), QImage::Format_RGB32);
    QImage copy = image.copy();  // owns its pixels once the buffer is unmapped
    gst_video_frame_unmap(&frame);
    return copy;
}

}  // namespace zv::media
