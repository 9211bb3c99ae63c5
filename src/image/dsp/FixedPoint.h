#pragma once

#include <cstdint>

#include "image/ImageTile.h"

// The fixed-point steps that byte pictures are sampled in. Every fast path and its plain reference
// use these, so that both give the same bytes.
namespace qm::fixed {

// Bilinear weights run in 1/128 steps: 0 is all the first pixel, kWeightOne all the second.
constexpr int kWeightBits = 7;
constexpr int kWeightOne = 1 << kWeightBits;

// A fraction 0..1 as a weight, rounded to the nearest step.
inline int weight(float fraction) { return int(fraction * float(kWeightOne) + 0.5f); }
inline Int4 weight(Float4 fraction) { return __builtin_convertvector(fraction * float(kWeightOne) + 0.5f, Int4); }

// Positions in 16.16 fixed point, rounded to 1/128 pixel: the whole pixel is steps >> 7, the
// weight steps & 127.
inline int64_t steps(int64_t position16) { return (position16 + 256) >> 9; }

// a + (b - a) * w / 128, rounded as the 16-bit vector code rounds it: with 64 added before an
// arithmetic shift right by 7. |b - a| * 128 fits in 16 bits for byte values.
inline int blend(int a, int b, int w) { return a + (((b - a) * w + (kWeightOne >> 1)) >> kWeightBits); }

}  // namespace qm::fixed
