#pragma once

#include <cstddef>

#include "effects/transitions/kernels/PageCurlGeometry.h"
#include "effects/transitions/kernels/TransitionKernels.h"
#include "platform/Geometry.h"

namespace qm::kernels {

// One frame of the page curl that casts a shadow.
struct PageCurlWithShadowContext {
    CurlGeometry g;
    float shadowLength;  // how far in front of the roll the shadow reaches
    float shadowAmount;
    Rect caster;  // the part of the page that casts a shadow

    PageCurlWithShadowContext(const PageCurlWithShadowTransitionParameters& parameters, float t);
    // The area of input `index` (front, target, back) that a tile over `rect` reads.
    Rect regionOfInterest(size_t index, const Rect& rect) const;
};

}  // namespace qm::kernels
