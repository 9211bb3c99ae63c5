#include "effects/transitions/PSTransitionFade.h"

#include <cmath>

#include "effects/transitions/PSTransitionBase.h"
#include "platform/Log.h"

namespace qm {

Image PSTransitionFade::transitionImage(const Image& from, const Image& to, double percent) const {
    if (percent > 1) {
        QMLog("Out of transition timestamp");
        return to;
    }
    Image incoming = to;
    Image outgoing = from;
    if (incoming && std::fabs(1 - percent) > 1e-06) incoming = PSTransitionBase::blendImage(incoming, percent);
    if (outgoing && std::fabs(percent) > 1e-06) outgoing = PSTransitionBase::blendImage(outgoing, 1 - percent);
    if (incoming && outgoing) return PSTransitionBase::sourceOverImage(incoming, outgoing);
    return incoming ? incoming : outgoing;
}

}  // namespace qm
