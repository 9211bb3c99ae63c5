// The sampling rows with AVX2: four bilinear samples at a time through the 16-bit lane steps of
// bilinearPair, positions and weights worked out in vector lanes. Pixels whose squares reach
// beyond the bounds go through the plain row.
#include <immintrin.h>

#include <cstdlib>
#include <utility>

#include "image/dsp/FixedPoint.h"
#include "image/dsp/PixelDSP.h"
#include "image/dsp/RowFamilies.h"
#include "image/dsp/x86/BilinearPair.h"

namespace qm {

namespace {

// Four bilinear samples whose lower left source pixels are at p[0..3], the rows above them `up`
// bytes further on, the weights of each in the 32-bit lanes of wx and wy.
inline void sampleFour(const uint8_t* const p[4], std::ptrdiff_t up, __m128i wx, __m128i wy, __m256 factor,
                       float* dst) {
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

void bilinearBytes4(const uint8_t* origin, std::ptrdiff_t up, Int4 offsets, Int4 wx, Int4 wy, float scale, float* out) {
    const uint8_t* p[4];
    for (int k = 0; k < 4; ++k) p[k] = origin + offsets[k];
    sampleFour(p, up, __m128i(wx), __m128i(wy), _mm256_set1_ps(scale), out);
}

// Four samples one whole pixel apart, all with the weights in every 16-bit lane of wx and wy: the
// lower left source pixels start at `lower`, the rows above them `up` bytes further on. Reads
// five pixels of each row.
inline void sampleShiftedFour(const uint8_t* lower, std::ptrdiff_t up, __m256i wx, __m256i wy, __m256 factor,
                              float* dst) {
    auto widen = [](const uint8_t* r) {
        return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(r)));
    };
    // Vertical blends of each pixel and of its right neighbour, then across.
    const __m256i left = blendWords(widen(lower), widen(lower + up), wy);
    const __m256i right = blendWords(widen(lower + 4), widen(lower + up + 4), wy);
    const __m256i h = blendWords(left, right, wx);
    const __m256 first = _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(_mm256_castsi256_si128(h)));
    const __m256 second = _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(_mm256_extracti128_si256(h, 1)));
    _mm256_storeu_ps(dst, _mm256_mul_ps(first, factor));
    _mm256_storeu_ps(dst + 8, _mm256_mul_ps(second, factor));
}

// The pixels of a row whose 2 x 2 squares lie wholly inside the bounds: [first, last). Positions
// move steadily along a row, so they form one run.
std::pair<int, int> insideRun(const BitmapView& bitmap, int64_t u, int64_t v, int64_t du, int64_t dv, int count) {
    auto inside = [&](int i) {
        return bitmap.holdsSquare(fixed::wholePixel(fixed::steps(u + i * du)),
                                  fixed::wholePixel(fixed::steps(v + i * dv)));
    };
    int first = 0;
    while (first < count && !inside(first)) ++first;
    int last = count;
    while (last > first && !inside(last - 1)) --last;
    return {first, last};
}

// Samples [i, last) of a row that steps one whole pixel across, four at a time: the weights are
// the same for every pixel. Returns where it stopped.
int sampleShiftedRun(const BitmapView& bitmap, int64_t u, int64_t v, float scale, float* out, int i, int last) {
    const int64_t su = fixed::steps(u + i * fixed::kPositionOne);
    const int64_t sv = fixed::steps(v);
    const __m256i wx = _mm256_set1_epi16(short(fixed::stepWeight(su)));
    const __m256i wy = _mm256_set1_epi16(short(fixed::stepWeight(sv)));
    const __m256 factor = _mm256_set1_ps(scale);
    const uint8_t* lower = bitmap.at(fixed::wholePixel(su), fixed::wholePixel(sv));
    for (; i + 4 <= last; i += 4, lower += 16) sampleShiftedFour(lower, -bitmap.stride, wx, wy, factor, out + 4 * i);
    return i;
}

