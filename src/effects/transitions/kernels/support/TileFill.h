#pragma once

#include <cstddef>
#include <span>

#include "effects/transitions/kernels/support/InputRows.h"
#include "image/ImageTile.h"

// Filling an output tile row by row, pixel by pixel or with runs copied from an input.
namespace qm::kernels {

// At t <= 0 or t >= 1 a transition shows one input unchanged: copies it into `out` (input 0 at
// the start, input 1 at the end) and gives true. Gives false in between.
bool copyEndInput(const ImageTile& out, std::span<const ConstImageTile> in, float t);

// Fills every pixel of `out`. For each row, `rowSetup(y, cy)` gives the row's pixel function,
// which `pixel(x, cx)` calls for each pixel; cx, cy are the pixel's centre.
template <class RowSetup>
void fillTile(const ImageTile& out, RowSetup&& rowSetup) {
    for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
        auto pixel = rowSetup(y, float(y) + 0.5f);
        float* row = out.row(y);
        for (int x = out.rect.x; x < out.rect.maxX(); ++x, row += 4) storeFloat4(row, pixel(x, float(x) + 0.5f));
    }
}

// Fills every pixel of `out`, copying runs of pixels straight from an input. For each row,
// `rowSetup(y, cy)` gives the row's pixel function, which `pixel(x, cx, value)` calls for each
// pixel: it returns the index of the input whose pixel (x, y) is the result, or -1 after setting
// `value`.
template <class RowSetup>
void fillTileWithCopies(const ImageTile& out, std::span<const ConstImageTile> in, RowSetup&& rowSetup) {
    const int first = out.rect.x;
    const int end = out.rect.maxX();
    for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
        float* row = out.row(y);
        auto pixel = rowSetup(y, float(y) + 0.5f);
        // The run of pixels copied from input `runSource` (none while negative) since runStart.
        int runSource = -1;
        int runStart = first;
        for (int x = first; x < end; ++x) {
            Float4 value = splat(0.0f);
            const int source = pixel(x, float(x) + 0.5f, value);
            if (source != runSource) {
                if (runSource >= 0) copyRow(in[size_t(runSource)], y, runStart, x, row + 4 * (runStart - first));
                runSource = source;
                runStart = x;
            }
            if (source < 0) storeFloat4(row + 4 * (x - first), value);
        }
        if (runSource >= 0) copyRow(in[size_t(runSource)], y, runStart, end, row + 4 * (runStart - first));
    }
}

}  // namespace qm::kernels
