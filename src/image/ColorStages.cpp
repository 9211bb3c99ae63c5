#include "image/ColorStages.h"

#include <algorithm>

#include "image/PixelRows.h"

namespace qm {

namespace {

// Rec. 709 luma weights, as CIColorControls uses for its grey.
constexpr float kLumaR = 0.2125f;
constexpr float kLumaG = 0.7154f;
constexpr float kLumaB = 0.0721f;

using Columns = std::array<Float4, 5>;

// Mixes each colour with its luma: 0 grey, 1 unchanged.
Columns saturationColumns(float s) {
    const float k = 1 - s;
    return {Float4{k * kLumaR + s, k * kLumaR, k * kLumaR, 0}, Float4{k * kLumaG, k * kLumaG + s, k * kLumaG, 0},
            Float4{k * kLumaB, k * kLumaB, k * kLumaB + s, 0}, Float4{0, 0, 0, 1}, Float4{0, 0, 0, 0}};
}

// r' = r * gain.r + offset.r, and so on; alpha kept.
Columns channelColumns(Float4 gain, Float4 offset) {
    return {Float4{gain[0], 0, 0, 0}, Float4{0, gain[1], 0, 0}, Float4{0, 0, gain[2], 0}, Float4{0, 0, 0, 1},
            Float4{offset[0], offset[1], offset[2], 0}};
}

// A tone curve from black level `lift` to white level `gain`, with an S of strength `s` (0 none,
// 1 smoothstep): y = lift + (gain - lift) * (x + s * (3x^2 - 2x^3 - x)).
std::array<Float4, 4> toneCurve(float lift, float gain, float s) {
    const float span = gain - lift;
    return {Float4{lift, lift, lift, 0}, Float4{span * (1 - s), span * (1 - s), span * (1 - s), 1},
            splat(span * 3 * s) * Float4{1, 1, 1, 0}, splat(-span * 2 * s) * Float4{1, 1, 1, 0}};
}

Float4 clamp01(Float4 v) {
    const Float4 zero = splat(0.f);
    const Float4 one = splat(1.f);
    v = v < zero ? zero : v;
    return v > one ? one : v;
}

}  // namespace

ColorStages::ColorStages(std::vector<Stage> stages) : _stages(std::move(stages)) {
    const Float4 zero = apply(splat(0.f));
    _keepsTransparent = zero[0] == 0 && zero[1] == 0 && zero[2] == 0 && zero[3] == 0;
    if (_stages.size() != 1 || !_stages[0].isMatrix) return;
    // With a' = k * a (0 <= k <= 1) and colour c' = M c + bias, premultiplying gives
    // k * (M * (premultiplied colour) + bias * a): no division needed.
    const auto& c = _stages[0].v;
    const float k = c[3][3];
    const bool alphaFromAlpha = c[0][3] == 0 && c[1][3] == 0 && c[2][3] == 0 && c[4][3] == 0 && k >= 0 && k <= 1;
    const bool colourIgnoresAlpha = c[3][0] == 0 && c[3][1] == 0 && c[3][2] == 0;
    if (!alphaFromAlpha || !colourIgnoresAlpha) return;
    _linear = true;
    for (int i = 0; i < 3; ++i) _premultipliedColumns[size_t(i)] = c[size_t(i)] * k;
    _premultipliedColumns[3] = c[4] * k;
    _premultipliedColumns[3][3] = k;
    bool uniform = true;
    for (size_t i = 0; i < 4; ++i)
        for (size_t lane = 0; lane < 4; ++lane) uniform &= _premultipliedColumns[i][lane] == (i == lane ? k : 0.f);
    if (uniform) _uniformScale = k;
}

ColorStages ColorStages::matrix(const std::array<Float4, 5>& columns) { return ColorStages({Stage{true, columns}}); }

ColorStages ColorStages::matrix(const ColorMatrix& m) {
    Columns c;
    for (int i = 0; i < 4; ++i) c[i] = Float4{m.r[i], m.g[i], m.b[i], m.a[i]};
    c[4] = Float4{m.bias[0], m.bias[1], m.bias[2], m.bias[3]};
    return matrix(c);
}

ColorStages ColorStages::colorControls(float brightness, float contrast, float saturation) {
    // Saturation, then + brightness, then (x - 0.5) * contrast + 0.5, all on r, g, b.
    Columns c = saturationColumns(saturation);
    const Float4 rgb{1, 1, 1, 0};
    for (int i = 0; i < 3; ++i) c[i] *= splat(contrast) * rgb + Float4{0, 0, 0, 1};
    c[4] = rgb * (brightness * contrast + 0.5f * (1 - contrast));
    return matrix(c);
}

ColorStages ColorStages::curve(const std::array<Float4, 4>& coefficients) {
    Stage stage{false, {}};
    for (int i = 0; i < 4; ++i) stage.v[i] = coefficients[i];
    return ColorStages({stage});
}

// Our looks for the eight photo effects: a colour matrix (saturation, then per-channel gain and
// offset for a tint) followed by a tone curve (black level, white level, S-curve strength).
//
//   Chrome    saturation 1.3, S 0.35                       vivid, punchy colour
//   Fade      saturation 0.6, blacks 0.10, whites 0.92     washed-out colour
//   Instant   saturation 0.85, warm highlights, blue-lifted shadows, blacks 0.04, whites 0.96, S 0.2
//   Mono      grey, blacks 0.06, whites 0.94               black and white, low contrast
//   Noir      grey, S 0.9                                  black and white, hard contrast
//   Process   saturation 0.9, cooled (red down, blue up), S 0.3
//   Tonal     grey, S 0.15                                 black and white, contrast kept
//   Transfer  saturation 0.9, warmed (red up, blue down), blacks 0.05, whites 0.95, S 0.15
ColorStages ColorStages::photoEffect(PhotoEffect effect) {
    const Float4 unit{1, 1, 1, 1};
    const Float4 none{0, 0, 0, 0};
    switch (effect) {
    case PhotoEffect::Chrome:
        return matrix(saturationColumns(1.3f)).then(curve(toneCurve(0, 1, 0.35f)));
    case PhotoEffect::Fade:
        return matrix(saturationColumns(0.6f)).then(curve(toneCurve(0.10f, 0.92f, 0)));
    case PhotoEffect::Instant:
        return matrix(saturationColumns(0.85f))
            .then(matrix(channelColumns(Float4{1.06f, 1.0f, 0.88f, 1}, Float4{0.02f, 0.01f, 0.06f, 0})))
            .then(curve(toneCurve(0.04f, 0.96f, 0.2f)));
    case PhotoEffect::Mono:
        return matrix(saturationColumns(0)).then(curve(toneCurve(0.06f, 0.94f, 0)));
    case PhotoEffect::Noir:
        return matrix(saturationColumns(0)).then(curve(toneCurve(0, 1, 0.9f)));
    case PhotoEffect::Process:
        return matrix(saturationColumns(0.9f))
            .then(matrix(channelColumns(Float4{0.92f, 1.0f, 1.08f, 1}, Float4{0, 0.02f, 0.04f, 0})))
            .then(curve(toneCurve(0, 1, 0.3f)));
    case PhotoEffect::Tonal:
        return matrix(saturationColumns(0)).then(curve(toneCurve(0, 1, 0.15f)));
    case PhotoEffect::Transfer:
        return matrix(saturationColumns(0.9f))
            .then(matrix(channelColumns(Float4{1.08f, 1.0f, 0.85f, 1}, Float4{0.03f, 0.01f, 0, 0})))
            .then(curve(toneCurve(0.05f, 0.95f, 0.15f)));
    }
    return matrix(channelColumns(unit, none));
}

ColorStages ColorStages::then(const ColorStages& next) const {
    std::vector<Stage> stages = _stages;
    for (const Stage& stage : next._stages) {
        if (stage.isMatrix && !stages.empty() && stages.back().isMatrix) {
            // Next(Prev(x)) = (N * P) x + (N * p4 + n4).
            const Columns& p = stages.back().v;
            const Columns& n = stage.v;
            auto times = [&](Float4 col) { return n[0] * col[0] + n[1] * col[1] + n[2] * col[2] + n[3] * col[3]; };
            Columns fused;
            for (int i = 0; i < 4; ++i) fused[i] = times(p[i]);
            fused[4] = times(p[4]) + n[4];
            stages.back().v = fused;
        } else {
            stages.push_back(stage);
        }
    }
    return ColorStages(std::move(stages));
}

Float4 ColorStages::apply(Float4 p) const {
    const float alpha = p[3];
    Float4 s = alpha > 0 ? p * (1.f / alpha) : splat(0.f);
    s[3] = alpha > 0 ? alpha : 0.f;
    for (const Stage& stage : _stages) {
        const auto& v = stage.v;
        if (stage.isMatrix) {
            s = v[0] * s[0] + v[1] * s[1] + v[2] * s[2] + v[3] * s[3] + v[4];
        } else {
            const Float4 x = clamp01(s);
            const float a = s[3];
            s = v[0] + x * (v[1] + x * (v[2] + x * v[3]));
            s[3] = a;
        }
    }
    const float outAlpha = std::clamp(s[3], 0.f, 1.f);
    s *= outAlpha;
    s[3] = outAlpha;
    return s;
}

void ColorStages::applyRow(float* pixels, int count) const {
    if (_uniformScale) {
        scaleRow(pixels, 4 * count, *_uniformScale);
        return;
    }
    if (_linear) {
        linearColor(pixels, count, _premultipliedColumns);
        return;
    }
    for (int i = 0; i < count; ++i) storeFloat4(pixels + 4 * i, apply(loadFloat4(pixels + 4 * i)));
}

}  // namespace qm
