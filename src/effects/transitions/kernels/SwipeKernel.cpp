// Swipe: a soft, tinted edge sweeps across the picture and leaves the target behind it.
#include <algorithm>
#include <cmath>
#include <span>

#include "effects/transitions/kernels/TransitionKernels.h"
#include "effects/transitions/kernels/support/ExtentGeometry.h"
#include "effects/transitions/kernels/support/InputRows.h"
#include "effects/transitions/kernels/support/KernelSetup.h"
#include "effects/transitions/kernels/support/LaneMath.h"
#include "effects/transitions/kernels/support/TileFill.h"

namespace qm {

using namespace kernels;

namespace {

struct SwipeContext {
    float dx;  // the direction of travel
    float dy;
    float width;  // of the band
    float edge;   // the centre of the band along (dx, dy)
    Float4 tint;
    float opacity;

    SwipeContext(const SwipeTransitionParameters& parameters, float t)
        : dx(float(std::cos(parameters.angle))),
          dy(float(std::sin(parameters.angle))),
          width(float(std::max(parameters.width, 1.0))),
          tint(premultiplied(parameters.color)),
          opacity(clamp01(float(parameters.opacity))) {
        // Half a band before the extent at time 0, half a band past it at 1.
        const Span span = projectRect(parameters.extent, dx, dy);
        edge = span.min - 0.5f * width + t * (span.length() + width);
    }
};

void renderSwipe(const SwipeContext& c, const ImageTile& out, std::span<const ConstImageTile> in,
                 TileScratch& scratch) {
    float* const rowA = scratch.allocate<float>(4 * size_t(out.rect.width));
    float* const rowB = scratch.allocate<float>(4 * size_t(out.rect.width));
    fillTileWithCopies(out, in, [&](int y, float cy) {
        const RowReader a(in[0], y, out.rect.x, out.rect.maxX(), rowA);
        const RowReader b(in[1], y, out.rect.x, out.rect.maxX(), rowB);
        const float rowOffset = cy * c.dy - c.edge;
        return [=, dx = c.dx, width = c.width, tint = c.tint, opacity = c.opacity](int x, float cx, Float4& value) {
            // 0 on the target's side of the band, 1 on the from image's side.
            const float s = (cx * dx + rowOffset) / width + 0.5f;
            if (s >= 1.0f) return 0;
            if (s <= 0.0f) return 1;
            const Float4 base = mix(b(x), a(x), s);
            value = mix(base, tint, opacity * 4.0f * s * (1.0f - s));
            return -1;
        };
    });
}

}  // namespace

Image swipeTransition(const Image& from, const Image& to, double time, const SwipeTransitionParameters& parameters) {
    const SwipeContext context(parameters, transitionTime(time));
    auto kernel = transitionKernel("swipe");
    kernel->render = [context](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch& scratch) {
        renderSwipe(context, out, in, scratch);
    };
    return applyKernel(kernel, {from, to});
}

}  // namespace qm
