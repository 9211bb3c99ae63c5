#include "platform/BezierPath.h"

#include <cairo.h>

#include <algorithm>
#include <memory>

namespace qm {

namespace {

// Distance of the control points of a quarter ellipse arc from its ends, per unit radius.
constexpr double kappa = 0.5522847498307936;

// A drawing context with no pixels, for path geometry queries.
std::unique_ptr<cairo_t, decltype(&cairo_destroy)> geometryContext() {
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_A8, 0, 0);
    cairo_t* cairo = cairo_create(surface);
    cairo_surface_destroy(surface);
    return {cairo, &cairo_destroy};
}

}  // namespace

BezierPath BezierPath::bezierPathWithRect(const Rect& rect) {
    BezierPath path;
    path.moveToPoint(rect.origin);
    path.lineToPoint({rect.maxX(), rect.minY()});
    path.lineToPoint({rect.maxX(), rect.maxY()});
    path.lineToPoint({rect.minX(), rect.maxY()});
    path.closePath();
    return path;
}

BezierPath BezierPath::bezierPathWithOvalInRect(const Rect& rect) {
    return bezierPathWithRoundedRect(rect, rect.width() * 0.5, rect.height() * 0.5);
}

BezierPath BezierPath::bezierPathWithRoundedRect(const Rect& rect, double xRadius, double yRadius) {
    const double rx = std::clamp(xRadius, 0.0, std::max(0.0, rect.width() * 0.5));
    const double ry = std::clamp(yRadius, 0.0, std::max(0.0, rect.height() * 0.5));
    if (rx <= 0 || ry <= 0) return bezierPathWithRect(rect);
    const double x0 = rect.minX(), x1 = rect.maxX(), y0 = rect.minY(), y1 = rect.maxY();
    const double kx = rx * kappa, ky = ry * kappa;
    BezierPath path;
    path.moveToPoint({x1, y0 + ry});
    if (y1 - ry > y0 + ry) path.lineToPoint({x1, y1 - ry});
    path.curveToPoint({x1 - rx, y1}, {x1, y1 - ry + ky}, {x1 - rx + kx, y1});
    if (x0 + rx < x1 - rx) path.lineToPoint({x0 + rx, y1});
    path.curveToPoint({x0, y1 - ry}, {x0 + rx - kx, y1}, {x0, y1 - ry + ky});
    if (y0 + ry < y1 - ry) path.lineToPoint({x0, y0 + ry});
    path.curveToPoint({x0 + rx, y0}, {x0, y0 + ry - ky}, {x0 + rx - kx, y0});
    if (x1 - rx > x0 + rx) path.lineToPoint({x1 - rx, y0});
    path.curveToPoint({x1, y0 + ry}, {x1 - rx + kx, y0}, {x1, y0 + ry - ky});
    path.closePath();
    return path;
}

void BezierPath::moveToPoint(Point point) { _elements.push_back({Element::Kind::MoveTo, {point, {}, {}}}); }

void BezierPath::lineToPoint(Point point) { _elements.push_back({Element::Kind::LineTo, {point, {}, {}}}); }

void BezierPath::curveToPoint(Point end, Point controlPoint1, Point controlPoint2) {
    _elements.push_back({Element::Kind::CurveTo, {end, controlPoint1, controlPoint2}});
}

void BezierPath::closePath() { _elements.push_back({Element::Kind::ClosePath, {}}); }

void BezierPath::transformUsingAffineTransform(const AffineTransform& transform) {
    for (auto& element : _elements) {
        for (auto& point : element.points) point = transform.transformPoint(point);
    }
}

Rect BezierPath::bounds() const {
    if (_elements.empty()) return {};
    const auto cairo = geometryContext();
    appendToCairo(cairo.get());
    double x1 = 0, y1 = 0, x2 = 0, y2 = 0;
    cairo_path_extents(cairo.get(), &x1, &y1, &x2, &y2);
    return {x1, y1, x2 - x1, y2 - y1};
}

bool BezierPath::containsPoint(Point point) const {
    if (_elements.empty()) return false;
    const auto cairo = geometryContext();
    appendToCairo(cairo.get());
    cairo_set_fill_rule(cairo.get(), CAIRO_FILL_RULE_WINDING);
    return cairo_in_fill(cairo.get(), point.x, point.y);
}

void BezierPath::appendToCairo(cairo_t* cairo) const {
    cairo_new_path(cairo);
    for (const auto& element : _elements) {
        const auto& p = element.points;
        switch (element.kind) {
            case Element::Kind::MoveTo:
                cairo_move_to(cairo, p[0].x, p[0].y);
                break;
            case Element::Kind::LineTo:
                cairo_line_to(cairo, p[0].x, p[0].y);
                break;
            case Element::Kind::CurveTo:
                cairo_curve_to(cairo, p[1].x, p[1].y, p[2].x, p[2].y, p[0].x, p[0].y);
                break;
            case Element::Kind::ClosePath:
                cairo_close_path(cairo);
                break;
        }
    }
}

void BezierPath::applyStrokeSettings(cairo_t* cairo) const {
    cairo_set_line_width(cairo, _lineWidth);
    switch (_lineCapStyle) {
        case LineCapStyle::Butt:
            cairo_set_line_cap(cairo, CAIRO_LINE_CAP_BUTT);
            break;
        case LineCapStyle::Round:
            cairo_set_line_cap(cairo, CAIRO_LINE_CAP_ROUND);
            break;
        case LineCapStyle::Square:
            cairo_set_line_cap(cairo, CAIRO_LINE_CAP_SQUARE);
            break;
    }
    switch (_lineJoinStyle) {
        case LineJoinStyle::Miter:
            cairo_set_line_join(cairo, CAIRO_LINE_JOIN_MITER);
            break;
        case LineJoinStyle::Round:
            cairo_set_line_join(cairo, CAIRO_LINE_JOIN_ROUND);
            break;
        case LineJoinStyle::Bevel:
            cairo_set_line_join(cairo, CAIRO_LINE_JOIN_BEVEL);
            break;
    }
}

}  // namespace qm
