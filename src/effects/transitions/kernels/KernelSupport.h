#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/Color.h"
#include "platform/Geometry.h"
#include "platform/image/ImageKernel.h"
#include "platform/image/ImageTile.h"

// Small pieces shared by the transition kernels.
namespace qm::kernels {

inline float clamp01(float v) {
    return std::min(std::max(v, 0.0f), 1.0f);
}

// Hermite smoothstep of x over 0..1.
inline float smooth01(float x) {
    x = clamp01(x);
    return x * x * (3.0f - 2.0f * x);
}

// The time of a transition: clamped to 0..1, NaN counts as 0.
inline float transitionTime(double time) {
    if (!(time > 0)) return 0.0f;
    return time >= 1 ? 1.0f : static_cast<float>(time);
}

// A colour as premultiplied RGBA.
inline Float4 premultiplied(const Color& color) {
    const Color c = color.premultiplied();
    return Float4{float(c.r), float(c.g), float(c.b), float(c.a)};
}

// `top` over `bottom`, premultiplied.
inline Float4 over(Float4 top, Float4 bottom) {
    return top + bottom * (1.0f - top[3]);
}

// floor() for values well inside the int range, without a library call.
inline int fastFloor(float v) {
    const int i = int(v);
    return i - (v < float(i));
}

// sin(2 pi turns), to about 0.001.
inline float sinOfTurns(float turns) {
    const float s = turns - float(fastFloor(turns + 0.5f));  // -0.5 .. 0.5
    const float y = 8.0f * s - 16.0f * s * std::fabs(s);
    return 0.225f * (y * std::fabs(y) - y) + y;
}

// asin(v) for v in 0..1, to about 1e-4 radians.
inline float asinOfUnit(float v) {
    const float root = std::sqrt(std::max(1.0f - v, 0.0f));
    return 1.5707963f - root * (1.5707288f + v * (-0.2121144f + v * (0.0742610f - 0.0187293f * v)));
}

// Bilinear sample at point (px, py) as ConstImageTile::sample, with one bounds test when the four
// pixels lie inside the tile.
inline Float4 sampleBilinear(const ConstImageTile& tile, float px, float py) {
    const float u = px - 0.5f;
    const float v = py - 0.5f;
    const int x0 = fastFloor(u);
    const int y0 = fastFloor(v);
    const PixelRect& r = tile.rect;
    if (x0 < r.x || y0 < r.y || x0 + 1 >= r.maxX() || y0 + 1 >= r.maxY()) return tile.sample(px, py);
    const float tx = u - float(x0);
    const float ty = v - float(y0);
    const float* p = tile.at(x0, y0);
    const float* q = p + tile.rowStride;
    return mix(mix(loadFloat4(p), loadFloat4(p + 4), tx), mix(loadFloat4(q), loadFloat4(q + 4), tx), ty);
}

// mix(sample of a, sample of b, t) at the same point, sharing the interpolation weights, for two
// tiles over the same pixels.
inline Float4 sampleMix(const ConstImageTile& a, const ConstImageTile& b, float px, float py, float t) {
    const float u = px - 0.5f;
    const float v = py - 0.5f;
    const int x0 = fastFloor(u);
    const int y0 = fastFloor(v);
    const PixelRect& r = a.rect;
    if (!(r == b.rect) || x0 < r.x || y0 < r.y || x0 + 1 >= r.maxX() || y0 + 1 >= r.maxY())
        return mix(a.sample(px, py), b.sample(px, py), t);
    const float tx = u - float(x0);
    const float ty = v - float(y0);
    const std::ptrdiff_t offset = (std::ptrdiff_t(y0 - r.y)) * a.rowStride + std::ptrdiff_t(x0 - r.x) * 4;
    const std::ptrdiff_t offsetB = (std::ptrdiff_t(y0 - r.y)) * b.rowStride + std::ptrdiff_t(x0 - r.x) * 4;
    const float* p = a.pixels + offset;
    const float* q = b.pixels + offsetB;
    const Float4 top = mix(loadFloat4(p), loadFloat4(p + 4), tx) * (1.0f - t) + mix(loadFloat4(q), loadFloat4(q + 4), tx) * t;
    p += a.rowStride;
    q += b.rowStride;
    const Float4 bottom =
        mix(loadFloat4(p), loadFloat4(p + 4), tx) * (1.0f - t) + mix(loadFloat4(q), loadFloat4(q + 4), tx) * t;
    return mix(top, bottom, ty);
}

// The least and greatest of dot(corner, (dx, dy)) over the corners of `rect`.
struct Span {
    float min = 0;
    float max = 0;
    float length() const { return max - min; }
};
Span projectRect(const Rect& rect, double dx, double dy);

// The union of the first two input extents (from and target).
Rect unionOfFromAndTo(std::span<const Rect> extents);

// `rect` grown by `d` on every side.
inline Rect outset(const Rect& rect, double d) {
    return Rect{rect.origin.x - d, rect.origin.y - d, rect.size.width + 2 * d, rect.size.height + 2 * d};
}

// The bounding box of `rect` and of `rect` moved by each of `shifts`.
Rect unionOfShifted(const Rect& rect, std::span<const Point> shifts);

// One row of an input tile: a plain load where the tile covers the requested span of the row,
// the tile's bounds-checked read (transparent outside) elsewhere.
class RowReader {
public:
    RowReader(const ConstImageTile& tile, int y, int x0, int x1) : _tile(&tile), _y(y) {
        const PixelRect& r = tile.rect;
        if (y >= r.y && y < r.maxY() && x0 >= r.x && x1 <= r.maxX()) {
            _row = tile.row(y);
            _x0 = r.x;
        }
    }
    Float4 operator()(int x) const {
        return _row ? loadFloat4(_row + std::ptrdiff_t(x - _x0) * 4) : _tile->pixel(x, _y);
    }

private:
    const ConstImageTile* _tile;
    int _y;
    const float* _row = nullptr;
    int _x0 = 0;
};

// Fills every pixel of `out`. For each row, `rowSetup(y, cy)` gives the row's pixel function,
// which `pixel(x, cx)` calls for each pixel; cx, cy are the pixel's centre.
template <class RowSetup>
void fillTile(const ImageTile& out, RowSetup&& rowSetup) {
    for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
        auto pixel = rowSetup(y, float(y) + 0.5f);
        float* row = out.row(y);
        for (int x = out.rect.x; x < out.rect.maxX(); ++x, row += 4) storeFloat4(row, pixel(x, float(x) + 0.5f));
    }
}

