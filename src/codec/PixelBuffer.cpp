#include "codec/PixelBuffer.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

namespace qm {

std::shared_ptr<PixelBuffer> PixelBuffer::create(int width, int height, int pixelFormat) {
    if (width <= 0 || height <= 0 || !av_pix_fmt_desc_get(static_cast<AVPixelFormat>(pixelFormat))) return nullptr;
    AVFrame* frame = av_frame_alloc();
    if (!frame) return nullptr;
    frame->width = width;
    frame->height = height;
    frame->format = pixelFormat;
    if (av_frame_get_buffer(frame, 0) < 0) {
        av_frame_free(&frame);
        return nullptr;
    }
    return std::shared_ptr<PixelBuffer>(new PixelBuffer(frame));
}

std::shared_ptr<PixelBuffer> PixelBuffer::createWithAVFrame(const AVFrame* source) {
    if (!source || source->width <= 0 || source->height <= 0 || !source->data[0]) return nullptr;
    AVFrame* frame = av_frame_alloc();
    if (!frame) return nullptr;
    if (av_frame_ref(frame, source) < 0) {
        av_frame_free(&frame);
        return nullptr;
    }
    return std::shared_ptr<PixelBuffer>(new PixelBuffer(frame));
}

PixelBuffer::~PixelBuffer() { av_frame_free(&_frame); }

int PixelBuffer::width() const { return _frame->width; }

int PixelBuffer::height() const { return _frame->height; }

int PixelBuffer::pixelFormat() const { return _frame->format; }

int PixelBuffer::planeCount() const { return av_pix_fmt_count_planes(static_cast<AVPixelFormat>(_frame->format)); }

const uint8_t* PixelBuffer::plane(int index) const { return _frame->data[index]; }

uint8_t* PixelBuffer::mutablePlane(int index) {
    if (av_frame_make_writable(_frame) < 0) return nullptr;
    return _frame->data[index];
}

size_t PixelBuffer::bytesPerRow(int index) const { return static_cast<size_t>(_frame->linesize[index]); }

int PixelBuffer::colorSpace() const { return _frame->colorspace; }

int PixelBuffer::colorRange() const { return _frame->color_range; }

void PixelBuffer::setColorDescription(int colorSpace, int colorRange) {
    _frame->colorspace = static_cast<AVColorSpace>(colorSpace);
    _frame->color_range = static_cast<AVColorRange>(colorRange);
}

}  // namespace qm
