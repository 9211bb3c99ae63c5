#pragma once

#include <cstdint>
#include <vector>

#include "codec/PixelBuffer.h"

namespace qm {

// Rewrites 8-bit 4:2:0 YCbCr of any matrix and range as the full-range BT.601 YCbCr that JPEG
// (JFIF) files hold, so that a decoder's RGB matches the video's. The conversion is linear in
// (Y, Cb, Cr); each luma sample takes its colour term from the chroma sample of its 2x2 block,
// the same chroma the JPEG keeps for those pixels. One converter belongs to one thread at a time.
class JFIFPlaneConverter {
public:
    struct Planes {
        const uint8_t* data[3];
        int bytesPerRow[3];
    };

    // The planes of a yuv420p or yuvj420p buffer as JFIF: the buffer's own when it already is
    // full-range BT.601, else converted into this converter's memory (valid until the next call).
    Planes convert(const PixelBuffer& source);

    static bool accepts(int pixelFormat);

private:
    std::vector<uint8_t> _luma, _blue, _red;
    std::vector<int32_t> _lumaTerm;  // colour term of each chroma column of the current row
};

}  // namespace qm
