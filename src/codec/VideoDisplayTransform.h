#pragma once

#include <memory>

#include "codec/PixelBuffer.h"
#include "codec/PixelScaler.h"

namespace qm {

// Turns decoded pictures into what a viewer sees: scaled to the display width that the sample
// aspect ratio gives, then turned upright by the stream's rotation. Pictures that need neither
// pass through untouched; the others come out as 4:2:0 YUV. One transform per decoding thread.
class VideoDisplayTransform {
public:
    // `clockwiseDegrees` is 0, 90, 180 or 270; the size is the display size before rotation.
    VideoDisplayTransform(int clockwiseDegrees, int scaledWidth, int scaledHeight);

    // Rotation (clockwise, a multiple of 90 in [0, 360)) of a display matrix as FFmpeg stores
    // it; 0 without one.
    static int clockwiseRotationOfDisplayMatrix(const int32_t* matrix);

    std::shared_ptr<PixelBuffer> apply(std::shared_ptr<PixelBuffer> picture);

private:
    int _rotation;
    int _width;
    int _height;
    PixelScaler _scaler;
};

}  // namespace qm
