#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "image/ImageTile.h"
#include "image/PixelMath.h"
#include "image/dsp/BitmapView.h"

namespace qm {

// The rows of pixelDSP() under their own names, for code outside the table; dsp/PixelDSP.h says
// what each does.
void compositeUnder(float* front, const float* back, int count);
void compositeUnderColor(float* front, Float4 back, int count);
void bytesToFloatRow(const uint8_t* src, float* dst, int count, float scale = kByteToFloat);
void scaleRow(float* values, int count, float factor);
void colorTimesAlpha(float* pixels, Float4 color, int count);
void sourceTimesAlpha(float* pixels, const float* source, int count);
void linearColor(float* pixels, int count, const std::array<Float4, 4>& columns);
bool allOpaque(const float* pixels, int count);
void mixRows(const float* a, const float* b, float t, float* out, int floats);
void enlargeRow(const float* source, int first, int factor, int x, float* out, int count);
void convolveRow(const float* src, float* dst, int count, const float* weights, int taps);
void convolveRows(const float* const* rows, float* dst, int floats, const float* weights, int taps);
void premultipliedToBytes(const float* src, uint8_t* dst, int count);
void premultipliedToBGRABytes(const float* src, uint8_t* dst, int count);
void yuvRows(const float* upper, const float* lower, int width, uint8_t* y0, uint8_t* y1, uint8_t* u, uint8_t* v);
void bilinearBytes4(const uint8_t* origin, std::ptrdiff_t up, Int4 offsets, Int4 wx, Int4 wy, float scale, float* out);
void sampleBitmapRow(const BitmapView& bitmap, int64_t u, int64_t v, int64_t du, int64_t dv, float scale, float* out,
                     int count);

}  // namespace qm
