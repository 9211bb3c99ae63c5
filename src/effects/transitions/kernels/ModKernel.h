#pragma once

#include "effects/transitions/kernels/TransitionKernels.h"

namespace qm::kernels {

// One frame of the mod transition.
struct ModContext {
    float t;
    float cx0;  // the centre
    float cy0;
    float cosA;  // the first lattice's turn
    float sinA;
    float radius;
    float inversePitch;   // of the first lattice
    float inversePitch2;  // of the second
    float inverseCompression;
    float threshold;  // the distance, in half-pitches, below which the target shows

    ModContext(const ModTransitionParameters& parameters, float time);
};

}  // namespace qm::kernels
