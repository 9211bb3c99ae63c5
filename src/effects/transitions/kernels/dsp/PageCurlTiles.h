#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <span>

#include "effects/transitions/kernels/PageCurlGeometry.h"
#include "effects/transitions/kernels/PageCurlKernel.h"
#include "effects/transitions/kernels/PageCurlWithShadowKernel.h"
#include "effects/transitions/kernels/support/BilinearSampling.h"
#include "effects/transitions/kernels/support/InputRows.h"
#include "effects/transitions/kernels/support/LaneMath.h"
#include "effects/transitions/kernels/support/Runs.h"
#include "effects/transitions/kernels/support/SphereShading.h"
#include "effects/transitions/kernels/support/TileFill.h"
#include "image/ImageTile.h"
#include "image/PixelRows.h"
#include "image/TileScratch.h"

namespace qm::kernels {

// The page curls' tiles, built for each instruction set from this one source (see
// TransitionDSP.h).
template <class Simd>
struct PageCurlTiles {
    // The curl lit from `profile`, the shading along d, or unlit without one.
    static void withShading(const PageCurlContext& c, const ShadingProfile* profile, const ImageTile& out,
                            std::span<const ConstImageTile> in, TileScratch& scratch) {
        const auto shade = [profile](Float4 color, float n, float) {
            return profile ? SphereShading::lit(color, profile->light(n)) : color;
        };
        const auto noShadow = [](Float4, float, Float4) { return splat(0.0f); };
        render(c.g, out, in, scratch, shade, noShadow, c.g.line - c.g.radius);
    }

    // The curl shaded by the cosine of its slope, casting a shadow on the target.
    static void withShadow(const PageCurlWithShadowContext& c, const ImageTile& out, std::span<const ConstImageTile> in,
                           TileScratch& scratch) {
        const CurlGeometry& g = c.g;
        const auto shade = [](Float4 color, float, float cosine) { return shaded(color, 0.6f + 0.4f * cosine); };
        const auto darkness = [&](Float4 cx, float cy, Float4 u) {
            const Float4 distance = (g.line - g.radius) - u;
            // The page point at the crest of the roll in line with this point casts the shadow.
            const Float4 toCrest = g.line - 0.5f * kPi * g.radius - u;
            const Float4 cast = coverage(c.caster, cx + toCrest * g.dx, cy + toCrest * g.dy);
            const Float4 fall = 1.0f - distance / c.shadowLength;
            return distance >= c.shadowLength ? splat(0.0f) : c.shadowAmount * fall * fall * cast;
        };
        render(g, out, in, scratch, shade, darkness, g.line - g.radius - c.shadowLength);
    }

private:
    // What a point shows, by its position u along d; u changes steadily along a row, so these
    // come in this order (or its reverse).
    enum CurlPart { kPlainTarget, kTargetInShadow, kRoll, kFlat };

