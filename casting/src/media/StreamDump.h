// The debug dumps of a cast's streams, switched by BusinessSettings at any
// time: each stream is written to its own file under <log folder>/dump/ while
// its switch is on; a file is opened at the first data after the switch went
// on and closed at the first data after it went off (or at close()).
//
//   RGB flow            rgb_<time>.bgrx     every grabbed rectangle: a 16-byte
//                                           header (x, y, width, height, u32
//                                           little-endian) and BGRx rows
//   YUV flow            yuv_<w>x<h>_<time>.i420  the encoder's input frames
//   RGB after YUV       rgb_<w>x<h>_<time>.rgb   those frames back in RGB24
//   H264 flow           h264_<time>.h264    Annex B byte stream (playable)
//   RTP flow            rtp_<time>.rtp      RTP before encryption, RFC 4571
//                                           framed (rtpstreamdepay reads it)
//
// The time log (<log folder>/TimeLog_<time>.txt) has one line per frame with
// how long it waited for the encoder and how long encoding and packing took.
// Called on streaming threads; each stream's file has its own lock.
#pragma once

#include <gst/gst.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>

namespace zv::media {

class StreamDump {
public:
    enum Kind : int { Rgb = 0, Yuv, RgbAfterYuv, H264, Rtp, TimeLog, KindCount };

    // folder: where the dumps go (empty: <log folder>/dump/); the time log
    // goes to its parent folder.
    explicit StreamDump(std::string folder = std::string());
    ~StreamDump();
    StreamDump(const StreamDump&) = delete;
    StreamDump& operator=(const StreamDump&) = delete;

    static bool isSwitchedOn(Kind kind);
    // The file written for kind now (empty when none is open).
    std::string currentPath(Kind kind) const;

    void writeRgbRect(const uint8_t* bgrx, int stride, int x, int y, int width, int height);
    // An I420 frame (GStreamer's layout) of width x height.
    void writeI420(GstBuffer* buffer, int width, int height);
    // An encoded access unit; caps tell avc (length-prefixed, codec_data) or
    // byte-stream. True when this opened a new file (which wants a key frame).
    bool writeH264(GstBuffer* buffer, GstCaps* caps);
    void writeRtp(GstBuffer* buffer);

    // Stage times, keyed by the buffer's time stamp: the frame entered the
    // pipeline (appsrc), left the encoder, left the payloader.
    void markQueued(GstClockTime pts, GstClockTime now);
    void markEncoded(GstClockTime pts, GstClockTime now);
    void markPacked(GstClockTime pts, GstClockTime now);

    void close();

private:
    struct File {
        mutable std::mutex mutex;
        FILE* file = nullptr;
        std::string path;
        uint64_t bytes = 0;
    };
    // Appends to the kind's file, opened (as name) or closed first to follow
    // its switch. False while the switch is off.
    bool append(Kind kind, const std::string& name, const void* data, size_t size);
    static bool wanted(Kind kind);
    void closeFile(Kind kind);

    std::string m_folder;
    File m_files[KindCount];
    std::mutex m_timesMutex;
    struct Times {
        GstClockTime inputPts = GST_CLOCK_TIME_NONE;
        GstClockTime queued = GST_CLOCK_TIME_NONE;
        GstClockTime encoded = GST_CLOCK_TIME_NONE;
    };
    std::map<GstClockTime, Times> m_times;    // by the encoder's input time stamp
    std::map<GstClockTime, Times> m_encoded;  // by its output time stamp
    GstClockTime m_encoderShift = 0;
    uint64_t m_timedFrames = 0;
    std::mutex m_codecMutex;
    std::string m_codecData;  // Annex B SPS/PPS from the avc caps last seen
    int m_lengthSize = 4;
    bool m_codecWritten = false;  // the current H.264 file has them
};

}  // namespace zv::media
