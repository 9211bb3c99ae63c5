#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "image/ImageTile.h"
#include "image/dsp/BitmapView.h"

namespace qm {

// The loops over rows of pixels that every render runs many times, as one table of functions.
// Each entry has a plain C++ reference and, on x86-64, an AVX2 version; both give the same
// results, bit for bit. Float pixels are premultiplied RGBA.
struct PixelDSP {
    // front = front + back * (1 - front alpha)
    void (*compositeUnder)(float* front, const float* back, int count);
    void (*compositeUnderColor)(float* front, Float4 back, int count);
    // `count` RGBA8 pixels to floats: each byte times `scale` (kByteToFloat for 0..1, less for a
    // fade folded into the conversion).
    void (*bytesToFloatRow)(const uint8_t* src, float* dst, int count, float scale);
    // values = values * factor over `count` floats.
    void (*scaleRow)(float* values, int count, float factor);
    // pixels = color * (pixels alpha)
    void (*colorTimesAlpha)(float* pixels, Float4 color, int count);
    // pixels = source * (pixels alpha)
    void (*sourceTimesAlpha)(float* pixels, const float* source, int count);
    // pixels = c[0] * r + c[1] * g + c[2] * b + c[3] * a, pixel by pixel.
    void (*linearColor)(float* pixels, int count, const std::array<Float4, 4>& columns);
    // True when every alpha is 1 or more.
    bool (*allOpaque)(const float* pixels, int count);
    // out = a + (b - a) * t over `floats` floats.
    void (*mixRows)(const float* a, const float* b, float t, float* out, int floats);
    // Enlarges `source` (a row of reduced pixels, the first standing at reduced index `first`) by
    // `factor`, a power of two: out pixel i (at output index x + i) blends reduced positions
    // (x + i + 0.5) / factor - 0.5.
    void (*enlargeRow)(const float* source, int first, int factor, int x, float* out, int count);
    // dst[i] = sum over t of weights[t] * src[i + t], for `count` pixels; src holds
    // count + taps - 1 pixels.
    void (*convolveRow)(const float* src, float* dst, int count, const float* weights, int taps);
    // dst = sum over t of weights[t] * rows[t], lane by lane over `floats` floats.
    void (*convolveRows)(const float* const* rows, float* dst, int floats, const float* weights, int taps);
    // `count` premultiplied pixels to RGBA8 as floatsToBytes(src, dst, count, false, false) does.
    void (*premultipliedToBytes)(const float* src, uint8_t* dst, int count);
    // The same to BGRA8, as floatsToBytes(src, dst, count, false, true) does.
    void (*premultipliedToBGRABytes)(const float* src, uint8_t* dst, int count);
    // Two rows of `width` pixels (`lower` may be `upper` for a last single row) to BT.709
    // limited-range YUV: Y of each into y0 and y1 (y1 null: none), U and V of each 2 x 2 block
    // into u and v. Colours are clamped to 0..1 first; transparent counts as black.
    void (*yuvRows)(const float* upper, const float* lower, int width, uint8_t* y0, uint8_t* y1, uint8_t* u,
                    uint8_t* v);
    // Four bilinear samples of RGBA8 bytes into out[0..15]: sample k is
    // scale * bilinearBytes(p, p + up, wx[k], wy[k]) with p = origin + offsets[k].
    void (*bilinearBytes4)(const uint8_t* origin, std::ptrdiff_t up, Int4 offsets, Int4 wx, Int4 wy, float scale,
                           float* out);
    // out[i] = scale * bitmap.sample(u + i * du, v + i * dv) for `count` pixels.
    void (*sampleBitmapRow)(const BitmapView& bitmap, int64_t u, int64_t v, int64_t du, int64_t dv, float scale,
                            float* out, int count);
};

// The plain C++ rows: the reference every other version matches.
const PixelDSP& plainPixelDSP();
// The AVX2 rows; null when the processor lacks AVX2 or the build is not for x86-64.
const PixelDSP* avx2PixelDSP();
// A copy of the table for dspLevel(), which renders use. It is made before any other static
// initialiser runs, so that a row finds it set without asking.
extern const PixelDSP chosenPixelDSP;
inline const PixelDSP& pixelDSP() { return chosenPixelDSP; }

}  // namespace qm
