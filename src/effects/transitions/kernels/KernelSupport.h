#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "image/ImageKernel.h"
#include "image/ImageTile.h"
#include "image/PixelMath.h"
#include "image/PixelRows.h"
#include "platform/Color.h"
#include "platform/Geometry.h"

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

// smooth01, lane by lane.
inline Float4 smooth4(Float4 x) {
    x = clampFloat4(x, splat(0.0f), splat(1.0f));
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

// sin(2 pi turns), to about 0.001.
inline float sinOfTurns(float turns) {
    const float s = turns - float(fastFloor(turns + 0.5f));  // -0.5 .. 0.5
    const float y = 8.0f * s - 16.0f * s * std::fabs(s);
    return 0.225f * (y * std::fabs(y) - y) + y;
}

// |v|, lane by lane.
inline Float4 absFloat4(Float4 v) {
    return Float4(Int4(v) & 0x7fffffff);
}

// sinOfTurns, lane by lane.
inline Float4 sinOfTurns4(Float4 turns) {
    const Float4 s = turns - floorFloat4(turns + 0.5f);  // -0.5 .. 0.5
    const Float4 y = 8.0f * s - 16.0f * s * absFloat4(s);
    return 0.225f * (y * absFloat4(y) - y) + y;
}

// Lane i of a vector comparison as bit i.
inline int laneBits(Int4 condition) {
#if defined(__SSE2__)
    return _mm_movemask_ps(__m128(condition));
#else
    return (condition[0] & 1) | (condition[1] & 2) | (condition[2] & 4) | (condition[3] & 8);
#endif
}

// asin(v) for v in 0..1, to about 1e-4 radians, lane by lane.
inline Float4 asinOfUnit4(Float4 v) {
    const Float4 root = sqrtFloat4(maxFloat4(1.0f - v, splat(0.0f)));
    return 1.5707963f - root * (1.5707288f + v * (-0.2121144f + v * (0.0742610f - 0.0187293f * v)));
}

// The four pixels (x0, y0), (x0 + 1, y0), (x0, y0 + 1), (x0 + 1, y0 + 1) of a tile that holds
// them all, blended by tx across and ty up. Bytes are blended in integer steps of 1/128 pixel, as
// transforms of bitmaps are, which rounds a little differently from ConstImageTile::sample.
inline Float4 blendInside(const ConstImageTile& tile, int x0, int y0, float tx, float ty) {
    if (tile.bytes) {
        const uint8_t* p = tile.byteAt(x0, y0);
        return bilinearBytes(p, p + tile.byteStride, int(tx * 128.0f + 0.5f), int(ty * 128.0f + 0.5f)) * kByteToFloat;
    }
    const float* p = tile.at(x0, y0);
    const float* q = p + tile.rowStride;
    return mix(mix(loadFloat4(p), loadFloat4(p + 4), tx), mix(loadFloat4(q), loadFloat4(q + 4), tx), ty);
}

// Bilinear sample at point (px, py) as ConstImageTile::sample, with one bounds test when the four
// pixels lie inside the tile.
inline Float4 sampleBilinear(const ConstImageTile& tile, float px, float py) {
    const float u = px - 0.5f;
    const float v = py - 0.5f;
    const int x0 = fastFloor(u);
    const int y0 = fastFloor(v);
    const PixelRect& r = tile.rect;
    if (x0 < r.x || y0 < r.y || x0 + 1 >= r.maxX() || y0 + 1 >= r.maxY()) [[unlikely]]
        return tile.sample(px, py);
    return blendInside(tile, x0, y0, u - float(x0), v - float(y0));
}

// Bilinear reads at four points (px, py), set up lane by lane as sampleBilinear and blendInside
// set them up: the lower left pixel of each point and its weights across and up.
struct Samples4 {
    Float4 px;
    Float4 py;
    Int4 x0;
    Int4 y0;
    Float4 tx;
    Float4 ty;
    Int4 wx;  // tx in 1/128 steps, for byte tiles
    Int4 wy;

    Samples4(Float4 x, Float4 y) : px(x), py(y) {
        const Float4 u = px - 0.5f;
        const Float4 v = py - 0.5f;
        const Float4 fx = floorFloat4(u);
        const Float4 fy = floorFloat4(v);
        x0 = __builtin_convertvector(fx, Int4);
        y0 = __builtin_convertvector(fy, Int4);
        tx = u - fx;
        ty = v - fy;
        wx = __builtin_convertvector(tx * 128.0f + 0.5f, Int4);
        wy = __builtin_convertvector(ty * 128.0f + 0.5f, Int4);
    }

    // The lanes (bit i for lane i) whose four pixels `tile` holds.
    int inside(const ConstImageTile& tile) const {
        const PixelRect& r = tile.rect;
        return laneBits((x0 >= r.x) & (y0 >= r.y) & (x0 < r.maxX() - 1) & (y0 < r.maxY() - 1));
    }

    // The blend of lane `lane`, which `tile` holds, as blendInside gives it.
    Float4 blend(const ConstImageTile& tile, int lane) const {
        if (tile.bytes) {
            const uint8_t* p = tile.byteAt(x0[lane], y0[lane]);
            return bilinearBytes(p, p + tile.byteStride, wx[lane], wy[lane]) * kByteToFloat;
        }
        return blendInside(tile, x0[lane], y0[lane], tx[lane], ty[lane]);
    }

    // blend() of all four lanes of a byte tile that holds them, into out[0..15].
    void blendBytes(const ConstImageTile& tile, float* out) const {
        const Int4 offsets = (y0 - tile.rect.y) * int(tile.byteStride) + (x0 - tile.rect.x) * 4;
        bilinearBytes4(tile.bytes, tile.byteStride, offsets, wx, wy, kByteToFloat, out);
    }

    // The sample of `tile` at lane `lane`, as sampleBilinear gives it; `inside` is inside(tile).
    Float4 read(const ConstImageTile& tile, int lane, int inside) const {
        return (inside >> lane) & 1 ? blend(tile, lane) : tile.sample(px[lane], py[lane]);
    }
};

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

// A float row of `pixels` pixels, from a small per-thread ring: each call takes the next buffer,
// so up to kRowBuffers rows (RowReaders of byte tiles included) in use at once stay apart.
constexpr int kRowBuffers = 16;
float* rowBuffer(int pixels);

// Pixels x0 <= x < x1 of one row of an input tile: plain loads where the tile covers that span,
// the tile's bounds-checked read (transparent outside) elsewhere. A byte tile's pixels are
// converted one by one for the first few reads and then, for a row read more fully, all at once
// into a row buffer.
class RowReader {
public:
    RowReader(const ConstImageTile& tile, int y, int x0, int x1) : _tile(&tile), _y(y), _x0(x0), _x1(x1) {
        const PixelRect& r = tile.rect;
        _covered = y >= r.y && y < r.maxY() && x0 >= r.x && x1 <= r.maxX();
        if (_covered && !tile.bytes) {
            _row = tile.row(y);
            _origin = r.x;
        }
    }
    Float4 operator()(int x) const {
        if (!_row) {
            if (!_covered) return _tile->pixel(x, _y);
            if (_singleReads < kSingleReads) {
                ++_singleReads;
                return bytePixel(_tile->byteAt(x, _y));
            }
            convert();
        }
        return loadFloat4(_row + std::ptrdiff_t(x - _origin) * 4);
    }

private:
    void convert() const {
        float* row = rowBuffer(_x1 - _x0);
        bytesToFloatRow(_tile->byteAt(_x0, _y), row, _x1 - _x0);
        _row = row;
        _origin = _x0;
    }

    const ConstImageTile* _tile;
    int _y;
    int _x0;
    int _x1;
    bool _covered = false;
    static constexpr int kSingleReads = 8;

    mutable const float* _row = nullptr;  // the pixel at _origin
    mutable int _origin = 0;
    mutable int _singleReads = 0;
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

// Splits [0, width) into the longest runs of equal kind(i) and calls each(start, end, kind) for
// them in order.
template <class Kind, class Each>
void forEachRun(int width, Kind&& kind, Each&& each) {
    for (int start = 0; start < width;) {
        const int runKind = kind(start);
        int end = start + 1;
        while (end < width && kind(end) == runKind) ++end;
        each(start, end, runKind);
        start = end;
    }
}

// forEachRun for a kind that never goes back to an earlier value along the row (a threshold on a
// quantity that grows or falls steadily with x): each run's end is found by bisection.
template <class Kind, class Each>
void forEachOrderedRun(int width, Kind&& kind, Each&& each) {
    for (int start = 0; start < width;) {
        const int runKind = kind(start);
        int low = start + 1;
        int high = width;
        if (kind(width - 1) != runKind) {
            // The run ends at the first index in [low, high] whose kind differs.
            while (low < high) {
                const int middle = low + (high - low) / 2;
                if (kind(middle) == runKind) low = middle + 1;
                else high = middle;
            }
        }
        each(start, high, runKind);
        start = high;
    }
}

// Pixels x0 <= x < x1 of row y of `tile` into `dst` (pixel x0 first): the values RowReader and
// pixel() give, copied in bulk where the tile covers the span.
void copyRow(const ConstImageTile& tile, int y, int x0, int x1, float* dst);

// At t <= 0 or t >= 1 a transition shows one input unchanged: copies it into `out` (input 0 at
// the start, input 1 at the end) and gives true. Gives false in between.
bool copyEndInput(const ImageTile& out, std::span<const ConstImageTile> in, float t);

// Fills every pixel of `out`, copying runs of pixels straight from an input. For each row,
// `wholeRow(y, cy)` gives the index of the input whose pixels the whole row shows, or -1; for the
// other rows `rowSetup(y, cy)` gives the row's pixel function, which `pixel(x, cx, value)` calls
// for each pixel: it returns the index of the input whose pixel (x, y) is the result, or -1 after
// setting `value`.
template <class WholeRow, class RowSetup>
void fillTileWithCopies(const ImageTile& out, std::span<const ConstImageTile> in, WholeRow&& wholeRow,
                        RowSetup&& rowSetup) {
    const int first = out.rect.x;
    const int end = out.rect.maxX();
    for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
        float* row = out.row(y);
        if (const int source = wholeRow(y, float(y) + 0.5f); source >= 0) {
            copyRow(in[size_t(source)], y, first, end, row);
            continue;
        }
        auto pixel = rowSetup(y, float(y) + 0.5f);
        // The run of pixels copied from input `runSource` (none while negative) since runStart.
        int runSource = -1;
        int runStart = first;
        for (int x = first; x < end; ++x) {
            Float4 value = splat(0.0f);
            const int source = pixel(x, float(x) + 0.5f, value);
            if (source != runSource) {
                if (runSource >= 0) copyRow(in[size_t(runSource)], y, runStart, x, row + 4 * (runStart - first));
                runSource = source;
                runStart = x;
            }
            if (source < 0) storeFloat4(row + 4 * (x - first), value);
        }
        if (runSource >= 0) copyRow(in[size_t(runSource)], y, runStart, end, row + 4 * (runStart - first));
    }
}

// fillTileWithCopies for kernels whose rows are never one input's pixels throughout.
template <class RowSetup>
void fillTileWithCopies(const ImageTile& out, std::span<const ConstImageTile> in, RowSetup&& rowSetup) {
    fillTileWithCopies(out, in, [](int, float) { return -1; }, std::forward<RowSetup>(rowSetup));
}

// A scalar function evaluated every 2^shift pixels over a tile and read back bilinearly at each
// pixel: for smooth fields that cost far more to evaluate than to interpolate.
class CoarseField {
public:
    // The values of one pixel row: the field between two grid rows, interpolated across.
    struct Row {
        const float* values;
        int x0;
        int shift;
        float inverseStep;

        float operator()(int x) const {
            const int dx = x - x0;
            const int i = dx >> shift;
            const float tx = float(dx & ((1 << shift) - 1)) * inverseStep;
            return values[i] + (values[i + 1] - values[i]) * tx;
        }
    };

    // Evaluates f(cx, cy) at the centres of the pixels whose coordinates are multiples of 2^shift,
    // over `rect` and one beyond its edges. The grid is fixed in image space, so every tiling
    // gives the same values.
    template <class Function>
    void fill(const PixelRect& rect, int shift, Function&& f) {
        const int step = 1 << shift;
        const int rows = setUp(rect, shift);
        float* value = _values.data();
        for (int j = 0; j < rows; ++j) {
            const float cy = float(_y + j * step) + 0.5f;
            for (int i = 0; i < _columns; ++i) *value++ = f(float(_x + i * step) + 0.5f, cy);
        }
    }

    // As fill, four grid points at a time: f(cx, cy) gives the values at the four centres cx on
    // the row at cy.
    template <class Function4>
    void fill4(const PixelRect& rect, int shift, Function4&& f) {
        const int step = 1 << shift;
        const int rows = setUp(rect, shift);
        float* value = _values.data();
        for (int j = 0; j < rows; ++j) {
            const float cy = float(_y + j * step) + 0.5f;
            for (int i = 0; i < _columns; i += 4) {
                const float x = float(_x + i * step) + 0.5f;
                const Float4 values = f(Float4{x, x + float(step), x + float(2 * step), x + float(3 * step)}, cy);
                for (int lane = 0; lane < std::min(4, _columns - i); ++lane) *value++ = values[lane];
            }
        }
    }

    // Pixel row y, which must lie in the filled rect. Valid until the next call.
    Row row(int y) {
        const int dy = y - _y;
        const float* top = _values.data() + size_t(dy >> _shift) * size_t(_columns);
        const float* bottom = top + _columns;
        const float inverseStep = 1.0f / float(1 << _shift);
        const float ty = float(dy & ((1 << _shift) - 1)) * inverseStep;
        for (int i = 0; i < _columns; ++i) _row[size_t(i)] = top[i] + (bottom[i] - top[i]) * ty;
        return {_row.data(), _x, _shift, inverseStep};
    }

private:
    // Sizes the grid for `rect`; returns its number of rows.
    int setUp(const PixelRect& rect, int shift) {
        _x = (rect.x >> shift) << shift;
        _y = (rect.y >> shift) << shift;
        _shift = shift;
        _columns = ((rect.maxX() - 1 - _x) >> shift) + 2;
        const int rows = ((rect.maxY() - 1 - _y) >> shift) + 2;
        _values.resize(size_t(_columns) * size_t(rows));
        _row.resize(size_t(_columns));
        return rows;
    }

    int _x = 0;
    int _y = 0;
    int _shift = 0;
    int _columns = 0;
    std::vector<float> _values;
    std::vector<float> _row;
};

// Light from a shading image, a shaded sphere filling its square: the surface normal with
// in-plane part (nx, ny) (|n| <= 1) reads the sphere where it has that normal; its light counts
// relative to the light of a flat surface (the sphere's centre).
class SphereShading {
public:
    SphereShading(const ConstImageTile& tile, const Rect& extent);
    // The light added where the normal's in-plane part is (nx, ny).
    Float4 light(float nx, float ny) const;
    // Where the shading is read for the normals (nx, ny), lane by lane: read there and less
    // flatLight(), it is light().
    std::pair<Float4, Float4> points(Float4 nx, Float4 ny) const { return {_cx + nx * _rx, _cy + ny * _ry}; }
    Float4 flatLight() const { return _flat; }
    const ConstImageTile& tile() const { return *_tile; }
    // `color` with `light` added in proportion to its alpha, kept within 0..alpha.
    static Float4 lit(Float4 color, Float4 light) {
        Float4 result = minFloat4(maxFloat4(color + light * color[3], splat(0.0f)), splat(color[3]));
        result[3] = color[3];
        return result;
    }

private:
    const ConstImageTile* _tile;
    float _cx;
    float _cy;
    float _rx;
    float _ry;
    Float4 _flat;
};

// A SphereShading's light along one direction (dx, dy) of unit length: light(s) is the light
// where the normal's in-plane part is s (dx, dy), for -1 <= s <= 1, read linearly from a table
// taken every 1/256 of s (half a pixel of the standard shading image).
class ShadingProfile {
public:
    ShadingProfile(const SphereShading& shading, float dx, float dy);
    Float4 light(float s) const {
        const float position = (std::min(std::max(s, -1.0f), 1.0f) + 1.0f) * float(kSteps);
        const int i = std::min(int(position), 2 * kSteps - 1);
        return mix(_light[size_t(i)], _light[size_t(i) + 1], position - float(i));
    }

private:
    static constexpr int kSteps = 256;
    std::vector<Float4> _light;  // at s = i / kSteps - 1
};

// `color` (premultiplied) with red, green and blue scaled by `factor`, limited to alpha.
inline Float4 shaded(Float4 color, float factor) {
    Float4 result = minFloat4(color * factor, splat(color[3]));
    result[3] = color[3];
    return result;
}

// A kernel named `name` whose extent is the union of from and target.
std::shared_ptr<ImageKernel> transitionKernel(std::string name);

}  // namespace qm::kernels
