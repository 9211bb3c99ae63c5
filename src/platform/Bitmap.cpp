#include "platform/Bitmap.h"

#include <algorithm>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace qm {


Bitmap::Bitmap(int width, int height, size_t bytesPerRow, std::vector<uint8_t> pixels)
    : _width(width), _height(height), _bytesPerRow(bytesPerRow), _pixels(std::move(pixels)) {}

std::shared_ptr<const Bitmap> Bitmap::createWithPixels(int width, int height, std::vector<uint8_t> rgba,
                                                       size_t bytesPerRow) {
    if (width <= 0 || height <= 0) return nullptr;
    const size_t minimumRow = static_cast<size_t>(width) * 4;
    if (bytesPerRow == 0) bytesPerRow = minimumRow;
    if (bytesPerRow < minimumRow || rgba.size() < bytesPerRow * (height - 1) + minimumRow) return nullptr;
    return std::shared_ptr<const Bitmap>(new Bitmap(width, height, bytesPerRow, std::move(rgba)));
}

std::shared_ptr<const Bitmap> Bitmap::createWithOpaquePixels(int width, int height, std::vector<uint8_t> rgba) {
    auto bitmap = createWithPixels(width, height, std::move(rgba));
    if (bitmap) bitmap->_opacity.store(Opacity::Opaque, std::memory_order_relaxed);
    return bitmap;
}

std::array<uint8_t, 4> Bitmap::pixelAt(int x, int y) const {
    const uint8_t* pixel = _pixels.data() + static_cast<size_t>(y) * _bytesPerRow + static_cast<size_t>(x) * 4;
    return {pixel[0], pixel[1], pixel[2], pixel[3]};
}

bool Bitmap::isOpaque() const {
    Opacity opacity = _opacity.load(std::memory_order_relaxed);
    if (opacity == Opacity::Unknown) {
        opacity = Opacity::Opaque;
        for (int y = 0; y < _height && opacity == Opacity::Opaque; ++y) {
            const uint8_t* row = _pixels.data() + static_cast<size_t>(y) * _bytesPerRow;
            for (int x = 0; x < _width; ++x)
                if (row[x * 4 + 3] != 255) opacity = Opacity::Translucent;
        }
        _opacity.store(opacity, std::memory_order_relaxed);
    }
    return opacity == Opacity::Opaque;
}

std::shared_ptr<const Bitmap> Bitmap::scaledToSize(int width, int height) const {
    if (width <= 0 || height <= 0) return nullptr;
    const cv::Mat source(_height, _width, CV_8UC4, const_cast<uint8_t*>(_pixels.data()), _bytesPerRow);
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4);
    cv::Mat destination(height, width, CV_8UC4, pixels.data());
    const bool shrinking = width <= _width && height <= _height;
    cv::resize(source, destination, destination.size(), 0, 0, shrinking ? cv::INTER_AREA : cv::INTER_LINEAR);
    return createWithPixels(width, height, std::move(pixels));
}

}  // namespace qm
