#pragma once

#include <array>
#include <vector>

#include "platform/AffineTransform.h"
#include "platform/Geometry.h"

typedef struct _cairo cairo_t;

namespace qm {

// A vector path of moves, straight lines, cubic curves and closes, with the stroke settings that
// travel with it (NSBezierPath). Coordinates are the caller's, y up. A plain value.
class BezierPath {
public:
    enum class LineCapStyle { Butt = 0, Round = 1, Square = 2 };
    enum class LineJoinStyle { Miter = 0, Round = 1, Bevel = 2 };

    struct Element {
        enum class Kind { MoveTo = 0, LineTo = 1, CurveTo = 2, ClosePath = 3 };
        Kind kind;
        // MoveTo and LineTo use points[0]; CurveTo holds the end point, then both control points.
        std::array<Point, 3> points;

        friend bool operator==(const Element&, const Element&) = default;
    };

    static BezierPath bezierPathWithRect(const Rect& rect);
    // An ellipse inscribed in `rect` from four cubic arcs, starting at the right.
    static BezierPath bezierPathWithOvalInRect(const Rect& rect);
    // Corner radii are limited to half the width and half the height.
    static BezierPath bezierPathWithRoundedRect(const Rect& rect, double xRadius, double yRadius);

    void moveToPoint(Point point);
    void lineToPoint(Point point);
    void curveToPoint(Point end, Point controlPoint1, Point controlPoint2);
    void closePath();
    // Every point through `transform`.
    void transformUsingAffineTransform(const AffineTransform& transform);

    bool isEmpty() const { return _elements.empty(); }
    const std::vector<Element>& elements() const { return _elements; }
    // The smallest rectangle around the curve itself (not its control points), without the stroke;
    // the zero rect for an empty path.
    Rect bounds() const;
    // Whether `point` lies inside the filled path (non-zero winding).
    bool containsPoint(Point point) const;

    double lineWidth() const { return _lineWidth; }
    void setLineWidth(double width) { _lineWidth = width; }
    LineCapStyle lineCapStyle() const { return _lineCapStyle; }
    void setLineCapStyle(LineCapStyle style) { _lineCapStyle = style; }
    LineJoinStyle lineJoinStyle() const { return _lineJoinStyle; }
    void setLineJoinStyle(LineJoinStyle style) { _lineJoinStyle = style; }

    // Replaces the current path of `cairo` by this one; stroke settings are not applied.
    void appendToCairo(cairo_t* cairo) const;
    // Applies width, cap and join to `cairo`.
    void applyStrokeSettings(cairo_t* cairo) const;

    friend bool operator==(const BezierPath&, const BezierPath&) = default;

private:
    std::vector<Element> _elements;
    double _lineWidth = 1.0;
    LineCapStyle _lineCapStyle = LineCapStyle::Butt;
    LineJoinStyle _lineJoinStyle = LineJoinStyle::Miter;
};

}  // namespace qm
