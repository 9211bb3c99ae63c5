// Ripple: a circular wave that runs out from a centre and leaves the target behind it.
#include "effects/transitions/kernels/RippleKernel.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "effects/transitions/kernels/dsp/TransitionDSP.h"
#include "effects/transitions/kernels/support/ExtentGeometry.h"
#include "effects/transitions/kernels/support/InputRows.h"
#include "effects/transitions/kernels/support/KernelSetup.h"
#include "effects/transitions/kernels/support/SphereShading.h"
#include "effects/transitions/kernels/support/TileFill.h"

namespace qm {

namespace kernels {

RippleContext::RippleContext(const RippleTransitionParameters& parameters, float time)
    : t(time),
      cx0(float(parameters.center.x)),
      cy0(float(parameters.center.y)),
      scale(float(parameters.scale)),
      halfScale(0.5f * scale),
      slope(std::clamp(0.3f * scale / 50.0f, -0.95f, 0.95f)),
      hasShading(bool(parameters.shadingImage)),
      shadingExtent(parameters.shadingImage.extent()) {
    const float width = float(std::max(parameters.width, 1.0));
    inverseWidth = 1.0f / width;
    // The front leaves the farthest corner, and the back of the wave with it, at time 1.
    front = t * (farthestCorner(parameters.center, parameters.extent) + width);
    back = front - width;
    frontSquared = front * front;
    backSquared = back > 0.0f ? back * back : -1.0f;
    // Displaced reads stay inside the extent, so the wave does not pull in transparency at its
    // edges.
    minX = float(parameters.extent.minX()) + 0.5f;
    maxX = std::max(float(parameters.extent.maxX()) - 0.5f, minX);
    minY = float(parameters.extent.minY()) + 0.5f;
    maxY = std::max(float(parameters.extent.maxY()) - 0.5f, minY);
}

Rect RippleContext::regionOfInterest(size_t index, const Rect& rect) const {
    if (index == 2) return shadingExtent;
    // Only where the wave passes are the pictures read away from the pixel itself.
    if (t <= 0.0f || t >= 1.0f) return rect;
    const double nearX = std::clamp(double(cx0), rect.minX(), rect.maxX()) - cx0;
    const double nearY = std::clamp(double(cy0), rect.minY(), rect.maxY()) - cy0;
    const double farX = std::max(std::fabs(rect.minX() - cx0), std::fabs(rect.maxX() - cx0));
    const double farY = std::max(std::fabs(rect.minY() - cy0), std::fabs(rect.maxY() - cy0));
    const bool touchesWave = std::hypot(nearX, nearY) < front && std::hypot(farX, farY) > back;
    return touchesWave ? outset(rect, std::fabs(scale) * 0.5 + 2.0) : rect;
}

}  // namespace kernels

using namespace kernels;

namespace {

void renderRipple(const RippleContext& c, const ImageTile& out, std::span<const ConstImageTile> in) {
    if (copyEndInput(out, in, c.t)) return;
    const ConstImageTile& fromTile = in[0];
    const ConstImageTile& toTile = in[1];
    std::optional<SphereShading> light;
    if (c.hasShading) light.emplace(in[2], c.shadingExtent);
    const auto waveRun = transitionDSP().rippleWave;
    const int x0 = out.rect.x;
    const int x1 = out.rect.maxX();
    // Pixels left of `split` lie left of the centre, so along a row the squared distance falls up
    // to there and grows after it.
    const int split = fastFloor(std::clamp(c.cx0 - 0.5f, float(x0) - 1.0f, float(x1) - 1.0f)) + 1;
    for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
        const float cy = float(y) + 0.5f;
        const float vy = cy - c.cy0;
        const auto squaredDistance = [&](int x) {
            const float vx = (float(x) + 0.5f) - c.cx0;
            return vx * vx + vy * vy;
        };
        // The pixels [first, end) of the row for which `inside` holds, given that they form one
        // run around `split`.
        const auto run = [&](auto inside) {
            int lo = x0, hi = split;  // the first pixel left of split inside
            while (lo < hi) {
                const int mid = (lo + hi) / 2;
                if (inside(squaredDistance(mid)))
                    hi = mid;
                else
                    lo = mid + 1;
            }
            const int first = lo;
            lo = split, hi = x1;  // the first pixel right of split outside
            while (lo < hi) {
                const int mid = (lo + hi) / 2;
                if (inside(squaredDistance(mid)))
                    lo = mid + 1;
                else
                    hi = mid;
            }
            return std::pair{first, std::max(lo, first)};
        };
        const auto [waveStart, waveEnd] = run([&](float d2) { return d2 < c.frontSquared; });
        auto [wakeStart, wakeEnd] = run([&](float d2) { return d2 <= c.backSquared; });
        if (wakeStart >= wakeEnd) wakeStart = wakeEnd = waveEnd;
        float* row = out.row(y);
        copyRow(fromTile, y, x0, waveStart, row);
        copyRow(fromTile, y, waveEnd, x1, row + 4 * (waveEnd - x0));
        copyRow(toTile, y, wakeStart, wakeEnd, row + 4 * (wakeStart - x0));
        const SphereShading* shading = light ? &*light : nullptr;
        waveRun(c, shading, fromTile, toTile, y, waveStart, wakeStart, row + 4 * (waveStart - x0));
        waveRun(c, shading, fromTile, toTile, y, wakeEnd, waveEnd, row + 4 * (wakeEnd - x0));
    }
}

}  // namespace

Image rippleTransition(const Image& from, const Image& to, double time, const RippleTransitionParameters& parameters) {
    const RippleContext context(parameters, transitionTime(time));
    auto kernel = transitionKernel("ripple");
    // Outside the wave each pixel copies one picture; inside it and on the shading, samples read
    // the bitmaps in place.
    kernel->byteInputs = {true, true, true};
    kernel->regionOfInterest = [context](size_t index, const Rect& rect) {
        return context.regionOfInterest(index, rect);
    };
    kernel->wholeInputs = {false, false, true};
    kernel->render = [context](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch&) {
        renderRipple(context, out, in);
    };
    std::vector<Image> inputs{from, to};
    if (context.hasShading) inputs.push_back(parameters.shadingImage);
    return applyKernel(kernel, std::move(inputs));
}

}  // namespace qm
