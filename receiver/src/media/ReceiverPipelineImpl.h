// ReceiverPipeline's insides, shared by its files: ReceiverPipeline.cpp
// (start, stop, pictures, statistics and the monitor), ReceiverVideo.cpp
// (the video pipeline and rtpbin's callbacks) and ReceiverAudio.cpp (sound).
#pragma once

#include <gst/app/gstappsink.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "media/GstHandles.h"
#include "media/OverlaySink.h"
#include "media/PeerFilter.h"
#include "media/PipelineSupport.h"
#include "media/RateMeter.h"
#include "media/ReceiverPipeline.h"
#include "media/RtpReceiving.h"
#include "media/SrtpKeying.h"

namespace zv::media {

struct ReceiverPipeline::Impl {
    explicit Impl(ReceiverCallbacks callbacks) : m_callbacks(std::move(callbacks)) {}

    // ReceiverPipeline.cpp
    std::string start(const ReceiverConfig& config);
    std::string prepareSecurity();
    void stop();
    void onMessage(GstMessage* message, bool audio);
    void reportError(const std::string& error);
    std::string firstError() const;
    void monitor();
    void checkAuthentication();
    ReceiverStatistics statistics(bool tick);  // tick: the monitor's once-a-second update of the loss figures
    void onSample(GstAppSink* sink);
    static GstFlowReturn onNewSample(GstAppSink* sink, gpointer self);
    // A stream of this cast without rtpbin (RtpReceiving.h).
    StreamSourceSpec streamSpec(uint16_t port, const char* rtpCaps, const char* prefix) const;

    // ReceiverVideo.cpp
    std::string buildVideo();
    std::string buildUdpVideo(GstElement* pipeline);
    std::string buildStreamVideo(GstElement* pipeline);  // TCP and SRT
    std::string buildDecoding(GstElement* pipeline);
    std::string startVideo(GstElement* pipeline, GstElement* rtcpSource);
    static GstCaps* onRequestPtMap(GstElement* rtpbin, guint session, guint pt, gpointer self);
    static GstElement* onRequestAuxReceiver(GstElement* rtpbin, guint session, gpointer self);
    static void onNewJitterbuffer(GstElement* rtpbin, GstElement* jitterbuffer, guint session, guint ssrc,
                                  gpointer self);
    static void onPadAdded(GstElement* element, GstPad* pad, gpointer self);

    // ReceiverWindow.cpp (config.videoWindow: drawn by the sink)
    std::string buildWindowDecoding(GstElement* pipeline);
    static GstPadProbeReturn onDrawnPicture(GstPad* pad, GstPadProbeInfo* info, gpointer self);
    QImage windowFrame() const;
    void noteDecoded(GstElement* element, GstBuffer* buffer, const GstSegment* segment);

    // ReceiverAudio.cpp
    std::string buildAudio();
    static GstPadProbeReturn onAudioBytes(GstPad* pad, GstPadProbeInfo* info, gpointer self);

    ReceiverCallbacks m_callbacks;
    ReceiverConfig m_config;
    ReceiverPorts m_ports;
    std::atomic<bool> m_encrypted{false};

    ElementPtr m_pipeline;
    ElementPtr m_videoSource;
    ElementPtr m_depay;
    ElementPtr m_rtcpSink;
    ElementPtr m_srtpEncoder;   // our RTCP feedback
    SrtpDecoder m_videoSrtp;    // the PC's video, retransmissions and RTCP
    SrtpDecoder m_audioSrtp;
    PeerFilter m_peer;
    BusForwarder m_bus;
    mutable std::mutex m_jitterMutex;
    ElementPtr m_jitterbuffer;  // the video stream's (UDP: made by rtpbin)
    std::map<guint, ElementPtr> m_jitterbuffers;  // UDP: rtpbin's, by SSRC
    uint64_t m_lastPushed = 0, m_lastLost = 0;
    double m_lossPercent = 0.0;

    ElementPtr m_audioPipeline;
    BusForwarder m_audioBus;
    bool m_audioToDevice = false;

    std::atomic<bool> m_running{false};
    std::atomic<bool> m_senderPaused{false};
    bool m_keyMismatchReported = false;  // monitor thread
    mutable std::mutex m_errorMutex;
    std::string m_firstError;

    WarningLimiter m_warnings;
    RateMeter m_videoBytes;
    RateMeter m_frames;
    RateMeter m_delaySumUs;   // per picture: arrival to decoded, microseconds
    RateMeter m_audioBytes;
    RateMeter::Clock::time_point m_startTime{};
    int m_srtLatencyMs = 0;

    mutable std::mutex m_frameMutex;
    QImage m_latest;
    int m_windowWidth = 0;   // window mode: the decoded picture's size
    int m_windowHeight = 0;
    std::unique_ptr<OverlaySink> m_overlay;  // window mode

    std::thread m_monitor;
    std::mutex m_monitorMutex;
    std::condition_variable m_monitorWake;
    bool m_monitorStop = false;
};

}  // namespace zv::media
