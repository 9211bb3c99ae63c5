#include "platform/Geometry.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ostream>

namespace qm {

std::string Point::description() const {
    char text[64];
    std::snprintf(text, sizeof text, "{%g, %g}", x, y);
    return text;
}

std::string Size::description() const {
    char text[64];
    std::snprintf(text, sizeof text, "{%g, %g}", width, height);
    return text;
}

bool Rect::containsPoint(Point p) const {
    return p.x >= minX() && p.x < maxX() && p.y >= minY() && p.y < maxY();
}

bool Rect::containsRect(const Rect& r) const {
    return !r.isEmpty() && minX() <= r.minX() && minY() <= r.minY() && maxX() >= r.maxX() &&
           maxY() >= r.maxY();
}

bool Rect::intersects(const Rect& r) const { return !intersection(r).isEmpty(); }

Rect Rect::intersection(const Rect& r) const {
    const double left = std::max(minX(), r.minX());
    const double bottom = std::max(minY(), r.minY());
    const double right = std::min(maxX(), r.maxX());
    const double top = std::min(maxY(), r.maxY());
    const Rect common{{left, bottom}, {right - left, top - bottom}};
    return common.isEmpty() ? Rect{} : common;
}

Rect Rect::unionWith(const Rect& r) const {
    if (isEmpty()) {
        return r.isEmpty() ? Rect{} : r;
    }
    if (r.isEmpty()) {
        return *this;
    }
    const double left = std::min(minX(), r.minX());
    const double bottom = std::min(minY(), r.minY());
    return {{left, bottom},
            {std::max(maxX(), r.maxX()) - left, std::max(maxY(), r.maxY()) - bottom}};
}

Rect Rect::insetBy(double dx, double dy) const {
    return {{origin.x + dx, origin.y + dy}, {size.width - 2 * dx, size.height - 2 * dy}};
}

Rect Rect::offsetBy(double dx, double dy) const {
    return {{origin.x + dx, origin.y + dy}, size};
}

Rect Rect::integral() const {
    if (isEmpty()) {
        return {};
    }
    const double left = std::floor(minX());
    const double bottom = std::floor(minY());
    return {{left, bottom}, {std::ceil(maxX()) - left, std::ceil(maxY()) - bottom}};
}

Rect Rect::standardized() const {
    Rect r = *this;
    if (r.size.width < 0) {
        r.origin.x += r.size.width;
        r.size.width = -r.size.width;
    }
    if (r.size.height < 0) {
        r.origin.y += r.size.height;
        r.size.height = -r.size.height;
    }
    return r;
}

std::string Rect::description() const {
    // Appended piece by piece: GCC 12 warns falsely (-Wrestrict) on "{" + a temporary at -O3.
    std::string text = "{";
    text += origin.description();
    text += ", ";
    text += size.description();
    text += "}";
    return text;
}

std::ostream& operator<<(std::ostream& out, const Point& p) { return out << p.description(); }

std::ostream& operator<<(std::ostream& out, const Size& s) { return out << s.description(); }

std::ostream& operator<<(std::ostream& out, const Rect& r) { return out << r.description(); }

}  // namespace qm
