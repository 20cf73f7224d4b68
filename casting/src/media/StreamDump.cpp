#include "media/StreamDump.h"

#include <gst/video/video.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <ctime>

#include "casting/BusinessSettings.h"
#include "casting/Log.h"

namespace zv::media {
namespace {

const char kStartCode[] = {0, 0, 0, 1};

std::string timeStamp() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", &local);
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                        std::chrono::system_clock::now().time_since_epoch())
                        .count() % 1000;
    return std::string(text) + "-" + std::to_string(ms);
}

void makeFolders(const std::string& path) {
    for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        mkdir(path.substr(0, slash).c_str(), 0700);
    }
    mkdir(path.c_str(), 0700);
}

uint8_t clampByte(int value) { return static_cast<uint8_t>(std::clamp(value, 0, 255)); }

// avcC (ISO 14496-15) to Annex B parameter sets; lengthSize gets the NAL
// length field's size.
std::string annexBFromAvcC(const uint8_t* data, size_t size, int* lengthSize) {
    std::string out;
    if (size < 7) return out;
    *lengthSize = (data[4] & 3) + 1;
    size_t at = 5;
    for (int table = 0; table < 2; ++table) {
        if (at >= size) break;
        const int count = table == 0 ? (data[at] & 0x1f) : data[at];
        ++at;
        for (int i = 0; i < count && at + 2 <= size; ++i) {
            const size_t length = (static_cast<size_t>(data[at]) << 8) | data[at + 1];
            at += 2;
            if (at + length > size) return out;
            out.append(kStartCode, 4);
            out.append(reinterpret_cast<const char*>(data + at), length);
            at += length;
        }
    }
    return out;
}

}  // namespace

StreamDump::StreamDump(std::string folder)
    : m_folder(folder.empty() ? zv_log::defaultLogDir() + "dump" : std::move(folder)) {}

StreamDump::~StreamDump() { close(); }

bool StreamDump::wanted(Kind kind) { return isSwitchedOn(kind); }

bool StreamDump::isSwitchedOn(Kind kind) {
    BusinessSettings& settings = BusinessSettings::getInstance();
    switch (kind) {
        case Rgb: return settings.isWriteRGBFlow();
        case Yuv: return settings.isWriteYUVFlow();
        case RgbAfterYuv: return settings.isWriteRGBFlowAfterYUV();
        case H264: return settings.isWriteH264Flow();
        case Rtp: return settings.isWriteRTPFlow();
        case TimeLog: return settings.isRecordTimeLog();
        case KindCount: break;
    }
    return false;
}

std::string StreamDump::currentPath(Kind kind) const {
    std::lock_guard<std::mutex> lock(m_files[kind].mutex);
    return m_files[kind].file != nullptr ? m_files[kind].path : std::string();
}

bool StreamDump::append(Kind kind, const std::string& name, const void* data, size_t size) {
    File& file = m_files[kind];
    const bool on = wanted(kind);
    std::lock_guard<std::mutex> lock(file.mutex);
    if (!on) {
        if (file.file != nullptr) {
            std::fclose(file.file);
            file.file = nullptr;
            ZV_LOG(INFO) << " dump closed: " << file.path << " (" << file.bytes << " bytes)";
            if (kind == H264) {
                std::lock_guard<std::mutex> codecLock(m_codecMutex);
                m_codecWritten = false;
            }
        }
        return false;
    }
    if (file.file == nullptr) {
        // The time log sits beside the logs, the stream dumps in their folder.
        const std::string folder = kind == TimeLog ? m_folder.substr(0, m_folder.find_last_of('/')) : m_folder;
        makeFolders(folder);
        file.path = folder + "/" + name;
        file.bytes = 0;
        file.file = std::fopen(file.path.c_str(), "wb");
        if (file.file == nullptr) {
            ZV_LOG(WARNING) << " cannot write the dump " << file.path;
            return false;
        }
        ZV_LOG(INFO) << " dump opened: " << file.path;
    }
    if (size > 0 && std::fwrite(data, 1, size, file.file) != size) {
        ZV_LOG(WARNING) << " dump write failed: " << file.path;
    }
    file.bytes += size;
    return true;
}

void StreamDump::writeRgbRect(const uint8_t* bgrx, int stride, int x, int y, int width, int height) {
    if (!wanted(Rgb) && currentPath(Rgb).empty()) return;
    std::string record(16 + static_cast<size_t>(width) * 4 * height, '\0');
    const uint32_t header[4] = {static_cast<uint32_t>(x), static_cast<uint32_t>(y), static_cast<uint32_t>(width),
                                static_cast<uint32_t>(height)};
    std::memcpy(&record[0], header, sizeof header);
    for (int row = 0; row < height; ++row) {
        std::memcpy(&record[16 + static_cast<size_t>(row) * width * 4], bgrx + static_cast<size_t>(row) * stride,
                    static_cast<size_t>(width) * 4);
    }
    append(Rgb, "rgb_" + timeStamp() + ".bgrx", record.data(), record.size());
}

