#include "support/MediaFileWriter.h"

#include "codec/BitmapCodec.h"
#include "platform/Bitmap.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <numbers>
#include <numeric>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libavutil/log.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

namespace qm::test {
namespace {

struct CodecContextFree {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FrameFree {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct PacketFree {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct ScalerFree {
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};
struct ResamplerFree {
    void operator()(SwrContext* resampler) const { swr_free(&resampler); }
};
using CodecContextPtr = std::unique_ptr<AVCodecContext, CodecContextFree>;
using FramePtr = std::unique_ptr<AVFrame, FrameFree>;
using PacketPtr = std::unique_ptr<AVPacket, PacketFree>;
using ScalerPtr = std::unique_ptr<SwsContext, ScalerFree>;
using ResamplerPtr = std::unique_ptr<SwrContext, ResamplerFree>;

const std::string kOutOfMemory = "out of memory";
constexpr std::array<uint8_t, 5> kLevels{40, 84, 128, 172, 216};

std::string describe(const std::string& what, int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return what + ": " + text;
}

std::string layoutName(const AVChannelLayout& layout) {
    char text[128] = {};
    av_channel_layout_describe(&layout, text, sizeof text);
    return text;
}

// The output file: container context, the file it writes to, and the interleaving writer.
class Muxer {
public:
    Muxer() = default;
    Muxer(const Muxer&) = delete;
    Muxer& operator=(const Muxer&) = delete;
    ~Muxer() {
        if (_context == nullptr) return;
        if (_fileOpen) avio_closep(&_context->pb);
        avformat_free_context(_context);
    }

    std::string create(const std::string& path) {
        _path = path;
        int rc = avformat_alloc_output_context2(&_context, nullptr, nullptr, path.c_str());
        if (rc < 0 || _context == nullptr) return describe("no container for " + path, rc);
        return {};
    }
    AVFormatContext* context() const { return _context; }

    std::string canHold(const AVCodec* codec) const {
        if (avformat_query_codec(_context->oformat, codec->id, FF_COMPLIANCE_NORMAL) == 0)
            return std::string("container ") + _context->oformat->name + " cannot hold " + codec->name;
        return {};
    }

    std::string start() {
        if (!(_context->oformat->flags & AVFMT_NOFILE)) {
            int rc = avio_open(&_context->pb, _path.c_str(), AVIO_FLAG_WRITE);
            if (rc < 0) return describe("cannot open " + _path, rc);
            _fileOpen = true;
        }
        int rc = avformat_write_header(_context, nullptr);
        return rc < 0 ? describe("writing the header", rc) : std::string();
    }
    // Takes over the packet's contents.
    std::string write(AVPacket* packet) {
        int rc = av_interleaved_write_frame(_context, packet);
        return rc < 0 ? describe("writing a packet", rc) : std::string();
    }
    std::string finish() {
        int rc = av_write_trailer(_context);
        return rc < 0 ? describe("writing the trailer", rc) : std::string();
    }

private:
    std::string _path;
    AVFormatContext* _context = nullptr;
    bool _fileOpen = false;
};

// One encoded stream of the output: feeds its encoder frame by frame and muxes what comes out.
class StreamEncoder {
public:
    virtual ~StreamEncoder() = default;
    bool finished() const { return _finished; }
    // Presentation time of the next frame to encode (the end of the stream once all are sent).
    virtual int64_t nextPts() const = 0;
    AVRational timeBase() const { return _codec->time_base; }
    // Encodes the next frame, or drains the encoder when every frame has been sent.
    std::string encodeNext(Muxer& muxer) {
        if (!hasMoreFrames()) {
            _finished = true;
            return encode(muxer, nullptr);
        }
        FramePtr frame(av_frame_alloc());
        if (!frame) return kOutOfMemory;
        if (std::string error = makeNextFrame(frame.get()); !error.empty()) return error;
        return encode(muxer, frame.get());
    }

protected:
    virtual bool hasMoreFrames() const = 0;
    virtual std::string makeNextFrame(AVFrame* frame) = 0;

