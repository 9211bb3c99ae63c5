#include "image/PixelRows.h"

#include <algorithm>
#include <cstring>

#include "image/PixelMath.h"
#include "image/dsp/x86/BilinearPair.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

// The two-pixel helpers below pass 32-byte vectors by value; they are internal and inlined, so the
// note that such values travel differently with and without AVX does not concern them.
#pragma GCC diagnostic ignored "-Wpsabi"

namespace qm {

namespace {

// Two pixels.
using Float8 = float __attribute__((vector_size(32)));

inline Float8 load8(const float* p) {
    Float8 v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
inline void store8(float* p, Float8 v) { std::memcpy(p, &v, sizeof v); }
inline Float8 twice(Float4 v) { return __builtin_shufflevector(v, v, 0, 1, 2, 3, 0, 1, 2, 3); }
inline Float8 pair(Float4 a, Float4 b) { return __builtin_shufflevector(a, b, 0, 1, 2, 3, 4, 5, 6, 7); }
// Each pixel's channel `c` in all four of its lanes.
inline Float8 red(Float8 p) { return __builtin_shufflevector(p, p, 0, 0, 0, 0, 4, 4, 4, 4); }
inline Float8 green(Float8 p) { return __builtin_shufflevector(p, p, 1, 1, 1, 1, 5, 5, 5, 5); }
inline Float8 blue(Float8 p) { return __builtin_shufflevector(p, p, 2, 2, 2, 2, 6, 6, 6, 6); }
inline Float8 alpha(Float8 p) { return __builtin_shufflevector(p, p, 3, 3, 3, 3, 7, 7, 7, 7); }

}  // namespace

QM_AVX2_CLONES void bytesToFloatRow(const uint8_t* src, float* dst, int count, float scale) {
    for (int i = 0; i < 4 * count; ++i) dst[i] = float(src[i]) * scale;
}

QM_AVX2_CLONES void scaleRow(float* values, int count, float factor) {
    for (int i = 0; i < count; ++i) values[i] *= factor;
}

QM_AVX2_CLONES void compositeUnder(float* front, const float* back, int count) {
    int i = 0;
    for (; i + 2 <= count; i += 2) {
        const Float8 f = load8(front + 4 * i);
        store8(front + 4 * i, f + load8(back + 4 * i) * (1.f - alpha(f)));
    }
    if (i < count) {
        const Float4 f = loadFloat4(front + 4 * i);
        storeFloat4(front + 4 * i, f + loadFloat4(back + 4 * i) * (1.f - f[3]));
    }
}

QM_AVX2_CLONES void compositeUnderColor(float* front, Float4 back, int count) {
    const Float8 b = twice(back);
    int i = 0;
    for (; i + 2 <= count; i += 2) {
        const Float8 f = load8(front + 4 * i);
        store8(front + 4 * i, f + b * (1.f - alpha(f)));
    }
    if (i < count) {
        const Float4 f = loadFloat4(front + 4 * i);
        storeFloat4(front + 4 * i, f + back * (1.f - f[3]));
    }
}

QM_AVX2_CLONES void colorTimesAlpha(float* pixels, Float4 color, int count) {
    const Float8 c = twice(color);
    int i = 0;
    for (; i + 2 <= count; i += 2) store8(pixels + 4 * i, c * alpha(load8(pixels + 4 * i)));
    if (i < count) storeFloat4(pixels + 4 * i, color * pixels[4 * i + 3]);
}

QM_AVX2_CLONES void sourceTimesAlpha(float* pixels, const float* source, int count) {
    int i = 0;
    for (; i + 2 <= count; i += 2) store8(pixels + 4 * i, load8(source + 4 * i) * alpha(load8(pixels + 4 * i)));
    if (i < count) storeFloat4(pixels + 4 * i, loadFloat4(source + 4 * i) * pixels[4 * i + 3]);
}

QM_AVX2_CLONES void linearColor(float* pixels, int count, const std::array<Float4, 4>& columns) {
    const Float8 c0 = twice(columns[0]);
    const Float8 c1 = twice(columns[1]);
    const Float8 c2 = twice(columns[2]);
    const Float8 c3 = twice(columns[3]);
    int i = 0;
    for (; i + 2 <= count; i += 2) {
        const Float8 p = load8(pixels + 4 * i);
        store8(pixels + 4 * i, c0 * red(p) + c1 * green(p) + c2 * blue(p) + c3 * alpha(p));
    }
    if (i < count) {
        const Float4 p = loadFloat4(pixels + 4 * i);
        storeFloat4(pixels + 4 * i, columns[0] * p[0] + columns[1] * p[1] + columns[2] * p[2] + columns[3] * p[3]);
    }
}

QM_AVX2_CLONES bool allOpaque(const float* pixels, int count) {
    // Every lane tests its own channel; only alpha's lane counts.
    Int4 opaque = ~Int4{};
    for (int i = 0; i < count; ++i) opaque &= loadFloat4(pixels + 4 * i) >= splat(1.f);
    return opaque[3] != 0;
}

QM_AVX2_CLONES void mixRows(const float* a, const float* b, float t, float* out, int floats) {
    for (int i = 0; i < floats; ++i) out[i] = a[i] + (b[i] - a[i]) * t;
}

QM_AVX2_CLONES void enlargeRow(const float* source, int first, int factor, int x, float* out, int count) {
    const float step = 1.f / float(factor);
    auto one = [&](int i) {
        const float u = (float(x + i) + 0.5f) * step - 0.5f;
        const int i0 = fastFloor(u);
        const float* p = source + 4 * (i0 - first);
        storeFloat4(out + 4 * i, mix(loadFloat4(p), loadFloat4(p + 4), u - float(i0)));
    };
    // Columns qf .. qf + f - 1 blend reduced pixels q - 1 and q in their first half, q and q + 1 in
    // their second, with the same weights for every q.
    constexpr int kMaxGroup = 64;
    int i = 0;
    if (factor <= kMaxGroup) {
        for (; i < count && ((x + i) & (factor - 1)) != 0; ++i) one(i);
        const int half = factor / 2;
        const int shift = __builtin_ctz(unsigned(factor));
        Float4 weights[kMaxGroup];
        for (int r = 0; r < factor; ++r) weights[r] = splat((float(r) + 0.5f) * step + (r < half ? 0.5f : -0.5f));
        for (; i + factor <= count; i += factor) {
            const float* p = source + 4 * (((x + i) >> shift) - 1 - first);
            const Float4 left = loadFloat4(p);
            const Float4 middle = loadFloat4(p + 4);
            const Float4 right = loadFloat4(p + 8);
            const Float4 towardsMiddle = middle - left;
            const Float4 towardsRight = right - middle;
            float* dst = out + 4 * i;
            for (int r = 0; r < half; ++r) storeFloat4(dst + 4 * r, left + towardsMiddle * weights[r]);
            for (int r = half; r < factor; ++r) storeFloat4(dst + 4 * r, middle + towardsRight * weights[r]);
        }
    }
    for (; i < count; ++i) one(i);
}

QM_AVX2_CLONES void convolveRow(const float* src, float* dst, int count, const float* weights, int taps) {
    int i = 0;
    for (; i + 2 <= count; i += 2) {
        Float8 sum{};
        const float* p = src + 4 * i;
        for (int t = 0; t < taps; ++t) sum += load8(p + 4 * t) * weights[t];
        store8(dst + 4 * i, sum);
    }
    if (i < count) {
        Float4 sum = splat(0.f);
        const float* p = src + 4 * i;
        for (int t = 0; t < taps; ++t) sum += loadFloat4(p + 4 * t) * weights[t];
        storeFloat4(dst + 4 * i, sum);
    }
}

QM_AVX2_CLONES void convolveRows(const float* const* rows, float* dst, int floats, const float* weights, int taps) {
    std::fill(dst, dst + floats, 0.f);
    for (int t = 0; t < taps; ++t) {
        const float w = weights[t];
        const float* src = rows[t];
        for (int i = 0; i < floats; ++i) dst[i] += w * src[i];
    }
}

QM_AVX2_CLONES void yuvRows(const float* upper, const float* lower, int width, uint8_t* y0, uint8_t* y1, uint8_t* u,
                           uint8_t* v) {
    // Y = 16 + 219 * luma; U, V = 128 + 224 * (B or R - luma) / (1.8556 or 1.5748).
    constexpr float kR = 0.2126f, kG = 0.7152f, kB = 0.0722f;
    constexpr float kU = 224.f / 1.8556f, kV = 224.f / 1.5748f;
    const Float8 zero{};
    const Float8 one = zero + 1.f;
    const Float8 weights = Float8{kR, kG, kB, 0, kR, kG, kB, 0} * 219.f;
    auto clamp = [&](Float8 p) {
        p = p < zero ? zero : p;
        return p > one ? one : p;
    };
    auto toByte = [](float f) { return uint8_t(f < 0 ? 0 : f > 255 ? 255 : int(f + 0.5f)); };
    auto luma = [&](Float8 p, int n) { return 16.f + p[4 * n] * weights[0] + p[4 * n + 1] * weights[1] + p[4 * n + 2] * weights[2]; };
    // Eight pixels of a row as planes of red, green and blue.
    struct Planes {
        Float8 r, g, b;
    };
    auto planes = [&](const float* p) {
        const Float8 p01 = clamp(load8(p)), p23 = clamp(load8(p + 8)), p45 = clamp(load8(p + 16)), p67 = clamp(load8(p + 24));
        const Float8 rg0 = __builtin_shufflevector(p01, p23, 0, 4, 8, 12, 1, 5, 9, 13);
        const Float8 rg1 = __builtin_shufflevector(p45, p67, 0, 4, 8, 12, 1, 5, 9, 13);
        const Float8 b0 = __builtin_shufflevector(p01, p23, 2, 6, 10, 14, 2, 6, 10, 14);
        const Float8 b1 = __builtin_shufflevector(p45, p67, 2, 6, 10, 14, 2, 6, 10, 14);
        return Planes{__builtin_shufflevector(rg0, rg1, 0, 1, 2, 3, 8, 9, 10, 11),
                      __builtin_shufflevector(rg0, rg1, 4, 5, 6, 7, 12, 13, 14, 15),
                      __builtin_shufflevector(b0, b1, 0, 1, 2, 3, 8, 9, 10, 11)};
    };
    const Float8 lowest{}, highest = lowest + 255.f;
    auto storeBytes = [&](uint8_t* dst, Float8 f) {
        f = f < lowest ? lowest : f;
        f = f > highest ? highest : f;
        f += 0.5f;
#if defined(__SSE2__)
        // Packing with saturation is exact on values already within 0..255.
        const Float4 low = __builtin_shufflevector(f, f, 0, 1, 2, 3), high = __builtin_shufflevector(f, f, 4, 5, 6, 7);
        const __m128i words = _mm_packs_epi32(_mm_cvttps_epi32(__m128(low)), _mm_cvttps_epi32(__m128(high)));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), _mm_packus_epi16(words, words));
#else
        using Int8 = int32_t __attribute__((vector_size(32)));
        using Bytes8 = uint8_t __attribute__((vector_size(8)));
        const Bytes8 bytes = __builtin_convertvector(__builtin_convertvector(f, Int8), Bytes8);
        std::memcpy(dst, &bytes, sizeof bytes);
#endif
    };
    auto storeLuma = [&](uint8_t* dst, const Planes& p) {
        storeBytes(dst, 16.f + p.r * weights[0] + p.g * weights[1] + p.b * weights[2]);
    };
    int i = 0;
    for (; i + 8 <= width; i += 8) {
        // The same steps as the pairs below, eight pixels and four blocks at a time.
        const Planes a = planes(upper + 4 * i);
        const Planes b = planes(lower + 4 * i);
        storeLuma(y0 + i, a);
        if (y1) storeLuma(y1 + i, b);
        // Each block's mean: its left column plus its right one (lanes 0-3; 4-7 repeat them).
        auto blockMean = [](Float8 s) {
            return (__builtin_shufflevector(s, s, 0, 2, 4, 6, 0, 2, 4, 6) + __builtin_shufflevector(s, s, 1, 3, 5, 7, 1, 3, 5, 7)) *
                   0.25f;
        };
        const Float8 r = blockMean(a.r + b.r), g = blockMean(a.g + b.g), bl = blockMean(a.b + b.b);
        const Float8 l = kR * r + kG * g + kB * bl;
        // Lanes 0-3 are U of the four blocks, lanes 4-7 V.
        const Float8 chroma = 128.f + __builtin_shufflevector(kU * (bl - l), kV * (r - l), 0, 1, 2, 3, 8, 9, 10, 11);
        uint8_t both[8];
        storeBytes(both, chroma);
        std::memcpy(u + i / 2, both, 4);
        std::memcpy(v + i / 2, both + 4, 4);
    }
    for (; i + 2 <= width; i += 2) {
        const Float8 a = clamp(load8(upper + 4 * i));
        const Float8 b = clamp(load8(lower + 4 * i));
        y0[i] = toByte(luma(a, 0));
        y0[i + 1] = toByte(luma(a, 1));
        if (y1) {
            y1[i] = toByte(luma(b, 0));
            y1[i + 1] = toByte(luma(b, 1));
        }
        const Float8 sum = a + b;
        const float r = (sum[0] + sum[4]) * 0.25f, g = (sum[1] + sum[5]) * 0.25f, bl = (sum[2] + sum[6]) * 0.25f;
        const float l = kR * r + kG * g + kB * bl;
        u[i / 2] = toByte(128.f + kU * (bl - l));
        v[i / 2] = toByte(128.f + kV * (r - l));
    }
    if (i < width) {
        // An odd last column: its block is that column alone.
        const Float4 a = clampFloat4(loadFloat4(upper + 4 * i), splat(0.f), splat(1.f));
        const Float4 b = clampFloat4(loadFloat4(lower + 4 * i), splat(0.f), splat(1.f));
        y0[i] = toByte(16.f + 219.f * (kR * a[0] + kG * a[1] + kB * a[2]));
        if (y1) y1[i] = toByte(16.f + 219.f * (kR * b[0] + kG * b[1] + kB * b[2]));
        const Float4 p = (a + b) * 0.5f;
        const float l = kR * p[0] + kG * p[1] + kB * p[2];
        u[i / 2] = toByte(128.f + kU * (p[2] - l));
        v[i / 2] = toByte(128.f + kV * (p[0] - l));
    }
}

