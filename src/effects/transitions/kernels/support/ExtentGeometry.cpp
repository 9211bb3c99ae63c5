#include "effects/transitions/kernels/support/ExtentGeometry.h"

#include <algorithm>
#include <cmath>

namespace qm::kernels {

Span projectRect(const Rect& rect, double dx, double dy) {
    const double xs[2] = {rect.minX(), rect.maxX()};
    const double ys[2] = {rect.minY(), rect.maxY()};
    double lo = xs[0] * dx + ys[0] * dy;
    double hi = lo;
    for (double x : xs) {
        for (double y : ys) {
            const double d = x * dx + y * dy;
            lo = std::min(lo, d);
            hi = std::max(hi, d);
        }
    }
    return {float(lo), float(hi)};
}

float farthestCorner(const Point& center, const Rect& rect) {
    double farthest = 1;
    for (double x : {rect.minX(), rect.maxX()}) {
        for (double y : {rect.minY(), rect.maxY()})
            farthest = std::max(farthest, std::hypot(x - center.x, y - center.y));
    }
    return float(farthest);
}

Rect unionOfShifted(const Rect& rect, std::span<const Point> shifts) {
    Rect result = rect;
    for (const Point& shift : shifts) result = result.unionWith(rect.offsetBy(shift.x, shift.y));
    return result;
}

}  // namespace qm::kernels
