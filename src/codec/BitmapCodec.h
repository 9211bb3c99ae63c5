#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "image/DeferredBitmap.h"
#include "platform/Bitmap.h"

namespace qm {

// Still pictures to and from bytes: JPEG through TurboJPEG, PNG through libpng.
class BitmapCodec {
public:
    // Decodes JPEG or PNG bytes (told apart by their signature). Nothing when they do not decode
    // or declare a picture larger than 16384 pixels a side or 2^26 pixels in all.
    static std::shared_ptr<const Bitmap> bitmapWithData(std::span<const uint8_t> bytes);
    // The same picture, decoded when it is first used: a JPEG whose header reads is kept as bytes
    // until then; other pictures decode now. Nothing when the header or picture does not read.
    static std::shared_ptr<const DeferredBitmap> deferredBitmapWithData(std::vector<uint8_t> bytes);
    // Baseline JPEG, 4:2:0, quality 0-100. Transparent pixels come out as if over black.
    static std::vector<uint8_t> JPEGRepresentation(const Bitmap& bitmap, int quality);
    // PNG with straight (not premultiplied) alpha.
    static std::vector<uint8_t> PNGRepresentation(const Bitmap& bitmap);
};

}  // namespace qm
