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
#include "effects/transitions/kernels/AccordionFoldKernel.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <span>

#include "effects/transitions/kernels/dsp/TransitionDSP.h"
#include "effects/transitions/kernels/support/ExtentGeometry.h"
#include "effects/transitions/kernels/support/InputRows.h"
#include "effects/transitions/kernels/support/KernelSetup.h"
#include "effects/transitions/kernels/support/LaneMath.h"
#include "image/PixelMath.h"
#include "image/dsp/FixedPoint.h"

namespace qm {

namespace kernels {

namespace {

// The lit panel of column c in the row `fromMiddle` above the picture's middle, bilinear as
// sampleBilinear. `Bytes` tells whether `from` is a byte tile.
template <bool Bytes>
Float4 litPanel(const Fold& f, const Column& c, const ConstImageTile& from, float fromMiddle) {
    const PixelRect& r = from.rect;
    const float py = f.middle + fromMiddle * c.inverseScale;
    const float v = py - 0.5f;
    const int y0 = fastFloor(v);
    Float4 panel;
    if (c.inside && y0 >= r.y && y0 + 1 < r.maxY()) {
        const float ty = v - float(y0);
        if constexpr (Bytes) {
            const uint8_t* p = from.byteAt(c.x0, y0);
            __builtin_prefetch(p + kPanelPrefetchRows * from.byteStride);
            panel = bilinearBytes(p, p + from.byteStride, c.wx, fixed::weight(ty)) * kByteToFloat;
        } else {
            const float* p = from.at(c.x0, y0);
            const float* q = p + from.rowStride;
            panel = mix(mix(loadFloat4(p), loadFloat4(p + 4), c.tx), mix(loadFloat4(q), loadFloat4(q + 4), c.tx), ty);
        }
    } else if (y0 + 1 < r.y || y0 >= r.maxY()) {
        panel = splat(0.0f);  // above or below the picture
    } else {
        panel = from.sample(c.sourceX, py);
    }
    // As shaded(): colour scaled by the light and limited to alpha, which stays.
    return minFloat4(panel * c.light, splat(panel[3]));
}

// Stores the lit panels of `run` into `dst` (pixel `run.start` first) and widens `clear` over
// those that are not opaque.
template <bool Bytes>
void litPanels(const PanelRun& run, const ConstImageTile& from, float* dst, ClearSpan& clear) {
    for (int x = run.start; x < run.end; ++x, dst += 4) {
        const Float4 lit = litPanel<Bytes>(*run.fold, run.column[x], from, run.fromMiddle);
        storeFloat4(dst, lit);
        if (!(lit[3] >= 1.0f)) clear.widen(x);
    }
}

// One frame of the accordion fold.
struct AccordionFoldContext {
    float t;
    Fold fold;
    float deepest;  // the greatest vertical stretch of the perspective
    Rect fromExtent;

    AccordionFoldContext(const AccordionFoldTransitionParameters& parameters, float time, const Rect& extent)
        : t(time), fromExtent(extent) {
        Fold& f = fold;
        f.left = float(fromExtent.minX());
        f.middle = float(fromExtent.midY());
        f.width = std::max(float(fromExtent.width()), 1.0f);
        f.cosine = std::max(1.0f - t, 1e-4f);
        const float sine = std::sqrt(std::max(1.0f - f.cosine * f.cosine, 0.0f));
        f.panel = f.width / float(std::max(parameters.numberOfFolds, 1.0));
        f.depth = f.panel * sine;
        f.viewer = 4.0f * f.panel;
        f.shadow = float(parameters.foldShadowAmount) * sine;
        deepest = (f.viewer + f.depth) / f.viewer;
    }

