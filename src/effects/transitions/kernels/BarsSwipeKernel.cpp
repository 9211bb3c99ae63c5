// Bars swipe: the from image, cut into bars, slides away bar by bar and uncovers the target.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <span>

#include "effects/transitions/kernels/TransitionKernels.h"
#include "effects/transitions/kernels/support/BilinearSampling.h"
#include "effects/transitions/kernels/support/ExtentGeometry.h"
#include "effects/transitions/kernels/support/InputRows.h"
#include "effects/transitions/kernels/support/KernelSetup.h"
#include "effects/transitions/kernels/support/LaneMath.h"
#include "effects/transitions/kernels/support/TileFill.h"
#include "image/PixelRows.h"

namespace qm {

using namespace kernels;

namespace {

struct BarsSwipeContext {
    float dx;  // the direction of travel
    float dy;
    float inverseWidth;  // of a bar
    // How far even bars (0) and odd ones (1) have moved; odd ones trail by the bar offset.
    float distances[2];
    // Along an axis (0 for x, 1 for y, -1 for neither) the bars move by whole pixels, which keeps
    // their pictures sharp and the work a copy: `shifts` along the axis.
    int axis;
    int shifts[2];

    BarsSwipeContext(const BarsSwipeTransitionParameters& parameters, float t, const Rect& fromExtent)
        : dx(float(std::cos(parameters.angle))),
          dy(float(std::sin(parameters.angle))),
          inverseWidth(1.0f / float(std::max(parameters.width, 1.0))) {
        // Each bar travels the from image's length plus the offset, so the last leaves at time 1.
        const float barOffset = float(std::max(parameters.barOffset, 0.0));
        const float travel = t * (projectRect(fromExtent, dx, dy).length() + barOffset);
        distances[0] = travel;
        distances[1] = std::max(travel - barOffset, 0.0f);
        axis = std::fabs(dy) < 1e-3f ? 0 : std::fabs(dx) < 1e-3f ? 1 : -1;
        const int sign = (axis == 0 ? dx : dy) > 0 ? 1 : -1;
        shifts[0] = sign * int(std::lround(distances[0]));
        shifts[1] = sign * int(std::lround(distances[1]));
    }

    Rect regionOfInterest(size_t index, const Rect& rect) const {
        if (index != 0) return rect;
        const Rect even = rect.offsetBy(-distances[0] * dx, -distances[0] * dy);
        const Rect odd = rect.offsetBy(-distances[1] * dx, -distances[1] * dy);
        return outset(even.unionWith(odd), 1);
    }
};

// Pixels x0 <= x < x1 of row y of `tile` into `dst` as copyRow does; true when they are known to
// be opaque (a byte tile covering the span whose alphas are all 255).
bool copyRowOpaque(const ConstImageTile& tile, int y, int x0, int x1, float* dst) {
    copyRow(tile, y, x0, x1, dst);
    const PixelRect& r = tile.rect;
    if (!tile.bytes || y < r.y || y >= r.maxY() || x0 < r.x || x1 > r.maxX()) return false;
    const uint8_t* src = tile.byteAt(x0, y);
    uint32_t alphas = 0xff000000u;
    for (int i = 0; i < x1 - x0; ++i) {
        uint32_t pixel;
        std::memcpy(&pixel, src + 4 * i, sizeof pixel);
        alphas &= pixel;
    }
    return (alphas & 0xff000000u) == 0xff000000u;
}

// Bars along an axis: each row is runs of bars of one parity, each run a shifted copy of the from
// image with the target under whatever of it is not opaque. The parity is a floor of a monotonic
// function of x, so each run ends where it first changes.
void renderAlongAxis(const BarsSwipeContext& c, const ImageTile& out, std::span<const ConstImageTile> in,
                     TileScratch& scratch) {
    const ConstImageTile& fromTile = in[0];
    const int x0 = out.rect.x;
    const int x1 = out.rect.maxX();
    float* target = scratch.allocate<float>(4 * size_t(out.rect.width));
    const float across = c.dy * c.inverseWidth;
    for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
        const float cy = float(y) + 0.5f;
        float* row = out.row(y);
        const float along = cy * c.dx;
        const auto barAt = [&](int x) { return fastFloor((along - (float(x) + 0.5f) * c.dy) * c.inverseWidth); };
        for (int start = x0; start < x1;) {
            const int bar = barAt(start);
            // The next bar begins about where the value reaches bar or bar + 1.
            int end = x1;
            if (across != 0.0f) {
                const double edge = across > 0.0f ? bar : bar + 1;
                const double x = (double(along) * c.inverseWidth - edge) / across - 0.5;
                end = int(std::clamp(std::ceil(x), double(start + 1), double(x1)));
                while (end > start + 1 && barAt(end - 1) != bar) --end;
                while (end < x1 && barAt(end) == bar) ++end;
            }
            const int shift = c.shifts[bar & 1];
            float* dst = row + 4 * (start - x0);
            const bool opaque = c.axis == 0 ? copyRowOpaque(fromTile, y, start - shift, end - shift, dst)
                                            : copyRowOpaque(fromTile, y - shift, start, end, dst);
            if (!opaque) {
                copyRow(in[1], y, start, end, target);
                compositeUnder(dst, target, end - start);
            }
            start = end;
        }
    }
}

// Bars at any other angle, sampled pixel by pixel.
void renderAtAngle(const BarsSwipeContext& c, const ImageTile& out, std::span<const ConstImageTile> in,
                   TileScratch& scratch) {
    const ConstImageTile& fromTile = in[0];
    float* const rowA = scratch.allocate<float>(4 * size_t(out.rect.width));
    float* const rowB = scratch.allocate<float>(4 * size_t(out.rect.width));
    fillTile(out, [&](int y, float cy) {
        const RowReader a(fromTile, y, out.rect.x, out.rect.maxX(), rowA);
        const RowReader b(in[1], y, out.rect.x, out.rect.maxX(), rowB);
        return [=, &fromTile](int x, float cx) {
            const int parity = fastFloor((cy * c.dx - cx * c.dy) * c.inverseWidth) & 1;
            const float distance = c.distances[parity];
            if (distance == 0.0f) return over(a(x), b(x));
            const Float4 moved = sampleBilinear(fromTile, cx - distance * c.dx, cy - distance * c.dy);
            return moved[3] == 1.0f ? moved : over(moved, b(x));
        };
    });
}

}  // namespace

Image barsSwipeTransition(const Image& from, const Image& to, double time,
                          const BarsSwipeTransitionParameters& parameters) {
    if (!from || !to) return {};
    const BarsSwipeContext context(parameters, transitionTime(time), from.extent());
    auto kernel = transitionKernel("barsSwipe");
    kernel->regionOfInterest = [context](size_t index, const Rect& rect) {
        return context.regionOfInterest(index, rect);
    };
    kernel->render = [context](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch& scratch) {
        if (context.axis >= 0)
            renderAlongAxis(context, out, in, scratch);
        else
            renderAtAngle(context, out, in, scratch);
    };
    return applyKernel(kernel, {from, to});
}

}  // namespace qm