namespace {

#if defined(__SSE2__)
// BitmapView::sample along a row that steps one whole pixel across (du = 1, dv = 0): the weights
// are the same for every pixel, so four pixels go at a time through the same integer steps.
// Returns how many leading pixels it wrote; the caller samples the rest.
int sampleShiftedRow(const BitmapView& bitmap, int64_t u, int64_t v, float scale, float* out, int count) {
    const int64_t ru = (u + 256) >> 9;
    const int64_t rv = (v + 256) >> 9;
    const int x0 = int(ru >> 7);
    const int y0 = int(rv >> 7);
    const PixelRect& b = bitmap.bounds;
    // Each group of four reads its pixels and their right neighbours on rows y0 and y0 + 1, all
    // inside the bounds.
    if (x0 < b.x || y0 < b.y || y0 + 1 >= b.maxY()) return 0;
    const int groups = std::max(0, std::min(count, b.maxX() - 1 - x0) / 4);
    const __m128i zero = _mm_setzero_si128();
    const __m128i half = _mm_set1_epi16(64);
    const __m128i wx = _mm_set1_epi16(short(ru & 127));
    const __m128i wy = _mm_set1_epi16(short(rv & 127));
    const __m128 factor = _mm_set1_ps(scale);
    auto blend = [&](__m128i from, __m128i to, __m128i w) {
        return _mm_add_epi16(from, _mm_srai_epi16(_mm_add_epi16(_mm_mullo_epi16(_mm_sub_epi16(to, from), w), half), 7));
    };
    auto store = [&](float* dst, __m128i h) {
        _mm_storeu_ps(dst, _mm_mul_ps(_mm_cvtepi32_ps(_mm_unpacklo_epi16(h, zero)), factor));
        _mm_storeu_ps(dst + 4, _mm_mul_ps(_mm_cvtepi32_ps(_mm_unpackhi_epi16(h, zero)), factor));
    };
    const uint8_t* lower = bitmap.at(x0, y0);
    const uint8_t* upper = lower - bitmap.stride;
    for (int g = 0; g < groups; ++g) {
        auto load = [](const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); };
        const __m128i l = load(lower + 16 * g), lr = load(lower + 16 * g + 4);
        const __m128i h = load(upper + 16 * g), hr = load(upper + 16 * g + 4);
        // Vertical blends of each pixel and of its right neighbour, then across.
        const __m128i left0 = blend(_mm_unpacklo_epi8(l, zero), _mm_unpacklo_epi8(h, zero), wy);
        const __m128i left1 = blend(_mm_unpackhi_epi8(l, zero), _mm_unpackhi_epi8(h, zero), wy);
        const __m128i right0 = blend(_mm_unpacklo_epi8(lr, zero), _mm_unpacklo_epi8(hr, zero), wy);
        const __m128i right1 = blend(_mm_unpackhi_epi8(lr, zero), _mm_unpackhi_epi8(hr, zero), wy);
        float* dst = out + 16 * g;
        store(dst, blend(left0, right0, wx));
        store(dst + 8, blend(left1, right1, wx));
    }
    return 4 * groups;
}
#endif

}  // namespace

