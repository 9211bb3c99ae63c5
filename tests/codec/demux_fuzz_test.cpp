#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <random>

extern "C" {
#include <libavutil/log.h>
}

#include "codec/QVDemuxerContext.h"
#include "codec/QVJPEGEncoderHW.h"
#include "support/MediaFileWriter.h"
#include "support/TestEnvironment.h"

namespace qm {
namespace {

std::vector<char> readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// Damages a copy of `original`: a few runs of random bytes, and now and then a cut.
std::vector<char> damaged(const std::vector<char>& original, std::mt19937& random) {
    std::vector<char> bytes = original;
    const int runs = 1 + static_cast<int>(random() % 6);
    for (int r = 0; r < runs; ++r) {
        const size_t at = random() % bytes.size();
        const size_t length = std::min<size_t>(1 + random() % 24, bytes.size() - at);
        for (size_t i = 0; i < length; ++i) bytes[at + i] = static_cast<char>(random());
    }
    if (random() % 4 == 0) bytes.resize(1 + random() % bytes.size());
    return bytes;
}

// Decodes everything a damaged file still gives; whatever comes out must be well formed.
void decodeEverything(const std::string& path, const QVJPEGEncoderHW& encoder) {
    auto context = QVDemuxerContext::createWithFilename(path);
    if (!context) return;
    const Size display = context->videoDisplaySize();
    int frames = 0;
    while (auto frame = context->decodeNextVideoFrame()) {
        const auto& picture = frame->cvImageBuffer();
        ASSERT_NE(picture, nullptr);
        EXPECT_EQ(picture->width(), static_cast<int>(display.width));
        EXPECT_EQ(picture->height(), static_cast<int>(display.height));
        if (frames++ % 4 == 0) {
            EXPECT_FALSE(encoder.encodeImageBuffer(*picture).empty());
        }
    }
    while (auto frame = context->decodeNextAudioFrame()) {
        EXPECT_GT(frame->sampleRate(), 0);
        EXPECT_GT(frame->numberOfChannel(), 0);
        EXPECT_EQ(frame->dataOfPackedSamples().size(),
                  static_cast<size_t>(frame->numberOfSamples()) * frame->bytesForSample());
    }
}

TEST(DemuxFuzzTest, DamagedMoviesDecodeToWellFormedFramesOrNothing) {
    test::TemporaryDirectory directory;
    test::MediaFileSpec h264;
    h264.video = test::VideoTrackSpec{.width = 48, .height = 32, .frameCount = 12, .maxBFrames = 2};
    h264.audio = test::AudioTrackSpec{.seconds = 0.5};
    test::MediaFileSpec mpeg4;
    mpeg4.video = test::VideoTrackSpec{.width = 33, .height = 17, .frameCount = 8, .codec = "mpeg4",
                                       .rotationDegrees = 90};
    mpeg4.audio = test::AudioTrackSpec{.codec = "pcm_s16le", .seconds = 0.3};
    const auto encoder = QVJPEGEncoderHW::create();
    std::mt19937 random(20261121);
    for (const auto& [name, recipe] : {std::pair{"h264.mp4", h264}, std::pair{"mpeg4.mov", mpeg4},
                                     std::pair{"h264.mkv", h264}}) {
        const std::string original = directory.file(name);
        ASSERT_EQ(test::writeMediaFile(original, recipe), "");
        const std::vector<char> bytes = readAll(original);
        // Damaged streams make decoders complain at length.
        av_log_set_level(AV_LOG_QUIET);
        const std::string victim = directory.file(std::string("damaged-") + name);
        for (int round = 0; round < 120; ++round) {
            const std::vector<char> copy = damaged(bytes, random);
            std::ofstream(victim, std::ios::binary | std::ios::trunc).write(copy.data(), copy.size());
            SCOPED_TRACE(::testing::Message() << name << " round " << round);
            decodeEverything(victim, *encoder);
            if (HasFailure()) return;
        }
    }
}

}  // namespace
}  // namespace qm
