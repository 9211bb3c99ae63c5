#include "foundation/QMCommon.h"

#include <mutex>

#include "codec/BitmapCodec.h"
#include "image/Image.h"
#include "image/RenderContext.h"
#include "platform/Bitmap.h"
#include "platform/Dispatch.h"

namespace qm {

const RenderContext& QMCommon::shareContext() {
    static std::once_flag once;
    static std::shared_ptr<RenderContext> context;
    dispatchOnce(once, [] { context = RenderContext::create(); });
    return *context;
}

std::shared_ptr<const Bitmap> QMCommon::convertFromCVPixelBuffer(const uint8_t* data, int width, int height,
                                                                 size_t bytesPerRow, PixelFormat format) {
    if (!data || width <= 0 || height <= 0) return nullptr;
    const bool bgra = format == PixelFormat::BGRA8 || format == PixelFormat::BGRA8Premultiplied;
    const bool straight = format == PixelFormat::RGBA8 || format == PixelFormat::BGRA8;
    std::vector<uint8_t> rgba(size_t(width) * size_t(height) * 4);
    for (int y = 0; y < height; ++y) {
        const uint8_t* src = data + size_t(y) * bytesPerRow;
        uint8_t* dst = rgba.data() + size_t(y) * size_t(width) * 4;
        for (int x = 0; x < width; ++x, src += 4, dst += 4) {
            const uint8_t a = src[3];
            const uint8_t r = bgra ? src[2] : src[0];
            const uint8_t g = src[1];
            const uint8_t b = bgra ? src[0] : src[2];
            auto premultiply = [&](uint8_t c) { return straight ? uint8_t((c * a + 127) / 255) : c; };
            dst[0] = premultiply(r);
            dst[1] = premultiply(g);
            dst[2] = premultiply(b);
            dst[3] = a;
        }
    }
    return Bitmap::createWithPixels(width, height, std::move(rgba));
}

std::shared_ptr<const Bitmap> QMCommon::CGImageConvertFromCIImage(const Image& image) {
    if (image.isNull()) return nullptr;
    return shareContext().createBitmap(image, image.extent());
}

std::shared_ptr<const Bitmap> QMCommon::NSImageConvertFromCIImage(const Image& image) {
    return CGImageConvertFromCIImage(image);
}

std::optional<std::vector<uint8_t>> QMCommon::saveImageToData(const std::shared_ptr<const Bitmap>& image,
                                                              const std::string& type) {
    if (!image) return std::nullopt;
    std::vector<uint8_t> bytes;
    if (type == "public.png") bytes = BitmapCodec::PNGRepresentation(*image);
    else if (type == "public.jpeg") bytes = BitmapCodec::JPEGRepresentation(*image, defaultJPEGQuality());
    else return std::nullopt;
    if (bytes.empty()) return std::nullopt;
    return bytes;
}

}  // namespace qm
