#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/KeyedArchiver.h"

struct AVFrame;

namespace qm {

// One block of decoded audio. Sample formats are FFmpeg's AVSampleFormat values: 0 to 4 are
// the packed formats (U8, S16, S32, FLT, DBL), 5 to 9 their planar twins; channel layouts are
// FFmpeg channel masks. Decoded AVFrames are wrapped by reference, without conversion.
//
// Archived as class "QVAudioFrame2" with "sampleFormat", "numberOfChannel", "sampleRate",
// "numberOfSamples", "channelLayout" and "samples" (the packed bytes; a planar frame is stored in
// its packed format). Call registerArchiveClass() before reading archives of frames.
class QVAudioFrame2 : public Archivable {
public:
    // Channel mask FFmpeg uses by default for `channels` (0 when it has none).
    static int64_t defaultChannelLayoutByChannel(int64_t channels);
    // Bytes of one value of one channel; 0 for a format this class does not know.
    static int32_t bytesForSampleFormat(int32_t sampleFormat);
    // The packed format with the same value type; packed and unknown formats map to themselves.
    static int32_t packedSampleFormat(int32_t sampleFormat);
    static bool isPlanarSampleFormat(int32_t sampleFormat);

    // A frame holding a copy of `numberOfSamples` interleaved samples (all planes one after
    // another for a planar format). A channel layout of 0, or one whose channel count differs,
    // means the default for the count. Nothing when the format or counts are unusable.
    static std::shared_ptr<QVAudioFrame2> create(int32_t sampleFormat, int32_t numberOfChannel,
                                                 int32_t sampleRate, int32_t numberOfSamples,
                                                 const uint8_t* samples, int64_t channelLayout = 0);
    // Shares the buffers of a decoded frame. Nothing when it is not an audio frame.
    static std::shared_ptr<QVAudioFrame2> createWithAVFrame(const AVFrame* frame);

    static void registerArchiveClass();
    // Nothing, with one logged line, when the stored values do not make a frame.
    static std::shared_ptr<QVAudioFrame2> createWithCoder(KeyedUnarchiver& coder);

    ~QVAudioFrame2() override;
    QVAudioFrame2(const QVAudioFrame2&) = delete;
    QVAudioFrame2& operator=(const QVAudioFrame2&) = delete;

    int32_t numberOfSamples() const;
    int32_t sampleRate() const;
    int32_t numberOfChannel() const;
    // The stored mask, or the default mask for the channel count when the source had none.
    int64_t channelLayout() const;
    int32_t sampleFormat() const;
    bool isPlanarFormat() const;
    // Bytes of one sample position across all channels.
    int32_t bytesForSample() const;
    // The samples as one interleaved block, planar input interleaved.
    std::vector<uint8_t> dataOfPackedSamples() const;

    // Presentation time in QVTimebase units from the start of the source; 0 for made frames.
    int64_t timeStamp() const { return _timeStamp; }
    void setTimeStamp(int64_t timeStamp) { _timeStamp = timeStamp; }

    const AVFrame* avFrame() const { return _frame; }

    std::string archiveClassName() const override { return "QVAudioFrame2"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

private:
    explicit QVAudioFrame2(AVFrame* frame);
    AVFrame* _frame;
    int64_t _timeStamp = 0;
};

}  // namespace qm
