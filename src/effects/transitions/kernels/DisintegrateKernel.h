#pragma once

#include <cstddef>

#include "effects/transitions/kernels/TransitionKernels.h"
#include "platform/Geometry.h"

namespace qm::kernels {

// One frame of the disintegrate-with-mask transition.
struct DisintegrateContext {
    float t;
    int offsetX;  // the shadow's offset, in whole pixels
    int offsetY;
    float softness;  // 1 / (2 * the shadow's radius)
    float density;

    DisintegrateContext(const DisintegrateWithMaskTransitionParameters& parameters, float time);
    // The area of input `index` (from, target, mask) that a tile over `rect` reads.
    Rect regionOfInterest(size_t index, const Rect& rect) const;
};

}  // namespace qm::kernels
