#include "media/ReceiverPipeline.h"

#include <gst/app/gstappsink.h>
#include <gst/video/video.h>

#include <algorithm>
#include <chrono>

#include "casting/Log.h"
#include "media/GstInit.h"
#include "media/ReceiverPipelineImpl.h"

namespace zv::media {
namespace {

// Packets failing authentication, none passing: the keys do not match.
constexpr uint64_t kRejectedBeforeKeyError = 10;

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
    if (config.transport == MediaTransport::Srt && !(error = checkSrtPassphrase(config.srtPassphrase)).empty()) {
        return error;
    }
    m_config = config;
    error = prepareSecurity();
    if (!error.empty()) {
        ZV_LOG(ERROR) << " cast refused: " << error;
        stop();
        return error;
    }
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
    m_keyMismatchReported = false;
    m_srtLatencyMs = m_config.transport == MediaTransport::Srt ? m_config.latencyMs : 0;
    {
        std::lock_guard<std::mutex> lock(m_frameMutex);
        m_latest = QImage();
        m_windowWidth = m_windowHeight = 0;
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
                 << ", latency " << m_config.latencyMs << " ms"
                 << (m_encrypted ? ", SRTP from " + m_config.peerAddress : std::string(", unencrypted"));
    return {};
}

StreamSourceSpec ReceiverPipeline::Impl::streamSpec(uint16_t port, const char* rtpCaps, const char* prefix) const {
    StreamSourceSpec spec;
    spec.transport = m_config.transport;
    spec.listenAddress = m_config.listenAddress;
    spec.port = port;
    spec.rtpCaps = rtpCaps;
    spec.srtPassphrase = m_config.srtPassphrase;
    spec.latencyMs = m_config.latencyMs;
    spec.prefix = prefix;
    return spec;
}

// Keys and peer address: SRTP elements made, the peer filter set. Called by start().
std::string ReceiverPipeline::Impl::prepareSecurity() {
    const ReceiverConfig& config = m_config;
    m_peer.clear();
    bool encrypted = false;
    std::string error = checkMediaKeys(config.sendKey, config.receiveKey, config.allowPlain, &encrypted);
    if (!error.empty()) return error;
    m_encrypted = encrypted;
    if (m_config.peerAddress.empty()) m_config.peerAddress = config.senderHost;
    if (!m_config.peerAddress.empty()) {
        error = m_peer.setPeer(m_config.peerAddress);
        if (!error.empty()) return error;
    } else if (!config.allowPlain) {
        return "no peer address: media would be taken from anyone";
    }
    if (!m_encrypted) {
        ZV_LOG(WARNING) << " media keys missing: this cast arrives unencrypted";
        return {};
    }
    m_srtpEncoder = makeSrtpEncoder(config.sendKey, "zv-srtp-enc", &error);
    if (error.empty()) error = m_videoSrtp.create(config.receiveKey, "zv-srtp-dec");
    return error;
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

    noteDecoded(GST_ELEMENT(sink), buffer, gst_sample_get_segment(sample.get()));

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
    {
        std::lock_guard<std::mutex> lock(m_frameMutex);
        m_latest = image;
    }
    if (m_callbacks.frame) m_callbacks.frame(image);
}

void ReceiverPipeline::Impl::onMessage(GstMessage* message, bool audio) {
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) {
        ZV_LOG(INFO) << " the sender closed the " << (audio ? "sound" : "video") << " stream";
        return;
    }
    if (audio && GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
        ZV_LOG(WARNING) << " sound: " << describeMessage(message) << " (the picture goes on)";
        dumpPipelineGraph(m_audioPipeline.get(), "zv-receiver-audio-error");
        return;
    }
    const std::string error = logPipelineMessage(message, m_pipeline.get(), "zv-receiver-error", m_warnings);
    if (!error.empty()) reportError(error);
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
        stats.width = m_overlay ? m_windowWidth : m_latest.width();
        stats.height = m_overlay ? m_windowHeight : m_latest.height();
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
    stats.packetsRejected = m_videoSrtp.rejected() + m_audioSrtp.rejected();
    stats.packetsFromOthers = m_peer.dropped();
    stats.encrypted = m_encrypted;
    return stats;
}

void ReceiverPipeline::Impl::monitor() {
    int nextStallNotice = m_config.stallSeconds;
    std::unique_lock<std::mutex> lock(m_monitorMutex);
    while (!m_monitorStop) {
        m_monitorWake.wait_for(lock, std::chrono::seconds(1), [this] { return m_monitorStop; });
        if (m_monitorStop) break;
        lock.unlock();
        checkAuthentication();
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

// Monitor thread: keys of injected streams are forgotten; packets that all
// fail authentication mean the sender has other keys, which ends the cast.
void ReceiverPipeline::Impl::checkAuthentication() {
    if (!m_encrypted) return;
    m_videoSrtp.forgetUnproven();
    m_audioSrtp.forgetUnproven();
    const uint64_t rejected = m_videoSrtp.rejected();
    if (m_keyMismatchReported || m_videoSrtp.anyAuthentic() || rejected < kRejectedBeforeKeyError) return;
    m_keyMismatchReported = true;
    const std::string error = "the media from " + m_config.peerAddress + " fail authentication (" +
                              std::to_string(rejected) + " packets): the sender's media key is not this cast's";
    ZV_LOG(ERROR) << " " << error;
    reportError(error);
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
    {
        std::lock_guard<std::mutex> lock(m_frameMutex);
        m_overlay.reset();
    }
    m_srtpEncoder.reset();
    m_videoSrtp.reset();
    m_audioSrtp.reset();
    if (wasRunning) {
        releaseFreedMemory();
        ZV_LOG(INFO) << " receiver stopped";
    }
}

ReceiverPipeline::ReceiverPipeline(ReceiverCallbacks callbacks) : m_impl(std::make_unique<Impl>(std::move(callbacks))) {}
ReceiverPipeline::~ReceiverPipeline() { m_impl->stop(); }
std::string ReceiverPipeline::start(const ReceiverConfig& config) { return m_impl->start(config); }
void ReceiverPipeline::stop() { m_impl->stop(); }
bool ReceiverPipeline::isRunning() const { return m_impl->m_running; }
ReceiverPorts ReceiverPipeline::ports() const { return m_impl->m_ports; }

QImage ReceiverPipeline::latestFrame() const { return m_impl->windowFrame(); }

ReceiverStatistics ReceiverPipeline::statistics() const { return m_impl->statistics(false); }

void ReceiverPipeline::windowResized() {
    std::lock_guard<std::mutex> lock(m_impl->m_frameMutex);
    if (m_impl->m_overlay) m_impl->m_overlay->fit();
}

void ReceiverPipeline::setSenderPaused(bool paused) { m_impl->m_senderPaused = paused; }

}  // namespace zv::media
