#pragma once

namespace qm {

struct PixelDSP;

// Each family of rows fills its entries of a table: first the plain references, then, for the
// AVX2 table, the versions of x86/ over them.
void setPlainCompositeRows(PixelDSP& dsp);
void setPlainElementRows(PixelDSP& dsp);
void setPlainFilterRows(PixelDSP& dsp);
void setPlainOutputRows(PixelDSP& dsp);
void setPlainSampleRows(PixelDSP& dsp);

void setAVX2CompositeRows(PixelDSP& dsp);
void setAVX2ElementRows(PixelDSP& dsp);
void setAVX2FilterRows(PixelDSP& dsp);
void setAVX2OutputRows(PixelDSP& dsp);
void setAVX2SampleRows(PixelDSP& dsp);

}  // namespace qm
