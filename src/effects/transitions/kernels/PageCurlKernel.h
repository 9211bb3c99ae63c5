#pragma once

#include <cstddef>

#include "effects/transitions/kernels/PageCurlGeometry.h"
#include "effects/transitions/kernels/TransitionKernels.h"
#include "platform/Geometry.h"

namespace qm::kernels {

// One frame of the page curl lit from a shading image.
struct PageCurlContext {
    CurlGeometry g;
    bool hasShading;
    Rect shadingExtent;

    PageCurlContext(const PageCurlTransitionParameters& parameters, float t);
    // The area of input `index` (front, target, back, shading) that a tile over `rect` reads.
    Rect regionOfInterest(size_t index, const Rect& rect) const;
};

}  // namespace qm::kernels
