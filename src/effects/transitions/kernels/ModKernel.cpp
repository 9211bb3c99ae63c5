// Mod: the target shows through holes that open in the from image.
#include "effects/transitions/kernels/ModKernel.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "effects/transitions/kernels/dsp/TransitionDSP.h"
#include "effects/transitions/kernels/support/KernelSetup.h"

namespace qm {

namespace kernels {

ModContext::ModContext(const ModTransitionParameters& parameters, float time)
    : t(time),
      cx0(float(parameters.center.x)),
      cy0(float(parameters.center.y)),
      cosA(float(std::cos(parameters.angle))),
      sinA(float(std::sin(parameters.angle))),
      radius(float(std::max(parameters.radius, 1.0))),
      inversePitch(1.0f / (2.0f * radius)),
      inversePitch2(1.0f / (2.0f * 0.7f * radius)),
      inverseCompression(1.0f / float(std::max(parameters.compression, 1.0))),
      threshold(time * 1.415f) {}  // just above the farthest distance, sqrt(2)

}  // namespace kernels

using namespace kernels;

Image modTransition(const Image& from, const Image& to, double time, const ModTransitionParameters& parameters) {
    const ModContext context(parameters, transitionTime(time));
    auto kernel = transitionKernel("mod");
    kernel->render = [context](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch& scratch) {
        transitionDSP().mod(context, out, in, scratch);
    };
    return applyKernel(kernel, {from, to});
}

}  // namespace qm
