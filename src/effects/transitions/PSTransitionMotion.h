#pragma once

#include "effects/transitions/PSTransition.h"

namespace qm {

// The sliding families: Push moves both pictures, Move In slides the incoming picture over the
// outgoing one, Reveal slides the outgoing picture away (fading it) from over the incoming one.
// All three pace the percent with the ease-out curve. The family class is the Left variant; its
// Right, Top and Bottom subclasses change only name and direction. A missing picture gives the
// incoming picture (so nothing when that is missing).

class PSTransitionPush : public PSTransition {
public:
    static std::shared_ptr<PSTransitionPush> create() { return std::make_shared<PSTransitionPush>(); }
    std::string name() const override { return PSTransitionPushName; }
    // A direction code (PSTransitionDirectionLeft...); any other value leaves the pictures in place.
    virtual int32_t direction() const { return PSTransitionDirectionLeft; }
    Image transitionImage(const Image& from, const Image& to, double percent) const override;
};

class PSTransitionPushRight : public PSTransitionPush {
public:
    static std::shared_ptr<PSTransitionPushRight> create() { return std::make_shared<PSTransitionPushRight>(); }
    std::string name() const override { return PSTransitionPushRightName; }
    int32_t direction() const override { return PSTransitionDirectionRight; }
};

class PSTransitionPushTop : public PSTransitionPush {
public:
    static std::shared_ptr<PSTransitionPushTop> create() { return std::make_shared<PSTransitionPushTop>(); }
    std::string name() const override { return PSTransitionPushTopName; }
    int32_t direction() const override { return PSTransitionDirectionTop; }
};

class PSTransitionPushBottom : public PSTransitionPush {
public:
    static std::shared_ptr<PSTransitionPushBottom> create() { return std::make_shared<PSTransitionPushBottom>(); }
    std::string name() const override { return PSTransitionPushBottomName; }
    int32_t direction() const override { return PSTransitionDirectionBottom; }
};

class PSTransitionMoveIn : public PSTransition {
public:
    static std::shared_ptr<PSTransitionMoveIn> create() { return std::make_shared<PSTransitionMoveIn>(); }
    std::string name() const override { return PSTransitionMoveInName; }
    virtual int32_t direction() const { return PSTransitionDirectionLeft; }
    Image transitionImage(const Image& from, const Image& to, double percent) const override;
};

class PSTransitionMoveInRight : public PSTransitionMoveIn {
public:
    static std::shared_ptr<PSTransitionMoveInRight> create() { return std::make_shared<PSTransitionMoveInRight>(); }
    std::string name() const override { return PSTransitionMoveInRightName; }
    int32_t direction() const override { return PSTransitionDirectionRight; }
};

class PSTransitionMoveInTop : public PSTransitionMoveIn {
public:
    static std::shared_ptr<PSTransitionMoveInTop> create() { return std::make_shared<PSTransitionMoveInTop>(); }
    std::string name() const override { return PSTransitionMoveInTopName; }
    int32_t direction() const override { return PSTransitionDirectionTop; }
};

class PSTransitionMoveInBottom : public PSTransitionMoveIn {
public:
    static std::shared_ptr<PSTransitionMoveInBottom> create() { return std::make_shared<PSTransitionMoveInBottom>(); }
    std::string name() const override { return PSTransitionMoveInBottomName; }
    int32_t direction() const override { return PSTransitionDirectionBottom; }
};

class PSTransitionReveal : public PSTransition {
public:
    static std::shared_ptr<PSTransitionReveal> create() { return std::make_shared<PSTransitionReveal>(); }
    std::string name() const override { return PSTransitionRevealName; }
    virtual int32_t direction() const { return PSTransitionDirectionLeft; }
    Image transitionImage(const Image& from, const Image& to, double percent) const override;
};

class PSTransitionRevealRight : public PSTransitionReveal {
public:
    static std::shared_ptr<PSTransitionRevealRight> create() { return std::make_shared<PSTransitionRevealRight>(); }
    std::string name() const override { return PSTransitionRevealRightName; }
    int32_t direction() const override { return PSTransitionDirectionRight; }
};

class PSTransitionRevealTop : public PSTransitionReveal {
public:
    static std::shared_ptr<PSTransitionRevealTop> create() { return std::make_shared<PSTransitionRevealTop>(); }
    std::string name() const override { return PSTransitionRevealTopName; }
    int32_t direction() const override { return PSTransitionDirectionTop; }
};

class PSTransitionRevealBottom : public PSTransitionReveal {
public:
    static std::shared_ptr<PSTransitionRevealBottom> create() { return std::make_shared<PSTransitionRevealBottom>(); }
    std::string name() const override { return PSTransitionRevealBottomName; }
    int32_t direction() const override { return PSTransitionDirectionBottom; }
};

}  // namespace qm
