#pragma once

#include <cstdint>

// BT.709 limited range, as yuvRows writes it: Y = 16 + 219 * luma, U and V = 128 + 224 * (B or R
// - luma) / (1.8556 or 1.5748). The plain and the AVX2 rows share these so that both round alike.
namespace qm::bt709 {

constexpr float kRed = 0.2126f, kGreen = 0.7152f, kBlue = 0.0722f;
// The luma weights times 219, for Y straight from a pixel.
constexpr float kRedY = kRed * 219.f, kGreenY = kGreen * 219.f, kBlueY = kBlue * 219.f;
constexpr float kU = 224.f / 1.8556f, kV = 224.f / 1.5748f;

// A value 0..255 (beyond: clamped; NaN: 0) rounded to the nearest byte.
inline uint8_t roundedByte(float f) {
    return f > 0.f ? (f < 255.f ? uint8_t(int(f + 0.5f)) : uint8_t(255)) : uint8_t(0);
}

}  // namespace qm::bt709