#if defined(__x86_64__)
namespace {

// The pixels of a row whose 2 x 2 squares lie wholly inside the bounds: [first, last). Positions
// move steadily along a row, so they form one run.
std::pair<int, int> insideRun(const BitmapView& bitmap, int64_t u, int64_t v, int64_t du, int64_t dv, int count) {
    const PixelRect& b = bitmap.bounds;
    auto inside = [&](int i) {
        const int x0 = int(((u + i * du + 256) >> 9) >> 7);
        const int y0 = int(((v + i * dv + 256) >> 9) >> 7);
        return unsigned(x0 - b.x) < unsigned(b.width - 1) && unsigned(y0 - b.y) < unsigned(b.height - 1);
    };
    int first = 0;
    while (first < count && !inside(first)) ++first;
    int last = count;
    while (last > first && !inside(last - 1)) --last;
    return {first, last};
}

// Four bilinear samples whose lower left source pixels are at p[0..3], the rows above them `up`
// bytes further on, the weights of each in the 32-bit lanes of wx and wy.
__attribute__((target("avx2"))) inline void sampleFour(const uint8_t* const p[4], std::ptrdiff_t up, __m128i wx,
                                                       __m128i wy, __m256 factor, float* dst) {
    // Each weight twice in its 32-bit lane, then over the eight 16-bit lanes of its pixel.
    const __m128i twice = _mm_set1_epi32(0x10001);
    const __m256i x = _mm256_castsi128_si256(_mm_mullo_epi32(wx, twice));
    const __m256i y = _mm256_castsi128_si256(_mm_mullo_epi32(wy, twice));
    const __m256i firstPair = _mm256_setr_epi32(0, 0, 0, 0, 1, 1, 1, 1);
    const __m256i secondPair = _mm256_setr_epi32(2, 2, 2, 2, 3, 3, 3, 3);
    const __m256 first = bilinearPair(p[0], p[1], up, _mm256_permutevar8x32_epi32(x, firstPair),
                                      _mm256_permutevar8x32_epi32(y, firstPair));
    const __m256 second = bilinearPair(p[2], p[3], up, _mm256_permutevar8x32_epi32(x, secondPair),
                                       _mm256_permutevar8x32_epi32(y, secondPair));
    _mm256_storeu_ps(dst, _mm256_mul_ps(first, factor));
    _mm256_storeu_ps(dst + 8, _mm256_mul_ps(second, factor));
}

__attribute__((target("avx2"))) void bilinearBytes4AVX2(const uint8_t* origin, std::ptrdiff_t up, Int4 offsets,
                                                        Int4 wx, Int4 wy, float scale, float* out) {
    const uint8_t* p[4];
    for (int k = 0; k < 4; ++k) p[k] = origin + offsets[k];
    sampleFour(p, up, __m128i(wx), __m128i(wy), _mm256_set1_ps(scale), out);
}

// The general row of sampleBitmapRow with AVX2, four pixels at a time through the same integer
// steps as bilinearBytes: positions and weights in vector lanes, then two pairs of pixels. Pixels
// whose squares reach beyond the bounds are sampled one by one.
__attribute__((target("avx2"))) void sampleRowAVX2(const BitmapView& bitmap, int64_t u, int64_t v, int64_t du,
                                                   int64_t dv, float scale, float* out, int count) {
    const auto [first, last] = insideRun(bitmap, u, v, du, dv, count);
    const PixelRect b = bitmap.bounds;
    // Positions inside the bounds, counted from their corner, fit 32-bit lanes.
    constexpr int64_t kLaneLimit = int64_t(1) << 14;
    const bool fitsLanes = b.width < kLaneLimit && b.height < kLaneLimit && std::abs(du) < (kLaneLimit << 16) / 4 &&
                           std::abs(dv) < (kLaneLimit << 16) / 4;
    int i = 0;
    for (; i < first; ++i) storeFloat4(out + 4 * i, bitmap.sample(u + i * du, v + i * dv) * scale);
    if (fitsLanes) {
        const uint8_t* const corner = bitmap.at(b.x, b.y);
        const std::ptrdiff_t stride = bitmap.stride;
        const std::ptrdiff_t readAhead = bitmap.readAhead;
        const __m128i steps = _mm_setr_epi32(0, 1, 2, 3);
        const __m128i du4 = _mm_mullo_epi32(_mm_set1_epi32(int(du)), steps);
        const __m128i dv4 = _mm_mullo_epi32(_mm_set1_epi32(int(dv)), steps);
        const __m128i round = _mm_set1_epi32(256);
        const __m128i fraction = _mm_set1_epi32(127);
        const __m256 factor = _mm256_set1_ps(scale);
        for (; i + 4 <= last; i += 4) {
            const __m128i pu = _mm_add_epi32(_mm_set1_epi32(int(u + i * du - int64_t(b.x) * 65536)), du4);
            const __m128i pv = _mm_add_epi32(_mm_set1_epi32(int(v + i * dv - int64_t(b.y) * 65536)), dv4);
            const __m128i ru = _mm_srai_epi32(_mm_add_epi32(pu, round), 9);
            const __m128i rv = _mm_srai_epi32(_mm_add_epi32(pv, round), 9);
            alignas(16) int32_t xs[4], ys[4];
            _mm_store_si128(reinterpret_cast<__m128i*>(xs), _mm_srai_epi32(ru, 7));
            _mm_store_si128(reinterpret_cast<__m128i*>(ys), _mm_srai_epi32(rv, 7));
            const uint8_t* p[4];
            for (int k = 0; k < 4; ++k) p[k] = corner - std::ptrdiff_t(ys[k]) * stride + std::ptrdiff_t(xs[k]) * 4;
            _mm_prefetch(reinterpret_cast<const char*>(p[0] + readAhead), _MM_HINT_T0);
            sampleFour(p, -stride, _mm_and_si128(ru, fraction), _mm_and_si128(rv, fraction), factor, out + 4 * i);
        }
    }
    for (; i < count; ++i) storeFloat4(out + 4 * i, bitmap.sample(u + i * du, v + i * dv) * scale);
}

}  // namespace
#endif

