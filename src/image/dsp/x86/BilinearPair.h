#pragma once

// Bilinear samples of RGBA8 bytes with AVX2: the 16-bit lane arithmetic of fixed::blend, for the
// AVX2 rows and for functions built for AVX2.
#if defined(__x86_64__)

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "image/dsp/FixedPoint.h"

namespace qm {

// fixed::blend in 16-bit lanes: a + ((c - a) * w + 64) >> 7.
__attribute__((target("avx2"))) inline __m256i blendWords(__m256i a, __m256i c, __m256i w) {
    const __m256i half = _mm256_set1_epi16(fixed::kWeightOne >> 1);
    return _mm256_add_epi16(a, _mm256_srai_epi16(_mm256_add_epi16(_mm256_mullo_epi16(_mm256_sub_epi16(c, a), w), half),
                                                 fixed::kWeightBits));
}

// bilinearBytes at two points, as 0..255 floats (pixel at p in lanes 0-3, at q in lanes 4-7): the
// lower left source pixels are at p and q, the rows above them `up` bytes further on. Each point's
// weights fill its eight 16-bit lanes of wx and wy (lanes 0-7 for p, 8-15 for q).
__attribute__((target("avx2"))) inline __m256 bilinearPair(const uint8_t* p, const uint8_t* q, std::ptrdiff_t up,
                                                           __m256i wx, __m256i wy) {
    auto load = [](const uint8_t* r) { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(r)); };
    // Lanes 0-7 hold p's two source pixels, lanes 8-15 q's.
    const __m256i lower = _mm256_cvtepu8_epi16(_mm_unpacklo_epi64(load(p), load(q)));
    const __m256i upper = _mm256_cvtepu8_epi16(_mm_unpacklo_epi64(load(p + up), load(q + up)));
    const __m256i vertical = blendWords(lower, upper, wy);
    const __m256i h = blendWords(vertical, _mm256_srli_si256(vertical, 8), wx);
    // Lanes 0-3 and 8-11 hold the two pixels.
    const __m128i pixels = _mm256_castsi256_si128(_mm256_permute4x64_epi64(h, 0x08));
    return _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(pixels));
}

}  // namespace qm

#endif
