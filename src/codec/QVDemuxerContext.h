#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

#include "codec/AudioFormatKeeper.h"
#include "codec/AudioStartAligner.h"
#include "codec/MediaStreamReader.h"
#include "codec/QVAudioFrame2.h"
#include "codec/QVVideoFrame.h"
#include "codec/VideoDisplayTransform.h"
#include "platform/Geometry.h"

namespace qm {

// An opened movie or sound file: the facts of its best audio and video streams, and their
// frames decoded in order. Audio and video are read by separate demuxers, so
// decodeNextAudioFrame and decodeNextVideoFrame may run at the same time on two threads (each
// one on one thread at a time). Times are in QVTimebase units from the file's start.
class QVDemuxerContext {
public:
    // Nothing, with the reason in `error`, when the file cannot be read or has neither an audio
    // nor a video stream that can be decoded.
    static std::shared_ptr<QVDemuxerContext> createWithFilename(const std::string& path, std::string* error = nullptr);

    const std::string& pathfile() const { return _path; }

    bool audioStreamExist() const { return _audio != nullptr; }
    int32_t audioSampleRate() const { return _sampleRate; }
    int32_t numberOfChannel() const { return _channels; }
    // The decoder's sample format (an AVSampleFormat value; planar for most compressed audio).
    int32_t audioSampleFormat() const { return _sampleFormat; }
    // FFmpeg channel mask; the default for the channel count when the file gives none.
    int64_t channelLayout() const { return _channelLayout; }
    // The stream's end, on the same clock as its frames' times.
    int64_t audioStreamLength() const { return _audioLength; }

    bool videoStreamExist() const { return _video != nullptr; }
    // The stream's end, on the same clock as its frames' times.
    int64_t videoStreamLength() const { return _videoLength; }
    // The upright picture size: the coded width scaled by the sample aspect ratio, with width
    // and height swapped for a quarter-turn rotation.
    Size videoDisplaySize() const { return _displaySize; }
    // Frames per second as the file states it (its average rate); 0 when it states none.
    double frameRate() const { return _frameRate; }

    // The file's embedded cover picture, decoded; nothing without one.
    std::shared_ptr<QVVideoFrame> attachPicture() const { return _attachedPicture; }

    // With true, decodeNextVideoFrame gives nothing and video packets are not read.
    void disableVideoStream(bool disable);
    // Restarts both streams at the last key frame at or before `timestamp`. Not to be called
    // while a decode is running.
    void seekToTime(int64_t timestamp);

    // The next frame in presentation order, with its time; nothing at the end. From the file's
    // start on, audio counts from the same origin as video: silence comes before a stream that
    // starts late, and the samples before the origin are cut from one that starts early. Audio
    // frames all come in the first one's format, which may differ from the stream's stated one.
    std::shared_ptr<QVAudioFrame2> decodeNextAudioFrame();
    std::shared_ptr<QVVideoFrame> decodeNextVideoFrame();

private:
    QVDemuxerContext() = default;
    bool openAudio(std::unique_ptr<MediaStreamReader> reader, int index, std::string* error);
    bool openVideo(std::unique_ptr<MediaStreamReader> reader, int index, std::string* error);
    void readAttachedPicture(const MediaStreamReader& reader);
    // QVTimebase units from the file's start, for a time in the reader's stream time base.
    int64_t timestampOf(const MediaStreamReader& reader, int64_t streamTime) const;

    std::string _path;
    int64_t _startTime = 0;

    std::unique_ptr<MediaStreamReader> _audio;
    int32_t _sampleRate = 0;
    int32_t _channels = 0;
    int32_t _sampleFormat = -1;
    int64_t _channelLayout = 0;
    int64_t _audioLength = 0;
    int64_t _nextAudioTimestamp = 0;
    AudioFormatKeeper _audioFormat;
    AudioStartAligner _audioAligner;
    std::deque<std::shared_ptr<QVAudioFrame2>> _alignedAudio;

    std::unique_ptr<MediaStreamReader> _video;
    std::unique_ptr<VideoDisplayTransform> _displayTransform;
    int64_t _videoLength = 0;
    Size _displaySize;
    double _frameRate = 0;
    int64_t _nextVideoTimestamp = 0;
    std::atomic<bool> _videoDisabled{false};

    std::shared_ptr<QVVideoFrame> _attachedPicture;
};

}  // namespace qm
