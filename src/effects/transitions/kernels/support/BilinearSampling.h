#pragma once

#include "image/ImageTile.h"
#include "image/PixelMath.h"
#include "image/PixelRows.h"
#include "image/dsp/FixedPoint.h"

// Bilinear reads of input tiles at points between pixel centres, set up one point or four at a
// time. The loops built for each instruction set (dsp/) inline what they call of this: an inline
// function built out of line for AVX2 could be linked in for every caller.
namespace qm::kernels {

// The four pixels (x0, y0), (x0 + 1, y0), (x0, y0 + 1), (x0 + 1, y0 + 1) of a tile that holds
// them all, blended by tx across and ty up. Bytes are blended in integer steps of 1/128 pixel, as
// transforms of bitmaps are, which rounds a little differently from ConstImageTile::sample.
[[gnu::always_inline]] inline Float4 blendInside(const ConstImageTile& tile, int x0, int y0, float tx, float ty) {
    if (tile.bytes) {
        const uint8_t* p = tile.byteAt(x0, y0);
        return bilinearBytes(p, p + tile.byteStride, fixed::weight(tx), fixed::weight(ty)) * kByteToFloat;
    }
    const float* p = tile.at(x0, y0);
    const float* q = p + tile.rowStride;
    return mix(mix(loadFloat4(p), loadFloat4(p + 4), tx), mix(loadFloat4(q), loadFloat4(q + 4), tx), ty);
}

// Bilinear sample at point (px, py) as ConstImageTile::sample, with one bounds test when the four
// pixels lie inside the tile.
Float4 sampleBilinear(const ConstImageTile& tile, float px, float py);

// ConstImageTile::sample, out of line, for points near the tile's edge.
Float4 sampleNearEdge(const ConstImageTile& tile, float px, float py);

// Bilinear reads at four points (px, py), set up lane by lane as sampleBilinear and blendInside
// set them up: the lower left pixel of each point and its weights across and up.
struct Samples4 {
    Float4 px;
    Float4 py;
    Int4 x0;
    Int4 y0;
    Float4 tx;
    Float4 ty;
    Int4 wx;  // tx as a fixed-point weight, for byte tiles
    Int4 wy;

    Samples4(Float4 x, Float4 y) : px(x), py(y) {
        const Float4 u = px - 0.5f;
        const Float4 v = py - 0.5f;
        const Float4 fx = floorFloat4(u);
        const Float4 fy = floorFloat4(v);
        x0 = __builtin_convertvector(fx, Int4);
        y0 = __builtin_convertvector(fy, Int4);
        tx = u - fx;
        ty = v - fy;
        wx = fixed::weight(tx);
        wy = fixed::weight(ty);
    }

    // The lanes whose four pixels `tile` holds, as a vector comparison.
    Int4 insideLanes(const ConstImageTile& tile) const {
        const PixelRect& r = tile.rect;
        return (x0 >= r.x) & (y0 >= r.y) & (x0 < r.maxX() - 1) & (y0 < r.maxY() - 1);
    }

    // The blend of lane `lane`, which `tile` holds, as blendInside gives it.
    [[gnu::always_inline]] Float4 blend(const ConstImageTile& tile, int lane) const {
        if (tile.bytes) {
            const uint8_t* p = tile.byteAt(x0[lane], y0[lane]);
            return bilinearBytes(p, p + tile.byteStride, wx[lane], wy[lane]) * kByteToFloat;
        }
        return blendInside(tile, x0[lane], y0[lane], tx[lane], ty[lane]);
    }

    // blend() of all four lanes of a byte tile that holds them, into out[0..15].
    void blendBytes(const ConstImageTile& tile, float* out) const {
        const Int4 offsets = (y0 - tile.rect.y) * int(tile.byteStride) + (x0 - tile.rect.x) * 4;
        bilinearBytes4(tile.bytes, tile.byteStride, offsets, wx, wy, kByteToFloat, out);
    }

    // The sample of `tile` at lane `lane`, as sampleBilinear gives it; bit i of `inside` tells
    // whether insideLanes(tile) holds lane i.
    [[gnu::always_inline]] Float4 read(const ConstImageTile& tile, int lane, int inside) const {
        return (inside >> lane) & 1 ? blend(tile, lane) : sampleNearEdge(tile, px[lane], py[lane]);
    }
};

}  // namespace qm::kernels
