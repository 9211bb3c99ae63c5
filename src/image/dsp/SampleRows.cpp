// The plain rows that sample byte pictures: one bilinear sample after another.
#include "image/PixelMath.h"
#include "image/dsp/PixelDSP.h"
#include "image/dsp/RowFamilies.h"

namespace qm {

namespace {

void bilinearBytes4(const uint8_t* origin, std::ptrdiff_t up, Int4 offsets, Int4 wx, Int4 wy, float scale, float* out) {
    for (int k = 0; k < 4; ++k) {
        const uint8_t* p = origin + offsets[k];
        storeFloat4(out + 4 * k, bilinearBytes(p, p + up, wx[k], wy[k]) * scale);
    }
}

void sampleBitmapRow(const BitmapView& bitmap, int64_t u, int64_t v, int64_t du, int64_t dv, float scale, float* out,
                     int count) {
    for (int i = 0; i < count; ++i) storeFloat4(out + 4 * i, bitmap.sample(u + i * du, v + i * dv) * scale);
}

}  // namespace

void setPlainSampleRows(PixelDSP& dsp) {
    dsp.bilinearBytes4 = bilinearBytes4;
    dsp.sampleBitmapRow = sampleBitmapRow;
}

}  // namespace qm
