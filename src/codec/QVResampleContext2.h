#pragma once

#include <cstdint>
#include <memory>

#include "codec/QVAudioFrame2.h"

struct SwrContext;

namespace qm {

// A running audio converter (libswresample) between two sample formats, channel layouts
// (FFmpeg channel masks) and rates. It keeps filter state and delayed samples between calls, so
// frames must come in source order and the count of samples out varies from call to call.
class QVResampleContext2 {
public:
    // Nothing when a format, layout or rate is unusable.
    static std::shared_ptr<QVResampleContext2> createWithSampleFormat(int32_t sampleFormat, int32_t destSampleFormat,
                                                                      int64_t srcChannelLayout,
                                                                      int64_t destChannelLayout,
                                                                      int32_t srcSampleRate,
                                                                      int32_t destSampleRate);
    ~QVResampleContext2();
    QVResampleContext2(const QVResampleContext2&) = delete;
    QVResampleContext2& operator=(const QVResampleContext2&) = delete;

    // True when the converter was built for exactly these values.
    bool assertSampleFormat(int32_t sampleFormat, int32_t dstSampleFormat, int64_t srcChannelLayout,
                            int64_t dstChannelLayout, int32_t srcSampleRate, int32_t dstSampleRate) const;

    // The converted samples available after this frame (possibly none); nothing when the frame
    // is not in the source format, rate or channel count.
    std::shared_ptr<QVAudioFrame2> resampleFrame(const QVAudioFrame2& frame);

private:
    QVResampleContext2() = default;

    SwrContext* _context = nullptr;
    int32_t _srcFormat = 0, _dstFormat = 0;
    int64_t _srcLayout = 0, _dstLayout = 0;
    int32_t _srcRate = 0, _dstRate = 0;
};

}  // namespace qm
