// Ripple: a circular wave that runs out from a centre and leaves the target behind it.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

#include "effects/transitions/kernels/KernelSupport.h"
#include "effects/transitions/kernels/TransitionKernels.h"

namespace qm {

using namespace kernels;

namespace {

#if defined(__SSE2__)
// bilinearBytes at the same place in two pictures: the pixels at `a` and `b`, each with the row
// above it `aUp` and `bUp` bytes further on, into `first` and `second`.
inline void bilinearBytePair(const uint8_t* a, std::ptrdiff_t aUp, const uint8_t* b, std::ptrdiff_t bUp, int wx, int wy,
                             Float4& first, Float4& second) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i half = _mm_set1_epi16(64);
    const __m128i up = _mm_set1_epi16(short(wy));
    const auto load = [zero](const uint8_t* p) {
        return _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)), zero);
    };
    // Each picture's two pixels blended up, then the left pixels of both against the right ones.
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
#endif

// mix(samples.blend(a, lane), samples.blend(b, lane), t), both tiles read at once where they are
// bytes.
inline Float4 mixBlends(const Samples4& samples, const ConstImageTile& a, const ConstImageTile& b, int lane, float t) {
#if defined(__SSE2__)
    if (a.bytes && b.bytes) {
        const int x = samples.x0[lane], y = samples.y0[lane];
        Float4 first;
        Float4 second;
        bilinearBytePair(a.byteAt(x, y), a.byteStride, b.byteAt(x, y), b.byteStride, samples.wx[lane], samples.wy[lane],
                         first, second);
        return mix(first * kByteToFloat, second * kByteToFloat, t);
    }
#endif
    return mix(samples.blend(a, lane), samples.blend(b, lane), t);
}

// SphereShading with the points it reads worked out four at a time.
class Light {
public:
    Light(const ConstImageTile& tile, const Rect& extent) : _sphere(tile, extent) {}

    // The points read for surface normals with in-plane parts (nx, ny).
    Samples4 points(Float4 nx, Float4 ny) const {
        const auto [x, y] = _sphere.points(nx, ny);
        return Samples4(x, y);
    }
    // The lanes of `points` read inside the shading tile, for apply().
    int inside(const Samples4& points) const { return points.inside(_sphere.tile()); }

    // `color` lit at lane `lane` of `points`.
    Float4 apply(Float4 color, const Samples4& points, int lane, int inside) const {
        return SphereShading::lit(color, points.read(_sphere.tile(), lane, inside) - _sphere.flatLight());
    }

private:
    SphereShading _sphere;
};

// The wave's shape in one render.
struct WaveShape {
    float cx0, cy0;                // centre
    float front, inverseWidth;    // radius of the front, and 1 / the wave's width
    float halfScale, slope;       // displacement and tilt of the surface at the crest
    float minX, maxX, minY, maxY;  // where displaced reads may go
};

// The wave over pixels [begin, end) of `row` (row y, starting at pixel x0), its geometry four
// pixels at a time.
QM_AVX2_CLONES void waveRun(const WaveShape& shape, float* row, int x0, int y, int begin, int end,
                           const ConstImageTile& fromTile, const ConstImageTile& toTile, const Light* light) {
    const auto [cx0, cy0, front, inverseWidth, halfScale, slope, minX, maxX, minY, maxY] = shape;
    const float cy = float(y) + 0.5f;
    const float vy = cy - cy0;
    for (int x = begin; x < end; x += 4) {
        const Float4 cx = Float4{float(x), float(x + 1), float(x + 2), float(x + 3)} + 0.5f;
        const Float4 vx = cx - cx0;
        const Float4 d = sqrtFloat4(vx * vx + vy * vy);
        const Float4 phase = (front - d) * inverseWidth;  // 0 at the front, 1 at the back
        const Int4 away = d > 0.0f;
        const Float4 inverseD = away ? 1.0f / (away ? d : splat(1.0f)) : splat(0.0f);
        const Float4 ux = away ? vx * inverseD : splat(1.0f);
        const Float4 uy = vy * inverseD;
        const Float4 wave = sinOfTurns4(phase);
        const Float4 shift = halfScale * wave;
        const Float4 sx = clampFloat4(cx - ux * shift, splat(minX), splat(maxX));
        const Float4 sy = clampFloat4(cy - uy * shift, splat(minY), splat(maxY));
        const Float4 blend = smooth4(phase);
        const Samples4 pictures(sx, sy);
        const Samples4 lights = light ? light->points(ux * slope * wave, uy * slope * wave) : pictures;
        const int picturesInside = pictures.inside(fromTile) & pictures.inside(toTile);
        const int lightsInside = light ? light->inside(lights) : 0;
        float* pixel = row + 4 * (x - x0);
        if (picturesInside == 15 && lightsInside == 15 && end - x >= 4) {
            // The common case, with no bounds to mind.
            for (int lane = 0; lane < 4; ++lane, pixel += 4) {
                const Float4 value = mixBlends(pictures, fromTile, toTile, lane, blend[lane]);
                storeFloat4(pixel, light->apply(value, lights, lane, 15));
            }
            continue;
        }
        for (int lane = 0; lane < std::min(4, end - x); ++lane, pixel += 4) {
            Float4 value;
            if ((picturesInside >> lane) & 1)
                value = mixBlends(pictures, fromTile, toTile, lane, blend[lane]);
            else
                value = mix(fromTile.sample(sx[lane], sy[lane]), toTile.sample(sx[lane], sy[lane]),
                            blend[lane]);
            if (light) value = light->apply(value, lights, lane, lightsInside);
            storeFloat4(pixel, value);
        }
    }
}

}  // namespace

