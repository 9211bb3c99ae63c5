#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>

#include "image/ImageTile.h"
#include "image/dsp/FixedPoint.h"
#include "image/dsp/Lanes.h"

namespace qm {

// Small per-pixel helpers shared by the node implementations and the transition kernels, in plain
// C++ and GCC vector extensions: one definition each, the same bytes on every processor.

// floor(v) as an int, for |v| < 2^31, without a library call.
inline int fastFloor(float v) {
    const int i = int(v);
    return i - (float(i) > v);
}

inline Float4 clampFloat4(Float4 v, Float4 lo, Float4 hi) {
    v = v < lo ? lo : v;
    return v > hi ? hi : v;
}

inline Float4 minFloat4(Float4 a, Float4 b) { return a < b ? a : b; }
// floor, lane by lane, for |v| < 2^31.
inline Float4 floorFloat4(Float4 v) {
    const Int4 i = __builtin_convertvector(v, Int4);
    const Float4 f = __builtin_convertvector(i, Float4);
    return f - (f > v ? splat(1.f) : splat(0.f));
}
// Square root, lane by lane, each correctly rounded as std::sqrt. The image library is built
// without errno from maths functions, so this is one vector instruction.
inline Float4 sqrtFloat4(Float4 v) {
    return Float4{std::sqrt(v[0]), std::sqrt(v[1]), std::sqrt(v[2]), std::sqrt(v[3])};
}
inline Float4 maxFloat4(Float4 a, Float4 b) { return a > b ? a : b; }

// Bilinear blend of two horizontally adjacent RGBA8 pixels at `lower` and the two at `upper`, with
// weights wx across and wy up in 1/128 steps (0..128), as 0..255 floats.
inline Float4 bilinearBytes(const uint8_t* lower, const uint8_t* upper, int wx, int wy) {
    return __builtin_convertvector(fixed::bilinear(lower, upper, wx, wy), Float4);
}

// `count` RGBA8 pixels to premultiplied floats 0..1, inline for a few pixels at a time (long rows
// go faster through bytesToFloatRow).
inline void bytesToFloats(const uint8_t* src, float* dst, int count) {
    int i = 0;
    for (; i + 4 <= count; i += 4) {
        const Byte16 bytes = loadBytes<16>(src + 4 * i);
        const Short8 low = lowBytesWidened(bytes), high = highBytesWidened(bytes);
        float* out = dst + 4 * i;
        storeFloat4(out, __builtin_convertvector(lowWordsWidened(low), Float4) * kByteToFloat);
        storeFloat4(out + 4, __builtin_convertvector(highWordsWidened(low), Float4) * kByteToFloat);
        storeFloat4(out + 8, __builtin_convertvector(lowWordsWidened(high), Float4) * kByteToFloat);
        storeFloat4(out + 12, __builtin_convertvector(highWordsWidened(high), Float4) * kByteToFloat);
    }
    for (; i < count; ++i) storeFloat4(dst + 4 * i, bytesToFloat4(src + 4 * i) * kByteToFloat);
}

// A premultiplied pixel clamped to 0..1 (NaN to 0) as the nearest byte steps, 0.5..255.5 before
// the conversion truncates them. `straight` divides colour by alpha first; `swapRedBlue` gives
// B, G, R, A.
inline Float4 byteSteps(Float4 p, bool straight, bool swapRedBlue) {
    const Float4 zero = splat(0.f);
    const Float4 one = splat(1.f);
    p = minFloat4(maxFloat4(p, zero), one);
    if (straight) {
        const float alpha = p[3];
        p = alpha > 0 ? minFloat4(maxFloat4(p * (1.f / alpha), zero), one) : zero;
        p[3] = alpha;
    }
    if (swapRedBlue) p = __builtin_shufflevector(p, p, 2, 1, 0, 3);
    return p * 255.f + 0.5f;
}

// `count` premultiplied float pixels to bytes: clamped to 0..1, rounded to the nearest step.
// `straight` divides colour by alpha first; `swapRedBlue` writes B, G, R, A.
inline void floatsToBytes(const float* src, uint8_t* dst, int count, bool straight, bool swapRedBlue) {
    for (int i = 0; i < count; ++i) {
        const Int4 steps = __builtin_convertvector(byteSteps(loadFloat4(src + 4 * i), straight, swapRedBlue), Int4);
        const Byte4 bytes = __builtin_convertvector(steps, Byte4);
        std::memcpy(dst + 4 * i, &bytes, sizeof bytes);
    }
}

}  // namespace qm
