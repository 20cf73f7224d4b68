#include "media/I420Converter.h"

#include <cstring>

namespace zv::media {

// Integer BT.601 limited-range coefficients (x256). The loops are written so
// the compiler vectorises them (this file is built with -O3).
void convertBgrxToI420(const uint8_t* src, int srcStride, int width, int height, const I420Planes& dst, int x,
                       int y) {
    for (int row = 0; row < height; row += 2) {
        const uint8_t* s0 = src + static_cast<long>(row) * srcStride;
        const uint8_t* s1 = s0 + srcStride;
        uint8_t* y0 = dst.y + static_cast<long>(y + row) * dst.yStride + x;
        uint8_t* y1 = y0 + dst.yStride;
        uint8_t* u = dst.u + static_cast<long>((y + row) / 2) * dst.uvStride + x / 2;
        uint8_t* v = dst.v + static_cast<long>((y + row) / 2) * dst.uvStride + x / 2;
        for (int i = 0; i < width; ++i) {
            const int b0 = s0[4 * i], g0 = s0[4 * i + 1], r0 = s0[4 * i + 2];
            const int b1 = s1[4 * i], g1 = s1[4 * i + 1], r1 = s1[4 * i + 2];
            y0[i] = static_cast<uint8_t>((66 * r0 + 129 * g0 + 25 * b0 + 128 + (16 << 8)) >> 8);
            y1[i] = static_cast<uint8_t>((66 * r1 + 129 * g1 + 25 * b1 + 128 + (16 << 8)) >> 8);
        }
        for (int i = 0; i < width / 2; ++i) {
            const int b = s0[8 * i] + s0[8 * i + 4] + s1[8 * i] + s1[8 * i + 4];
            const int g = s0[8 * i + 1] + s0[8 * i + 5] + s1[8 * i + 1] + s1[8 * i + 5];
            const int r = s0[8 * i + 2] + s0[8 * i + 6] + s1[8 * i + 2] + s1[8 * i + 6];
            // Sums of four pixels: shift by 2 more than the luma.
            u[i] = static_cast<uint8_t>((-38 * r - 74 * g + 112 * b + 512 + (128 << 10)) >> 10);
            v[i] = static_cast<uint8_t>((112 * r - 94 * g - 18 * b + 512 + (128 << 10)) >> 10);
        }
    }
}

void fillI420Black(const I420Planes& dst, int x, int y, int width, int height) {
    if (width <= 0 || height <= 0) return;
    for (int row = 0; row < height; ++row) {
        std::memset(dst.y + static_cast<long>(y + row) * dst.yStride + x, 16, static_cast<size_t>(width));
    }
    for (int row = 0; row < height / 2; ++row) {
        const long offset = static_cast<long>(y / 2 + row) * dst.uvStride + x / 2;
        std::memset(dst.u + offset, 128, static_cast<size_t>(width / 2));
        std::memset(dst.v + offset, 128, static_cast<size_t>(width / 2));
    }
}

}  // namespace zv::media
