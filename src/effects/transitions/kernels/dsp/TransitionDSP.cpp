#include "effects/transitions/kernels/dsp/TransitionDSP.h"

#include "effects/transitions/kernels/dsp/DisintegrateTile.h"
#include "effects/transitions/kernels/dsp/FlashTiles.h"
#include "effects/transitions/kernels/dsp/ModTile.h"
#include "effects/transitions/kernels/dsp/PageCurlTiles.h"
#include "effects/transitions/kernels/dsp/PlainSimd.h"
#include "effects/transitions/kernels/dsp/RippleWave.h"

#if defined(__x86_64__)
#include "effects/transitions/kernels/dsp/x86/TransitionDSPAVX2.h"
#endif

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

const TransitionDSP* transitionDSP(DSPLevel level) {
    switch (level) {
        case DSPLevel::Plain:
            return &kPlainTransitionDSP;
        case DSPLevel::AVX2:
#if defined(__x86_64__)
            return &avx2TransitionDSP();
#else
            return nullptr;
#endif
    }
    return nullptr;
}

const TransitionDSP& transitionDSP() {
    static const TransitionDSP& chosen = *transitionDSP(dspLevel());
    return chosen;
}

}  // namespace qm::kernels
