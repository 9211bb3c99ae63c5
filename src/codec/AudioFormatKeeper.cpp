#include "codec/AudioFormatKeeper.h"

namespace qm {

std::shared_ptr<QVAudioFrame2> AudioFormatKeeper::keep(std::shared_ptr<QVAudioFrame2> frame) {
    const Format format{frame->sampleFormat(), frame->channelLayout(), frame->sampleRate()};
    if (!_kept) _kept = format;
    if (format.sampleFormat == _kept->sampleFormat && format.channelLayout == _kept->channelLayout &&
        format.sampleRate == _kept->sampleRate) {
        return frame;
    }
    if (!_resampler || !_resampler->assertSampleFormat(format.sampleFormat, _kept->sampleFormat, format.channelLayout,
                                                       _kept->channelLayout, format.sampleRate, _kept->sampleRate)) {
        _resampler =
            QVResampleContext2::createWithSampleFormat(format.sampleFormat, _kept->sampleFormat, format.channelLayout,
                                                       _kept->channelLayout, format.sampleRate, _kept->sampleRate);
        if (!_resampler) return nullptr;
    }
    auto converted = _resampler->resampleFrame(*frame);
    if (!converted || converted->numberOfSamples() == 0) return nullptr;
    converted->setTimeStamp(frame->timeStamp());
    return converted;
}

}  // namespace qm
