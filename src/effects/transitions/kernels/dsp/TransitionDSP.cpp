#include "effects/transitions/kernels/dsp/TransitionDSP.h"

#include "effects/transitions/kernels/dsp/DisintegrateTile.h"
#include "effects/transitions/kernels/dsp/FlashTiles.h"
#include "effects/transitions/kernels/dsp/ModTile.h"
#include "effects/transitions/kernels/dsp/PageCurlTiles.h"
#include "effects/transitions/kernels/dsp/PlainSimd.h"
#include "effects/transitions/kernels/dsp/RippleWave.h"

namespace qm::kernels {

namespace {

const TransitionDSP kPlainTransitionDSP{
    &FlashTiles<PlainSimd>::spread,
    &FlashTiles<PlainSimd>::fade,
    &ModTile<PlainSimd>::render,
    &RippleWave<PlainSimd>::run,
    &PageCurlTiles<PlainSimd>::withShading,
    &PageCurlTiles<PlainSimd>::withShadow,
    &DisintegrateTile<PlainSimd>::render,
    &litBytePanels,
};

}  // namespace

const TransitionDSP& transitionDSP() { return kPlainTransitionDSP; }

}  // namespace qm::kernels