// Samples [i, last) of a row four at a time, positions and weights in 32-bit lanes counted from
// the bounds' corner. Returns where it stopped: at i when positions do not fit the lanes.
int sampleRun(const BitmapView& bitmap, int64_t u, int64_t v, int64_t du, int64_t dv, float scale, float* out, int i,
              int last) {
    const PixelRect b = bitmap.bounds;
    constexpr int64_t kLaneLimit = int64_t(1) << 14;
    const bool fitsLanes = b.width < kLaneLimit && b.height < kLaneLimit &&
                           std::abs(du) < (kLaneLimit << fixed::kPositionBits) / 4 &&
                           std::abs(dv) < (kLaneLimit << fixed::kPositionBits) / 4;
    if (!fitsLanes) return i;
    const uint8_t* const corner = bitmap.at(b.x, b.y);
    const std::ptrdiff_t stride = bitmap.stride;
    const __m128i lanes = _mm_setr_epi32(0, 1, 2, 3);
    const __m128i du4 = _mm_mullo_epi32(_mm_set1_epi32(int(du)), lanes);
    const __m128i dv4 = _mm_mullo_epi32(_mm_set1_epi32(int(dv)), lanes);
    const __m128i round = _mm_set1_epi32(1 << (fixed::kStepShift - 1));
    const __m128i weightMask = _mm_set1_epi32(fixed::kWeightOne - 1);
    const __m256 factor = _mm256_set1_ps(scale);
    for (; i + 4 <= last; i += 4) {
        const __m128i pu = _mm_add_epi32(_mm_set1_epi32(int(u + i * du - b.x * fixed::kPositionOne)), du4);
        const __m128i pv = _mm_add_epi32(_mm_set1_epi32(int(v + i * dv - b.y * fixed::kPositionOne)), dv4);
        const __m128i su = _mm_srai_epi32(_mm_add_epi32(pu, round), fixed::kStepShift);
        const __m128i sv = _mm_srai_epi32(_mm_add_epi32(pv, round), fixed::kStepShift);
        alignas(16) int32_t xs[4], ys[4];
        _mm_store_si128(reinterpret_cast<__m128i*>(xs), _mm_srai_epi32(su, fixed::kWeightBits));
        _mm_store_si128(reinterpret_cast<__m128i*>(ys), _mm_srai_epi32(sv, fixed::kWeightBits));
        const uint8_t* p[4];
        for (int k = 0; k < 4; ++k) p[k] = corner - std::ptrdiff_t(ys[k]) * stride + std::ptrdiff_t(xs[k]) * 4;
        _mm_prefetch(reinterpret_cast<const char*>(p[0] + bitmap.readAhead), _MM_HINT_T0);
        sampleFour(p, -stride, _mm_and_si128(su, weightMask), _mm_and_si128(sv, weightMask), factor, out + 4 * i);
    }
    return i;
}

void sampleBitmapRow(const BitmapView& bitmap, int64_t u, int64_t v, int64_t du, int64_t dv, float scale, float* out,
                     int count) {
    const auto [first, last] = insideRun(bitmap, u, v, du, dv, count);
    const PixelDSP& plain = plainPixelDSP();
    if (first > 0) plain.sampleBitmapRow(bitmap, u, v, du, dv, scale, out, first);
    const bool shifted = du == fixed::kPositionOne && dv == 0;
    const int done = shifted ? sampleShiftedRun(bitmap, u, v, scale, out, first, last)
                             : sampleRun(bitmap, u, v, du, dv, scale, out, first, last);
    if (done < count)
        plain.sampleBitmapRow(bitmap, u + done * du, v + done * dv, du, dv, scale, out + 4 * done, count - done);
}

}  // namespace

void setAVX2SampleRows(PixelDSP& dsp) {
    dsp.bilinearBytes4 = bilinearBytes4;
    dsp.sampleBitmapRow = sampleBitmapRow;
}

}  // namespace qm
