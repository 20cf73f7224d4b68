// GStreamer start-up for the library and the panel: gst_init exactly once per
// process, from whichever thread asks first.
#pragma once

#include <string>

namespace zv::media {

// Initialises GStreamer on first call; later calls return the first result.
// Thread-safe. Returns an empty string, or why GStreamer could not start.
std::string ensureGstInitialized();

}  // namespace zv::media
