#pragma once

#include <algorithm>
#include <cmath>

#include "effects/transitions/kernels/TransitionKernels.h"
#include "image/ImageTile.h"

namespace qm::kernels {

// The folded from image at one time of the accordion fold.
struct Fold {
    float left = 0;    // the edge the picture folds towards
    float middle = 0;  // vertical centre of the picture
    float width = 1;   // unfolded
    float cosine = 1;  // of the fold angle: the folded share of the width
    float panel = 1;   // unfolded panel width
    float depth = 0;   // deepest point of a panel
    float viewer = 1;  // distance of the viewer
    float shadow = 0;  // darkening of the panels facing away

    // The panel column at output position cx: the from image's x there, the vertical scale of the
    // perspective and the light. False where no panel lies.
    bool column(float cx, float& sourceX, float& inverseScale, float& light) const {
        const float folded = (cx - left) / cosine;  // the unfolded distance from the left edge
        if (folded < -1.0f || folded > width + 1.0f) return false;
        const float panels = folded / panel;
        const float index = std::floor(panels);
        const float within = panels - index;
        const bool away = std::fmod(index, 2.0f) == 0.0f;
        const float z = (away ? within : 1.0f - within) * depth;
        sourceX = left + folded;
        inverseScale = (viewer + z) / viewer;
        light = 1.0f - shadow * (away ? 1.0f : 0.25f);
        return true;
    }
};

// A folded column of a tile: where it reads the from image, its perspective and its light.
struct Column {
    Float4 light = splat(1.0f);  // the light on red, green and blue; 1 on alpha
    float sourceX = 0;
    float inverseScale = 1;
    int x0 = 0;           // the left pixel of the bilinear sample
    float tx = 0;         // the weight of the right one
    int wx = 0;           // tx as a fixed-point weight, for a byte tile
    bool inside = false;  // both pixels lie in the from tile's columns
};

// A run of folded pixels start <= x < end of one row.
struct PanelRun {
    const Fold* fold;
    const Column* column;        // column[x]
    const float* inverseScales;  // column[x].inverseScale at inverseScales[x], readable up to eight past `end`
    float fromMiddle;            // the row's centre above the picture's middle
    int start;
    int end;
};

// The pixels from `first` to `last` that lit panels leave partly uncovered; none while first > last.
struct ClearSpan {
    int first;
    int last;

    void widen(int x) {
        first = std::min(first, x);
        last = x;
    }
};

// Later rows read a little higher up the same columns, scattered over many source rows: bytes are
// fetched this many rows ahead.
constexpr int kPanelPrefetchRows = 4;

// Stores the lit panels of `run` from the byte tile `from` into `dst` (pixel `run.start` first)
// and widens `clear` over those that are not opaque. The reference for TransitionDSP's
// foldBytePanels.
void litBytePanels(const PanelRun& run, const ConstImageTile& from, float* dst, ClearSpan& clear);

}  // namespace qm::kernels