    std::string allocateContext(Muxer& muxer, const std::string& name, AVMediaType type) {
        const AVCodec* codec = avcodec_find_encoder_by_name(name.c_str());
        if (codec == nullptr || codec->type != type)
            return std::string("no ") + av_get_media_type_string(type) + " encoder named " + name;
        if (std::string error = muxer.canHold(codec); !error.empty()) return error;
        _encoder = codec;
        _codec.reset(avcodec_alloc_context3(codec));
        if (!_codec) return kOutOfMemory;
        _codec->thread_count = 1;
        if (muxer.context()->oformat->flags & AVFMT_GLOBALHEADER) _codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        return {};
    }

    // Opens the configured encoder and adds its stream to the container.
    std::string openAndAddStream(Muxer& muxer) {
        int rc = avcodec_open2(_codec.get(), nullptr, nullptr);
        if (rc < 0) return describe(std::string("opening encoder ") + _encoder->name, rc);
        _stream = avformat_new_stream(muxer.context(), nullptr);
        if (_stream == nullptr) return kOutOfMemory;
        rc = avcodec_parameters_from_context(_stream->codecpar, _codec.get());
        if (rc < 0) return describe("copying encoder parameters", rc);
        _stream->time_base = _codec->time_base;
        return {};
    }

    const AVCodec* _encoder = nullptr;
    CodecContextPtr _codec;
    AVStream* _stream = nullptr;

private:
    std::string encode(Muxer& muxer, AVFrame* frame) {
        int rc = avcodec_send_frame(_codec.get(), frame);
        if (rc < 0) return describe("encoding", rc);
        PacketPtr packet(av_packet_alloc());
        if (!packet) return kOutOfMemory;
        while (true) {
            rc = avcodec_receive_packet(_codec.get(), packet.get());
            if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return {};
            if (rc < 0) return describe("encoding", rc);
            av_packet_rescale_ts(packet.get(), _codec->time_base, _stream->time_base);
            packet->stream_index = _stream->index;
            if (std::string error = muxer.write(packet.get()); !error.empty()) return error;
        }
    }

