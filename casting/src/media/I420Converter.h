// BGRx (the X server's 24/32-bit TrueColor layout) to I420, BT.601 limited
// range, for rectangles of a frame. About three times faster than
// videoconvert's generic path on this conversion, and it lets the capture
// convert only the parts of the screen that changed.
#pragma once

#include <cstdint>

namespace zv::media {

struct I420Planes {
    uint8_t* y = nullptr;
    uint8_t* u = nullptr;
    uint8_t* v = nullptr;
    int yStride = 0;
    int uvStride = 0;
};

// Converts a width x height block of BGRx pixels (srcStride bytes per row)
// into the planes at (x, y). x, y, width and height must be even; the
// caller keeps the block inside the planes.
void convertBgrxToI420(const uint8_t* src, int srcStride, int width, int height, const I420Planes& dst, int x,
                       int y);

// Fills a block of the planes with black (Y 16, U and V 128); same rules.
void fillI420Black(const I420Planes& dst, int x, int y, int width, int height);

}  // namespace zv::media
