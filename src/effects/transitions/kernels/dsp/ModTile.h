#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "effects/transitions/kernels/ModKernel.h"
#include "effects/transitions/kernels/support/CoarseField.h"
#include "effects/transitions/kernels/support/InputRows.h"
#include "effects/transitions/kernels/support/LaneMath.h"
#include "effects/transitions/kernels/support/TileFill.h"
#include "image/ImageTile.h"
#include "image/PixelMath.h"
#include "image/TileScratch.h"

namespace qm::kernels {

// The mod transition's tiles, built for each instruction set from this one source (see
// TransitionDSP.h).
template <class Simd>
struct ModTile {
    static void render(const ModContext& c, const ImageTile& out, std::span<const ConstImageTile> in,
                       TileScratch& scratch) {
        const int x0 = out.rect.x;
        const int width = out.rect.width;
        if (copyEndInput(out, in, c.t)) return;
        // The distance field is smooth between its creases; every fourth pixel (2^2) is enough.
        CoarseField share(scratch, out.rect, 2);
        share.fill4([&c](Float4 cx, float cy) { return targetShare(c, cx, cy); });
        // Each row: the field's values at its pixels, then each group of four pixels copied from
        // one input where the field gives all of them to it, else mixed pixel by pixel.
        const int first = x0 - (x0 & 3);
        float* const weights = scratch.allocate<float>(size_t(x0 + width - first + 4));
        float* const rowA = scratch.allocate<float>(4 * size_t(width));
        float* const rowB = scratch.allocate<float>(4 * size_t(width));
        for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
            const CoarseField::Row field = share.row(y);
            // The field four pixels at a time, as CoarseField::Row gives it: its cells are four
            // pixels wide and start at multiples of four.
            const Float4 steps = Float4{0.0f, 1.0f, 2.0f, 3.0f} * field.inverseStep;
            for (int x = first; x < x0 + width; x += 4) {
                const int i = (x - field.x0) >> 2;
                const float v = field.values[i];
                storeFloat4(weights + (x - first), v + (field.values[i + 1] - v) * steps);
            }
            const float* w = weights + (x0 - first);
            const RowPixels a(in[0], y, x0, x0 + width, rowA);
            const RowPixels b(in[1], y, x0, x0 + width, rowB);
            float* dst = out.row(y);
            auto mixed = [&](int i) {
                const float weight = w[i];
                if (weight <= 0.0f) return a.pixel(i);
                if (weight >= 1.0f) return b.pixel(i);
                return mix(a.pixel(i), b.pixel(i), weight);
            };
            int i = 0;
            for (; i + 4 <= width; i += 4) {
                a.prefetch4(i);
                b.prefetch4(i);
                const Float4 group = loadFloat4(w + i);
                if (Simd::laneBits(group <= 0.0f) == 15)
                    a.copy4(i, dst + 4 * i);
                else if (Simd::laneBits(group >= 1.0f) == 15)
                    b.copy4(i, dst + 4 * i);
                else
                    for (int k = i; k < i + 4; ++k) storeFloat4(dst + 4 * k, mixed(k));
            }
            for (; i < width; ++i) storeFloat4(dst + 4 * i, mixed(i));
        }
    }

private:
    // Rows of input fetched this far ahead of the one read.
    static constexpr int kRowsAhead = 2;

    // One row of an input over a span of pixels, read in place where the tile covers the span (a
    // byte tile's bytes or a float tile's floats) and otherwise copied into `buffer`, which has
    // room for the span.
    struct RowPixels {
        const uint8_t* bytes = nullptr;  // the span's first pixel, or null
        const float* floats = nullptr;   // the same, when `bytes` is null
        // From `bytes` to the same pixel a few rows up, to fetch early: a tile's rows lie far apart
        // in a bitmap, too far for the processor to fetch them ahead by itself. 0 near the tile's
        // top.
        std::ptrdiff_t ahead = 0;

        RowPixels(const ConstImageTile& tile, int y, int x0, int x1, float* buffer) {
            const PixelRect& r = tile.rect;
            if (y >= r.y && y < r.maxY() && x0 >= r.x && x1 <= r.maxX()) {
                if (tile.bytes) {
                    bytes = tile.byteAt(x0, y);
                    if (y + kRowsAhead < r.maxY()) ahead = kRowsAhead * tile.byteStride;
                } else {
                    floats = tile.at(x0, y);
                }
                return;
            }
            copyRow(tile, y, x0, x1, buffer);
            floats = buffer;
        }
        Float4 pixel(int i) const { return bytes ? bytePixel(bytes + 4 * i) : loadFloat4(floats + 4 * i); }
        // Fetches pixels i .. i + 3 of the row `ahead` early.
        void prefetch4(int i) const {
            if (bytes) __builtin_prefetch(bytes + ahead + 4 * i);
        }
        // Pixels i .. i + 3 into dst.
        void copy4(int i, float* dst) const {
            if (bytes)
                bytesToFloats(bytes + 4 * i, dst, 4);
            else
                std::memcpy(dst, floats + 4 * i, sizeof(float) * 16);
        }
    };

    // Distance in half-pitches from (gx, gy), in lattice units, to the nearest cell centre, for
    // four points.
    static Float4 cellDistance(Float4 gx, Float4 gy) {
        const Float4 fx = gx - floorFloat4(gx) - 0.5f;
        const Float4 fy = gy - floorFloat4(gy) - 0.5f;
        return 2.0f * sqrtFloat4(fx * fx + fy * fy);
    }

    // How much of a pixel shows the target, before clamping, at four centres on a row: the hole
    // edge anti-aliased over the pixel, which spans about 1.2 k / radius of the distance.
    static Float4 targetShare(const ModContext& c, Float4 cx, float cy) {
        const Float4 qx = cx - c.cx0;
        const float qy = cy - c.cy0;
        const Float4 k = 1.0f + sqrtFloat4(qx * qx + qy * qy) * c.inverseCompression;
        const Float4 rx = (qx * c.cosA - qy * c.sinA) * k;
        const Float4 ry = (qx * c.sinA + qy * c.cosA) * k;
        const Float4 d1 = cellDistance(rx * c.inversePitch, ry * c.inversePitch);
        const Float4 d2 = cellDistance((rx - ry) * 0.70710678f * c.inversePitch2 + 0.25f,
                                       (rx + ry) * 0.70710678f * c.inversePitch2 + 0.25f);
        return (c.threshold - minFloat4(d1, d2)) * c.radius / (1.2f * k) + 0.5f;
    }
};

}  // namespace qm::kernels
