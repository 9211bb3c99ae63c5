// Page curl with shadow: the from image rolls up like a page and casts a shadow on the target it
// uncovers.
#include "effects/transitions/kernels/PageCurlWithShadowKernel.h"

#include <algorithm>
#include <span>

#include "effects/transitions/kernels/dsp/TransitionDSP.h"
#include "effects/transitions/kernels/support/KernelSetup.h"
#include "effects/transitions/kernels/support/LaneMath.h"

namespace qm {

namespace kernels {

PageCurlWithShadowContext::PageCurlWithShadowContext(const PageCurlWithShadowTransitionParameters& parameters, float t)
    : g(makeGeometry(t, parameters.extent, parameters.angle, parameters.radius)),
      shadowLength(std::max(float(parameters.shadowSize) * 2.0f * g.radius, 1.0f)),
      shadowAmount(clamp01(float(parameters.shadowAmount))),
      caster(parameters.extent.intersection(parameters.shadowExtent)) {}

Rect PageCurlWithShadowContext::regionOfInterest(size_t index, const Rect& rect) const {
    switch (index) {
        case 0:
            return frontRegion(g, rect);
        case 2:
            return backRegion(g, rect);
        default:
            return rect;
    }
}

}  // namespace kernels

using namespace kernels;

Image pageCurlWithShadowTransition(const Image& from, const Image& to, double time,
                                   const PageCurlWithShadowTransitionParameters& parameters) {
    const PageCurlWithShadowContext context(parameters, transitionTime(time));
    auto kernel = transitionKernel("pageCurlWithShadow");
    // The back is read along rows (or sampled in the roll), the front and the target a pixel at
    // a time.
    kernel->byteInputs = {true, true, true, true};
    kernel->regionOfInterest = [context](size_t index, const Rect& rect) {
        return context.regionOfInterest(index, rect);
    };
    kernel->render = [context](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch& scratch) {
        transitionDSP().pageCurlWithShadow(context, out, in, scratch);
    };
    return applyKernel(kernel, {from, to, parameters.backsideImage ? parameters.backsideImage : from});
}

}  // namespace qm
