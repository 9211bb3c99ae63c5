#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "effects/transitions/kernels/DisintegrateKernel.h"
#include "effects/transitions/kernels/support/InputRows.h"
#include "effects/transitions/kernels/support/LaneMath.h"
#include "effects/transitions/kernels/support/TileFill.h"
#include "image/ImageTile.h"
#include "image/PixelMath.h"
#include "image/TileScratch.h"

namespace qm::kernels {

// What a pixel of the disintegrating picture is: the from image whole (over the shadowed target
// where it is not opaque), the target alone, or the two mixed at the edge or in the shadow.
enum DisintegratePixel : uint8_t { kWhole, kBare, kMixed };

// The kinds of four pixels from the lanes where the from image remains whole (bits 0-3) and
// where only the target shows (bits 4-7), as four bytes.
struct KindsOfLanes {
    uint8_t codes[256][4];

    constexpr KindsOfLanes() : codes{} {
        for (int bits = 0; bits < 256; ++bits) {
            for (int lane = 0; lane < 4; ++lane) {
                const bool whole = (bits >> lane) & 1;
                const bool bare = (bits >> (lane + 4)) & 1;
                codes[bits][lane] = whole ? kWhole : bare ? kBare : kMixed;
            }
        }
    }
};
inline constexpr KindsOfLanes kKindsOfLanes;

// The disintegrating picture's tiles, built for each instruction set from this one source (see
// TransitionDSP.h).
template <class Simd>
struct DisintegrateTile {
    static void render(const DisintegrateContext& c, const ImageTile& out, std::span<const ConstImageTile> in,
                       TileScratch& scratch) {
        const float t = c.t;
        const int offsetX = c.offsetX;
        const int offsetY = c.offsetY;
        const float softness = c.softness;
        const float density = c.density;
        LuminanceGrid grid;
        if (t > 0.0f && t < 1.0f) {
            const PixelRect shifted{out.rect.x - offsetX, out.rect.y - offsetY, out.rect.width, out.rect.height};
            grid.fill(in[2], out.rect.unionWith(shifted).outsetBy(1, 1), scratch);
        }
        const int x0 = out.rect.x;
        const int width = out.rect.width;
        if (copyEndInput(out, in, t)) return;
        // Per row: how much of the from image remains at each pixel, the shadow where it does not
        // remain whole, and the kind of each pixel (DisintegratePixel).
        float* const remaining = scratch.allocate<float>(size_t(width));
        float* const shadows = scratch.allocate<float>(size_t(width));
        uint8_t* const kinds = scratch.allocate<uint8_t>(size_t(width));
        const auto shadowAt = [&](const float* caster, int x) {
            return density * smooth01(grid.ramp(caster, x - offsetX, t, softness));
        };
        for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
            const float* here = grid.row(y);
            const float* caster = grid.row(y - offsetY);
            int i = 0;
            for (; i + 4 <= width; i += 4) {
                const Float4 remains = grid.ramp4(here, x0 + i, t, 1.0f);
                storeFloat4(remaining + i, remains);
                const int whole = Simd::laneBits(remains >= 1.0f);
                int bare = 0;
                if (whole != 15) {
                    const Float4 s = grid.ramp4(caster, x0 + i - offsetX, t, softness);
                    const Float4 shadow = density * smooth4(s);
                    storeFloat4(shadows + i, shadow);
                    bare = Simd::laneBits((remains <= 0.0f) & (shadow == 0.0f));
                }
                std::memcpy(kinds + i, &kKindsOfLanes.codes[size_t(whole | bare << 4)], 4);
            }
            for (; i < width; ++i) {
                const float remains = grid.ramp(here, x0 + i, t, 1.0f);
                remaining[i] = remains;
                kinds[i] = kWhole;
                if (remains >= 1.0f) continue;
                shadows[i] = shadowAt(caster, x0 + i);
                kinds[i] = remains <= 0.0f && shadows[i] == 0.0f ? kBare : kMixed;
            }
            float* row = out.row(y);
            for (int start = 0; start < width;) {
                const uint8_t kind = kinds[start];
                const int end = runEnd(kinds, start, width);
                float* dst = row + 4 * start;
                copyRow(in[kind == kBare ? 1 : 0], y, x0 + start, x0 + end, dst);
                // The from image's pixels are in place; where they are not opaque and whole, they go
                // over the shadowed target.
                for (int j = start; kind != kBare && j < end; ++j) {
                    if (kind == kWhole) {
                        j += opaquePixels(row + 4 * j, end - j);
                        if (j == end) break;
                    }
                    float* pixel = row + 4 * j;
                    const float remains = remaining[j];
                    const Float4 top = remains > 0.0f ? loadFloat4(pixel) * remains : splat(0.0f);
                    if (top[3] == 1.0f) {
                        storeFloat4(pixel, top);
                        continue;
                    }
                    const float shadow = kind == kWhole ? shadowAt(caster, x0 + j) : shadows[j];
                    const Float4 target = in[1].pixel(x0 + j, y) * (1.0f - shadow) + Float4{0, 0, 0, shadow};
                    storeFloat4(pixel, over(top, target));
                }
                start = end;
            }
        }
    }

private:
    // The end of the run of pixels of kinds[start]'s kind that starts at `start`, eight at a time
    // where it can.
    static int runEnd(const uint8_t* kinds, int start, int width) {
        const uint64_t pattern = uint64_t(kinds[start]) * 0x0101010101010101u;
        int end = start + 1;
        for (uint64_t eight; end + 8 <= width; end += 8) {
            std::memcpy(&eight, kinds + end, 8);
            if (eight != pattern) break;
        }
        while (end < width && kinds[end] == kinds[start]) ++end;
        return end;
    }

