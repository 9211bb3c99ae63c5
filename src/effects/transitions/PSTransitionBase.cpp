#include "effects/transitions/PSTransitionBase.h"

#include <cmath>

#include "foundation/QMCommon.h"

namespace qm {

namespace {

double nonZero(double value) {
    return std::fabs(value) < QMCommon::expression() ? 0.1 : value;
}

}  // namespace

Image PSTransitionBase::cropImage(const Image& image, const Rect& rect) {
    if (!image) return {};
    return image.cropped(rect);
}

Image PSTransitionBase::blendImage(const Image& image, double alpha) {
    if (!image) return {};
    if (std::fabs(alpha - 1.0) < QMCommon::expression()) return image;
    ColorMatrix matrix;
    matrix.a = {0, 0, 0, static_cast<float>(alpha)};
    return image.colorMatrix(matrix);
}

Image PSTransitionBase::transformImage(const Image& image, const AffineTransform& transform) {
    return image.transformed(transform);
}

AffineTransform PSTransitionBase::makeAffineTranformFromRect(const Rect& from, const Rect& to, double rotate) {
    const double toWidth = nonZero(to.size.width);
    const double toHeight = nonZero(to.size.height);
    const double sx = toWidth / nonZero(from.size.width);
    const double sy = toHeight / nonZero(from.size.height);

    AffineTransform transform;
    transform.translateXBy(-from.origin.x, -from.origin.y);
    transform.appendTransform(AffineTransform().scaleXBy(sx, sy));
    transform.translateXBy(to.origin.x / sx, to.origin.y / sy);
    const Point center{to.origin.x + toWidth * 0.5, to.origin.y + toHeight * 0.5};
    transform.appendTransform(QMCommon::transformRotate(rotate, center));
    return transform;
}

Image PSTransitionBase::transformImage(const Image& image, const Rect& fromRect, const Rect& toRect, double rotate) {
    if (!image || fromRect.isEmpty() || toRect.isEmpty()) return {};
    return transformImage(image, makeAffineTranformFromRect(fromRect, toRect, rotate));
}

Rect PSTransitionBase::positionOfShadow(const Shadow& shadow, const Rect& dest) {
    return Rect{{dest.origin.x + shadow.offset.width, dest.origin.y + shadow.offset.height}, dest.size};
}

Image PSTransitionBase::colorImage(const std::optional<Color>& color, const Rect& dest) {
    if (!color) return {};
    return cropImage(Image::imageWithColor(*color), dest);
}

Image PSTransitionBase::shadowImage(const Image& image, const Shadow* shadow, const Rect& dest) {
    if (!shadow || !shadow->color) return {};
    const Rect position = positionOfShadow(*shadow, dest);
    const Image silhouette = sourceIn(Image::imageWithColor(*shadow->color), image);
    const Image moved = transformImage(silhouette, dest, position, 0);
    return moved.gaussianBlur(static_cast<float>(shadow->blurRadius));
}

Image PSTransitionBase::sourceOverImage(const Image& foreground, const Image& background) {
    if (!foreground) return {};
    if (!background) return foreground;
    return sourceOver(foreground, background);
}

}  // namespace qm
