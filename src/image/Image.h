#pragma once

#include <array>
#include <memory>

#include "platform/AffineTransform.h"
#include "platform/Color.h"
#include "platform/Geometry.h"

namespace qm {

class Bitmap;
class DeferredBitmap;
class ImageNode;

// How a transform samples its input.
enum class Interpolation {
    Linear,   // bilinear between the four nearest pixels
    Nearest,  // the pixel whose centre is nearest
};

// The eight photo effects of CIPhotoEffect<Name>.
enum class PhotoEffect { Chrome, Fade, Instant, Mono, Noir, Process, Tonal, Transfer };

// The vectors of CIColorMatrix. Each output component of the straight (unpremultiplied) colour
// s = (r, g, b, a) is the dot product of its vector with s, plus its bias: r' = dot(r, s) + bias[0].
struct ColorMatrix {
    std::array<float, 4> r{1, 0, 0, 0};
    std::array<float, 4> g{0, 1, 0, 0};
    std::array<float, 4> b{0, 0, 1, 0};
    std::array<float, 4> a{0, 0, 0, 1};
    std::array<float, 4> bias{0, 0, 0, 0};

    friend bool operator==(const ColorMatrix&, const ColorMatrix&) = default;
};

// A lazy, immutable picture (the CIImage of this engine): a node of a graph of operations that
// makes pixels only when a RenderContext renders it. Copies are cheap and share the graph.
//
// Coordinates have their origin at the lower left and y up. The extent is the area where the
// picture may have non-transparent pixels; it may be infinite (a constant colour), see
// infiniteExtent(). Pixels are premultiplied RGBA; colours are the sRGB-encoded values as stored,
// with no linearisation.
//
// A default-constructed Image is null (CIImage nil). Every operation on a null image, and every
// operation with a null input, gives a null image. An empty image (emptyImage(), or a crop outside
// the picture) is not null: it has an empty extent and is transparent everywhere.
class Image {
public:
    Image() = default;
    explicit Image(std::shared_ptr<const ImageNode> node) : _node(std::move(node)) {}

    // The bitmap's pixels with its lower left corner at the origin: extent (0, 0, width, height),
    // the bitmap's top row at the top. Null for no bitmap.
    static Image imageWithBitmap(std::shared_ptr<const Bitmap> bitmap);
    // The same for a picture decoded when a render first needs it (see DeferredBitmap). Null for
    // no picture.
    static Image imageWithDeferredBitmap(std::shared_ptr<const DeferredBitmap> bitmap);
    // CIConstantColorGenerator: the colour everywhere, infinite extent.
    static Image imageWithColor(const Color& color);
    // Transparent, with an empty extent.
    static Image emptyImage();

    // The extent of an infinite image: a square far larger than anything drawn.
    static Rect infiniteExtent();
    static bool isInfinite(const Rect& r);

    bool isNull() const { return !_node; }
    explicit operator bool() const { return _node != nullptr; }
    // The zero rect for a null image.
    Rect extent() const;
    bool hasInfiniteExtent() const { return isInfinite(extent()); }

    // CICrop: the part inside `rect`; the extent is the intersection. A pixel whose square only
    // partly lies inside a fractional rect is kept whole.
    Image cropped(const Rect& rect) const;
    // CIAffineTransform: the picture moved by `transform` (see AffineTransform for the point
    // mapping). The extent is the bounding box of the transformed extent; edges fade to
    // transparent over one pixel. Where the transform shrinks to less than half, each pixel
    // averages 2 x 2 bilinear samples. Transforms in a row are folded into one resampling (the
    // extent stays that of the chain). A transform that cannot be inverted gives an empty image.
    Image transformed(const AffineTransform& transform, Interpolation interpolation = Interpolation::Linear) const;
    // CILanczosScaleTransform: scaled by `scale` vertically and scale * aspectRatio horizontally,
    // about the origin, with a three-lobe Lanczos filter (area-correct when shrinking).
    Image lanczosScale(double scale, double aspectRatio) const;

    // CIColorControls, on the straight colour, in this order: saturation mixes with the Rec. 709
    // luma (0.2125, 0.7154, 0.0721) (0 grey, 1 unchanged, above 1 more saturated); brightness is
    // added to r, g and b; contrast scales around 0.5: (c - 0.5) * contrast + 0.5. Alpha is kept.
    // Results are not clamped until they are stored as 8-bit values.
    Image colorControls(double brightness, double contrast, double saturation) const;
    // CIColorMatrix, on the straight colour (see ColorMatrix); alpha is clamped to 0..1.
    Image colorMatrix(const ColorMatrix& matrix) const;
    // CIColorInvert: r, g, b of the straight colour become 1 - value; alpha is kept.
    Image colorInvert() const;
    // CIPhotoEffect<Name>: our looks, each a colour matrix and a tone curve (ColorStages.cpp).
    Image photoEffect(PhotoEffect effect) const;

    // CIGaussianBlur with standard deviation `radius` pixels. The extent grows by 3 * radius on
    // every side; a radius of zero or less gives the image itself. From a radius of 3 up the blur
    // runs once per render at a size reduced by a power of two and is enlarged bilinearly, with
    // the same overall variance (edge profiles stay within about 1% of the exact Gaussian).
    Image gaussianBlur(double radius) const;
    // CIMedianFilter: each channel is the median of the 3 x 3 pixels around it.
    Image median() const;

    // The engine's node; null for a null image.
    const std::shared_ptr<const ImageNode>& node() const { return _node; }

    // True when both are the same graph node (or both null).
    friend bool operator==(const Image& a, const Image& b) { return a._node == b._node; }

private:
    std::shared_ptr<const ImageNode> _node;
};

// CISourceOverCompositing: foreground + background * (1 - foreground alpha). The extent is the
// union of both.
Image sourceOver(const Image& foreground, const Image& background);
// CISourceInCompositing: foreground * background alpha. The extent is the intersection.
Image sourceIn(const Image& foreground, const Image& background);

}  // namespace qm
