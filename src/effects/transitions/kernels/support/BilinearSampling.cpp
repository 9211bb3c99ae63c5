#include "effects/transitions/kernels/support/BilinearSampling.h"

namespace qm::kernels {

Float4 sampleBilinear(const ConstImageTile& tile, float px, float py) {
    const float u = px - 0.5f;
    const float v = py - 0.5f;
    const int x0 = fastFloor(u);
    const int y0 = fastFloor(v);
    const PixelRect& r = tile.rect;
    if (x0 < r.x || y0 < r.y || x0 + 1 >= r.maxX() || y0 + 1 >= r.maxY()) [[unlikely]]
        return tile.sample(px, py);
    return blendInside(tile, x0, y0, u - float(x0), v - float(y0));
}

Float4 sampleNearEdge(const ConstImageTile& tile, float px, float py) { return tile.sample(px, py); }

}  // namespace qm::kernels
