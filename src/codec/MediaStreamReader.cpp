#include "codec/MediaStreamReader.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace qm {

namespace {

std::string describe(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof(text));
    return text;
}

void setError(std::string* error, std::string text) {
    if (error) *error = std::move(text);
}

AVCodecContext* openDecoder(const AVStream* stream, int threads, std::string* error) {
    const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
    if (!codec) {
        setError(error, "no decoder for " + std::string(avcodec_get_name(stream->codecpar->codec_id)));
        return nullptr;
    }
    AVCodecContext* context = avcodec_alloc_context3(codec);
    if (!context) return nullptr;
    int status = avcodec_parameters_to_context(context, stream->codecpar);
    if (status >= 0) {
        context->pkt_timebase = stream->time_base;
        context->thread_count = threads;
        status = avcodec_open2(context, codec, nullptr);
    }
    if (status < 0) {
        setError(error, "cannot open the decoder: " + describe(status));
        avcodec_free_context(&context);
    }
    return context;
}

}  // namespace

void AVFrameDeleter::operator()(AVFrame* frame) const { av_frame_free(&frame); }

std::unique_ptr<MediaStreamReader> MediaStreamReader::open(const std::string& path, std::string* error) {
    std::unique_ptr<MediaStreamReader> reader(new MediaStreamReader());
    // A path is a local file whatever its name looks like, and a playlist in it may not reach out.
    AVDictionary* options = nullptr;
    av_dict_set(&options, "protocol_whitelist", "file", 0);
    int status = avformat_open_input(&reader->_format, ("file:" + path).c_str(), nullptr, &options);
    av_dict_free(&options);
    if (status < 0) {
        setError(error, describe(status));
        return nullptr;
    }
    status = avformat_find_stream_info(reader->_format, nullptr);
    if (status < 0) {
        setError(error, describe(status));
        return nullptr;
    }
    reader->_packet = av_packet_alloc();
    if (!reader->_packet) return nullptr;
    return reader;
}

MediaStreamReader::~MediaStreamReader() {
    av_packet_free(&_packet);
    avcodec_free_context(&_decoder);
    avformat_close_input(&_format);
}

int MediaStreamReader::bestAudioStream() const {
    return std::max(-1, av_find_best_stream(_format, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0));
}

int MediaStreamReader::bestVideoStream() const {
    int best = -1;
    int64_t bestArea = 0;
    for (unsigned i = 0; i < _format->nb_streams; ++i) {
        const AVStream* stream = _format->streams[i];
        if (stream->codecpar->codec_type != AVMEDIA_TYPE_VIDEO) continue;
        if (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) continue;
        const int64_t area = static_cast<int64_t>(stream->codecpar->width) * stream->codecpar->height;
        if (best < 0 || area > bestArea) {
            best = static_cast<int>(i);
            bestArea = area;
        }
    }
    return best;
}

int MediaStreamReader::attachedPictureStream() const {
    for (unsigned i = 0; i < _format->nb_streams; ++i) {
        const AVStream* stream = _format->streams[i];
        if ((stream->disposition & AV_DISPOSITION_ATTACHED_PIC) && stream->attached_pic.size > 0) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

bool MediaStreamReader::selectStream(int index, int threads, std::string* error) {
    if (index < 0 || index >= static_cast<int>(_format->nb_streams)) return false;
    for (unsigned i = 0; i < _format->nb_streams; ++i) {
        _format->streams[i]->discard = static_cast<int>(i) == index ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    }
    avcodec_free_context(&_decoder);
    _decoder = openDecoder(_format->streams[index], threads, error);
    _streamIndex = index;
    return _decoder != nullptr;
}

AVStream* MediaStreamReader::stream() const { return _streamIndex < 0 ? nullptr : _format->streams[_streamIndex]; }

AVFramePtr MediaStreamReader::decodeNext() {
    if (!_decoder || _finished) return nullptr;
    AVFramePtr frame(av_frame_alloc());
    if (!frame) return nullptr;
    for (;;) {
        const int received = avcodec_receive_frame(_decoder, frame.get());
        if (received >= 0) {
            // An audio decoder may label a frame with the rate it had before that frame's header.
            if (_decoder->codec_type == AVMEDIA_TYPE_AUDIO) frame->sample_rate = _decoder->sample_rate;
            return frame;
        }
        // Only the decoder's own end, or a request for more after the flush, ends the stream. An
        // error costs only its own picture: frames the decoder still holds come after it.
        if (received == AVERROR_EOF || (_draining && received == AVERROR(EAGAIN))) {
            _finished = true;
            return nullptr;
        }
        if (_draining) {
            // Each error costs a held frame at most; a decoder stuck on errors must not loop.
            constexpr int kMostDrainErrors = 64;
            if (++_drainErrors > kMostDrainErrors) {
                _finished = true;
                return nullptr;
            }
            continue;
        }
        if (av_read_frame(_format, _packet) < 0) {
            _draining = true;
            avcodec_send_packet(_decoder, nullptr);
            continue;
        }
        if (_packet->stream_index == _streamIndex) avcodec_send_packet(_decoder, _packet);
        av_packet_unref(_packet);
    }
}

bool MediaStreamReader::seek(int64_t streamTime) {
    if (!_decoder) return false;
    if (av_seek_frame(_format, _streamIndex, streamTime, AVSEEK_FLAG_BACKWARD) < 0) return false;
    avcodec_flush_buffers(_decoder);
    _draining = false;
    _drainErrors = 0;
    _finished = false;
    return true;
}

AVFramePtr MediaStreamReader::decodeSinglePacket(const AVStream* stream, const AVPacket* packet) {
    AVCodecContext* decoder = openDecoder(stream, 1, nullptr);
    if (!decoder) return nullptr;
    AVFramePtr frame(av_frame_alloc());
    const bool sent = frame && avcodec_send_packet(decoder, packet) >= 0 && avcodec_send_packet(decoder, nullptr) >= 0;
    const bool received = sent && avcodec_receive_frame(decoder, frame.get()) >= 0;
    avcodec_free_context(&decoder);
    return received ? std::move(frame) : nullptr;
}

}  // namespace qm