Image rippleTransition(const Image& from, const Image& to, double time, const RippleTransitionParameters& parameters) {
    const float t = transitionTime(time);
    const float cx0 = float(parameters.center.x);
    const float cy0 = float(parameters.center.y);
    const float width = float(std::max(parameters.width, 1.0));
    const float inverseWidth = 1.0f / width;
    double reach = 1;
    for (double x : {parameters.extent.minX(), parameters.extent.maxX()}) {
        for (double y : {parameters.extent.minY(), parameters.extent.maxY()})
            reach = std::max(reach, std::hypot(x - parameters.center.x, y - parameters.center.y));
    }
    // The front leaves the farthest corner, and the back of the wave with it, at time 1.
    const float front = t * (float(reach) + width);
    const float back = front - width;
    const float frontSquared = front * front;
    const float backSquared = back > 0.0f ? back * back : -1.0f;
    const float scale = float(parameters.scale);
    const float halfScale = 0.5f * scale;
    const float slope = std::clamp(0.3f * scale / 50.0f, -0.95f, 0.95f);
    // Displaced reads stay inside the extent, so the wave does not pull in transparency at its edges.
    const float minX = float(parameters.extent.minX()) + 0.5f;
    const float maxX = std::max(float(parameters.extent.maxX()) - 0.5f, minX);
    const float minY = float(parameters.extent.minY()) + 0.5f;
    const float maxY = std::max(float(parameters.extent.maxY()) - 0.5f, minY);
    const bool hasShading = bool(parameters.shadingImage);
    const Rect shadingExtent = parameters.shadingImage.extent();

    const WaveShape shape{cx0, cy0, front, inverseWidth, halfScale, slope, minX, maxX, minY, maxY};

    auto kernel = transitionKernel("ripple");
    // Outside the wave each pixel copies one picture; inside it and on the shading, samples read
    // the bitmaps in place.
    kernel->byteInputs = {true, true, true};
    // Only where the wave passes are the pictures read away from the pixel itself.
    auto touchesWave = [=](const Rect& rect) {
        if (t <= 0.0f || t >= 1.0f) return false;
        const double nearX = std::clamp(double(cx0), rect.minX(), rect.maxX()) - cx0;
        const double nearY = std::clamp(double(cy0), rect.minY(), rect.maxY()) - cy0;
        const double farX = std::max(std::fabs(rect.minX() - cx0), std::fabs(rect.maxX() - cx0));
        const double farY = std::max(std::fabs(rect.minY() - cy0), std::fabs(rect.maxY() - cy0));
        return std::hypot(nearX, nearY) < front && std::hypot(farX, farY) > back;
    };
    kernel->regionOfInterest = [=](size_t index, const Rect& rect) {
        if (index == 2) return shadingExtent;
        return touchesWave(rect) ? outset(rect, std::fabs(scale) * 0.5 + 2.0) : rect;
    };
    kernel->wholeInputs = {false, false, true};
    kernel->render = [=](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch&) {
        if (copyEndInput(out, in, t)) return;
        const ConstImageTile& fromTile = in[0];
        const ConstImageTile& toTile = in[1];
        std::optional<Light> light;
        if (hasShading) light.emplace(in[2], shadingExtent);
        const int x0 = out.rect.x;
        const int x1 = out.rect.maxX();
        // Pixels left of `split` lie left of the centre, so along a row the squared distance
        // falls up to there and grows after it.
        const int split = fastFloor(std::clamp(cx0 - 0.5f, float(x0) - 1.0f, float(x1) - 1.0f)) + 1;
        for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
            const float cy = float(y) + 0.5f;
            const float vy = cy - cy0;
            const auto squaredDistance = [&](int x) {
                const float vx = (float(x) + 0.5f) - cx0;
                return vx * vx + vy * vy;
            };
            // The pixels [first, end) of the row for which `inside` holds, given that they form
            // one run around `split`.
            const auto run = [&](auto inside) {
                int lo = x0, hi = split;  // the first pixel left of split inside
                while (lo < hi) {
                    const int mid = (lo + hi) / 2;
                    if (inside(squaredDistance(mid))) hi = mid;
                    else lo = mid + 1;
                }
                const int first = lo;
                lo = split, hi = x1;  // the first pixel right of split outside
                while (lo < hi) {
                    const int mid = (lo + hi) / 2;
                    if (inside(squaredDistance(mid))) lo = mid + 1;
                    else hi = mid;
                }
                return std::pair{first, std::max(lo, first)};
            };
            const auto [waveStart, waveEnd] = run([&](float d2) { return d2 < frontSquared; });
            auto [wakeStart, wakeEnd] = run([&](float d2) { return d2 <= backSquared; });
            if (wakeStart >= wakeEnd) wakeStart = wakeEnd = waveEnd;
            float* row = out.row(y);
            copyRow(fromTile, y, x0, waveStart, row);
            copyRow(fromTile, y, waveEnd, x1, row + 4 * (waveEnd - x0));
            copyRow(toTile, y, wakeStart, wakeEnd, row + 4 * (wakeStart - x0));
            waveRun(shape, row, x0, y, waveStart, wakeStart, fromTile, toTile, light ? &*light : nullptr);
            waveRun(shape, row, x0, y, wakeEnd, waveEnd, fromTile, toTile, light ? &*light : nullptr);
        }
    };
    std::vector<Image> inputs{from, to};
    if (hasShading) inputs.push_back(parameters.shadingImage);
    return applyKernel(kernel, std::move(inputs));
}

}  // namespace qm
