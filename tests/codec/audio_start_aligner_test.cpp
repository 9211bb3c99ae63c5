#include "codec/AudioStartAligner.h"

#include <gtest/gtest.h>

extern "C" {
#include <libavutil/samplefmt.h>
}

#include <cstring>
#include <numeric>

#include "codec/QVTimebase.h"

namespace qm {
namespace {

// A planar float stereo frame at 48 kHz whose left channel counts 1, 2, 3 ... and right -1, -2, -3 ...
std::shared_ptr<QVAudioFrame2> countingFrame(int32_t samples, int64_t timestamp) {
    std::vector<float> planes(static_cast<size_t>(samples) * 2);
    std::iota(planes.begin(), planes.begin() + samples, 1.0f);
    for (int32_t i = 0; i < samples; ++i) planes[samples + i] = -planes[i];
    auto frame =
        QVAudioFrame2::create(AV_SAMPLE_FMT_FLTP, 2, 48000, samples, reinterpret_cast<const uint8_t*>(planes.data()));
    frame->setTimeStamp(timestamp);
    return frame;
}

std::vector<float> packedFloats(const QVAudioFrame2& frame) {
    const std::vector<uint8_t> bytes = frame.dataOfPackedSamples();
    std::vector<float> values(bytes.size() / sizeof(float));
    std::memcpy(values.data(), bytes.data(), bytes.size());
    return values;
}

TEST(AudioStartAlignerTest, LateStreamGetsSilenceInItsOwnFormatBeforeItsFirstFrame) {
    AudioStartAligner aligner;
    const auto first = countingFrame(1024, QVTimebase / 4);
    const auto given = aligner.align(first);
    ASSERT_EQ(given.size(), 2u);
    EXPECT_EQ(given[0]->numberOfSamples(), 12000);
    EXPECT_EQ(given[0]->sampleFormat(), AV_SAMPLE_FMT_FLTP);
    EXPECT_EQ(given[0]->numberOfChannel(), 2);
    for (float value : packedFloats(*given[0])) ASSERT_EQ(value, 0.0f);
    EXPECT_EQ(given[1], first);

    const auto later = countingFrame(1024, QVTimebase / 2);
    EXPECT_EQ(aligner.align(later), std::vector<std::shared_ptr<QVAudioFrame2>>{later});
}

TEST(AudioStartAlignerTest, EarlyStreamLosesWhatLiesBeforeTheOrigin) {
    AudioStartAligner aligner;
    EXPECT_TRUE(aligner.align(countingFrame(1024, -QVTimebase / 10)).empty());
    // 480 samples (10 ms) of this frame lie before the origin.
    const auto given = aligner.align(countingFrame(1024, -QVTimebase / 100));
    ASSERT_EQ(given.size(), 1u);
    EXPECT_EQ(given[0]->numberOfSamples(), 544);
    EXPECT_EQ(given[0]->timeStamp(), 0);
    const std::vector<float> values = packedFloats(*given[0]);
    EXPECT_EQ(values[0], 481.0f);
    EXPECT_EQ(values[1], -481.0f);
    EXPECT_EQ(values.back(), -1024.0f);
}

TEST(AudioStartAlignerTest, UnsignedSilenceSitsMidScaleAndReadingFromLaterOnIsLeftAlone) {
    AudioStartAligner aligner;
    const std::vector<uint8_t> samples(100, 200);
    auto frame = QVAudioFrame2::create(AV_SAMPLE_FMT_U8, 1, 8000, 100, samples.data());
    frame->setTimeStamp(QVTimebase / 100);
    const auto given = aligner.align(frame);
    ASSERT_EQ(given.size(), 2u);
    EXPECT_EQ(given[0]->dataOfPackedSamples(), std::vector<uint8_t>(80, 0x80));

    aligner.restartAt(QVTimebase);
    EXPECT_EQ(aligner.align(frame).size(), 1u);
    aligner.restartAt(0);
    EXPECT_EQ(aligner.align(frame).size(), 2u);
}

}  // namespace
}  // namespace qm
