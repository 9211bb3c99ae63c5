#include "codec/QVDemuxerContext.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include "codec/QVTimebase.h"

namespace qm {

namespace {

constexpr AVRational kTimebase{1, static_cast<int>(QVTimebase)};

// The stream's end, from the file's start.
int64_t streamLength(const AVFormatContext* format, const AVStream* stream) {
    if (stream->duration != AV_NOPTS_VALUE && stream->duration > 0) {
        int64_t end = stream->duration;
        if (stream->start_time != AV_NOPTS_VALUE) end += stream->start_time;
        const int64_t fileStart = format->start_time != AV_NOPTS_VALUE
                                      ? av_rescale_q(format->start_time, AV_TIME_BASE_Q, stream->time_base)
                                      : 0;
        return av_rescale_q(end - fileStart, stream->time_base, kTimebase);
    }
    if (format->duration != AV_NOPTS_VALUE && format->duration > 0) {
        return av_rescale_q(format->duration, AV_TIME_BASE_Q, kTimebase);
    }
    return 0;
}

double rateOf(AVRational rate) { return rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 0.0; }

}  // namespace

std::shared_ptr<QVDemuxerContext> QVDemuxerContext::createWithFilename(const std::string& path, std::string* error) {
    std::string reason;
    auto reader = MediaStreamReader::open(path, &reason);
    if (!reader) {
        if (error) *error = reason.empty() ? "cannot open the file" : reason;
        return nullptr;
    }
    std::shared_ptr<QVDemuxerContext> context(new QVDemuxerContext());
    context->_path = path;
    const AVFormatContext* format = reader->format();
    if (format->start_time != AV_NOPTS_VALUE) context->_startTime = av_rescale_q(format->start_time, AV_TIME_BASE_Q, kTimebase);
    context->readAttachedPicture(*reader);

    const int audioIndex = reader->bestAudioStream();
    const int videoIndex = reader->bestVideoStream();
    std::string videoReason;
    if (videoIndex >= 0) {
        // The first reader decodes video; audio, if any, gets a demuxer of its own.
        auto audioReader = audioIndex >= 0 ? MediaStreamReader::open(path, &reason) : nullptr;
        context->openVideo(std::move(reader), videoIndex, &videoReason);
        if (audioReader) context->openAudio(std::move(audioReader), audioIndex, &reason);
    } else if (audioIndex >= 0) {
        context->openAudio(std::move(reader), audioIndex, &reason);
    }
    if (!context->_audio && !context->_video) {
        if (error) {
            *error = !videoReason.empty() ? videoReason
                     : audioIndex >= 0    ? reason
                                          : "the file has no audio or video stream";
        }
        return nullptr;
    }
    return context;
}

bool QVDemuxerContext::openAudio(std::unique_ptr<MediaStreamReader> reader, int index, std::string* error) {
    if (!reader->selectStream(index, 1, error)) return false;
    const AVCodecContext* decoder = reader->decoder();
    if (decoder->sample_rate <= 0 || decoder->ch_layout.nb_channels <= 0) {
        if (error) *error = "the audio stream has no sample rate or channels";
        return false;
    }
    _sampleRate = decoder->sample_rate;
    _channels = decoder->ch_layout.nb_channels;
    _sampleFormat = decoder->sample_fmt != AV_SAMPLE_FMT_NONE ? decoder->sample_fmt : reader->stream()->codecpar->format;
    const bool hasMask = decoder->ch_layout.order == AV_CHANNEL_ORDER_NATIVE && decoder->ch_layout.u.mask != 0;
    _channelLayout = hasMask ? static_cast<int64_t>(decoder->ch_layout.u.mask)
                             : QVAudioFrame2::defaultChannelLayoutByChannel(_channels);
    _audioLength = streamLength(reader->format(), reader->stream());
    _audio = std::move(reader);
    return true;
}

bool QVDemuxerContext::openVideo(std::unique_ptr<MediaStreamReader> reader, int index, std::string* error) {
    if (!reader->selectStream(index, 0, error)) return false;
    AVStream* stream = reader->stream();
    const int width = stream->codecpar->width;
    const int height = stream->codecpar->height;
    if (width <= 0 || height <= 0) {
        if (error) *error = "the video stream has no picture size";
        return false;
    }
    double displayWidth = width;
    const AVRational aspect = av_guess_sample_aspect_ratio(reader->format(), stream, nullptr);
    if (aspect.num > 0 && aspect.den > 0) displayWidth = width * av_q2d(aspect);
    const auto* matrix = reinterpret_cast<const int32_t*>(av_stream_get_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr));
    const int rotation = VideoDisplayTransform::clockwiseRotationOfDisplayMatrix(matrix);
    _displayTransform = std::make_unique<VideoDisplayTransform>(rotation, std::max(1, static_cast<int>(displayWidth)), height);
    const bool quarterTurn = rotation == 90 || rotation == 270;
    _displaySize = quarterTurn ? Size{static_cast<double>(height), displayWidth} : Size{displayWidth, static_cast<double>(height)};
    _frameRate = rateOf(stream->avg_frame_rate);
    if (_frameRate == 0.0) _frameRate = rateOf(stream->r_frame_rate);
    _videoLength = streamLength(reader->format(), stream);
    _video = std::move(reader);
    return true;
}

