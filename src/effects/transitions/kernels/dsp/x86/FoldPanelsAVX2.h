#pragma once

#include "effects/transitions/kernels/AccordionFoldKernel.h"
#include "image/ImageTile.h"

namespace qm::kernels {

// litBytePanels with AVX2, giving the same bytes.
void foldBytePanelsAVX2(const PanelRun& run, const ConstImageTile& from, float* dst, ClearSpan& clear);

}  // namespace qm::kernels
