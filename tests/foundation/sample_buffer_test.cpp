#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "codec/QVAudioFrame2.h"
#include "foundation/QVSampleBuffer.h"
#include "foundation/QVSampleDescription.h"
#include "platform/AudioStreamBasicDescription.h"
#include "platform/KeyedArchiver.h"
#include "platform/Log.h"
#include "support/SampleBytes.h"

namespace qm {
namespace {

using namespace test;

const QVSampleDescription kStereoS16(44100, 2, QVSampleFormatS16, 0);
const QVSampleDescription kMonoS16(44100, 1, QVSampleFormatS16, 0);

// ---- QVSampleDescription ----

TEST(SampleDescription, EqualityResolvesZeroLayoutAndComparesEveryField) {
    const int64_t stereo = QVAudioFrame2::defaultChannelLayoutByChannel(2);
    const QVSampleDescription implicit(48000, 2, QVSampleFormatFLT, 0);
    const QVSampleDescription explicitLayout(48000, 2, QVSampleFormatFLT, stereo);
    EXPECT_EQ(implicit.channelLayout(), stereo);
    EXPECT_TRUE(explicitLayout == implicit);

    EXPECT_FALSE(implicit.isEqualTo(QVSampleDescription(48000, 2, QVSampleFormatFLT, stereo | 0x8)));
    EXPECT_FALSE(implicit.isEqualTo(QVSampleDescription(44100, 2, QVSampleFormatFLT, 0)));
    EXPECT_FALSE(implicit.isEqualTo(QVSampleDescription(48000, 1, QVSampleFormatFLT, stereo)));
}

AudioStreamBasicDescription streamDescription(double rate, uint32_t channels, uint32_t bits, uint32_t flags) {
    AudioStreamBasicDescription asbd;
    asbd.mSampleRate = rate;
    asbd.mChannelsPerFrame = channels;
    asbd.mBitsPerChannel = bits;
    asbd.mFormatFlags = flags;
    return asbd;
}

// Packed float or signed 16/32-bit descriptions are taken (float wins, endianness is ignored);
// anything else is refused with one line.
TEST(SampleDescription, StreamDescriptionsTakenAndRefused) {
    const uint32_t packed = kAudioFormatFlagIsPacked;
    const uint32_t flt = kAudioFormatFlagIsFloat;
    const uint32_t sint = kAudioFormatFlagIsSignedInteger;
    const struct {
        AudioStreamBasicDescription asbd;
        int32_t format;  // -1: refused
    } cases[] = {
        {streamDescription(44100, 1, 32, packed | flt | sint | kAudioFormatFlagIsBigEndian), QVSampleFormatFLT},
        {streamDescription(44100, 1, 32, packed | sint), QVSampleFormatS32},
        {streamDescription(22050, 2, 16, packed | sint), QVSampleFormatS16},
        {streamDescription(44100, 2, 32, flt), -1},
        {streamDescription(44100, 2, 32, packed), -1},
        {streamDescription(44100, 2, 64, packed | flt), -1},
        {streamDescription(std::nan(""), 2, 32, packed | flt), -1},
    };
    for (const auto& c : cases) {
        LogCapture capture;
        const auto description = QVSampleDescription::createWithAudioStreamBasicDescri(c.asbd);
        EXPECT_EQ(description ? description->sampleFormat() : -1, c.format) << c.asbd.mBitsPerChannel;
        EXPECT_EQ(capture.count("Can not support audio stream description."), c.format < 0 ? 1u : 0u);
    }
    const auto rounded = QVSampleDescription::createWithAudioStreamBasicDescri(streamDescription(48000.9, 2, 32, packed | flt));
    ASSERT_TRUE(rounded);
    EXPECT_TRUE(rounded->isEqualTo(QVSampleDescription(48000, 2, QVSampleFormatFLT, 0)));
}

// An archive written elsewhere, with the four keys and nothing else.
class ForeignDescription : public Archivable {
public:
    std::string archiveClassName() const override { return "QVSampleDescription"; }
    void encodeWithCoder(KeyedArchiver& coder) const override {
        coder.encodeInteger("sampleFormat", 3);
        coder.encodeInteger("channels", 6);
        coder.encodeInteger("sampleRate", 96000);
        coder.encodeInt64("channelLayout", 0x60F);
    }
};

TEST(SampleDescription, ArchiveRoundTripAndKeys) {
    QVSampleDescription::registerArchiveClass();
    const QVSampleDescription original(192000, 8, QVSampleFormatS32, 0x63F);
    const auto decoded = std::dynamic_pointer_cast<QVSampleDescription>(KeyedUnarchiver::unarchiveObjectWithData(
        KeyedArchiver::archivedDataWithRootObject(std::make_shared<QVSampleDescription>(original))));
    ASSERT_TRUE(decoded);
    EXPECT_TRUE(decoded->isEqualTo(original)) << decoded->description();

    const auto foreign = std::dynamic_pointer_cast<QVSampleDescription>(KeyedUnarchiver::unarchiveObjectWithData(
        KeyedArchiver::archivedDataWithRootObject(std::make_shared<ForeignDescription>())));
    ASSERT_TRUE(foreign);
    EXPECT_TRUE(foreign->isEqualTo(QVSampleDescription(96000, 6, QVSampleFormatFLT, 0x60F)));
}

// ---- QVSampleBuffer construction ----

TEST(SampleBuffer, ConstructorEnforcesLengthInvariant) {
    LogCapture capture;
    for (size_t size : {11, 13}) {
        EXPECT_FALSE(QVSampleBuffer::createWithSampleDescription(kStereoS16, QVRange(0, 3), std::vector<uint8_t>(size)));
    }
    EXPECT_FALSE(QVSampleBuffer::createWithSampleDescription(kStereoS16, QVRange(0, -1), std::vector<uint8_t>()));
    EXPECT_EQ(capture.count("Error input sample buffer data."), 3u);

    const auto buffer =
        QVSampleBuffer::createWithSampleDescription(kStereoS16, QVRange(7, 3), std::vector<uint8_t>(12, 9));
    ASSERT_TRUE(buffer);
    EXPECT_EQ(capture.lines().size(), 3u);
    EXPECT_EQ(buffer->description(), "Range(7, 3)\nSample count: 3\n");
}

TEST(SampleBuffer, SilenceIsZeroExceptU8At0x7F) {
    const auto u8 = QVSampleBuffer::silentSampleBufferWithDescription(QVSampleDescription(8000, 2, QVSampleFormatU8, 0),
                                                                      QVRange(5, 4));
    ASSERT_TRUE(u8);
    EXPECT_EQ(u8->data(), std::vector<uint8_t>(8, 0x7F));
    const auto dbl = QVSampleBuffer::silentSampleBufferWithDescription(QVSampleDescription(8000, 2, QVSampleFormatDBL, 0),
                                                                       QVRange(0, 3));
    ASSERT_TRUE(dbl);
    EXPECT_EQ(dbl->data(), std::vector<uint8_t>(48, 0));
}

TEST(SampleBuffer, AppendSampleData) {
    const auto buffer = monoS16(10, {1, 2});
    EXPECT_EQ(QVSampleBuffer::appendSampleData({}, buffer), buffer);
    EXPECT_EQ(QVSampleBuffer::appendSampleData(bytesOf<int16_t>({3}), nullptr), nullptr);

    const auto longer = QVSampleBuffer::appendSampleData(bytesOf<int16_t>({3, 4}), buffer);
    ASSERT_TRUE(longer);
    EXPECT_EQ(s16Values(longer), (std::vector<int16_t>{1, 2, 3, 4}));
    EXPECT_TRUE(longer->sampleRange().isEqualRange(QVRange(10, 4)));
    EXPECT_EQ(s16Values(buffer), (std::vector<int16_t>{1, 2}));

    LogCapture capture;
    EXPECT_FALSE(QVSampleBuffer::appendSampleData(std::vector<uint8_t>(3), buffer));
    EXPECT_EQ(capture.count("Error input sample buffer data."), 1u);
}

TEST(SampleBuffer, ReplaceSampleData) {
    const auto buffer = monoS16(100, {1, 2, 3, 4, 5});
    LogCapture capture;
    EXPECT_FALSE(QVSampleBuffer::replaceSampleData(bytesOf<int16_t>({9}), QVRange(99, 1), buffer));
    EXPECT_FALSE(QVSampleBuffer::replaceSampleData(bytesOf<int16_t>({9, 9}), QVRange(104, 2), buffer));
    EXPECT_EQ(capture.count("Out of range."), 2u);

    const auto middle = QVSampleBuffer::replaceSampleData(bytesOf<int16_t>({7, 8}), QVRange(102, 2), buffer);
    ASSERT_TRUE(middle);
    EXPECT_EQ(s16Values(middle), (std::vector<int16_t>{1, 2, 7, 8, 5}));
    EXPECT_TRUE(middle->sampleRange().isEqualRange(buffer->sampleRange()));
    EXPECT_EQ(s16Values(buffer), (std::vector<int16_t>{1, 2, 3, 4, 5}));

    // Too few bytes: only what is there is copied.
    const auto shortBytes = QVSampleBuffer::replaceSampleData(bytesOf<int16_t>({6}), QVRange(103, 2), buffer);
    ASSERT_TRUE(shortBytes);
    EXPECT_EQ(s16Values(shortBytes), (std::vector<int16_t>{1, 2, 3, 6, 5}));
}

TEST(SampleBuffer, SubRangeTakesTheIntersection) {
    const auto buffer = monoS16(100, {10, 11, 12, 13, 14, 15});
    const auto tail = buffer->sampleBufferWithSubRange(QVRange(104, 50));
    ASSERT_TRUE(tail);
    EXPECT_EQ(s16Values(tail), (std::vector<int16_t>{14, 15}));
    EXPECT_TRUE(tail->sampleRange().isEqualRange(QVRange(104, 2)));

    EXPECT_EQ(s16Values(buffer->sampleBufferWithSubRange(QVRange(90, 11))), (std::vector<int16_t>{10}));
    EXPECT_FALSE(buffer->sampleBufferWithSubRange(QVRange(106, 5)));
    EXPECT_FALSE(buffer->sampleBufferWithSubRange(QVRange(102, 0)));
}

TEST(SampleBuffer, FrameCarriesTheSamples) {
    const QVSampleDescription description(48000, 2, QVSampleFormatS32, 0);
    const std::vector<uint8_t> bytes = bytesOf<int32_t>({1, -1, 70000, -70000});
    const auto buffer = QVSampleBuffer::createWithSampleDescription(description, QVRange(3, 2), bytes);
    ASSERT_TRUE(buffer);
    for (const auto& frame : {buffer->frame(), buffer->convertToAudioFrame()}) {
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->sampleRate(), 48000);
        EXPECT_EQ(frame->dataOfPackedSamples(), bytes);
    }
    auto kept = buffer->convertToAudioFrame();
    buffer->mutableData()[0] = 0x55;
    EXPECT_EQ(kept->dataOfPackedSamples(), bytes);
}

TEST(SampleBuffer, PlanarFrameIsInterleaved) {
    // Two planes: left 1 2 3, right -1 -2 -3.
    const std::vector<uint8_t> planes = bytesOf<int16_t>({1, 2, 3, -1, -2, -3});
    const int32_t planarS16 = 6;  // S16P
    ASSERT_TRUE(QVAudioFrame2::isPlanarSampleFormat(planarS16));
    const auto frame = QVAudioFrame2::create(planarS16, 2, 32000, 3, planes.data());
    ASSERT_TRUE(frame);

    const auto buffer = QVSampleBuffer::createWithAudioFrame(frame, QVRange(500, 3));
    ASSERT_TRUE(buffer);
    EXPECT_EQ(s16Values(buffer), (std::vector<int16_t>{1, -1, 2, -2, 3, -3}));
    EXPECT_TRUE(buffer->sampleDescription().isEqualTo(QVSampleDescription(32000, 2, QVSampleFormatS16, 0)));
}

TEST(SampleBuffer, AudioFrameRefusals) {
    const std::vector<uint8_t> bytes = bytesOf<int16_t>({1, 2, 3, 4});
    const auto frame = QVAudioFrame2::create(QVSampleFormatS16, 2, 44100, 2, bytes.data());
    const auto rateless = QVAudioFrame2::create(QVSampleFormatS16, 2, 0, 2, bytes.data());
    ASSERT_TRUE(frame && rateless);
    LogCapture capture;
    EXPECT_FALSE(QVSampleBuffer::createWithAudioFrame(frame, QVRange(0, 3)));
    EXPECT_FALSE(QVSampleBuffer::createWithAudioFrame(frame, QVRange(0, 1)));
    EXPECT_FALSE(QVSampleBuffer::createWithAudioFrame(rateless, QVRange(0, 2)));
    EXPECT_FALSE(QVSampleBuffer::createWithAudioFrame(nullptr, QVRange(0, 0)));
    EXPECT_EQ(capture.count("Error input audio frame."), 4u);
    EXPECT_TRUE(QVSampleBuffer::createWithAudioFrame(frame, QVRange(-4, 2)));
}

TEST(SampleBuffer, SetSampleRangeDoesNotTouchTheBytes) {
    const auto buffer = monoS16(0, {1, 2, 3});
    buffer->setSampleRange(QVRange(40, 10));
    EXPECT_TRUE(buffer->sampleRange().isEqualRange(QVRange(40, 10)));
    EXPECT_EQ(buffer->data().size(), 6u);
    // A frame never reads past the bytes.
    EXPECT_EQ(buffer->frame()->numberOfSamples(), 3);
}

// ---- QVMutableSampleBuffer ----

std::shared_ptr<QVMutableSampleBuffer> mutableMono(int64_t location, const std::vector<int16_t>& values) {
    return QVMutableSampleBuffer::createWithSampleBuffer(monoS16(location, values));
}

TEST(MutableSampleBuffer, CopiesItsSourceAndAppendGrowsByWholeSamplesKeepingExtraBytes) {
    EXPECT_FALSE(QVMutableSampleBuffer::createWithSampleBuffer(nullptr));
    const auto source = monoS16(5, {1});
    const auto buffer = QVMutableSampleBuffer::createWithSampleBuffer(source);
    ASSERT_TRUE(buffer);
    buffer->appendData(bytesOf<int16_t>({2, 3}));
    EXPECT_EQ(s16Values(buffer), (std::vector<int16_t>{1, 2, 3}));
    EXPECT_TRUE(buffer->sampleRange().isEqualRange(QVRange(5, 3)));

    buffer->appendData(std::vector<uint8_t>{0xAA, 0xBB, 0xCC});
    EXPECT_EQ(buffer->data().size(), 9u);
    EXPECT_TRUE(buffer->sampleRange().isEqualRange(QVRange(5, 4)));
    EXPECT_EQ(s16Values(source), (std::vector<int16_t>{1}));
}

TEST(MutableSampleBuffer, CutDropsFromTheFrontTruncFromTheEndAndTooManyEmptyIt) {
    const auto buffer = mutableMono(10, {1, 2, 3, 4, 5, 6});
    buffer->cutSamples(-3);
    buffer->cutSamples(2);
    buffer->truncSamples(0);
    buffer->truncSamples(1);
    EXPECT_EQ(s16Values(buffer), (std::vector<int16_t>{3, 4, 5}));
    EXPECT_TRUE(buffer->sampleRange().isEqualRange(QVRange(12, 3)));

    const auto cut = mutableMono(10, {1, 2});
    cut->cutSamples(7);
    buffer->truncSamples(3);
    for (const auto& emptied : {cut, buffer}) {
        EXPECT_TRUE(emptied->data().empty());
        EXPECT_TRUE(emptied->sampleRange().isEqualRange(QVRange(0, 0)));
    }
}

}  // namespace
}  // namespace qm