void QVDemuxerContext::readAttachedPicture(const MediaStreamReader& reader) {
    const int index = reader.attachedPictureStream();
    if (index < 0) return;
    const AVStream* stream = reader.format()->streams[index];
    AVFramePtr frame = MediaStreamReader::decodeSinglePacket(stream, &stream->attached_pic);
    if (frame) _attachedPicture = QVVideoFrame::create(PixelBuffer::createWithAVFrame(frame.get()), 0);
}

int64_t QVDemuxerContext::timestampOf(const MediaStreamReader& reader, int64_t streamTime) const {
    return av_rescale_q(streamTime, reader.stream()->time_base, kTimebase) - _startTime;
}

void QVDemuxerContext::disableVideoStream(bool disable) { _videoDisabled = disable; }

void QVDemuxerContext::seekToTime(int64_t timestamp) {
    for (MediaStreamReader* reader : {_audio.get(), _video.get()}) {
        if (!reader) continue;
        reader->seek(av_rescale_q(timestamp + _startTime, kTimebase, reader->stream()->time_base));
    }
    _nextAudioTimestamp = timestamp;
    _nextVideoTimestamp = timestamp;
    _alignedAudio.clear();
    _audioAligner.restartAt(timestamp);
}

std::shared_ptr<QVAudioFrame2> QVDemuxerContext::decodeNextAudioFrame() {
    if (!_audio) return nullptr;
    while (_alignedAudio.empty()) {
        AVFramePtr decoded = _audio->decodeNext();
        if (!decoded) return nullptr;
        auto frame = QVAudioFrame2::createWithAVFrame(decoded.get());
        if (!frame || frame->sampleRate() <= 0) continue;
        const int64_t time = decoded->best_effort_timestamp;
        const int64_t timestamp = time == AV_NOPTS_VALUE ? _nextAudioTimestamp : timestampOf(*_audio, time);
        frame->setTimeStamp(timestamp);
        _nextAudioTimestamp = timestamp + QMTimestampFromSamples(frame->sampleRate(), frame->numberOfSamples());
        frame = _audioFormat.keep(std::move(frame));
        if (!frame) continue;
        for (auto& aligned : _audioAligner.align(std::move(frame))) _alignedAudio.push_back(std::move(aligned));
    }
    auto next = std::move(_alignedAudio.front());
    _alignedAudio.pop_front();
    return next;
}

std::shared_ptr<QVVideoFrame> QVDemuxerContext::decodeNextVideoFrame() {
    if (!_video || _videoDisabled) return nullptr;
    const auto frameDuration = static_cast<int64_t>(QVTimebase / (_frameRate > 0 ? _frameRate : 25.0));
    for (AVFramePtr decoded = _video->decodeNext(); decoded; decoded = _video->decodeNext()) {
        auto picture = _displayTransform->apply(PixelBuffer::createWithAVFrame(decoded.get()));
        if (!picture) continue;
        const int64_t time = decoded->best_effort_timestamp;
        const int64_t timestamp = time == AV_NOPTS_VALUE ? _nextVideoTimestamp : timestampOf(*_video, time);
        _nextVideoTimestamp = timestamp + frameDuration;
        return QVVideoFrame::create(std::move(picture), timestamp);
    }
    return nullptr;
}

}  // namespace qm
