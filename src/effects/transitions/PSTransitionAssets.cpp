#include "effects/transitions/PSTransitionAssets.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <vector>

#include "platform/Bitmap.h"

namespace qm {

namespace {

using Rgb = std::array<double, 3>;

uint8_t toByte(double v) {
    return uint8_t(std::lround(std::clamp(v, 0.0, 1.0) * 255.0));
}

Rgb blend(const Rgb& a, const Rgb& b, double t) {
    return {a[0] + (b[0] - a[0]) * t, a[1] + (b[1] - a[1]) * t, a[2] + (b[2] - a[2]) * t};
}

// How much of a pixel lies inside a shape, from the signed distance to its edge (negative inside).
double cover(double signedDistance) {
    return std::clamp(0.5 - signedDistance, 0.0, 1.0);
}

// A picture drawn by `color(x, y)` at pixel centres, x to the right and y up, both in 0..1 of the
// height (so shapes keep their proportions at any aspect ratio).
template <class ColorFunction>
std::shared_ptr<const Bitmap> draw(int width, int height, ColorFunction&& color) {
    std::vector<uint8_t> pixels(size_t(width) * size_t(height) * 4);
    uint8_t* p = pixels.data();
    const double unit = 1.0 / height;
    for (int row = 0; row < height; ++row) {
        const double y = (height - row - 0.5) * unit;
        for (int column = 0; column < width; ++column, p += 4) {
            const Rgb c = color((column + 0.5) * unit, y, unit);
            p[0] = toByte(c[0]);
            p[1] = toByte(c[1]);
            p[2] = toByte(c[2]);
            p[3] = 255;
        }
    }
    return Bitmap::createWithPixels(width, height, std::move(pixels));
}

// Sunset over hills: a warm sky, a sun, two ranges of hills and a lake with stripes of light.
Rgb landscape(double x, double y, double unit, double aspect) {
    Rgb c = blend({0.98, 0.62, 0.25}, {0.45, 0.20, 0.45}, std::clamp((y - 0.35) / 0.65, 0.0, 1.0));
    const double sun = std::hypot(x - aspect * 0.68, y - 0.62) - 0.13;
    c = blend(c, {1.0, 0.93, 0.55}, cover(sun / unit));
    const double farHills = 0.42 + 0.07 * std::sin(x * 7.0 + 1.0) + 0.03 * std::sin(x * 17.0);
    c = blend(c, {0.42, 0.22, 0.35}, cover((y - farHills) / unit));
    const double nearHills = 0.30 + 0.09 * std::sin(x * 4.0 + 2.5) + 0.02 * std::sin(x * 23.0);
    c = blend(c, {0.16, 0.10, 0.20}, cover((y - nearHills) / unit));
    if (y < 0.2) {
        const double shimmer = 0.5 + 0.5 * std::sin(y * 90.0);
        c = blend({0.20, 0.16, 0.32}, {0.95, 0.60, 0.35}, 0.15 + 0.35 * shimmer * (0.2 - y) / 0.2);
    }
    return c;
}

// Tiles in two blues under a white ring, with a diagonal band of light green.
Rgb tiles(double x, double y, double unit, double aspect) {
    const int cellX = int(std::floor(x * 8.0));
    const int cellY = int(std::floor(y * 8.0));
    Rgb c = ((cellX + cellY) & 1) ? Rgb{0.12, 0.35, 0.62} : Rgb{0.20, 0.55, 0.78};
    const double band = std::fabs((x - y) - (aspect - 1.0) * 0.5) - 0.08;
    c = blend(c, {0.55, 0.85, 0.55}, 0.7 * cover(band / unit));
    const double ring = std::fabs(std::hypot(x - aspect * 0.5, y - 0.5) - 0.28) - 0.045;
    return blend(c, {0.97, 0.97, 0.95}, cover(ring / unit));
}

// Value noise on a lattice of `cells` per side, with smooth interpolation.
double valueNoise(double x, double y, int cells, uint32_t seed) {
    auto lattice = [cells, seed](int i, int j) {
        uint32_t h = uint32_t(((i % cells) + cells) % cells) * 73856093u ^ uint32_t(((j % cells) + cells) % cells) * 19349663u ^
                     seed * 83492791u;
        h ^= h >> 13;
        h *= 0x5bd1e995u;
        h ^= h >> 15;
        return (h & 0xffffu) / 65535.0;
    };
    const double gx = x * cells;
    const double gy = y * cells;
    const int i = int(std::floor(gx));
    const int j = int(std::floor(gy));
    const double fx = gx - i;
    const double fy = gy - j;
    const double sx = fx * fx * (3 - 2 * fx);
    const double sy = fy * fy * (3 - 2 * fy);
    const double top = lattice(i, j) + (lattice(i + 1, j) - lattice(i, j)) * sx;
    const double bottom = lattice(i, j + 1) + (lattice(i + 1, j + 1) - lattice(i, j + 1)) * sx;
    return top + (bottom - top) * sy;
}

std::shared_ptr<const Bitmap> makeShading() {
    const int size = PSTransitionAssets::kAssetSize;
    const double lx = -0.45, ly = 0.55, lz = 0.70;
    const double lightLength = std::sqrt(lx * lx + ly * ly + lz * lz);
    const double hx = lx / lightLength, hy = ly / lightLength, hz = lz / lightLength + 1.0;
    const double halfLength = std::sqrt(hx * hx + hy * hy + hz * hz);
    return draw(size, size, [&](double x, double y, double) -> Rgb {
        double nx = (x - 0.5) * 2.0;
        double ny = (y - 0.5) * 2.0;
        const double r = std::hypot(nx, ny);
        if (r > 1.0) {
            nx /= r;
            ny /= r;
        }
        const double nz = std::sqrt(std::max(0.0, 1.0 - nx * nx - ny * ny));
        const double diffuse = std::max(0.0, (nx * lx + ny * ly + nz * lz) / lightLength);
        const double specular = std::pow(std::max(0.0, (nx * hx + ny * hy + nz * hz) / halfLength), 24.0);
        const double v = 0.3 + 0.6 * diffuse + 0.3 * specular;
        return {v, v, v};
    });
}

std::shared_ptr<const Bitmap> makeMask() {
    const int size = PSTransitionAssets::kAssetSize;
    std::vector<double> field(size_t(size) * size);
    for (int row = 0; row < size; ++row) {
        for (int column = 0; column < size; ++column) {
            const double x = (column + 0.5) / size;
            const double y = (row + 0.5) / size;
            double value = 0;
            double amplitude = 1;
            for (int octave = 0; octave < 4; ++octave) {
                value += amplitude * valueNoise(x, y, 4 << octave, 17u + uint32_t(octave));
                amplitude *= 0.5;
            }
            field[size_t(row) * size + size_t(column)] = value;
        }
    }
    // Spread the levels evenly: each pixel's level becomes its rank.
    std::vector<uint32_t> order(field.size());
    std::iota(order.begin(), order.end(), 0u);
    std::sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) { return field[a] < field[b]; });
    std::vector<uint8_t> pixels(field.size() * 4);
    for (size_t rank = 0; rank < order.size(); ++rank) {
        const uint8_t level = toByte(double(rank) / double(order.size() - 1));
        uint8_t* p = &pixels[size_t(order[rank]) * 4];
        p[0] = p[1] = p[2] = level;
        p[3] = 255;
    }
    return Bitmap::createWithPixels(size, size, std::move(pixels));
}

}  // namespace

std::shared_ptr<const Bitmap> PSTransitionAssets::shadingBitmap() {
    static const std::shared_ptr<const Bitmap> shading = makeShading();
    return shading;
}

std::shared_ptr<const Bitmap> PSTransitionAssets::maskBitmap() {
    static const std::shared_ptr<const Bitmap> mask = makeMask();
    return mask;
}

std::shared_ptr<const Bitmap> PSTransitionAssets::samplePicture(int index, int width, int height) {
    if (width <= 0 || height <= 0) return nullptr;
    const double aspect = double(width) / height;
    if (index == 0) return draw(width, height, [aspect](double x, double y, double unit) { return landscape(x, y, unit, aspect); });
    return draw(width, height, [aspect](double x, double y, double unit) { return tiles(x, y, unit, aspect); });
}

}  // namespace qm
