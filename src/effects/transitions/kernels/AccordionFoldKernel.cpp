// Accordion fold: the from image folds up in vertical panels towards its left edge and uncovers the
// target behind it.
//
// The from image is cut into n panels of width p = W / n. At time t the folded picture is
// c = 1 - t of its width: each panel turns by the fold angle a (cos a = c), alternate panels the
// other way, so a panel's depth runs from 0 to p sin a and back on the next one. Seen head on the
// folded picture maps linearly onto the shorter width; with the viewer at distance D = 4p, a column
// at depth z is narrowed vertically by D / (D + z) about the picture's middle, which zigzags its top
// and bottom edges. Panels whose depth grows to the right face away from the light and darken by
// foldShadowAmount * sin a; the others by a quarter of that. The target, in place, shows wherever
// no panel lies.
#include <algorithm>
#include <cmath>
#include <vector>

#include "effects/transitions/kernels/KernelSupport.h"
#include "effects/transitions/kernels/TransitionKernels.h"
#include "image/dsp/x86/BilinearPair.h"

namespace qm {

using namespace kernels;

namespace {

struct Fold {
    float left = 0;     // the edge the picture folds towards
    float middle = 0;   // vertical centre of the picture
    float width = 1;    // unfolded
    float cosine = 1;   // of the fold angle: the folded share of the width
    float panel = 1;    // unfolded panel width
    float depth = 0;    // deepest point of a panel
    float viewer = 1;   // distance of the viewer
    float shadow = 0;   // darkening of the panels facing away

