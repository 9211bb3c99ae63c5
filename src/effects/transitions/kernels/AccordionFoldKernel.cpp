// Accordion fold: the from image folds up in vertical panels towards its left edge and uncovers the
// target behind it.
//
// The from image is cut into n panels of width p = W / n. At time t the folded picture is
// c = 1 - t of its width: each panel turns by the fold angle a (cos a = c), alternate panels the
// other way, so a panel's depth runs from 0 to p sin a and back on the next one. Seen head on the
// folded picture maps linearly onto the shorter width; with the viewer at distance D = 4p, a column
// at depth z is narrowed vertically by D / (D + z) about the picture's middle, which zigzags its top
// and bottom edges. Panels whose depth grows to the right face away from the light and darken by
// foldShadowAmount * sin a; the others by a quarter of that. The target, in place, shows wherever
// no panel lies.
#include <cmath>
#include <vector>

#include "effects/transitions/kernels/KernelSupport.h"
#include "effects/transitions/kernels/TransitionKernels.h"

namespace qm {

using namespace kernels;

namespace {

struct Fold {
    float left = 0;     // the edge the picture folds towards
    float middle = 0;   // vertical centre of the picture
    float width = 1;    // unfolded
    float cosine = 1;   // of the fold angle: the folded share of the width
    float panel = 1;    // unfolded panel width
    float depth = 0;    // deepest point of a panel
    float viewer = 1;   // distance of the viewer
    float shadow = 0;   // darkening of the panels facing away

    // The panel column at output position cx: the from image's x there, the vertical scale of the
    // perspective and the light. False where no panel lies.
    bool column(float cx, float& sourceX, float& inverseScale, float& light) const {
        const float folded = (cx - left) / cosine;  // the unfolded distance from the left edge
        if (folded < -1.0f || folded > width + 1.0f) return false;
        const float panels = folded / panel;
        const float index = std::floor(panels);
        const float within = panels - index;
        const bool away = std::fmod(index, 2.0f) == 0.0f;
        const float z = (away ? within : 1.0f - within) * depth;
        sourceX = left + folded;
        inverseScale = (viewer + z) / viewer;
        light = 1.0f - shadow * (away ? 1.0f : 0.25f);
        return true;
    }
};

}  // namespace

Image accordionFoldTransition(const Image& from, const Image& to, double time,
                              const AccordionFoldTransitionParameters& parameters) {
    if (!from || !to) return {};
    const float t = transitionTime(time);
    const Rect fromExtent = from.extent();

    Fold f;
    f.left = float(fromExtent.minX());
    f.middle = float(fromExtent.midY());
    f.width = std::max(float(fromExtent.width()), 1.0f);
    f.cosine = std::max(1.0f - t, 1e-4f);
    const float sine = std::sqrt(std::max(1.0f - f.cosine * f.cosine, 0.0f));
    f.panel = f.width / float(std::max(parameters.numberOfFolds, 1.0));
    f.depth = f.panel * sine;
    f.viewer = 4.0f * f.panel;
    f.shadow = float(parameters.foldShadowAmount) * sine;
    const float deepest = (f.viewer + f.depth) / f.viewer;

    auto kernel = transitionKernel("accordionFold");
    // The folded picture is sampled all over; the target is copied in rows.
    kernel->byteInputs = {false, true};
    kernel->regionOfInterest = [=](size_t index, const Rect& rect) {
        if (index != 0 || t <= 0.0f) return rect;
        if (t >= 1.0f) return Rect{};
        const double x0 = f.left + std::max(rect.minX() - f.left, 0.0) / f.cosine;
        const double x1 = f.left + std::max(rect.maxX() - f.left, 0.0) / f.cosine;
        const double y0 = f.middle + std::min((rect.minY() - f.middle) * deepest, rect.minY() - f.middle);
        const double y1 = f.middle + std::max((rect.maxY() - f.middle) * deepest, rect.maxY() - f.middle);
        return outset(Rect{x0, y0, x1 - x0, y1 - y0}, 2).intersection(outset(fromExtent, 2));
    };
    kernel->render = [=](const ImageTile& out, std::span<const ConstImageTile> in) {
        const ConstImageTile& fromTile = in[0];
        // The columns of the tile, worked out once.
        struct Column {
            bool folded;
            float sourceX;
            float inverseScale;
            float light;
        };
        thread_local std::vector<Column> columns;
        columns.resize(size_t(out.rect.width));
        for (int i = 0; i < out.rect.width; ++i) {
            Column& c = columns[size_t(i)];
            c.folded = t > 0.0f && t < 1.0f && f.column(float(out.rect.x + i) + 0.5f, c.sourceX, c.inverseScale, c.light);
        }
        const Column* column = columns.data() - out.rect.x;
        const int x0 = out.rect.x;
        const int x1 = out.rect.maxX();
        if (t <= 0.0f) {
            for (int y = out.rect.y; y < out.rect.maxY(); ++y) copyRow(fromTile, y, x0, x1, out.row(y));
            return;
        }
        // The folded columns form one run; the target shows on either side of it.
        int foldStart = x0;
        while (foldStart < x1 && !column[foldStart].folded) ++foldStart;
        int foldEnd = foldStart;
        while (foldEnd < x1 && column[foldEnd].folded) ++foldEnd;
        for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
            float* row = out.row(y);
            copyRow(in[1], y, x0, foldStart, row);
            copyRow(in[1], y, foldEnd, x1, row + 4 * (foldEnd - x0));
            const float fromMiddle = float(y) + 0.5f - f.middle;
            for (int x = foldStart; x < foldEnd; ++x) {
                const Column& c = column[x];
                const Float4 panel = sampleBilinear(fromTile, c.sourceX, f.middle + fromMiddle * c.inverseScale);
                float* dst = row + 4 * (x - x0);
                // An opaque panel hides the target.
                if (panel[3] >= 1.0f) storeFloat4(dst, shaded(panel, c.light));
                else if (panel[3] <= 0.0f) storeFloat4(dst, in[1].pixel(x, y));
                else storeFloat4(dst, over(shaded(panel, c.light), in[1].pixel(x, y)));
            }
        }
    };
    return applyKernel(kernel, {from, to});
}

}  // namespace qm
