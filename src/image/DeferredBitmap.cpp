#include "image/DeferredBitmap.h"

namespace qm {

DeferredBitmap::DeferredBitmap(int width, int height, bool opaque, Decode decode)
    : _width(width), _height(height), _opaque(opaque), _decode(std::move(decode)) {}

std::shared_ptr<const DeferredBitmap> DeferredBitmap::create(int width, int height, bool opaque, Decode decode) {
    return std::shared_ptr<const DeferredBitmap>(new DeferredBitmap(width, height, opaque, std::move(decode)));
}

DeferredBitmap::DeferredBitmap(std::shared_ptr<const Bitmap> ready)
    : _ready(std::move(ready)), _width(_ready->width()), _height(_ready->height()), _opaque(false) {}

std::shared_ptr<const DeferredBitmap> DeferredBitmap::createWithBitmap(std::shared_ptr<const Bitmap> bitmap) {
    return std::shared_ptr<const DeferredBitmap>(new DeferredBitmap(std::move(bitmap)));
}

const std::shared_ptr<const Bitmap>& DeferredBitmap::bitmap() const {
    if (_ready) return _ready;
    std::call_once(_once, [this] {
        auto decoded = _decode();
        if (decoded && decoded->width() == _width && decoded->height() == _height) _bitmap = std::move(decoded);
        // The decoder may hold the compressed bytes: let them go.
        _decode = nullptr;
    });
    return _bitmap;
}

}  // namespace qm
