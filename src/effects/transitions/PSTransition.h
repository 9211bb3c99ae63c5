#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "image/Image.h"

namespace qm {

class Bitmap;

// Display names of the catalogue, in the order shown to the user.
inline constexpr char PSTransitionFadeName[] = "Fade";
inline constexpr char PSTransitionPushName[] = "Push(Left)";
inline constexpr char PSTransitionPushRightName[] = "Push(Right)";
inline constexpr char PSTransitionPushTopName[] = "Push(Top)";
inline constexpr char PSTransitionPushBottomName[] = "Push(Bottom)";
inline constexpr char PSTransitionMoveInName[] = "Move In(Left)";
inline constexpr char PSTransitionMoveInRightName[] = "Move In(Right)";
inline constexpr char PSTransitionMoveInTopName[] = "Move In(Top)";
inline constexpr char PSTransitionMoveInBottomName[] = "Move In(Bottom)";
inline constexpr char PSTransitionRevealName[] = "Reveal(Left)";
inline constexpr char PSTransitionRevealRightName[] = "Reveal(Right)";
inline constexpr char PSTransitionRevealTopName[] = "Reveal(Top)";
inline constexpr char PSTransitionRevealBottomName[] = "Reveal(Bottom)";
inline constexpr char PSTransitionAccordionFoldName[] = "Accordion Fold";
inline constexpr char PSTransitionBarsSwipeName[] = "Bars Swipe(Left)";
inline constexpr char PSTransitionBarsSwipeRightName[] = "Bars Swipe(Right)";
inline constexpr char PSTransitionBarsSwipeTopName[] = "Bars Swipe(Top)";
inline constexpr char PSTransitionBarsSwipeBottomName[] = "Bars Swipe(Bottom)";
inline constexpr char PSTransitionCopyMachineName[] = "Copy Machine(Left)";
inline constexpr char PSTransitionCopyMachineRightName[] = "Copy Machine(Right)";
inline constexpr char PSTransitionCopyMachineTopName[] = "Copy Machine(Top)";
inline constexpr char PSTransitionCopyMachineBottomName[] = "Copy Machine(Bottom)";
inline constexpr char PSTransitionModName[] = "Mod";
inline constexpr char PSTransitionFlashName[] = "Flash";
inline constexpr char PSTransitionDissolveName[] = "Dissolve";
inline constexpr char PSTransitionPageCurlName[] = "Page Curl(Left)";
inline constexpr char PSTransitionPageCurlRightName[] = "Page Curl(Right)";
inline constexpr char PSTransitionPageCurlTopName[] = "Page Curl(Top)";
inline constexpr char PSTransitionPageCurlBottomName[] = "Page Curl(Bottom)";
inline constexpr char PSTransitionPageCurlWithShadowName[] = "Page Curl With Shadow(Left)";
inline constexpr char PSTransitionPageCurlWithShadowRightName[] = "Page Curl With Shadow(Right)";
inline constexpr char PSTransitionPageCurlWithShadowTopName[] = "Page Curl With Shadow(Top)";
inline constexpr char PSTransitionPageCurlWithShadowBottomName[] = "Page Curl With Shadow(Bottom)";
inline constexpr char PSTransitionRippleName[] = "Ripple";
inline constexpr char PSTransitionSwipeName[] = "Swipe(Left)";
inline constexpr char PSTransitionSwipeRightName[] = "Swipe(Right)";
inline constexpr char PSTransitionSwipeTopName[] = "Swipe(Top)";
inline constexpr char PSTransitionSwipeBottomName[] = "Swipe(Bottom)";
inline constexpr char PSTransitionDisintegrateWithMaskName[] = "Disintegrate With Mask";

// Direction codes of the directional families.
enum : int32_t {
    PSTransitionDirectionLeft = 0,
    PSTransitionDirectionTop = 1,
    PSTransitionDirectionRight = 2,
    PSTransitionDirectionBottom = 3,
};

// A picture transition: a pure function of the outgoing picture, the incoming picture and a
// percent. This base class is the transition named "None", which gives no picture; the catalogue's
// classes derive from it. Objects hold no state but their thumbnail and may be used from any
// thread.
class PSTransition {
public:
    static std::shared_ptr<PSTransition> create() { return std::make_shared<PSTransition>(); }

    // The 39 display names, in the order shown to the user.
    static const std::vector<std::string>& supportTransitions();
    // A new transition of the class named exactly `name`; a plain PSTransition ("None") for any
    // other name, never nullptr.
    static std::shared_ptr<PSTransition> transitionWithName(const std::string& name);
    // transitionWithName("Fade").
    static std::shared_ptr<PSTransition> defaultTransition();
    // `from` when percent is not above 0 (NaN included), `to` when it is not below 1, else
    // from + (to - from) * percent.
    static double fromValue(double from, double to, double percent);
    // The shared shading picture (a lit sphere in a square) and the shared greyscale mask, each
    // made once per process.
    static Image shadingImage();
    static Image maskImage();

    PSTransition() = default;
    virtual ~PSTransition() = default;
    PSTransition(const PSTransition&) = delete;
    PSTransition& operator=(const PSTransition&) = delete;

    virtual std::string name() const { return "None"; }
    // The thumbnail: the transition halfway between the two sample pictures, drawn at 960 x 540 and
    // reduced, made on first use. Nothing for a transition that gives no picture.
    std::shared_ptr<const Bitmap> face();
    // The composed picture, or null (this base class always gives null).
    virtual Image transitionImage(const Image& from, const Image& to, double percent) const;

private:
    std::once_flag _faceOnce;
    std::shared_ptr<const Bitmap> _face;
};

}  // namespace qm
