#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "image/ImageTile.h"

namespace qm::kernels {

// PlainSimd's steps for AVX2, for files built with -mavx2; each gives PlainSimd's results.
struct AVX2Simd {
    static int laneBits(Int4 condition) { return _mm_movemask_ps(__m128(condition)); }

    // PlainSimd::bilinearBytePair: both pictures' pixels blended up, then the left pixels of both
    // against the right ones, in the 16-bit steps of bilinearBytes.
    static void bilinearBytePair(const uint8_t* a, std::ptrdiff_t aUp, const uint8_t* b, std::ptrdiff_t bUp, int wx,
                                 int wy, Float4& first, Float4& second) {
        const __m128i zero = _mm_setzero_si128();
        const __m128i half = _mm_set1_epi16(64);
        const __m128i up = _mm_set1_epi16(short(wy));
        const auto load = [zero](const uint8_t* p) {
            return _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)), zero);
        };
        const auto lerp = [half](__m128i low, __m128i high, __m128i weight) {
            const __m128i step = _mm_add_epi16(_mm_mullo_epi16(_mm_sub_epi16(high, low), weight), half);
            return _mm_add_epi16(low, _mm_srai_epi16(step, 7));
        };
        const __m128i va = lerp(load(a), load(a + aUp), up);
        const __m128i vb = lerp(load(b), load(b + bUp), up);
        const __m128i h = lerp(_mm_unpacklo_epi64(va, vb), _mm_unpackhi_epi64(va, vb), _mm_set1_epi16(short(wx)));
        first = Float4(_mm_cvtepi32_ps(_mm_unpacklo_epi16(h, zero)));
        second = Float4(_mm_cvtepi32_ps(_mm_unpackhi_epi16(h, zero)));
    }
};

}  // namespace qm::kernels
