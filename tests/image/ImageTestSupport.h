#pragma once

// Helpers for the image engine's tests: pictures made in code, and rendered pixels read back by
// image coordinates (y up).

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "image/Image.h"
#include "image/ImageTile.h"
#include "image/RenderContext.h"
#include "platform/Bitmap.h"

namespace qm::test {

using Pixel = std::array<float, 4>;

// Premultiplied float pixels of one render, addressed by image coordinates.
struct RenderedPixels {
    PixelRect rect;
    std::vector<float> data;

    Pixel at(int x, int y) const {
        const size_t row = size_t(rect.maxY() - 1 - y);
        const float* p = &data[(row * size_t(rect.width) + size_t(x - rect.x)) * 4];
        return {p[0], p[1], p[2], p[3]};
    }
};

inline RenderedPixels renderPixels(const Image& image, const PixelRect& rect, int tileSize = 128, int threads = 0) {
    RenderContext::Options options;
    options.tileSize = tileSize;
    options.threadCount = threads;
    RenderedPixels out{rect, std::vector<float>(size_t(rect.area()) * 4, -1.f)};
    RenderContext::create(options)->renderFloat(image, rect.toRect(), out.data.data(), size_t(rect.width) * 4);
    return out;
}

// A bitmap whose pixel (x, row from the top) is `pixel(x, row)`, premultiplied RGBA8.
inline std::shared_ptr<const Bitmap> makeBitmap(int width, int height,
                                                const std::function<std::array<uint8_t, 4>(int, int)>& pixel) {
    std::vector<uint8_t> rgba(size_t(width) * size_t(height) * 4);
    for (int row = 0; row < height; ++row)
        for (int x = 0; x < width; ++x) {
            const auto p = pixel(x, row);
            std::copy(p.begin(), p.end(), rgba.begin() + std::ptrdiff_t((size_t(row) * size_t(width) + size_t(x)) * 4));
        }
    return Bitmap::createWithPixels(width, height, std::move(rgba));
}

// Opaque pixels that differ everywhere, so that any misplaced pixel shows.
inline std::shared_ptr<const Bitmap> patternBitmap(int width, int height) {
    return makeBitmap(width, height, [](int x, int row) {
        return std::array<uint8_t, 4>{uint8_t(x * 37 + row * 11), uint8_t(x * 5 + row * 71), uint8_t(200 - x * 3 - row), 255};
    });
}

inline Pixel byteColor(const std::array<uint8_t, 4>& p) {
    return {p[0] / 255.f, p[1] / 255.f, p[2] / 255.f, p[3] / 255.f};
}

inline void expectPixelNear(const Pixel& actual, const Pixel& expected, float tolerance) {
    for (size_t c = 0; c < 4; ++c)
        EXPECT_NEAR(actual[c], expected[c], tolerance) << "channel " << c;
}

}  // namespace qm::test
