#include "foundation/QVSampleDescription.h"

#include <cmath>
#include <cstdio>
#include <mutex>

#include "codec/QVAudioFrame2.h"
#include "platform/AudioStreamBasicDescription.h"
#include "platform/Log.h"

namespace qm {

QVSampleDescription::QVSampleDescription()
    : QVSampleDescription(44100, 2, QVSampleFormatS16, QVAudioFrame2::defaultChannelLayoutByChannel(2)) {}

QVSampleDescription::QVSampleDescription(int64_t sampleRate, int64_t channel, int32_t format, int64_t channelLayout)
    : _sampleRate(sampleRate), _channels(channel), _sampleFormat(format), _channelLayout(channelLayout) {}

std::optional<QVSampleDescription> QVSampleDescription::createWithAudioStreamBasicDescri(
    const AudioStreamBasicDescription& description) {
    const uint32_t flags = description.mFormatFlags;
    const uint32_t bits = description.mBitsPerChannel;
    int32_t format = QVSampleFormatNone;
    const bool packed = (flags & kAudioFormatFlagIsPacked) != 0;
    if (bits == 32 && packed && (flags & (kAudioFormatFlagIsFloat | kAudioFormatFlagIsSignedInteger))) {
        format = static_cast<int32_t>((flags & kAudioFormatFlagIsFloat) | 2);
    } else if (bits == 16 && (flags & 12) == 12) {
        format = QVSampleFormatS16;
    }
    // A rate that does not fit an integer cannot be truncated to one: refused like a bad format.
    const double rate = description.mSampleRate;
    const bool rateFits = std::isfinite(rate) && rate > -9.2e18 && rate < 9.2e18;
    if (format == QVSampleFormatNone || !rateFits) {
        QMLog("Can not support audio stream description.");
        return std::nullopt;
    }
    const int64_t channels = description.mChannelsPerFrame;
    return QVSampleDescription(static_cast<int64_t>(rate), channels, format,
                               QVAudioFrame2::defaultChannelLayoutByChannel(channels));
}

int64_t QVSampleDescription::channelLayout() const {
    if (_channelLayout == 0) return QVAudioFrame2::defaultChannelLayoutByChannel(_channels);
    return _channelLayout;
}

int32_t QVSampleDescription::bytesPerChannel() const { return QVAudioFrame2::bytesForSampleFormat(_sampleFormat); }

int64_t QVSampleDescription::bytesPerSample() const { return bytesPerChannel() * _channels; }

bool QVSampleDescription::isEqualTo(const QVSampleDescription& other) const {
    return _sampleRate == other._sampleRate && channelLayout() == other.channelLayout() &&
           _sampleFormat == other._sampleFormat && _channels == other._channels;
}

std::string QVSampleDescription::description() const {
    char text[128];
    std::snprintf(text, sizeof text, "sample rate: %ld, channel: %ld, sample format: %d",
                  static_cast<long>(_sampleRate), static_cast<long>(_channels), _sampleFormat);
    return text;
}

void QVSampleDescription::registerArchiveClass() {
    static std::once_flag once;
    std::call_once(once, [] { KeyedUnarchiver::registerClass<QVSampleDescription>("QVSampleDescription"); });
}

std::shared_ptr<QVSampleDescription> QVSampleDescription::createWithCoder(KeyedUnarchiver& coder) {
    return std::make_shared<QVSampleDescription>(coder.decodeInteger("sampleRate"), coder.decodeInteger("channels"),
                                                 coder.decodeInt32("sampleFormat"), coder.decodeInt64("channelLayout"));
}

std::string QVSampleDescription::archiveClassName() const { return "QVSampleDescription"; }

void QVSampleDescription::encodeWithCoder(KeyedArchiver& coder) const {
    coder.encodeInteger("sampleFormat", _sampleFormat);
    coder.encodeInteger("channels", _channels);
    coder.encodeInteger("sampleRate", _sampleRate);
    coder.encodeInt64("channelLayout", channelLayout());
}

}  // namespace qm
