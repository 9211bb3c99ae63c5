#include "codec/StreamEncoder.h"

#include "codec/MovieMuxer.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

namespace qm {

namespace {

constexpr AVRational kVideoTimeBase{1, 90000};
// Frame size for encoders that take any number of samples (PCM).
constexpr int kVariableFrameSize = 1024;

const char* audioEncoderName(MovieAudioCodec codec) {
    switch (codec) {
        case MovieAudioCodec::AAC:
            return "aac";
        case MovieAudioCodec::MP3:
            return "libmp3lame";
        case MovieAudioCodec::IMAADPCM:
            return "adpcm_ima_wav";
        case MovieAudioCodec::LinearPCM:
            return "pcm_s16le";
    }
    return nullptr;
}

AVSampleFormat packedSampleFormat(const AudioStreamBasicDescription& description) {
    if (description.mFormatFlags & kAudioFormatFlagIsFloat) return AV_SAMPLE_FMT_FLT;
    switch (description.mBitsPerChannel) {
        case 8:
            return AV_SAMPLE_FMT_U8;
        case 16:
            return AV_SAMPLE_FMT_S16;
        case 32:
            return AV_SAMPLE_FMT_S32;
    }
    return AV_SAMPLE_FMT_NONE;
}

bool sameLayout(const AudioStreamBasicDescription& a, const AudioStreamBasicDescription& b) {
    return a.mSampleRate == b.mSampleRate && a.mFormatFlags == b.mFormatFlags &&
           a.mBitsPerChannel == b.mBitsPerChannel && a.mChannelsPerFrame == b.mChannelsPerFrame;
}

}  // namespace

StreamEncoder::~StreamEncoder() { avcodec_free_context(&_context); }

bool StreamEncoder::openAndAddStream(const char* codecName, void* options) {
    auto** dictionary = static_cast<AVDictionary**>(options);
    if (_muxer->wantsGlobalHeader()) _context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    const int status = avcodec_open2(_context, _context->codec, dictionary);
    av_dict_free(dictionary);
    if (status < 0) {
        _muxer->fail(std::string("Can not open the ") + codecName + " encoder: " + describeFFmpegError(status));
        return false;
    }
    _streamIndex = _muxer->addStream(_context);
    if (_streamIndex < 0) {
        _muxer->fail("Can not add a stream to the file");
        return false;
    }
    return true;
}

bool StreamEncoder::encode(const AVFrame* frame) {
    const int status = avcodec_send_frame(_context, frame);
    if (status < 0 && status != AVERROR_EOF) {
        _muxer->fail(std::string("Encoder refused media: ") + describeFFmpegError(status));
        return false;
    }
    return _muxer->writeEncodedPackets(_context, _streamIndex, _packetDuration);
}

bool StreamEncoder::flush() { return encode(nullptr); }

std::unique_ptr<VideoEncoder> VideoEncoder::create(std::shared_ptr<MovieMuxer> muxer,
                                                   const MovieVideoSettings& settings) {
    const AVCodec* codec = avcodec_find_encoder_by_name("libx264");
    AVCodecContext* context = codec ? avcodec_alloc_context3(codec) : nullptr;
    if (!context) {
        muxer->fail("The libx264 encoder is missing");
        return nullptr;
    }
    std::unique_ptr<VideoEncoder> encoder(new VideoEncoder(muxer, context));
    context->width = settings.width;
    context->height = settings.height;
    context->pix_fmt = AV_PIX_FMT_YUV420P;
    context->time_base = kVideoTimeBase;
    context->framerate = av_d2q(settings.frameRate, 1001000);
    context->bit_rate = settings.averageBitRate;
    context->gop_size = settings.maxKeyFrameInterval;
    // What RenderContext::renderYUV420 writes.
    context->colorspace = AVCOL_SPC_BT709;
    context->color_primaries = AVCOL_PRI_BT709;
    context->color_trc = AVCOL_TRC_BT709;
    context->color_range = AVCOL_RANGE_MPEG;
    AVDictionary* options = nullptr;
    av_dict_set(&options, "preset", "veryfast", 0);
    if (!encoder->openAndAddStream("libx264", &options)) return nullptr;
    encoder->_packetDuration = av_rescale_q(1, av_inv_q(context->framerate), kVideoTimeBase);
    return encoder;
}

int VideoEncoder::pixelFormat() const { return _context->pix_fmt; }

bool VideoEncoder::encodePixelBuffer(const PixelBuffer& buffer, int64_t pts90k) {
    AVFrame* frame = av_frame_clone(buffer.avFrame());
    if (!frame) {
        _muxer->fail("Out of memory");
        return false;
    }
    frame->pts = pts90k;
    frame->pict_type = AV_PICTURE_TYPE_NONE;
    const bool encoded = encode(frame);
    av_frame_free(&frame);
    return encoded;
}

std::unique_ptr<AudioEncoder> AudioEncoder::create(std::shared_ptr<MovieMuxer> muxer,
                                                   const MovieAudioSettings& settings) {
    const char* name = audioEncoderName(settings.codec);
    const AVCodec* codec = name ? avcodec_find_encoder_by_name(name) : nullptr;
    AVCodecContext* context = codec ? avcodec_alloc_context3(codec) : nullptr;
    if (!context) {
        muxer->fail(std::string("The audio encoder is missing: ") + (name ? name : "?"));
        return nullptr;
    }
    std::unique_ptr<AudioEncoder> encoder(new AudioEncoder(muxer, context));
    context->sample_rate = settings.sampleRate;
    av_channel_layout_default(&context->ch_layout, settings.channelCount);
    context->sample_fmt = codec->sample_fmts ? codec->sample_fmts[0] : AV_SAMPLE_FMT_S16;
    context->time_base = AVRational{1, settings.sampleRate};
    AVDictionary* options = nullptr;
    if (!encoder->openAndAddStream(name, &options)) return nullptr;
    const bool anySize = (codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE) || context->frame_size <= 0;
    encoder->_frameSize = anySize ? kVariableFrameSize : context->frame_size;
    encoder->_fifo = av_audio_fifo_alloc(context->sample_fmt, settings.channelCount, encoder->_frameSize);
    if (!encoder->_fifo) {
        muxer->fail("Out of memory");
        return nullptr;
    }
    return encoder;
}

AudioEncoder::~AudioEncoder() {
    swr_free(&_converter);
    if (_fifo) av_audio_fifo_free(_fifo);
}

bool AudioEncoder::prepareConverter(const AudioStreamBasicDescription& description) {
    if (_converter && sameLayout(description, _converterInput)) return true;
    swr_free(&_converter);
    AVChannelLayout inputLayout{};
    av_channel_layout_default(&inputLayout, static_cast<int>(description.mChannelsPerFrame));
    const int status = swr_alloc_set_opts2(&_converter, &_context->ch_layout, _context->sample_fmt,
                                           _context->sample_rate, &inputLayout, packedSampleFormat(description),
                                           static_cast<int>(description.mSampleRate), 0, nullptr);
    av_channel_layout_uninit(&inputLayout);
    if (status < 0 || swr_init(_converter) < 0) {
        swr_free(&_converter);
        _muxer->fail("Can not convert the audio to the encoder's format");
        return false;
    }
    _converterInput = description;
    return true;
}

bool AudioEncoder::convertIntoFifo(const uint8_t* samples, int sampleCount) {
    const int capacity = swr_get_out_samples(_converter, sampleCount);
    if (capacity <= 0) return capacity == 0;
    uint8_t** planes = nullptr;
    if (av_samples_alloc_array_and_samples(&planes, nullptr, _context->ch_layout.nb_channels, capacity,
                                           _context->sample_fmt, 0) < 0) {
        _muxer->fail("Out of memory");
        return false;
    }
    const uint8_t* input[] = {samples};
    const int converted = swr_convert(_converter, planes, capacity, samples ? input : nullptr, sampleCount);
    const bool stored = converted >= 0 && av_audio_fifo_write(_fifo, reinterpret_cast<void**>(planes), converted) >= 0;
    av_freep(&planes[0]);
    av_freep(&planes);
    if (!stored) _muxer->fail("Can not convert the audio to the encoder's format");
    return stored;
}

bool AudioEncoder::encodeSampleBuffer(const MediaSampleBuffer& buffer) {
    const AudioStreamBasicDescription& description = buffer.format().streamDescription();
    if (!prepareConverter(description)) return false;
    return convertIntoFifo(buffer.bytes().data(), static_cast<int>(buffer.sampleCount())) && encodeFromFifo(false);
}

bool AudioEncoder::encodeFromFifo(bool final) {
    const bool wholeFramesOnly =
        !(_context->codec->capabilities & (AV_CODEC_CAP_SMALL_LAST_FRAME | AV_CODEC_CAP_VARIABLE_FRAME_SIZE)) &&
        _context->frame_size > 0;
    while (av_audio_fifo_size(_fifo) >= _frameSize || (final && av_audio_fifo_size(_fifo) > 0)) {
        const int available = std::min(av_audio_fifo_size(_fifo), _frameSize);
        AVFrame* frame = av_frame_alloc();
        if (!frame) {
            _muxer->fail("Out of memory");
            return false;
        }
        frame->format = _context->sample_fmt;
        frame->sample_rate = _context->sample_rate;
        av_channel_layout_copy(&frame->ch_layout, &_context->ch_layout);
        frame->nb_samples = wholeFramesOnly ? _frameSize : available;
        bool encoded =
            av_frame_get_buffer(frame, 0) >= 0 &&
            av_audio_fifo_read(_fifo, reinterpret_cast<void**>(frame->extended_data), available) == available;
        if (encoded) {
            if (frame->nb_samples > available) {
                av_samples_set_silence(frame->extended_data, available, frame->nb_samples - available,
                                       frame->ch_layout.nb_channels, _context->sample_fmt);
            }
            frame->pts = _samplesEncoded;
            _samplesEncoded += frame->nb_samples;
            encoded = encode(frame);
        } else {
            _muxer->fail("Out of memory");
        }
        av_frame_free(&frame);
        if (!encoded) return false;
    }
    return true;
}

bool AudioEncoder::flush() {
    if (_converter && !convertIntoFifo(nullptr, 0)) return false;
    return encodeFromFifo(true) && StreamEncoder::flush();
}

}  // namespace qm
