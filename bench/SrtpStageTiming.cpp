#include "SrtpStageTiming.h"

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <vector>

#include "media/GstHandles.h"
#include "media/GstInit.h"
#include "media/PipelineSupport.h"
#include "media/SrtpKeying.h"

using namespace zv::media;

namespace {

double cpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

BufferPtr rtpPacket(uint16_t seq) {
    std::vector<uint8_t> bytes(1400, 0x5a);
    const uint8_t header[] = {0x80, 96, static_cast<uint8_t>(seq >> 8), static_cast<uint8_t>(seq), 0, 0, 0, 1,
                              0x12, 0x34, 0x56, 0x78};
    std::copy(std::begin(header), std::end(header), bytes.begin());
    return BufferPtr(gst_buffer_new_memdup(bytes.data(), bytes.size()));
}

}  // namespace

SrtpStageTiming timeSrtpStage(int packets, bool encrypted) {
    SrtpStageTiming result;
    result.error = ensureGstInitialized();
    if (!result.error.empty()) return result;
    const std::vector<uint8_t> key(kMediaKeyBytes, 0x21);
    ElementPtr pipeline = adoptFloating(gst_pipeline_new("zv-srtp-stage"));
    ElementPtr source = makeRequiredElement("appsrc", "zv-stage-src", &result.error);
    ElementPtr sink = makeRequiredElement("appsink", "zv-stage-sink", &result.error);
    ElementPtr encoder;
    SrtpDecoder decoder;
    if (encrypted) {
        encoder = makeSrtpEncoder(key, "zv-stage-enc", &result.error);
        if (result.error.empty()) result.error = decoder.create(key, "zv-stage-dec");
    }
    if (!result.error.empty()) return result;
    CapsPtr caps = capsFromString("application/x-rtp,media=video,clock-rate=90000,encoding-name=H264,payload=96");
    g_object_set(source.get(), "caps", caps.get(), "format", GST_FORMAT_TIME, nullptr);
    g_object_set(sink.get(), "sync", FALSE, nullptr);
    gst_bin_add_many(GST_BIN(pipeline.get()), source.get(), sink.get(), nullptr);
    bool linked = false;
    if (encrypted) {
        gst_bin_add_many(GST_BIN(pipeline.get()), encoder.get(), decoder.element(), nullptr);
        linked = gst_element_link_pads(source.get(), "src", encoder.get(), "rtp_sink_0") &&
                 gst_element_link_pads(encoder.get(), "rtp_src_0", decoder.element(), "rtp_sink") &&
                 gst_element_link_pads(decoder.element(), "rtp_src", sink.get(), "sink");
    } else {
        linked = gst_element_link(source.get(), sink.get());
    }
    if (!linked) {
        result.error = "cannot link the SRTP stage";
        return result;
    }
    gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
    std::vector<double> times;
    times.reserve(static_cast<size_t>(packets));
    double cpuStart = 0;
    for (int i = -100; i < packets; ++i) {  // the first hundred warm up
        if (i == 0) cpuStart = cpuSeconds();
        const auto start = std::chrono::steady_clock::now();
        gst_app_src_push_buffer(GST_APP_SRC(source.get()), rtpPacket(static_cast<uint16_t>(i + 100)).release());
        SamplePtr sample(gst_app_sink_try_pull_sample(GST_APP_SINK(sink.get()), GST_SECOND));
        if (!sample) {
            result.error = "a packet did not come through";
            break;
        }
        const auto took = std::chrono::steady_clock::now() - start;
        if (i >= 0) times.push_back(std::chrono::duration<double, std::micro>(took).count());
    }
    const double cpu = cpuSeconds() - cpuStart;
    gst_element_set_state(pipeline.get(), GST_STATE_NULL);
    if (times.empty()) return result;
    std::sort(times.begin(), times.end());
    result.medianUs = times[times.size() / 2];
    result.p99Us = times[std::min(times.size() - 1, times.size() * 99 / 100)];
    result.cpuUsPerPacket = cpu * 1e6 / static_cast<double>(times.size());
    return result;
}