void StreamDump::writeI420(GstBuffer* buffer, int width, int height) {
    const bool yuv = wanted(Yuv) || !currentPath(Yuv).empty();
    const bool rgb = wanted(RgbAfterYuv) || !currentPath(RgbAfterYuv).empty();
    if (!yuv && !rgb) return;
    GstMapInfo map;
    if (!gst_buffer_map(buffer, &map, GST_MAP_READ)) return;
    GstVideoInfo info;
    gst_video_info_set_format(&info, GST_VIDEO_FORMAT_I420, static_cast<guint>(width), static_cast<guint>(height));
    const std::string size = std::to_string(width) + "x" + std::to_string(height) + "_";
    if (yuv) append(Yuv, "yuv_" + size + timeStamp() + ".i420", map.data, std::min<size_t>(map.size, info.size));
    if (rgb && map.size >= info.size) {
        // BT.601 limited range back to RGB, as the panel's decoder shows it.
        const uint8_t* yPlane = map.data + GST_VIDEO_INFO_PLANE_OFFSET(&info, 0);
        const uint8_t* uPlane = map.data + GST_VIDEO_INFO_PLANE_OFFSET(&info, 1);
        const uint8_t* vPlane = map.data + GST_VIDEO_INFO_PLANE_OFFSET(&info, 2);
        const int yStride = GST_VIDEO_INFO_PLANE_STRIDE(&info, 0);
        const int cStride = GST_VIDEO_INFO_PLANE_STRIDE(&info, 1);
        std::string rgbFrame(static_cast<size_t>(width) * height * 3, '\0');
        for (int row = 0; row < height; ++row) {
            for (int col = 0; col < width; ++col) {
                const int c = 298 * (yPlane[row * yStride + col] - 16);
                const int d = uPlane[(row / 2) * cStride + col / 2] - 128;
                const int e = vPlane[(row / 2) * cStride + col / 2] - 128;
                char* out = &rgbFrame[(static_cast<size_t>(row) * width + col) * 3];
                out[0] = static_cast<char>(clampByte((c + 409 * e + 128) >> 8));
                out[1] = static_cast<char>(clampByte((c - 100 * d - 208 * e + 128) >> 8));
                out[2] = static_cast<char>(clampByte((c + 516 * d + 128) >> 8));
            }
        }
        append(RgbAfterYuv, "rgb_" + size + timeStamp() + ".rgb", rgbFrame.data(), rgbFrame.size());
    }
    gst_buffer_unmap(buffer, &map);
}

bool StreamDump::writeH264(GstBuffer* buffer, GstCaps* caps) {
    if (!wanted(H264) && currentPath(H264).empty()) return false;
    bool avc = false;
    if (caps != nullptr && gst_caps_get_size(caps) > 0) {
        const GstStructure* structure = gst_caps_get_structure(caps, 0);
        const char* format = gst_structure_get_string(structure, "stream-format");
        avc = format != nullptr && std::string(format).rfind("avc", 0) == 0;
        const GValue* codec = gst_structure_get_value(structure, "codec_data");
        if (avc && codec != nullptr && G_VALUE_HOLDS(codec, GST_TYPE_BUFFER)) {
            GstBuffer* codecBuffer = gst_value_get_buffer(codec);
            GstMapInfo map;
            if (gst_buffer_map(codecBuffer, &map, GST_MAP_READ)) {
                std::lock_guard<std::mutex> lock(m_codecMutex);
                m_codecData = annexBFromAvcC(map.data, map.size, &m_lengthSize);
                gst_buffer_unmap(codecBuffer, &map);
            }
        }
    }
    GstMapInfo map;
    if (!gst_buffer_map(buffer, &map, GST_MAP_READ)) return false;
    std::string unit;
    if (!avc) {
        unit.assign(reinterpret_cast<const char*>(map.data), map.size);
    } else {
        std::lock_guard<std::mutex> lock(m_codecMutex);
        // A file must start with the parameter sets, and every key frame gets
        // them again so that a cut file still plays.
        const bool keyFrame = !GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT);
        if (!m_codecWritten || keyFrame) {
            unit = m_codecData;
            m_codecWritten = true;
        }
        size_t at = 0;
        while (at + static_cast<size_t>(m_lengthSize) <= map.size) {
            size_t length = 0;
            for (int i = 0; i < m_lengthSize; ++i) length = (length << 8) | map.data[at + i];
            at += static_cast<size_t>(m_lengthSize);
            if (at + length > map.size) break;
            unit.append(kStartCode, 4);
            unit.append(reinterpret_cast<const char*>(map.data + at), length);
            at += length;
        }
    }
    gst_buffer_unmap(buffer, &map);
    const bool wasOpen = !currentPath(H264).empty();
    return append(H264, "h264_" + timeStamp() + ".h264", unit.data(), unit.size()) && !wasOpen;
}