#if defined(__x86_64__)
namespace {

// Two premultiplied pixels clamped to 0..1 and scaled to rounded bytes, as 32-bit integers. min
// and max take their second operand when either is NaN, as the comparisons in floatsToBytes do.
__attribute__((target("avx2"))) inline __m256i twoPixelsToIntegers(const float* p) {
    const __m256 clamped = _mm256_min_ps(_mm256_set1_ps(1.f), _mm256_max_ps(_mm256_setzero_ps(), _mm256_loadu_ps(p)));
    return _mm256_cvttps_epi32(_mm256_add_ps(_mm256_mul_ps(clamped, _mm256_set1_ps(255.f)), _mm256_set1_ps(0.5f)));
}

// premultipliedToBytes with AVX2, eight pixels at a time through the same steps as floatsToBytes.
// Returns how many pixels it wrote.
__attribute__((target("avx2"))) int premultipliedToBytesAVX2(const float* src, uint8_t* dst, int count) {
    // Packing works within each 128-bit half; this puts the eight pixels back in order.
    const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    int i = 0;
    for (; i + 8 <= count; i += 8) {
        const float* p = src + 4 * i;
        const __m256i low = _mm256_packs_epi32(twoPixelsToIntegers(p), twoPixelsToIntegers(p + 8));
        const __m256i high = _mm256_packs_epi32(twoPixelsToIntegers(p + 16), twoPixelsToIntegers(p + 24));
        const __m256i bytes = _mm256_permutevar8x32_epi32(_mm256_packus_epi16(low, high), order);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 4 * i), bytes);
    }
    return i;
}

}  // namespace
#endif

