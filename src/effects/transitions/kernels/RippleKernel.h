#pragma once

#include <cstddef>

#include "effects/transitions/kernels/TransitionKernels.h"
#include "platform/Geometry.h"

namespace qm::kernels {

// One frame of the ripple transition: where the wave is and how it bends and lights the pictures.
struct RippleContext {
    float t;
    float cx0;  // the centre
    float cy0;
    float front;  // radius of the wave's front
    float inverseWidth;
    float back;  // radius of the wave's back, negative before it has left the centre
    float frontSquared;
    float backSquared;  // -1 while the back is negative
    float scale;
    float halfScale;  // displacement at the crest
    float slope;      // tilt of the surface at the crest
    float minX;       // where displaced reads may go
    float maxX;
    float minY;
    float maxY;
    bool hasShading;
    Rect shadingExtent;

    RippleContext(const RippleTransitionParameters& parameters, float time);
    // The area of input `index` that a tile over `rect` reads.
    Rect regionOfInterest(size_t index, const Rect& rect) const;
};

}  // namespace qm::kernels
