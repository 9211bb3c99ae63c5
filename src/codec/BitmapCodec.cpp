#include "codec/BitmapCodec.h"

#include <png.h>
#include <turbojpeg.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

namespace qm {

namespace {

// One TurboJPEG handle per thread and direction: handles are not thread-safe, and making one
// per call costs more than a small decode.
struct TurboHandle {
    tjhandle handle;
    bool compress;
    explicit TurboHandle(bool forCompression)
        : handle(forCompression ? tjInitCompress() : tjInitDecompress()), compress(forCompression) {}
    ~TurboHandle() {
        if (handle) tjDestroy(handle);
    }
    // A handle that failed on damaged input can stay broken for every later picture: start over.
    void renew() {
        if (handle) tjDestroy(handle);
        handle = compress ? tjInitCompress() : tjInitDecompress();
    }
};

tjhandle compressor() {
    thread_local TurboHandle turbo(true);
    return turbo.handle;
}

TurboHandle& decompressorHandle() {
    thread_local TurboHandle turbo(false);
    return turbo;
}

tjhandle decompressor() { return decompressorHandle().handle; }

// True when the last call on the thread's decompressor failed outright; the handle is then
// renewed. Warnings (a picture cut short, say) are not failures.
bool failedFatally(int result) {
    if (result == 0 || tjGetErrorCode(decompressor()) != TJERR_FATAL) return false;
    decompressorHandle().renew();
    return true;
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

// The size a JPEG header declares, when it reads and is within the limits.
std::optional<std::pair<int, int>> JPEGSize(std::span<const uint8_t> bytes) {
    tjhandle handle = decompressor();
    if (!handle) return std::nullopt;
    int width = 0, height = 0, subsampling = 0, colorspace = 0;
    if (failedFatally(tjDecompressHeader3(handle, const_cast<unsigned char*>(bytes.data()),
                                          static_cast<unsigned long>(bytes.size()), &width, &height, &subsampling,
                                          &colorspace)) ||
        !isDecodableSize(width, height)) {
        return std::nullopt;
    }
    return std::pair{width, height};
}

std::shared_ptr<const Bitmap> decodeJPEG(std::span<const uint8_t> bytes) {
    const auto size = JPEGSize(bytes);
    if (!size) return nullptr;
    const auto [width, height] = *size;
    tjhandle handle = decompressor();
    auto* source = const_cast<unsigned char*>(bytes.data());
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4);
    if (failedFatally(tjDecompress2(handle, source, static_cast<unsigned long>(bytes.size()), pixels.data(), width,
                                    width * 4, height, TJPF_RGBA, TJFLAG_FASTDCT))) {
        return nullptr;
    }
    return Bitmap::createWithOpaquePixels(width, height, std::move(pixels));
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

std::shared_ptr<const Bitmap> BitmapCodec::bitmapWithData(std::span<const uint8_t> bytes) {
    if (isJPEG(bytes)) {
        // JPEG has no alpha: every pixel decodes opaque.
        return decodeJPEG(bytes);
    }
    if (isPNG(bytes)) return decodePNG(bytes);
    return nullptr;
}

std::shared_ptr<const DeferredBitmap> BitmapCodec::deferredBitmapWithData(std::vector<uint8_t> bytes) {
    if (!isJPEG(bytes)) {
        auto bitmap = bitmapWithData(bytes);
        return bitmap ? DeferredBitmap::createWithBitmap(std::move(bitmap)) : nullptr;
    }
    const auto size = JPEGSize(bytes);
    if (!size) return nullptr;
    // JPEG has no alpha: every pixel decodes opaque.
    return DeferredBitmap::create(size->first, size->second, true,
                                  [bytes = std::move(bytes)] { return decodeJPEG(bytes); });
}

std::vector<uint8_t> BitmapCodec::JPEGRepresentation(const Bitmap& bitmap, int quality) {
    tjhandle handle = compressor();
    if (!handle) return {};
    unsigned char* jpeg = nullptr;
    unsigned long size = 0;
    if (tjCompress2(handle, bitmap.data(), bitmap.width(), static_cast<int>(bitmap.bytesPerRow()), bitmap.height(),
                    TJPF_RGBA, &jpeg, &size, TJSAMP_420, std::clamp(quality, 0, 100), TJFLAG_FASTDCT) != 0) {
        tjFree(jpeg);
        return {};
    }
    std::vector<uint8_t> bytes(jpeg, jpeg + size);
    tjFree(jpeg);
    return bytes;
}

std::vector<uint8_t> BitmapCodec::PNGRepresentation(const Bitmap& bitmap) {
    const int width = bitmap.width();
    const int height = bitmap.height();
    std::vector<uint8_t> straight(static_cast<size_t>(width) * height * 4);
    for (int y = 0; y < height; ++y) {
        const uint8_t* in = bitmap.data() + static_cast<size_t>(y) * bitmap.bytesPerRow();
        uint8_t* out = straight.data() + static_cast<size_t>(y) * width * 4;
        for (int x = 0; x < width * 4; x += 4) {
            const unsigned alpha = in[x + 3];
            for (int c = 0; c < 3; ++c) {
                out[x + c] =
                    alpha == 0 ? 0 : static_cast<uint8_t>(std::min(255u, (in[x + c] * 255u + alpha / 2) / alpha));
            }
            out[x + 3] = static_cast<uint8_t>(alpha);
        }
    }
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width);
    image.height = static_cast<png_uint_32>(height);
    image.format = PNG_FORMAT_RGBA;
    png_alloc_size_t size = 0;
    if (!png_image_write_to_memory(&image, nullptr, &size, 0, straight.data(), 0, nullptr)) return {};
    std::vector<uint8_t> bytes(size);
    if (!png_image_write_to_memory(&image, bytes.data(), &size, 0, straight.data(), 0, nullptr)) return {};
    bytes.resize(size);
    return bytes;
}

}  // namespace qm
