#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/KeyedArchiver.h"

namespace qm {

struct AudioStreamBasicDescription;

// Sample format values. 0 to 4 are the packed (interleaved) formats a QVSampleBuffer holds;
// planar formats lie between 4 and 10 and are known only to QVAudioFrame2.
enum QVSampleFormat : int32_t {
    QVSampleFormatU8 = 0,     // unsigned 8-bit, silence at 127
    QVSampleFormatS16 = 1,    // signed 16-bit
    QVSampleFormatS32 = 2,    // signed 32-bit
    QVSampleFormatFLT = 3,    // 32-bit float, -1.0 to 1.0
    QVSampleFormatDBL = 4,    // 64-bit float, -1.0 to 1.0
    QVSampleFormatNone = 10,  // no format: a refused stream description
};

// An audio format: rate, channel count, sample format and channel mask. Immutable value;
// archivable under the keys "sampleFormat", "channels", "sampleRate" and "channelLayout".
class QVSampleDescription : public Archivable {
public:
    // 44100 Hz, 2 channels, S16, the default stereo layout.
    QVSampleDescription();
    // Stores its arguments unchanged; a layout of 0 reads as the default for `channel`.
    QVSampleDescription(int64_t sampleRate, int64_t channel, int32_t format, int64_t channelLayout);

    // 32-bit float or signed integer, or 16-bit signed integer, packed; anything else is
    // refused with a log line. The endian flag is not looked at.
    static std::optional<QVSampleDescription> createWithAudioStreamBasicDescri(
        const AudioStreamBasicDescription& description);

    int64_t sampleRate() const { return _sampleRate; }
    int64_t channels() const { return _channels; }
    int32_t sampleFormat() const { return _sampleFormat; }
    // The stored mask, or the default mask for `channels` when the stored one is 0.
    int64_t channelLayout() const;

    // Whether `format` is one of the packed formats 0 to 4.
    static bool isPackedSampleFormat(int32_t format) {
        return format >= QVSampleFormatU8 && format <= QVSampleFormatDBL;
    }

    int32_t bytesPerChannel() const;
    // Bytes of one sample position across all channels.
    int64_t bytesPerSample() const;

    // Equal rate, resolved layout, format and channel count.
    bool isEqualTo(const QVSampleDescription& other) const;
    bool operator==(const QVSampleDescription& other) const { return isEqualTo(other); }

    // "sample rate: R, channel: C, sample format: F".
    std::string description() const;

    // Registers the archive class for reading; call before decoding, more than once is harmless.
    static void registerArchiveClass();
    // Reads the four keys; missing ones read as 0.
    static std::shared_ptr<QVSampleDescription> createWithCoder(KeyedUnarchiver& coder);
    std::string archiveClassName() const override;
    // Writes the resolved channel layout.
    void encodeWithCoder(KeyedArchiver& coder) const override;

private:
    int64_t _sampleRate;
    int64_t _channels;
    int32_t _sampleFormat;
    int64_t _channelLayout;
};

}  // namespace qm
