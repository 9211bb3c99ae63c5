#pragma once

#include "effects/transitions/kernels/TransitionKernels.h"
#include "image/ImageTile.h"

namespace qm::kernels {

// One frame of the flash transition.
struct FlashContext {
    Float4 flash;  // the flash's colour, premultiplied
    float cx0;     // the centre
    float cy0;
    float inverseReach;  // 1 / the distance from the centre to the farthest corner
    float rayRadius;
    float rayStrength;
    int rayPower;
    float spread;  // before the threshold, the time as a share of it; 0 after
    float fade;    // after the threshold, the target's share; 0 before
    bool fading;   // past the threshold: the flash fades into the target

    FlashContext(const FlashTransitionParameters& parameters, float t);
};

}  // namespace qm::kernels
