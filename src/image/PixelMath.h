#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "image/ImageTile.h"

// Marks a function to be built twice, for AVX2 and for any x86-64; the better one is picked when the
// program starts.
#if defined(__x86_64__) && !defined(__clang__)
#define QM_AVX2_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define QM_AVX2_CLONES
#endif

namespace qm {

// Small per-pixel helpers shared by the node implementations. The conversions between bytes and
// floats use SSE2 (part of every x86-64) where the compiler offers it.

// floor(v) as an int, for |v| < 2^31, without a library call.
inline int fastFloor(float v) {
    const int i = int(v);
    return i - (float(i) > v);
}

inline Float4 clampFloat4(Float4 v, Float4 lo, Float4 hi) {
    v = v < lo ? lo : v;
    return v > hi ? hi : v;
}

inline Float4 minFloat4(Float4 a, Float4 b) { return a < b ? a : b; }
// floor, lane by lane, for |v| < 2^31.
inline Float4 floorFloat4(Float4 v) {
    const Int4 i = __builtin_convertvector(v, Int4);
    const Float4 f = __builtin_convertvector(i, Float4);
    return f - (f > v ? splat(1.f) : splat(0.f));
}
// Square root, lane by lane, each correctly rounded as std::sqrt.
inline Float4 sqrtFloat4(Float4 v) {
#if defined(__SSE2__)
    return Float4(_mm_sqrt_ps(__m128(v)));
#else
    return Float4{std::sqrt(v[0]), std::sqrt(v[1]), std::sqrt(v[2]), std::sqrt(v[3])};
#endif
}
inline Float4 maxFloat4(Float4 a, Float4 b) { return a > b ? a : b; }

// Bilinear blend of two horizontally adjacent RGBA8 pixels at `lower` and the two at `upper`, with
// weights wx across and wy up in 1/128 steps (0..128), as 0..255 floats.
inline Float4 bilinearBytes(const uint8_t* lower, const uint8_t* upper, int wx, int wy) {
#if defined(__SSE2__)
    const __m128i zero = _mm_setzero_si128();
    const __m128i half = _mm_set1_epi16(64);
    const __m128i a = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(lower)), zero);
    const __m128i b = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(upper)), zero);
    // v = a + ((b - a) * wy + 64) >> 7; |b - a| * 128 fits in 16 bits.
    const __m128i v =
        _mm_add_epi16(a, _mm_srai_epi16(_mm_add_epi16(_mm_mullo_epi16(_mm_sub_epi16(b, a), _mm_set1_epi16(short(wy))), half), 7));
    const __m128i right = _mm_srli_si128(v, 8);
    const __m128i h = _mm_add_epi16(
        v, _mm_srai_epi16(_mm_add_epi16(_mm_mullo_epi16(_mm_sub_epi16(right, v), _mm_set1_epi16(short(wx))), half), 7));
    return Float4(_mm_cvtepi32_ps(_mm_unpacklo_epi16(h, zero)));
#else
    const float tx = float(wx) / 128.f;
    const float ty = float(wy) / 128.f;
    return mix(mix(bytesToFloat4(lower), bytesToFloat4(lower + 4), tx),
               mix(bytesToFloat4(upper), bytesToFloat4(upper + 4), tx), ty);
#endif
}

// `count` RGBA8 pixels to premultiplied floats 0..1, inline for a few pixels at a time (long rows
// go faster through bytesToFloatRow).
inline void bytesToFloats(const uint8_t* src, float* dst, int count) {
    int i = 0;
#if defined(__SSE2__)
    const __m128i zero = _mm_setzero_si128();
    const __m128 scale = _mm_set1_ps(kByteToFloat);
    for (; i + 4 <= count; i += 4) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 4 * i));
        const __m128i lo = _mm_unpacklo_epi8(bytes, zero);
        const __m128i hi = _mm_unpackhi_epi8(bytes, zero);
        _mm_storeu_ps(dst + 4 * i, _mm_mul_ps(_mm_cvtepi32_ps(_mm_unpacklo_epi16(lo, zero)), scale));
        _mm_storeu_ps(dst + 4 * i + 4, _mm_mul_ps(_mm_cvtepi32_ps(_mm_unpackhi_epi16(lo, zero)), scale));
        _mm_storeu_ps(dst + 4 * i + 8, _mm_mul_ps(_mm_cvtepi32_ps(_mm_unpacklo_epi16(hi, zero)), scale));
        _mm_storeu_ps(dst + 4 * i + 12, _mm_mul_ps(_mm_cvtepi32_ps(_mm_unpackhi_epi16(hi, zero)), scale));
    }
#endif
    for (; i < count; ++i) storeFloat4(dst + 4 * i, bytesToFloat4(src + 4 * i) * kByteToFloat);
}

// `count` premultiplied float pixels to bytes: clamped to 0..1, rounded to the nearest step.
// `straight` divides colour by alpha first; `swapRedBlue` writes B, G, R, A.
inline void floatsToBytes(const float* src, uint8_t* dst, int count, bool straight, bool swapRedBlue) {
    const Float4 zero = splat(0.f);
    const Float4 one = splat(1.f);
    auto prepare = [&](Float4 p) {
        p = clampFloat4(p, zero, one);
        if (straight) {
            const float alpha = p[3];
            p = alpha > 0 ? clampFloat4(p * (1.f / alpha), zero, one) : zero;
            p[3] = alpha;
        }
        if (swapRedBlue) p = __builtin_shufflevector(p, p, 2, 1, 0, 3);
        return p * 255.f + 0.5f;
    };
    int i = 0;
#if defined(__SSE2__)
    for (; i + 4 <= count; i += 4) {
        const __m128i p0 = _mm_cvttps_epi32(__m128(prepare(loadFloat4(src + 4 * i))));
        const __m128i p1 = _mm_cvttps_epi32(__m128(prepare(loadFloat4(src + 4 * i + 4))));
        const __m128i p2 = _mm_cvttps_epi32(__m128(prepare(loadFloat4(src + 4 * i + 8))));
        const __m128i p3 = _mm_cvttps_epi32(__m128(prepare(loadFloat4(src + 4 * i + 12))));
        const __m128i packed = _mm_packus_epi16(_mm_packs_epi32(p0, p1), _mm_packs_epi32(p2, p3));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 4 * i), packed);
    }
#endif
    for (; i < count; ++i) {
        const Int4 v = __builtin_convertvector(prepare(loadFloat4(src + 4 * i)), Int4);
        const Byte4 b = __builtin_convertvector(v, Byte4);
        std::memcpy(dst + 4 * i, &b, 4);
    }
}

}  // namespace qm
