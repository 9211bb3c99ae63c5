#include "codec/AudioFormatKeeper.h"

#include <gtest/gtest.h>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/samplefmt.h>
}

#include <vector>

namespace qm {
namespace {

std::shared_ptr<QVAudioFrame2> silentFrame(int32_t format, int64_t layout, int32_t rate, int32_t samples) {
    const int channels = __builtin_popcountll(static_cast<uint64_t>(layout));
    const std::vector<uint8_t> bytes(
        static_cast<size_t>(samples) * channels * QVAudioFrame2::bytesForSampleFormat(format), 0);
    return QVAudioFrame2::create(format, channels, rate, samples, bytes.data(), layout);
}

TEST(AudioFormatKeeperTest, LaterFramesOfAnotherLayoutOrRateComeInTheFirstFramesFormat) {
    AudioFormatKeeper keeper;
    const auto first = silentFrame(AV_SAMPLE_FMT_FLTP, AV_CH_LAYOUT_STEREO, 44100, 1152);
    EXPECT_EQ(keeper.keep(first), first);

    auto surround = silentFrame(AV_SAMPLE_FMT_S16, AV_CH_LAYOUT_5POINT1, 48000, 4800);
    surround->setTimeStamp(12345);
    const auto converted = keeper.keep(surround);
    ASSERT_NE(converted, nullptr);
    EXPECT_EQ(converted->sampleFormat(), AV_SAMPLE_FMT_FLTP);
    EXPECT_EQ(converted->channelLayout(), static_cast<int64_t>(AV_CH_LAYOUT_STEREO));
    EXPECT_EQ(converted->sampleRate(), 44100);
    EXPECT_EQ(converted->timeStamp(), 12345);
    // 4800 samples at 48 kHz are 4410 at 44.1 kHz, less what the resampler still holds.
    EXPECT_LE(converted->numberOfSamples(), 4410);
    EXPECT_GT(converted->numberOfSamples(), 4300);

    const auto again = silentFrame(AV_SAMPLE_FMT_FLTP, AV_CH_LAYOUT_STEREO, 44100, 1152);
    EXPECT_EQ(keeper.keep(again), again);
}

}  // namespace
}  // namespace qm
