#include "codec/QVVideoFrame.h"

namespace qm {

std::shared_ptr<QVVideoFrame> QVVideoFrame::create(std::shared_ptr<PixelBuffer> picture, int64_t timeStamp) {
    if (!picture) return nullptr;
    return std::shared_ptr<QVVideoFrame>(new QVVideoFrame(std::move(picture), timeStamp));
}

std::shared_ptr<const Bitmap> QVVideoFrame::cgImage() const { return PixelScaler().bitmap(*_picture); }

std::shared_ptr<PixelBuffer> QVVideoFrameTool::imageBufferFromVideoFrame(const QVVideoFrame& frame) const {
    return frame.cvImageBuffer();
}

std::shared_ptr<const Bitmap> QVVideoFrameTool::createCGImageFromVideoFrame(const QVVideoFrame& frame,
                                                                           bool sharedData) {
    if (!sharedData) return frame.cgImage();
    return _scaler.bitmap(*frame.cvImageBuffer());
}

}  // namespace qm
