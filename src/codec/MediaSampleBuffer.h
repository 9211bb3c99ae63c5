#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/AudioStreamBasicDescription.h"

namespace qm {

// A rational time: value / timescale seconds.
struct CMTime {
    int64_t value = 0;
    int32_t timescale = 0;

    static CMTime make(int64_t value, int32_t timescale) { return {value, timescale}; }
    // The nearest value in `timescale` units to `seconds`.
    static CMTime makeWithSeconds(double seconds, int32_t timescale);
    bool isValid() const { return timescale > 0; }
};

// Channel layout tags of the audio framework: the layout in the high 16 bits, the channel count
// in the low 16 bits.
inline constexpr uint32_t kAudioChannelLayoutTag_Mono = 0x640001;
inline constexpr uint32_t kAudioChannelLayoutTag_Stereo = 0x650002;

// The format of the PCM in a sample buffer: its stream description and channel layout tag.
class AudioFormatDescription {
public:
    // Nothing unless the description is packed, interleaved 8/16/32-bit integer or 32-bit float
    // PCM at a positive rate, and the tag's channel count matches it.
    static std::shared_ptr<const AudioFormatDescription> create(const AudioStreamBasicDescription& description,
                                                                uint32_t channelLayoutTag);

    const AudioStreamBasicDescription& streamDescription() const { return _description; }
    uint32_t channelLayoutTag() const { return _channelLayoutTag; }

private:
    AudioFormatDescription(const AudioStreamBasicDescription& description, uint32_t tag)
        : _description(description), _channelLayoutTag(tag) {}

    AudioStreamBasicDescription _description;
    uint32_t _channelLayoutTag;
};

// A block of interleaved PCM frames with its format and timing (the stand-in for a
// CMSampleBuffer of audio). The data is set once, after creation.
class MediaSampleBuffer {
public:
    // Nothing for no format, a sample count that is not positive or an invalid time.
    static std::shared_ptr<MediaSampleBuffer> create(std::shared_ptr<const AudioFormatDescription> format,
                                                     int64_t sampleCount, CMTime durationPerSample,
                                                     CMTime presentationTime);

    // Takes the bytes; false unless they hold exactly sampleCount frames of the format.
    bool setDataBuffer(std::vector<uint8_t> bytes);

    const AudioFormatDescription& format() const { return *_format; }
    int64_t sampleCount() const { return _sampleCount; }
    CMTime durationPerSample() const { return _durationPerSample; }
    CMTime presentationTime() const { return _presentationTime; }
    bool dataIsReady() const { return !_bytes.empty(); }
    const std::vector<uint8_t>& bytes() const { return _bytes; }

private:
    MediaSampleBuffer() = default;

    std::shared_ptr<const AudioFormatDescription> _format;
    int64_t _sampleCount = 0;
    CMTime _durationPerSample;
    CMTime _presentationTime;
    std::vector<uint8_t> _bytes;
};

}  // namespace qm