    bool _finished = false;
};

// Pixel format for the encoder: the first it lists of 4:2:0 (even sizes only), 4:4:4, RGB or a palette.
AVPixelFormat choosePixelFormat(const AVCodec* codec, int width, int height) {
    const bool even = width % 2 == 0 && height % 2 == 0;
    auto acceptable = [even](AVPixelFormat format) {
        switch (format) {
        case AV_PIX_FMT_YUV420P:
        case AV_PIX_FMT_YUVJ420P: return even;
        case AV_PIX_FMT_YUV444P:
        case AV_PIX_FMT_YUVJ444P:
        case AV_PIX_FMT_RGB24:
        case AV_PIX_FMT_PAL8: return true;
        default: return false;
        }
    };
    if (codec->pix_fmts == nullptr) return even ? AV_PIX_FMT_YUV420P : AV_PIX_FMT_YUV444P;
    for (const AVPixelFormat* format = codec->pix_fmts; *format != AV_PIX_FMT_NONE; ++format) {
        if (acceptable(*format)) return *format;
    }
    return codec->pix_fmts[0];
}

std::string checkVideoSpec(const VideoTrackSpec& recipe) {
    if (recipe.width <= 0 || recipe.height <= 0) return "video size must be positive";
    if (recipe.frameCount <= 0) return "video needs at least one frame";
    if (recipe.frameRate.num <= 0 || recipe.frameRate.den <= 0) return "frame rate must be positive";
    if (recipe.sampleAspect.num <= 0 || recipe.sampleAspect.den <= 0) return "sample aspect must be positive";
    if (recipe.maxBFrames < 0) return "maxBFrames must not be negative";
    if (recipe.ptsMicroseconds.empty()) return {};
    if (recipe.ptsMicroseconds.size() != static_cast<size_t>(recipe.frameCount))
        return "ptsMicroseconds needs one time per frame";
    if (recipe.ptsMicroseconds.front() < 0) return "ptsMicroseconds must not be negative";
    for (size_t i = 1; i < recipe.ptsMicroseconds.size(); ++i) {
        if (recipe.ptsMicroseconds[i] <= recipe.ptsMicroseconds[i - 1]) return "ptsMicroseconds must increase";
    }
    return {};
}

class VideoEncoder : public StreamEncoder {
public:
    std::string open(Muxer& muxer, const VideoTrackSpec& recipe) {
        if (std::string error = checkVideoSpec(recipe); !error.empty()) return error;
        _recipe = recipe;
        if (std::string error = allocateContext(muxer, recipe.codec, AVMEDIA_TYPE_VIDEO); !error.empty())
            return error;
        AVCodecContext* codec = _codec.get();
        codec->width = recipe.width;
        codec->height = recipe.height;
        codec->pix_fmt = choosePixelFormat(_encoder, recipe.width, recipe.height);
        codec->time_base = chooseTimeBase();
        codec->framerate = recipe.frameRate;
        codec->sample_aspect_ratio = recipe.sampleAspect;
        codec->max_b_frames = recipe.maxBFrames;
        // Every frame has a new colour, which would sway x264's scene-cut and adaptive B-frame
        // choices; fixed choices give exactly the requested B-frames.
        if (recipe.codec == "libx264") av_opt_set(codec->priv_data, "x264-params", "scenecut=0:b-adapt=0", 0);
        if (std::string error = openAndAddStream(muxer); !error.empty()) return error;

        _stream->avg_frame_rate = recipe.frameRate;
        _stream->r_frame_rate = recipe.frameRate;
        _stream->sample_aspect_ratio = recipe.sampleAspect;
        if (recipe.rotationDegrees % 360 != 0) {
            auto* matrix = reinterpret_cast<int32_t*>(
                av_stream_new_side_data(_stream, AV_PKT_DATA_DISPLAYMATRIX, 9 * sizeof(int32_t)));
            if (matrix == nullptr) return kOutOfMemory;
            // Takes a clockwise angle; av_display_rotation_get() answers counter-clockwise.
            av_display_rotation_set(matrix, recipe.rotationDegrees);
        }
        if (codec->pix_fmt != AV_PIX_FMT_PAL8) {
            _scaler.reset(sws_getContext(recipe.width, recipe.height, AV_PIX_FMT_RGB24, recipe.width, recipe.height,
                                         codec->pix_fmt, SWS_BICUBIC, nullptr, nullptr, nullptr));
            if (!_scaler) return "no conversion from RGB to the encoder's pixel format";
        }
        return {};
    }

    int64_t nextPts() const override {
        if (_next < _recipe.frameCount) return ptsOfFrame(_next);
        return ptsOfFrame(_recipe.frameCount - 1) + 1;
    }

protected:
    bool hasMoreFrames() const override { return _next < _recipe.frameCount; }

    std::string makeNextFrame(AVFrame* frame) override {
        frame->format = _codec->pix_fmt;
        frame->width = _recipe.width;
        frame->height = _recipe.height;
        int rc = av_frame_get_buffer(frame, 0);
        if (rc < 0) return describe("allocating a video frame", rc);
        if (_scaler) {
            paintRGB(frameColour(_next));
            const uint8_t* source[1] = {_canvas.data()};
            const int stride[1] = {3 * _recipe.width};
            sws_scale(_scaler.get(), source, stride, 0, _recipe.height, frame->data, frame->linesize);
        } else {
            paintPalette(frame, frameColour(_next));
        }
        frame->pts = ptsOfFrame(_next);
        ++_next;
        return {};
    }

private:
    // Constant rate: one tick per frame. Variable rate: the coarsest base that holds every time exactly.
    AVRational chooseTimeBase() {
        if (_recipe.ptsMicroseconds.empty()) return av_inv_q(_recipe.frameRate);
        int64_t step = 0;
        for (int64_t pts : _recipe.ptsMicroseconds) step = std::gcd(step, pts);
        _microsecondsPerTick = step > 0 ? step : 1;
        AVRational base;
        av_reduce(&base.num, &base.den, _microsecondsPerTick, 1000000, INT32_MAX);
        return base;
    }

    int64_t ptsOfFrame(int index) const {
        if (_recipe.ptsMicroseconds.empty()) return index;
        return _recipe.ptsMicroseconds[index] / _microsecondsPerTick;
    }

