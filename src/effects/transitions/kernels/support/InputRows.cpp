#include "effects/transitions/kernels/support/InputRows.h"

#include <cstring>

namespace qm::kernels {

void copyRow(const ConstImageTile& tile, int y, int x0, int x1, float* dst) {
    const PixelRect& r = tile.rect;
    if (y < r.y || y >= r.maxY() || x0 < r.x || x1 > r.maxX()) {
        for (int x = x0; x < x1; ++x) storeFloat4(dst + 4 * (x - x0), tile.pixel(x, y));
        return;
    }
    if (tile.bytes)
        bytesToFloatRow(tile.byteAt(x0, y), dst, x1 - x0);
    else
        std::memcpy(dst, tile.at(x0, y), sizeof(float) * 4 * size_t(x1 - x0));
}

}  // namespace qm::kernels
