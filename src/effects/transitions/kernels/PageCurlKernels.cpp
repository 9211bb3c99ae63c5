// Page curl, with a shading image or with a cast shadow.
//
// Geometry, along the unit vector d of the angle, with u the position of a point along d measured
// from the centre of the page: the page is rolled up behind the fold line u = L around a cylinder of
// radius r lying on it. Page material at position s < L lies at arc length a = L - s from the fold:
// for a <= pi r on the cylinder at angle a / r (seen at u = L - r sin(a / r)), beyond it flat on top
// of the page, facing down, at u = 2L - pi r - s. So a point with L - r <= u < L sees the upper half
// of the roll (the back of the page) over its lower half (the front), a point with u >= L sees the
// flat top part (back) over the unrolled page (front), and the target shows where no page is.
// L runs from the first corner of the page (time 0) until everything, roll included, is past the
// last corner (time 1). On a page shorter than 2 pi r along d the radius shrinks to fit, so that
// small pictures (thumbnails) still show the curl.
#include <cmath>
#include <cstdint>
#include <optional>

#include "effects/transitions/kernels/KernelSupport.h"
#include "effects/transitions/kernels/PageCurlGeometry.h"
#include "effects/transitions/kernels/TransitionKernels.h"
#include "image/PixelRows.h"

namespace qm {

using namespace kernels;

namespace {

// The least and greatest position along d of the corners of `rect`.
Span alongRect(const CurlGeometry& g, const Rect& rect) {
    Span span{INFINITY, -INFINITY};
    for (double x : {rect.minX(), rect.maxX()}) {
        for (double y : {rect.minY(), rect.maxY()}) {
            const float u = g.along(float(x), float(y));
            span.min = std::min(span.min, u);
            span.max = std::max(span.max, u);
        }
    }
    return span;
}

bool touchesRoll(const CurlGeometry& g, const Span& span) {
    return span.max >= g.line - g.radius && span.min < g.line;
}

// What the front (the unrolled page and the lower half of the roll) reads for `rect`: the pixels
// themselves where the page lies flat, up to (pi / 2 - 1) r behind them under the roll.
Rect frontRegion(const CurlGeometry& g, const Rect& rect) {
    if (g.t <= 0.0f) return rect;
    const Span span = alongRect(g, rect);
    Rect region = span.max >= g.line ? rect : Rect{};
    if (touchesRoll(g, span)) {
        const float reach = kLowerReach * g.radius;
        const Point shift[1] = {{-reach * g.dx, -reach * g.dy}};
        region = region.unionWith(unionOfShifted(rect, shift));
    }
    return region.isEmpty() ? region : outset(region, 2);
}

// What the back (the upper half of the roll and the flat top part) reads for `rect`: under the
// roll from pi r down to (pi / 2 - 1) r behind each point, under the top part the point's mirror
// image across u = L - pi r / 2.
Rect backRegion(const CurlGeometry& g, const Rect& rect) {
    if (g.t <= 0.0f || g.t >= 1.0f) return {};
    const Span span = alongRect(g, rect);
    const float far = kPi * g.radius;
    Rect region;
    if (touchesRoll(g, span)) {
        const float near = kLowerReach * g.radius;
        region = rect.offsetBy(-far * g.dx, -far * g.dy).unionWith(rect.offsetBy(-near * g.dx, -near * g.dy));
    }
    if (span.max >= g.line) {
        double minX = INFINITY, minY = INFINITY, maxX = -INFINITY, maxY = -INFINITY;
        for (double x : {rect.minX(), rect.maxX()}) {
            for (double y : {rect.minY(), rect.maxY()}) {
                const Point image = g.mirror(float(x), float(y));
                minX = std::min(minX, image.x);
                maxX = std::max(maxX, image.x);
                minY = std::min(minY, image.y);
                maxY = std::max(maxY, image.y);
            }
        }
        region = region.unionWith(outset(Rect{minX, minY, maxX - minX, maxY - minY}, 1));
    }
    return region.isEmpty() ? region : outset(region, 2);
}

// What a point shows, by its position u along d; u changes steadily along a row, so these come
// in this order (or its reverse).
enum CurlPart { kPlainTarget, kTargetInShadow, kRoll, kFlat };

// Renders the curl. `shade(color, n, cosine)` lights a curved surface whose normal has the
// in-plane part n along d and the upward part `cosine`; `darkness(cx, cy, u)` gives, four pixels
// at a time, the shadow on the target where no page lies over it, which below u = plainTarget is
// the target unchanged.
template <class Shade, class Darkness>
QM_AVX2_CLONES void renderCurl(const CurlGeometry& g, const ImageTile& out, std::span<const ConstImageTile> in,
                               const Shade& shade, const Darkness& darkness, float plainTarget) {
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
    for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
        const float cy = float(y) + 0.5f;
        float* row = out.row(y);
        const RowReader a(front, y, first, out.rect.maxX());
        const RowReader b(target, y, first, out.rect.maxX());
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
                const int onPage = g.onPage4(ux, uy);
                alignas(16) float upperRead[16];
                const bool together = onPage == 15 && x1 - x >= 4 && back.isBytes() && upper.inside(back) == 15;
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
                case kPlainTarget: copyRow(target, y, x0, x1, row + 4 * start); return;
                case kFlat: forEachMirrorRun(g, cy, x0, x1, flatRun); return;
                case kRoll: rollRun(x0, x1); return;
                default:
                    copyRow(target, y, x0, x1, row + 4 * start);
                    for (int x = x0; x < x1; x += 4) {
                        const Float4 cx = float(x) + kLaneCentres;
                        const Float4 dark = darkness(cx, cy, g.along4(cx, cy));
                        for (int lane = 0; lane < std::min(4, x1 - x); ++lane) {
                            float* pixel = row + 4 * (x + lane - first);
                            storeFloat4(pixel, loadFloat4(pixel) * (1.0f - dark[lane]) + Float4{0, 0, 0, dark[lane]});
                        }
                    }
            }
        });
    }
}

