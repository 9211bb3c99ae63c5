#include "image/dsp/PixelDSP.h"

#include "image/dsp/DSPLevel.h"
#include "image/dsp/RowFamilies.h"

namespace qm {

namespace {

PixelDSP plainRows() {
    PixelDSP dsp{};
    setPlainCompositeRows(dsp);
    setPlainElementRows(dsp);
    setPlainFilterRows(dsp);
    setPlainOutputRows(dsp);
    setPlainSampleRows(dsp);
    return dsp;
}

#if defined(__x86_64__)
PixelDSP avx2Rows() {
    PixelDSP dsp = plainPixelDSP();
    setAVX2CompositeRows(dsp);
    setAVX2ElementRows(dsp);
    setAVX2FilterRows(dsp);
    setAVX2OutputRows(dsp);
    setAVX2SampleRows(dsp);
    return dsp;
}
#endif

const PixelDSP& tableForLevel() {
    const PixelDSP* avx2 = dspLevel() == DSPLevel::AVX2 ? avx2PixelDSP() : nullptr;
    return avx2 ? *avx2 : plainPixelDSP();
}

}  // namespace

__attribute__((init_priority(101))) const PixelDSP chosenPixelDSP = tableForLevel();

const PixelDSP& plainPixelDSP() {
    static const PixelDSP table = plainRows();
    return table;
}

const PixelDSP* avx2PixelDSP() {
#if defined(__x86_64__)
    if (!processorHasAVX2()) return nullptr;
    static const PixelDSP table = avx2Rows();
    return &table;
#else
    return nullptr;
#endif
}

}  // namespace qm
