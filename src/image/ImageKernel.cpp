#include "image/ImageKernel.h"

#include "image/Nodes.h"
#include "image/RenderPass.h"
#include "platform/Bitmap.h"

namespace qm {

KernelNode::KernelNode(std::shared_ptr<const ImageKernel> kernel, std::vector<Image> inputs, const Rect& extent)
    : ImageNode(extent, std::move(inputs)), _kernel(std::move(kernel)) {}

PixelRect KernelNode::regionOfInterest(size_t index, const PixelRect& rect) const {
    if (!_kernel->regionOfInterest) return rect;
    return PixelRect::enclosing(_kernel->regionOfInterest(index, rect.toRect()));
}

bool KernelNode::readsBytes(size_t index) const {
    return index < _kernel->byteInputs.size() && _kernel->byteInputs[index];
}

bool KernelNode::sharesInput(size_t index) const {
    if (index >= _kernel->wholeInputs.size() || !_kernel->wholeInputs[index]) return false;
    // A bitmap read in place needs no shared copy.
    PixelRect bounds = input(index).pixelBounds();
    return !(readsBytes(index) && input(index).directBitmap(bounds));
}

void KernelNode::render(RenderPass& pass, const ImageTile& out) const {
    std::vector<TileView> views;
    std::vector<ConstImageTile> tiles;
    views.reserve(inputs().size());
    tiles.reserve(inputs().size());
    for (size_t i = 0; i < inputs().size(); ++i) {
        const ImageNode& in = input(i);
        PixelRect rect = regionOfInterest(i, out.rect).intersection(in.pixelBounds());
        if (readsBytes(i)) {
            if (const Bitmap* bitmap = in.directBitmap(rect)) {
                const uint8_t* origin = bitmap->imageRow(rect.y) + std::ptrdiff_t(rect.x) * 4;
                tiles.push_back(ConstImageTile::withBytes(rect, rect.isEmpty() ? nullptr : origin,
                                                          -std::ptrdiff_t(bitmap->bytesPerRow())));
                continue;
            }
        }
        views.push_back(pass.view(in, rect));
        tiles.push_back(views.back().tile());
    }
    TileScratch scratch;
    _kernel->render(out, tiles, scratch);
}

Image applyKernel(std::shared_ptr<const ImageKernel> kernel, std::vector<Image> inputs) {
    if (!kernel || !kernel->extent || !kernel->render) return {};
    std::vector<Rect> extents;
    for (const Image& image : inputs) {
        if (image.isNull()) return {};
        extents.push_back(image.extent());
    }
    const Rect extent = kernel->extent(extents).intersection(Image::infiniteExtent());
    return Image(std::make_shared<KernelNode>(std::move(kernel), std::move(inputs), extent));
}

}  // namespace qm
