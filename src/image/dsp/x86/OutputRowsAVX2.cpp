// The output rows with AVX2: eight pixels at a time to RGBA8 or BGRA8, eight columns of a row pair at a
// time to YUV. The few pixels left over go through the plain rows.
#include <immintrin.h>

#include <cstring>

#include "image/dsp/PixelDSP.h"
#include "image/dsp/RowFamilies.h"
#include "image/dsp/YUVCoefficients.h"
#include "image/dsp/x86/Float8.h"

namespace qm {

namespace {

using namespace avx2;

// Two premultiplied pixels clamped to 0..1 and scaled to rounded bytes, as 32-bit integers. max
// and min give their second operand, NaN here, when either is NaN; the conversion makes that the
// lowest integer, which the packing saturates to 0 as byteSteps does.
inline __m256i twoPixelsToIntegers(const float* p) {
    const __m256 clamped = _mm256_min_ps(_mm256_set1_ps(1.f), _mm256_max_ps(_mm256_setzero_ps(), _mm256_loadu_ps(p)));
    return _mm256_cvttps_epi32(_mm256_add_ps(_mm256_mul_ps(clamped, _mm256_set1_ps(255.f)), _mm256_set1_ps(0.5f)));
}

// Eight pixels at a time in RGBA byte order, then through `plain` for the rest. With `swap`, red
// and blue trade places in each pixel's bytes.
template <bool swap>
void premultipliedToOrderedBytes(const float* src, uint8_t* dst, int count,
                                 void (*plain)(const float*, uint8_t*, int)) {
    // Packing works within each 128-bit half; this puts the eight pixels back in order.
    const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    const __m256i bgra = _mm256_setr_epi8(2, 1, 0, 3, 6, 5, 4, 7, 10, 9, 8, 11, 14, 13, 12, 15, 2, 1, 0, 3, 6, 5, 4, 7,
                                          10, 9, 8, 11, 14, 13, 12, 15);
    int i = 0;
    for (; i + 8 <= count; i += 8) {
        const float* p = src + 4 * i;
        const __m256i low = _mm256_packs_epi32(twoPixelsToIntegers(p), twoPixelsToIntegers(p + 8));
        const __m256i high = _mm256_packs_epi32(twoPixelsToIntegers(p + 16), twoPixelsToIntegers(p + 24));
        __m256i bytes = _mm256_permutevar8x32_epi32(_mm256_packus_epi16(low, high), order);
        if constexpr (swap) bytes = _mm256_shuffle_epi8(bytes, bgra);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 4 * i), bytes);
    }
    if (i < count) plain(src + 4 * i, dst + 4 * i, count - i);
}

void premultipliedToBytes(const float* src, uint8_t* dst, int count) {
    premultipliedToOrderedBytes<false>(src, dst, count, plainPixelDSP().premultipliedToBytes);
}

void premultipliedToBGRABytes(const float* src, uint8_t* dst, int count) {
    premultipliedToOrderedBytes<true>(src, dst, count, plainPixelDSP().premultipliedToBGRABytes);
}

// Eight pixels of a row, clamped to 0..1, as planes of red, green and blue.
struct Planes {
    Float8 r, g, b;
};

Planes planes(const float* p) {
    const Float8 zero{}, one = zero + 1.f;
    const Float8 p01 = clamp8(load8(p), zero, one), p23 = clamp8(load8(p + 8), zero, one);
    const Float8 p45 = clamp8(load8(p + 16), zero, one), p67 = clamp8(load8(p + 24), zero, one);
    const Float8 rg0 = __builtin_shufflevector(p01, p23, 0, 4, 8, 12, 1, 5, 9, 13);
    const Float8 rg1 = __builtin_shufflevector(p45, p67, 0, 4, 8, 12, 1, 5, 9, 13);
    const Float8 b0 = __builtin_shufflevector(p01, p23, 2, 6, 10, 14, 2, 6, 10, 14);
    const Float8 b1 = __builtin_shufflevector(p45, p67, 2, 6, 10, 14, 2, 6, 10, 14);
    return Planes{__builtin_shufflevector(rg0, rg1, 0, 1, 2, 3, 8, 9, 10, 11),
                  __builtin_shufflevector(rg0, rg1, 4, 5, 6, 7, 12, 13, 14, 15),
                  __builtin_shufflevector(b0, b1, 0, 1, 2, 3, 8, 9, 10, 11)};
}

// Eight values 0..255 (beyond: clamped; NaN: 0) rounded to bytes.
void storeBytes(uint8_t* dst, Float8 f) {
    f = clamp8(f, Float8{}, Float8{} + 255.f) + 0.5f;
    // Packing with saturation is exact on values already within 0..255; NaN packs to 0.
    const __m256i integers = _mm256_cvttps_epi32(__m256(f));
    const __m128i words = _mm_packs_epi32(_mm256_castsi256_si128(integers), _mm256_extracti128_si256(integers, 1));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), _mm_packus_epi16(words, words));
}

void storeLuma(uint8_t* dst, const Planes& p) {
    using namespace bt709;
    storeBytes(dst, 16.f + p.r * kRedY + p.g * kGreenY + p.b * kBlueY);
}

void yuvRows(const float* upper, const float* lower, int width, uint8_t* y0, uint8_t* y1, uint8_t* u, uint8_t* v) {
    using namespace bt709;
    // Each block's mean: its left column plus its right one (lanes 0-3; 4-7 repeat them).
    auto blockMean = [](Float8 s) {
        return (__builtin_shufflevector(s, s, 0, 2, 4, 6, 0, 2, 4, 6) +
                __builtin_shufflevector(s, s, 1, 3, 5, 7, 1, 3, 5, 7)) *
               0.25f;
    };
    int i = 0;
    for (; i + 8 <= width; i += 8) {
        const Planes a = planes(upper + 4 * i);
        const Planes b = planes(lower + 4 * i);
        storeLuma(y0 + i, a);
        if (y1) storeLuma(y1 + i, b);
        const Float8 r = blockMean(a.r + b.r), g = blockMean(a.g + b.g), bl = blockMean(a.b + b.b);
        const Float8 l = kRed * r + kGreen * g + kBlue * bl;
        // Lanes 0-3 are U of the four blocks, lanes 4-7 V.
        const Float8 chroma = 128.f + __builtin_shufflevector(kU * (bl - l), kV * (r - l), 0, 1, 2, 3, 8, 9, 10, 11);
        uint8_t both[8];
        storeBytes(both, chroma);
        std::memcpy(u + i / 2, both, 4);
        std::memcpy(v + i / 2, both + 4, 4);
    }
    if (i < width)
        plainPixelDSP().yuvRows(upper + 4 * i, lower + 4 * i, width - i, y0 + i, y1 ? y1 + i : nullptr, u + i / 2,
                                v + i / 2);
}

}  // namespace

void setAVX2OutputRows(PixelDSP& dsp) {
    dsp.premultipliedToBytes = premultipliedToBytes;
    dsp.premultipliedToBGRABytes = premultipliedToBGRABytes;
    dsp.yuvRows = yuvRows;
}

}  // namespace qm
