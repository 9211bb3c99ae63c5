#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "image/Image.h"
#include "image/ImageTile.h"
#include "platform/Geometry.h"

namespace qm {

class Bitmap;
class RenderPass;

// Data a node computes once per render pass (see ImageNode::prepare).
class PreparedData {
public:
    virtual ~PreparedData() = default;
};

// One operation of the image graph. Nodes are immutable and shared between Images and threads.
// The engine's own operations and ImageKernel nodes derive from it.
class ImageNode {
public:
    ImageNode(const Rect& extent, std::vector<Image> inputs);
    virtual ~ImageNode() = default;
    ImageNode(const ImageNode&) = delete;
    ImageNode& operator=(const ImageNode&) = delete;

    const Rect& extent() const { return _extent; }
    // The pixels that may be non-transparent: the extent snapped outwards to whole pixels.
    const PixelRect& pixelBounds() const { return _pixelBounds; }
    const std::vector<Image>& inputs() const { return _inputs; }
    const ImageNode& input(size_t index) const { return *_inputs[index].node(); }

    // The pixels of input `index` that render() reads to fill `rect`. Grows with `rect`.
    virtual PixelRect regionOfInterest(size_t index, const PixelRect& rect) const { return rect; }
    // True when input `index` is rendered once per pass over all that is needed of it and shared
    // by every tile.
    virtual bool sharesInput(size_t index) const { return false; }
    // True for a source with work of its own to do before any tile, needing no other node
    // (decoding its pixels): the pass runs the loads of all such nodes in parallel, first.
    virtual bool needsLoading() const { return false; }
    virtual void load() const {}
    // True when prepare() must run before tiles are rendered.
    virtual bool needsPreparation() const { return false; }
    // Work done once per pass, before any tile, over `region` (all that the pass needs of this
    // node); the pass keeps the result for render().
    virtual std::unique_ptr<PreparedData> prepare(RenderPass& pass, const PixelRect& region) const;
    // Fills every pixel of `out`, whose rect lies inside pixelBounds().
    virtual void render(RenderPass& pass, const ImageTile& out) const = 0;

    // A bitmap that this node shows unchanged (placed at the origin, y up) within `bounds`, which
    // the call narrows to the pixels shown; nothing for other nodes. Lets samplers read bitmap
    // bytes directly.
    virtual const Bitmap* directBitmap(PixelRect& bounds) const { return nullptr; }
    // The colour of a node that is one colour everywhere.
    virtual std::optional<Float4> constantColor() const { return std::nullopt; }
    // True when every pixel of `rect` is known to be opaque without rendering it.
    virtual bool isOpaqueOver(const PixelRect& rect) const { return false; }

private:
    Rect _extent;
    PixelRect _pixelBounds;
    std::vector<Image> _inputs;
};

}  // namespace qm
