// Disintegrate with mask: the from image falls apart where the mask is darker than the time.
//
// With m the mask's luminance and g the length of its gradient (central differences), the signed
// distance of a pixel to the edge at time t is (m - t) / g pixels, positive where the from image
// remains. The from image covers clamp(distance + 0.5, 0, 1) of the pixel. The shadow at a pixel
// is that of the remaining picture at the pixel minus the offset (rounded to whole pixels):
// density * smoothstep(0.5 + distance / (2 * radius)), a silhouette softened over the radius.
#include <cmath>
#include <vector>

#include "effects/transitions/kernels/KernelSupport.h"
#include "effects/transitions/kernels/TransitionKernels.h"

namespace qm {

using namespace kernels;

namespace {

// The mask's luminance over `rect`, one float per pixel.
struct LuminanceGrid {
    PixelRect rect;
    std::vector<float> values;

    void fill(const ConstImageTile& mask, const PixelRect& area) {
        rect = area;
        values.resize(size_t(area.area()));
        float* value = values.data();
        for (int y = area.y; y < area.maxY(); ++y) {
            const RowReader row(mask, y, area.x, area.maxX());
            for (int x = area.x; x < area.maxX(); ++x) {
                const Float4 p = row(x);
                *value++ = (p[0] + p[1] + p[2]) * (1.0f / 3.0f);
            }
        }
    }
    const float* row(int y) const { return values.data() + size_t(y - rect.y) * size_t(rect.width); }
    // clamp(0.5 + scale * d, 0, 1), d being the signed distance in pixels from pixel x (in image
    // coordinates) of `row` to the edge at `threshold`. The square root is taken only where the
    // result is not 0 or 1.
    float ramp(const float* row, int x, float threshold, float scale) const {
        const float* p = row + (x - rect.x);
        const float gx = 0.5f * (p[1] - p[-1]);
        const float gy = 0.5f * (p[rect.width] - p[-rect.width]);
        const float slope2 = gx * gx + gy * gy;
        const float scaled = (*p - threshold) * scale;
        if (scaled * scaled >= 0.25f * slope2) return scaled > 0.0f ? 1.0f : 0.0f;
        return clamp01(0.5f + scaled / std::max(std::sqrt(slope2), 1e-4f));
    }
};

}  // namespace

Image disintegrateWithMaskTransition(const Image& from, const Image& to, double time,
                                     const DisintegrateWithMaskTransitionParameters& parameters) {
    const float t = transitionTime(time);
    const int offsetX = int(std::lround(parameters.shadowOffset.x));
    const int offsetY = int(std::lround(parameters.shadowOffset.y));
    const float softness = 1.0f / (2.0f * std::max(float(parameters.shadowRadius), 0.5f));
    const float density = clamp01(float(parameters.shadowDensity));

    auto kernel = transitionKernel("disintegrateWithMask");
    kernel->regionOfInterest = [=](size_t index, const Rect& rect) {
        if (index != 2) return rect;
        const Point shift[1] = {{double(-offsetX), double(-offsetY)}};
        return outset(unionOfShifted(rect, shift), 1);
    };
    kernel->render = [=](const ImageTile& out, std::span<const ConstImageTile> in) {
        thread_local LuminanceGrid grid;
        if (t > 0.0f && t < 1.0f) {
            const PixelRect shifted{out.rect.x - offsetX, out.rect.y - offsetY, out.rect.width, out.rect.height};
            grid.fill(in[2], out.rect.unionWith(shifted).outsetBy(1, 1));
        }
        fillTileWithCopies(out, in, [&](int y, float) {
            const RowReader a(in[0], y, out.rect.x, out.rect.maxX());
            const RowReader b(in[1], y, out.rect.x, out.rect.maxX());
            const bool between = t > 0.0f && t < 1.0f;
            const float* here = between ? grid.row(y) : nullptr;
            const float* caster = between ? grid.row(y - offsetY) : nullptr;
            return [&, a, b, here, caster](int x, float, Float4& value) {
                if (t <= 0.0f) return 0;
                if (t >= 1.0f) return 1;
                const float remains = grid.ramp(here, x, t, 1.0f);
                // Where the from image remains opaque it hides the target and its shadow.
                const Float4 top = remains > 0.0f ? a(x) * remains : splat(0.0f);
                if (top[3] == 1.0f) {
                    value = top;
                    return -1;
                }
                const float shadow = density * smooth01(grid.ramp(caster, x - offsetX, t, softness));
                if (shadow == 0.0f && remains <= 0.0f) return 1;
                const Float4 target = b(x) * (1.0f - shadow) + Float4{0, 0, 0, shadow};
                value = over(top, target);
                return -1;
            };
        });
    };
    return applyKernel(kernel, {from, to, parameters.maskImage});
}

}  // namespace qm
