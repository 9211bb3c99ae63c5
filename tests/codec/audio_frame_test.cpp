#include <gtest/gtest.h>

#include <cstring>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
}

#include "codec/QVAudioFrame2.h"
#include "platform/Log.h"

using namespace qm;

TEST(QVAudioFrame2Test, FormatTablesFollowFFmpeg) {
    EXPECT_EQ(QVAudioFrame2::bytesForSampleFormat(0), 1);
    EXPECT_EQ(QVAudioFrame2::bytesForSampleFormat(4), 8);
    EXPECT_EQ(QVAudioFrame2::bytesForSampleFormat(AV_SAMPLE_FMT_FLTP), 4);
    EXPECT_EQ(QVAudioFrame2::bytesForSampleFormat(10), 0);
    EXPECT_EQ(QVAudioFrame2::bytesForSampleFormat(-1), 0);

    EXPECT_EQ(QVAudioFrame2::packedSampleFormat(AV_SAMPLE_FMT_DBLP), 4);
    EXPECT_EQ(QVAudioFrame2::packedSampleFormat(3), 3);
    EXPECT_EQ(QVAudioFrame2::packedSampleFormat(10), 10);

    EXPECT_EQ(QVAudioFrame2::defaultChannelLayoutByChannel(1), static_cast<int64_t>(AV_CH_LAYOUT_MONO));
    EXPECT_EQ(QVAudioFrame2::defaultChannelLayoutByChannel(6), static_cast<int64_t>(AV_CH_LAYOUT_5POINT1_BACK));
    EXPECT_EQ(QVAudioFrame2::defaultChannelLayoutByChannel(0), 0);
}

TEST(QVAudioFrame2Test, PlanarFramesInterleaveOnPacking) {
    const int16_t planes[] = {1, 2, 3, /* right */ -1, -2, -3};
    auto frame = QVAudioFrame2::create(AV_SAMPLE_FMT_S16P, 2, 48000, 3, reinterpret_cast<const uint8_t*>(planes));
    ASSERT_NE(frame, nullptr);
    EXPECT_TRUE(frame->isPlanarFormat());
    EXPECT_EQ(frame->bytesForSample(), 4);
    EXPECT_EQ(frame->channelLayout(), static_cast<int64_t>(AV_CH_LAYOUT_STEREO));
    auto packed = frame->dataOfPackedSamples();
    ASSERT_EQ(packed.size(), 12u);
    std::vector<int16_t> values(6);
    std::memcpy(values.data(), packed.data(), packed.size());
    EXPECT_EQ(values, (std::vector<int16_t>{1, -1, 2, -2, 3, -3}));
}

TEST(QVAudioFrame2Test, PackedFramesCopyTheirInput) {
    std::vector<float> samples = {0.5f, -0.5f, 0.25f, -0.25f};
    auto frame = QVAudioFrame2::create(3, 2, 44100, 2, reinterpret_cast<const uint8_t*>(samples.data()));
    ASSERT_NE(frame, nullptr);
    samples.assign(4, 0.f);
    auto packed = frame->dataOfPackedSamples();
    float first;
    std::memcpy(&first, packed.data(), sizeof first);
    EXPECT_EQ(first, 0.5f);

    auto empty = QVAudioFrame2::create(1, 2, 44100, 0, nullptr);
    ASSERT_NE(empty, nullptr);
    EXPECT_TRUE(empty->dataOfPackedSamples().empty());
    EXPECT_EQ(QVAudioFrame2::create(10, 2, 44100, 1, reinterpret_cast<const uint8_t*>(samples.data())), nullptr);
    EXPECT_EQ(QVAudioFrame2::create(1, 0, 44100, 1, reinterpret_cast<const uint8_t*>(samples.data())), nullptr);
}

TEST(QVAudioFrame2Test, DecodedFramesAreSharedAndOutliveTheirSource) {
    AVFrame* decoded = av_frame_alloc();
    decoded->format = AV_SAMPLE_FMT_FLTP;
    decoded->sample_rate = 48000;
    decoded->nb_samples = 4;
    av_channel_layout_from_mask(&decoded->ch_layout, AV_CH_LAYOUT_5POINT1);
    ASSERT_GE(av_frame_get_buffer(decoded, 0), 0);
    for (int c = 0; c < 6; ++c) {
        auto* plane = reinterpret_cast<float*>(decoded->extended_data[c]);
        for (int i = 0; i < 4; ++i) plane[i] = static_cast<float>(c * 10 + i);
    }
    auto frame = QVAudioFrame2::createWithAVFrame(decoded);
    av_frame_free(&decoded);
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(frame->numberOfChannel(), 6);
    EXPECT_EQ(frame->channelLayout(), static_cast<int64_t>(AV_CH_LAYOUT_5POINT1));
    auto packed = frame->dataOfPackedSamples();
    ASSERT_EQ(packed.size(), 4u * 6 * sizeof(float));
    float value;
    std::memcpy(&value, packed.data() + (2 * 6 + 5) * sizeof(float), sizeof value);
    EXPECT_EQ(value, 52.f);
}

TEST(QVAudioFrame2Test, ArchiveRoundTripStoresThePackedForm) {
    QVAudioFrame2::registerArchiveClass();
    const float planes[] = {0.1f, 0.2f, 0.3f, -0.1f, -0.2f, -0.3f, 1.f, 2.f, 3.f};
    auto frame = QVAudioFrame2::create(AV_SAMPLE_FMT_FLTP, 3, 32000, 3, reinterpret_cast<const uint8_t*>(planes),
                                       static_cast<int64_t>(AV_CH_LAYOUT_SURROUND));
    ASSERT_NE(frame, nullptr);
    auto decoded = std::dynamic_pointer_cast<QVAudioFrame2>(
        KeyedUnarchiver::unarchiveObjectWithData(KeyedArchiver::archivedDataWithRootObject(frame)));
    ASSERT_NE(decoded, nullptr);
    EXPECT_EQ(decoded->sampleFormat(), 3);
    EXPECT_EQ(decoded->sampleRate(), 32000);
    EXPECT_EQ(decoded->channelLayout(), static_cast<int64_t>(AV_CH_LAYOUT_SURROUND));
    EXPECT_EQ(decoded->dataOfPackedSamples(), frame->dataOfPackedSamples());
}

namespace {

// An archive whose "samples" do not match the stated counts.
class ShortFrame : public Archivable {
public:
    std::string archiveClassName() const override { return "QVAudioFrame2"; }
    void encodeWithCoder(KeyedArchiver& coder) const override {
        coder.encodeInt32("sampleFormat", 1);
        coder.encodeInt32("numberOfChannel", 2);
        coder.encodeInt32("sampleRate", 44100);
        coder.encodeInt32("numberOfSamples", 10);
        coder.encodeData("samples", std::vector<uint8_t>(39));
    }
};

}  // namespace

TEST(QVAudioFrame2Test, DamagedArchiveGivesNothingWithOneLine) {
    QVAudioFrame2::registerArchiveClass();
    LogCapture capture;
    auto bytes = KeyedArchiver::archivedDataWithRootObject(std::make_shared<ShortFrame>());
    EXPECT_EQ(KeyedUnarchiver::unarchiveObjectWithData(bytes), nullptr);
    EXPECT_EQ(capture.count("Error: archived audio frame is damaged."), 1u);
}