    // The number of pixels from the start of `pixels` (at most `count`) whose alpha is exactly 1.
    static int opaquePixels(const float* pixels, int count) {
        int i = 0;
        for (; i + 4 <= count; i += 4) {
            const float* p = pixels + 4 * i;
            if (Simd::laneBits(Float4{p[3], p[7], p[11], p[15]} != 1.0f) != 0) break;
        }
        while (i < count && pixels[4 * i + 3] == 1.0f) ++i;
        return i;
    }

    // The mask's luminance over a rect, one float per pixel.
    struct LuminanceGrid {
        PixelRect rect;
        float* values = nullptr;

        // The luminance over `area`, in memory from `scratch`.
        void fill(const ConstImageTile& mask, const PixelRect& area, TileScratch& scratch) {
            rect = area;
            values = scratch.allocate<float>(size_t(area.area()));
            // Outside the mask's tile the mask is transparent, of luminance 0.
            const PixelRect covered = area.intersection(mask.rect);
            if (covered != area) std::fill(values, values + area.area(), 0.0f);
            for (int y = covered.y; y < covered.maxY(); ++y) {
                float* value = values + size_t(y - area.y) * size_t(area.width) + (covered.x - area.x);
                if (mask.bytes) {
                    luminanceOfBytes(mask.byteAt(covered.x, y), value, covered.width);
                } else {
                    const float* pixels = mask.at(covered.x, y);
                    luminanceRow([pixels](int x) { return loadFloat4(pixels + 4 * x); }, value, covered.width);
                }
            }
        }
        // The luminance of `count` RGBA8 pixels into `out`, as luminanceRow gives it.
        static void luminanceOfBytes(const uint8_t* bytes, float* out, int count) {
            static_assert(std::endian::native == std::endian::little, "red is a pixel word's low byte");
            int x = 0;
            for (; x + 4 <= count; x += 4) {
                Int4 pixels;
                std::memcpy(&pixels, bytes + 4 * x, sizeof pixels);
                const Float4 red = __builtin_convertvector(pixels & 0xff, Float4) * kByteToFloat;
                const Float4 green = __builtin_convertvector((pixels >> 8) & 0xff, Float4) * kByteToFloat;
                const Float4 blue = __builtin_convertvector((pixels >> 16) & 0xff, Float4) * kByteToFloat;
                storeFloat4(out + x, (red + green + blue) * (1.0f / 3.0f));
            }
            luminanceRow([bytes, x](int i) { return bytePixel(bytes + 4 * (x + i)); }, out + x, count - x);
        }
        // The luminance of pixels 0 .. count - 1, which pixel(x) gives, into `out`.
        template <class Pixel>
        static void luminanceRow(Pixel&& pixel, float* out, int count) {
            int x = 0;
            // Four pixels at a time, turned into rows of red, green and blue.
            for (; x + 4 <= count; x += 4) {
                const Float4 p0 = pixel(x), p1 = pixel(x + 1), p2 = pixel(x + 2), p3 = pixel(x + 3);
                const Float4 rg01 = __builtin_shufflevector(p0, p1, 0, 4, 1, 5);
                const Float4 rg23 = __builtin_shufflevector(p2, p3, 0, 4, 1, 5);
                const Float4 ba01 = __builtin_shufflevector(p0, p1, 2, 6, 3, 7);
                const Float4 ba23 = __builtin_shufflevector(p2, p3, 2, 6, 3, 7);
                const Float4 red = __builtin_shufflevector(rg01, rg23, 0, 1, 4, 5);
                const Float4 green = __builtin_shufflevector(rg01, rg23, 2, 3, 6, 7);
                const Float4 blue = __builtin_shufflevector(ba01, ba23, 0, 1, 4, 5);
                storeFloat4(out + x, (red + green + blue) * (1.0f / 3.0f));
            }
            for (; x < count; ++x) {
                const Float4 p = pixel(x);
                out[x] = (p[0] + p[1] + p[2]) * (1.0f / 3.0f);
            }
        }
        const float* row(int y) const { return values + size_t(y - rect.y) * size_t(rect.width); }
        // clamp(0.5 + scale * d, 0, 1), d being the signed distance in pixels from pixel x (in image
        // coordinates) of `row` to the edge at `threshold`. The square root is taken only where the
        // result is not 0 or 1.
        float ramp(const float* row, int x, float threshold, float scale) const {
            const float* p = row + (x - rect.x);
            const float gx = 0.5f * (p[1] - p[-1]);
            const float gy = 0.5f * (p[rect.width] - p[-rect.width]);
            const float slope2 = gx * gx + gy * gy;
            const float scaled = (*p - threshold) * scale;
            if (scaled * scaled >= 0.25f * slope2) return scaled > 0.0f ? 1.0f : 0.0f;
            return clamp01(0.5f + scaled / std::max(std::sqrt(slope2), 1e-4f));
        }
        // ramp() at pixels x .. x + 3 of `row`.
        Float4 ramp4(const float* row, int x, float threshold, float scale) const {
            const float* p = row + (x - rect.x);
            const Float4 gx = 0.5f * (loadFloat4(p + 1) - loadFloat4(p - 1));
            const Float4 gy = 0.5f * (loadFloat4(p + rect.width) - loadFloat4(p - rect.width));
            const Float4 slope2 = gx * gx + gy * gy;
            const Float4 scaled = (loadFloat4(p) - threshold) * scale;
            const Int4 saturated = scaled * scaled >= 0.25f * slope2;
            const Float4 step = scaled > 0.0f ? splat(1.0f) : splat(0.0f);
            if (Simd::laneBits(saturated) == 15) return step;
            const Float4 ramp =
                clampFloat4(0.5f + scaled / maxFloat4(sqrtFloat4(slope2), splat(1e-4f)), splat(0.0f), splat(1.0f));
            return saturated ? step : ramp;
        }
    };
};

}  // namespace qm::kernels
