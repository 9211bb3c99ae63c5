// Dissolve, swipe, bars swipe and copy machine: transitions whose boundary is a straight line.
#include <cmath>
#include <cstdint>
#include <cstring>

#include "effects/transitions/kernels/KernelSupport.h"
#include "effects/transitions/kernels/TransitionKernels.h"
#include "image/PixelRows.h"

namespace qm {

using namespace kernels;

namespace {

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

}  // namespace

Image dissolveTransition(const Image& from, const Image& to, double time) {
    const float t = transitionTime(time);
    auto kernel = transitionKernel("dissolve");
    kernel->render = [t](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch&) {
        if (copyEndInput(out, in, t)) return;
        const int width = out.rect.width;
        for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
            float* row = out.row(y);
            float* target = rowBuffer(width);
            copyRow(in[0], y, out.rect.x, out.rect.maxX(), row);
            copyRow(in[1], y, out.rect.x, out.rect.maxX(), target);
            mixRows(row, target, t, row, 4 * width);
        }
    };
    return applyKernel(kernel, {from, to});
}

Image swipeTransition(const Image& from, const Image& to, double time, const SwipeTransitionParameters& parameters) {
    const float t = transitionTime(time);
    const float dx = float(std::cos(parameters.angle));
    const float dy = float(std::sin(parameters.angle));
    const Span span = projectRect(parameters.extent, dx, dy);
    const float width = float(std::max(parameters.width, 1.0));
    // The centre of the band: half a band before the extent at time 0, half a band past it at 1.
    const float edge = span.min - 0.5f * width + t * (span.length() + width);
    const Float4 tint = premultiplied(parameters.color);
    const float opacity = clamp01(float(parameters.opacity));

    auto kernel = transitionKernel("swipe");
    kernel->render = [=](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch&) {
        fillTileWithCopies(out, in, [&](int y, float cy) {
            const RowReader a(in[0], y, out.rect.x, out.rect.maxX());
            const RowReader b(in[1], y, out.rect.x, out.rect.maxX());
            const float rowOffset = cy * dy - edge;
            return [=](int x, float cx, Float4& value) {
                // 0 on the target's side of the band, 1 on the from image's side.
                const float s = (cx * dx + rowOffset) / width + 0.5f;
                if (s >= 1.0f) return 0;
                if (s <= 0.0f) return 1;
                const Float4 base = mix(b(x), a(x), s);
                value = mix(base, tint, opacity * 4.0f * s * (1.0f - s));
                return -1;
            };
        });
    };
    return applyKernel(kernel, {from, to});
}

