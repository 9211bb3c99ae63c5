#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "foundation/QVSampleBuffer.h"
#include "foundation/QVVolumeEffect.h"
#include "platform/Log.h"
#include "support/SampleBytes.h"

namespace qm {
namespace {

using namespace test;

const QVSampleDescription kMonoS16(44100, 1, QVSampleFormatS16, 0);
const QVSampleDescription kMonoU8(44100, 1, QVSampleFormatU8, 0);

// A buffer of `samples` random values of every channel, in any packed format.
std::shared_ptr<QVSampleBuffer> randomBuffer(const QVSampleDescription& description, QVRange range, uint32_t seed) {
    std::mt19937 random(seed);
    const size_t values = static_cast<size_t>(range.length() * description.channels());
    std::vector<uint8_t> bytes(static_cast<size_t>(range.length() * description.bytesPerSample()));
    for (auto& byte : bytes) byte = static_cast<uint8_t>(random());
    // Floating formats get values in [-1, 1] rather than random bit patterns.
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    for (size_t i = 0; i < values; ++i) {
        if (description.sampleFormat() == QVSampleFormatFLT) {
            const float v = static_cast<float>(unit(random));
            std::memcpy(&bytes[i * 4], &v, 4);
        } else if (description.sampleFormat() == QVSampleFormatDBL) {
            const double v = unit(random);
            std::memcpy(&bytes[i * 8], &v, 8);
        }
    }
    return QVSampleBuffer::createWithSampleDescription(description, range, std::move(bytes));
}

const std::vector<int32_t> kPackedFormats = {QVSampleFormatU8, QVSampleFormatS16, QVSampleFormatS32, QVSampleFormatFLT,
                                             QVSampleFormatDBL};

// ---- Volume and per-value arithmetic ----

TEST(VolumeArithmetic, SliderToGain) {
    EXPECT_DOUBLE_EQ(QVVolumeEffect::gainFactorFromVolume(0.0), std::pow(10.0, -2.4));
    EXPECT_DOUBLE_EQ(QVVolumeEffect::gainFactorFromVolume(1.0), std::pow(10.0, 0.3));
    EXPECT_EQ(QVVolumeEffect::defaultVolume(), 0.88888889);
    EXPECT_LT(std::fabs(QVVolumeEffect::gainFactorFromVolume(QVVolumeEffect::defaultVolume()) - 1.0), 1e-6);
}

TEST(VolumeArithmetic, NormalizeAndGainClampPerFormatAndTruncateTowardZero) {
    EXPECT_DOUBLE_EQ(QVVolumeEffect::normalizeSample(-32768, QVSampleFormatS16), -1.0);
    EXPECT_DOUBLE_EQ(QVVolumeEffect::normalizeSample(-2147483648.0, QVSampleFormatS32), -1.0);
    EXPECT_DOUBLE_EQ(QVVolumeEffect::normalizeSample(0, QVSampleFormatU8), -1.0);
    EXPECT_DOUBLE_EQ(QVVolumeEffect::normalizeSample(-3.0, QVSampleFormatDBL), -1.0);

    EXPECT_EQ(QVVolumeEffect::gainU8Sample(255, 2.0), 255);
    EXPECT_EQ(QVVolumeEffect::gainU8Sample(100, 0.5), 113);  // -13.5 + 127
    EXPECT_EQ(QVVolumeEffect::gainS16Sample(-32768, 2.0), -32768);
    EXPECT_EQ(QVVolumeEffect::gainS16Sample(-1001, 0.5), -500);
    EXPECT_EQ(QVVolumeEffect::gainS32Sample(-2000000000, 2.0), -2147483647 - 1);
    EXPECT_EQ(QVVolumeEffect::gainFLTSample(0.75f, 2.0), 1.0f);

    // A NaN product lands on the upper bound instead of an undefined conversion.
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(QVVolumeEffect::gainS16Sample(100, nan), 32767);
    EXPECT_EQ(QVVolumeEffect::gainS32Sample(5, nan), 2147483647);
}

TEST(VolumeArithmetic, MixValuesCompressOnOneSideAndAddAcross) {
    auto mixS16 = [](int16_t x, int16_t y) {
        return valuesOf<int16_t>(
            QVVolumeEffect::mixData(bytesOf<int16_t>({x}), bytesOf<int16_t>({y}), QVSampleFormatS16, 1, 1))[0];
    };
    EXPECT_EQ(mixS16(16384, 16384), 24575);
    EXPECT_EQ(mixS16(-16384, -16384), -24576);
    EXPECT_EQ(mixS16(20000, -20000), 0);

    auto mixU8 = [](uint8_t x, uint8_t y) {
        return QVVolumeEffect::mixData(std::vector<uint8_t>{x}, std::vector<uint8_t>{y}, QVSampleFormatU8, 1, 1)[0];
    };
    for (int v : {0, 127, 255}) EXPECT_EQ(mixU8(127, static_cast<uint8_t>(v)), v);
    EXPECT_EQ(mixU8(200, 200), 231);  // 146 - 5329 / 128 + 127

    const auto s32 = valuesOf<int32_t>(QVVolumeEffect::mixData(
        bytesOf<int32_t>({1 << 30, -5}), bytesOf<int32_t>({1 << 30, 5}), QVSampleFormatS32, 2, 1));
    EXPECT_EQ(s32, (std::vector<int32_t>{1610612735, 0}));

}

TEST(VolumeArithmetic, MixDataKeepsFirstLengthAndZeroesTheRest) {
    const auto mixed = QVVolumeEffect::mixData(bytesOf<int16_t>({100, 200, 300}), bytesOf<int16_t>({1, 2, 3}),
                                               QVSampleFormatS16, 1, 2);
    // Same-side values compress a little below their sum and truncate: 100 + 1 - 100 / 32767.
    EXPECT_EQ(valuesOf<int16_t>(mixed), (std::vector<int16_t>{100, 201, 0}));
    EXPECT_EQ(QVVolumeEffect::mixData(bytesOf<int16_t>({5, 5}), bytesOf<int16_t>({5, 5}), QVSampleFormatS16, 0, 2),
              std::vector<uint8_t>(4, 0));

    LogCapture capture;
    EXPECT_EQ(QVVolumeEffect::mixData(std::vector<uint8_t>(6, 1), std::vector<uint8_t>(6, 1), QVSampleFormatNone, 2, 3),
              std::vector<uint8_t>(6, 0));
    EXPECT_EQ(capture.count("Error format mix."), 6u);
}

// ---- Mixing buffers ----

TEST(MixSampleBuffer, RefusalsLogTheirLine) {
    LogCapture capture;
    EXPECT_FALSE(QVVolumeEffect::mixSampleBuffer(monoS16(0, {1, 2}), bufferOf<uint8_t>(kMonoU8, 0, {1, 2})));
    EXPECT_EQ(capture.count("Mix sample buffer format must be identify."), 1u);

    const QVSampleDescription none(44100, 2, QVSampleFormatNone, 0);
    const auto formatless = QVSampleBuffer::createWithSampleDescription(none, QVRange(0, 4), {});
    ASSERT_TRUE(formatless);
    EXPECT_FALSE(QVVolumeEffect::mixSampleBuffer(formatless, formatless));
    EXPECT_EQ(capture.count("Mix format can not support sample rate: 44100, channel: 2, sample format: 10"), 1u);

    EXPECT_FALSE(QVVolumeEffect::mixSampleBuffer(monoS16(0, {1, 2}), monoS16(2, {1, 2})));
    EXPECT_EQ(capture.count("Mix sample buffer must be intersected."), 1u);
}

// b's samples after the intersection are appended, counted from the intersection's end as if b
// began there: a b that starts earlier loses its head.
TEST(MixSampleBuffer, OverlapMixesAndAppendsTheRestOfB) {
    const struct {
        int64_t aStart;
        std::vector<int16_t> a;
        int64_t bStart;
        std::vector<int16_t> b;
        std::vector<int16_t> mixed;
        int64_t mixedStart;
    } cases[] = {
        {0, {1, 2, 3, 4}, 2, {-10, -20, -30, -40, -50, -60}, {1, 2, -7, -16, -30, -40, -50, -60}, 0},
        {0, {1, 2, 3, 4}, 1, {-100, -100}, {1, -98, -97, 4}, 0},
        {4, {1, 2}, 0, {-10, -20, -30, -40, -50, -60, -70, -80, -90, -100}, {-49, -58, -70, -80, -90, -100}, 4},
        {5, {1, 2, 3, 4, 5}, 0, {-10, -20, -30, -40, -50, -60, -70}, {-59, -68, 3, 4, 5}, 5},
    };
    for (const auto& c : cases) {
        const auto mixed = QVVolumeEffect::mixSampleBuffer(monoS16(c.aStart, c.a), monoS16(c.bStart, c.b));
        ASSERT_TRUE(mixed);
        EXPECT_EQ(s16Values(mixed), c.mixed);
        EXPECT_TRUE(mixed->sampleRange().isEqualRange(QVRange(c.mixedStart, static_cast<int64_t>(c.mixed.size()))));
    }
}

// The byte-level mix must equal its definition through sub-ranges, replace and append.
TEST(MixSampleBuffer, MatchesTheCompositionOfBufferOperationsInEveryFormat) {
    for (int32_t format : kPackedFormats) {
        const QVSampleDescription description(48000, 2, format, 0);
        const auto a = randomBuffer(description, QVRange(100, 300), 1);
        const auto b = randomBuffer(description, QVRange(250, 400), 2);
        const QVRange intersection(250, 150);
        const auto mixed = QVVolumeEffect::mixData(a->sampleBufferWithSubRange(intersection)->data(),
                                                   b->sampleBufferWithSubRange(intersection)->data(), format, 2,
                                                   intersection.length());
        const auto replaced = QVSampleBuffer::replaceSampleData(mixed, intersection, a);
        const auto expected =
            QVSampleBuffer::appendSampleData(b->sampleBufferWithSubRange(QVRange(400, 250))->data(), replaced);

        const auto result = QVVolumeEffect::mixSampleBuffer(a, b);
        ASSERT_TRUE(result) << format;
        EXPECT_TRUE(result->sampleRange().isEqualRange(QVRange(100, 550))) << format;
        EXPECT_EQ(result->data(), expected->data()) << format;
    }
}

// ---- Merging buffers ----

TEST(MergeSampleBuffer, OverlapMixesWithTheEarlierFirst) {
    const auto early = monoS16(0, {-10, -20, -30, -40, -50, -60});
    const auto late = monoS16(4, {1, 2, 3, 4});
    for (const auto& merged :
         {QVVolumeEffect::mergeSampleBuffer(late, early), QVVolumeEffect::mergeSampleBuffer(early, late)}) {
        ASSERT_TRUE(merged);
        EXPECT_EQ(s16Values(merged), (std::vector<int16_t>{-10, -20, -30, -40, -49, -58, 3, 4}));
        EXPECT_TRUE(merged->sampleRange().isEqualRange(QVRange(0, 8)));
    }

    const auto a = monoS16(7, {1, 2, 3});
    const auto b = monoS16(7, {-10, -20, -30, -40, -50});
    const auto same = QVVolumeEffect::mergeSampleBuffer(a, b);
    ASSERT_TRUE(same);
    EXPECT_EQ(s16Values(same), (std::vector<int16_t>{-9, -18, -27, -40, -50}));
}

TEST(MergeSampleBuffer, GapUpToATenthOfASecondIsFilledWithSilence) {
    const auto a = monoS16(0, {1, 2});
    const auto reachable = monoS16(2 + 4410, {3});
    for (const auto& merged :
         {QVVolumeEffect::mergeSampleBuffer(a, reachable), QVVolumeEffect::mergeSampleBuffer(reachable, a)}) {
        ASSERT_TRUE(merged);
        EXPECT_TRUE(merged->sampleRange().isEqualRange(QVRange(0, 4413)));
        auto expected = std::vector<int16_t>(4413, 0);
        expected[0] = 1;
        expected[1] = 2;
        expected[4412] = 3;
        EXPECT_EQ(s16Values(merged), expected);
    }

    LogCapture capture;
    EXPECT_FALSE(QVVolumeEffect::mergeSampleBuffer(a, monoS16(2 + 4411, {3})));
    EXPECT_FALSE(QVVolumeEffect::mergeSampleBuffer(monoS16(2 + 4411, {3}), a));
    EXPECT_EQ(capture.count("Can not merge sample buffer, because the gap is too big(over 0.1 sencods)"), 2u);
    EXPECT_FALSE(QVVolumeEffect::mergeSampleBuffer(a, bufferOf<uint8_t>(kMonoU8, 2, {1})));
    EXPECT_EQ(capture.count("Can not merge diff sample format."), 1u);

    const auto u8 =
        QVVolumeEffect::mergeSampleBuffer(bufferOf<uint8_t>(kMonoU8, 0, {1}), bufferOf<uint8_t>(kMonoU8, 4, {2}));
    ASSERT_TRUE(u8);
    EXPECT_EQ(u8->data(), (std::vector<uint8_t>{1, 0x7F, 0x7F, 0x7F, 2}));
}

// ---- Gain of buffers ----

TEST(GainSampleBuffer, BaseEffectKeepsValuesInANewBuffer) {
    const auto effect = QVVolumeEffect::create();
    const auto buffer = monoS16(3, {-32768, 1, 32767});
    const auto gained = effect->gainSampleBuffer(buffer);
    ASSERT_TRUE(gained);
    EXPECT_NE(gained, buffer);
    EXPECT_EQ(gained->data(), buffer->data());

    LogCapture capture;
    const auto formatless = QVSampleBuffer::createWithSampleDescription(
        QVSampleDescription(44100, 2, QVSampleFormatNone, 0), QVRange(0, 3), {});
    EXPECT_EQ(effect->gainSampleBuffer(formatless), formatless);
    EXPECT_EQ(capture.count("Warning: Can not support gain foramt: sample rate: 44100, channel: 2, sample format: 10"),
              1u);
}

TEST(GainSampleBuffer, DefaultVolumeReturnsTheSameBuffer) {
    const auto buffer = monoS16(0, {1000, -1000});
    EXPECT_EQ(QVVolumeGainEffect::createWithVolume(QVVolumeEffect::defaultVolume() + 9e-7)->gainSampleBuffer(buffer),
              buffer);
    EXPECT_NE(QVVolumeGainEffect::createWithVolume(QVVolumeEffect::defaultVolume() + 2e-6)->gainSampleBuffer(buffer),
              buffer);
}

TEST(GainSampleBuffer, ConstantGainPerFormat) {
    const auto loud = QVVolumeGainEffect::createWithVolume(1.0);  // x1.9953
    EXPECT_DOUBLE_EQ(loud->gainFactor(), std::pow(10.0, 0.3));

    EXPECT_EQ(s16Values(loud->gainSampleBuffer(monoS16(0, {1000, -1000, 20000, -20000}))),
              (std::vector<int16_t>{1995, -1995, 32767, -32768}));
    EXPECT_EQ(loud->gainSampleBuffer(bufferOf<uint8_t>(kMonoU8, 0, {127, 137, 117, 250, 0}))->data(),
              (std::vector<uint8_t>{127, 146, 107, 255, 0}));
}

TEST(GainSampleBuffer, S32ChangesOnlyThroughTheLow16Bits) {
    const QVSampleDescription s32(44100, 1, QVSampleFormatS32, 0);
    // Low words: 5, 0x8000 (-32768), 0x4000 (16384), 0xFFFE (-2).
    const auto buffer =
        bufferOf<int32_t>(s32, 0, {0x00010005, 0x12348000, 0x7FFF4000, static_cast<int32_t>(0xABCDFFFE)});
    const auto gained = QVVolumeGainEffect::createWithVolume(1.0)->gainSampleBuffer(buffer);
    ASSERT_TRUE(gained);
    EXPECT_EQ(valuesOf<int32_t>(gained->data()), (std::vector<int32_t>{9, -32768, 32690, -3}));
}

// ---- Fades ----

TEST(FadeEffect, FactorRampsAcrossTheRangeOnly) {
    const auto fade = QVVolumeFadeEffect::createWithStartVolume(0.0, 1.0, QVRange(100, 100));
    EXPECT_EQ(fade->gainFactorAtLocation(99), 1.0);
    EXPECT_EQ(fade->gainFactorAtLocation(200), 1.0);
    EXPECT_EQ(fade->gainFactorAtLocation(199), QVVolumeEffect::gainFactorFromVolume(0.99));

    const auto down = QVVolumeFadeEffect::createWithStartVolume(1.0, 0.0, QVRange(0, 4));
    EXPECT_EQ(down->gainFactorAtLocation(1), QVVolumeEffect::gainFactorFromVolume(0.75));
}

TEST(FadeEffect, OnlySamplesInsideTheRangeChange) {
    const auto fade = QVVolumeFadeEffect::createWithStartVolume(0.0, 0.88888889, QVRange(100, 100));
    const auto before = monoS16(0, std::vector<int16_t>(100, 1000));
    EXPECT_EQ(fade->applySampleBuffer(before), before);
    const auto abutting = monoS16(200, std::vector<int16_t>(10, 1000));
    EXPECT_EQ(fade->applySampleBuffer(abutting), abutting);

    const auto buffer = monoS16(50, std::vector<int16_t>(100, 1000));
    const auto faded = fade->applySampleBuffer(buffer);
    ASSERT_TRUE(faded);
    EXPECT_TRUE(faded->sampleRange().isEqualRange(buffer->sampleRange()));
    const auto values = s16Values(faded);
    for (int i = 0; i < 50; ++i) EXPECT_EQ(values[i], 1000) << i;
    EXPECT_EQ(values[50], 3);  // 1000 * 10^-2.4 at the ramp's start
    for (int i = 51; i < 100; ++i) {
        EXPECT_GE(values[i], values[i - 1]) << i;
        EXPECT_LT(values[i], 1000) << i;
    }
    EXPECT_EQ(s16Values(buffer), std::vector<int16_t>(100, 1000));
}

}  // namespace
}  // namespace qm
