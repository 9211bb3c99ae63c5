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
        float* pixels = rowBuffer(area.width);
        for (int y = area.y; y < area.maxY(); ++y) {
            copyRow(mask, y, area.x, area.maxX(), pixels);
            int x = 0;
            // Four pixels at a time, turned into rows of red, green and blue.
            for (; x + 4 <= area.width; x += 4, value += 4) {
                const float* p = pixels + 4 * x;
                const Float4 p0 = loadFloat4(p), p1 = loadFloat4(p + 4);
                const Float4 p2 = loadFloat4(p + 8), p3 = loadFloat4(p + 12);
                const Float4 rg01 = __builtin_shufflevector(p0, p1, 0, 4, 1, 5);
                const Float4 rg23 = __builtin_shufflevector(p2, p3, 0, 4, 1, 5);
                const Float4 ba01 = __builtin_shufflevector(p0, p1, 2, 6, 3, 7);
                const Float4 ba23 = __builtin_shufflevector(p2, p3, 2, 6, 3, 7);
                const Float4 red = __builtin_shufflevector(rg01, rg23, 0, 1, 4, 5);
                const Float4 green = __builtin_shufflevector(rg01, rg23, 2, 3, 6, 7);
                const Float4 blue = __builtin_shufflevector(ba01, ba23, 0, 1, 4, 5);
                storeFloat4(value, (red + green + blue) * (1.0f / 3.0f));
            }
            for (; x < area.width; ++x) {
                const Float4 p = loadFloat4(pixels + 4 * x);
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
    // ramp() at pixels x .. x + 3 of `row`.
    Float4 ramp4(const float* row, int x, float threshold, float scale) const {
        const float* p = row + (x - rect.x);
        const Float4 gx = 0.5f * (loadFloat4(p + 1) - loadFloat4(p - 1));
        const Float4 gy = 0.5f * (loadFloat4(p + rect.width) - loadFloat4(p - rect.width));
        const Float4 slope2 = gx * gx + gy * gy;
        const Float4 scaled = (loadFloat4(p) - threshold) * scale;
        const Float4 ramp = clampFloat4(0.5f + scaled / maxFloat4(sqrtFloat4(slope2), splat(1e-4f)), splat(0.0f),
                                        splat(1.0f));
        const Float4 step = scaled > 0.0f ? splat(1.0f) : splat(0.0f);
        return scaled * scaled >= 0.25f * slope2 ? step : ramp;
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
        const int x0 = out.rect.x;
        const int width = out.rect.width;
        if (copyEndInput(out, in, t)) return;
        // Per row: how much of the from image remains at each pixel and the shadow there.
        thread_local std::vector<float> remaining;
        thread_local std::vector<float> shadows;
        remaining.resize(size_t(width));
        shadows.resize(size_t(width));
        for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
            const float* here = grid.row(y);
            const float* caster = grid.row(y - offsetY);
            int i = 0;
            for (; i + 4 <= width; i += 4) {
                storeFloat4(&remaining[size_t(i)], grid.ramp4(here, x0 + i, t, 1.0f));
                const Float4 s = grid.ramp4(caster, x0 + i - offsetX, t, softness);
                storeFloat4(&shadows[size_t(i)], density * (s * s * (3.0f - 2.0f * s)));
            }
            for (; i < width; ++i) {
                remaining[size_t(i)] = grid.ramp(here, x0 + i, t, 1.0f);
                shadows[size_t(i)] = density * smooth01(grid.ramp(caster, x0 + i - offsetX, t, softness));
            }
            // Runs of pixels where the from image remains whole, where only the target shows, and
            // where the two meet or the shadow falls.
            const auto kind = [&](int i) {
                const float remains = remaining[size_t(i)];
                if (remains >= 1.0f) return 0;
                return remains <= 0.0f && shadows[size_t(i)] == 0.0f ? 1 : 2;
            };
            float* row = out.row(y);
            forEachRun(width, kind, [&](int start, int end, int runKind) {
                float* dst = row + 4 * start;
                copyRow(in[runKind == 1 ? 1 : 0], y, x0 + start, x0 + end, dst);
                if (runKind == 1) return;
                // The from image's pixels are in place; where they are not opaque and whole, they go
                // over the shadowed target.
                for (int j = start; j < end; ++j, dst += 4) {
                    const float remains = remaining[size_t(j)];
                    const Float4 top = remains > 0.0f ? loadFloat4(dst) * remains : splat(0.0f);
                    if (top[3] == 1.0f) {
                        storeFloat4(dst, top);
                        continue;
                    }
                    const float shadow = shadows[size_t(j)];
                    const Float4 target = in[1].pixel(x0 + j, y) * (1.0f - shadow) + Float4{0, 0, 0, shadow};
                    storeFloat4(dst, over(top, target));
                }
            });
        }
    };
    return applyKernel(kernel, {from, to, parameters.maskImage});
}

}  // namespace qm