Image barsSwipeTransition(const Image& from, const Image& to, double time,
                          const BarsSwipeTransitionParameters& parameters) {
    if (!from || !to) return {};
    const float t = transitionTime(time);
    const float dx = float(std::cos(parameters.angle));
    const float dy = float(std::sin(parameters.angle));
    const float inverseWidth = 1.0f / float(std::max(parameters.width, 1.0));
    const float barOffset = float(std::max(parameters.barOffset, 0.0));
    const float travel = t * (projectRect(from.extent(), dx, dy).length() + barOffset);

    // Even bars travel the full distance, odd ones trail by the bar offset.
    const float distances[2] = {travel, std::max(travel - barOffset, 0.0f)};

    auto kernel = transitionKernel("barsSwipe");
    kernel->regionOfInterest = [=](size_t index, const Rect& rect) {
        if (index != 0) return rect;
        const Rect even = rect.offsetBy(-distances[0] * dx, -distances[0] * dy);
        const Rect odd = rect.offsetBy(-distances[1] * dx, -distances[1] * dy);
        return outset(even.unionWith(odd), 1);
    };
    // Along an axis the bars move by whole pixels, which keeps their pictures sharp and the work a copy.
    const int axis = std::fabs(dy) < 1e-3f ? 0 : std::fabs(dx) < 1e-3f ? 1 : -1;
    const int sign = (axis == 0 ? dx : dy) > 0 ? 1 : -1;
    const int shifts[2] = {sign * int(std::lround(distances[0])), sign * int(std::lround(distances[1]))};
    kernel->render = [=](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch&) {
        const ConstImageTile& fromTile = in[0];
        const int x0 = out.rect.x;
        const int x1 = out.rect.maxX();
        if (axis >= 0) {
            // Each row is runs of bars of one parity, each run a shifted copy of the from image
            // with the target under whatever of it is not opaque. The parity is a floor of a
            // monotonic function of x, so each run ends where it first changes.
            const float across = dy * inverseWidth;
            for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
                const float cy = float(y) + 0.5f;
                float* row = out.row(y);
                const float along = cy * dx;
                const auto barAt = [&](int x) { return fastFloor((along - (float(x) + 0.5f) * dy) * inverseWidth); };
                for (int start = x0; start < x1;) {
                    const int bar = barAt(start);
                    // The next bar begins about where the value reaches bar or bar + 1.
                    int end = x1;
                    if (across != 0.0f) {
                        const double edge = across > 0.0f ? bar : bar + 1;
                        const double x = (double(along) * inverseWidth - edge) / across - 0.5;
                        end = int(std::clamp(std::ceil(x), double(start + 1), double(x1)));
                        while (end > start + 1 && barAt(end - 1) != bar) --end;
                        while (end < x1 && barAt(end) == bar) ++end;
                    }
                    const int shift = shifts[bar & 1];
                    float* dst = row + 4 * (start - x0);
                    const bool opaque = axis == 0 ? copyRowOpaque(fromTile, y, start - shift, end - shift, dst)
                                                  : copyRowOpaque(fromTile, y - shift, start, end, dst);
                    if (!opaque) {
                        float* target = rowBuffer(end - start);
                        copyRow(in[1], y, start, end, target);
                        compositeUnder(dst, target, end - start);
                    }
                    start = end;
                }
            }
            return;
        }
        fillTile(out, [&](int y, float cy) {
            const RowReader a(fromTile, y, x0, x1);
            const RowReader b(in[1], y, x0, x1);
            return [=, &fromTile](int x, float cx) {
                const int parity = fastFloor((cy * dx - cx * dy) * inverseWidth) & 1;
                const float distance = distances[parity];
                if (distance == 0.0f) return over(a(x), b(x));
                const Float4 moved = sampleBilinear(fromTile, cx - distance * dx, cy - distance * dy);
                return moved[3] == 1.0f ? moved : over(moved, b(x));
            };
        });
    };
    return applyKernel(kernel, {from, to});
}

Image copyMachineTransition(const Image& from, const Image& to, double time,
                            const CopyMachineTransitionParameters& parameters) {
    const float t = transitionTime(time);
    const float dx = float(std::cos(parameters.angle));
    const float dy = float(std::sin(parameters.angle));
    const Span span = projectRect(parameters.extent, dx, dy);
    const float width = float(std::max(parameters.width, 1.0));
    const float halfWidth = 0.5f * width;
    const float line = span.min - halfWidth + t * (span.length() + width);
    const Float4 light = premultiplied(parameters.color);
    const float opacity = float(parameters.opacity);

    auto kernel = transitionKernel("copyMachine");
    kernel->render = [=](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch&) {
        fillTileWithCopies(out, in, [&](int y, float cy) {
            const RowReader a(in[0], y, out.rect.x, out.rect.maxX());
            const RowReader b(in[1], y, out.rect.x, out.rect.maxX());
            const float rowOffset = cy * dy - line;
            return [=](int x, float cx, Float4& value) {
                const float u = cx * dx + rowOffset;  // signed distance ahead of the line
                const float distance = std::fabs(u) / halfWidth;
                if (distance >= 1.0f) return u > 0.0f ? 0 : 1;
                Float4 base = mix(a(x), b(x), clamp01(0.5f - u));
                const float strength = opacity * (1.0f - distance) * (1.0f - distance) * base[3];
                const float alpha = base[3];
                value = minFloat4(base + light * strength, splat(alpha));
                value[3] = alpha;
                return -1;
            };
        });
    };
    return applyKernel(kernel, {from, to});
}

}  // namespace qm
