#include "image/RenderContext.h"

#include <algorithm>
#include <cstring>
#include <thread>
#include <vector>

#include "image/ImageNode.h"
#include "image/PixelMath.h"
#include "image/PixelRows.h"
#include "image/RenderPass.h"
#include "platform/Bitmap.h"

namespace qm {

namespace {

// One row of premultiplied float pixels to 8-bit memory.
void storeRow(const float* src, uint8_t* dst, int count, PixelFormat format) {
    if (format == PixelFormat::RGBA8Premultiplied) {
        premultipliedToBytes(src, dst, count);
        return;
    }
    if (format == PixelFormat::BGRA8Premultiplied) {
        premultipliedToBGRABytes(src, dst, count);
        return;
    }
    const bool straight = format == PixelFormat::RGBA8 || format == PixelFormat::BGRA8;
    const bool bgra = format == PixelFormat::BGRA8Premultiplied || format == PixelFormat::BGRA8;
    floatsToBytes(src, dst, count, straight, bgra);
}

// One tile's rows as Y, and its 2 x 2 blocks as U and V. `top` and `left` place the tile's top left
// pixel in the planes; both are even.
void storeYUV(const ConstImageTile& tile, int top, int left, const YUVPlanes& planes) {
    for (int m = 0; m < tile.rect.height; m += 2) {
        const bool pair = m + 1 < tile.rect.height;
        const float* upper = tile.row(tile.rect.maxY() - 1 - m);
        const float* lower = pair ? tile.row(tile.rect.maxY() - 2 - m) : upper;
        uint8_t* y0 = planes.y + size_t(top + m) * planes.yRowBytes + size_t(left);
        uint8_t* y1 = pair ? y0 + planes.yRowBytes : nullptr;
        yuvRows(upper, lower, tile.rect.width, y0, y1, planes.u + size_t((top + m) / 2) * planes.uRowBytes + size_t(left / 2),
                planes.v + size_t((top + m) / 2) * planes.vRowBytes + size_t(left / 2));
    }
}

}  // namespace

RenderContext::RenderContext(const Options& options) : _options(options) {
    _options.tileSize = std::max(_options.tileSize + (_options.tileSize & 1), 16);
    if (_options.threadCount <= 0) _options.threadCount = int(std::max(1u, std::thread::hardware_concurrency()));
}

std::shared_ptr<RenderContext> RenderContext::create() { return create(Options{}); }

std::shared_ptr<RenderContext> RenderContext::create(const Options& options) {
    return std::shared_ptr<RenderContext>(new RenderContext(options));
}

void RenderContext::render(const Image& image, const Rect& region, PixelFormat format, uint8_t* data,
                           size_t rowBytes) const {
    const PixelRect r = PixelRect::enclosing(region);
    if (r.isEmpty()) return;
    if (image.isNull()) {
        for (int row = 0; row < r.height; ++row) std::memset(data + size_t(row) * rowBytes, 0, size_t(r.width) * 4);
        return;
    }
    RenderPass pass(*image.node(), r, _options.threadCount);
    pass.renderTiles(*image.node(), r, _options.tileSize, [&](const ConstImageTile& tile) {
        for (int y = tile.rect.y; y < tile.rect.maxY(); ++y)
            storeRow(tile.row(y), data + size_t(r.maxY() - 1 - y) * rowBytes + size_t(tile.rect.x - r.x) * 4,
                     tile.rect.width, format);
    });
}

void RenderContext::renderFloat(const Image& image, const Rect& region, float* data, size_t rowFloats) const {
    const PixelRect r = PixelRect::enclosing(region);
    if (r.isEmpty()) return;
    if (image.isNull()) {
        for (int row = 0; row < r.height; ++row) std::fill_n(data + size_t(row) * rowFloats, size_t(r.width) * 4, 0.f);
        return;
    }
    RenderPass pass(*image.node(), r, _options.threadCount);
    pass.renderTiles(*image.node(), r, _options.tileSize, [&](const ConstImageTile& tile) {
        for (int y = tile.rect.y; y < tile.rect.maxY(); ++y)
            std::memcpy(data + size_t(r.maxY() - 1 - y) * rowFloats + size_t(tile.rect.x - r.x) * 4, tile.row(y),
                        sizeof(float) * 4 * size_t(tile.rect.width));
    });
}

void RenderContext::renderYUV420(const Image& image, const Rect& region, const YUVPlanes& planes) const {
    const PixelRect r = PixelRect::enclosing(region);
    if (r.isEmpty()) return;
    // Tiles start on even memory rows and columns (the grid starts at the top left and the tile
    // size is even), so every 2 x 2 chroma block lies within one tile.
    auto writeTile = [&](const ConstImageTile& tile) {
        storeYUV(tile, r.maxY() - tile.rect.maxY(), tile.rect.x - r.x, planes);
    };
    if (image.isNull()) {
        std::vector<float> black(size_t(r.area()) * 4, 0.f);
        writeTile(ConstImageTile(r, black.data(), std::ptrdiff_t(r.width) * 4));
        return;
    }
    RenderPass pass(*image.node(), r, _options.threadCount);
    pass.renderTiles(*image.node(), r, _options.tileSize, writeTile);
}

std::shared_ptr<const Bitmap> RenderContext::createBitmap(const Image& image, const Rect& region) const {
    if (Image::isInfinite(region)) return nullptr;
    const PixelRect r = PixelRect::enclosing(region);
    if (r.isEmpty()) return nullptr;
    std::vector<uint8_t> pixels(size_t(r.area()) * 4);
    render(image, region, PixelFormat::RGBA8Premultiplied, pixels.data(), size_t(r.width) * 4);
    return Bitmap::createWithPixels(r.width, r.height, std::move(pixels));
}

}  // namespace qm