    Rect regionOfInterest(size_t index, const Rect& rect) const {
        if (index != 0 || t <= 0.0f) return rect;
        if (t >= 1.0f) return Rect{};
        const Fold& f = fold;
        const double x0 = f.left + std::max(rect.minX() - f.left, 0.0) / f.cosine;
        const double x1 = f.left + std::max(rect.maxX() - f.left, 0.0) / f.cosine;
        const double y0 = f.middle + std::min((rect.minY() - f.middle) * deepest, rect.minY() - f.middle);
        const double y1 = f.middle + std::max((rect.maxY() - f.middle) * deepest, rect.maxY() - f.middle);
        return outset(Rect{x0, y0, x1 - x0, y1 - y0}, 2).intersection(outset(fromExtent, 2));
    }
};

// The pixels of `run` in row y, all folded, into `dst` (pixel `run.start` first): the lit panel
// where it is opaque, else the lit panel over the target, read into `target` (room for the run).
void foldRun(const TransitionDSP& dsp, const PanelRun& run, const ConstImageTile& from, const ConstImageTile& to, int y,
             float* dst, float* target) {
    ClearSpan clear{run.end, run.start - 1};
    if (from.bytes)
        dsp.foldBytePanels(run, from, dst, clear);
    else
        litPanels<false>(run, from, dst, clear);
    if (clear.first > clear.last) return;
    copyRow(to, y, clear.first, clear.last + 1, target);
    float* out = dst + 4 * (clear.first - run.start);
    for (int x = clear.first; x <= clear.last; ++x, out += 4, target += 4) {
        const float alpha = out[3];
        if (alpha >= 1.0f) continue;
        storeFloat4(out, alpha <= 0.0f ? loadFloat4(target) : over(loadFloat4(out), loadFloat4(target)));
    }
}

void renderAccordionFold(const AccordionFoldContext& c, const ImageTile& out, std::span<const ConstImageTile> in,
                         TileScratch& scratch) {
    const ConstImageTile& fromTile = in[0];
    const int x0 = out.rect.x;
    const int x1 = out.rect.maxX();
    if (c.t <= 0.0f) {
        for (int y = out.rect.y; y < out.rect.maxY(); ++y) copyRow(fromTile, y, x0, x1, out.row(y));
        return;
    }
    // The columns of the tile, worked out once. The folded ones form one run; the target shows on
    // either side of it.
    const size_t width = size_t(out.rect.width);
    Column* const columns = scratch.allocate<Column>(width);
    std::uninitialized_fill_n(columns, width, Column{});
    float* const scales = scratch.allocate<float>(width + 8);  // eight more to read in groups
    std::fill_n(scales, width + 8, 1.0f);
    float* const target = scratch.allocate<float>(4 * width);
    const TransitionDSP& dsp = transitionDSP();
    int foldStart = x1;
    int foldEnd = x1;
    const PixelRect& r = fromTile.rect;
    for (int x = x0; x < x1 && c.t < 1.0f; ++x) {
        Column& column = columns[x - x0];
        float light = 1.0f;
        if (!c.fold.column(float(x) + 0.5f, column.sourceX, column.inverseScale, light)) {
            if (foldStart < x1) break;
            continue;
        }
        if (foldStart == x1) foldStart = x;
        foldEnd = x + 1;
        const float u = column.sourceX - 0.5f;
        column.x0 = fastFloor(u);
        column.tx = u - float(column.x0);
        column.wx = fixed::weight(column.tx);
        column.inside = column.x0 >= r.x && column.x0 + 1 < r.maxX();
        column.light = Float4{light, light, light, 1.0f};
        scales[x - x0] = column.inverseScale;
    }
    for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
        float* row = out.row(y);
        copyRow(in[1], y, x0, foldStart, row);
        copyRow(in[1], y, foldEnd, x1, row + 4 * (foldEnd - x0));
        if (foldStart == foldEnd) continue;
        const PanelRun run{&c.fold, columns - x0, scales - x0, float(y) + 0.5f - c.fold.middle, foldStart, foldEnd};
        foldRun(dsp, run, fromTile, in[1], y, row + 4 * (foldStart - x0), target);
    }
}

}  // namespace

void litBytePanels(const PanelRun& run, const ConstImageTile& from, float* dst, ClearSpan& clear) {
    litPanels<true>(run, from, dst, clear);
}

}  // namespace kernels

using namespace kernels;

Image accordionFoldTransition(const Image& from, const Image& to, double time,
                              const AccordionFoldTransitionParameters& parameters) {
    if (!from || !to) return {};
    const AccordionFoldContext context(parameters, transitionTime(time), from.extent());
    auto kernel = transitionKernel("accordionFold");
    kernel->regionOfInterest = [context](size_t index, const Rect& rect) {
        return context.regionOfInterest(index, rect);
    };
    kernel->render = [context](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch& scratch) {
        renderAccordionFold(context, out, in, scratch);
    };
    return applyKernel(kernel, {from, to});
}

}  // namespace qm
