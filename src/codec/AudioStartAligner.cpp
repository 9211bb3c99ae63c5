#include "codec/AudioStartAligner.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/samplefmt.h>
}

#include <cstring>

#include "codec/QVTimebase.h"

namespace qm {

namespace {

std::shared_ptr<QVAudioFrame2> silenceLike(const QVAudioFrame2& frame, int32_t samples) {
    const bool unsignedBytes =
        QVAudioFrame2::packedSampleFormat(frame.sampleFormat()) == static_cast<int32_t>(AV_SAMPLE_FMT_U8);
    const std::vector<uint8_t> silence(static_cast<size_t>(samples) * frame.bytesForSample(), unsignedBytes ? 0x80 : 0);
    return QVAudioFrame2::create(frame.sampleFormat(), frame.numberOfChannel(), frame.sampleRate(), samples,
                                 silence.data(), frame.channelLayout());
}

// The frame's samples from `first` on, in the frame's own format.
std::shared_ptr<QVAudioFrame2> tailOf(const QVAudioFrame2& frame, int32_t first) {
    const int32_t count = frame.numberOfSamples() - first;
    const AVFrame* source = frame.avFrame();
    const size_t valueBytes = static_cast<size_t>(QVAudioFrame2::bytesForSampleFormat(frame.sampleFormat()));
    std::vector<uint8_t> samples(static_cast<size_t>(count) * frame.bytesForSample());
    if (frame.isPlanarFormat()) {
        const size_t planeBytes = valueBytes * count;
        for (int32_t c = 0; c < frame.numberOfChannel(); ++c) {
            std::memcpy(samples.data() + planeBytes * c, source->extended_data[c] + valueBytes * first, planeBytes);
        }
    } else {
        std::memcpy(samples.data(), source->data[0] + static_cast<size_t>(frame.bytesForSample()) * first,
                    samples.size());
    }
    return QVAudioFrame2::create(frame.sampleFormat(), frame.numberOfChannel(), frame.sampleRate(), count,
                                 samples.data(), frame.channelLayout());
}

}  // namespace

std::vector<std::shared_ptr<QVAudioFrame2>> AudioStartAligner::align(std::shared_ptr<QVAudioFrame2> frame) {
    if (_started) return {std::move(frame)};
    const int64_t firstSample = QMSamplesFromTimestamp(frame->sampleRate(), frame->timeStamp());
    if (firstSample + frame->numberOfSamples() <= 0) return {};
    _started = true;
    if (firstSample < 0) {
        auto tail = tailOf(*frame, static_cast<int32_t>(-firstSample));
        if (!tail) return {};
        return {std::move(tail)};
    }
    if (firstSample == 0) return {std::move(frame)};
    auto silence = silenceLike(*frame, static_cast<int32_t>(firstSample));
    if (!silence) return {std::move(frame)};
    return {std::move(silence), std::move(frame)};
}

}  // namespace qm
