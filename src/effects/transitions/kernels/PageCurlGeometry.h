#pragma once

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include "effects/transitions/kernels/support/ExtentGeometry.h"
#include "effects/transitions/kernels/support/LaneMath.h"
#include "effects/transitions/kernels/support/Runs.h"
#include "image/ImageTile.h"
#include "platform/Geometry.h"

// The geometry of the page curl.
//
// Along the unit vector d of the angle, with u the position of a point along d measured from the
// centre of the page: the page is rolled up behind the fold line u = L around a cylinder of radius
// r lying on it. Page material at position s < L lies at arc length a = L - s from the fold: for
// a <= pi r on the cylinder at angle a / r (seen at u = L - r sin(a / r)), beyond it flat on top of
// the page, facing down, at u = 2L - pi r - s. So a point with L - r <= u < L sees the upper half
// of the roll (the back of the page) over its lower half (the front), a point with u >= L sees the
// flat top part (back) over the unrolled page (front), and the target shows where no page is.
// L runs from the first corner of the page (time 0) until everything, roll included, is past the
// last corner (time 1). On a page shorter than 2 pi r along d the radius shrinks to fit, so that
// small pictures (thumbnails) still show the curl.
namespace qm::kernels {

constexpr float kPi = std::numbers::pi_v<float>;
// The centres of four pixels from a pixel's left edge.
constexpr Float4 kLaneCentres{0.5f, 1.5f, 2.5f, 3.5f};
// Lower half of the roll: material lies up to (pi / 2 - 1) r behind the point that shows it.
constexpr float kLowerReach = kPi * 0.5f - 1.0f;

// A page at one time of its curl: d = (dx, dy), the fold line L and the roll's radius r.
struct CurlGeometry {
    float t = 0;
    float dx = 1;
    float dy = 0;
    float ox = 0;  // centre of the page
    float oy = 0;
    float line = 0;  // L, from the centre
    float radius = 1;

    // The page, grown by a pixel for the anti-aliased edge.
    float minX = 0;
    float minY = 0;
    float maxX = 0;
    float maxY = 0;

