#pragma once

#include <cstddef>

#include "image/ImageTile.h"
#include "image/PixelMath.h"
#include "image/PixelRows.h"

// Reading spans of one row of an input tile, in bulk or pixel by pixel.
namespace qm::kernels {

// Pixels x0 <= x < x1 of row y of `tile` into `dst` (pixel x0 first), transparent outside the
// tile: copied in bulk where the tile covers the span.
void copyRow(const ConstImageTile& tile, int y, int x0, int x1, float* dst);

// Pixels x0 <= x < x1 of one row of an input tile, as copyRow gives them: plain loads where the
// tile covers that span, the tile's bounds-checked read (transparent outside) elsewhere. A byte
// tile's pixels are converted one by one for the first few reads and then, for a row read more
// fully, all at once into `buffer`, which has room for the span.
class RowReader {
public:
    RowReader(const ConstImageTile& tile, int y, int x0, int x1, float* buffer)
        : _tile(&tile), _buffer(buffer), _y(y), _x0(x0), _x1(x1) {
        const PixelRect& r = tile.rect;
        _covered = y >= r.y && y < r.maxY() && x0 >= r.x && x1 <= r.maxX();
        if (_covered && !tile.bytes) {
            _row = tile.row(y);
            _origin = r.x;
        }
    }
    // Always inlined: the AVX2 loops read rows too, and a copy of it built for AVX2 could be
    // linked in for every caller.
    [[gnu::always_inline]] Float4 operator()(int x) const {
        if (!_row) {
            if (!_covered) return _tile->pixel(x, _y);
            if (_singleReads < kSingleReads) {
                ++_singleReads;
                return bytePixel(_tile->byteAt(x, _y));
            }
            convert();
        }
        return loadFloat4(_row + std::ptrdiff_t(x - _origin) * 4);
    }

private:
    void convert() const {
        bytesToFloatRow(_tile->byteAt(_x0, _y), _buffer, _x1 - _x0);
        _row = _buffer;
        _origin = _x0;
    }

    const ConstImageTile* _tile;
    float* _buffer;
    int _y;
    int _x0;
    int _x1;
    bool _covered = false;
    static constexpr int kSingleReads = 8;

    mutable const float* _row = nullptr;  // the pixel at _origin
    mutable int _origin = 0;
    mutable int _singleReads = 0;
};

}  // namespace qm::kernels