    // The panel column at output position cx: the from image's x there, the vertical scale of the
    // perspective and the light. False where no panel lies.
    bool column(float cx, float& sourceX, float& inverseScale, float& light) const {
        const float folded = (cx - left) / cosine;  // the unfolded distance from the left edge
        if (folded < -1.0f || folded > width + 1.0f) return false;
        const float panels = folded / panel;
        const float index = std::floor(panels);
        const float within = panels - index;
        const bool away = std::fmod(index, 2.0f) == 0.0f;
        const float z = (away ? within : 1.0f - within) * depth;
        sourceX = left + folded;
        inverseScale = (viewer + z) / viewer;
        light = 1.0f - shadow * (away ? 1.0f : 0.25f);
        return true;
    }
};

// A folded column of a tile: where it reads the from image, its perspective and its light.
struct Column {
    Float4 light = splat(1.0f);  // the light on red, green and blue; 1 on alpha
    float sourceX = 0;
    float inverseScale = 1;
    int x0 = 0;           // the left pixel of the bilinear sample
    float tx = 0;         // the weight of the right one
    int wx = 0;           // tx in 1/128 steps, for a byte tile
    bool inside = false;  // both pixels lie in the from tile's columns
};

// Later rows read a little higher up the same columns, scattered over many source rows: bytes
// are fetched this many rows ahead.
constexpr int kPrefetchRows = 4;

// The lit panel of column c in the row `fromMiddle` above the picture's middle, bilinear as
// sampleBilinear. `Bytes` tells whether `from` is a byte tile.
template <bool Bytes>
inline Float4 litPanel(const Fold& f, const Column& c, const ConstImageTile& from, float fromMiddle) {
    const PixelRect& r = from.rect;
    const float py = f.middle + fromMiddle * c.inverseScale;
    const float v = py - 0.5f;
    const int y0 = fastFloor(v);
    Float4 panel;
    if (c.inside && y0 >= r.y && y0 + 1 < r.maxY()) {
        const float ty = v - float(y0);
        if constexpr (Bytes) {
            const uint8_t* p = from.byteAt(c.x0, y0);
            __builtin_prefetch(p + kPrefetchRows * from.byteStride);
            panel = bilinearBytes(p, p + from.byteStride, c.wx, int(ty * 128.0f + 0.5f)) * kByteToFloat;
        } else {
            const float* p = from.at(c.x0, y0);
            const float* q = p + from.rowStride;
            panel = mix(mix(loadFloat4(p), loadFloat4(p + 4), c.tx), mix(loadFloat4(q), loadFloat4(q + 4), c.tx), ty);
        }
    } else if (y0 + 1 < r.y || y0 >= r.maxY()) {
        panel = splat(0.0f);  // above or below the picture
    } else {
        panel = from.sample(c.sourceX, py);
    }
    // As shaded(): colour scaled by the light and limited to alpha, which stays.
    return minFloat4(panel * c.light, splat(panel[3]));
}

// Stores the lit panels of pixels start <= x < end into `dst` (pixel `start` first) and widens
// [firstClear, lastClear] over those whose panel is not opaque.
template <bool Bytes>
void litPanels(const Fold& f, const Column* column, const ConstImageTile& from, float fromMiddle, int start,
               int end, float* dst, int& firstClear, int& lastClear) {
    for (int x = start; x < end; ++x, dst += 4) {
        const Float4 lit = litPanel<Bytes>(f, column[x], from, fromMiddle);
        storeFloat4(dst, lit);
        if (!(lit[3] >= 1.0f)) {
            firstClear = std::min(firstClear, x);
            lastClear = x;
        }
    }
}

#if defined(__x86_64__)
// litPanels for a byte tile with AVX2: the source rows and their weights eight columns at a time
// (`scales` holds the columns' inverse scales, readable up to eight past `end`), then the pixels
// two at a time through the same integer steps as bilinearBytes. Every step is litPanel's
// arithmetic, so the results are the same. Pairs that reach beyond the tile go one by one.
__attribute__((target("avx2"))) void litPanelsAVX2(const Fold& f, const Column* column, const float* scales,
                                                   const ConstImageTile& from, float fromMiddle, int start, int end,
                                                   float* dst, int& firstClear, int& lastClear) {
    const PixelRect& r = from.rect;
    const std::ptrdiff_t stride = from.byteStride;
    thread_local std::vector<int32_t> rowsAndWeights;
    rowsAndWeights.resize(2 * size_t(end - start + 8));
    int32_t* sourceRows = rowsAndWeights.data() - start;
    int32_t* rowWeights = sourceRows + (end - start + 8);
    const __m256 middle = _mm256_set1_ps(f.middle);
    const __m256 row = _mm256_set1_ps(fromMiddle);
    for (int x = start; x < end; x += 8) {
        const __m256 v =
            _mm256_sub_ps(_mm256_add_ps(middle, _mm256_mul_ps(row, _mm256_loadu_ps(scales + x))), _mm256_set1_ps(0.5f));
        // fastFloor, lane by lane.
        const __m256i truncated = _mm256_cvttps_epi32(v);
        const __m256i y0 = _mm256_add_epi32(
            truncated, _mm256_castps_si256(_mm256_cmp_ps(_mm256_cvtepi32_ps(truncated), v, _CMP_GT_OQ)));
        const __m256 ty = _mm256_sub_ps(v, _mm256_cvtepi32_ps(y0));
        const __m256i wy =
            _mm256_cvttps_epi32(_mm256_add_ps(_mm256_mul_ps(ty, _mm256_set1_ps(128.0f)), _mm256_set1_ps(0.5f)));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(sourceRows + x), y0);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(rowWeights + x), wy);
    }
    const __m256 toFloat = _mm256_set1_ps(kByteToFloat);
    const __m256 one = _mm256_set1_ps(1.0f);
    int x = start;
    for (; x + 2 <= end; x += 2, dst += 8) {
        const Column& c0 = column[x];
        const Column& c1 = column[x + 1];
        const int y0 = sourceRows[x];
        const int y1 = sourceRows[x + 1];
        if (!c0.inside || !c1.inside || std::min(y0, y1) < r.y || std::max(y0, y1) + 1 >= r.maxY()) {
            litPanels<true>(f, column, from, fromMiddle, x, x + 2, dst, firstClear, lastClear);
            continue;
        }
        const uint8_t* p0 = from.byteAt(c0.x0, y0);
        const uint8_t* p1 = from.byteAt(c1.x0, y1);
        __builtin_prefetch(p0 + kPrefetchRows * stride);
        __builtin_prefetch(p1 + kPrefetchRows * stride);
        const __m256i wy =
            _mm256_setr_m128i(_mm_set1_epi16(short(rowWeights[x])), _mm_set1_epi16(short(rowWeights[x + 1])));
        const __m256i wx = _mm256_setr_m128i(_mm_set1_epi16(short(c0.wx)), _mm_set1_epi16(short(c1.wx)));
        const __m256 panel = _mm256_mul_ps(bilinearPair(p0, p1, stride, wx, wy), toFloat);
        const __m256 alpha = _mm256_shuffle_ps(panel, panel, 0xff);
        const __m256 light = _mm256_setr_m128(__m128(c0.light), __m128(c1.light));
        _mm256_storeu_ps(dst, _mm256_min_ps(_mm256_mul_ps(panel, light), alpha));
        const int opaque = _mm256_movemask_ps(_mm256_cmp_ps(alpha, one, _CMP_GE_OQ));
        if (opaque != 0xff) {
            if ((opaque & 0x0f) != 0x0f) firstClear = std::min(firstClear, x);
            if ((opaque & 0xf0) != 0xf0) firstClear = std::min(firstClear, x + 1);
            lastClear = (opaque & 0xf0) != 0xf0 ? x + 1 : x;
        }
    }
    litPanels<true>(f, column, from, fromMiddle, x, end, dst, firstClear, lastClear);
}
#endif

