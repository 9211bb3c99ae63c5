#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "image/dsp/Lanes.h"
#include "platform/Geometry.h"

namespace qm {

// One premultiplied RGBA pixel in single precision, as a 4-lane vector (r, g, b, a). Arithmetic
// works lane by lane (`a + b`, `a * 0.5f`), and `v[3]` reads alpha.
using Float4 = float __attribute__((vector_size(16)));

inline Float4 splat(float v) { return Float4{v, v, v, v}; }
inline Float4 loadFloat4(const float* p) {
    Float4 v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
inline void storeFloat4(float* p, Float4 v) { std::memcpy(p, &v, sizeof v); }
// a + (b - a) * t, lane by lane.
inline Float4 mix(Float4 a, Float4 b, float t) { return a + (b - a) * t; }

using Int4 = int32_t __attribute__((vector_size(16)));
using Byte4 = uint8_t __attribute__((vector_size(4)));

constexpr float kByteToFloat = 1.f / 255.f;

// Four bytes as 0..255 floats.
inline Float4 bytesToFloat4(const uint8_t* p) {
    return __builtin_convertvector(lowWordsWidened(lowBytesWidened(loadBytes<4>(p))), Float4);
}
// One RGBA8 pixel as 0..1 floats.
inline Float4 bytePixel(const uint8_t* p) { return bytesToFloat4(p) * kByteToFloat; }

// A rectangle of whole pixels in image coordinates (y up): pixel (x, y) covers [x, x+1] x [y, y+1]
// and its centre is (x + 0.5, y + 0.5).
struct PixelRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;

    int maxX() const { return x + width; }
    int maxY() const { return y + height; }
    bool isEmpty() const { return width <= 0 || height <= 0; }
    long long area() const { return isEmpty() ? 0 : static_cast<long long>(width) * height; }
    bool contains(const PixelRect& r) const {
        return r.isEmpty() || (r.x >= x && r.y >= y && r.maxX() <= maxX() && r.maxY() <= maxY());
    }
    // The common pixels; an empty rect (all zero) when there are none.
    PixelRect intersection(const PixelRect& r) const;
    // The smallest rect holding both; empty rects are ignored.
    PixelRect unionWith(const PixelRect& r) const;
    // Grows each edge outwards by dx, dy (negative values shrink), clamped to the drawable range.
    PixelRect outsetBy(int dx, int dy) const;
    Rect toRect() const { return Rect{double(x), double(y), double(width), double(height)}; }

    // The smallest pixel rect holding `r`, clamped to the drawable range (an infinite extent gives
    // that whole range). Empty for an empty rect.
    static PixelRect enclosing(const Rect& r);

    friend bool operator==(const PixelRect&, const PixelRect&) = default;
};

// Writable premultiplied RGBA float pixels covering `rect`. Rows go up: pixel (x, y) starts at
// pixels + (y - rect.y) * rowStride + (x - rect.x) * 4, rowStride counted in floats.
struct ImageTile {
    PixelRect rect;
    float* pixels = nullptr;
    std::ptrdiff_t rowStride = 0;

    // The first pixel of row y (rect.y <= y < rect.maxY()).
    float* row(int y) const { return pixels + (y - rect.y) * rowStride; }
    float* at(int x, int y) const { return row(y) + std::ptrdiff_t(x - rect.x) * 4; }
    // The part covering `r` (which must lie inside rect), sharing these pixels.
    ImageTile subTile(const PixelRect& r) const { return {r, at(r.x, r.y), rowStride}; }
    void fill(Float4 value) const;
    void clear() const { fill(splat(0.f)); }
};

// Read-only premultiplied RGBA pixels covering `rect`: floats laid out as ImageTile, or (a byte
// tile) the 8-bit pixels of a bitmap, read in place. pixel() and sample() read both kinds alike, a
// byte as byte / 255; row(), at() and `pixels` are for float tiles only. Pixels outside `rect`
// read as transparent.
struct ConstImageTile {
    PixelRect rect;
    const float* pixels = nullptr;
    std::ptrdiff_t rowStride = 0;
    // A byte tile's pixel (rect.x, rect.y) and the bytes from a row to the row above it (negative
    // for a bitmap, whose rows run down in memory); null for a float tile.
    const uint8_t* bytes = nullptr;
    std::ptrdiff_t byteStride = 0;

    ConstImageTile() = default;
    ConstImageTile(const PixelRect& r, const float* p, std::ptrdiff_t stride)
        : rect(r), pixels(p), rowStride(stride) {}
    ConstImageTile(const ImageTile& t) : rect(t.rect), pixels(t.pixels), rowStride(t.rowStride) {}
    // A byte tile whose pixel (r.x, r.y) starts at `origin`.
    static ConstImageTile withBytes(const PixelRect& r, const uint8_t* origin, std::ptrdiff_t stride) {
        ConstImageTile tile;
        tile.rect = r;
        tile.bytes = origin;
        tile.byteStride = stride;
        return tile;
    }

    bool isBytes() const { return bytes != nullptr; }
    const float* row(int y) const { return pixels + (y - rect.y) * rowStride; }
    const float* at(int x, int y) const { return row(y) + std::ptrdiff_t(x - rect.x) * 4; }
    // A byte tile's pixel (x, y).
    const uint8_t* byteAt(int x, int y) const {
        return bytes + std::ptrdiff_t(y - rect.y) * byteStride + std::ptrdiff_t(x - rect.x) * 4;
    }
    bool containsPixel(int x, int y) const {
        return x >= rect.x && y >= rect.y && x < rect.maxX() && y < rect.maxY();
    }
    // Pixel (x, y), which must lie inside rect.
    Float4 pixelInside(int x, int y) const { return bytes ? bytePixel(byteAt(x, y)) : loadFloat4(at(x, y)); }
    // Pixel (x, y), transparent outside rect.
    Float4 pixel(int x, int y) const { return containsPixel(x, y) ? pixelInside(x, y) : splat(0.f); }
    // Bilinear sample at point (px, py) of image space (pixel centres at +0.5), transparent
    // beyond rect.
    Float4 sample(float px, float py) const {
        const float u = px - 0.5f;
        const float v = py - 0.5f;
        const float fx = std::floor(u);
        const float fy = std::floor(v);
        const int x0 = int(fx);
        const int y0 = int(fy);
        const float tx = u - fx;
        const float ty = v - fy;
        return mix(mix(pixel(x0, y0), pixel(x0 + 1, y0), tx), mix(pixel(x0, y0 + 1), pixel(x0 + 1, y0 + 1), tx),
                   ty);
    }
};

}  // namespace qm
