#include "platform/AffineTransform.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <ostream>

namespace qm {

namespace {

// Row-vector product a * b: a point goes through a first, then through b.
AffineTransform concatenate(const AffineTransform& a, const AffineTransform& b) {
    return {a.m11 * b.m11 + a.m12 * b.m21,
            a.m11 * b.m12 + a.m12 * b.m22,
            a.m21 * b.m11 + a.m22 * b.m21,
            a.m21 * b.m12 + a.m22 * b.m22,
            a.tX * b.m11 + a.tY * b.m21 + b.tX,
            a.tX * b.m12 + a.tY * b.m22 + b.tY};
}

AffineTransform rotation(double cosine, double sine) { return {cosine, sine, -sine, cosine, 0, 0}; }

}  // namespace

AffineTransform& AffineTransform::translateXBy(double x, double y) {
    return prependTransform({1, 0, 0, 1, x, y});
}

AffineTransform& AffineTransform::rotateByDegrees(double degrees) {
    const double quarters = degrees / 90;
    if (std::isfinite(quarters) && quarters == std::floor(quarters)) {
        static constexpr double cosines[] = {1, 0, -1, 0};
        static constexpr double sines[] = {0, 1, 0, -1};
        const auto index = static_cast<int>(std::fmod(quarters, 4.0) + 4) % 4;
        return prependTransform(rotation(cosines[index], sines[index]));
    }
    return rotateByRadians(degrees * std::numbers::pi / 180);
}

AffineTransform& AffineTransform::rotateByRadians(double radians) {
    return prependTransform(rotation(std::cos(radians), std::sin(radians)));
}

AffineTransform& AffineTransform::scaleBy(double scale) { return scaleXBy(scale, scale); }

AffineTransform& AffineTransform::scaleXBy(double scaleX, double scaleY) {
    return prependTransform({scaleX, 0, 0, scaleY, 0, 0});
}

AffineTransform& AffineTransform::appendTransform(const AffineTransform& t) {
    *this = concatenate(*this, t);
    return *this;
}

AffineTransform& AffineTransform::prependTransform(const AffineTransform& t) {
    *this = concatenate(t, *this);
    return *this;
}

bool AffineTransform::invert() {
    const double det = m11 * m22 - m12 * m21;
    if (det == 0 || !std::isfinite(det)) {
        return false;
    }
    const AffineTransform inverse{m22 / det,
                                  -m12 / det,
                                  -m21 / det,
                                  m11 / det,
                                  (m21 * tY - m22 * tX) / det,
                                  (m12 * tX - m11 * tY) / det};
    *this = inverse;
    return true;
}

Point AffineTransform::transformPoint(Point p) const {
    return {m11 * p.x + m21 * p.y + tX, m12 * p.x + m22 * p.y + tY};
}

Size AffineTransform::transformSize(Size s) const {
    return {m11 * s.width + m21 * s.height, m12 * s.width + m22 * s.height};
}

Rect AffineTransform::transformRect(const Rect& r) const {
    const Point corners[] = {transformPoint({r.minX(), r.minY()}),
                             transformPoint({r.maxX(), r.minY()}),
                             transformPoint({r.minX(), r.maxY()}),
                             transformPoint({r.maxX(), r.maxY()})};
    double left = corners[0].x;
    double right = corners[0].x;
    double bottom = corners[0].y;
    double top = corners[0].y;
    for (const Point& p : corners) {
        left = std::min(left, p.x);
        right = std::max(right, p.x);
        bottom = std::min(bottom, p.y);
        top = std::max(top, p.y);
    }
    return {{left, bottom}, {right - left, top - bottom}};
}

std::string AffineTransform::description() const {
    char text[160];
    std::snprintf(text, sizeof text, "[%g %g %g %g %g %g]", m11, m12, m21, m22, tX, tY);
    return text;
}

std::ostream& operator<<(std::ostream& out, const AffineTransform& t) {
    return out << t.description();
}

}  // namespace qm
