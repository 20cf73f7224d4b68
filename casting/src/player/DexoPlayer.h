// One port of the Dexo_ player: a GStreamer pipeline that decodes the
// packets of casting/Dexo.h and draws them into an X11 window through the
// video-overlay interface, with the scaling done by the sink.
//
//   video: appsrc ─▶ h264parse ─▶ H.264 decoder ─▶ (latest picture kept) ─▶ videoconvert ─▶
//          media/OverlaySink (xvimagesink, or videoscale ─▶ ximagesink) | fakesink (no window)
//   sound: appsrc ─▶ opusdec ─▶ audioconvert ─▶ audioresample ─▶ pulsesink/alsasink
//
// Threads: every public member locks the port; the run-time callback comes on
// GStreamer threads (bus sync handler, streaming thread) without the lock held.
#pragma once

#include <gst/gst.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "casting/Dexo.h"
#include "player/DexoPacket.h"

namespace zv::player {

class DexoPlayer {
public:
    DexoPlayer();
    ~DexoPlayer();
    DexoPlayer(const DexoPlayer&) = delete;
    DexoPlayer& operator=(const DexoPlayer&) = delete;

    unsigned int lastError() const { return m_lastError; }
    bool fail(unsigned int error) {
        m_lastError = error;
        return false;
    }

    bool setCallback(DexoRunTimeInfoCallback callback, void* user);
    bool setCallbackMask(unsigned int mask, bool enable);
    bool setOpenMode(int mode);
    bool open(const unsigned char* header, unsigned int size, unsigned int bufferSize);
    bool close();
    bool setDisplayBuffers(unsigned int count);
    bool syncToAudio(bool sync);
    bool setSound(bool on);
    bool setConcealment(unsigned int level);
    bool play(unsigned long window);
    bool stop();
    bool input(const uint8_t* data, size_t size);
    bool windowChanged();
    bool jpeg(unsigned char* buffer, unsigned int size, unsigned int* written);
    bool pictureSize(int* width, int* height);

    struct Pipeline;

private:
    void report(unsigned int type, unsigned int error);
    bool push(Packet& packet);

    mutable std::mutex m_mutex;
    std::atomic<unsigned int> m_lastError{DEXO_ERR_NONE};
    std::mutex m_callbackMutex;
    DexoRunTimeInfoCallback m_callback = nullptr;
    void* m_user = nullptr;
    std::atomic<unsigned int> m_mask{0};
    int m_mode = DEXO_STREAM_REALTIME;
    bool m_opened = false;
    DexoStreamHeader m_header{};
    std::unique_ptr<PacketReader> m_reader;
    unsigned int m_displayBuffers = 1;
    bool m_sync = false;
    bool m_sound = false;
    unsigned int m_concealment = 1;
    bool m_waitKey = true;  // drop video until a key frame (start, damage with concealment 0)
    std::unique_ptr<Pipeline> m_pipeline;
    std::atomic<int> m_frames{0};
    int64_t m_openedAtUs = 0;

public:
    // For the pipeline's threads.
    void onBusMessage(GstMessage* message);
    int port = -1;
};

}  // namespace zv::player
