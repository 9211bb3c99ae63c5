#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace qm {

// A decoded picture: immutable RGBA8 pixels, premultiplied by alpha, row 0 at the top.
// Shared by reference (std::shared_ptr<const Bitmap>); nothing changes it after creation.
class Bitmap {
public:
    // Takes the pixels as given. `bytesPerRow` 0 means width * 4. Nothing when the size is not
    // positive or the bytes are too few for it.
    static std::shared_ptr<const Bitmap> createWithPixels(int width, int height, std::vector<uint8_t> rgba,
                                                          size_t bytesPerRow = 0);
    // As createWithPixels, for pixels known to be opaque: isOpaque() answers without a scan.
    static std::shared_ptr<const Bitmap> createWithOpaquePixels(int width, int height, std::vector<uint8_t> rgba);

    int width() const { return _width; }
    int height() const { return _height; }
    size_t bytesPerRow() const { return _bytesPerRow; }
    const uint8_t* data() const { return _pixels.data(); }
    // The bytes of row y counted up from the bottom, as images count their rows.
    const uint8_t* imageRow(int y) const { return data() + size_t(_height - 1 - y) * _bytesPerRow; }
    // Premultiplied R, G, B, A of one pixel; (x, y) counts from the top left.
    std::array<uint8_t, 4> pixelAt(int x, int y) const;
    // True when every pixel's alpha is 255. Worked out on the first call and kept.
    bool isOpaque() const;

    // Resampled to the given size by area averaging (bilinear when enlarging). Nothing for a
    // size that is not positive.
    std::shared_ptr<const Bitmap> scaledToSize(int width, int height) const;

private:
    Bitmap(int width, int height, size_t bytesPerRow, std::vector<uint8_t> pixels);

    int _width;
    int _height;
    size_t _bytesPerRow;
    std::vector<uint8_t> _pixels;
    enum class Opacity : uint8_t { Unknown, Opaque, Translucent };
    mutable std::atomic<Opacity> _opacity{Opacity::Unknown};
};

}  // namespace qm
