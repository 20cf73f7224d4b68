// Small helpers shared by the sender and receiver pipelines: readable error
// texts, graph dumps, tolerant property setting, a bus forwarder that needs
// no GLib main loop, and the pieces both sides build their chains from.
#pragma once

#include <gst/gst.h>

#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "media/GstHandles.h"
#include "media/RateMeter.h"

namespace zv::media {

// "element: message (detail)" for an error or warning message, else its type name.
std::string describeMessage(GstMessage* message);

// Writes the pipeline's graph as <GST_DEBUG_DUMP_DOT_DIR>/<time>-<name>.dot.
// Does nothing when that variable is not set.
void dumpPipelineGraph(GstElement* pipeline, const std::string& name);

bool hasProperty(GstElement* element, const char* property);
// Sets a property from its text form (numbers, booleans, enum and flag
// nicks) when the element has it; logs and returns false when it has not.
bool setPropertyText(GstElement* element, const char* property, const char* value);

// Forwards every message posted on a pipeline's bus to a handler, called at
// once on the thread that posts the message (a streaming thread, or the
// thread changing the state). Messages are dropped after the handler, so the
// bus never fills up. detach() (also run by the destructor) waits for no
// handler call: detach only after the pipeline is in the NULL state.
class BusForwarder {
public:
    using Handler = std::function<void(GstMessage*)>;

    BusForwarder() = default;
    ~BusForwarder() { detach(); }
    BusForwarder(const BusForwarder&) = delete;
    BusForwarder& operator=(const BusForwarder&) = delete;

    void attach(GstElement* pipeline, Handler handler);
    void detach();

private:
    static GstBusSyncReply onMessage(GstBus* bus, GstMessage* message, gpointer self);

    BusPtr m_bus;
    Handler m_handler;
};

// Lets a repeated warning through once per interval (an unreachable peer
// makes udpsink warn at every packet). Thread-safe.
class WarningLimiter {
public:
    // True when `text` should be logged now; *suppressed then tells how many
    // were held back since the last one logged.
    bool admit(const std::string& text, int* suppressed);

private:
    std::mutex m_mutex;
    std::string m_last;
    std::chrono::steady_clock::time_point m_lastTime{};
    int m_suppressed = 0;
};

// An element from its factory; when missing, empty and (if *error is still
// empty) "GStreamer element X is not installed" in *error.
ElementPtr makeRequiredElement(const char* factory, const std::string& name, std::string* error);

// A field of a statistics structure, whether GStreamer made it 32 or 64 bits.
uint64_t structureUint(const GstStructure* structure, const char* field);

// What both sides do with the messages of their pipelines: errors are
// logged, written as a graph (<dumpName>) and returned (empty for any other
// message); warnings logged, a repeated one at most every few seconds.
std::string logPipelineMessage(GstMessage* message, GstElement* pipeline, const std::string& dumpName,
                               WarningLimiter& warnings);

// Counts the bytes of the buffers (and buffer lists) passing a pad.
void countBytes(GstPad* pad, RateMeter* meter);

// rtprtxsend (sending) or rtprtxreceive in a bin with rtpbin's aux pad
// names, video payload type 96 ↔ retransmissions 97 (RFC 4588). Floating,
// for rtpbin's request-aux-sender/receiver; null when the element is missing.
// *rtx (optional) gets a reference to the element, for its statistics.
GstElement* makeRetransmissionBin(bool sending, ElementPtr* rtx = nullptr);

// An SRT URI: caller to host:port, or listener on address:port.
std::string srtUri(const std::string& host, uint16_t port, bool listener);
// srtsink/srtsrc settings of every cast: passphrase, AES-256, latency.
void configureSrt(GstElement* element, const std::string& uri, const std::string& passphrase, int latencyMs);
// SRT's passphrase rule; "" or why not.
std::string checkSrtPassphrase(const std::string& passphrase);

// Adds the elements to the bin and links them in order; false on a failed link.
bool addAndLink(GstElement* bin, const std::vector<GstElement*>& chain);

// Sets the pipeline to a state and waits up to timeoutMs for the change to
// complete. Returns an empty string, or why it failed (firstError() is
// asked for the text of an error posted meanwhile).
std::string changeState(GstElement* pipeline, GstState state, int timeoutMs,
                        const std::function<std::string()>& firstError);

// Gives the memory a torn-down pipeline freed back to the system. Encoders and
// decoders allocate tens of megabytes on their own threads; without this the
// allocator keeps them in per-thread caches and a panel or PC that casts all
// day grows with every session.
void releaseFreedMemory();

}  // namespace zv::media
