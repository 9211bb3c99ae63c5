#pragma once

#include <span>

#include "platform/Geometry.h"

// Rectangles and distances in image space that the transitions work out their extents, regions
// of interest and sweeps from.
namespace qm::kernels {

// The least and greatest of dot(corner, (dx, dy)) over the corners of a rect.
struct Span {
    float min = 0;
    float max = 0;
    float length() const { return max - min; }
};
Span projectRect(const Rect& rect, double dx, double dy);

// The distance from `center` to the farthest corner of `rect`, at least one pixel.
float farthestCorner(const Point& center, const Rect& rect);

// `rect` grown by `d` on every side.
inline Rect outset(const Rect& rect, double d) {
    return Rect{rect.origin.x - d, rect.origin.y - d, rect.size.width + 2 * d, rect.size.height + 2 * d};
}

// The bounding box of `rect` and of `rect` moved by each of `shifts`.
Rect unionOfShifted(const Rect& rect, std::span<const Point> shifts);

}  // namespace qm::kernels
