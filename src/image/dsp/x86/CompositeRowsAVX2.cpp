// The composite and alpha rows with AVX2: two pixels per 256-bit vector, the odd last one alone,
// each through the same steps as the plain rows.
#include "image/dsp/PixelDSP.h"
#include "image/dsp/RowFamilies.h"
#include "image/dsp/x86/Float8.h"

namespace qm {

namespace {

using namespace avx2;

void compositeUnder(float* front, const float* back, int count) {
    int i = 0;
    for (; i + 2 <= count; i += 2) {
        const Float8 f = load8(front + 4 * i);
        store8(front + 4 * i, f + load8(back + 4 * i) * (1.f - alpha(f)));
    }
    if (i < count) {
        const Float4 f = loadFloat4(front + 4 * i);
        storeFloat4(front + 4 * i, f + loadFloat4(back + 4 * i) * (1.f - f[3]));
    }
}

void compositeUnderColor(float* front, Float4 back, int count) {
    const Float8 b = twice(back);
    int i = 0;
    for (; i + 2 <= count; i += 2) {
        const Float8 f = load8(front + 4 * i);
        store8(front + 4 * i, f + b * (1.f - alpha(f)));
    }
    if (i < count) {
        const Float4 f = loadFloat4(front + 4 * i);
        storeFloat4(front + 4 * i, f + back * (1.f - f[3]));
    }
}

void colorTimesAlpha(float* pixels, Float4 color, int count) {
    const Float8 c = twice(color);
    int i = 0;
    for (; i + 2 <= count; i += 2) store8(pixels + 4 * i, c * alpha(load8(pixels + 4 * i)));
    if (i < count) storeFloat4(pixels + 4 * i, color * pixels[4 * i + 3]);
}

void sourceTimesAlpha(float* pixels, const float* source, int count) {
    int i = 0;
    for (; i + 2 <= count; i += 2) store8(pixels + 4 * i, load8(source + 4 * i) * alpha(load8(pixels + 4 * i)));
    if (i < count) storeFloat4(pixels + 4 * i, loadFloat4(source + 4 * i) * pixels[4 * i + 3]);
}

void linearColor(float* pixels, int count, const std::array<Float4, 4>& columns) {
    const Float8 c0 = twice(columns[0]);
    const Float8 c1 = twice(columns[1]);
    const Float8 c2 = twice(columns[2]);
    const Float8 c3 = twice(columns[3]);
    int i = 0;
    for (; i + 2 <= count; i += 2) {
        const Float8 p = load8(pixels + 4 * i);
        store8(pixels + 4 * i, c0 * red(p) + c1 * green(p) + c2 * blue(p) + c3 * alpha(p));
    }
    if (i < count) {
        const Float4 p = loadFloat4(pixels + 4 * i);
        storeFloat4(pixels + 4 * i, columns[0] * p[0] + columns[1] * p[1] + columns[2] * p[2] + columns[3] * p[3]);
    }
}

bool allOpaque(const float* pixels, int count) {
    // Every lane tests its own channel; only alpha's lane counts.
    Int4 opaque = ~Int4{};
    for (int i = 0; i < count; ++i) opaque &= loadFloat4(pixels + 4 * i) >= splat(1.f);
    return opaque[3] != 0;
}

}  // namespace

void setAVX2CompositeRows(PixelDSP& dsp) {
    dsp.compositeUnder = compositeUnder;
    dsp.compositeUnderColor = compositeUnderColor;
    dsp.colorTimesAlpha = colorTimesAlpha;
    dsp.sourceTimesAlpha = sourceTimesAlpha;
    dsp.linearColor = linearColor;
    dsp.allOpaque = allOpaque;
}

}  // namespace qm