// How much of each point (x, y) lies inside `rect`, anti-aliased over one pixel.
Float4 coverage(const Rect& rect, Float4 x, Float4 y) {
    const Float4 inside = minFloat4(minFloat4(x - float(rect.minX()), float(rect.maxX()) - x),
                                    minFloat4(y - float(rect.minY()), float(rect.maxY()) - y));
    return clampFloat4(inside + 0.5f, splat(0.0f), splat(1.0f));
}

}  // namespace

Image pageCurlTransition(const Image& from, const Image& to, double time, const PageCurlTransitionParameters& parameters) {
    const CurlGeometry g = makeGeometry(transitionTime(time), parameters.extent, parameters.angle, parameters.radius);
    const bool hasShading = bool(parameters.shadingImage);
    const Rect shadingExtent = parameters.shadingImage.extent();

    auto kernel = transitionKernel("pageCurl");
    // The back is read along rows (or sampled in the roll), the front and the target a pixel at
    // a time.
    kernel->byteInputs = {true, true, true, true};
    kernel->regionOfInterest = [=](size_t index, const Rect& rect) {
        switch (index) {
            case 0: return frontRegion(g, rect);
            case 2: return backRegion(g, rect);
            case 3: return shadingExtent;
            default: return rect;
        }
    };
    kernel->wholeInputs = {false, false, false, true};
    kernel->render = [=](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch&) {
        // The normal tilts along d only, so the light is a function of one number.
        std::optional<ShadingProfile> profile;
        if (hasShading && touchesRoll(g, alongRect(g, out.rect.toRect())))
            profile.emplace(SphereShading(in[3], shadingExtent), g.dx, g.dy);
        const auto shade = [&](Float4 color, float n, float) {
            return profile ? SphereShading::lit(color, profile->light(n)) : color;
        };
        const auto noShadow = [](Float4, float, Float4) { return splat(0.0f); };
        renderCurl(g, out, in, shade, noShadow, g.line - g.radius);
    };
    std::vector<Image> inputs{from, to, parameters.backsideImage ? parameters.backsideImage : from};
    if (hasShading) inputs.push_back(parameters.shadingImage);
    return applyKernel(kernel, std::move(inputs));
}

Image pageCurlWithShadowTransition(const Image& from, const Image& to, double time,
                                   const PageCurlWithShadowTransitionParameters& parameters) {
    const CurlGeometry g = makeGeometry(transitionTime(time), parameters.extent, parameters.angle, parameters.radius);
    const float shadowLength = std::max(float(parameters.shadowSize) * 2.0f * g.radius, 1.0f);
    const float shadowAmount = clamp01(float(parameters.shadowAmount));
    const Rect caster = parameters.extent.intersection(parameters.shadowExtent);

    auto kernel = transitionKernel("pageCurlWithShadow");
    // The back is read along rows (or sampled in the roll), the front and the target a pixel at
    // a time.
    kernel->byteInputs = {true, true, true, true};
    kernel->regionOfInterest = [=](size_t index, const Rect& rect) {
        switch (index) {
            case 0: return frontRegion(g, rect);
            case 2: return backRegion(g, rect);
            default: return rect;
        }
    };
    kernel->render = [=](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch&) {
        const auto shade = [](Float4 color, float, float cosine) { return shaded(color, 0.6f + 0.4f * cosine); };
        const auto darkness = [&](Float4 cx, float cy, Float4 u) {
            const Float4 distance = (g.line - g.radius) - u;
            // The page point at the crest of the roll in line with this point casts the shadow.
            const Float4 toCrest = g.line - 0.5f * kPi * g.radius - u;
            const Float4 cast = coverage(caster, cx + toCrest * g.dx, cy + toCrest * g.dy);
            const Float4 fall = 1.0f - distance / shadowLength;
            return distance >= shadowLength ? splat(0.0f) : shadowAmount * fall * fall * cast;
        };
        renderCurl(g, out, in, shade, darkness, g.line - g.radius - shadowLength);
    };
    return applyKernel(kernel, {from, to, parameters.backsideImage ? parameters.backsideImage : from});
}

}  // namespace qm
