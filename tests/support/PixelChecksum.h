#pragma once

// Checksums of rendered pixels, for tests that pin every byte a render gives: FNV-1a (64 bit) over
// the bytes as RenderContext writes them, rows from the top down, packed.

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "image/ImageTestSupport.h"
#include "image/RenderContext.h"
#include "platform/Bitmap.h"

namespace qm::test {

inline constexpr uint64_t kFnvOffset = 0xcbf29ce484222325ull;

// FNV-1a 64 of `bytes`, continuing from `hash`.
inline uint64_t fnv1a64(std::span<const uint8_t> bytes, uint64_t hash = kFnvOffset) {
    for (const uint8_t b : bytes) {
        hash ^= b;
        hash *= 0x100000001b3ull;
    }
    return hash;
}

inline std::string hex(uint64_t value) {
    char text[19];
    std::snprintf(text, sizeof text, "0x%016llx", static_cast<unsigned long long>(value));
    return text;
}

// The checksum of `region` of `image` rendered in `format`.
inline uint64_t renderChecksum(const RenderContext& context, const Image& image, const Rect& region,
                               PixelFormat format = PixelFormat::RGBA8Premultiplied) {
    const PixelRect r = PixelRect::enclosing(region);
    std::vector<uint8_t> bytes(size_t(r.area()) * 4);
    context.render(image, region, format, bytes.data(), size_t(r.width) * 4);
    return fnv1a64(bytes);
}

// Fails naming `what` and the value it got, ready to be recorded, unless it is the recorded one.
inline void expectChecksum(uint64_t actual, uint64_t recorded, const std::string& what) {
    EXPECT_EQ(hex(actual), hex(recorded)) << what << ": actual " << hex(actual);
}

// A picture of `width` x `height` with detail in every pixel: opaque, or with alpha running from
// clear to opaque in diagonal bands (colour premultiplied).
inline std::shared_ptr<const Bitmap> checksumPicture(int width, int height, bool translucent) {
    return makeBitmap(width, height, [translucent](int x, int row) {
        const int band = (x * 3 + row * 2) % 256;
        const int alpha = !translucent ? 255 : band < 40 ? 0 : band > 200 ? 255 : band;
        const auto times = [alpha](int v) { return uint8_t((v & 255) * alpha / 255); };
        return std::array<uint8_t, 4>{times(x * 37 + row * 11), times(x * 5 + row * 71 + (x ^ row)),
                                      times(230 - x / 2 - row / 3 + (x * row) % 23), uint8_t(alpha)};
    });
}

}  // namespace qm::test
