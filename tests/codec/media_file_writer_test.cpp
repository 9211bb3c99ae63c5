#include "support/MediaFileWriter.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
}

namespace qm::test {
namespace {

struct InputClose {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct PacketFree {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
using InputPtr = std::unique_ptr<AVFormatContext, InputClose>;
using PacketPtr = std::unique_ptr<AVPacket, PacketFree>;

InputPtr openInput(const std::string& path) {
    AVFormatContext* context = nullptr;
    if (avformat_open_input(&context, path.c_str(), nullptr, nullptr) < 0) return nullptr;
    InputPtr input(context);
    if (avformat_find_stream_info(context, nullptr) < 0) return nullptr;
    return input;
}

struct PacketInfo {
    int64_t pts, dts, duration;
};

std::vector<PacketInfo> readPackets(AVFormatContext* input, int streamIndex) {
    std::vector<PacketInfo> packets;
    PacketPtr packet(av_packet_alloc());
    while (av_read_frame(input, packet.get()) >= 0) {
        if (packet->stream_index == streamIndex) packets.push_back({packet->pts, packet->dts, packet->duration});
        av_packet_unref(packet.get());
    }
    return packets;
}

VideoTrackSpec videoSpec(const std::string& codec, int frameCount) {
    VideoTrackSpec video;
    video.codec = codec;
    video.frameCount = frameCount;
    return video;
}

class MediaFileWriterTest : public ::testing::Test {
protected:
    TemporaryDirectory directory{"media-file-writer"};
};

// Decoding tests read these files through the engine; what they cannot see is checked here
// with libavformat directly: real reordering, and the sign of the rotation.
TEST_F(MediaFileWriterTest, BFramesAreReallyReordered) {
    for (const std::string codec : {"libx264", "mpeg4"}) {
        for (int bFrames : {0, 2}) {
            MediaFileSpec recipe;
            recipe.video = videoSpec(codec, 15);
            recipe.video->maxBFrames = bFrames;
            const std::string path = directory.file(codec + std::to_string(bFrames) + ".mp4");
            ASSERT_EQ(writeMediaFile(path, recipe), "");
            InputPtr input = openInput(path);
            ASSERT_TRUE(input);
            std::vector<PacketInfo> packets = readPackets(input.get(), 0);
            ASSERT_EQ(packets.size(), 15u);
            // A B-frame arrives after a frame it precedes on screen, and its pts differs from its dts.
            int arrivesLate = 0, ptsNotDts = 0;
            int64_t latest = INT64_MIN;
            for (const PacketInfo& packet : packets) {
                arrivesLate += packet.pts < latest;
                ptsNotDts += packet.pts != packet.dts;
                latest = std::max(latest, packet.pts);
            }
            if (bFrames > 0) {
                EXPECT_GT(arrivesLate, 0) << path;
                EXPECT_GT(ptsNotDts, 0) << path;
            } else {
                EXPECT_EQ(arrivesLate, 0) << path;
            }
        }
    }
}

TEST_F(MediaFileWriterTest, RotationReadsBackAsDisplayMatrix) {
    for (const std::string extension : {".mp4", ".mov"}) {
        for (int degrees : {0, 90, 180, 270}) {
            MediaFileSpec recipe;
            recipe.video = videoSpec("libx264", 2);
            recipe.video->rotationDegrees = degrees;
            const std::string path = directory.file("rotated" + std::to_string(degrees) + extension);
            ASSERT_EQ(writeMediaFile(path, recipe), "");
            InputPtr input = openInput(path);
            ASSERT_TRUE(input);
            const auto* matrix = reinterpret_cast<const int32_t*>(
                av_stream_get_side_data(input->streams[0], AV_PKT_DATA_DISPLAYMATRIX, nullptr));
            if (degrees == 0) {
                EXPECT_TRUE(matrix == nullptr || std::lround(av_display_rotation_get(matrix)) == 0) << path;
                continue;
            }
            ASSERT_NE(matrix, nullptr) << path;
            // -degrees, folded into (-180, 180].
            const long expected = degrees == 180 ? 180 : (degrees == 90 ? -90 : 90);
            long got = std::lround(av_display_rotation_get(matrix));
            if (got == -180) got = 180;
            EXPECT_EQ(got, expected)
                << path;
        }
    }
}

TEST(FrameColour, NeighboursStayApartAndClassifyBack) {
    for (int i = 0; i < kFrameColourPeriod; ++i) {
        const RGB a = frameColour(i), b = frameColour(i + 1);
        EXPECT_GE(std::abs(a.r - b.r), 40) << i;
        EXPECT_GE(std::abs(a.g - b.g), 40) << i;
        EXPECT_GE(std::abs(a.b - b.b), 40) << i;
        EXPECT_EQ(nearestFrameIndex(a, kFrameColourPeriod), i);
        const RGB shifted{uint8_t(a.r + 15), uint8_t(a.g - 15), uint8_t(a.b + 15)};
        EXPECT_EQ(nearestFrameIndex(shifted, kFrameColourPeriod), i);
    }
    EXPECT_EQ(nearestFrameIndex(frameColour(7), 5), 2) << "colours of later frames are not candidates";
}

}  // namespace
}  // namespace qm::test
