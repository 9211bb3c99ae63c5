#include "codec/ImageSource.h"

#include <string_view>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

namespace qm {

namespace {

struct PacketDeleter {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct FrameDeleter {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct CodecContextDeleter {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FormatContextDeleter {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct ParametersDeleter {
    void operator()(AVCodecParameters* parameters) const { avcodec_parameters_free(&parameters); }
};

using PacketPtr = std::unique_ptr<AVPacket, PacketDeleter>;
using FramePtr = std::unique_ptr<AVFrame, FrameDeleter>;
using CodecContextPtr = std::unique_ptr<AVCodecContext, CodecContextDeleter>;

// Demuxers of picture files: the image2 family (one picture per file) and the animated formats.
bool isPictureFormat(const AVInputFormat& format) {
    const std::string_view name(format.name);
    return name == "image2" || name == "image2pipe" || name.ends_with("_pipe") || name == "gif" || name == "apng" ||
           name == "ico";
}

// The full-range twin of the deprecated JPEG formats, so that swscale is told the range instead.
AVPixelFormat unJPEGFormat(AVPixelFormat format, bool& fullRange) {
    fullRange = true;
    switch (format) {
        case AV_PIX_FMT_YUVJ420P: return AV_PIX_FMT_YUV420P;
        case AV_PIX_FMT_YUVJ422P: return AV_PIX_FMT_YUV422P;
        case AV_PIX_FMT_YUVJ444P: return AV_PIX_FMT_YUV444P;
        case AV_PIX_FMT_YUVJ440P: return AV_PIX_FMT_YUV440P;
        case AV_PIX_FMT_YUVJ411P: return AV_PIX_FMT_YUV411P;
        default: fullRange = false; return format;
    }
}

std::shared_ptr<const Bitmap> bitmapOfFrame(const AVFrame& frame) {
    if (frame.width <= 0 || frame.height <= 0) return nullptr;
    bool fullRange = false;
    const AVPixelFormat source = unJPEGFormat(static_cast<AVPixelFormat>(frame.format), fullRange);
    SwsContext* scaler = sws_getContext(frame.width, frame.height, source, frame.width, frame.height,
                                        AV_PIX_FMT_RGBA, SWS_BILINEAR | SWS_ACCURATE_RND, nullptr, nullptr, nullptr);
    if (!scaler) return nullptr;
    if (fullRange || frame.color_range == AVCOL_RANGE_JPEG) {
        int* inverse = nullptr;
        int* table = nullptr;
        int sourceRange = 0, destinationRange = 0, brightness = 0, contrast = 0, saturation = 0;
        if (sws_getColorspaceDetails(scaler, &inverse, &sourceRange, &table, &destinationRange, &brightness,
                                     &contrast, &saturation) >= 0) {
            sws_setColorspaceDetails(scaler, inverse, 1, table, destinationRange, brightness, contrast, saturation);
        }
    }
    const size_t bytesPerRow = static_cast<size_t>(frame.width) * 4;
    std::vector<uint8_t> rgba(bytesPerRow * frame.height);
    uint8_t* planes[4] = {rgba.data(), nullptr, nullptr, nullptr};
    const int strides[4] = {static_cast<int>(bytesPerRow), 0, 0, 0};
    const int rows = sws_scale(scaler, frame.data, frame.linesize, 0, frame.height, planes, strides);
    sws_freeContext(scaler);
    if (rows != frame.height) return nullptr;
    for (size_t i = 0; i < rgba.size(); i += 4) {
        const unsigned alpha = rgba[i + 3];
        if (alpha == 255) continue;
        for (int c = 0; c < 3; ++c) rgba[i + c] = static_cast<uint8_t>((rgba[i + c] * alpha + 127) / 255);
    }
    return Bitmap::createWithPixels(frame.width, frame.height, std::move(rgba));
}

}  // namespace

struct ImageSource::Impl {
    std::unique_ptr<AVCodecParameters, ParametersDeleter> parameters;
    const AVCodec* codec = nullptr;
    std::vector<PacketPtr> packets;
    // The decoder and the index of the packet it takes next; pictures of an animation build on
    // the ones before them, so they are decoded in order.
    CodecContextPtr decoder;
    size_t nextIndex = 0;
    // The first picture, decoded once when the source is made to prove the file.
    std::shared_ptr<const Bitmap> firstPicture;

    bool openDecoder() {
        decoder.reset(avcodec_alloc_context3(codec));
        nextIndex = 0;
        if (!decoder || avcodec_parameters_to_context(decoder.get(), parameters.get()) < 0) return false;
        decoder->thread_count = 1;
        if (avcodec_open2(decoder.get(), codec, nullptr) < 0) {
            decoder.reset();
            return false;
        }
        return true;
    }

    // Feeds packet nextIndex; the picture it gives, or nothing.
    FramePtr decodeNext() {
        const AVPacket* packet = packets[nextIndex++].get();
        if (avcodec_send_packet(decoder.get(), packet) < 0) return nullptr;
        FramePtr frame(av_frame_alloc());
        if (!frame || avcodec_receive_frame(decoder.get(), frame.get()) < 0) return nullptr;
        return frame;
    }
};

ImageSource::ImageSource(std::unique_ptr<Impl> impl) : _impl(std::move(impl)) {}

ImageSource::~ImageSource() = default;

std::shared_ptr<ImageSource> ImageSource::createWithURL(const std::string& path) {
    AVFormatContext* opened = nullptr;
    if (path.empty() || avformat_open_input(&opened, ("file:" + path).c_str(), nullptr, nullptr) < 0) return nullptr;
    std::unique_ptr<AVFormatContext, FormatContextDeleter> format(opened);

    if (!isPictureFormat(*format->iformat)) return nullptr;
    const AVCodec* codec = nullptr;
    const int streamIndex = av_find_best_stream(format.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (streamIndex < 0 || !codec) return nullptr;
    const AVCodecParameters* stream = format->streams[streamIndex]->codecpar;

    auto impl = std::make_unique<Impl>();
    impl->codec = codec;
    impl->parameters.reset(avcodec_parameters_alloc());
    if (!impl->parameters || avcodec_parameters_copy(impl->parameters.get(), stream) < 0) return nullptr;
    for (;;) {
        PacketPtr packet(av_packet_alloc());
        if (!packet || av_read_frame(format.get(), packet.get()) < 0) break;
        if (packet->stream_index == streamIndex) impl->packets.push_back(std::move(packet));
    }
    // A file that only looks like a picture by its name has packets that do not decode.
    std::shared_ptr<ImageSource> source(new ImageSource(std::move(impl)));
    source->_impl->firstPicture = source->createImageAtIndex(0);
    if (!source->_impl->firstPicture) return nullptr;
    return source;
}

size_t ImageSource::count() const { return _impl->packets.size(); }

std::shared_ptr<const Bitmap> ImageSource::createImageAtIndex(size_t index) {
    if (index >= _impl->packets.size()) return nullptr;
    if (index == 0 && _impl->firstPicture) return _impl->firstPicture;
    if ((!_impl->decoder || index < _impl->nextIndex) && !_impl->openDecoder()) return nullptr;
    FramePtr frame;
    while (_impl->nextIndex <= index) frame = _impl->decodeNext();
    return frame ? bitmapOfFrame(*frame) : nullptr;
}

}  // namespace qm
