#pragma once

#include "effects/transitions/PSTransition.h"

namespace qm {

// The filter families: each hands the from picture, the to picture and the raw percent (as the
// time, in single precision) to one transition kernel (kernels/TransitionKernels.h) with fixed
// settings. E below is the extent of the from picture. A missing picture gives the to picture (so
// nothing when that is missing). Directional families are the Left variant; their Right, Top and
// Bottom subclasses change only name and direction.

// Angle table A (bars swipe, copy machine, swipe) in radians, with the stored PI (3.1415916):
// Left 0, Top 1.5 PI, Right PI, Bottom 0.5 PI; any other code takes the Left angle.
double transitionAngleA(int32_t direction);
// Angle table B (the page curls): Left -0.25 PI, Top -0.75 PI, Right 0.75 PI, Bottom 0.25 PI; any
// other code takes the Left angle.
double transitionAngleB(int32_t direction);

// dissolveTransition.
class PSTransitionDissolve : public PSTransition {
public:
    static std::shared_ptr<PSTransitionDissolve> create() { return std::make_shared<PSTransitionDissolve>(); }
    std::string name() const override { return PSTransitionDissolveName; }
    Image transitionImage(const Image& from, const Image& to, double percent) const override;
};

// accordionFoldTransition with 20 folds and fold shadow 0.4.
class PSTransitionAccordionFold : public PSTransition {
public:
    static std::shared_ptr<PSTransitionAccordionFold> create() { return std::make_shared<PSTransitionAccordionFold>(); }
    std::string name() const override { return PSTransitionAccordionFoldName; }
    Image transitionImage(const Image& from, const Image& to, double percent) const override;
};

// barsSwipeTransition at angle A, bars 40 wide, bar offset 20.
class PSTransitionBarsSwipe : public PSTransition {
public:
    static std::shared_ptr<PSTransitionBarsSwipe> create() { return std::make_shared<PSTransitionBarsSwipe>(); }
    std::string name() const override { return PSTransitionBarsSwipeName; }
    virtual int32_t direction() const { return PSTransitionDirectionLeft; }
    Image transitionImage(const Image& from, const Image& to, double percent) const override;
};

class PSTransitionBarsSwipeRight : public PSTransitionBarsSwipe {
public:
    static std::shared_ptr<PSTransitionBarsSwipeRight> create() { return std::make_shared<PSTransitionBarsSwipeRight>(); }
    std::string name() const override { return PSTransitionBarsSwipeRightName; }
    int32_t direction() const override { return PSTransitionDirectionRight; }
};

class PSTransitionBarsSwipeTop : public PSTransitionBarsSwipe {
public:
    static std::shared_ptr<PSTransitionBarsSwipeTop> create() { return std::make_shared<PSTransitionBarsSwipeTop>(); }
    std::string name() const override { return PSTransitionBarsSwipeTopName; }
    int32_t direction() const override { return PSTransitionDirectionTop; }
};

class PSTransitionBarsSwipeBottom : public PSTransitionBarsSwipe {
public:
    static std::shared_ptr<PSTransitionBarsSwipeBottom> create() { return std::make_shared<PSTransitionBarsSwipeBottom>(); }
    std::string name() const override { return PSTransitionBarsSwipeBottomName; }
    int32_t direction() const override { return PSTransitionDirectionBottom; }
};

// copyMachineTransition at angle A over E.
class PSTransitionCopyMachine : public PSTransition {
public:
    static std::shared_ptr<PSTransitionCopyMachine> create() { return std::make_shared<PSTransitionCopyMachine>(); }
    std::string name() const override { return PSTransitionCopyMachineName; }
    virtual int32_t direction() const { return PSTransitionDirectionLeft; }
    Image transitionImage(const Image& from, const Image& to, double percent) const override;
};

class PSTransitionCopyMachineRight : public PSTransitionCopyMachine {
public:
    static std::shared_ptr<PSTransitionCopyMachineRight> create() { return std::make_shared<PSTransitionCopyMachineRight>(); }
    std::string name() const override { return PSTransitionCopyMachineRightName; }
    int32_t direction() const override { return PSTransitionDirectionRight; }
};

class PSTransitionCopyMachineTop : public PSTransitionCopyMachine {
public:
    static std::shared_ptr<PSTransitionCopyMachineTop> create() { return std::make_shared<PSTransitionCopyMachineTop>(); }
    std::string name() const override { return PSTransitionCopyMachineTopName; }
    int32_t direction() const override { return PSTransitionDirectionTop; }
};

class PSTransitionCopyMachineBottom : public PSTransitionCopyMachine {
public:
    static std::shared_ptr<PSTransitionCopyMachineBottom> create() { return std::make_shared<PSTransitionCopyMachineBottom>(); }
    std::string name() const override { return PSTransitionCopyMachineBottomName; }
    int32_t direction() const override { return PSTransitionDirectionBottom; }
};

// modTransition about the centre of E.
class PSTransitionMod : public PSTransition {
public:
    static std::shared_ptr<PSTransitionMod> create() { return std::make_shared<PSTransitionMod>(); }
    std::string name() const override { return PSTransitionModName; }
    Image transitionImage(const Image& from, const Image& to, double percent) const override;
};

// flashTransition from the centre of E over E.
class PSTransitionFlash : public PSTransition {
public:
    static std::shared_ptr<PSTransitionFlash> create() { return std::make_shared<PSTransitionFlash>(); }
    std::string name() const override { return PSTransitionFlashName; }
    Image transitionImage(const Image& from, const Image& to, double percent) const override;
};

// pageCurlTransition at angle B over E, with the from picture as backside and the shared shading
// image.
class PSTransitionPageCurl : public PSTransition {
public:
    static std::shared_ptr<PSTransitionPageCurl> create() { return std::make_shared<PSTransitionPageCurl>(); }
    std::string name() const override { return PSTransitionPageCurlName; }
    virtual int32_t direction() const { return PSTransitionDirectionLeft; }
    Image transitionImage(const Image& from, const Image& to, double percent) const override;
};

class PSTransitionPageCurlRight : public PSTransitionPageCurl {
public:
    static std::shared_ptr<PSTransitionPageCurlRight> create() { return std::make_shared<PSTransitionPageCurlRight>(); }
    std::string name() const override { return PSTransitionPageCurlRightName; }
    int32_t direction() const override { return PSTransitionDirectionRight; }
};

class PSTransitionPageCurlTop : public PSTransitionPageCurl {
public:
    static std::shared_ptr<PSTransitionPageCurlTop> create() { return std::make_shared<PSTransitionPageCurlTop>(); }
    std::string name() const override { return PSTransitionPageCurlTopName; }
    int32_t direction() const override { return PSTransitionDirectionTop; }
};

class PSTransitionPageCurlBottom : public PSTransitionPageCurl {
public:
    static std::shared_ptr<PSTransitionPageCurlBottom> create() { return std::make_shared<PSTransitionPageCurlBottom>(); }
    std::string name() const override { return PSTransitionPageCurlBottomName; }
    int32_t direction() const override { return PSTransitionDirectionBottom; }
};

// pageCurlWithShadowTransition at angle B over E, with the from picture as backside, shadow size
// 0.6 and amount 0.8, cast from E.
class PSTransitionPageCurlWithShadow : public PSTransition {
public:
    static std::shared_ptr<PSTransitionPageCurlWithShadow> create() {
        return std::make_shared<PSTransitionPageCurlWithShadow>();
    }
    std::string name() const override { return PSTransitionPageCurlWithShadowName; }
    virtual int32_t direction() const { return PSTransitionDirectionLeft; }
    Image transitionImage(const Image& from, const Image& to, double percent) const override;
};

class PSTransitionPageCurlWithShadowRight : public PSTransitionPageCurlWithShadow {
public:
    static std::shared_ptr<PSTransitionPageCurlWithShadowRight> create() {
        return std::make_shared<PSTransitionPageCurlWithShadowRight>();
    }
    std::string name() const override { return PSTransitionPageCurlWithShadowRightName; }
    int32_t direction() const override { return PSTransitionDirectionRight; }
};

class PSTransitionPageCurlWithShadowTop : public PSTransitionPageCurlWithShadow {
public:
    static std::shared_ptr<PSTransitionPageCurlWithShadowTop> create() {
        return std::make_shared<PSTransitionPageCurlWithShadowTop>();
    }
    std::string name() const override { return PSTransitionPageCurlWithShadowTopName; }
    int32_t direction() const override { return PSTransitionDirectionTop; }
};

class PSTransitionPageCurlWithShadowBottom : public PSTransitionPageCurlWithShadow {
public:
    static std::shared_ptr<PSTransitionPageCurlWithShadowBottom> create() {
        return std::make_shared<PSTransitionPageCurlWithShadowBottom>();
    }
    std::string name() const override { return PSTransitionPageCurlWithShadowBottomName; }
    int32_t direction() const override { return PSTransitionDirectionBottom; }
};

// rippleTransition from the centre of E over E, lit by the shared shading image.
class PSTransitionRipple : public PSTransition {
public:
    static std::shared_ptr<PSTransitionRipple> create() { return std::make_shared<PSTransitionRipple>(); }
    std::string name() const override { return PSTransitionRippleName; }
    Image transitionImage(const Image& from, const Image& to, double percent) const override;
};

// swipeTransition at angle A over E, with opacity 0.5.
class PSTransitionSwipe : public PSTransition {
public:
    static std::shared_ptr<PSTransitionSwipe> create() { return std::make_shared<PSTransitionSwipe>(); }
    std::string name() const override { return PSTransitionSwipeName; }
    virtual int32_t direction() const { return PSTransitionDirectionLeft; }
    Image transitionImage(const Image& from, const Image& to, double percent) const override;
};

class PSTransitionSwipeRight : public PSTransitionSwipe {
public:
    static std::shared_ptr<PSTransitionSwipeRight> create() { return std::make_shared<PSTransitionSwipeRight>(); }
    std::string name() const override { return PSTransitionSwipeRightName; }
    int32_t direction() const override { return PSTransitionDirectionRight; }
};

class PSTransitionSwipeTop : public PSTransitionSwipe {
public:
    static std::shared_ptr<PSTransitionSwipeTop> create() { return std::make_shared<PSTransitionSwipeTop>(); }
    std::string name() const override { return PSTransitionSwipeTopName; }
    int32_t direction() const override { return PSTransitionDirectionTop; }
};

class PSTransitionSwipeBottom : public PSTransitionSwipe {
public:
    static std::shared_ptr<PSTransitionSwipeBottom> create() { return std::make_shared<PSTransitionSwipeBottom>(); }
    std::string name() const override { return PSTransitionSwipeBottomName; }
    int32_t direction() const override { return PSTransitionDirectionBottom; }
};

// disintegrateWithMaskTransition with the shared mask fitted to E: Lanczos-scaled by
// sy = (E.height + E.y) / M.height with aspect (E.width / M.width) / sy, M being the mask's extent;
// shadow radius 8, density 0.65 (in single precision), offset (10, -10). The scaled mask is rendered
// once per size and kept, since every frame of a transition uses the same one.
class PSTransitionDisintegrateWithMask : public PSTransition {
public:
    static std::shared_ptr<PSTransitionDisintegrateWithMask> create() {
        return std::make_shared<PSTransitionDisintegrateWithMask>();
    }
    std::string name() const override { return PSTransitionDisintegrateWithMaskName; }
    Image transitionImage(const Image& from, const Image& to, double percent) const override;
};

}  // namespace qm
