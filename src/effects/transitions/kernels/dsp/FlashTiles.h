#pragma once

#include <algorithm>
#include <cmath>
#include <span>

#include "effects/transitions/kernels/FlashKernel.h"
#include "effects/transitions/kernels/support/CoarseField.h"
#include "effects/transitions/kernels/support/InputRows.h"
#include "image/ImageTile.h"
#include "image/TileScratch.h"

namespace qm::kernels {

// The flash's tiles, built for each instruction set from this one source (see TransitionDSP.h).
template <class Simd>
struct FlashTiles {
    // Before the threshold: the from image under the flash, whose cover is evaluated every eighth
    // pixel (it is smooth but for its spokes near the centre).
    static void spread(const FlashContext& c, const ImageTile& out, std::span<const ConstImageTile> in,
                       TileScratch& scratch) {
        CoarseField flashCover(scratch, out.rect, 3);
        if (c.spread > 0.0f) flashCover.fill([&c](float cx, float cy) { return cover(c, cx, cy); });
        const Float4 flash = c.flash;
        for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
            float* row = out.row(y);
            copyRow(in[0], y, out.rect.x, out.rect.maxX(), row);
            if (c.spread <= 0.0f) continue;
            const CoarseField::Row share = flashCover.row(y);
            for (int x = out.rect.x; x < out.rect.maxX(); ++x, row += 4)
                storeFloat4(row, mix(loadFloat4(row), flash, share(x)));
        }
    }

    // After the threshold: the flash fading into the target.
    static void fade(const FlashContext& c, const ImageTile& out, std::span<const ConstImageTile> in) {
        const Float4 flash = c.flash;
        const float fade = c.fade;
        for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
            float* row = out.row(y);
            copyRow(in[1], y, out.rect.x, out.rect.maxX(), row);
            if (fade >= 1.0f) continue;
            for (float* p = row; p < row + 4 * out.rect.width; p += 4) storeFloat4(p, mix(flash, loadFloat4(p), fade));
        }
    }

private:
    // How much of the pixel centred at (cx, cy) the flash covers.
    static float cover(const FlashContext& c, float cx, float cy) {
        const float vx = (cx - c.cx0) * c.inverseReach;
        const float vy = (cy - c.cy0) * c.inverseReach;
        const float d2 = vx * vx + vy * vy;
        const float d = std::sqrt(d2);
        const float glow = 1.0f / (1.0f + 16.0f * d2);
        float rays = 0.0f;
        if (d > 0.0f) {
            const float stripe = spokes(vx / d, vy / d);
            float power = stripe;
            for (int i = 1; i < c.rayPower; ++i) power *= stripe;
            rays = c.rayStrength * power * c.rayRadius / (c.rayRadius + 4.0f * d);
        }
        return std::min(c.spread * c.spread + c.spread * (glow + rays), 1.0f);
    }

    // A fixed pattern of spokes in 0..1 for the direction (ux, uy) (a unit vector):
    // 0.5 + 0.3 cos(16 a) + 0.2 cos(7 a), from powers of ux + i uy.
    static float spokes(float ux, float uy) {
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
};

}  // namespace qm::kernels
