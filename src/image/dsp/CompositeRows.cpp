// The plain rows that composite pixels or weigh them by alpha, a pixel and a channel at a time.
#include "image/dsp/PixelDSP.h"
#include "image/dsp/RowFamilies.h"

namespace qm {

namespace {

void compositeUnder(float* front, const float* back, int count) {
    for (int i = 0; i < count; ++i) {
        float* f = front + 4 * i;
        const float* b = back + 4 * i;
        const float uncovered = 1.f - f[3];
        for (int c = 0; c < 4; ++c) f[c] = f[c] + b[c] * uncovered;
    }
}

void compositeUnderColor(float* front, Float4 back, int count) {
    for (int i = 0; i < count; ++i) {
        float* f = front + 4 * i;
        const float uncovered = 1.f - f[3];
        for (int c = 0; c < 4; ++c) f[c] = f[c] + back[c] * uncovered;
    }
}

void colorTimesAlpha(float* pixels, Float4 color, int count) {
    for (int i = 0; i < count; ++i) {
        float* p = pixels + 4 * i;
        const float alpha = p[3];
        for (int c = 0; c < 4; ++c) p[c] = color[c] * alpha;
    }
}

void sourceTimesAlpha(float* pixels, const float* source, int count) {
    for (int i = 0; i < count; ++i) {
        float* p = pixels + 4 * i;
        const float alpha = p[3];
        for (int c = 0; c < 4; ++c) p[c] = source[4 * i + c] * alpha;
    }
}

void linearColor(float* pixels, int count, const std::array<Float4, 4>& columns) {
    for (int i = 0; i < count; ++i) {
        float* p = pixels + 4 * i;
        const float r = p[0], g = p[1], b = p[2], a = p[3];
        for (int c = 0; c < 4; ++c)
            p[c] = columns[0][c] * r + columns[1][c] * g + columns[2][c] * b + columns[3][c] * a;
    }
}

bool allOpaque(const float* pixels, int count) {
    for (int i = 0; i < count; ++i)
        if (!(pixels[4 * i + 3] >= 1.f)) return false;
    return true;
}

}  // namespace

void setPlainCompositeRows(PixelDSP& dsp) {
    dsp.compositeUnder = compositeUnder;
    dsp.compositeUnderColor = compositeUnderColor;
    dsp.colorTimesAlpha = colorTimesAlpha;
    dsp.sourceTimesAlpha = sourceTimesAlpha;
    dsp.linearColor = linearColor;
    dsp.allOpaque = allOpaque;
}

}  // namespace qm