    // Renders the curl. `shade(color, n, cosine)` lights a curved surface whose normal has the
    // in-plane part n along d and the upward part `cosine`; `darkness(cx, cy, u)` gives, four
    // pixels at a time, the shadow on the target where no page lies over it, which below
    // u = plainTarget is the target unchanged.
    template <class Shade, class Darkness>
    static void render(const CurlGeometry& g, const ImageTile& out, std::span<const ConstImageTile> in,
                       TileScratch& scratch, const Shade& shade, const Darkness& darkness, float plainTarget) {
        if (copyEndInput(out, in, g.t)) return;
        const ConstImageTile& front = in[0];
        const ConstImageTile& target = in[1];
        const ConstImageTile& back = in[2];
        const float line = g.line;
        const float radius = g.radius;
        // The flat top part of a row mirrors the page across a line, so its samples run along a
        // straight line through the back (CurlGeometry::mirrorRow); where the back is a bitmap they are
        // taken a row at a time.
        const BitmapView backView{back.isBytes() ? back.byteAt(0, 0) : nullptr, -back.byteStride, back.rect};
        const int first = out.rect.x;
        float* const rowA = scratch.allocate<float>(4 * size_t(out.rect.width));
        float* const rowB = scratch.allocate<float>(4 * size_t(out.rect.width));
        for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
            const float cy = float(y) + 0.5f;
            float* row = out.row(y);
            const RowReader a(front, y, first, out.rect.maxX(), rowA);
            const RowReader b(target, y, first, out.rect.maxX(), rowB);
            const auto part = [&](int i) {
                const float u = g.along(float(first + i) + 0.5f, cy);
                return u < plainTarget ? kPlainTarget : u < line - radius ? kTargetInShadow : u < line ? kRoll : kFlat;
            };
            // The flat top part over the unrolled page, for pixels x0 <= x < x1 whose mirror image
            // lies on the page (`mirrored`) or off it.
            const auto flatRun = [&](int x0, int x1, bool mirrored) {
                float* dst = row + 4 * (x0 - first);
                const int count = x1 - x0;
                if (!mirrored) {
                    copyRow(front, y, x0, x1, dst);
                    if (allOpaque(dst, count)) return;
                    for (int x = x0; x < x1; ++x) {
                        const Float4 flat = loadFloat4(dst + 4 * (x - x0));
                        if (flat[3] < 1.0f) storeFloat4(dst + 4 * (x - x0), over(flat, b(x)));
                    }
                    return;
                }
                if (backView.rowZero) {
                    const CurlGeometry::MirrorRow mirror = g.mirrorRow(cy);
                    const int64_t u = std::llround(mirror.u * 65536);
                    const int64_t v = std::llround(mirror.v * 65536);
                    const int64_t du = std::llround(mirror.du * 65536);
                    const int64_t dv = std::llround(mirror.dv * 65536);
                    sampleBitmapRow(backView, u + x0 * du, v + x0 * dv, du, dv, kByteToFloat, dst, count);
                } else {
                    for (int x = x0; x < x1; ++x) {
                        const Point p = g.mirror(float(x) + 0.5f, cy);
                        storeFloat4(dst + 4 * (x - x0), sampleBilinear(back, float(p.x), float(p.y)));
                    }
                }
                if (allOpaque(dst, count)) return;
                for (int x = x0; x < x1; ++x) {
                    const Float4 top = loadFloat4(dst + 4 * (x - x0));
                    if (top[3] >= 1.0f) continue;
                    Float4 flat = a(x);
                    if (flat[3] < 1.0f) flat = over(flat, b(x));
                    storeFloat4(dst + 4 * (x - x0), over(top, flat));
                }
            };
            // The roll over pixels x0 <= x < x1, its geometry worked out four pixels at a time.
            const auto rollRun = [&](int x0, int x1) {
                for (int x = x0; x < x1; x += 4) {
                    const Float4 cx = float(x) + kLaneCentres;
                    const Float4 u = g.along4(cx, cy);
                    const Float4 sine = minFloat4((line - u) / radius, splat(1.0f));
                    const Float4 angle = asinOfUnit4(sine);
                    const Float4 cosine = sqrtFloat4(maxFloat4(1.0f - sine * sine, splat(0.0f)));
                    const Float4 upperShift = line - radius * (kPi - angle) - u;
                    const Float4 ux = cx + upperShift * g.dx;
                    const Float4 uy = cy + upperShift * g.dy;
                    const Float4 lowerShift = line - radius * angle - u;
                    const Float4 lx = cx + lowerShift * g.dx;
                    const Float4 ly = cy + lowerShift * g.dy;
                    // Where all four upper points lie on the page and inside a byte tile, they are read
                    // at once.
                    const Samples4 upper(ux, uy);
                    const int onPage = Simd::laneBits(g.onPageLanes(ux, uy));
                    alignas(16) float upperRead[16];
                    const bool together =
                        onPage == 15 && x1 - x >= 4 && back.isBytes() && Simd::laneBits(upper.insideLanes(back)) == 15;
                    if (together) upper.blendBytes(back, upperRead);
                    for (int lane = 0; lane < std::min(4, x1 - x); ++lane) {
                        Float4 value = splat(0.0f);
                        if (together)
                            value = shade(loadFloat4(upperRead + 4 * lane), -sine[lane], cosine[lane]);
                        else if ((onPage >> lane) & 1)
                            value = shade(sampleBilinear(back, ux[lane], uy[lane]), -sine[lane], cosine[lane]);
                        if (value[3] < 1.0f) {
                            Float4 lower = splat(0.0f);
                            if (g.onPage(lx[lane], ly[lane]))
                                lower = shade(sampleBilinear(front, lx[lane], ly[lane]), sine[lane], cosine[lane]);
                            value = over(value, over(lower, b(x + lane)));
                        }
                        storeFloat4(row + 4 * (x + lane - first), value);
                    }
                }
            };
            forEachOrderedRun(out.rect.width, part, [&](int start, int end, int kind) {
                const int x0 = first + start;
                const int x1 = first + end;
                switch (kind) {
                    case kPlainTarget:
                        copyRow(target, y, x0, x1, row + 4 * start);
                        return;
                    case kFlat:
                        forEachMirrorRun(g, cy, x0, x1, flatRun);
                        return;
                    case kRoll:
                        rollRun(x0, x1);
                        return;
                    default:
                        copyRow(target, y, x0, x1, row + 4 * start);
                        for (int x = x0; x < x1; x += 4) {
                            const Float4 cx = float(x) + kLaneCentres;
                            const Float4 dark = darkness(cx, cy, g.along4(cx, cy));
                            for (int lane = 0; lane < std::min(4, x1 - x); ++lane) {
                                float* pixel = row + 4 * (x + lane - first);
                                storeFloat4(pixel,
                                            loadFloat4(pixel) * (1.0f - dark[lane]) + Float4{0, 0, 0, dark[lane]});
                            }
                        }
                }
            });
        }
    }

    // How much of each point (x, y) lies inside `rect`, anti-aliased over one pixel.
    static Float4 coverage(const Rect& rect, Float4 x, Float4 y) {
        const Float4 inside = minFloat4(minFloat4(x - float(rect.minX()), float(rect.maxX()) - x),
                                        minFloat4(y - float(rect.minY()), float(rect.maxY()) - y));
        return clampFloat4(inside + 0.5f, splat(0.0f), splat(1.0f));
    }
};

}  // namespace qm::kernels
