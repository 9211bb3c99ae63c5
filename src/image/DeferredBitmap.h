#pragma once

#include <functional>
#include <memory>
#include <mutex>

#include "platform/Bitmap.h"

namespace qm {

// A picture whose size is known before its pixels, such as a compressed frame whose header has
// been read. The pixels are made by the decode function on first use, once, on whichever thread
// asks first; others asking meanwhile wait for it. A render decodes all the deferred pictures it
// needs in parallel before it draws. A decode that fails, or gives another size than promised,
// leaves no bitmap: the picture then renders transparent.
class DeferredBitmap {
public:
    using Decode = std::function<std::shared_ptr<const Bitmap>()>;

    // `opaque` promises that every pixel the decode gives is opaque.
    static std::shared_ptr<const DeferredBitmap> create(int width, int height, bool opaque, Decode decode);
    // A picture already decoded.
    static std::shared_ptr<const DeferredBitmap> createWithBitmap(std::shared_ptr<const Bitmap> bitmap);

    DeferredBitmap(const DeferredBitmap&) = delete;
    DeferredBitmap& operator=(const DeferredBitmap&) = delete;

    int width() const { return _width; }
    int height() const { return _height; }
    // As promised, or as the bitmap itself answers for one made already decoded.
    bool isOpaque() const { return _ready ? _ready->isOpaque() : _opaque; }
    // The pixels, decoded now if they were not yet; nothing when the decode failed.
    const std::shared_ptr<const Bitmap>& bitmap() const;

private:
    DeferredBitmap(int width, int height, bool opaque, Decode decode);
    explicit DeferredBitmap(std::shared_ptr<const Bitmap> ready);

    // Set for a picture made already decoded; the rest is then unused.
    std::shared_ptr<const Bitmap> _ready;
    int _width;
    int _height;
    bool _opaque;
    mutable std::once_flag _once;
    mutable Decode _decode;
    mutable std::shared_ptr<const Bitmap> _bitmap;
};

}  // namespace qm
