#pragma once

#include <cstddef>
#include <cstdint>

#include "image/ImageTile.h"
#include "image/PixelMath.h"

namespace qm::kernels {

// The steps that the shared transition loops (see TransitionDSP.h) take differently for each
// instruction set, in plain C++: the loops built with PlainSimd are the table's references.
struct PlainSimd {
    // Lane i of a vector comparison as bit i.
    static int laneBits(Int4 condition) {
        Int4 bits = condition & Int4{1, 2, 4, 8};
        bits |= __builtin_shufflevector(bits, bits, 2, 3, 0, 1);
        bits |= __builtin_shufflevector(bits, bits, 1, 0, 3, 2);
        return bits[0];
    }

    // bilinearBytes at the same place in two pictures, as 0..255: the pixels at `a` and `b`, each
    // with the row above it `aUp` and `bUp` bytes further on, into `first` and `second`.
    static void bilinearBytePair(const uint8_t* a, std::ptrdiff_t aUp, const uint8_t* b, std::ptrdiff_t bUp, int wx,
                                 int wy, Float4& first, Float4& second) {
        first = bilinearBytes(a, a + aUp, wx, wy);
        second = bilinearBytes(b, b + bUp, wx, wy);
    }
};

}  // namespace qm::kernels
