#include "codec/QVAudioFrame2.h"

#include <cstring>
#include <mutex>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
#include <libavutil/samplefmt.h>
}

#include "platform/Log.h"

namespace qm {

namespace {

constexpr int32_t kFirstPlanarFormat = AV_SAMPLE_FMT_U8P;
constexpr int32_t kLastPlanarFormat = AV_SAMPLE_FMT_DBLP;

bool isKnownFormat(int32_t format) { return format >= 0 && format <= kLastPlanarFormat; }

}  // namespace

int64_t QVAudioFrame2::defaultChannelLayoutByChannel(int64_t channels) {
    if (channels <= 0 || channels > 64) return 0;
    AVChannelLayout layout;
    av_channel_layout_default(&layout, static_cast<int>(channels));
    int64_t mask = layout.order == AV_CHANNEL_ORDER_NATIVE ? static_cast<int64_t>(layout.u.mask) : 0;
    av_channel_layout_uninit(&layout);
    return mask;
}

int32_t QVAudioFrame2::bytesForSampleFormat(int32_t sampleFormat) {
    if (!isKnownFormat(sampleFormat)) return 0;
    return av_get_bytes_per_sample(static_cast<AVSampleFormat>(sampleFormat));
}

int32_t QVAudioFrame2::packedSampleFormat(int32_t sampleFormat) {
    if (!isKnownFormat(sampleFormat)) return sampleFormat;
    return av_get_packed_sample_fmt(static_cast<AVSampleFormat>(sampleFormat));
}

bool QVAudioFrame2::isPlanarSampleFormat(int32_t sampleFormat) {
    return sampleFormat >= kFirstPlanarFormat && sampleFormat <= kLastPlanarFormat;
}

QVAudioFrame2::QVAudioFrame2(AVFrame* frame) : _frame(frame) {}

QVAudioFrame2::~QVAudioFrame2() { av_frame_free(&_frame); }

std::shared_ptr<QVAudioFrame2> QVAudioFrame2::create(int32_t sampleFormat, int32_t numberOfChannel,
                                                     int32_t sampleRate, int32_t numberOfSamples,
                                                     const uint8_t* samples, int64_t channelLayout) {
    if (!isKnownFormat(sampleFormat) || numberOfChannel <= 0 || numberOfSamples < 0) return nullptr;
    if (numberOfSamples > 0 && samples == nullptr) return nullptr;
    AVFrame* frame = av_frame_alloc();
    if (!frame) return nullptr;
    frame->format = sampleFormat;
    frame->sample_rate = sampleRate;
    frame->nb_samples = numberOfSamples;
    if (channelLayout == 0 || av_channel_layout_from_mask(&frame->ch_layout, static_cast<uint64_t>(channelLayout)) < 0 ||
        frame->ch_layout.nb_channels != numberOfChannel) {
        av_channel_layout_uninit(&frame->ch_layout);
        av_channel_layout_default(&frame->ch_layout, numberOfChannel);
    }
    // A zero-length frame still gets buffers, so every frame has valid data pointers.
    frame->nb_samples = numberOfSamples > 0 ? numberOfSamples : 1;
    if (av_frame_get_buffer(frame, 0) < 0) {
        av_frame_free(&frame);
        return nullptr;
    }
    frame->nb_samples = numberOfSamples;
    const int bytes = bytesForSampleFormat(sampleFormat);
    if (isPlanarSampleFormat(sampleFormat)) {
        const size_t planeBytes = static_cast<size_t>(bytes) * numberOfSamples;
        for (int c = 0; c < numberOfChannel; ++c) {
            if (planeBytes) std::memcpy(frame->extended_data[c], samples + planeBytes * c, planeBytes);
        }
    } else {
        const size_t total = static_cast<size_t>(bytes) * numberOfChannel * numberOfSamples;
        if (total) std::memcpy(frame->data[0], samples, total);
    }
    return std::shared_ptr<QVAudioFrame2>(new QVAudioFrame2(frame));
}

std::shared_ptr<QVAudioFrame2> QVAudioFrame2::createWithAVFrame(const AVFrame* source) {
    if (!source || !isKnownFormat(source->format) || source->ch_layout.nb_channels <= 0) return nullptr;
    AVFrame* frame = av_frame_alloc();
    if (!frame) return nullptr;
    if (av_frame_ref(frame, source) < 0) {
        av_frame_free(&frame);
        return nullptr;
    }
    return std::shared_ptr<QVAudioFrame2>(new QVAudioFrame2(frame));
}

int32_t QVAudioFrame2::numberOfSamples() const { return _frame->nb_samples; }

int32_t QVAudioFrame2::sampleRate() const { return _frame->sample_rate; }

int32_t QVAudioFrame2::numberOfChannel() const { return _frame->ch_layout.nb_channels; }

int64_t QVAudioFrame2::channelLayout() const {
    if (_frame->ch_layout.order == AV_CHANNEL_ORDER_NATIVE && _frame->ch_layout.u.mask != 0) {
        return static_cast<int64_t>(_frame->ch_layout.u.mask);
    }
    return defaultChannelLayoutByChannel(numberOfChannel());
}

int32_t QVAudioFrame2::sampleFormat() const { return _frame->format; }

bool QVAudioFrame2::isPlanarFormat() const { return isPlanarSampleFormat(sampleFormat()); }

int32_t QVAudioFrame2::bytesForSample() const {
    return bytesForSampleFormat(sampleFormat()) * numberOfChannel();
}

std::vector<uint8_t> QVAudioFrame2::dataOfPackedSamples() const {
    const int32_t bytes = bytesForSampleFormat(sampleFormat());
    const int32_t channels = numberOfChannel();
    const size_t count = static_cast<size_t>(numberOfSamples());
    std::vector<uint8_t> packed(count * bytes * channels);
    if (packed.empty()) return packed;
    if (!isPlanarFormat()) {
        std::memcpy(packed.data(), _frame->data[0], packed.size());
        return packed;
    }
    uint8_t* out = packed.data();
    for (size_t i = 0; i < count; ++i) {
        for (int32_t c = 0; c < channels; ++c) {
            std::memcpy(out, _frame->extended_data[c] + i * bytes, bytes);
            out += bytes;
        }
    }
    return packed;
}


void QVAudioFrame2::registerArchiveClass() {
    static std::once_flag once;
    std::call_once(once, [] { KeyedUnarchiver::registerClass<QVAudioFrame2>("QVAudioFrame2"); });
}

void QVAudioFrame2::encodeWithCoder(KeyedArchiver& coder) const {
    coder.encodeInt32("sampleFormat", packedSampleFormat(sampleFormat()));
    coder.encodeInt32("numberOfChannel", numberOfChannel());
    coder.encodeInt32("sampleRate", sampleRate());
    coder.encodeInt32("numberOfSamples", numberOfSamples());
    coder.encodeInt64("channelLayout", channelLayout());
    coder.encodeData("samples", dataOfPackedSamples());
}

std::shared_ptr<QVAudioFrame2> QVAudioFrame2::createWithCoder(KeyedUnarchiver& coder) {
    const int32_t format = coder.decodeInt32("sampleFormat");
    const int32_t channels = coder.decodeInt32("numberOfChannel");
    const int32_t count = coder.decodeInt32("numberOfSamples");
    const std::vector<uint8_t> samples = coder.decodeData("samples");
    const int32_t bytes = bytesForSampleFormat(format);
    if (isPlanarSampleFormat(format) || bytes == 0 || channels <= 0 || count < 0 ||
        samples.size() != static_cast<size_t>(bytes) * channels * count) {
        QMLog("Error: archived audio frame is damaged.");
        return nullptr;
    }
    return create(format, channels, coder.decodeInt32("sampleRate"), count, samples.data(),
                  coder.decodeInt64("channelLayout"));
}

}  // namespace qm
