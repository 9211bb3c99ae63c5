#include "effects/transitions/kernels/PageCurlGeometry.h"

namespace qm::kernels {

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

bool touchesRoll(const CurlGeometry& g, const Span& span) { return span.max >= g.line - g.radius && span.min < g.line; }

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

}  // namespace qm::kernels
