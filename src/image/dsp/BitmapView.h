#pragma once

#include <cstddef>
#include <cstdint>

#include "image/ImageTile.h"
#include "image/PixelMath.h"
#include "image/dsp/FixedPoint.h"

namespace qm {

// Premultiplied RGBA8 pixels of a bitmap seen in image coordinates (y up), readable within
// `bounds`.
struct BitmapView {
    const uint8_t* rowZero = nullptr;  // image row 0 (the bitmap's bottom row)
    std::ptrdiff_t stride = 0;         // bytes between bitmap rows; image row y starts at rowZero - y * stride
    PixelRect bounds;
    // Bytes from a pixel a row reads to where rows sampled later will read; fetched ahead of them.
    std::ptrdiff_t readAhead = 0;

    const uint8_t* at(int x, int y) const { return rowZero - std::ptrdiff_t(y) * stride + std::ptrdiff_t(x) * 4; }
    // Pixel (x, y) as 0..255 floats, transparent outside bounds.
    Float4 pixel(int x, int y) const {
        if (x < bounds.x || y < bounds.y || x >= bounds.maxX() || y >= bounds.maxY()) return splat(0.f);
        return bytesToFloat4(at(x, y));
    }
    // True when the 2 x 2 pixels from (x, y) to (x + 1, y + 1) all lie within bounds.
    bool holdsSquare(int x, int y) const {
        return unsigned(x - bounds.x) < unsigned(bounds.width - 1) &&
               unsigned(y - bounds.y) < unsigned(bounds.height - 1);
    }
    // Bilinear sample (0..255) at pixel position (u, v) in 16.16 fixed point, pixel centres on
    // whole numbers, rounded to 1/128 pixel; transparent beyond bounds.
    Float4 sample(int64_t u, int64_t v) const {
        const int64_t su = fixed::steps(u);
        const int64_t sv = fixed::steps(v);
        const int x0 = fixed::wholePixel(su);
        const int y0 = fixed::wholePixel(sv);
        const int wx = fixed::stepWeight(su);
        const int wy = fixed::stepWeight(sv);
        if (holdsSquare(x0, y0)) {
            const uint8_t* lower = at(x0, y0);
            return bilinearBytes(lower, lower - stride, wx, wy);
        }
        // At the edges the pixels beyond bounds count as transparent.
        const float tx = fixed::fraction(wx);
        const float ty = fixed::fraction(wy);
        return mix(mix(pixel(x0, y0), pixel(x0 + 1, y0), tx), mix(pixel(x0, y0 + 1), pixel(x0 + 1, y0 + 1), tx), ty);
    }
};

}  // namespace qm