    bool inMarker(int x, int y) const {
        return x < std::max(1, _recipe.width / 4) && y < std::max(1, _recipe.height / 4);
    }

    void paintRGB(RGB colour) {
        _canvas.resize(static_cast<size_t>(_recipe.width) * _recipe.height * 3);
        uint8_t* pixel = _canvas.data();
        for (int y = 0; y < _recipe.height; ++y) {
            for (int x = 0; x < _recipe.width; ++x, pixel += 3) {
                const RGB value = inMarker(x, y) ? RGB{0, 0, 0} : colour;
                pixel[0] = value.r;
                pixel[1] = value.g;
                pixel[2] = value.b;
            }
        }
    }

    // Index 0 is the black marker, index 1 the frame's colour.
    void paintPalette(AVFrame* frame, RGB colour) {
        for (int y = 0; y < _recipe.height; ++y) {
            uint8_t* row = frame->data[0] + static_cast<ptrdiff_t>(y) * frame->linesize[0];
            for (int x = 0; x < _recipe.width; ++x) row[x] = inMarker(x, y) ? 0 : 1;
        }
        auto* palette = reinterpret_cast<uint32_t*>(frame->data[1]);
        std::fill(palette, palette + 256, 0xFF000000u);
        palette[1] = 0xFF000000u | uint32_t(colour.r) << 16 | uint32_t(colour.g) << 8 | colour.b;
    }

    VideoTrackSpec _recipe;
    int64_t _microsecondsPerTick = 1;
    int _next = 0;
    ScalerPtr _scaler;
    std::vector<uint8_t> _canvas;
};

class AudioEncoder : public StreamEncoder {
public:
    ~AudioEncoder() override { av_channel_layout_uninit(&_layout); }

    std::string open(Muxer& muxer, const AudioTrackSpec& recipe) {
        if (recipe.sampleRate <= 0) return "sample rate must be positive";
        if (recipe.seconds <= 0) return "audio must last a while";
        int rc = av_channel_layout_from_mask(&_layout, recipe.channelLayout);
        if (rc < 0) return describe("channel layout", rc);
        _sampleRate = recipe.sampleRate;
        _totalSamples = std::llround(recipe.seconds * recipe.sampleRate);
        if (std::string error = allocateContext(muxer, recipe.codec, AVMEDIA_TYPE_AUDIO); !error.empty())
            return error;
        if (std::string error = checkEncoderTakes(_encoder); !error.empty()) return error;

        AVCodecContext* codec = _codec.get();
        codec->sample_fmt = _encoder->sample_fmts ? _encoder->sample_fmts[0] : AV_SAMPLE_FMT_S16;
        codec->sample_rate = recipe.sampleRate;
        codec->time_base = AVRational{1, recipe.sampleRate};
        rc = av_channel_layout_copy(&codec->ch_layout, &_layout);
        if (rc < 0) return describe("channel layout", rc);
        if (std::string error = openAndAddStream(muxer); !error.empty()) return error;

        const bool anySize = codec->frame_size == 0 || (_encoder->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE);
        _chunk = anySize ? 1024 : codec->frame_size;
        SwrContext* resampler = nullptr;
        rc = swr_alloc_set_opts2(&resampler, &_layout, codec->sample_fmt, _sampleRate, &_layout, AV_SAMPLE_FMT_DBLP,
                                 _sampleRate, 0, nullptr);
        _resampler.reset(resampler);
        if (rc < 0) return describe("sample conversion", rc);
        rc = swr_init(_resampler.get());
        return rc < 0 ? describe("sample conversion", rc) : std::string();
    }

    int64_t nextPts() const override { return _next; }

protected:
    bool hasMoreFrames() const override { return _next < _totalSamples; }

