#include "platform/Bitmap.h"

#include <png.h>
#include <turbojpeg.h>

#include <algorithm>
#include <cstring>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace qm {

namespace {

// One TurboJPEG handle per thread and direction: handles are not thread-safe, and making one
// per call costs more than a small decode.
struct TurboHandle {
    tjhandle handle;
    explicit TurboHandle(bool compress) : handle(compress ? tjInitCompress() : tjInitDecompress()) {}
    ~TurboHandle() {
        if (handle) tjDestroy(handle);
    }
};

tjhandle compressor() {
    thread_local TurboHandle turbo(true);
    return turbo.handle;
}

tjhandle decompressor() {
    thread_local TurboHandle turbo(false);
    return turbo.handle;
}

// Largest picture decoded: a damaged header must not make us allocate gigabytes.
constexpr int kMaximumSide = 16384;
constexpr int64_t kMaximumPixels = int64_t{1} << 26;

bool isDecodableSize(int64_t width, int64_t height) {
    return width > 0 && height > 0 && width <= kMaximumSide && height <= kMaximumSide &&
           width * height <= kMaximumPixels;
}

bool isJPEG(std::span<const uint8_t> bytes) {
    return bytes.size() >= 3 && bytes[0] == 0xFF && bytes[1] == 0xD8 && bytes[2] == 0xFF;
}

bool isPNG(std::span<const uint8_t> bytes) {
    static const uint8_t signature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    return bytes.size() >= 8 && std::memcmp(bytes.data(), signature, 8) == 0;
}

std::shared_ptr<const Bitmap> decodeJPEG(std::span<const uint8_t> bytes) {
    tjhandle handle = decompressor();
    if (!handle) return nullptr;
    int width = 0, height = 0, subsampling = 0, colorspace = 0;
    auto* source = const_cast<unsigned char*>(bytes.data());
    if (tjDecompressHeader3(handle, source, static_cast<unsigned long>(bytes.size()), &width, &height, &subsampling,
                            &colorspace) != 0 ||
        !isDecodableSize(width, height)) {
        return nullptr;
    }
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4);
    if (tjDecompress2(handle, source, static_cast<unsigned long>(bytes.size()), pixels.data(), width, width * 4,
                      height, TJPF_RGBA, TJFLAG_FASTDCT) != 0 &&
        tjGetErrorCode(handle) == TJERR_FATAL) {
        return nullptr;
    }
    return Bitmap::createWithPixels(width, height, std::move(pixels));
}

void premultiply(std::vector<uint8_t>& rgba) {
    for (size_t i = 0; i + 3 < rgba.size(); i += 4) {
        const unsigned alpha = rgba[i + 3];
        if (alpha == 255) continue;
        for (int c = 0; c < 3; ++c) rgba[i + c] = static_cast<uint8_t>((rgba[i + c] * alpha + 127) / 255);
    }
}

std::shared_ptr<const Bitmap> decodePNG(std::span<const uint8_t> bytes) {
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_memory(&image, bytes.data(), bytes.size())) return nullptr;
    image.format = PNG_FORMAT_RGBA;
    if (!isDecodableSize(image.width, image.height)) {
        png_image_free(&image);
        return nullptr;
    }
    std::vector<uint8_t> pixels(PNG_IMAGE_SIZE(image));
    if (!png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr)) {
        png_image_free(&image);
        return nullptr;
    }
    premultiply(pixels);
    return Bitmap::createWithPixels(static_cast<int>(image.width), static_cast<int>(image.height), std::move(pixels));
}

}  // namespace

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

std::shared_ptr<const Bitmap> Bitmap::createWithData(std::span<const uint8_t> bytes) {
    if (isJPEG(bytes)) {
        // JPEG has no alpha: every pixel decodes opaque.
        auto bitmap = decodeJPEG(bytes);
        if (bitmap) bitmap->_opacity.store(Opacity::Opaque, std::memory_order_relaxed);
        return bitmap;
    }
    if (isPNG(bytes)) return decodePNG(bytes);
    return nullptr;
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

std::vector<uint8_t> Bitmap::JPEGRepresentation(int quality) const {
    tjhandle handle = compressor();
    if (!handle) return {};
    unsigned char* jpeg = nullptr;
    unsigned long size = 0;
    if (tjCompress2(handle, _pixels.data(), _width, static_cast<int>(_bytesPerRow), _height, TJPF_RGBA, &jpeg, &size,
                    TJSAMP_420, std::clamp(quality, 0, 100), TJFLAG_FASTDCT) != 0) {
        tjFree(jpeg);
        return {};
    }
    std::vector<uint8_t> bytes(jpeg, jpeg + size);
    tjFree(jpeg);
    return bytes;
}

std::vector<uint8_t> Bitmap::PNGRepresentation() const {
    std::vector<uint8_t> straight(static_cast<size_t>(_width) * _height * 4);
    for (int y = 0; y < _height; ++y) {
        const uint8_t* in = _pixels.data() + static_cast<size_t>(y) * _bytesPerRow;
        uint8_t* out = straight.data() + static_cast<size_t>(y) * _width * 4;
        for (int x = 0; x < _width * 4; x += 4) {
            const unsigned alpha = in[x + 3];
            for (int c = 0; c < 3; ++c) {
                out[x + c] = alpha == 0 ? 0 : static_cast<uint8_t>(std::min(255u, (in[x + c] * 255u + alpha / 2) / alpha));
            }
            out[x + 3] = static_cast<uint8_t>(alpha);
        }
    }
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(_width);
    image.height = static_cast<png_uint_32>(_height);
    image.format = PNG_FORMAT_RGBA;
    png_alloc_size_t size = 0;
    if (!png_image_write_to_memory(&image, nullptr, &size, 0, straight.data(), 0, nullptr)) return {};
    std::vector<uint8_t> bytes(size);
    if (!png_image_write_to_memory(&image, bytes.data(), &size, 0, straight.data(), 0, nullptr)) return {};
    bytes.resize(size);
    return bytes;
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
