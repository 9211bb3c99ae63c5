#pragma once

#include <algorithm>

#include "effects/transitions/kernels/RippleKernel.h"
#include "effects/transitions/kernels/support/BilinearSampling.h"
#include "effects/transitions/kernels/support/LaneMath.h"
#include "effects/transitions/kernels/support/SphereShading.h"
#include "image/ImageTile.h"
#include "image/PixelMath.h"

namespace qm::kernels {

// The ripple's wave along a row, built for each instruction set from this one source (see
// TransitionDSP.h).
template <class Simd>
struct RippleWave {
    // Pixels begin <= x < end of row y, all inside the wave, into `dst` (pixel `begin` first),
    // lit from `shading` when there is one. The geometry is worked out four pixels at a time.
    static void run(const RippleContext& c, const SphereShading* shading, const ConstImageTile& fromTile,
                    const ConstImageTile& toTile, int y, int begin, int end, float* dst) {
        const float cx0 = c.cx0;
        const float cy0 = c.cy0;
        const float front = c.front;
        const float inverseWidth = c.inverseWidth;
        const float halfScale = c.halfScale;
        const float slope = c.slope;
        const Float4 minX = splat(c.minX);
        const Float4 maxX = splat(c.maxX);
        const Float4 minY = splat(c.minY);
        const Float4 maxY = splat(c.maxY);
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
            const Float4 sx = clampFloat4(cx - ux * shift, minX, maxX);
            const Float4 sy = clampFloat4(cy - uy * shift, minY, maxY);
            const Float4 blend = smooth4(phase);
            const Samples4 pictures(sx, sy);
            const Samples4 lights = shading ? lightPoints(*shading, ux * slope * wave, uy * slope * wave) : pictures;
            const int picturesInside = Simd::laneBits(pictures.insideLanes(fromTile) & pictures.insideLanes(toTile));
            const int lightsInside = shading ? Simd::laneBits(lights.insideLanes(shading->tile())) : 0;
            float* pixel = dst + 4 * (x - begin);
            if (picturesInside == 15 && lightsInside == 15 && end - x >= 4) {
                // The common case, with no bounds to mind.
                for (int lane = 0; lane < 4; ++lane, pixel += 4) {
                    const Float4 value = mixBlends(pictures, fromTile, toTile, lane, blend[lane]);
                    storeFloat4(pixel, lit(*shading, value, lights, lane, 15));
                }
                continue;
            }
            for (int lane = 0; lane < std::min(4, end - x); ++lane, pixel += 4) {
                Float4 value;
                if ((picturesInside >> lane) & 1)
                    value = mixBlends(pictures, fromTile, toTile, lane, blend[lane]);
                else
                    value = mix(sampleNearEdge(fromTile, sx[lane], sy[lane]),
                                sampleNearEdge(toTile, sx[lane], sy[lane]), blend[lane]);
                if (shading) value = lit(*shading, value, lights, lane, lightsInside);
                storeFloat4(pixel, value);
            }
        }
    }

private:
    // mix(samples.blend(a, lane), samples.blend(b, lane), t), both tiles read at once where they
    // are bytes.
    static Float4 mixBlends(const Samples4& samples, const ConstImageTile& a, const ConstImageTile& b, int lane,
                            float t) {
        if (a.bytes && b.bytes) {
            const int x = samples.x0[lane], y = samples.y0[lane];
            Float4 first;
            Float4 second;
            Simd::bilinearBytePair(a.byteAt(x, y), a.byteStride, b.byteAt(x, y), b.byteStride, samples.wx[lane],
                                   samples.wy[lane], first, second);
            return mix(first * kByteToFloat, second * kByteToFloat, t);
        }
        return mix(samples.blend(a, lane), samples.blend(b, lane), t);
    }

    // The points of the shading read for surface normals with in-plane parts (nx, ny).
    static Samples4 lightPoints(const SphereShading& shading, Float4 nx, Float4 ny) {
        const auto [x, y] = shading.points(nx, ny);
        return Samples4(x, y);
    }

    // `color` lit at lane `lane` of `points`, whose lanes `inside` lie inside the shading's tile.
    static Float4 lit(const SphereShading& shading, Float4 color, const Samples4& points, int lane, int inside) {
        return SphereShading::lit(color, points.read(shading.tile(), lane, inside) - shading.flatLight());
    }
};

}  // namespace qm::kernels
