// Flash: a flash grows from a centre point, floods the picture and fades into the target.
#include "effects/transitions/kernels/FlashKernel.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "effects/transitions/kernels/dsp/TransitionDSP.h"
#include "effects/transitions/kernels/support/ExtentGeometry.h"
#include "effects/transitions/kernels/support/KernelSetup.h"

namespace qm {

namespace kernels {

FlashContext::FlashContext(const FlashTransitionParameters& parameters, float t)
    : flash(premultiplied(parameters.color)),
      cx0(float(parameters.center.x)),
      cy0(float(parameters.center.y)),
      inverseReach(1.0f / farthestCorner(parameters.center, parameters.extent)),
      rayRadius(float(std::max(parameters.maxStriationRadius, 0.0))),
      rayStrength(float(parameters.striationStrength)),
      rayPower(std::max(1, int(std::lround(2.0 * parameters.striationContrast)))),
      spread(0),
      fade(0) {
    const float threshold = std::clamp(float(parameters.fadeThreshold), 0.001f, 0.999f);
    fading = t > threshold;
    if (fading)
        fade = (t - threshold) / (1.0f - threshold);
    else
        spread = t / threshold;
}

}  // namespace kernels

using namespace kernels;

Image flashTransition(const Image& from, const Image& to, double time, const FlashTransitionParameters& parameters) {
    const FlashContext context(parameters, transitionTime(time));
    auto kernel = transitionKernel("flash");
    kernel->render = [context](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch& scratch) {
        const TransitionDSP& dsp = transitionDSP();
        if (context.fading)
            dsp.flashFade(context, out, in);
        else
            dsp.flash(context, out, in, scratch);
    };
    return applyKernel(kernel, {from, to});
}

}  // namespace qm
