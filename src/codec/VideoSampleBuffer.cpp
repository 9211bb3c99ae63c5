#include "codec/VideoSampleBuffer.h"

#include <optional>

extern "C" {
#include <libavutil/pixfmt.h>
}

namespace qm {

namespace {

struct PixelFormatType {
    uint32_t type;
    AVPixelFormat format;
    bool fullRange;
};

constexpr PixelFormatType kPixelFormatTypes[] = {
    {kCVPixelFormatType_32BGRA, AV_PIX_FMT_BGRA, true},
    {kCVPixelFormatType_422YpCbCr8_yuvs, AV_PIX_FMT_YUYV422, false},
    {kCVPixelFormatType_420YpCbCr8PlanarFullRange, AV_PIX_FMT_YUV420P, true},
};

const PixelFormatType* entryForType(uint32_t type) {
    for (const auto& entry : kPixelFormatTypes) {
        if (entry.type == type) return &entry;
    }
    return nullptr;
}

std::optional<uint32_t> typeForBuffer(const PixelBuffer& buffer) {
    for (const auto& entry : kPixelFormatTypes) {
        if (entry.format == buffer.pixelFormat()) return entry.type;
    }
    return std::nullopt;
}

}  // namespace

int pixelFormatForType(uint32_t pixelFormatType) {
    const auto* entry = entryForType(pixelFormatType);
    return entry ? entry->format : -1;
}

std::shared_ptr<PixelBuffer> createPixelBufferWithType(int width, int height, uint32_t pixelFormatType) {
    const auto* entry = entryForType(pixelFormatType);
    if (!entry) return nullptr;
    auto buffer = PixelBuffer::create(width, height, entry->format);
    if (buffer) {
        buffer->setColorDescription(AVCOL_SPC_BT470BG, entry->fullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG);
    }
    return buffer;
}

std::shared_ptr<const VideoFormatDescription> VideoFormatDescription::create(int32_t width, int32_t height,
                                                                             uint32_t pixelFormatType) {
    if (width <= 0 || height <= 0 || !entryForType(pixelFormatType)) return nullptr;
    return std::shared_ptr<const VideoFormatDescription>(new VideoFormatDescription(width, height, pixelFormatType));
}

std::shared_ptr<VideoSampleBuffer> VideoSampleBuffer::create(std::shared_ptr<const PixelBuffer> imageBuffer,
                                                             CMTime presentationTime, CMTime duration) {
    if (!imageBuffer || !presentationTime.isValid()) return nullptr;
    const auto type = typeForBuffer(*imageBuffer);
    if (!type) return nullptr;
    std::shared_ptr<VideoSampleBuffer> sample(new VideoSampleBuffer());
    sample->_format = VideoFormatDescription::create(imageBuffer->width(), imageBuffer->height(), *type);
    sample->_imageBuffer = std::move(imageBuffer);
    sample->_presentationTime = presentationTime;
    sample->_duration = duration;
    return sample;
}

}  // namespace qm