void premultipliedToBytes(const float* src, uint8_t* dst, int count) {
    int i = 0;
#if defined(__x86_64__)
    static const bool hasAVX2 = __builtin_cpu_supports("avx2");
    if (hasAVX2) i = premultipliedToBytesAVX2(src, dst, count);
#endif
    floatsToBytes(src + 4 * i, dst + 4 * i, count - i, false, false);
}

void bilinearBytes4(const uint8_t* origin, std::ptrdiff_t up, Int4 offsets, Int4 wx, Int4 wy, float scale, float* out) {
#if defined(__x86_64__)
    static const bool hasAVX2 = __builtin_cpu_supports("avx2");
    if (hasAVX2) {
        bilinearBytes4AVX2(origin, up, offsets, wx, wy, scale, out);
        return;
    }
#endif
    for (int k = 0; k < 4; ++k) {
        const uint8_t* p = origin + offsets[k];
        storeFloat4(out + 4 * k, bilinearBytes(p, p + up, wx[k], wy[k]) * scale);
    }
}

void sampleBitmapRow(const BitmapView& bitmap, int64_t u, int64_t v, int64_t du, int64_t dv, float scale, float* out,
                     int count) {
    int i = 0;
#if defined(__SSE2__)
    if (du == 65536 && dv == 0) {
        // Pixels left of the bounds first, one by one.
        for (; i < count && ((u + 256) >> 16) < bitmap.bounds.x; ++i, u += du) storeFloat4(out + 4 * i, bitmap.sample(u, v) * scale);
        const int done = sampleShiftedRow(bitmap, u, v, scale, out + 4 * i, count - i);
        i += done;
        u += done * du;
    }
#endif
#if defined(__x86_64__)
    static const bool hasAVX2 = __builtin_cpu_supports("avx2");
    if (hasAVX2) {
        sampleRowAVX2(bitmap, u, v, du, dv, scale, out + 4 * i, count - i);
        return;
    }
#endif
    for (; i < count; ++i, u += du, v += dv) storeFloat4(out + 4 * i, bitmap.sample(u, v) * scale);
}

}  // namespace qm
