#include "codec/VideoDisplayTransform.h"

#include <cmath>

#include <opencv2/core.hpp>

extern "C" {
#include <libavutil/display.h>
#include <libavutil/pixfmt.h>
}

#include "codec/JFIFPlaneConverter.h"

namespace qm {

VideoDisplayTransform::VideoDisplayTransform(int clockwiseDegrees, int scaledWidth, int scaledHeight)
    : _rotation(clockwiseDegrees), _width(scaledWidth), _height(scaledHeight) {}

int VideoDisplayTransform::clockwiseRotationOfDisplayMatrix(const int32_t* matrix) {
    if (!matrix) return 0;
    const double counterClockwise = av_display_rotation_get(matrix);
    if (std::isnan(counterClockwise)) return 0;
    const long quarterTurns = std::lround(-counterClockwise / 90.0);
    return static_cast<int>(((quarterTurns % 4) + 4) % 4) * 90;
}

std::shared_ptr<PixelBuffer> VideoDisplayTransform::apply(std::shared_ptr<PixelBuffer> picture) {
    if (!picture) return nullptr;
    const bool resize = picture->width() != _width || picture->height() != _height;
    if (_rotation == 0 && !resize) return picture;
    if (resize || !JFIFPlaneConverter::accepts(picture->pixelFormat())) {
        const int format = PixelScaler::isFullRange(*picture) ? AV_PIX_FMT_YUVJ420P : AV_PIX_FMT_YUV420P;
        picture = _scaler.convert(*picture, format, _width, _height);
        if (!picture || _rotation == 0) return picture;
    }
    const bool quarter = _rotation == 90 || _rotation == 270;
    auto upright = PixelBuffer::create(quarter ? picture->height() : picture->width(),
                                       quarter ? picture->width() : picture->height(), picture->pixelFormat());
    if (!upright) return nullptr;
    const int code = _rotation == 90 ? cv::ROTATE_90_CLOCKWISE
                     : _rotation == 180 ? cv::ROTATE_180
                                        : cv::ROTATE_90_COUNTERCLOCKWISE;
    for (int plane = 0; plane < 3; ++plane) {
        const int shift = plane == 0 ? 0 : 1;
        const int width = (picture->width() + shift) >> shift;
        const int height = (picture->height() + shift) >> shift;
        const cv::Mat source(height, width, CV_8UC1, const_cast<uint8_t*>(picture->plane(plane)),
                             picture->bytesPerRow(plane));
        cv::Mat target(quarter ? width : height, quarter ? height : width, CV_8UC1, upright->mutablePlane(plane),
                       upright->bytesPerRow(plane));
        cv::rotate(source, target, code);
    }
    upright->setColorDescription(PixelScaler::effectiveColorSpace(*picture), picture->colorRange());
    return upright;
}

}  // namespace qm
