#include <algorithm>
#include <cstdint>

#include "image/dsp/PixelDSP.h"
#include "image/dsp/RowFamilies.h"

namespace qm {

namespace {

#include "image/dsp/ElementRows.inc"

}  // namespace

void setPlainElementRows(PixelDSP& dsp) { setElementRows(dsp); }

}  // namespace qm
