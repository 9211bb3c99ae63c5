#pragma once

#include "effects/transitions/PSTransition.h"

namespace qm {

// "Fade": the incoming picture fades in over the outgoing one as it fades out. Unlike every other
// transition it works with one picture missing (that one alone, faded), and past percent 1 it logs
// "Out of transition timestamp" and gives the incoming picture unchanged.
class PSTransitionFade : public PSTransition {
public:
    static std::shared_ptr<PSTransitionFade> create() { return std::make_shared<PSTransitionFade>(); }
    std::string name() const override { return PSTransitionFadeName; }
    Image transitionImage(const Image& from, const Image& to, double percent) const override;
};

}  // namespace qm
