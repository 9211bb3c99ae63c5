// The blur's rows with AVX2: the convolution two pixels at a time, the enlargement a pixel per
// vector with the group weights worked out once.
#include "image/PixelMath.h"
#include "image/dsp/PixelDSP.h"
#include "image/dsp/RowFamilies.h"
#include "image/dsp/x86/Float8.h"

namespace qm {

namespace {

using namespace avx2;

void convolveRow(const float* src, float* dst, int count, const float* weights, int taps) {
    int i = 0;
    for (; i + 2 <= count; i += 2) {
        Float8 sum{};
        const float* p = src + 4 * i;
        for (int t = 0; t < taps; ++t) sum += load8(p + 4 * t) * weights[t];
        store8(dst + 4 * i, sum);
    }
    if (i < count) {
        Float4 sum = splat(0.f);
        const float* p = src + 4 * i;
        for (int t = 0; t < taps; ++t) sum += loadFloat4(p + 4 * t) * weights[t];
        storeFloat4(dst + 4 * i, sum);
    }
}

void enlargeRow(const float* source, int first, int factor, int x, float* out, int count) {
    const float step = 1.f / float(factor);
    auto one = [&](int i) {
        const float u = (float(x + i) + 0.5f) * step - 0.5f;
        const int i0 = fastFloor(u);
        const float* p = source + 4 * (i0 - first);
        storeFloat4(out + 4 * i, mix(loadFloat4(p), loadFloat4(p + 4), u - float(i0)));
    };
    // Columns qf .. qf + f - 1 blend reduced pixels q - 1 and q in their first half, q and q + 1 in
    // their second, with the same weights for every q.
    constexpr int kMaxGroup = 64;
    int i = 0;
    if (factor <= kMaxGroup) {
        for (; i < count && ((x + i) & (factor - 1)) != 0; ++i) one(i);
        const int half = factor / 2;
        const int shift = __builtin_ctz(unsigned(factor));
        Float4 weights[kMaxGroup];
        for (int r = 0; r < factor; ++r) weights[r] = splat((float(r) + 0.5f) * step + (r < half ? 0.5f : -0.5f));
        for (; i + factor <= count; i += factor) {
            const float* p = source + 4 * (((x + i) >> shift) - 1 - first);
            const Float4 left = loadFloat4(p);
            const Float4 middle = loadFloat4(p + 4);
            const Float4 right = loadFloat4(p + 8);
            const Float4 towardsMiddle = middle - left;
            const Float4 towardsRight = right - middle;
            float* dst = out + 4 * i;
            for (int r = 0; r < half; ++r) storeFloat4(dst + 4 * r, left + towardsMiddle * weights[r]);
            for (int r = half; r < factor; ++r) storeFloat4(dst + 4 * r, middle + towardsRight * weights[r]);
        }
    }
    for (; i < count; ++i) one(i);
}

}  // namespace

void setAVX2FilterRows(PixelDSP& dsp) {
    dsp.convolveRow = convolveRow;
    dsp.enlargeRow = enlargeRow;
}

}  // namespace qm