    float along(float x, float y) const { return (x - ox) * dx + (y - oy) * dy; }
    // along() of four points on the row y, with the same steps.
    Float4 along4(Float4 x, float y) const { return (x - ox) * dx + (y - oy) * dy; }
    bool onPage(float x, float y) const { return x > minX && x < maxX && y > minY && y < maxY; }
    // onPage() of four points, as a vector comparison.
    Int4 onPageLanes(Float4 x, Float4 y) const { return (x > minX) & (x < maxX) & (y > minY) & (y < maxY); }
    // Where the flat top part over the point at centre (cx, cy) has its page material: the
    // point's mirror image across u = L - pi r / 2.
    Point mirror(float cx, float cy) const {
        const float shift = 2.0f * line - kPi * radius - 2.0f * along(cx, cy);
        return {cx + shift * dx, cy + shift * dy};
    }
    // The mirror images of the pixels of the row at centre cy lie on a line: pixel x's image is at
    // (u + x du, v + x dv), counted with pixel centres on whole numbers.
    struct MirrorRow {
        double u, v, du, dv;
    };
    MirrorRow mirrorRow(float cy) const {
        const double shift = 2.0 * line - double(kPi * radius) - 2.0 * ((0.5 - ox) * dx + (double(cy) - oy) * dy);
        return {shift * dx, double(cy) - 0.5 + shift * dy, 1.0 - 2.0 * double(dx) * dx, -2.0 * double(dx) * dy};
    }
};

// `page` at time t (0..1) of a curl along `angle` (radians) with a roll of `radius`.
inline CurlGeometry makeGeometry(float t, const Rect& page, double angle, double radius) {
    CurlGeometry g;
    g.t = t;
    g.dx = float(std::cos(angle));
    g.dy = float(std::sin(angle));
    g.ox = float(page.midX());
    g.oy = float(page.midY());
    const Span span = projectRect(page.offsetBy(-page.midX(), -page.midY()), g.dx, g.dy);
    g.radius = std::max(std::min(float(radius), span.length() / (2.0f * kPi)), 1.0f);
    g.line = span.min + t * (span.length() + kPi * g.radius + 1.0f);
    g.minX = float(page.minX()) - 1.0f;
    g.minY = float(page.minY()) - 1.0f;
    g.maxX = float(page.maxX()) + 1.0f;
    g.maxY = float(page.maxY()) + 1.0f;
    return g;
}

// The least and greatest position along d of the corners of `rect`.
Span alongRect(const CurlGeometry& g, const Rect& rect);

// Whether positions in `span` along d reach the roll.
bool touchesRoll(const CurlGeometry& g, const Span& span);

// What the front (the unrolled page and the lower half of the roll) reads for `rect`: the pixels
// themselves where the page lies flat, up to (pi / 2 - 1) r behind them under the roll.
Rect frontRegion(const CurlGeometry& g, const Rect& rect);

// What the back (the upper half of the roll and the flat top part) reads for `rect`: under the
// roll from pi r down to (pi / 2 - 1) r behind each point, under the top part the point's mirror
// image across u = L - pi r / 2.
Rect backRegion(const CurlGeometry& g, const Rect& rect);

// The pixels x0 <= x < x1 of row cy split by whether their mirror image (CurlGeometry::mirror)
// lies on the page: each(from, to, onPage) for consecutive runs. The images lie along a straight
// line, so the pixels whose image is well inside or well outside the page (by far more than
// rounding moves it) are found from that line; only those near the page's edges are tested one
// by one.
template <class Each>
void forEachMirrorRun(const CurlGeometry& g, float cy, int x0, int x1, Each&& each) {
    // Pixel x's image has its centre at (ax + bx x, ay + by x).
    const CurlGeometry::MirrorRow row = g.mirrorRow(cy);
    const double ax = row.u + 0.5;
    const double bx = row.du;
    const double ay = row.v + 0.5;
    const double by = row.dv;
    // The pixels whose image lies inside the page grown by `margin` on every side.
    const auto pixelsInside = [&](double margin) {
        double from = double(x0) - 1.0;
        double to = double(x1) + 1.0;
        const auto within = [&](double a, double b, double low, double high) {
            if (b == 0.0) {
                if (!(a > low && a < high)) to = from;
                return;
            }
            const double c0 = (low - a) / b;
            const double c1 = (high - a) / b;
            from = std::max(from, std::min(c0, c1));
            to = std::min(to, std::max(c0, c1));
        };
        within(ax, bx, g.minX - margin, g.maxX + margin);
        within(ay, by, g.minY - margin, g.maxY + margin);
        if (!(from < to)) return std::pair{x0, x0};
        // Both now lie within the row, one pixel beyond its ends at most.
        const int first = std::clamp(int(std::floor(from)) + 1, x0, x1);
        return std::pair{first, std::clamp(int(std::ceil(to)), first, x1)};
    };
    constexpr double kSafeMargin = 0.01;
    auto [surelyFrom, surelyTo] = pixelsInside(-kSafeMargin);
    const auto [maybeFrom, maybeTo] = pixelsInside(kSafeMargin);
    if (surelyFrom >= surelyTo) surelyFrom = surelyTo = maybeTo;
    const auto tested = [&](int from, int to) {
        const auto onPage = [&](int i) {
            const Point p = g.mirror(float(from + i) + 0.5f, cy);
            return int(g.onPage(float(p.x), float(p.y)));
        };
        forEachRun(to - from, onPage, [&](int s, int e, int inside) { each(from + s, from + e, inside != 0); });
    };
    // Off, near the edge, on, near the edge, off.
    const int bounds[] = {x0, maybeFrom, surelyFrom, surelyTo, maybeTo, x1};
    for (int i = 0; i < 5; ++i) {
        if (bounds[i] >= bounds[i + 1]) continue;
        if (i % 2) tested(bounds[i], bounds[i + 1]);
        else each(bounds[i], bounds[i + 1], i == 2);
    }
}

}  // namespace qm::kernels