// A scalar function evaluated every 2^shift pixels over a tile and read back bilinearly at each
// pixel: for smooth fields that cost far more to evaluate than to interpolate.
class CoarseField {
public:
    // The values of one pixel row.
    struct Row {
        const float* top;
        const float* bottom;
        float ty;
        int x0;
        int shift;
        float inverseStep;

        float operator()(int x) const {
            const int dx = x - x0;
            const int i = dx >> shift;
            const float tx = float(dx & ((1 << shift) - 1)) * inverseStep;
            const float a = top[i] + (top[i + 1] - top[i]) * tx;
            const float b = bottom[i] + (bottom[i + 1] - bottom[i]) * tx;
            return a + (b - a) * ty;
        }
    };

    // Evaluates f(cx, cy) at the centres of the pixels whose coordinates are multiples of 2^shift,
    // over `rect` and one beyond its edges. The grid is fixed in image space, so every tiling
    // gives the same values.
    template <class Function>
    void fill(const PixelRect& rect, int shift, Function&& f) {
        const int step = 1 << shift;
        _x = (rect.x >> shift) << shift;
        _y = (rect.y >> shift) << shift;
        _shift = shift;
        _columns = ((rect.maxX() - 1 - _x) >> shift) + 2;
        const int rows = ((rect.maxY() - 1 - _y) >> shift) + 2;
        _values.resize(size_t(_columns) * size_t(rows));
        float* value = _values.data();
        for (int j = 0; j < rows; ++j) {
            const float cy = float(_y + j * step) + 0.5f;
            for (int i = 0; i < _columns; ++i) *value++ = f(float(_x + i * step) + 0.5f, cy);
        }
    }

    Row row(int y) const {
        const int dy = y - _y;
        const float* top = _values.data() + size_t(dy >> _shift) * size_t(_columns);
        const float inverseStep = 1.0f / float(1 << _shift);
        return {top, top + _columns, float(dy & ((1 << _shift) - 1)) * inverseStep, _x, _shift, inverseStep};
    }

private:
    int _x = 0;
    int _y = 0;
    int _shift = 0;
    int _columns = 0;
    std::vector<float> _values;
};

// Light from a shading image, a shaded sphere filling its square: the surface normal with
// in-plane part (nx, ny) (|n| <= 1) reads the sphere where it has that normal. apply() adds that
// light relative to the light of a flat surface (the sphere's centre) to a premultiplied colour.
class SphereShading {
public:
    SphereShading(const ConstImageTile& tile, const Rect& extent);
    Float4 apply(Float4 color, float nx, float ny) const;

private:
    const ConstImageTile* _tile;
    float _cx;
    float _cy;
    float _rx;
    float _ry;
    Float4 _flat;
};

// `color` (premultiplied) with red, green and blue scaled by `factor`, limited to alpha.
inline Float4 shaded(Float4 color, float factor) {
    Float4 result = color * factor;
    result[3] = color[3];
    for (int c = 0; c < 3; ++c) result[c] = std::min(result[c], color[3]);
    return result;
}

// A kernel named `name` whose extent is the union of from and target.
std::shared_ptr<ImageKernel> transitionKernel(std::string name);

}  // namespace qm::kernels
