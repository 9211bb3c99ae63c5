// The rows that treat every float on its own, built with AVX2 from the plain rows' source.
#include <algorithm>
#include <cstdint>

#include "image/dsp/PixelDSP.h"
#include "image/dsp/RowFamilies.h"

namespace qm {

namespace {

#include "image/dsp/ElementRows.inc"

}  // namespace

void setAVX2ElementRows(PixelDSP& dsp) { setElementRows(dsp); }

}  // namespace qm
