#include "image/ImageNode.h"

namespace qm {

ImageNode::ImageNode(const Rect& extent, std::vector<Image> inputs)
    : _extent(extent), _pixelBounds(PixelRect::enclosing(extent)), _inputs(std::move(inputs)) {}

std::unique_ptr<PreparedData> ImageNode::prepare(RenderPass&, const PixelRect&) const { return nullptr; }

}  // namespace qm
