#pragma once

// Reads an exported file back with FFmpeg: what a player would see.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

namespace qm::test {

struct DecodedVideo {
    std::string codec;
    int width = 0, height = 0;
    int frameCount = 0;
    // Present time and mean luma of each frame, and the times of frames whose mean luma is above
    // 200 (white).
    std::vector<double> frameTimes;
    std::vector<double> meanLuma;
    std::vector<double> whiteFrameTimes;
};

struct DecodedAudio {
    std::string codec;
    int sampleRate = 0, channels = 0;
    int64_t sampleCount = 0;
    // Times where channel 0 turns loud (above 0.2) after at least half a second below that.
    std::vector<double> onsetTimes;
    double peak = 0;
};

struct DecodedMedia {
    std::string error;
    double durationSeconds = 0;
    std::optional<DecodedVideo> video;
    std::optional<DecodedAudio> audio;
};

namespace detail {

inline double seconds(int64_t pts, AVRational timeBase) {
    return pts == AV_NOPTS_VALUE ? 0.0 : static_cast<double>(pts) * av_q2d(timeBase);
}

class StreamDecoder {
public:
    StreamDecoder(const AVStream* stream) : _stream(stream) {
        const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
        _context = avcodec_alloc_context3(codec);
        avcodec_parameters_to_context(_context, stream->codecpar);
        _context->pkt_timebase = stream->time_base;
        _open = avcodec_open2(_context, codec, nullptr) >= 0;
    }
    ~StreamDecoder() {
        swr_free(&_toFloat);
        avcodec_free_context(&_context);
    }
    bool isOpen() const { return _open; }
    const AVCodecContext* context() const { return _context; }

    void decode(const AVPacket* packet, DecodedMedia& media) {
        avcodec_send_packet(_context, packet);
        AVFrame* frame = av_frame_alloc();
        while (avcodec_receive_frame(_context, frame) >= 0) {
            const double time = seconds(frame->best_effort_timestamp, _stream->time_base);
            if (_context->codec_type == AVMEDIA_TYPE_VIDEO) {
                takePicture(*frame, time, *media.video);
            } else {
                takeSound(*frame, time, *media.audio);
            }
            av_frame_unref(frame);
        }
        av_frame_free(&frame);
    }

private:
    static void takePicture(const AVFrame& frame, double time, DecodedVideo& video) {
        ++video.frameCount;
        video.frameTimes.push_back(time);
        double sum = 0;
        for (int y = 0; y < frame.height; ++y) {
            for (int x = 0; x < frame.width; ++x) sum += frame.data[0][y * frame.linesize[0] + x];
        }
        video.meanLuma.push_back(sum / (frame.width * frame.height));
        if (video.meanLuma.back() > 200) video.whiteFrameTimes.push_back(time);
    }

    void takeSound(const AVFrame& frame, double time, DecodedAudio& audio) {
        audio.sampleCount += frame.nb_samples;
        const int channels = frame.ch_layout.nb_channels;
        if (!_toFloat) {
            AVChannelLayout layout{};
            av_channel_layout_copy(&layout, &frame.ch_layout);
            swr_alloc_set_opts2(&_toFloat, &layout, AV_SAMPLE_FMT_FLT, frame.sample_rate, &layout,
                                static_cast<AVSampleFormat>(frame.format), frame.sample_rate, 0, nullptr);
            swr_init(_toFloat);
            av_channel_layout_uninit(&layout);
        }
        std::vector<float> samples(static_cast<size_t>(frame.nb_samples) * static_cast<size_t>(channels));
        uint8_t* out[] = {reinterpret_cast<uint8_t*>(samples.data())};
        const int count = swr_convert(_toFloat, out, frame.nb_samples, const_cast<const uint8_t**>(frame.extended_data),
                                      frame.nb_samples);
        for (int i = 0; i < count; ++i) {
            const double level = std::fabs(samples[static_cast<size_t>(i) * static_cast<size_t>(channels)]);
            audio.peak = std::max(audio.peak, level);
            if (level > 0.2) {
                if (_samplesSinceLoud >= frame.sample_rate / 2) {
                    audio.onsetTimes.push_back(time + static_cast<double>(i) / frame.sample_rate);
                }
                _samplesSinceLoud = 0;
            } else {
                ++_samplesSinceLoud;
            }
        }
    }

    const AVStream* _stream;
    AVCodecContext* _context = nullptr;
    SwrContext* _toFloat = nullptr;
    bool _open = false;
    // Starts as if quiet had lasted: a sound at the very start is an onset too.
    int64_t _samplesSinceLoud = INT64_MAX / 2;
};

}  // namespace detail

inline DecodedMedia decodeMedia(const std::string& path) {
    DecodedMedia media;
    AVFormatContext* format = nullptr;
    if (avformat_open_input(&format, path.c_str(), nullptr, nullptr) < 0 ||
        avformat_find_stream_info(format, nullptr) < 0) {
        media.error = "can not open " + path;
        avformat_close_input(&format);
        return media;
    }
    media.durationSeconds = format->duration == AV_NOPTS_VALUE ? 0 : format->duration / double(AV_TIME_BASE);
    std::vector<std::unique_ptr<detail::StreamDecoder>> decoders(format->nb_streams);
    for (unsigned i = 0; i < format->nb_streams; ++i) {
        const AVStream* stream = format->streams[i];
        const AVMediaType type = stream->codecpar->codec_type;
        if (type != AVMEDIA_TYPE_VIDEO && type != AVMEDIA_TYPE_AUDIO) continue;
        decoders[i] = std::make_unique<detail::StreamDecoder>(stream);
        if (!decoders[i]->isOpen()) media.error = "no decoder for stream " + std::to_string(i);
        const std::string codec = avcodec_get_name(stream->codecpar->codec_id);
        if (type == AVMEDIA_TYPE_VIDEO) {
            media.video =
                DecodedVideo{.codec = codec, .width = stream->codecpar->width, .height = stream->codecpar->height};
        } else {
            media.audio = DecodedAudio{.codec = codec,
                                       .sampleRate = stream->codecpar->sample_rate,
                                       .channels = stream->codecpar->ch_layout.nb_channels};
        }
    }
    AVPacket* packet = av_packet_alloc();
    while (av_read_frame(format, packet) >= 0) {
        if (auto& decoder = decoders[static_cast<size_t>(packet->stream_index)]) decoder->decode(packet, media);
        av_packet_unref(packet);
    }
    for (auto& decoder : decoders) {
        if (decoder) decoder->decode(nullptr, media);
    }
    av_packet_free(&packet);
    avformat_close_input(&format);
    return media;
}

}  // namespace qm::test
