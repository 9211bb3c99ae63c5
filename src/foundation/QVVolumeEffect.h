#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "foundation/QVRange.h"
#include "foundation/QVSampleBuffer.h"

namespace qm {

// Volume arithmetic on sample buffers: slider volume to gain, per-value gain and mixing, and
// joining two buffers by mixing, appending or bridging a short gap with silence. An instance
// applies a gain that may vary with the sample position (1.0 everywhere for this base class).
//
// Volume is a slider value mapped linearly to decibels: 0.0 is -48 dB, 1.0 is +6 dB.
class QVVolumeEffect {
public:
    static std::shared_ptr<QVVolumeEffect> create();
    virtual ~QVVolumeEffect() = default;

    // 0.88888889: 0 dB to within 1e-6.
    static double defaultVolume();
    // pow(10, (volume * 54 - 48) / 20).
    static double gainFactorFromVolume(double volume);
    // An integer value scaled to -1..1 (U8 around 127), then clamped to -1..1.
    static double normalizeSample(double value, int32_t format);

    // One value times `factor` (U8 around 127), clamped to the format's bounds, upper bound
    // first; integers truncate toward zero. A NaN product gives the upper bound.
    static uint8_t gainU8Sample(uint8_t sample, double factor);
    static int16_t gainS16Sample(int16_t sample, double factor);
    static int32_t gainS32Sample(int32_t sample, double factor);
    static float gainFLTSample(float sample, double factor);
    static double gainDBLSample(double sample, double factor);

    // Two values mixed around `silentValue`: on the same side of silence they compress toward
    // the bound, on opposite sides they add; the result is clamped to min..max.
    static double mixValue1(double value1, double value2, double minValue, double maxValue, double silentValue);
    // `count` samples of `channel` values from each block mixed; the result has the length of
    // `data1`, zero where nothing was mixed. A format outside 0..4 logs "Error format mix." per value.
    static std::vector<uint8_t> mixData(std::span<const uint8_t> data1, std::span<const uint8_t> data2, int32_t format,
                                        int64_t channel, int64_t count);

    // The two buffers mixed where they meet. With equal ranges, a's range; otherwise a with the
    // intersection mixed, followed by b's samples after the intersection's length (computed as
    // if b began at the intersection). Nothing, with a log line, for different descriptions,
    // an unknown format, or ranges that do not meet.
    static std::shared_ptr<QVSampleBuffer> mixSampleBuffer(const std::shared_ptr<QVSampleBuffer>& a,
                                                           const std::shared_ptr<QVSampleBuffer>& b);
    // One buffer out of two: mixed where they overlap (the earlier one first), concatenated when
    // they abut, bridged with silence across a gap of at most sampleRate / 10 samples. Nothing,
    // with a log line, for different descriptions or a longer gap.
    static std::shared_ptr<QVSampleBuffer> mergeSampleBuffer(const std::shared_ptr<QVSampleBuffer>& a,
                                                             const std::shared_ptr<QVSampleBuffer>& b);

    // Gain at a sample position; asked once per position by gainSampleBuffer.
    virtual double gainFactorAtLocation(int64_t location) const;
    // A new buffer with every value gained by the factor of its position. A format outside
    // 0..4 logs a warning and gives `buffer` itself. S32 values are gained through their low
    // 16 bits as S16 and stored sign-extended.
    virtual std::shared_ptr<QVSampleBuffer> gainSampleBuffer(const std::shared_ptr<QVSampleBuffer>& buffer) const;

protected:
    QVVolumeEffect() = default;

    // Gains `count` samples of `description` from `source` into `destination`, asking the
    // factor of each position from `location` on. The format must be one of 0..4.
    void gainSamples(const uint8_t* source, uint8_t* destination, int64_t count, int64_t location,
                     const QVSampleDescription& description) const;
};

// A constant volume.
class QVVolumeGainEffect : public QVVolumeEffect {
public:
    static std::shared_ptr<QVVolumeGainEffect> createWithVolume(double volume);

    double volume() const { return _volume; }
    // gainFactorFromVolume of the volume.
    double gainFactor() const { return _gainFactor; }

    double gainFactorAtLocation(int64_t location) const override;
    // `buffer` itself when the volume is within 1e-6 of defaultVolume, else the gain loop.
    std::shared_ptr<QVSampleBuffer> gainSampleBuffer(const std::shared_ptr<QVSampleBuffer>& buffer) const override;

private:
    explicit QVVolumeGainEffect(double volume);

    double _volume;
    double _gainFactor;
};

// A ramp of slider volume from startVolume at the range's location toward endVolume at its
// end, linear in decibels. Positions outside the range keep a gain of 1.0.
class QVVolumeFadeEffect : public QVVolumeEffect {
public:
    static std::shared_ptr<QVVolumeFadeEffect> createWithStartVolume(double startVolume, double endVolume,
                                                                     const QVRange& trackRange);

    const QVRange& sampleRange() const { return _range; }
    double startVolume() const { return _startVolume; }
    double endVolume() const { return _endVolume; }

    double gainFactorAtLocation(int64_t location) const override;
    // `buffer` itself when it does not meet the ramp's range; otherwise a copy with the samples
    // inside the range gained and the others unchanged.
    std::shared_ptr<QVSampleBuffer> applySampleBuffer(const std::shared_ptr<QVSampleBuffer>& buffer) const;

private:
    QVVolumeFadeEffect(double startVolume, double endVolume, const QVRange& range);

    QVRange _range;
    double _startVolume;
    double _endVolume;
};

}  // namespace qm
