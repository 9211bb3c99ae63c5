#pragma once

#include <cstdint>
#include <cstring>

// Vectors of small integer lanes and their widening, in GCC vector extensions. Zeros interleaved
// with the lanes widen them; each shuffle index names a zero lane of its own, which the compiler
// turns into a single unpack instruction.
namespace qm {

using Byte16 = uint8_t __attribute__((vector_size(16)));
using Short8 = int16_t __attribute__((vector_size(16)));
using Lanes32 = int32_t __attribute__((vector_size(16)));

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "lanes widen by interleaving zeros");

// Bytes 0-7, or 8-15, of `v` in 16-bit lanes.
inline Short8 lowBytesWidened(Byte16 v) {
    return Short8(__builtin_shufflevector(v, Byte16{}, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23));
}
inline Short8 highBytesWidened(Byte16 v) {
    return Short8(__builtin_shufflevector(v, Byte16{}, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31));
}

// 16-bit lanes 0-3, or 4-7, of `v` in 32-bit lanes, read as unsigned.
inline Lanes32 lowWordsWidened(Short8 v) {
    return Lanes32(__builtin_shufflevector(v, Short8{}, 0, 8, 1, 9, 2, 10, 3, 11));
}
inline Lanes32 highWordsWidened(Short8 v) {
    return Lanes32(__builtin_shufflevector(v, Short8{}, 4, 12, 5, 13, 6, 14, 7, 15));
}

// The `Size` bytes at `p` (4, 8 or 16) in the lowest lanes, any others zero.
template <int Size>
inline Byte16 loadBytes(const uint8_t* p) {
    static_assert(Size == 4 || Size == 8 || Size == 16);
    Byte16 v;
    if constexpr (Size == 16) {
        std::memcpy(&v, p, sizeof v);
    } else if constexpr (Size == 8) {
        using Long2 = uint64_t __attribute__((vector_size(16)));
        uint64_t bits;
        std::memcpy(&bits, p, sizeof bits);
        v = Byte16(Long2{bits, 0});
    } else {
        int32_t bits;
        std::memcpy(&bits, p, sizeof bits);
        v = Byte16(Lanes32{bits, 0, 0, 0});
    }
    return v;
}

}  // namespace qm
