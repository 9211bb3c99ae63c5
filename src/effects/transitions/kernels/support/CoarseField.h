#pragma once

#include <algorithm>

#include "image/ImageTile.h"
#include "image/TileScratch.h"

namespace qm::kernels {

// A scalar function evaluated every 2^shift pixels over a tile and read back bilinearly at each
// pixel: for smooth fields that cost far more to evaluate than to interpolate. The grid is fixed
// in image space, so every tiling gives the same values.
class CoarseField {
public:
    // The values of one pixel row: the field between two grid rows, interpolated across.
    struct Row {
        const float* values;
        int x0;
        int shift;
        float inverseStep;

        float operator()(int x) const {
            const int dx = x - x0;
            const int i = dx >> shift;
            const float tx = float(dx & ((1 << shift) - 1)) * inverseStep;
            return values[i] + (values[i + 1] - values[i]) * tx;
        }
    };

    // A grid over the pixels of `rect` whose coordinates are multiples of 2^shift and one beyond
    // its edges, held in `scratch`; fill() or fill4() sets its values.
    CoarseField(TileScratch& scratch, const PixelRect& rect, int shift);

    // Evaluates f(cx, cy) at the centres of the grid's pixels.
    template <class Function>
    void fill(Function&& f) {
        const int step = 1 << _shift;
        float* value = _values;
        for (int j = 0; j < _rows; ++j) {
            const float cy = float(_y + j * step) + 0.5f;
            for (int i = 0; i < _columns; ++i) *value++ = f(float(_x + i * step) + 0.5f, cy);
        }
    }

    // As fill, four grid points at a time: f(cx, cy) gives the values at the four centres cx on
    // the row at cy.
    template <class Function4>
    void fill4(Function4&& f) {
        const int step = 1 << _shift;
        float* value = _values;
        for (int j = 0; j < _rows; ++j) {
            const float cy = float(_y + j * step) + 0.5f;
            for (int i = 0; i < _columns; i += 4) {
                const float x = float(_x + i * step) + 0.5f;
                const Float4 values = f(Float4{x, x + float(step), x + float(2 * step), x + float(3 * step)}, cy);
                for (int lane = 0; lane < std::min(4, _columns - i); ++lane) *value++ = values[lane];
            }
        }
    }

    // Pixel row y, which must lie in the grid's rect. Valid until the next call.
    Row row(int y);

private:
    int _x = 0;
    int _y = 0;
    int _shift = 0;
    int _columns = 0;
    int _rows = 0;
    float* _values = nullptr;  // _rows rows of _columns
    float* _row = nullptr;     // _columns, for row()
};

}  // namespace qm::kernels
