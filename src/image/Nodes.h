#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "image/ColorStages.h"
#include "image/DeferredBitmap.h"
#include "image/Image.h"
#include "image/ImageKernel.h"
#include "image/ImageNode.h"
#include "platform/AffineTransform.h"

namespace qm {

class Bitmap;

// The engine's operations as graph nodes. Image's functions build them; nothing else needs to.

// Fills `out` from `bitmap` (placed at the origin, y up), every channel multiplied by `fade`.
void bitmapIntoTile(const Bitmap& bitmap, const ImageTile& out, float fade = 1.f);

// A bitmap's pixels, decoded by the pass's loads when they are deferred; transparent where the
// decode failed.
class BitmapNode final : public ImageNode {
public:
    explicit BitmapNode(std::shared_ptr<const DeferredBitmap> source);
    bool needsLoading() const override { return true; }
    void load() const override { _source->bitmap(); }
    void render(RenderPass& pass, const ImageTile& out) const override;
    const Bitmap* directBitmap(PixelRect& bounds) const override;
    bool isOpaqueOver(const PixelRect& rect) const override;
    bool isOpaque() const { return _source->isOpaque(); }

private:
    std::shared_ptr<const DeferredBitmap> _source;
};

class ConstantColorNode final : public ImageNode {
public:
    explicit ConstantColorNode(Float4 premultiplied);
    void render(RenderPass& pass, const ImageTile& out) const override;
    std::optional<Float4> constantColor() const override { return _color; }
    bool isOpaqueOver(const PixelRect&) const override { return _color[3] >= 1.f; }

private:
    Float4 _color;
};

// An empty extent: never asked for pixels.
class EmptyNode final : public ImageNode {
public:
    EmptyNode();
    void render(RenderPass& pass, const ImageTile& out) const override;
};

class CropNode final : public ImageNode {
public:
    CropNode(const Image& input, const Rect& extent);
    void render(RenderPass& pass, const ImageTile& out) const override;
    const Bitmap* directBitmap(PixelRect& bounds) const override;
    bool isOpaqueOver(const PixelRect& rect) const override;
};

class TransformNode final : public ImageNode {
public:
    // `transform` must be invertible. `extent` is passed in so that folded transforms keep the
    // extent of the chain they replace.
    TransformNode(const Image& input, const AffineTransform& transform, Interpolation interpolation,
                  const Rect& extent);
    PixelRect regionOfInterest(size_t index, const PixelRect& rect) const override;
    void render(RenderPass& pass, const ImageTile& out) const override;
    bool isOpaqueOver(const PixelRect& rect) const override;

    const AffineTransform& transform() const { return _transform; }
    Interpolation interpolation() const { return _interpolation; }

    // Samples per axis that one output pixel averages under `inverse` (output to input): two
    // where the transform shrinks its input to less than half, else one.
    static int samplesPerAxis(const AffineTransform& inverse);

private:
    // Where each of a pixel's samples lies from its centre, in input pixels.
    std::vector<std::pair<double, double>> sampleOffsets() const;
    template <typename Sample>
    void resample(const ImageTile& out, Point origin, const Sample& sample) const;
    void renderFromBitmap(const Bitmap& bitmap, const PixelRect& bounds, const ImageTile& out) const;
    void renderFromTile(const ConstImageTile& in, const ImageTile& out) const;
    // The input is `color` over the whole pixels of `bounds` and transparent elsewhere.
    void renderFromColorRect(Float4 color, const PixelRect& bounds, const ImageTile& out) const;

    AffineTransform _transform;
    AffineTransform _inverse;
    Interpolation _interpolation;
    int _samples;
};

class LanczosScaleNode final : public ImageNode {
public:
    LanczosScaleNode(const Image& input, double scaleX, double scaleY);
    PixelRect regionOfInterest(size_t index, const PixelRect& rect) const override;
    void render(RenderPass& pass, const ImageTile& out) const override;

private:
    double _scaleX;
    double _scaleY;
};

class SourceOverNode final : public ImageNode {
public:
    SourceOverNode(const Image& foreground, const Image& background);
    void render(RenderPass& pass, const ImageTile& out) const override;
    bool isOpaqueOver(const PixelRect& rect) const override;
};

class SourceInNode final : public ImageNode {
public:
    SourceInNode(const Image& foreground, const Image& background);
    void render(RenderPass& pass, const ImageTile& out) const override;
};

// Per-pixel colour stages on the straight colour, fused into one pass.
class ColorNode final : public ImageNode {
public:
    ColorNode(const Image& input, ColorStages stages);
    void render(RenderPass& pass, const ImageTile& out) const override;
    const ColorStages& stages() const { return _stages; }

private:
    ColorStages _stages;
};

class GaussianBlurNode final : public ImageNode {
public:
    // `extent` replaces the natural one (the source's grown by 3 sigma on every side) where a
    // rewritten chain must keep the extent of the chain it replaces.
    GaussianBlurNode(const Image& source, double sigma, std::optional<Rect> extent = std::nullopt);
    PixelRect regionOfInterest(size_t index, const PixelRect& rect) const override;
    bool sharesInput(size_t index) const override { return _factor > 1; }
    bool needsPreparation() const override { return _factor > 1; }
    std::unique_ptr<PreparedData> prepare(RenderPass& pass, const PixelRect& region) const override;
    void render(RenderPass& pass, const ImageTile& out) const override;

    const Image& source() const { return _source; }
    double sigma() const { return _sigma; }

private:
    void renderDirect(RenderPass& pass, const ImageTile& out) const;
    void renderFromReduced(const PreparedData& data, const ImageTile& out) const;

    // Large blurs run at a size reduced by `_factor` (a power of two): the input is the source
    // shrunk by that factor, blurred once per pass and enlarged bilinearly per tile.
    Image _source;
    double _sigma;
    int _factor;
    double _sigmaUsed;  // standard deviation of the blur actually run, at its resolution
    int _reach;         // pixels a blurred pixel reads on each side, at its resolution
};

class MedianNode final : public ImageNode {
public:
    explicit MedianNode(const Image& input);
    PixelRect regionOfInterest(size_t index, const PixelRect& rect) const override;
    void render(RenderPass& pass, const ImageTile& out) const override;
};

class KernelNode final : public ImageNode {
public:
    KernelNode(std::shared_ptr<const ImageKernel> kernel, std::vector<Image> inputs, const Rect& extent);
    PixelRect regionOfInterest(size_t index, const PixelRect& rect) const override;
    bool sharesInput(size_t index) const override;
    void render(RenderPass& pass, const ImageTile& out) const override;

private:
    bool readsBytes(size_t index) const;

    std::shared_ptr<const ImageKernel> _kernel;
};

}  // namespace qm