void StreamDump::writeRtp(GstBuffer* buffer) {
    if (!wanted(Rtp) && currentPath(Rtp).empty()) return;
    GstMapInfo map;
    if (!gst_buffer_map(buffer, &map, GST_MAP_READ)) return;
    std::string framed;
    if (map.size <= 0xffff) {
        framed.push_back(static_cast<char>(map.size >> 8));
        framed.push_back(static_cast<char>(map.size & 0xff));
        framed.append(reinterpret_cast<const char*>(map.data), map.size);
    }
    gst_buffer_unmap(buffer, &map);
    append(Rtp, "rtp_" + timeStamp() + ".rtp", framed.data(), framed.size());
}

void StreamDump::markQueued(GstClockTime pts, GstClockTime now) {
    if (!wanted(TimeLog)) {
        if (!currentPath(TimeLog).empty()) append(TimeLog, std::string(), nullptr, 0);  // closes it
        return;
    }
    if (!GST_CLOCK_TIME_IS_VALID(pts)) return;
    std::lock_guard<std::mutex> lock(m_timesMutex);
    m_times[pts].queued = now;
    while (m_times.size() > 256) m_times.erase(m_times.begin());  // frames the encoder dropped
}

void StreamDump::markEncoded(GstClockTime pts, GstClockTime now) {
    if (!GST_CLOCK_TIME_IS_VALID(pts)) return;
    std::lock_guard<std::mutex> lock(m_timesMutex);
    if (m_times.empty()) return;
    // Encoders shift time stamps (GstVideoEncoder adds 1000 hours): learn the
    // shift from the oldest frame waiting, and again whenever it stops fitting.
    auto found = m_times.find(pts - m_encoderShift);
    if (pts < m_encoderShift || found == m_times.end()) {
        m_encoderShift = pts - std::min(pts, m_times.begin()->first);
        found = m_times.find(pts - m_encoderShift);
        if (found == m_times.end()) return;
    }
    found->second.encoded = now;
    found->second.inputPts = found->first;
    m_encoded[pts] = found->second;
    m_times.erase(m_times.begin(), std::next(found));
    while (m_encoded.size() > 256) m_encoded.erase(m_encoded.begin());
}

void StreamDump::markPacked(GstClockTime pts, GstClockTime now) {
    if (!GST_CLOCK_TIME_IS_VALID(pts)) return;
    Times times;
    uint64_t frame = 0;
    {
        std::lock_guard<std::mutex> lock(m_timesMutex);
        const auto found = m_encoded.find(pts);
        if (found == m_encoded.end()) return;  // a later packet of a frame already logged
        times = found->second;
        m_encoded.erase(m_encoded.begin(), std::next(found));
        frame = ++m_timedFrames;
    }
    const GstClockTime input = times.inputPts;
    // pts is the running time at which appsrc took the frame from the capture thread.
    auto ms = [](GstClockTime from, GstClockTime to) {
        return to >= from ? static_cast<double>(to - from) / 1e6 : 0.0;
    };
    char line[160];
    const int length = std::snprintf(line, sizeof line, "frame %llu queue %.2f ms encode %.2f ms pack %.2f ms\n",
                                     static_cast<unsigned long long>(frame), ms(input, times.queued),
                                     ms(times.queued, times.encoded), ms(times.encoded, now));
    append(TimeLog, "TimeLog_" + timeStamp() + ".txt", line, static_cast<size_t>(std::max(0, length)));
}

void StreamDump::closeFile(Kind kind) {
    File& file = m_files[kind];
    std::lock_guard<std::mutex> lock(file.mutex);
    if (file.file == nullptr) return;
    std::fclose(file.file);
    file.file = nullptr;
    ZV_LOG(INFO) << " dump closed: " << file.path << " (" << file.bytes << " bytes)";
    if (kind == H264) {
        std::lock_guard<std::mutex> codecLock(m_codecMutex);
        m_codecWritten = false;
    }
}

void StreamDump::close() {
    for (int kind = 0; kind < KindCount; ++kind) closeFile(static_cast<Kind>(kind));
    std::lock_guard<std::mutex> lock(m_timesMutex);
    m_times.clear();
    m_encoded.clear();
    m_encoderShift = 0;
}

}  // namespace zv::media