    std::string makeNextFrame(AVFrame* frame) override {
        const int count = static_cast<int>(std::min<int64_t>(_chunk, _totalSamples - _next));
        const int channels = _layout.nb_channels;
        std::vector<double> planes(static_cast<size_t>(count) * channels);
        std::vector<const uint8_t*> sources(channels);
        for (int c = 0; c < channels; ++c) {
            double* plane = planes.data() + static_cast<size_t>(c) * count;
            const double step = 2.0 * std::numbers::pi * channelFrequency(_layout.u.mask, c) / _sampleRate;
            for (int i = 0; i < count; ++i) plane[i] = kSineAmplitude * std::sin(step * double(_next + i));
            sources[c] = reinterpret_cast<const uint8_t*>(plane);
        }
        frame->format = _codec->sample_fmt;
        frame->sample_rate = _sampleRate;
        frame->nb_samples = count;
        int rc = av_channel_layout_copy(&frame->ch_layout, &_layout);
        if (rc >= 0) rc = av_frame_get_buffer(frame, 0);
        if (rc < 0) return describe("allocating an audio frame", rc);
        rc = swr_convert(_resampler.get(), frame->data, count, sources.data(), count);
        if (rc != count) return rc < 0 ? describe("converting samples", rc) : "sample conversion held samples back";
        frame->pts = _next;
        _next += count;
        return {};
    }

private:
    std::string checkEncoderTakes(const AVCodec* codec) const {
        if (codec->supported_samplerates != nullptr) {
            std::string rates;
            for (const int* rate = codec->supported_samplerates; *rate != 0; ++rate) {
                if (*rate == _sampleRate) return checkLayout(codec);
                rates += " " + std::to_string(*rate);
            }
            return std::string(codec->name) + " does not take " + std::to_string(_sampleRate) + " Hz; it takes" + rates;
        }
        return checkLayout(codec);
    }

    std::string checkLayout(const AVCodec* codec) const {
        if (codec->ch_layouts == nullptr) return {};
        std::string layouts;
        for (const AVChannelLayout* layout = codec->ch_layouts; layout->nb_channels != 0; ++layout) {
            if (av_channel_layout_compare(layout, &_layout) == 0) return {};
            layouts += " " + layoutName(*layout);
        }
        return std::string(codec->name) + " does not take channel layout " + layoutName(_layout) + "; it takes" +
               layouts;
    }

    AVChannelLayout _layout{};
    int _sampleRate = 0;
    int64_t _totalSamples = 0;
    int64_t _next = 0;
    int _chunk = 0;
    ResamplerPtr _resampler;
};

// Cover art: a picture stream with a single packet holding the JPEG or PNG bytes.
class AttachedPicture {
public:
    std::string add(Muxer& muxer, const std::vector<uint8_t>& bytes) {
        _bytes = &bytes;
        std::shared_ptr<const Bitmap> picture = BitmapCodec::bitmapWithData(bytes);
        if (!picture) return "cover art is neither JPEG nor PNG";
        const bool png = bytes[0] == 0x89;
        _stream = avformat_new_stream(muxer.context(), nullptr);
        if (_stream == nullptr) return kOutOfMemory;
        _stream->disposition = AV_DISPOSITION_ATTACHED_PIC;
        _stream->time_base = AVRational{1, 90000};
        _stream->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
        _stream->codecpar->codec_id = png ? AV_CODEC_ID_PNG : AV_CODEC_ID_MJPEG;
        _stream->codecpar->width = picture->width();
        _stream->codecpar->height = picture->height();
        return {};
    }

