#pragma once

#include <span>

#include "effects/transitions/kernels/AccordionFoldKernel.h"
#include "effects/transitions/kernels/DisintegrateKernel.h"
#include "effects/transitions/kernels/FlashKernel.h"
#include "effects/transitions/kernels/ModKernel.h"
#include "effects/transitions/kernels/PageCurlKernel.h"
#include "effects/transitions/kernels/PageCurlWithShadowKernel.h"
#include "effects/transitions/kernels/RippleKernel.h"
#include "effects/transitions/kernels/support/SphereShading.h"
#include "image/ImageTile.h"
#include "image/TileScratch.h"
#include "image/dsp/DSPLevel.h"

namespace qm::kernels {

// The transitions' loops that run faster built for AVX2, in one table. Each entry has a plain C++
// reference (dsp/) and an AVX2 version (dsp/x86/) that gives the same bytes. Most AVX2 versions
// are the reference's own source (the templates of dsp/*.h over PlainSimd or AVX2Simd) built with
// -mavx2.
struct TransitionDSP {
    using Inputs = std::span<const ConstImageTile>;

    // A flash tile before the flash's threshold, and after it.
    void (*flash)(const FlashContext&, const ImageTile& out, Inputs, TileScratch&);
    void (*flashFade)(const FlashContext&, const ImageTile& out, Inputs);
    // A mod tile.
    void (*mod)(const ModContext&, const ImageTile& out, Inputs, TileScratch&);
    // Pixels begin <= x < end of row y inside the ripple's wave into `dst` (pixel `begin` first),
    // lit from `shading` when it is not null.
    void (*rippleWave)(const RippleContext&, const SphereShading* shading, const ConstImageTile& from,
                       const ConstImageTile& to, int y, int begin, int end, float* dst);
    // A page curl tile, lit from `profile` when it is not null; a page curl tile with its shadow.
    void (*pageCurl)(const PageCurlContext&, const ShadingProfile* profile, const ImageTile& out, Inputs, TileScratch&);
    void (*pageCurlWithShadow)(const PageCurlWithShadowContext&, const ImageTile& out, Inputs, TileScratch&);
    // A disintegrate-with-mask tile.
    void (*disintegrate)(const DisintegrateContext&, const ImageTile& out, Inputs, TileScratch&);
    // The accordion fold's lit panels of a run read from a byte tile, as litBytePanels.
    void (*foldBytePanels)(const PanelRun&, const ConstImageTile& from, float* dst, ClearSpan& clear);
};

// The entries dspLevel() picks.
const TransitionDSP& transitionDSP();

// The entries of `level`; null where this build has none (AVX2 off x86-64).
const TransitionDSP* transitionDSP(DSPLevel level);

}  // namespace qm::kernels
