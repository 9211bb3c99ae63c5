// Page curl: the from image rolls up like a page, lit from a shading image, and uncovers the
// target.
#include "effects/transitions/kernels/PageCurlKernel.h"

#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "effects/transitions/kernels/dsp/TransitionDSP.h"
#include "effects/transitions/kernels/support/KernelSetup.h"
#include "effects/transitions/kernels/support/SphereShading.h"

namespace qm {

namespace kernels {

PageCurlContext::PageCurlContext(const PageCurlTransitionParameters& parameters, float t)
    : g(makeGeometry(t, parameters.extent, parameters.angle, parameters.radius)),
      hasShading(bool(parameters.shadingImage)),
      shadingExtent(parameters.shadingImage.extent()) {}

Rect PageCurlContext::regionOfInterest(size_t index, const Rect& rect) const {
    switch (index) {
        case 0:
            return frontRegion(g, rect);
        case 2:
            return backRegion(g, rect);
        case 3:
            return shadingExtent;
        default:
            return rect;
    }
}

}  // namespace kernels

using namespace kernels;

Image pageCurlTransition(const Image& from, const Image& to, double time,
                         const PageCurlTransitionParameters& parameters) {
    const PageCurlContext context(parameters, transitionTime(time));
    auto kernel = transitionKernel("pageCurl");
    // The back is read along rows (or sampled in the roll), the front and the target a pixel at
    // a time.
    kernel->byteInputs = {true, true, true, true};
    kernel->regionOfInterest = [context](size_t index, const Rect& rect) {
        return context.regionOfInterest(index, rect);
    };
    kernel->wholeInputs = {false, false, false, true};
    kernel->render = [context](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch& scratch) {
        // The normal tilts along d only, so the light is a function of one number.
        const CurlGeometry& g = context.g;
        std::optional<ShadingProfile> profile;
        if (context.hasShading && touchesRoll(g, alongRect(g, out.rect.toRect())))
            profile.emplace(SphereShading(in[3], context.shadingExtent), g.dx, g.dy, scratch);
        transitionDSP().pageCurl(context, profile ? &*profile : nullptr, out, in, scratch);
    };
    std::vector<Image> inputs{from, to, parameters.backsideImage ? parameters.backsideImage : from};
    if (context.hasShading) inputs.push_back(parameters.shadingImage);
    return applyKernel(kernel, std::move(inputs));
}

}  // namespace qm
