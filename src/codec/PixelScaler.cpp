#include "codec/PixelScaler.h"

#include <vector>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

namespace qm {

namespace {

bool isJPEGRangeFormat(int format) {
    switch (format) {
    case AV_PIX_FMT_YUVJ420P:
    case AV_PIX_FMT_YUVJ422P:
    case AV_PIX_FMT_YUVJ444P:
    case AV_PIX_FMT_YUVJ440P:
    case AV_PIX_FMT_YUVJ411P:
        return true;
    default:
        return false;
    }
}

int swsColorSpace(int avColorSpace) {
    switch (avColorSpace) {
    case AVCOL_SPC_BT709: return SWS_CS_ITU709;
    case AVCOL_SPC_FCC: return SWS_CS_FCC;
    case AVCOL_SPC_SMPTE240M: return SWS_CS_SMPTE240M;
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL: return SWS_CS_BT2020;
    default: return SWS_CS_ITU601;
    }
}

}  // namespace

PixelScaler::~PixelScaler() { sws_freeContext(_context); }

bool PixelScaler::isRGBFormat(int pixelFormat) {
    const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(pixelFormat));
    return desc && (desc->flags & AV_PIX_FMT_FLAG_RGB);
}

int PixelScaler::effectiveColorSpace(const PixelBuffer& buffer) {
    if (isRGBFormat(buffer.pixelFormat())) return AVCOL_SPC_RGB;
    const int space = buffer.colorSpace();
    if (space != AVCOL_SPC_UNSPECIFIED && space != AVCOL_SPC_RESERVED) return space;
    return buffer.height() >= 720 ? AVCOL_SPC_BT709 : AVCOL_SPC_BT470BG;
}

bool PixelScaler::isFullRange(const PixelBuffer& buffer) {
    return buffer.colorRange() == AVCOL_RANGE_JPEG || isJPEGRangeFormat(buffer.pixelFormat());
}

bool PixelScaler::prepare(const PixelBuffer& source, int pixelFormat, int width, int height) {
    const bool scaling = width != source.width() || height != source.height();
    _context = sws_getCachedContext(_context, source.width(), source.height(),
                                    static_cast<AVPixelFormat>(source.pixelFormat()), width, height,
                                    static_cast<AVPixelFormat>(pixelFormat),
                                    (scaling ? SWS_BICUBIC : SWS_POINT) | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT,
                                    nullptr, nullptr, nullptr);
    if (!_context) return false;
    const int* sourceTable = sws_getCoefficients(swsColorSpace(effectiveColorSpace(source)));
    const int* targetTable = isRGBFormat(source.pixelFormat()) ? sws_getCoefficients(SWS_CS_ITU601) : sourceTable;
    const int targetFull = isRGBFormat(pixelFormat) || isJPEGRangeFormat(pixelFormat) ? 1 : 0;
    sws_setColorspaceDetails(_context, sourceTable, isFullRange(source) ? 1 : 0, targetTable, targetFull, 0,
                             1 << 16, 1 << 16);
    return true;
}

std::shared_ptr<PixelBuffer> PixelScaler::convert(const PixelBuffer& source, int pixelFormat, int width,
                                                  int height) {
    auto target = PixelBuffer::create(width, height, pixelFormat);
    if (!target || !prepare(source, pixelFormat, width, height)) return nullptr;
    const AVFrame* in = source.avFrame();
    uint8_t* planes[4] = {};
    int strides[4] = {};
    for (int i = 0; i < target->planeCount(); ++i) {
        planes[i] = target->mutablePlane(i);
        strides[i] = static_cast<int>(target->bytesPerRow(i));
    }
    if (sws_scale(_context, in->data, in->linesize, 0, source.height(), planes, strides) != height) return nullptr;
    if (!isRGBFormat(pixelFormat)) {
        const int space = isRGBFormat(source.pixelFormat()) ? AVCOL_SPC_BT470BG : effectiveColorSpace(source);
        target->setColorDescription(space, isJPEGRangeFormat(pixelFormat) ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG);
    }
    return target;
}

std::shared_ptr<const Bitmap> PixelScaler::bitmap(const PixelBuffer& source) {
    const int width = source.width();
    const int height = source.height();
    if (!prepare(source, AV_PIX_FMT_RGBA, width, height)) return nullptr;
    const size_t rowBytes = static_cast<size_t>(width) * 4;
    std::vector<uint8_t> rgba(rowBytes * height);
    uint8_t* planes[4] = {rgba.data()};
    int strides[4] = {static_cast<int>(rowBytes)};
    const AVFrame* in = source.avFrame();
    if (sws_scale(_context, in->data, in->linesize, 0, height, planes, strides) != height) return nullptr;
    const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(source.pixelFormat()));
    if (desc->flags & AV_PIX_FMT_FLAG_ALPHA) {
        for (size_t i = 0; i < rgba.size(); i += 4) {
            const unsigned alpha = rgba[i + 3];
            for (size_t c = 0; c < 3; ++c) rgba[i + c] = static_cast<uint8_t>((rgba[i + c] * alpha + 127) / 255);
        }
    }
    return Bitmap::createWithPixels(width, height, std::move(rgba), rowBytes);
}

}  // namespace qm
