// Disintegrate with mask: the from image falls apart where the mask is darker than the time.
//
// With m the mask's luminance and g the length of its gradient (central differences), the signed
// distance of a pixel to the edge at time t is (m - t) / g pixels, positive where the from image
// remains. The from image covers clamp(distance + 0.5, 0, 1) of the pixel. The shadow at a pixel
// is that of the remaining picture at the pixel minus the offset (rounded to whole pixels):
// density * smoothstep(0.5 + distance / (2 * radius)), a silhouette softened over the radius.
#include "effects/transitions/kernels/DisintegrateKernel.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "effects/transitions/kernels/dsp/TransitionDSP.h"
#include "effects/transitions/kernels/support/ExtentGeometry.h"
#include "effects/transitions/kernels/support/KernelSetup.h"
#include "effects/transitions/kernels/support/LaneMath.h"

namespace qm {

namespace kernels {

DisintegrateContext::DisintegrateContext(const DisintegrateWithMaskTransitionParameters& parameters, float time)
    : t(time),
      offsetX(int(std::lround(parameters.shadowOffset.x))),
      offsetY(int(std::lround(parameters.shadowOffset.y))),
      softness(1.0f / (2.0f * std::max(float(parameters.shadowRadius), 0.5f))),
      density(clamp01(float(parameters.shadowDensity))) {}

Rect DisintegrateContext::regionOfInterest(size_t index, const Rect& rect) const {
    if (index != 2) return rect;
    const Point shift[1] = {{double(-offsetX), double(-offsetY)}};
    return outset(unionOfShifted(rect, shift), 1);
}

}  // namespace kernels

using namespace kernels;

Image disintegrateWithMaskTransition(const Image& from, const Image& to, double time,
                                     const DisintegrateWithMaskTransitionParameters& parameters) {
    const DisintegrateContext context(parameters, transitionTime(time));
    auto kernel = transitionKernel("disintegrateWithMask");
    kernel->regionOfInterest = [context](size_t index, const Rect& rect) {
        return context.regionOfInterest(index, rect);
    };
    kernel->render = [context](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch& scratch) {
        transitionDSP().disintegrate(context, out, in, scratch);
    };
    return applyKernel(kernel, {from, to, parameters.maskImage});
}

}  // namespace qm
