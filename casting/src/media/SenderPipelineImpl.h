// SenderPipeline's insides, shared by its files: SenderPipeline.cpp (start,
// stop, capture and encoding), SenderTransport.cpp (the video's way to the
// panel) and SenderAudio.cpp (sound).
#pragma once

#include <atomic>
#include <mutex>
#include <string>

#include "media/GstHandles.h"
#include "media/PeerFilter.h"
#include "media/PipelineSupport.h"
#include "media/RateMeter.h"
#include "media/SenderPipeline.h"
#include "media/SrtpKeying.h"
#include "media/StreamDump.h"
#include "media/X11Capture.h"

namespace zv::media {

struct SenderPipeline::Impl {
    // SenderPipeline.cpp
    std::string start(const SenderConfig& config);
    void stop();
    std::string buildVideo(const SenderConfig& config);
    void setPaused(bool paused);
    void requestKeyFrame();
    SenderStatistics statistics() const;
    void onVideoMessage(GstMessage* message);
    void reportError(const std::string& error);
    void pushFrame(BufferPtr frame, int width, int height);
    std::string firstError() const;
    static GstPadProbeReturn onEncodedFrame(GstPad* pad, GstPadProbeInfo* info, gpointer self);
    static GstPadProbeReturn onUpstreamEvent(GstPad* pad, GstPadProbeInfo* info, gpointer self);
    // Debug dumps and the time log (StreamDump), off unless switched on.
    static GstPadProbeReturn onRawFrame(GstPad* pad, GstPadProbeInfo* info, gpointer self);
    static GstPadProbeReturn onRtpPacked(GstPad* pad, GstPadProbeInfo* info, gpointer self);
    GstClockTime runningTimeNow() const;

    // SenderTransport.cpp
    std::string buildVideoTransport(GstElement* payloader);
    std::string buildUdpVideo(GstElement* payloader, GstElement** sink);
    // payloader ─▶ [srtpenc] ─▶ TCP framing and sink, SRT sink or UDP sink to host:port.
    std::string buildSendingTail(GstElement* pipeline, GstElement* payloader, uint16_t port, const std::string& prefix,
                                 GstElement** sink);
    static GstElement* onRequestAuxSender(GstElement* rtpbin, guint session, gpointer self);

    // SenderAudio.cpp
    std::string startAudio();
    void stopAudio();
    void setAudioEnabled(bool enabled);
    bool audioActive() const;
    void onAudioMessage(GstMessage* message);

    SenderConfig m_config;
    std::atomic<bool> m_encrypted{false};
    guint m_videoSsrc = 0;  // sound and retransmissions take their own, next to it (one key, unique SSRCs)
    ErrorCallback m_onError;
    X11Capture m_capture;
    StreamDump m_dump;

    ElementPtr m_pipeline;
    ElementPtr m_appsrc;
    ElementPtr m_encoder;
    ElementPtr m_rtx;
    ElementPtr m_srtpEncoder;
    SrtpDecoder m_srtpDecoder;  // the panel's RTCP
    PeerFilter m_peer;
    BusForwarder m_bus;
    std::shared_ptr<UdpPortReservation> m_reservedRtcp;  // from reserveRtcpPort()
    std::shared_ptr<UdpPortReservation> m_rtcpSocket;    // in use
    std::atomic<uint16_t> m_localRtcpPort{0};
    std::string m_encoderName;
    int m_frameWidth = 0;  // caps on appsrc (the capture thread's once started)
    int m_frameHeight = 0;
    std::atomic<int> m_outputWidth{0};  // picture sent
    std::atomic<int> m_outputHeight{0};
    mutable std::mutex m_elementsMutex;  // m_encoder, m_rtx and m_encoderName against stop()

    ElementPtr m_audioPipeline;
    ElementPtr m_audioValve;
    BusForwarder m_audioBus;
    std::atomic<bool> m_audioEnabled{false};
    std::atomic<bool> m_audioFailed{false};
    std::atomic<bool> m_audioRunning{false};

    std::atomic<bool> m_running{false};
    std::atomic<bool> m_paused{false};
    mutable std::mutex m_errorMutex;
    std::string m_firstError;
    std::string m_audioStartError;
    RateMeter m_frames;
    RateMeter m_bytes;
    WarningLimiter m_warnings;
};

}  // namespace zv::media
