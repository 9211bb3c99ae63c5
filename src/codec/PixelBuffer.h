#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

struct AVFrame;

namespace qm {

// Picture memory in one of FFmpeg's pixel formats (AVPixelFormat values): the stand-in for a
// video pixel buffer. Planes are reference-counted, so a decoded frame is wrapped without a copy;
// writing goes through mutablePlane(), which first gives this buffer planes of its own if they
// are shared. YUV content carries its matrix and range (FFmpeg's AVColorSpace and AVColorRange).
class PixelBuffer {
public:
    // A new buffer with uninitialised planes; nothing for a size that is not positive or an
    // unknown format.
    static std::shared_ptr<PixelBuffer> create(int width, int height, int pixelFormat);
    // Shares the planes and colour description of a video frame; nothing for a frame without
    // pictures.
    static std::shared_ptr<PixelBuffer> createWithAVFrame(const AVFrame* frame);

    ~PixelBuffer();
    PixelBuffer(const PixelBuffer&) = delete;
    PixelBuffer& operator=(const PixelBuffer&) = delete;

    int width() const;
    int height() const;
    int pixelFormat() const;
    int planeCount() const;
    const uint8_t* plane(int index) const;
    uint8_t* mutablePlane(int index);
    size_t bytesPerRow(int index) const;

    // FFmpeg's AVColorSpace and AVColorRange of the content.
    int colorSpace() const;
    int colorRange() const;
    void setColorDescription(int colorSpace, int colorRange);

    const AVFrame* avFrame() const { return _frame; }

private:
    explicit PixelBuffer(AVFrame* frame) : _frame(frame) {}
    AVFrame* _frame;
};

}  // namespace qm
