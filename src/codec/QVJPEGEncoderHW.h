#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "codec/PixelBuffer.h"

namespace qm {

// JPEG quality (0 to 100) of decoded video frames kept by the editor.
inline constexpr int QVDefaultQuality = 80;

// JPEG encoder for pixel buffers, on TurboJPEG. There is no hardware JPEG encoder on this
// platform: the hardware flag is accepted and changes nothing. The width and height given at
// creation are the size the caller expects; every picture is encoded at its own size, so the
// stored frames keep their full resolution. Pictures are stored as 4:2:0 JFIF (full-range
// BT.601), converted from the buffer's own matrix and range. Safe to use from several threads
// at once.
class QVJPEGEncoderHW {
public:
    // QVDefaultQuality, no expected size.
    static std::shared_ptr<QVJPEGEncoderHW> create();
    // Quality is clamped to 1 to 100.
    static std::shared_ptr<QVJPEGEncoderHW> createWithQuality(int quality, bool requireHW, int width, int height);

    int quality() const { return _quality; }
    int width() const { return _width; }
    int height() const { return _height; }

    // The JPEG bytes of the picture; empty when the encoder cannot take the buffer.
    std::vector<uint8_t> encodeImageBuffer(const PixelBuffer& buffer) const;

private:
    QVJPEGEncoderHW(int quality, int width, int height) : _quality(quality), _width(width), _height(height) {}

    int _quality;
    int _width;
    int _height;
};

}  // namespace qm
