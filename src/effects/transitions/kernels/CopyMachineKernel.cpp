// Copy machine: a scanner light crosses the picture and leaves the target behind its centre line.
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

struct CopyMachineContext {
    float dx;  // the direction of travel
    float dy;
    float halfWidth;  // of the light
    float line;       // the light's centre line along (dx, dy)
    Float4 light;
    float opacity;

    CopyMachineContext(const CopyMachineTransitionParameters& parameters, float t)
        : dx(float(std::cos(parameters.angle))),
          dy(float(std::sin(parameters.angle))),
          light(premultiplied(parameters.color)),
          opacity(float(parameters.opacity)) {
        const Span span = projectRect(parameters.extent, dx, dy);
        const float width = float(std::max(parameters.width, 1.0));
        halfWidth = 0.5f * width;
        line = span.min - halfWidth + t * (span.length() + width);
    }
};

void renderCopyMachine(const CopyMachineContext& c, const ImageTile& out, std::span<const ConstImageTile> in,
                       TileScratch& scratch) {
    float* const rowA = scratch.allocate<float>(4 * size_t(out.rect.width));
    float* const rowB = scratch.allocate<float>(4 * size_t(out.rect.width));
    fillTileWithCopies(out, in, [&](int y, float cy) {
        const RowReader a(in[0], y, out.rect.x, out.rect.maxX(), rowA);
        const RowReader b(in[1], y, out.rect.x, out.rect.maxX(), rowB);
        const float rowOffset = cy * c.dy - c.line;
        return [=](int x, float cx, Float4& value) {
            const float u = cx * c.dx + rowOffset;  // signed distance ahead of the line
            const float distance = std::fabs(u) / c.halfWidth;
            if (distance >= 1.0f) return u > 0.0f ? 0 : 1;
            const Float4 base = mix(a(x), b(x), clamp01(0.5f - u));
            const float strength = c.opacity * (1.0f - distance) * (1.0f - distance) * base[3];
            const float alpha = base[3];
            value = minFloat4(base + c.light * strength, splat(alpha));
            value[3] = alpha;
            return -1;
        };
    });
}

}  // namespace

Image copyMachineTransition(const Image& from, const Image& to, double time,
                            const CopyMachineTransitionParameters& parameters) {
    const CopyMachineContext context(parameters, transitionTime(time));
    auto kernel = transitionKernel("copyMachine");
    kernel->render = [context](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch& scratch) {
        renderCopyMachine(context, out, in, scratch);
    };
    return applyKernel(kernel, {from, to});
}

}  // namespace qm
