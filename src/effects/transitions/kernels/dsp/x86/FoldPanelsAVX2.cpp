#include "effects/transitions/kernels/dsp/x86/FoldPanelsAVX2.h"

#include <immintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "image/dsp/x86/BilinearPair.h"

namespace qm::kernels {

namespace {

// Columns whose source rows are worked out at once, an even number so that pairs of columns do not
// straddle two groups.
constexpr int kColumnGroup = 256;

}  // namespace

// Per group of columns: the source rows and their weights eight columns at a time, then the pixels
// two at a time through the same integer steps as bilinearBytes. Every step is litBytePanels'
// arithmetic, so the results are the same. Pairs that reach beyond the tile, and a last single
// pixel, go through litBytePanels.
void foldBytePanelsAVX2(const PanelRun& run, const ConstImageTile& from, float* dst, ClearSpan& clear) {
    const Column* column = run.column;
    const int end = run.end;
    const PixelRect& r = from.rect;
    const std::ptrdiff_t stride = from.byteStride;
    const __m256 middle = _mm256_set1_ps(run.fold->middle);
    const __m256 row = _mm256_set1_ps(run.fromMiddle);
    const __m256 toFloat = _mm256_set1_ps(kByteToFloat);
    const __m256 one = _mm256_set1_ps(1.0f);
    int32_t sourceRows[kColumnGroup + 8];
    int32_t rowWeights[kColumnGroup + 8];
    PanelRun pair = run;
    int x = run.start;
    for (int group = run.start; group < end; group += kColumnGroup) {
        const int groupEnd = std::min(group + kColumnGroup, end);
        for (int i = group; i < groupEnd; i += 8) {
            const __m256 v =
                _mm256_sub_ps(_mm256_add_ps(middle, _mm256_mul_ps(row, _mm256_loadu_ps(run.inverseScales + i))),
                              _mm256_set1_ps(0.5f));
            // fastFloor, lane by lane.
            const __m256i truncated = _mm256_cvttps_epi32(v);
            const __m256i y0 = _mm256_add_epi32(
                truncated, _mm256_castps_si256(_mm256_cmp_ps(_mm256_cvtepi32_ps(truncated), v, _CMP_GT_OQ)));
            const __m256 ty = _mm256_sub_ps(v, _mm256_cvtepi32_ps(y0));
            const __m256i wy =
                _mm256_cvttps_epi32(_mm256_add_ps(_mm256_mul_ps(ty, _mm256_set1_ps(128.0f)), _mm256_set1_ps(0.5f)));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(sourceRows + (i - group)), y0);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(rowWeights + (i - group)), wy);
        }
        for (; x + 2 <= groupEnd; x += 2, dst += 8) {
            const Column& c0 = column[x];
            const Column& c1 = column[x + 1];
            const int y0 = sourceRows[x - group];
            const int y1 = sourceRows[x + 1 - group];
            if (!c0.inside || !c1.inside || std::min(y0, y1) < r.y || std::max(y0, y1) + 1 >= r.maxY()) {
                pair.start = x;
                pair.end = x + 2;
                litBytePanels(pair, from, dst, clear);
                continue;
            }
            const uint8_t* p0 = from.byteAt(c0.x0, y0);
            const uint8_t* p1 = from.byteAt(c1.x0, y1);
            __builtin_prefetch(p0 + kPanelPrefetchRows * stride);
            __builtin_prefetch(p1 + kPanelPrefetchRows * stride);
            const __m256i wy = _mm256_setr_m128i(_mm_set1_epi16(short(rowWeights[x - group])),
                                                 _mm_set1_epi16(short(rowWeights[x + 1 - group])));
            const __m256i wx = _mm256_setr_m128i(_mm_set1_epi16(short(c0.wx)), _mm_set1_epi16(short(c1.wx)));
            const __m256 panel = _mm256_mul_ps(bilinearPair(p0, p1, stride, wx, wy), toFloat);
            const __m256 alpha = _mm256_shuffle_ps(panel, panel, 0xff);
            const __m256 light = _mm256_setr_m128(__m128(c0.light), __m128(c1.light));
            _mm256_storeu_ps(dst, _mm256_min_ps(_mm256_mul_ps(panel, light), alpha));
            const int opaque = _mm256_movemask_ps(_mm256_cmp_ps(alpha, one, _CMP_GE_OQ));
            if (opaque != 0xff) {
                if ((opaque & 0x0f) != 0x0f) clear.widen(x);
                if ((opaque & 0xf0) != 0xf0) clear.widen(x + 1);
            }
        }
    }
    pair.start = x;
    pair.end = end;
    litBytePanels(pair, from, dst, clear);
}

}  // namespace qm::kernels
