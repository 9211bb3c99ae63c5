#include "effects/transitions/kernels/support/TileFill.h"

namespace qm::kernels {

bool copyEndInput(const ImageTile& out, std::span<const ConstImageTile> in, float t) {
    if (t > 0.0f && t < 1.0f) return false;
    for (int y = out.rect.y; y < out.rect.maxY(); ++y)
        copyRow(in[t <= 0.0f ? 0 : 1], y, out.rect.x, out.rect.maxX(), out.row(y));
    return true;
}

}  // namespace qm::kernels
