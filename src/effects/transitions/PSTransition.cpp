#include "effects/transitions/PSTransition.h"

#include <functional>
#include <utility>

#include "effects/transitions/PSTransitionAssets.h"
#include "effects/transitions/PSTransitionFade.h"
#include "effects/transitions/PSTransitionFilters.h"
#include "effects/transitions/PSTransitionMotion.h"
#include "foundation/QMCommon.h"
#include "image/RenderContext.h"
#include "platform/Bitmap.h"

namespace qm {

namespace {

using Factory = std::function<std::shared_ptr<PSTransition>()>;

template <class T>
std::pair<std::string, Factory> entry() {
    return {T::create()->name(), [] { return T::create(); }};
}

// The catalogue in display order.
const std::vector<std::pair<std::string, Factory>>& catalogue() {
    static const std::vector<std::pair<std::string, Factory>> entries = {
        entry<PSTransitionFade>(),
        entry<PSTransitionPush>(),
        entry<PSTransitionPushRight>(),
        entry<PSTransitionPushTop>(),
        entry<PSTransitionPushBottom>(),
        entry<PSTransitionMoveIn>(),
        entry<PSTransitionMoveInRight>(),
        entry<PSTransitionMoveInTop>(),
        entry<PSTransitionMoveInBottom>(),
        entry<PSTransitionReveal>(),
        entry<PSTransitionRevealRight>(),
        entry<PSTransitionRevealTop>(),
        entry<PSTransitionRevealBottom>(),
        entry<PSTransitionAccordionFold>(),
        entry<PSTransitionBarsSwipe>(),
        entry<PSTransitionBarsSwipeRight>(),
        entry<PSTransitionBarsSwipeTop>(),
        entry<PSTransitionBarsSwipeBottom>(),
        entry<PSTransitionCopyMachine>(),
        entry<PSTransitionCopyMachineRight>(),
        entry<PSTransitionCopyMachineTop>(),
        entry<PSTransitionCopyMachineBottom>(),
        entry<PSTransitionMod>(),
        entry<PSTransitionFlash>(),
        entry<PSTransitionDissolve>(),
        entry<PSTransitionPageCurl>(),
        entry<PSTransitionPageCurlRight>(),
        entry<PSTransitionPageCurlTop>(),
        entry<PSTransitionPageCurlBottom>(),
        entry<PSTransitionPageCurlWithShadow>(),
        entry<PSTransitionPageCurlWithShadowRight>(),
        entry<PSTransitionPageCurlWithShadowTop>(),
        entry<PSTransitionPageCurlWithShadowBottom>(),
        entry<PSTransitionRipple>(),
        entry<PSTransitionSwipe>(),
        entry<PSTransitionSwipeRight>(),
        entry<PSTransitionSwipeTop>(),
        entry<PSTransitionSwipeBottom>(),
        entry<PSTransitionDisintegrateWithMask>(),
    };
    return entries;
}

}  // namespace

const std::vector<std::string>& PSTransition::supportTransitions() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> result;
        for (const auto& [name, factory] : catalogue()) result.push_back(name);
        return result;
    }();
    return names;
}

std::shared_ptr<PSTransition> PSTransition::transitionWithName(const std::string& name) {
    for (const auto& [entryName, factory] : catalogue()) {
        if (entryName == name) return factory();
    }
    return create();
}

std::shared_ptr<PSTransition> PSTransition::defaultTransition() {
    return transitionWithName(PSTransitionFadeName);
}

double PSTransition::fromValue(double from, double to, double percent) {
    if (!(percent > 0)) return from;
    if (!(percent < 1)) return to;
    return from + (to - from) * percent;
}

Image PSTransition::shadingImage() {
    static const Image shading = Image::imageWithBitmap(PSTransitionAssets::shadingBitmap());
    return shading;
}

Image PSTransition::maskImage() {
    static const Image mask = Image::imageWithBitmap(PSTransitionAssets::maskBitmap());
    return mask;
}

std::shared_ptr<const Bitmap> PSTransition::face() {
    std::call_once(_faceOnce, [this] {
        // Drawn at a picture size, then reduced: the transitions' widths and radii are in pixels.
        const int width = PSTransitionAssets::kFaceRenderWidth;
        const int height = PSTransitionAssets::kFaceRenderHeight;
        static const Image from = Image::imageWithBitmap(PSTransitionAssets::samplePicture(0, width, height));
        static const Image to = Image::imageWithBitmap(PSTransitionAssets::samplePicture(1, width, height));
        const Image picture = transitionImage(from, to, 0.5);
        if (!picture) return;
        if (const auto full = QMCommon::shareContext().createBitmap(picture, Rect{0, 0, double(width), double(height)}))
            _face = full->scaledToSize(PSTransitionAssets::kFaceWidth, PSTransitionAssets::kFaceHeight);
    });
    return _face;
}

Image PSTransition::transitionImage(const Image&, const Image&, double) const {
    return {};
}

}  // namespace qm
