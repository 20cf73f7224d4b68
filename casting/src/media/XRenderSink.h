// "zvxrendersink": a video sink that hands each picture to the X server at
// its own size (MIT-SHM) and lets the server scale it into the window with
// XRender. Where there is no Xv port this keeps the scaling out of our
// process: on a machine with a GPU the X server's acceleration does it, and
// on any machine the receiver only decodes. Implements the video-overlay
// interface like the stock X sinks; takes BGRx of any size.
#pragma once

namespace zv::media {

inline constexpr const char* kXRenderSinkName = "zvxrendersink";

// Registers the element with GStreamer once per process; false when this
// X server lacks RENDER or MIT-SHM (or there is no display), and then the
// element is not usable.
bool registerXRenderSink();

}  // namespace zv::media
