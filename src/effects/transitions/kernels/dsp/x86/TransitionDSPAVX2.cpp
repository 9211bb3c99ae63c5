// The shared loops built with -mavx2 over AVX2Simd, and the accordion fold's panels written for
// AVX2.
#include "effects/transitions/kernels/dsp/x86/TransitionDSPAVX2.h"

#include "effects/transitions/kernels/dsp/DisintegrateTile.h"
#include "effects/transitions/kernels/dsp/FlashTiles.h"
#include "effects/transitions/kernels/dsp/ModTile.h"
#include "effects/transitions/kernels/dsp/PageCurlTiles.h"
#include "effects/transitions/kernels/dsp/RippleWave.h"
#include "effects/transitions/kernels/dsp/x86/AVX2Simd.h"
#include "effects/transitions/kernels/dsp/x86/FoldPanelsAVX2.h"

namespace qm::kernels {

const TransitionDSP& avx2TransitionDSP() {
    static const TransitionDSP table{
        &FlashTiles<AVX2Simd>::spread,
        &FlashTiles<AVX2Simd>::fade,
        &ModTile<AVX2Simd>::render,
        &RippleWave<AVX2Simd>::run,
        &PageCurlTiles<AVX2Simd>::withShading,
        &PageCurlTiles<AVX2Simd>::withShadow,
        &DisintegrateTile<AVX2Simd>::render,
        &foldBytePanelsAVX2,
    };
    return table;
}

}  // namespace qm::kernels
