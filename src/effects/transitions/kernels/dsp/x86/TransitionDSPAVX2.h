#pragma once

#include "effects/transitions/kernels/dsp/TransitionDSP.h"

namespace qm::kernels {

// The AVX2 entries of TransitionDSP, for processors that have AVX2.
const TransitionDSP& avx2TransitionDSP();

}  // namespace qm::kernels
