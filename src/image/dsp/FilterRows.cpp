// The plain rows of the blur: the convolution across a row and the enlargement of a reduced row,
// a channel at a time.
#include "image/PixelMath.h"
#include "image/dsp/PixelDSP.h"
#include "image/dsp/RowFamilies.h"

namespace qm {

namespace {

void convolveRow(const float* src, float* dst, int count, const float* weights, int taps) {
    for (int i = 0; i < count; ++i)
        for (int c = 0; c < 4; ++c) {
            float sum = 0.f;
            for (int t = 0; t < taps; ++t) sum += src[4 * (i + t) + c] * weights[t];
            dst[4 * i + c] = sum;
        }
}

// out = from + (to - from) * t over one pixel.
void blendPixel(const float* from, const float* to, float t, float* out) {
    for (int c = 0; c < 4; ++c) out[c] = from[c] + (to[c] - from[c]) * t;
}

void enlargeRow(const float* source, int first, int factor, int x, float* out, int count) {
    const float step = 1.f / float(factor);
    auto one = [&](int i) {
        const float u = (float(x + i) + 0.5f) * step - 0.5f;
        const int i0 = fastFloor(u);
        const float* p = source + 4 * (i0 - first);
        blendPixel(p, p + 4, u - float(i0), out + 4 * i);
    };
    // Columns qf .. qf + f - 1 blend reduced pixels q - 1 and q in their first half, q and q + 1 in
    // their second, with the same weights for every q (worked out as below, so that every group
    // gives the same bytes as the fast rows).
    constexpr int kMaxGroup = 64;
    int i = 0;
    if (factor <= kMaxGroup) {
        for (; i < count && ((x + i) & (factor - 1)) != 0; ++i) one(i);
        const int half = factor / 2;
        const int shift = __builtin_ctz(unsigned(factor));
        for (; i + factor <= count; i += factor) {
            const float* left = source + 4 * (((x + i) >> shift) - 1 - first);
            for (int r = 0; r < factor; ++r) {
                const float weight = (float(r) + 0.5f) * step + (r < half ? 0.5f : -0.5f);
                const float* from = r < half ? left : left + 4;
                blendPixel(from, from + 4, weight, out + 4 * (i + r));
            }
        }
    }
    for (; i < count; ++i) one(i);
}

}  // namespace

void setPlainFilterRows(PixelDSP& dsp) {
    dsp.convolveRow = convolveRow;
    dsp.enlargeRow = enlargeRow;
}

}  // namespace qm
