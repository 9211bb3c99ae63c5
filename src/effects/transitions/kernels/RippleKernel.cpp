// Ripple: a circular wave that runs out from a centre and leaves the target behind it.
#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "effects/transitions/kernels/KernelSupport.h"
#include "effects/transitions/kernels/TransitionKernels.h"

namespace qm {

using namespace kernels;

Image rippleTransition(const Image& from, const Image& to, double time, const RippleTransitionParameters& parameters) {
    const float t = transitionTime(time);
    const float cx0 = float(parameters.center.x);
    const float cy0 = float(parameters.center.y);
    const float width = float(std::max(parameters.width, 1.0));
    const float inverseWidth = 1.0f / width;
    double reach = 1;
    for (double x : {parameters.extent.minX(), parameters.extent.maxX()}) {
        for (double y : {parameters.extent.minY(), parameters.extent.maxY()})
            reach = std::max(reach, std::hypot(x - parameters.center.x, y - parameters.center.y));
    }
    // The front leaves the farthest corner, and the back of the wave with it, at time 1.
    const float front = t * (float(reach) + width);
    const float back = front - width;
    const float frontSquared = front * front;
    const float backSquared = back > 0.0f ? back * back : -1.0f;
    const float scale = float(parameters.scale);
    const float slope = std::clamp(0.3f * scale / 50.0f, -0.95f, 0.95f);
    // Displaced reads stay inside the extent, so the wave does not pull in transparency at its edges.
    const float minX = float(parameters.extent.minX()) + 0.5f;
    const float maxX = std::max(float(parameters.extent.maxX()) - 0.5f, minX);
    const float minY = float(parameters.extent.minY()) + 0.5f;
    const float maxY = std::max(float(parameters.extent.maxY()) - 0.5f, minY);
    const bool hasShading = bool(parameters.shadingImage);
    const Rect shadingExtent = parameters.shadingImage.extent();

    auto kernel = transitionKernel("ripple");
    // Outside the wave each pixel copies one picture; inside it and on the shading, samples read
    // the bitmaps in place.
    kernel->byteInputs = {true, true, true};
    // Only where the wave passes are the pictures read away from the pixel itself.
    auto touchesWave = [=](const Rect& rect) {
        if (t <= 0.0f || t >= 1.0f) return false;
        const double nearX = std::clamp(double(cx0), rect.minX(), rect.maxX()) - cx0;
        const double nearY = std::clamp(double(cy0), rect.minY(), rect.maxY()) - cy0;
        const double farX = std::max(std::fabs(rect.minX() - cx0), std::fabs(rect.maxX() - cx0));
        const double farY = std::max(std::fabs(rect.minY() - cy0), std::fabs(rect.maxY() - cy0));
        return std::hypot(nearX, nearY) < front && std::hypot(farX, farY) > back;
    };
    kernel->regionOfInterest = [=](size_t index, const Rect& rect) {
        if (index == 2) return shadingExtent;
        return touchesWave(rect) ? outset(rect, std::fabs(scale) * 0.5 + 2.0) : rect;
    };
    kernel->wholeInputs = {false, false, true};
    kernel->render = [=](const ImageTile& out, std::span<const ConstImageTile> in) {
        if (copyEndInput(out, in, t)) return;
        const ConstImageTile& fromTile = in[0];
        const ConstImageTile& toTile = in[1];
        std::optional<SphereShading> shading;
        if (hasShading) shading.emplace(in[2], shadingExtent);
        const int x0 = out.rect.x;
        const int x1 = out.rect.maxX();
        // Pixels left of `split` lie left of the centre, so along a row the squared distance
        // falls up to there and grows after it.
        const int split = fastFloor(std::clamp(cx0 - 0.5f, float(x0) - 1.0f, float(x1) - 1.0f)) + 1;
        for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
            const float cy = float(y) + 0.5f;
            const float vy = cy - cy0;
            const auto squaredDistance = [&](int x) {
                const float vx = (float(x) + 0.5f) - cx0;
                return vx * vx + vy * vy;
            };
            // The pixels [first, end) of the row for which `inside` holds, given that they form
            // one run around `split`.
            const auto run = [&](auto inside) {
                int lo = x0, hi = split;  // the first pixel left of split inside
                while (lo < hi) {
                    const int mid = (lo + hi) / 2;
                    if (inside(squaredDistance(mid))) hi = mid;
                    else lo = mid + 1;
                }
                const int first = lo;
                lo = split, hi = x1;  // the first pixel right of split outside
                while (lo < hi) {
                    const int mid = (lo + hi) / 2;
                    if (inside(squaredDistance(mid))) lo = mid + 1;
                    else hi = mid;
                }
                return std::pair{first, std::max(lo, first)};
            };
            const auto [waveStart, waveEnd] = run([&](float d2) { return d2 < frontSquared; });
            auto [wakeStart, wakeEnd] = run([&](float d2) { return d2 <= backSquared; });
            if (wakeStart >= wakeEnd) wakeStart = wakeEnd = waveEnd;
            float* row = out.row(y);
            copyRow(fromTile, y, x0, waveStart, row);
            copyRow(fromTile, y, waveEnd, x1, row + 4 * (waveEnd - x0));
            copyRow(toTile, y, wakeStart, wakeEnd, row + 4 * (wakeStart - x0));
            const auto wave = [&](int begin, int end) {
                for (int x = begin; x < end; ++x) {
                    const float cx = float(x) + 0.5f;
                    const float vx = cx - cx0;
                    const float d = std::sqrt(squaredDistance(x));
                    const float phase = (front - d) * inverseWidth;  // 0 at the front, 1 at the back
                    const float inverseD = d > 0.0f ? 1.0f / d : 0.0f;
                    const float ux = d > 0.0f ? vx * inverseD : 1.0f;
                    const float uy = vy * inverseD;
                    const float wave = sinOfTurns(phase);
                    const float shift = 0.5f * scale * wave;
                    const float sx = std::clamp(cx - ux * shift, minX, maxX);
                    const float sy = std::clamp(cy - uy * shift, minY, maxY);
                    Float4 value = sampleMix(fromTile, toTile, sx, sy, smooth01(phase));
                    if (shading) value = shading->apply(value, ux * slope * wave, uy * slope * wave);
                    storeFloat4(row + 4 * (x - x0), value);
                }
            };
            wave(waveStart, wakeStart);
            wave(wakeEnd, waveEnd);
        }
    };
    std::vector<Image> inputs{from, to};
    if (hasShading) inputs.push_back(parameters.shadingImage);
    return applyKernel(kernel, std::move(inputs));
}

}  // namespace qm
