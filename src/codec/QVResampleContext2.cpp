#include "codec/QVResampleContext2.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
#include <libswresample/swresample.h>
}

namespace qm {

std::shared_ptr<QVResampleContext2> QVResampleContext2::createWithSampleFormat(
    int32_t sampleFormat, int32_t destSampleFormat, int64_t srcChannelLayout, int64_t destChannelLayout,
    int32_t srcSampleRate, int32_t destSampleRate) {
    if (QVAudioFrame2::bytesForSampleFormat(sampleFormat) == 0 ||
        QVAudioFrame2::bytesForSampleFormat(destSampleFormat) == 0 || srcChannelLayout == 0 ||
        destChannelLayout == 0 || srcSampleRate <= 0 || destSampleRate <= 0) {
        return nullptr;
    }
    AVChannelLayout in{}, out{};
    av_channel_layout_from_mask(&in, static_cast<uint64_t>(srcChannelLayout));
    av_channel_layout_from_mask(&out, static_cast<uint64_t>(destChannelLayout));
    std::shared_ptr<QVResampleContext2> context(new QVResampleContext2());
    const int status = swr_alloc_set_opts2(&context->_context, &out, static_cast<AVSampleFormat>(destSampleFormat),
                                           destSampleRate, &in, static_cast<AVSampleFormat>(sampleFormat),
                                           srcSampleRate, 0, nullptr);
    av_channel_layout_uninit(&in);
    av_channel_layout_uninit(&out);
    if (status < 0 || swr_init(context->_context) < 0) return nullptr;
    context->_srcFormat = sampleFormat;
    context->_dstFormat = destSampleFormat;
    context->_srcLayout = srcChannelLayout;
    context->_dstLayout = destChannelLayout;
    context->_srcRate = srcSampleRate;
    context->_dstRate = destSampleRate;
    return context;
}

QVResampleContext2::~QVResampleContext2() { swr_free(&_context); }

bool QVResampleContext2::assertSampleFormat(int32_t sampleFormat, int32_t dstSampleFormat, int64_t srcChannelLayout,
                                            int64_t dstChannelLayout, int32_t srcSampleRate,
                                            int32_t dstSampleRate) const {
    return sampleFormat == _srcFormat && dstSampleFormat == _dstFormat && srcChannelLayout == _srcLayout &&
           dstChannelLayout == _dstLayout && srcSampleRate == _srcRate && dstSampleRate == _dstRate;
}

std::shared_ptr<QVAudioFrame2> QVResampleContext2::resampleFrame(const QVAudioFrame2& frame) {
    if (frame.sampleFormat() != _srcFormat || frame.sampleRate() != _srcRate ||
        frame.numberOfChannel() != av_popcount64(static_cast<uint64_t>(_srcLayout))) {
        return nullptr;
    }
    const int capacity = swr_get_out_samples(_context, frame.numberOfSamples());
    if (capacity < 0) return nullptr;
    AVFrame* target = av_frame_alloc();
    if (!target) return nullptr;
    target->format = _dstFormat;
    target->sample_rate = _dstRate;
    av_channel_layout_from_mask(&target->ch_layout, static_cast<uint64_t>(_dstLayout));
    target->nb_samples = capacity > 0 ? capacity : 1;
    std::shared_ptr<QVAudioFrame2> out;
    if (av_frame_get_buffer(target, 0) >= 0) {
        const AVFrame* source = frame.avFrame();
        const int converted = swr_convert(_context, target->extended_data, capacity,
                                          const_cast<const uint8_t**>(source->extended_data), frame.numberOfSamples());
        if (converted >= 0) {
            target->nb_samples = converted;
            out = QVAudioFrame2::createWithAVFrame(target);
        }
    }
    av_frame_free(&target);
    return out;
}

}  // namespace qm
