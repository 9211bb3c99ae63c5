// Flash and mod: transitions whose boundary is drawn around a centre point.
#include <cmath>
#include <cstring>
#include <vector>

#include "effects/transitions/kernels/KernelSupport.h"
#include "effects/transitions/kernels/TransitionKernels.h"

namespace qm {

using namespace kernels;

namespace {

// The distance from `center` to the farthest corner of `rect`, at least one pixel.
float farthestCorner(const Point& center, const Rect& rect) {
    double farthest = 1;
    for (double x : {rect.minX(), rect.maxX()}) {
        for (double y : {rect.minY(), rect.maxY()}) farthest = std::max(farthest, std::hypot(x - center.x, y - center.y));
    }
    return float(farthest);
}

// A fixed pattern of spokes in 0..1 for the direction (ux, uy) (a unit vector):
// 0.5 + 0.3 cos(16 a) + 0.2 cos(7 a), from powers of ux + i uy.
float spokes(float ux, float uy) {
    auto square = [](float& re, float& im) {
        const float r = re * re - im * im;
        im = 2.0f * re * im;
        re = r;
    };
    float re2 = ux, im2 = uy;
    square(re2, im2);
    float re4 = re2, im4 = im2;
    square(re4, im4);
    float re16 = re4, im16 = im4;
    square(re16, im16);
    square(re16, im16);
    // z^7 = z^4 * z^2 * z
    const float re6 = re4 * re2 - im4 * im2;
    const float im6 = re4 * im2 + im4 * re2;
    const float re7 = re6 * ux - im6 * uy;
    return 0.5f + 0.3f * re16 + 0.2f * re7;
}

constexpr int kRowsAhead = 2;

// One row of an input over a span of pixels, read in place where the tile covers the span (a byte
// tile's bytes or a float tile's floats) and otherwise copied into a row buffer.
struct RowPixels {
    const uint8_t* bytes = nullptr;  // the span's first pixel, or null
    const float* floats = nullptr;   // the same, when `bytes` is null
    // From `bytes` to the same pixel a few rows up, to fetch early: a tile's rows lie far apart in
    // a bitmap, too far for the processor to fetch them ahead by itself. 0 near the tile's top.
    std::ptrdiff_t ahead = 0;

    RowPixels(const ConstImageTile& tile, int y, int x0, int x1) {
        const PixelRect& r = tile.rect;
        if (y >= r.y && y < r.maxY() && x0 >= r.x && x1 <= r.maxX()) {
            if (tile.bytes) {
                bytes = tile.byteAt(x0, y);
                if (y + kRowsAhead < r.maxY()) ahead = kRowsAhead * tile.byteStride;
            } else {
                floats = tile.at(x0, y);
            }
            return;
        }
        float* row = rowBuffer(x1 - x0);
        copyRow(tile, y, x0, x1, row);
        floats = row;
    }
    Float4 pixel(int i) const { return bytes ? bytePixel(bytes + 4 * i) : loadFloat4(floats + 4 * i); }
    // Fetches pixels i .. i + 3 of the row `ahead` early.
    void prefetch4(int i) const {
        if (bytes) __builtin_prefetch(bytes + ahead + 4 * i);
    }
    // Pixels i .. i + 3 into dst.
    void copy4(int i, float* dst) const {
        if (bytes) bytesToFloats(bytes + 4 * i, dst, 4);
        else std::memcpy(dst, floats + 4 * i, sizeof(float) * 16);
    }
};

}  // namespace

Image flashTransition(const Image& from, const Image& to, double time, const FlashTransitionParameters& parameters) {
    const float t = transitionTime(time);
    const float threshold = std::clamp(float(parameters.fadeThreshold), 0.001f, 0.999f);
    const Float4 flash = premultiplied(parameters.color);
    const float cx0 = float(parameters.center.x);
    const float cy0 = float(parameters.center.y);
    const float inverseReach = 1.0f / farthestCorner(parameters.center, parameters.extent);
    const float rayRadius = float(std::max(parameters.maxStriationRadius, 0.0));
    const float rayStrength = float(parameters.striationStrength);
    const int rayPower = std::max(1, int(std::lround(2.0 * parameters.striationContrast)));

    auto kernel = transitionKernel("flash");
    if (t > threshold) {
        const float fade = (t - threshold) / (1.0f - threshold);
        kernel->render = [=](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch&) QM_AVX2_CLONES {
            for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
                float* row = out.row(y);
                copyRow(in[1], y, out.rect.x, out.rect.maxX(), row);
                if (fade >= 1.0f) continue;
                for (float* p = row; p < row + 4 * out.rect.width; p += 4) storeFloat4(p, mix(flash, loadFloat4(p), fade));
            }
        };
        return applyKernel(kernel, {from, to});
    }