// Pixels start <= x < end of row y, all folded, into `dst` (pixel `start` first): the lit panel
// where it is opaque, else the lit panel over the target.
template <bool Bytes>
void foldRow(const Fold& f, const Column* column, const float* scales, const ConstImageTile& from,
             const ConstImageTile& to, int y, int start, int end, float* dst) {
    const float fromMiddle = float(y) + 0.5f - f.middle;
    // The span of pixels the panel leaves partly uncovered.
    int firstClear = end;
    int lastClear = start - 1;
#if defined(__x86_64__)
    static const bool hasAVX2 = __builtin_cpu_supports("avx2");
    if (Bytes && hasAVX2) litPanelsAVX2(f, column, scales, from, fromMiddle, start, end, dst, firstClear, lastClear);
    else litPanels<Bytes>(f, column, from, fromMiddle, start, end, dst, firstClear, lastClear);
#else
    litPanels<Bytes>(f, column, from, fromMiddle, start, end, dst, firstClear, lastClear);
#endif
    if (firstClear > lastClear) return;
    float* target = rowBuffer(lastClear + 1 - firstClear);
    copyRow(to, y, firstClear, lastClear + 1, target);
    float* out = dst + 4 * (firstClear - start);
    for (int x = firstClear; x <= lastClear; ++x, out += 4, target += 4) {
        const float alpha = out[3];
        if (alpha >= 1.0f) continue;
        storeFloat4(out, alpha <= 0.0f ? loadFloat4(target) : over(loadFloat4(out), loadFloat4(target)));
    }
}

}  // namespace

Image accordionFoldTransition(const Image& from, const Image& to, double time,
                              const AccordionFoldTransitionParameters& parameters) {
    if (!from || !to) return {};
    const float t = transitionTime(time);
    const Rect fromExtent = from.extent();

    Fold f;
    f.left = float(fromExtent.minX());
    f.middle = float(fromExtent.midY());
    f.width = std::max(float(fromExtent.width()), 1.0f);
    f.cosine = std::max(1.0f - t, 1e-4f);
    const float sine = std::sqrt(std::max(1.0f - f.cosine * f.cosine, 0.0f));
    f.panel = f.width / float(std::max(parameters.numberOfFolds, 1.0));
    f.depth = f.panel * sine;
    f.viewer = 4.0f * f.panel;
    f.shadow = float(parameters.foldShadowAmount) * sine;
    const float deepest = (f.viewer + f.depth) / f.viewer;

    auto kernel = transitionKernel("accordionFold");
    kernel->regionOfInterest = [=](size_t index, const Rect& rect) {
        if (index != 0 || t <= 0.0f) return rect;
        if (t >= 1.0f) return Rect{};
        const double x0 = f.left + std::max(rect.minX() - f.left, 0.0) / f.cosine;
        const double x1 = f.left + std::max(rect.maxX() - f.left, 0.0) / f.cosine;
        const double y0 = f.middle + std::min((rect.minY() - f.middle) * deepest, rect.minY() - f.middle);
        const double y1 = f.middle + std::max((rect.maxY() - f.middle) * deepest, rect.maxY() - f.middle);
        return outset(Rect{x0, y0, x1 - x0, y1 - y0}, 2).intersection(outset(fromExtent, 2));
    };
    kernel->render = [=](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch&) {
        const ConstImageTile& fromTile = in[0];
        const int x0 = out.rect.x;
        const int x1 = out.rect.maxX();
        if (t <= 0.0f) {
            for (int y = out.rect.y; y < out.rect.maxY(); ++y) copyRow(fromTile, y, x0, x1, out.row(y));
            return;
        }
        // The columns of the tile, worked out once. The folded ones form one run; the target shows
        // on either side of it.
        thread_local std::vector<Column> columns;
        thread_local std::vector<float> scales;  // their inverse scales, and eight more to read in groups
        columns.assign(size_t(out.rect.width), Column{});
        scales.assign(size_t(out.rect.width) + 8, 1.0f);
        const Column* column = columns.data() - x0;
        int foldStart = x1;
        int foldEnd = x1;
        const PixelRect& r = fromTile.rect;
        for (int x = x0; x < x1 && t < 1.0f; ++x) {
            Column& c = columns[size_t(x - x0)];
            float light = 1.0f;
            if (!f.column(float(x) + 0.5f, c.sourceX, c.inverseScale, light)) {
                if (foldStart < x1) break;
                continue;
            }
            if (foldStart == x1) foldStart = x;
            foldEnd = x + 1;
            const float u = c.sourceX - 0.5f;
            c.x0 = fastFloor(u);
            c.tx = u - float(c.x0);
            c.wx = int(c.tx * 128.0f + 0.5f);
            c.inside = c.x0 >= r.x && c.x0 + 1 < r.maxX();
            c.light = Float4{light, light, light, 1.0f};
            scales[size_t(x - x0)] = c.inverseScale;
        }
        const bool bytes = fromTile.bytes != nullptr;
        for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
            float* row = out.row(y);
            copyRow(in[1], y, x0, foldStart, row);
            copyRow(in[1], y, foldEnd, x1, row + 4 * (foldEnd - x0));
            if (foldStart == foldEnd) continue;
            float* dst = row + 4 * (foldStart - x0);
            const float* scale = scales.data() - x0;
            if (bytes) foldRow<true>(f, column, scale, fromTile, in[1], y, foldStart, foldEnd, dst);
            else foldRow<false>(f, column, scale, fromTile, in[1], y, foldStart, foldEnd, dst);
        }
    };
    return applyKernel(kernel, {from, to});
}

}  // namespace qm
