#include "codec/MediaSampleBuffer.h"

#include <cmath>

namespace qm {

CMTime CMTime::makeWithSeconds(double seconds, int32_t timescale) {
    return {static_cast<int64_t>(std::llround(seconds * timescale)), timescale};
}

std::shared_ptr<const AudioFormatDescription> AudioFormatDescription::create(
    const AudioStreamBasicDescription& description, uint32_t channelLayoutTag) {
    const uint32_t bits = description.mBitsPerChannel;
    const bool isFloat = (description.mFormatFlags & kAudioFormatFlagIsFloat) != 0;
    const bool knownWidth = isFloat ? bits == 32 : (bits == 8 || bits == 16 || bits == 32);
    const uint32_t channels = description.mChannelsPerFrame;
    if (!(description.mSampleRate > 0) || !knownWidth || channels == 0 ||
        (description.mFormatFlags & kAudioFormatFlagIsBigEndian) != 0 ||
        description.mBytesPerFrame != channels * bits / 8 || (channelLayoutTag & 0xFFFF) != channels) {
        return nullptr;
    }
    return std::shared_ptr<const AudioFormatDescription>(new AudioFormatDescription(description, channelLayoutTag));
}

std::shared_ptr<MediaSampleBuffer> MediaSampleBuffer::create(std::shared_ptr<const AudioFormatDescription> format,
                                                             int64_t sampleCount, CMTime durationPerSample,
                                                             CMTime presentationTime) {
    if (!format || sampleCount <= 0 || !durationPerSample.isValid() || !presentationTime.isValid()) return nullptr;
    std::shared_ptr<MediaSampleBuffer> buffer(new MediaSampleBuffer());
    buffer->_format = std::move(format);
    buffer->_sampleCount = sampleCount;
    buffer->_durationPerSample = durationPerSample;
    buffer->_presentationTime = presentationTime;
    return buffer;
}

bool MediaSampleBuffer::setDataBuffer(std::vector<uint8_t> bytes) {
    const uint64_t expected = static_cast<uint64_t>(_sampleCount) * _format->streamDescription().mBytesPerFrame;
    if (bytes.size() != expected) return false;
    _bytes = std::move(bytes);
    return true;
}

}  // namespace qm
