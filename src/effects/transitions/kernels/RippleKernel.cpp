// Ripple: a circular wave that runs out from a centre and leaves the target behind it.
#include <cmath>
#include <optional>

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
        const ConstImageTile& fromTile = in[0];
        const ConstImageTile& toTile = in[1];
        std::optional<SphereShading> shading;
        if (hasShading) shading.emplace(in[2], shadingExtent);
        fillTileWithCopies(out, in, [&](int, float cy) {
            const float vy = cy - cy0;
            return [=, &fromTile, &toTile, &shading](int, float cx, Float4& value) {
                if (t <= 0.0f) return 0;
                if (t >= 1.0f) return 1;
                const float vx = cx - cx0;
                const float d2 = vx * vx + vy * vy;
                if (d2 >= frontSquared) return 0;
                if (d2 <= backSquared) return 1;
                const float d = std::sqrt(d2);
                const float phase = (front - d) * inverseWidth;  // 0 at the front, 1 at the back
                const float inverseD = d > 0.0f ? 1.0f / d : 0.0f;
                const float ux = d > 0.0f ? vx * inverseD : 1.0f;
                const float uy = vy * inverseD;
                const float wave = sinOfTurns(phase);
                const float shift = 0.5f * scale * wave;
                const float sx = std::clamp(cx - ux * shift, minX, maxX);
                const float sy = std::clamp(cy - uy * shift, minY, maxY);
                value = sampleMix(fromTile, toTile, sx, sy, smooth01(phase));
                if (shading) value = shading->apply(value, ux * slope * wave, uy * slope * wave);
                return -1;
            };
        });
    };
    std::vector<Image> inputs{from, to};
    if (hasShading) inputs.push_back(parameters.shadingImage);
    return applyKernel(kernel, std::move(inputs));
}

}  // namespace qm
