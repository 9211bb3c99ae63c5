#include "effects/transitions/PSTransitionFilters.h"

#include <map>
#include <mutex>
#include <utility>

#include "effects/transitions/kernels/TransitionKernels.h"
#include "foundation/QMCommon.h"
#include "image/RenderContext.h"
#include "platform/Bitmap.h"

namespace qm {

namespace {

// The time a filter family hands over: the raw percent in single precision.
double timeOf(double percent) {
    return static_cast<float>(percent);
}

Point centerOf(const Rect& extent) {
    return {extent.origin.x + 0.5 * extent.size.width, extent.origin.y + 0.5 * extent.size.height};
}

// The shared mask Lanczos-scaled by `scale` with `aspectRatio`. Every frame of a transition asks for
// the same scaling, so each one is rendered once and kept (the last few sizes).
Image fittedMask(float scale, float aspectRatio) {
    static std::mutex mutex;
    static std::map<std::pair<float, float>, Image> fitted;
    const std::lock_guard lock(mutex);
    const auto key = std::make_pair(scale, aspectRatio);
    if (const auto found = fitted.find(key); found != fitted.end()) return found->second;

    const Image scaled = PSTransition::maskImage().lanczosScale(scale, aspectRatio);
    const Rect region = scaled.extent().integral();
    Image kept = scaled;
    if (const auto bitmap = QMCommon::shareContext().createBitmap(scaled, region)) {
        AffineTransform place;
        place.translateXBy(region.origin.x, region.origin.y);
        kept = Image::imageWithBitmap(bitmap);
        if (!place.isIdentity()) kept = kept.transformed(place);
    }
    if (fitted.size() >= 4) fitted.clear();
    fitted.emplace(key, kept);
    return kept;
}

}  // namespace

double transitionAngleA(int32_t direction) {
    const double pi = QMCommon::PI();
    switch (direction) {
        case PSTransitionDirectionTop: return 1.5 * pi;
        case PSTransitionDirectionRight: return pi;
        case PSTransitionDirectionBottom: return 0.5 * pi;
        default: return 0;
    }
}

double transitionAngleB(int32_t direction) {
    const double pi = QMCommon::PI();
    switch (direction) {
        case PSTransitionDirectionTop: return -0.75 * pi;
        case PSTransitionDirectionRight: return 0.75 * pi;
        case PSTransitionDirectionBottom: return 0.25 * pi;
        default: return -0.25 * pi;
    }
}

Image PSTransitionDissolve::transitionImage(const Image& from, const Image& to, double percent) const {
    if (!from || !to) return to;
    return dissolveTransition(from, to, timeOf(percent));
}

Image PSTransitionAccordionFold::transitionImage(const Image& from, const Image& to, double percent) const {
    if (!from || !to) return to;
    AccordionFoldTransitionParameters parameters;
    parameters.numberOfFolds = 20.0f;
    parameters.foldShadowAmount = 0.4f;
    return accordionFoldTransition(from, to, timeOf(percent), parameters);
}

Image PSTransitionBarsSwipe::transitionImage(const Image& from, const Image& to, double percent) const {
    if (!from || !to) return to;
    BarsSwipeTransitionParameters parameters;
    parameters.angle = static_cast<float>(transitionAngleA(direction()));
    parameters.width = 40.0f;
    parameters.barOffset = 20.0f;
    return barsSwipeTransition(from, to, timeOf(percent), parameters);
}

Image PSTransitionCopyMachine::transitionImage(const Image& from, const Image& to, double percent) const {
    if (!from || !to) return to;
    CopyMachineTransitionParameters parameters;
    parameters.angle = static_cast<float>(transitionAngleA(direction()));
    parameters.extent = from.extent();
    return copyMachineTransition(from, to, timeOf(percent), parameters);
}

Image PSTransitionMod::transitionImage(const Image& from, const Image& to, double percent) const {
    if (!from || !to) return to;
    ModTransitionParameters parameters;
    parameters.center = centerOf(from.extent());
    return modTransition(from, to, timeOf(percent), parameters);
}

Image PSTransitionFlash::transitionImage(const Image& from, const Image& to, double percent) const {
    if (!from || !to) return to;
    FlashTransitionParameters parameters;
    parameters.center = centerOf(from.extent());
    parameters.extent = from.extent();
    return flashTransition(from, to, timeOf(percent), parameters);
}

Image PSTransitionPageCurl::transitionImage(const Image& from, const Image& to, double percent) const {
    if (!from || !to) return to;
    PageCurlTransitionParameters parameters;
    parameters.backsideImage = from;
    parameters.shadingImage = shadingImage();
    parameters.angle = transitionAngleB(direction());
    parameters.extent = from.extent();
    return pageCurlTransition(from, to, timeOf(percent), parameters);
}

Image PSTransitionPageCurlWithShadow::transitionImage(const Image& from, const Image& to, double percent) const {
    if (!from || !to) return to;
    PageCurlWithShadowTransitionParameters parameters;
    parameters.backsideImage = from;
    parameters.angle = transitionAngleB(direction());
    parameters.shadowSize = 0.6;
    parameters.shadowAmount = 0.8;
    parameters.shadowExtent = from.extent();
    parameters.extent = from.extent();
    return pageCurlWithShadowTransition(from, to, timeOf(percent), parameters);
}

Image PSTransitionRipple::transitionImage(const Image& from, const Image& to, double percent) const {
    if (!from || !to) return to;
    RippleTransitionParameters parameters;
    parameters.shadingImage = shadingImage();
    parameters.center = centerOf(from.extent());
    parameters.extent = from.extent();
    return rippleTransition(from, to, timeOf(percent), parameters);
}

Image PSTransitionSwipe::transitionImage(const Image& from, const Image& to, double percent) const {
    if (!from || !to) return to;
    SwipeTransitionParameters parameters;
    parameters.extent = from.extent();
    parameters.angle = transitionAngleA(direction());
    parameters.opacity = 0.5;
    return swipeTransition(from, to, timeOf(percent), parameters);
}

Image PSTransitionDisintegrateWithMask::transitionImage(const Image& from, const Image& to, double percent) const {
    if (!from || !to) return to;
    const Rect m = maskImage().extent();
    const Rect e = from.extent();
    const float sx = static_cast<float>(e.size.width / m.size.width);
    const float sy = static_cast<float>((e.size.height + e.origin.y) / m.size.height);
    DisintegrateWithMaskTransitionParameters parameters;
    parameters.maskImage = fittedMask(sy, sx / sy);
    parameters.shadowRadius = 8.0;
    parameters.shadowDensity = 0.6499999761581421;
    parameters.shadowOffset = {10.0, -10.0};
    return disintegrateWithMaskTransition(from, to, timeOf(percent), parameters);
}

}  // namespace qm
