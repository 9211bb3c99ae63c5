#include "codec/QVJPEGEncoderHW.h"

#include <algorithm>
#include <optional>

#include <turbojpeg.h>

extern "C" {
#include <libavutil/pixfmt.h>
}

#include "codec/JFIFPlaneConverter.h"
#include "codec/PixelScaler.h"

namespace qm {

namespace {

// TurboJPEG handles and scratch memory are not shareable: one set per thread.
struct EncoderScratch {
    tjhandle handle = tjInitCompress();
    JFIFPlaneConverter planes;
    PixelScaler scaler;
    ~EncoderScratch() {
        if (handle) tjDestroy(handle);
    }
};

EncoderScratch& scratch() {
    thread_local EncoderScratch perThread;
    return perThread;
}

std::optional<int> packedTurboFormat(int pixelFormat) {
    switch (pixelFormat) {
    case AV_PIX_FMT_BGRA: return TJPF_BGRA;
    case AV_PIX_FMT_BGR0: return TJPF_BGRX;
    case AV_PIX_FMT_RGBA: return TJPF_RGBA;
    case AV_PIX_FMT_RGB0: return TJPF_RGBX;
    case AV_PIX_FMT_ARGB: return TJPF_ARGB;
    case AV_PIX_FMT_ABGR: return TJPF_ABGR;
    case AV_PIX_FMT_RGB24: return TJPF_RGB;
    case AV_PIX_FMT_BGR24: return TJPF_BGR;
    default: return std::nullopt;
    }
}

std::vector<uint8_t> takeOutput(unsigned char* jpeg, unsigned long size, bool ok) {
    std::vector<uint8_t> bytes;
    if (ok) bytes.assign(jpeg, jpeg + size);
    tjFree(jpeg);
    return bytes;
}

}  // namespace

std::shared_ptr<QVJPEGEncoderHW> QVJPEGEncoderHW::create() {
    return std::shared_ptr<QVJPEGEncoderHW>(new QVJPEGEncoderHW(QVDefaultQuality, 0, 0));
}

std::shared_ptr<QVJPEGEncoderHW> QVJPEGEncoderHW::createWithQuality(int quality, bool, int width, int height) {
    return std::shared_ptr<QVJPEGEncoderHW>(new QVJPEGEncoderHW(std::clamp(quality, 1, 100), width, height));
}

std::vector<uint8_t> QVJPEGEncoderHW::encodeImageBuffer(const PixelBuffer& buffer) const {
    EncoderScratch& local = scratch();
    if (!local.handle) return {};
    unsigned char* jpeg = nullptr;
    unsigned long size = 0;
    const int flags = TJFLAG_FASTDCT;
    if (const auto turboFormat = packedTurboFormat(buffer.pixelFormat())) {
        const bool ok = tjCompress2(local.handle, buffer.plane(0), buffer.width(),
                                    static_cast<int>(buffer.bytesPerRow(0)), buffer.height(), *turboFormat, &jpeg,
                                    &size, TJSAMP_420, _quality, flags) == 0;
        return takeOutput(jpeg, size, ok);
    }
    std::shared_ptr<PixelBuffer> converted;
    const PixelBuffer* source = &buffer;
    if (!JFIFPlaneConverter::accepts(buffer.pixelFormat())) {
        converted = local.scaler.convert(buffer, AV_PIX_FMT_YUV420P, buffer.width(), buffer.height());
        if (!converted) return {};
        source = converted.get();
    }
    JFIFPlaneConverter::Planes planes = local.planes.convert(*source);
    const bool ok = tjCompressFromYUVPlanes(local.handle, planes.data, source->width(), planes.bytesPerRow,
                                            source->height(), TJSAMP_420, &jpeg, &size, _quality, flags) == 0;
    return takeOutput(jpeg, size, ok);
}

}  // namespace qm
