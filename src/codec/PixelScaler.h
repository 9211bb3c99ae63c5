#pragma once

#include <memory>

#include "codec/PixelBuffer.h"
#include "platform/Bitmap.h"

struct SwsContext;

namespace qm {

// Converts pixel buffers between formats and sizes with libswscale. YUV is read with its own
// matrix and range; an unspecified matrix is BT.709 from 720 rows up and BT.601 below, as
// players assume. Keeps its scaler context between calls of the same geometry, so one scaler
// belongs to one thread at a time.
class PixelScaler {
public:
    PixelScaler() = default;
    ~PixelScaler();
    PixelScaler(const PixelScaler&) = delete;
    PixelScaler& operator=(const PixelScaler&) = delete;

    // `source` as `pixelFormat` at width x height (bicubic when the size changes). A YUV result
    // carries the matrix of the source (BT.601 for RGB sources) and the range of its format:
    // full for the yuvj formats, limited for the others. Nothing on failure.
    std::shared_ptr<PixelBuffer> convert(const PixelBuffer& source, int pixelFormat, int width, int height);
    // The picture as premultiplied RGBA at its own size. Nothing on failure.
    std::shared_ptr<const Bitmap> bitmap(const PixelBuffer& source);

    // The matrix the content is read with (an AVColorSpace value).
    static int effectiveColorSpace(const PixelBuffer& buffer);
    static bool isFullRange(const PixelBuffer& buffer);
    static bool isRGBFormat(int pixelFormat);

private:
    // Prepares _context for the conversion; false when libswscale refuses it.
    bool prepare(const PixelBuffer& source, int pixelFormat, int width, int height);

    SwsContext* _context = nullptr;
};

}  // namespace qm
