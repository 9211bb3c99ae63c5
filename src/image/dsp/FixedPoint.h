#pragma once

#include <cmath>
#include <cstdint>

#include "image/ImageTile.h"
#include "image/dsp/Lanes.h"

// The fixed-point steps that byte pictures are sampled in. Every fast path and its plain reference
// use these, so that both give the same bytes.
namespace qm::fixed {

// Bilinear weights run in 1/128 steps: 0 is all the first pixel, kWeightOne all the second.
constexpr int kWeightBits = 7;
constexpr int kWeightOne = 1 << kWeightBits;

// A fraction 0..1 as a weight, rounded to the nearest step.
inline int weight(float fraction) { return int(fraction * float(kWeightOne) + 0.5f); }
inline Int4 weight(Float4 fraction) { return __builtin_convertvector(fraction * float(kWeightOne) + 0.5f, Int4); }
// A weight as the fraction 0..1 it stands for.
inline float fraction(int weight) { return float(weight) / float(kWeightOne); }

// Positions in 16.16 fixed point, sampled in steps of 1/128 pixel (rounded to the nearest): the
// whole pixel is steps >> 7, the weight steps & 127.
constexpr int kPositionBits = 16;
constexpr int kStepShift = kPositionBits - kWeightBits;
constexpr int64_t kPositionOne = int64_t(1) << kPositionBits;
inline int64_t position(double pixels) { return std::llround(pixels * double(kPositionOne)); }
inline double pixels(int64_t position16) { return double(position16) / double(kPositionOne); }
inline int64_t steps(int64_t position16) { return (position16 + (int64_t(1) << (kStepShift - 1))) >> kStepShift; }
inline int wholePixel(int64_t steps) { return int(steps >> kWeightBits); }
inline int stepWeight(int64_t steps) { return int(steps & (kWeightOne - 1)); }

// a + (b - a) * w / 128, rounded as the 16-bit vector code rounds it: with 64 added before an
// arithmetic shift right by 7. |b - a| * 128 fits in 16 bits for byte values. Lanes is int or a
// vector of 16-bit lanes.
template <typename Lanes>
inline Lanes blend(Lanes a, Lanes b, Lanes w) {
    return a + (((b - a) * w + (kWeightOne >> 1)) >> kWeightBits);
}

// The two RGBA8 pixels at `p`, each channel in a 16-bit lane.
inline Short8 twoPixels(const uint8_t* p) { return lowBytesWidened(loadBytes<8>(p)); }

// The bilinear sample of two horizontally adjacent RGBA8 pixels at `lower` and the two at `upper`:
// up by wy first, then across by wx. Channels 0..255 in lanes 0-3.
inline Int4 bilinear(const uint8_t* lower, const uint8_t* upper, int wx, int wy) {
    const Short8 vertical = blend(twoPixels(lower), twoPixels(upper), Short8{} + int16_t(wy));
    const Short8 right = __builtin_shufflevector(vertical, vertical, 4, 5, 6, 7, 4, 5, 6, 7);
    const Short8 across = blend(vertical, right, Short8{} + int16_t(wx));
    return lowWordsWidened(across);
}

}  // namespace qm::fixed
