#pragma once

#include <cstdint>
#include <memory>

#include "codec/MediaSampleBuffer.h"
#include "codec/PixelBuffer.h"

namespace qm {

// Four-character pixel format types of captured pictures.
inline constexpr uint32_t kCVPixelFormatType_32BGRA = 0x42475241;                     // 'BGRA', packed B G R A
inline constexpr uint32_t kCVPixelFormatType_422YpCbCr8_yuvs = 0x79757673;            // 'yuvs', packed Y0 Cb Y1 Cr
inline constexpr uint32_t kCVPixelFormatType_420YpCbCr8PlanarFullRange = 0x66343230;  // 'f420', three planes

// FFmpeg's pixel format (an AVPixelFormat value) for a four-character type; -1 for another type.
int pixelFormatForType(uint32_t pixelFormatType);

// Makes a pixel buffer of a four-character type; nothing for an unknown type or a size that is not
// positive. Full-range types are marked full range.
std::shared_ptr<PixelBuffer> createPixelBufferWithType(int width, int height, uint32_t pixelFormatType);

// The format of the pictures of a video stream (the stand-in for a video CMFormatDescription).
class VideoFormatDescription {
public:
    // Nothing for a size that is not positive or an unknown pixel format type.
    static std::shared_ptr<const VideoFormatDescription> create(int32_t width, int32_t height,
                                                                uint32_t pixelFormatType);

    int32_t width() const { return _width; }
    int32_t height() const { return _height; }
    uint32_t pixelFormatType() const { return _pixelFormatType; }

private:
    VideoFormatDescription(int32_t width, int32_t height, uint32_t type)
        : _width(width), _height(height), _pixelFormatType(type) {}

    int32_t _width;
    int32_t _height;
    uint32_t _pixelFormatType;
};

// One captured picture with its timing (the stand-in for a CMSampleBuffer of video).
class VideoSampleBuffer {
public:
    // Nothing for no buffer, a buffer whose pixel format has no four-character type, or an invalid
    // presentation time. The duration may be invalid (unknown).
    static std::shared_ptr<VideoSampleBuffer> create(std::shared_ptr<const PixelBuffer> imageBuffer,
                                                     CMTime presentationTime, CMTime duration);

    const std::shared_ptr<const PixelBuffer>& imageBuffer() const { return _imageBuffer; }
    const std::shared_ptr<const VideoFormatDescription>& formatDescription() const { return _format; }
    CMTime presentationTime() const { return _presentationTime; }
    CMTime duration() const { return _duration; }

private:
    VideoSampleBuffer() = default;

    std::shared_ptr<const PixelBuffer> _imageBuffer;
    std::shared_ptr<const VideoFormatDescription> _format;
    CMTime _presentationTime;
    CMTime _duration;
};

}  // namespace qm
