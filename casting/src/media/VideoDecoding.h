// The decoding end of a received H.264 stream, shared by every receiving
// pipeline (the panel's cast view, the PC's reverse-screen player):
//   rtph264depay ─▶ H.264 decoder ─▶ videoconvert ─▶ BGRx ─▶ appsink
// The appsink never synchronises to the clock and keeps one picture at
// most: every picture goes out as soon as it is decoded.
#pragma once

#include <gst/app/gstappsink.h>

#include <string>

#include "media/GstHandles.h"

namespace zv::media {

// Builds the chain into `pipeline`; *depay gets the depayloader, for the
// caller to link its source to (now or when rtpbin makes its pad). The
// callbacks get `user` on the streaming thread. "" or why not.
std::string buildH264Decoding(GstElement* pipeline, const GstAppSinkCallbacks& callbacks, gpointer user,
                              ElementPtr* depay);

class OverlaySink;

// The same chain drawing into an X window instead (OverlaySink: the sink
// scales to the window): rtph264depay ─▶ decoder ─▶ videoconvert ─▶ overlay.
// The decoded pictures are not copied anywhere; read the last one from
// overlay->sink()'s "last-sample".
std::string buildH264DecodingToWindow(GstElement* pipeline, OverlaySink* overlay, unsigned long window,
                                      ElementPtr* depay);

}  // namespace zv::media
