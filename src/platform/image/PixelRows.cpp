#include "platform/image/PixelRows.h"

#include <cstring>

#include "platform/image/PixelMath.h"

#if defined(__x86_64__) && !defined(__clang__)
#define QM_ROW_KERNEL __attribute__((target_clones("avx2", "default")))
#else
#define QM_ROW_KERNEL
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

QM_ROW_KERNEL void compositeUnder(float* front, const float* back, int count) {
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

QM_ROW_KERNEL void compositeUnderColor(float* front, Float4 back, int count) {
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

QM_ROW_KERNEL void colorTimesAlpha(float* pixels, Float4 color, int count) {
    const Float8 c = twice(color);
    int i = 0;
    for (; i + 2 <= count; i += 2) store8(pixels + 4 * i, c * alpha(load8(pixels + 4 * i)));
    if (i < count) storeFloat4(pixels + 4 * i, color * pixels[4 * i + 3]);
}

QM_ROW_KERNEL void sourceTimesAlpha(float* pixels, const float* source, int count) {
    int i = 0;
    for (; i + 2 <= count; i += 2) store8(pixels + 4 * i, load8(source + 4 * i) * alpha(load8(pixels + 4 * i)));
    if (i < count) storeFloat4(pixels + 4 * i, loadFloat4(source + 4 * i) * pixels[4 * i + 3]);
}

QM_ROW_KERNEL void linearColor(float* pixels, int count, const std::array<Float4, 4>& columns) {
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

QM_ROW_KERNEL bool allOpaque(const float* pixels, int count) {
    bool opaque = true;
    for (int i = 0; i < count; ++i) opaque &= pixels[4 * i + 3] >= 1.f;
    return opaque;
}

QM_ROW_KERNEL void mixRows(const float* a, const float* b, float t, float* out, int floats) {
    for (int i = 0; i < floats; ++i) out[i] = a[i] + (b[i] - a[i]) * t;
}

QM_ROW_KERNEL void enlargeRow(const float* source, int first, int factor, int x, float* out, int count) {
    const float step = 1.f / float(factor);
    auto at = [&](int i, float& t) {
        const float u = (float(x + i) + 0.5f) * step - 0.5f;
        const int i0 = fastFloor(u);
        t = u - float(i0);
        return source + 4 * (i0 - first);
    };
    int i = 0;
    for (; i + 2 <= count; i += 2) {
        float t0, t1;
        const float* p0 = at(i, t0);
        const float* p1 = at(i + 1, t1);
        const Float8 a = pair(loadFloat4(p0), loadFloat4(p1));
        const Float8 b = pair(loadFloat4(p0 + 4), loadFloat4(p1 + 4));
        store8(out + 4 * i, a + (b - a) * Float8{t0, t0, t0, t0, t1, t1, t1, t1});
    }
    if (i < count) {
        float t;
        const float* p = at(i, t);
        storeFloat4(out + 4 * i, mix(loadFloat4(p), loadFloat4(p + 4), t));
    }
}

QM_ROW_KERNEL void yuvRows(const float* upper, const float* lower, int width, uint8_t* y0, uint8_t* y1, uint8_t* u,
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
    int i = 0;
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

QM_ROW_KERNEL void sampleBitmapRow(const BitmapView& bitmap, int64_t u, int64_t v, int64_t du, int64_t dv, float scale,
                                   float* out, int count) {
    for (int i = 0; i < count; ++i, u += du, v += dv) storeFloat4(out + 4 * i, bitmap.sample(u, v) * scale);
}

}  // namespace qm
