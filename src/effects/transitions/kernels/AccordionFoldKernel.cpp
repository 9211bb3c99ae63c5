// Accordion fold: the picture folds down in panels onto its bottom edge and unfolds as the target.
//
// The frame moves from the from image's extent to the target's over the transition; it stands on its
// bottom edge, its height is the unfolded height times c = 1 - 0.7 sin(pi t). Folded in orthographic view
// the picture maps linearly onto the shorter frame; each panel of unfolded height h turns by the fold
// angle a (cos a = c), so its depth runs from 0 to h sin a and back on the next panel. With the
// viewer at distance D = 2 * frame width, a row at depth z is narrowed by D / (D + z) about the
// frame's middle, which zigzags the sides. Panels whose depth grows downwards face away from the
// light and darken by foldShadowAmount * sin a; the others by a quarter of that.
#include <cmath>
#include <numbers>

#include "effects/transitions/kernels/KernelSupport.h"
#include "effects/transitions/kernels/TransitionKernels.h"

namespace qm {

using namespace kernels;

namespace {

struct Frame {
    float x = 0;
    float width = 1;
    float top = 0;
    float height = 1;   // folded
    float middle = 0;
    float folds = 1;
    float depth = 0;    // deepest point of a panel
    float viewer = 1;   // distance of the viewer
    float sine = 0;     // of the fold angle
};

float lerp(double a, double b, float t) {
    return float(a + (b - a) * t);
}

// The extent position (x, y) of `extent` at frame fractions fx (left to right), fy (top down).
inline void place(const Rect& extent, float fx, float fy, float& x, float& y) {
    x = float(extent.minX()) + fx * float(extent.width());
    y = float(extent.maxY()) - fy * float(extent.height());
}

}  // namespace

Image accordionFoldTransition(const Image& from, const Image& to, double time,
                              const AccordionFoldTransitionParameters& parameters) {
    if (!from || !to) return {};
    const float t = transitionTime(time);
    const Rect fromExtent = from.extent();
    const Rect toExtent = to.extent();
    const float c = 1.0f - 0.7f * std::sin(std::numbers::pi_v<float> * t);

    Frame f;
    f.x = lerp(fromExtent.minX(), toExtent.minX(), t);
    f.width = std::max(lerp(fromExtent.width(), toExtent.width(), t), 1.0f);
    const float unfolded = std::max(lerp(fromExtent.height(), toExtent.height(), t), 1.0f);
    f.height = unfolded * c;
    f.top = lerp(fromExtent.minY(), toExtent.minY(), t) + f.height;
    f.middle = f.x + 0.5f * f.width;
    f.folds = float(std::max(parameters.numberOfFolds, 1.0));
    f.sine = std::sqrt(std::max(1.0f - c * c, 0.0f));
    f.depth = unfolded / f.folds * f.sine;
    f.viewer = 2.0f * f.width;
    const float shadow = float(parameters.foldShadowAmount) * f.sine;
    const float narrowest = f.viewer / (f.viewer + f.depth);

    // Frame fractions of `rect` (conservative), then the matching part of `extent`.
    auto region = [f, narrowest](const Rect& rect, const Rect& extent) {
        const float fy0 = clamp01((f.top - float(rect.maxY())) / f.height);
        const float fy1 = clamp01((f.top - float(rect.minY())) / f.height);
        float fx0 = 1, fx1 = 0;
        for (float edge : {float(rect.minX()), float(rect.maxX())}) {
            for (float scale : {1.0f, narrowest}) {
                const float fx = clamp01(0.5f + (edge - f.middle) / (f.width * scale));
                fx0 = std::min(fx0, fx);
                fx1 = std::max(fx1, fx);
            }
        }
        float x0, y0, x1, y1;
        place(extent, fx0, fy1, x0, y0);
        place(extent, fx1, fy0, x1, y1);
        return outset(Rect{x0, y0, x1 - x0, y1 - y0}, 2);
    };

    auto kernel = transitionKernel("accordionFold");
    kernel->regionOfInterest = [=](size_t index, const Rect& rect) {
        return region(rect, index == 0 ? fromExtent : toExtent);
    };
    kernel->render = [=](const ImageTile& out, std::span<const ConstImageTile> in) {
        const ConstImageTile& fromTile = in[0];
        const ConstImageTile& toTile = in[1];
        fillTile(out, [&](int y, float cy) {
            const RowReader a(fromTile, y, out.rect.x, out.rect.maxX());
            const RowReader b(toTile, y, out.rect.x, out.rect.maxX());
            const float fy = (f.top - cy) / f.height;
            const float panels = fy * f.folds;
            const float panel = std::floor(panels);
            const float within = panels - panel;
            const bool away = std::fmod(panel, 2.0f) == 0.0f;
            const float z = (away ? within : 1.0f - within) * f.depth;
            const float rowScale = f.width * f.viewer / (f.viewer + z);
            const float light = 1.0f - shadow * (away ? 1.0f : 0.25f);
            const bool inside = fy >= -1.0f / f.height && fy <= 1.0f + 1.0f / f.height;
            return [=, &fromTile, &toTile](int x, float cx) {
                if (t <= 0.0f) return a(x);
                if (t >= 1.0f) return b(x);
                if (!inside) return splat(0.0f);
                const float fx = 0.5f + (cx - f.middle) / rowScale;
                float fromX, fromY, toX, toY;
                place(fromExtent, fx, fy, fromX, fromY);
                place(toExtent, fx, fy, toX, toY);
                const Float4 color = mix(sampleBilinear(fromTile, fromX, fromY), sampleBilinear(toTile, toX, toY), t);
                return shaded(color, light);
            };
        });
    };
    return applyKernel(kernel, {from, to});
}

}  // namespace qm
