#pragma once

// Two float pixels in one 256-bit vector, for the AVX2 rows (every file including this is built
// with AVX2).
#include <cstring>

#include "image/ImageTile.h"

namespace qm::avx2 {

using Float8 = float __attribute__((vector_size(32)));

inline Float8 load8(const float* p) {
    Float8 v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
inline void store8(float* p, Float8 v) { std::memcpy(p, &v, sizeof v); }
inline Float8 twice(Float4 v) { return __builtin_shufflevector(v, v, 0, 1, 2, 3, 0, 1, 2, 3); }
// Each pixel's channel in all four of its lanes.
inline Float8 red(Float8 p) { return __builtin_shufflevector(p, p, 0, 0, 0, 0, 4, 4, 4, 4); }
inline Float8 green(Float8 p) { return __builtin_shufflevector(p, p, 1, 1, 1, 1, 5, 5, 5, 5); }
inline Float8 blue(Float8 p) { return __builtin_shufflevector(p, p, 2, 2, 2, 2, 6, 6, 6, 6); }
inline Float8 alpha(Float8 p) { return __builtin_shufflevector(p, p, 3, 3, 3, 3, 7, 7, 7, 7); }
// Lanes clamped to lo..hi; NaN stays NaN.
inline Float8 clamp8(Float8 p, Float8 lo, Float8 hi) {
    p = p < lo ? lo : p;
    return p > hi ? hi : p;
}

}  // namespace qm::avx2
