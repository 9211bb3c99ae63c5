#pragma once

#include <algorithm>
#include <utility>

#include "image/ImageTile.h"
#include "image/PixelMath.h"
#include "image/TileScratch.h"
#include "platform/Geometry.h"

// Lighting curved surfaces: from a shading image, or by a factor.
namespace qm::kernels {

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
// taken every 1/256 of s (half a pixel of the standard shading image) and held in `scratch`.
class ShadingProfile {
public:
    ShadingProfile(const SphereShading& shading, float dx, float dy, TileScratch& scratch);
    Float4 light(float s) const {
        const float position = (std::min(std::max(s, -1.0f), 1.0f) + 1.0f) * float(kSteps);
        const int i = std::min(int(position), 2 * kSteps - 1);
        return mix(_light[i], _light[i + 1], position - float(i));
    }

private:
    static constexpr int kSteps = 256;
    Float4* _light;  // 2 kSteps + 1 entries, at s = i / kSteps - 1
};

// `color` (premultiplied) with red, green and blue scaled by `factor`, limited to alpha.
inline Float4 shaded(Float4 color, float factor) {
    Float4 result = minFloat4(color * factor, splat(color[3]));
    result[3] = color[3];
    return result;
}

}  // namespace qm::kernels
