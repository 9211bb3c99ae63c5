#pragma once

#include <iosfwd>
#include <string>

#include "platform/Geometry.h"

namespace qm {

// A 2-by-3 affine transform with the fields and order rules of NSAffineTransform. A point maps as
//   x' = m11 * x + m21 * y + tX,   y' = m12 * x + m22 * y + tY.
// A default-constructed transform is the identity; `AffineTransform{m11, m12, m21, m22, tX, tY}`
// gives any other. With y up, a positive angle turns counter-clockwise.
//
// translateXBy, rotateBy..., scaleBy... and prependTransform put the new operation BEFORE what the
// transform already holds: points go through the new operation first. So a rotation about c is
//   t.translateXBy(c.x, c.y); t.rotateByDegrees(d); t.translateXBy(-c.x, -c.y);
// appendTransform puts the new operation after. The mutators return *this for chaining.
struct AffineTransform {
    double m11 = 1;
    double m12 = 0;
    double m21 = 0;
    double m22 = 1;
    double tX = 0;
    double tY = 0;

    static AffineTransform identity() { return {}; }

    bool isIdentity() const { return *this == AffineTransform{}; }

    AffineTransform& translateXBy(double x, double y);
    // Whole multiples of 90 degrees use exact sines and cosines (0 or +-1), so quarter turns
    // keep whole-number coordinates whole.
    AffineTransform& rotateByDegrees(double degrees);
    AffineTransform& rotateByRadians(double radians);
    // Scales both axes by `scale`.
    AffineTransform& scaleBy(double scale);
    AffineTransform& scaleXBy(double scaleX, double scaleY);
    // Afterwards points go through this transform first, then through `t`.
    AffineTransform& appendTransform(const AffineTransform& t);
    // Afterwards points go through `t` first, then through this transform.
    AffineTransform& prependTransform(const AffineTransform& t);
    // Replaces the transform by its inverse and answers true. A singular transform (determinant
    // zero or not finite) cannot be inverted: it stays as it is and the answer is false.
    bool invert();

    Point transformPoint(Point p) const;
    // The linear part only, no translation; the result may have negative extents.
    Size transformSize(Size s) const;
    // The bounding box of the four transformed corners of `r`.
    Rect transformRect(const Rect& r) const;

    // "[m11 m12 m21 m22 tX tY]"
    std::string description() const;

    // Exact, field by field.
    friend bool operator==(const AffineTransform&, const AffineTransform&) = default;
};

std::ostream& operator<<(std::ostream& out, const AffineTransform& t);

}  // namespace qm
