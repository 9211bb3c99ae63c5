#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/samplefmt.h>
}

#include "codec/QVResampleContext2.h"

namespace qm {
namespace {

// Planar float stereo: a 440 Hz sine on the left, silence on the right.
std::shared_ptr<QVAudioFrame2> sineFrame(int64_t firstSample, int count, int rate) {
    std::vector<float> planes(static_cast<size_t>(count) * 2, 0.0f);
    for (int i = 0; i < count; ++i) planes[i] = 0.5f * std::sin(2 * M_PI * 440 * (firstSample + i) / rate);
    return QVAudioFrame2::create(AV_SAMPLE_FMT_FLTP, 2, rate, count, reinterpret_cast<const uint8_t*>(planes.data()),
                                 AV_CH_LAYOUT_STEREO);
}

std::vector<int16_t> resampleInChunks(int chunk) {
    auto context = QVResampleContext2::createWithSampleFormat(AV_SAMPLE_FMT_FLTP, AV_SAMPLE_FMT_S16,
                                                              AV_CH_LAYOUT_STEREO, AV_CH_LAYOUT_MONO, 48000, 44100);
    EXPECT_NE(context, nullptr);
    std::vector<int16_t> out;
    for (int64_t first = 0; first < 48000; first += chunk) {
        auto converted = context->resampleFrame(*sineFrame(first, chunk, 48000));
        EXPECT_NE(converted, nullptr);
        EXPECT_EQ(converted->sampleFormat(), AV_SAMPLE_FMT_S16);
        EXPECT_EQ(converted->sampleRate(), 44100);
        EXPECT_EQ(converted->numberOfChannel(), 1);
        const std::vector<uint8_t> bytes = converted->dataOfPackedSamples();
        const size_t begin = out.size();
        out.resize(begin + bytes.size() / 2);
        std::memcpy(out.data() + begin, bytes.data(), bytes.size());
    }
    return out;
}

TEST(ResampleContextTest, RunningStateMakesChunkedOutputTheSameAsOneBlock) {
    const std::vector<int16_t> whole = resampleInChunks(48000);
    const std::vector<int16_t> chunked = resampleInChunks(480);
    // The filter holds back a few samples; what came out agrees sample for sample.
    EXPECT_NEAR(static_cast<double>(whole.size()), 44100, 64);
    ASSERT_EQ(chunked.size(), whole.size());
    EXPECT_EQ(chunked, whole);
    // The mono mix averages a half-scale sine with silence.
    const int16_t peak = *std::max_element(whole.begin(), whole.end());
    EXPECT_NEAR(peak, 0.25 * 32767, 0.02 * 32767);
}

TEST(ResampleContextTest, FitsOnlyTheFormatItWasBuiltFor) {
    auto context = QVResampleContext2::createWithSampleFormat(AV_SAMPLE_FMT_FLTP, AV_SAMPLE_FMT_S16,
                                                              AV_CH_LAYOUT_STEREO, AV_CH_LAYOUT_STEREO, 48000, 48000);
    ASSERT_NE(context, nullptr);
    EXPECT_TRUE(context->assertSampleFormat(AV_SAMPLE_FMT_FLTP, AV_SAMPLE_FMT_S16, AV_CH_LAYOUT_STEREO,
                                            AV_CH_LAYOUT_STEREO, 48000, 48000));
    EXPECT_FALSE(context->assertSampleFormat(AV_SAMPLE_FMT_FLTP, AV_SAMPLE_FMT_S16, AV_CH_LAYOUT_STEREO,
                                             AV_CH_LAYOUT_STEREO, 48000, 44100));
    // A frame of another rate or format is refused rather than misread.
    EXPECT_EQ(context->resampleFrame(*sineFrame(0, 100, 44100)), nullptr);
    const int16_t packed[4] = {1, 2, 3, 4};
    auto wrongFormat = QVAudioFrame2::create(AV_SAMPLE_FMT_S16, 2, 48000, 2, reinterpret_cast<const uint8_t*>(packed));
    EXPECT_EQ(context->resampleFrame(*wrongFormat), nullptr);

    EXPECT_EQ(QVResampleContext2::createWithSampleFormat(AV_SAMPLE_FMT_FLTP, 99, AV_CH_LAYOUT_STEREO,
                                                         AV_CH_LAYOUT_STEREO, 48000, 48000),
              nullptr);
    EXPECT_EQ(QVResampleContext2::createWithSampleFormat(AV_SAMPLE_FMT_FLTP, AV_SAMPLE_FMT_S16,
                                                         AV_CH_LAYOUT_STEREO, AV_CH_LAYOUT_STEREO, 0, 48000),
              nullptr);
}

}  // namespace
}  // namespace qm
