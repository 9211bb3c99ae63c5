#pragma once

#include <iosfwd>
#include <string>

namespace qm {

// Plain geometry values in doubles, y pointing up. They are aggregates: build them with braces,
// `Point{x, y}`, `Size{w, h}`, `Rect{{x, y}, {w, h}}` or `Rect{x, y, w, h}`; `{}` is zero.
// Equality is exact, component by component, as NSEqualPoints / NSEqualSizes / NSEqualRects.

struct Point {
    double x = 0;
    double y = 0;

    // "{x, y}"
    std::string description() const;

    friend bool operator==(const Point&, const Point&) = default;
};

struct Size {
    double width = 0;
    double height = 0;

    // "{width, height}"
    std::string description() const;

    friend bool operator==(const Size&, const Size&) = default;
};

struct Rect {
    Point origin;
    Size size;

    double minX() const { return origin.x; }
    double midX() const { return origin.x + size.width * 0.5; }
    double maxX() const { return origin.x + size.width; }
    double minY() const { return origin.y; }
    double midY() const { return origin.y + size.height * 0.5; }
    double maxY() const { return origin.y + size.height; }
    double width() const { return size.width; }
    double height() const { return size.height; }
    Point center() const { return {midX(), midY()}; }

    // True when width or height is zero or negative (NSIsEmptyRect).
    bool isEmpty() const { return !(size.width > 0 && size.height > 0); }

    // Min edges inside, max edges outside (NSPointInRect). An empty rect contains no point.
    bool containsPoint(Point p) const;
    // True when `r` is not empty and lies wholly inside this rect, edges included (NSContainsRect).
    bool containsRect(const Rect& r) const;
    // True when the two share an area of positive size; touching edges do not count
    // (NSIntersectsRect).
    bool intersects(const Rect& r) const;
    // The common area, or the zero rect when there is none (NSIntersectionRect).
    Rect intersection(const Rect& r) const;
    // The smallest rect holding both; an empty rect is ignored, two empty rects give the zero rect
    // (NSUnionRect).
    Rect unionWith(const Rect& r) const;
    // Moves each edge inwards by dx, dy; negative values grow the rect. No clamping (NSInsetRect).
    Rect insetBy(double dx, double dy) const;
    // Moves the origin (NSOffsetRect).
    Rect offsetBy(double dx, double dy) const;
    // The smallest rect with whole-number edges holding this one; the zero rect when this one is
    // empty (NSIntegralRect).
    Rect integral() const;
    // The same area with a non-negative width and height: a negative extent moves the origin.
    Rect standardized() const;

    // "{{x, y}, {width, height}}"
    std::string description() const;

    friend bool operator==(const Rect&, const Rect&) = default;
};

std::ostream& operator<<(std::ostream& out, const Point& p);
std::ostream& operator<<(std::ostream& out, const Size& s);
std::ostream& operator<<(std::ostream& out, const Rect& r);

}  // namespace qm
