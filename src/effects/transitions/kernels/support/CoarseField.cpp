#include "effects/transitions/kernels/support/CoarseField.h"

#include <cstddef>

namespace qm::kernels {

CoarseField::CoarseField(TileScratch& scratch, const PixelRect& rect, int shift)
    : _x((rect.x >> shift) << shift),
      _y((rect.y >> shift) << shift),
      _shift(shift),
      _columns(((rect.maxX() - 1 - _x) >> shift) + 2),
      _rows(((rect.maxY() - 1 - _y) >> shift) + 2),
      _values(scratch.allocate<float>(size_t(_columns) * size_t(_rows))),
      _row(scratch.allocate<float>(size_t(_columns))) {}

CoarseField::Row CoarseField::row(int y) {
    const int dy = y - _y;
    const float* top = _values + size_t(dy >> _shift) * size_t(_columns);
    const float* bottom = top + _columns;
    const float inverseStep = 1.0f / float(1 << _shift);
    const float ty = float(dy & ((1 << _shift) - 1)) * inverseStep;
    for (int i = 0; i < _columns; ++i) _row[i] = top[i] + (bottom[i] - top[i]) * ty;
    return {_row, _x, _shift, inverseStep};
}

}  // namespace qm::kernels
