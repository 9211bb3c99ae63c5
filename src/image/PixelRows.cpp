#include "image/PixelRows.h"

#include "image/dsp/PixelDSP.h"

namespace qm {

void compositeUnder(float* front, const float* back, int count) { pixelDSP().compositeUnder(front, back, count); }

void compositeUnderColor(float* front, Float4 back, int count) { pixelDSP().compositeUnderColor(front, back, count); }

void bytesToFloatRow(const uint8_t* src, float* dst, int count, float scale) {
    pixelDSP().bytesToFloatRow(src, dst, count, scale);
}

void scaleRow(float* values, int count, float factor) { pixelDSP().scaleRow(values, count, factor); }

void colorTimesAlpha(float* pixels, Float4 color, int count) { pixelDSP().colorTimesAlpha(pixels, color, count); }

void sourceTimesAlpha(float* pixels, const float* source, int count) {
    pixelDSP().sourceTimesAlpha(pixels, source, count);
}

void linearColor(float* pixels, int count, const std::array<Float4, 4>& columns) {
    pixelDSP().linearColor(pixels, count, columns);
}

bool allOpaque(const float* pixels, int count) { return pixelDSP().allOpaque(pixels, count); }

void mixRows(const float* a, const float* b, float t, float* out, int floats) {
    pixelDSP().mixRows(a, b, t, out, floats);
}

void enlargeRow(const float* source, int first, int factor, int x, float* out, int count) {
    pixelDSP().enlargeRow(source, first, factor, x, out, count);
}

void convolveRow(const float* src, float* dst, int count, const float* weights, int taps) {
    pixelDSP().convolveRow(src, dst, count, weights, taps);
}

void convolveRows(const float* const* rows, float* dst, int floats, const float* weights, int taps) {
    pixelDSP().convolveRows(rows, dst, floats, weights, taps);
}

void premultipliedToBytes(const float* src, uint8_t* dst, int count) {
    pixelDSP().premultipliedToBytes(src, dst, count);
}

void premultipliedToBGRABytes(const float* src, uint8_t* dst, int count) {
    pixelDSP().premultipliedToBGRABytes(src, dst, count);
}

void yuvRows(const float* upper, const float* lower, int width, uint8_t* y0, uint8_t* y1, uint8_t* u, uint8_t* v) {
    pixelDSP().yuvRows(upper, lower, width, y0, y1, u, v);
}

void bilinearBytes4(const uint8_t* origin, std::ptrdiff_t up, Int4 offsets, Int4 wx, Int4 wy, float scale, float* out) {
    pixelDSP().bilinearBytes4(origin, up, offsets, wx, wy, scale, out);
}

void sampleBitmapRow(const BitmapView& bitmap, int64_t u, int64_t v, int64_t du, int64_t dv, float scale, float* out,
                     int count) {
    pixelDSP().sampleBitmapRow(bitmap, u, v, du, dv, scale, out, count);
}

}  // namespace qm
