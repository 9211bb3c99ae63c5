#pragma once

#include <algorithm>

#include "image/ImageTile.h"
#include "image/PixelMath.h"

// Arithmetic on single values and on the four lanes of a Float4 that the transition kernels share.
namespace qm::kernels {

inline float clamp01(float v) { return std::min(std::max(v, 0.0f), 1.0f); }

// Hermite smoothstep of x over 0..1.
inline float smooth01(float x) {
    x = clamp01(x);
    return x * x * (3.0f - 2.0f * x);
}

// smooth01, lane by lane.
inline Float4 smooth4(Float4 x) {
    x = clampFloat4(x, splat(0.0f), splat(1.0f));
    return x * x * (3.0f - 2.0f * x);
}

// `top` over `bottom`, premultiplied.
inline Float4 over(Float4 top, Float4 bottom) { return top + bottom * (1.0f - top[3]); }

// |v|, lane by lane.
inline Float4 absFloat4(Float4 v) { return Float4(Int4(v) & 0x7fffffff); }

// sin(2 pi turns), to about 0.001, lane by lane.
inline Float4 sinOfTurns4(Float4 turns) {
    const Float4 s = turns - floorFloat4(turns + 0.5f);  // -0.5 .. 0.5
    const Float4 y = 8.0f * s - 16.0f * s * absFloat4(s);
    return 0.225f * (y * absFloat4(y) - y) + y;
}

// asin(v) for v in 0..1, to about 1e-4 radians, lane by lane.
inline Float4 asinOfUnit4(Float4 v) {
    const Float4 root = sqrtFloat4(maxFloat4(1.0f - v, splat(0.0f)));
    return 1.5707963f - root * (1.5707288f + v * (-0.2121144f + v * (0.0742610f - 0.0187293f * v)));
}

}  // namespace qm::kernels
