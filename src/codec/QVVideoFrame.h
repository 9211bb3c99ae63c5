#pragma once

#include <cstdint>
#include <memory>

#include "codec/PixelBuffer.h"
#include "codec/PixelScaler.h"
#include "platform/Bitmap.h"

namespace qm {

// One decoded video picture, upright and at its display size, with its presentation time.
class QVVideoFrame {
public:
    // Nothing without a picture.
    static std::shared_ptr<QVVideoFrame> create(std::shared_ptr<PixelBuffer> picture, int64_t timeStamp);

    // Presentation time in QVTimebase units from the start of the source.
    int64_t timeStamp() const { return _timeStamp; }
    // The picture itself, shared.
    const std::shared_ptr<PixelBuffer>& cvImageBuffer() const { return _picture; }
    // A new premultiplied RGBA copy of the picture; nothing if it cannot be converted.
    std::shared_ptr<const Bitmap> cgImage() const;

private:
    QVVideoFrame(std::shared_ptr<PixelBuffer> picture, int64_t timeStamp)
        : _picture(std::move(picture)), _timeStamp(timeStamp) {}

    std::shared_ptr<PixelBuffer> _picture;
    int64_t _timeStamp;
};

// Gives the pictures of video frames in the forms their users take.
class QVVideoFrameTool {
public:
    // The frame's pixel buffer, shared.
    std::shared_ptr<PixelBuffer> imageBufferFromVideoFrame(const QVVideoFrame& frame) const;
    // A premultiplied RGBA copy. With `sharedData` the tool's own conversion context is reused,
    // which is quicker for a run of frames but makes the call belong to one thread at a time;
    // without it the call is safe from any thread.
    std::shared_ptr<const Bitmap> createCGImageFromVideoFrame(const QVVideoFrame& frame, bool sharedData);

private:
    PixelScaler _scaler;
};

}  // namespace qm
