#include "image/Nodes.h"
#include "image/PixelMath.h"
#include "image/PixelRows.h"
#include "image/RenderPass.h"
#include "platform/Bitmap.h"

namespace qm {

BitmapNode::BitmapNode(std::shared_ptr<const DeferredBitmap> source)
    : ImageNode(Rect{0, 0, double(source->width()), double(source->height())}, {}), _source(std::move(source)) {}

void bitmapIntoTile(const Bitmap& bitmap, const ImageTile& out, float fade) {
    for (int y = out.rect.y; y < out.rect.maxY(); ++y)
        bytesToFloatRow(bitmap.imageRow(y) + size_t(out.rect.x) * 4, out.row(y), out.rect.width, kByteToFloat * fade);
}

void BitmapNode::render(RenderPass&, const ImageTile& out) const {
    if (const auto& bitmap = _source->bitmap()) {
        bitmapIntoTile(*bitmap, out);
    } else {
        out.clear();
    }
}

const Bitmap* BitmapNode::directBitmap(PixelRect& bounds) const {
    bounds = bounds.intersection(pixelBounds());
    return _source->bitmap().get();
}

bool BitmapNode::isOpaqueOver(const PixelRect& rect) const {
    return pixelBounds().contains(rect) && _source->isOpaque();
}

ConstantColorNode::ConstantColorNode(Float4 premultiplied)
    : ImageNode(Image::infiniteExtent(), {}), _color(premultiplied) {}

void ConstantColorNode::render(RenderPass&, const ImageTile& out) const { out.fill(_color); }

EmptyNode::EmptyNode() : ImageNode(Rect{}, {}) {}

void EmptyNode::render(RenderPass&, const ImageTile& out) const { out.clear(); }

}  // namespace qm