    const float s = t / threshold;
    auto cover = [=](float cx, float cy) {
        const float vx = (cx - cx0) * inverseReach;
        const float vy = (cy - cy0) * inverseReach;
        const float d2 = vx * vx + vy * vy;
        const float d = std::sqrt(d2);
        const float glow = 1.0f / (1.0f + 16.0f * d2);
        float rays = 0.0f;
        if (d > 0.0f) {
            const float stripe = spokes(vx / d, vy / d);
            float power = stripe;
            for (int i = 1; i < rayPower; ++i) power *= stripe;
            rays = rayStrength * power * rayRadius / (rayRadius + 4.0f * d);
        }
        return std::min(s * s + s * (glow + rays), 1.0f);
    };
    kernel->render = [=](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch&) QM_AVX2_CLONES {
        // The flash is smooth but for its spokes near the centre; every eighth pixel is enough.
        thread_local CoarseField flashCover;
        if (s > 0.0f) flashCover.fill(out.rect, 3, cover);
        for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
            float* row = out.row(y);
            copyRow(in[0], y, out.rect.x, out.rect.maxX(), row);
            if (s <= 0.0f) continue;
            const CoarseField::Row share = flashCover.row(y);
            for (int x = out.rect.x; x < out.rect.maxX(); ++x, row += 4) storeFloat4(row, mix(loadFloat4(row), flash, share(x)));
        }
    };
    return applyKernel(kernel, {from, to});
}

Image modTransition(const Image& from, const Image& to, double time, const ModTransitionParameters& parameters) {
    const float t = transitionTime(time);
    const float cx0 = float(parameters.center.x);
    const float cy0 = float(parameters.center.y);
    const float cosA = float(std::cos(parameters.angle));
    const float sinA = float(std::sin(parameters.angle));
    const float radius = float(std::max(parameters.radius, 1.0));
    const float inversePitch = 1.0f / (2.0f * radius);
    const float inversePitch2 = 1.0f / (2.0f * 0.7f * radius);
    const float inverseCompression = 1.0f / float(std::max(parameters.compression, 1.0));
    const float threshold = t * 1.415f;  // just above the farthest distance, sqrt(2)

    // Distance in half-pitches from (gx, gy), in lattice units, to the nearest cell centre, for
    // four points.
    auto cellDistance = [](Float4 gx, Float4 gy) {
        const Float4 fx = gx - floorFloat4(gx) - 0.5f;
        const Float4 fy = gy - floorFloat4(gy) - 0.5f;
        return 2.0f * sqrtFloat4(fx * fx + fy * fy);
    };

    // How much of a pixel shows the target, before clamping, at four centres on a row: the hole
    // edge anti-aliased over the pixel, which spans about 1.2 k / radius of the distance.
    auto targetShare = [=](Float4 cx, float cy) {
        const Float4 qx = cx - cx0;
        const float qy = cy - cy0;
        const Float4 k = 1.0f + sqrtFloat4(qx * qx + qy * qy) * inverseCompression;
        const Float4 rx = (qx * cosA - qy * sinA) * k;
        const Float4 ry = (qx * sinA + qy * cosA) * k;
        const Float4 d1 = cellDistance(rx * inversePitch, ry * inversePitch);
        const Float4 d2 = cellDistance((rx - ry) * 0.70710678f * inversePitch2 + 0.25f,
                                       (rx + ry) * 0.70710678f * inversePitch2 + 0.25f);
        return (threshold - minFloat4(d1, d2)) * radius / (1.2f * k) + 0.5f;
    };

    auto kernel = transitionKernel("mod");
    kernel->render = [=](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch&) QM_AVX2_CLONES {
        const int x0 = out.rect.x;
        const int width = out.rect.width;
        if (copyEndInput(out, in, t)) return;
        // The distance field is smooth between its creases; every fourth pixel (2^2) is enough.
        thread_local CoarseField share;
        share.fill4(out.rect, 2, targetShare);
        // Each row: the field's values at its pixels, then each group of four pixels copied from
        // one input where the field gives all of them to it, else mixed pixel by pixel.
        thread_local std::vector<float> weights;
        const int first = x0 - (x0 & 3);
        weights.resize(size_t(x0 + width - first + 4));
        for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
            const CoarseField::Row field = share.row(y);
            // The field four pixels at a time, as CoarseField::Row gives it: its cells are four
            // pixels wide and start at multiples of four.
            const Float4 steps = Float4{0.0f, 1.0f, 2.0f, 3.0f} * field.inverseStep;
            for (int x = first; x < x0 + width; x += 4) {
                const int i = (x - field.x0) >> 2;
                const float v = field.values[i];
                storeFloat4(weights.data() + (x - first), v + (field.values[i + 1] - v) * steps);
            }
            const float* w = weights.data() + (x0 - first);
            const RowPixels a(in[0], y, x0, x0 + width);
            const RowPixels b(in[1], y, x0, x0 + width);
            float* dst = out.row(y);
            auto mixed = [&](int i) {
                const float weight = w[i];
                if (weight <= 0.0f) return a.pixel(i);
                if (weight >= 1.0f) return b.pixel(i);
                return mix(a.pixel(i), b.pixel(i), weight);
            };
            int i = 0;
            for (; i + 4 <= width; i += 4) {
                a.prefetch4(i);
                b.prefetch4(i);
                const Float4 group = loadFloat4(w + i);
                if (laneBits(group <= 0.0f) == 15) a.copy4(i, dst + 4 * i);
                else if (laneBits(group >= 1.0f) == 15) b.copy4(i, dst + 4 * i);
                else
                    for (int k = i; k < i + 4; ++k) storeFloat4(dst + 4 * k, mixed(k));
            }
            for (; i < width; ++i) storeFloat4(dst + 4 * i, mixed(i));
        }
    };
    return applyKernel(kernel, {from, to});
}

}  // namespace qm
