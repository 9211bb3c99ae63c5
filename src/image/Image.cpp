#include "image/Image.h"

#include <cmath>
#include <optional>

#include "image/ColorStages.h"
#include "image/Nodes.h"
#include "platform/Bitmap.h"

namespace qm {

namespace {

constexpr double kInfiniteOrigin = -double(1 << 29);
constexpr double kInfiniteSize = double(1 << 30);

template <typename T>
const T* nodeAs(const Image& image) {
    return dynamic_cast<const T*>(image.node().get());
}

// The uniform scale of a rotation (or reflection) with uniform scaling; nothing for other
// transforms.
std::optional<double> similarityScale(const AffineTransform& t) {
    const double scale = std::sqrt(std::fabs(t.m11 * t.m22 - t.m12 * t.m21));
    const double tolerance = 1e-9 * std::max(scale, 1.0);
    const bool rotation = std::fabs(t.m11 - t.m22) <= tolerance && std::fabs(t.m12 + t.m21) <= tolerance;
    const bool reflection = std::fabs(t.m11 + t.m22) <= tolerance && std::fabs(t.m12 - t.m21) <= tolerance;
    if (!(scale > 0) || !(rotation || reflection)) return std::nullopt;
    return scale;
}

Image withStages(const Image& image, const ColorStages& stages) {
    if (image.isNull()) return {};
    if (const auto color = image.node()->constantColor())
        return Image(std::make_shared<ConstantColorNode>(stages.apply(*color)));
    if (const auto* colorNode = nodeAs<ColorNode>(image))
        return Image(std::make_shared<ColorNode>(colorNode->inputs()[0], colorNode->stages().then(stages)));
    return Image(std::make_shared<ColorNode>(image, stages));
}

// `color` wherever `image` is opaque, for crops and transforms of a bitmap without transparent
// pixels: the same chain over `color` cut to the bitmap's rectangle, which renders without reading
// the bitmap. Nothing for other images.
std::optional<Image> opaqueSilhouette(const Image& image, const Image& color) {
    if (const auto* bitmap = nodeAs<BitmapNode>(image))
        return bitmap->isOpaque() ? std::optional(color.cropped(image.extent())) : std::nullopt;
    if (const auto* crop = nodeAs<CropNode>(image)) {
        const auto inner = opaqueSilhouette(crop->inputs()[0], color);
        return inner ? std::optional(inner->cropped(image.extent())) : std::nullopt;
    }
    if (const auto* transform = nodeAs<TransformNode>(image)) {
        const auto inner = opaqueSilhouette(transform->inputs()[0], color);
        if (!inner) return std::nullopt;
        return Image(std::make_shared<TransformNode>(*inner, transform->transform(), transform->interpolation(),
                                                     image.extent()));
    }
    return std::nullopt;
}

}  // namespace

Image Image::imageWithBitmap(std::shared_ptr<const Bitmap> bitmap) {
    if (!bitmap) return {};
    return Image(std::make_shared<BitmapNode>(DeferredBitmap::createWithBitmap(std::move(bitmap))));
}

Image Image::imageWithDeferredBitmap(std::shared_ptr<const DeferredBitmap> bitmap) {
    if (!bitmap) return {};
    return Image(std::make_shared<BitmapNode>(std::move(bitmap)));
}

Image Image::imageWithColor(const Color& color) {
    const Color p = color.premultiplied();
    return Image(std::make_shared<ConstantColorNode>(Float4{float(p.r), float(p.g), float(p.b), float(p.a)}));
}

Image Image::emptyImage() {
    static const Image empty(std::make_shared<EmptyNode>());
    return empty;
}

Rect Image::infiniteExtent() { return Rect{kInfiniteOrigin, kInfiniteOrigin, kInfiniteSize, kInfiniteSize}; }

bool Image::isInfinite(const Rect& r) {
    return r.minX() <= kInfiniteOrigin && r.minY() <= kInfiniteOrigin && r.maxX() >= kInfiniteOrigin + kInfiniteSize &&
           r.maxY() >= kInfiniteOrigin + kInfiniteSize;
}

Rect Image::extent() const { return _node ? _node->extent() : Rect{}; }

Image Image::cropped(const Rect& rect) const {
    if (isNull()) return {};
    const Rect r = extent().intersection(rect.standardized()).intersection(infiniteExtent());
    if (r.isEmpty()) return emptyImage();
    if (r == extent()) return *this;
    if (const auto* crop = nodeAs<CropNode>(*this)) return Image(std::make_shared<CropNode>(crop->inputs()[0], r));
    return Image(std::make_shared<CropNode>(*this, r));
}

Image Image::transformed(const AffineTransform& transform, Interpolation interpolation) const {
    if (isNull()) return {};
    if (transform.isIdentity()) return *this;
    AffineTransform inverse = transform;
    if (!inverse.invert() || extent().isEmpty()) return emptyImage();
    if (_node->constantColor()) return *this;
    const Rect extentAfter = hasInfiniteExtent() ? infiniteExtent()
                                                 : transform.transformRect(extent()).intersection(infiniteExtent());
    // Rewrites that let transforms meet and fold, so that a chain resamples its source once:
    // a silhouette (constant colour in an image) moves with its image, and a Gaussian blur, being
    // round, commutes with rotation and uniform scaling.
    if (const auto* in = nodeAs<SourceInNode>(*this); in && in->input(0).constantColor())
        return sourceIn(in->inputs()[0], in->inputs()[1].transformed(transform, interpolation));
    if (const auto* blur = nodeAs<GaussianBlurNode>(*this); blur && interpolation == Interpolation::Linear) {
        if (const auto scale = similarityScale(transform))
            return Image(std::make_shared<GaussianBlurNode>(blur->source().transformed(transform, interpolation),
                                                            blur->sigma() * *scale, extentAfter));
    }
    if (const auto* inner = nodeAs<TransformNode>(*this); inner && inner->interpolation() == interpolation) {
        // Two transforms in a row resample once.
        AffineTransform combined = inner->transform();
        combined.appendTransform(transform);
        AffineTransform check = combined;
        if (check.invert())
            return Image(std::make_shared<TransformNode>(inner->inputs()[0], combined, interpolation, extentAfter));
    }
    return Image(std::make_shared<TransformNode>(*this, transform, interpolation, extentAfter));
}

Image Image::lanczosScale(double scale, double aspectRatio) const {
    if (isNull()) return {};
    const double scaleX = scale * aspectRatio;
    const double scaleY = scale;
    if (!(scaleX > 0) || !(scaleY > 0) || extent().isEmpty()) return emptyImage();
    if (_node->constantColor()) return *this;
    return Image(std::make_shared<LanczosScaleNode>(*this, scaleX, scaleY));
}

Image Image::colorControls(double brightness, double contrast, double saturation) const {
    return withStages(*this, ColorStages::colorControls(float(brightness), float(contrast), float(saturation)));
}

Image Image::colorMatrix(const ColorMatrix& matrix) const { return withStages(*this, ColorStages::matrix(matrix)); }

Image Image::colorInvert() const {
    ColorMatrix m;
    m.r = {-1, 0, 0, 0};
    m.g = {0, -1, 0, 0};
    m.b = {0, 0, -1, 0};
    m.bias = {1, 1, 1, 0};
    return colorMatrix(m);
}

Image Image::photoEffect(PhotoEffect effect) const { return withStages(*this, ColorStages::photoEffect(effect)); }

Image Image::gaussianBlur(double radius) const {
    if (isNull()) return {};
    if (!(radius > 0) || extent().isEmpty() || _node->constantColor()) return *this;
    return Image(std::make_shared<GaussianBlurNode>(*this, radius));
}

Image Image::median() const {
    if (isNull()) return {};
    if (extent().isEmpty() || _node->constantColor()) return *this;
    return Image(std::make_shared<MedianNode>(*this));
}

Image sourceOver(const Image& foreground, const Image& background) {
    if (foreground.isNull() || background.isNull()) return {};
    if (foreground.extent().isEmpty()) return background;
    if (background.extent().isEmpty()) return foreground;
    return Image(std::make_shared<SourceOverNode>(foreground, background));
}

Image sourceIn(const Image& foreground, const Image& background) {
    if (foreground.isNull() || background.isNull()) return {};
    if (foreground.extent().intersection(background.extent()).isEmpty()) return Image::emptyImage();
    if (foreground.node()->constantColor())
        if (auto silhouette = opaqueSilhouette(background, foreground)) return *silhouette;
    return Image(std::make_shared<SourceInNode>(foreground, background));
}

}  // namespace qm