    std::string write(Muxer& muxer) const {
        PacketPtr packet(av_packet_alloc());
        if (!packet) return kOutOfMemory;
        int rc = av_new_packet(packet.get(), static_cast<int>(_bytes->size()));
        if (rc < 0) return describe("cover art packet", rc);
        std::memcpy(packet->data, _bytes->data(), _bytes->size());
        packet->stream_index = _stream->index;
        packet->flags |= AV_PKT_FLAG_KEY;
        packet->pts = packet->dts = 0;
        return muxer.write(packet.get());
    }

private:
    const std::vector<uint8_t>* _bytes = nullptr;
    AVStream* _stream = nullptr;
};

std::string writeFile(const std::string& path, const MediaFileSpec& recipe) {
    if (!recipe.video && !recipe.audio) return "a media file needs video or audio";
    Muxer muxer;
    if (std::string error = muxer.create(path); !error.empty()) return error;
    VideoEncoder video;
    AudioEncoder audio;
    AttachedPicture cover;
    std::vector<StreamEncoder*> tracks;
    if (recipe.video) {
        if (std::string error = video.open(muxer, *recipe.video); !error.empty()) return error;
        tracks.push_back(&video);
    }
    if (recipe.audio) {
        if (std::string error = audio.open(muxer, *recipe.audio); !error.empty()) return error;
        tracks.push_back(&audio);
    }
    const bool hasCover = !recipe.coverArtJPEGorPNG.empty();
    if (hasCover) {
        if (std::string error = cover.add(muxer, recipe.coverArtJPEGorPNG); !error.empty()) return error;
    }
    if (std::string error = muxer.start(); !error.empty()) return error;
    if (hasCover) {
        if (std::string error = cover.write(muxer); !error.empty()) return error;
    }
    while (true) {
        StreamEncoder* earliest = nullptr;
        for (StreamEncoder* track : tracks) {
            if (track->finished()) continue;
            if (earliest == nullptr ||
                av_compare_ts(track->nextPts(), track->timeBase(), earliest->nextPts(), earliest->timeBase()) < 0)
                earliest = track;
        }
        if (earliest == nullptr) break;
        if (std::string error = earliest->encodeNext(muxer); !error.empty()) return error;
    }
    return muxer.finish();
}

}  // namespace

std::string writeMediaFile(const std::string& path, const MediaFileSpec& recipe) {
    // Encoders report statistics at the info level; tests only want to hear of errors.
    av_log_set_level(AV_LOG_ERROR);
    std::string error = writeFile(path, recipe);
    if (!error.empty()) std::remove(path.c_str());
    return error;
}

std::string writeAnimatedGif(const std::string& path, int width, int height, int frameCount,
                             int delayCentiseconds) {
    if (delayCentiseconds <= 0) return "GIF frame delay must be positive";
    VideoTrackSpec video;
    video.width = width;
    video.height = height;
    video.frameCount = frameCount;
    video.frameRate = AVRational{100, delayCentiseconds};
    video.codec = "gif";
    MediaFileSpec recipe;
    recipe.video = video;
    return writeMediaFile(path, recipe);
}

RGB frameColour(int index) {
    // Base-5 digits of the index, each added to the ones below it: every step changes every channel.
    const int i = ((index % kFrameColourPeriod) + kFrameColourPeriod) % kFrameColourPeriod;
    const int r = i % 5;
    const int g = (i + i / 5) % 5;
    const int b = (i + i / 25) % 5;
    return RGB{kLevels[r], kLevels[g], kLevels[b]};
}

int nearestFrameIndex(RGB decoded, int frameCount) {
    int best = 0;
    int bestDistance = INT32_MAX;
    for (int i = 0; i < std::min(frameCount, kFrameColourPeriod); ++i) {
        const RGB colour = frameColour(i);
        const int dr = decoded.r - colour.r, dg = decoded.g - colour.g, db = decoded.b - colour.b;
        const int distance = dr * dr + dg * dg + db * db;
        if (distance < bestDistance) {
            bestDistance = distance;
            best = i;
        }
    }
    return best;
}

double channelFrequency(uint64_t channelLayout, int channel) {
    AVChannelLayout layout{};
    if (av_channel_layout_from_mask(&layout, channelLayout) < 0) return 220.0 * (channel + 1);
    const bool lowFrequency = av_channel_layout_channel_from_index(&layout, channel) == AV_CHAN_LOW_FREQUENCY;
    av_channel_layout_uninit(&layout);
    return lowFrequency ? kLowFrequencyHz : 220.0 * (channel + 1);
}

std::vector<uint8_t> solidJPEG(int width, int height, RGB colour) {
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4);
    for (size_t i = 0; i < pixels.size(); i += 4) {
        pixels[i] = colour.r;
        pixels[i + 1] = colour.g;
        pixels[i + 2] = colour.b;
        pixels[i + 3] = 255;
    }
    std::shared_ptr<const Bitmap> bitmap = Bitmap::createWithPixels(width, height, std::move(pixels));
    return bitmap ? BitmapCodec::JPEGRepresentation(*bitmap, 90) : std::vector<uint8_t>();
}

}  // namespace qm::test
