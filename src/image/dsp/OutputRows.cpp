// The plain rows that turn premultiplied float pixels into the bytes renders hand out: RGBA8,
// BGRA8 and BT.709 YUV, a channel at a time.
#include "image/dsp/PixelDSP.h"
#include "image/dsp/RowFamilies.h"
#include "image/dsp/YUVCoefficients.h"

namespace qm {

namespace {

// Channel c of each pixel goes to byte order[c].
template <int... order>
void premultipliedToOrderedBytes(const float* src, uint8_t* dst, int count) {
    constexpr int destination[4] = {order...};
    for (int i = 0; i < 4 * count; ++i) {
        const float v = src[i] > 0.f ? (src[i] < 1.f ? src[i] : 1.f) : 0.f;
        dst[i - i % 4 + destination[i % 4]] = uint8_t(int(v * 255.f + 0.5f));
    }
}

// A colour clamped to 0..1 (NaN stays NaN, and gives 0 in the end).
float unit(float v) { return v < 0.f ? 0.f : v > 1.f ? 1.f : v; }

void yuvRows(const float* upper, const float* lower, int width, uint8_t* y0, uint8_t* y1, uint8_t* u, uint8_t* v) {
    using namespace bt709;
    auto luma = [](const float* p) { return 16.f + unit(p[0]) * kRedY + unit(p[1]) * kGreenY + unit(p[2]) * kBlueY; };
    int i = 0;
    for (; i + 2 <= width; i += 2) {
        const float* a = upper + 4 * i;
        const float* b = lower + 4 * i;
        y0[i] = roundedByte(luma(a));
        y0[i + 1] = roundedByte(luma(a + 4));
        if (y1) {
            y1[i] = roundedByte(luma(b));
            y1[i + 1] = roundedByte(luma(b + 4));
        }
        // The block's mean: its left column's two pixels plus its right column's.
        float mean[3];
        for (int c = 0; c < 3; ++c) mean[c] = ((unit(a[c]) + unit(b[c])) + (unit(a[4 + c]) + unit(b[4 + c]))) * 0.25f;
        const float l = kRed * mean[0] + kGreen * mean[1] + kBlue * mean[2];
        u[i / 2] = roundedByte(128.f + kU * (mean[2] - l));
        v[i / 2] = roundedByte(128.f + kV * (mean[0] - l));
    }
    if (i < width) {
        // An odd last column: its block is that column alone.
        const float* a = upper + 4 * i;
        const float* b = lower + 4 * i;
        y0[i] = roundedByte(16.f + 219.f * (kRed * unit(a[0]) + kGreen * unit(a[1]) + kBlue * unit(a[2])));
        if (y1) y1[i] = roundedByte(16.f + 219.f * (kRed * unit(b[0]) + kGreen * unit(b[1]) + kBlue * unit(b[2])));
        float mean[3];
        for (int c = 0; c < 3; ++c) mean[c] = (unit(a[c]) + unit(b[c])) * 0.5f;
        const float l = kRed * mean[0] + kGreen * mean[1] + kBlue * mean[2];
        u[i / 2] = roundedByte(128.f + kU * (mean[2] - l));
        v[i / 2] = roundedByte(128.f + kV * (mean[0] - l));
    }
}

}  // namespace

void setPlainOutputRows(PixelDSP& dsp) {
    dsp.premultipliedToBytes = premultipliedToOrderedBytes<0, 1, 2, 3>;
    dsp.premultipliedToBGRABytes = premultipliedToOrderedBytes<2, 1, 0, 3>;
    dsp.yuvRows = yuvRows;
}

}  // namespace qm
