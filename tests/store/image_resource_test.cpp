#include "store/SCImageResource.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "platform/FileBookmark.h"
#include "platform/ImageSource.h"
#include "platform/KeyedArchiver.h"
#include "foundation/QMCommon.h"
#include "platform/Log.h"
#include "platform/image/Image.h"
#include "store/SCResource.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include "support/TestEnvironment.h"

namespace qm {
namespace {

using Rgba = std::array<uint8_t, 4>;

constexpr Rgba kRed{220, 30, 30, 255};
constexpr Rgba kGreen{30, 200, 40, 255};
constexpr Rgba kBlue{30, 40, 210, 255};

// Writes pictures through an FFmpeg encoder and muxer ("image2pipe" for one picture, "gif" for
// an animation). `fill` sets the pixels of picture k in the encoder's pixel format.
bool writeWithFFmpeg(const std::string& path, const char* muxer, AVCodecID codecId, AVPixelFormat format, int width,
                     int height, int pictures, const std::function<void(AVFrame&, int)>& fill) {
    AVFormatContext* output = nullptr;
    if (avformat_alloc_output_context2(&output, nullptr, muxer, path.c_str()) < 0) return false;
    const AVCodec* codec = avcodec_find_encoder(codecId);
    AVCodecContext* encoder = codec ? avcodec_alloc_context3(codec) : nullptr;
    AVStream* stream = avformat_new_stream(output, nullptr);
    AVFrame* frame = av_frame_alloc();
    AVPacket* packet = av_packet_alloc();
    bool ok = encoder && stream && frame && packet;
    if (ok) {
        encoder->width = width;
        encoder->height = height;
        encoder->pix_fmt = format;
        encoder->time_base = AVRational{1, 10};
        ok = avcodec_open2(encoder, codec, nullptr) >= 0 &&
             avcodec_parameters_from_context(stream->codecpar, encoder) >= 0;
    }
    if (ok) {
        stream->time_base = encoder->time_base;
        ok = avio_open(&output->pb, path.c_str(), AVIO_FLAG_WRITE) >= 0 && avformat_write_header(output, nullptr) >= 0;
    }
    const auto drain = [&] {
        while (avcodec_receive_packet(encoder, packet) >= 0) {
            av_packet_rescale_ts(packet, encoder->time_base, stream->time_base);
            packet->stream_index = stream->index;
            av_interleaved_write_frame(output, packet);
        }
    };
    for (int k = 0; ok && k < pictures; ++k) {
        frame->format = format;
        frame->width = width;
        frame->height = height;
        ok = av_frame_get_buffer(frame, 0) >= 0;
        if (!ok) break;
        fill(*frame, k);
        frame->pts = k;
        ok = avcodec_send_frame(encoder, frame) >= 0;
        av_frame_unref(frame);
        drain();
    }
    if (ok) {
        avcodec_send_frame(encoder, nullptr);
        drain();
        ok = av_write_trailer(output) >= 0;
    }
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&encoder);
    if (output->pb) avio_closep(&output->pb);
    avformat_free_context(output);
    return ok;
}

// Fills a packed RGB-like frame: `order` gives the byte positions of R, G, B (and A if 4 bytes).
void fillPacked(AVFrame& frame, const Rgba& color, int bytesPerPixel, std::array<int, 4> order) {
    for (int y = 0; y < frame.height; ++y) {
        for (int x = 0; x < frame.width; ++x) {
            uint8_t* p = frame.data[0] + y * frame.linesize[0] + x * bytesPerPixel;
            for (int c = 0; c < bytesPerPixel; ++c) p[order[c]] = color[c];
        }
    }
}

void writeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                                static_cast<std::streamsize>(bytes.size()));
}

bool near(const Rgba& actual, const Rgba& expected, int tolerance = 6) {
    for (int c = 0; c < 4; ++c) {
        if (std::abs(int(actual[c]) - int(expected[c])) > tolerance) return false;
    }
    return true;
}

std::shared_ptr<const Bitmap> solid(int width, int height, const Rgba& color) {
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4);
    for (size_t i = 0; i < pixels.size(); i += 4) std::memcpy(&pixels[i], color.data(), 4);
    return Bitmap::createWithPixels(width, height, std::move(pixels));
}

class ImageResourceTest : public ::testing::Test {
protected:
    void SetUp() override {
        registerStoreArchiveClasses();
    }

    std::string path(const std::string& name) const { return _directory + "/" + name; }

    // Three 40x30 frames: red, green, blue.
    std::string writeGif() const {
        const std::string file = path("three.gif");
        const bool ok = writeWithFFmpeg(file, "gif", AV_CODEC_ID_GIF, AV_PIX_FMT_PAL8, 40, 30, 3, [](AVFrame& f, int k) {
            auto* palette = reinterpret_cast<uint32_t*>(f.data[1]);
            for (int i = 0; i < 256; ++i) palette[i] = 0xFF000000u;
            const Rgba colors[3] = {kRed, kGreen, kBlue};
            palette[1] = 0xFF000000u | (uint32_t(colors[k][0]) << 16) | (uint32_t(colors[k][1]) << 8) | colors[k][2];
            for (int y = 0; y < f.height; ++y) std::memset(f.data[0] + y * f.linesize[0], 1, f.width);
        });
        EXPECT_TRUE(ok);
        return file;
    }

    test::PrivateUserDirectories _user{"image_resource_test"};
    const std::string _directory = _user.path();
};

// MARK: - ImageSource

TEST_F(ImageResourceTest, SourceDecodesOnePictureOfEachStillFormat) {
    writeFile(path("a.png"), solid(40, 30, kGreen)->PNGRepresentation());
    writeFile(path("a.jpg"), solid(40, 30, kBlue)->JPEGRepresentation(90));
    ASSERT_TRUE(writeWithFFmpeg(path("a.bmp"), "image2pipe", AV_CODEC_ID_BMP, AV_PIX_FMT_BGR24, 40, 30, 1,
                                [](AVFrame& f, int) { fillPacked(f, kRed, 3, {2, 1, 0, 3}); }));
    const std::pair<const char*, Rgba> cases[] = {{"a.png", kGreen}, {"a.jpg", kBlue}, {"a.bmp", kRed}};
    for (const auto& [name, color] : cases) {
        const auto source = ImageSource::createWithURL(path(name));
        ASSERT_TRUE(source) << name;
        EXPECT_EQ(source->count(), 1u) << name;
        const auto picture = source->createImageAtIndex(0);
        ASSERT_TRUE(picture) << name;
        EXPECT_EQ(picture->height(), 30);
        EXPECT_TRUE(near(picture->pixelAt(20, 15), color)) << name;
    }
}

TEST_F(ImageResourceTest, SourceGivesPremultipliedPixelsForTransparentPictures) {
    ASSERT_TRUE(writeWithFFmpeg(path("alpha.tif"), "image2pipe", AV_CODEC_ID_TIFF, AV_PIX_FMT_RGBA, 8, 8, 1,
                                [](AVFrame& f, int) { fillPacked(f, Rgba{200, 100, 50, 128}, 4, {0, 1, 2, 3}); }));
    const auto picture = ImageSource::createWithURL(path("alpha.tif"))->createImageAtIndex(0);
    ASSERT_TRUE(picture);
    EXPECT_TRUE(near(picture->pixelAt(3, 3), Rgba{100, 50, 25, 128}, 2));
}

TEST_F(ImageResourceTest, SourceGivesEveryFrameOfAGifInAnyOrder) {
    const auto source = ImageSource::createWithURL(writeGif());
    ASSERT_TRUE(source);
    ASSERT_EQ(source->count(), 3u);
    EXPECT_TRUE(near(source->createImageAtIndex(2)->pixelAt(20, 15), kBlue));
    EXPECT_TRUE(near(source->createImageAtIndex(0)->pixelAt(20, 15), kRed));
    EXPECT_EQ(source->createImageAtIndex(3), nullptr);
}

TEST_F(ImageResourceTest, SourceRefusesMissingUnknownAndIcnsFilesAndSurvivesDamagedOnes) {
    EXPECT_EQ(ImageSource::createWithURL(path("missing.png")), nullptr);
    // An icns container: FFmpeg has no decoder for it.
    std::vector<uint8_t> icns{'i', 'c', 'n', 's', 0, 0, 0, 16, 'i', 'c', '0', '8', 0, 0, 0, 8};
    writeFile(path("icon.icns"), icns);
    EXPECT_EQ(ImageSource::createWithURL(path("icon.icns")), nullptr);
    writeFile(path("text.png"), std::vector<uint8_t>(100, 'x'));
    const auto text = ImageSource::createWithURL(path("text.png"));
    EXPECT_TRUE(!text || !text->createImageAtIndex(0));

    auto png = solid(64, 64, kRed)->PNGRepresentation();
    png.resize(png.size() / 2);
    writeFile(path("half.png"), png);
    const auto half = ImageSource::createWithURL(path("half.png"));
    const auto partial = half ? half->createImageAtIndex(0) : nullptr;
    EXPECT_TRUE(!partial || (partial->width() == 64 && partial->height() == 64));
}

// MARK: - FileBookmark

TEST_F(ImageResourceTest, BookmarkRoundTripsAndResolvesOnlyToAReadableFile) {
    EXPECT_FALSE(FileBookmark::bookmarkWithPath(path("missing")));
    writeFile(path("f.png"), {1, 2, 3});
    const auto bookmark = FileBookmark::bookmarkWithPath(path("f.png"));
    ASSERT_TRUE(bookmark);
    const auto copy = FileBookmark::createWithData(bookmark->data());
    ASSERT_TRUE(copy);
    bool stale = true;
    EXPECT_EQ(copy->resolve(&stale), path("f.png"));
    EXPECT_FALSE(stale);

    writeFile(path("f.png"), {1, 2, 3, 4});
    EXPECT_EQ(copy->resolve(&stale), path("f.png"));
    EXPECT_TRUE(stale);
    std::filesystem::remove(path("f.png"));
    EXPECT_FALSE(copy->resolve());

    LogCapture capture;
    EXPECT_FALSE(FileBookmark::createWithData({0xA1, 0x61, 0x62}));
    EXPECT_EQ(capture.count("Error: damaged file bookmark."), 1u);
}

// MARK: - SCImageResource

TEST_F(ImageResourceTest, ResourceDecodesEveryPictureAtTheFirstRequestAndKeepsThem) {
    const std::string file = writeGif();
    const auto gif = SCImageResource::createWithURL(file);
    EXPECT_EQ(gif->name(), "three");
    EXPECT_EQ(gif->cgImageAtIndex(-1), nullptr);
    EXPECT_EQ(gif->cgImageAtIndex(3), nullptr);
    EXPECT_EQ(gif->width(), 40);
    const auto first = gif->cgImageAtIndex(0);
    std::filesystem::remove(file);
    EXPECT_EQ(gif->numberOfImages(), 3);
    EXPECT_EQ(gif->cgImageAtIndex(0), first);
    EXPECT_TRUE(near(gif->cgImageAtIndex(2)->pixelAt(20, 15), kBlue));
    // The image for composition shows the same picture.
    const Image second = gif->ciImageAtIndex(1);
    EXPECT_EQ(second.extent(), (Rect{{0, 0}, {40, 30}}));
    const auto rendered = QMCommon::CGImageConvertFromCIImage(second);
    ASSERT_NE(rendered, nullptr);
    EXPECT_TRUE(near(rendered->pixelAt(1, 1), kGreen));
    EXPECT_TRUE(gif->imageAtIndex(3).isNull());

    const auto missing = SCImageResource::createWithURL(path("nothing.png"));
    EXPECT_EQ(missing->numberOfImages(), 0);
    EXPECT_EQ(missing->width(), 0);
}

TEST_F(ImageResourceTest, ConcurrentReadersShareOneCache) {
    const auto gif = SCImageResource::createWithURL(writeGif());
    std::vector<std::shared_ptr<const Bitmap>> seen(4);
    std::vector<std::thread> readers;
    for (int r = 0; r < 4; ++r) readers.emplace_back([&, r] { seen[r] = gif->cgImageAtIndex(r % 3); });
    for (auto& reader : readers) reader.join();
    EXPECT_EQ(seen[0], seen[3]);
    EXPECT_TRUE(seen[1] && seen[2]);
}

TEST_F(ImageResourceTest, PosterPlacesPictureZeroByItsSourceRectangle) {
    // A 4:3 picture: its source rectangle for the poster is its own size at the origin, so it is
    // drawn unscaled at the poster's lower left.
    writeFile(path("small.png"), solid(40, 30, kRed)->PNGRepresentation());
    const auto poster = SCImageResource::createWithURL(path("small.png"))->thumbnail();
    ASSERT_TRUE(poster);
    EXPECT_EQ(poster->height(), 300);
    EXPECT_TRUE(near(poster->pixelAt(5, 295), kRed));
    EXPECT_TRUE(near(poster->pixelAt(39, 270), kRed));
    EXPECT_EQ(poster->pixelAt(41, 295)[3], 0);
    EXPECT_EQ(poster->pixelAt(5, 268)[3], 0);

    const auto blank = SCImageResource::createWithURL(path("none.png"))->thumbnail();
    ASSERT_TRUE(blank);
    EXPECT_EQ(blank->pixelAt(5, 295)[3], 0);
}

TEST_F(ImageResourceTest, ArchiveKeepsABookmarkAndAFileThatWentAwayReadsAsNothing) {
    writeFile(path("kept.png"), solid(10, 10, kGreen)->PNGRepresentation());
    const auto image = SCImageResource::createWithURL(path("kept.png"));
    const auto archive = KeyedArchiver::archivedDataWithRootObject(image);
    const auto decoded = std::dynamic_pointer_cast<SCImageResource>(KeyedUnarchiver::unarchiveObjectWithData(archive));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->url(), path("kept.png"));
    EXPECT_EQ(decoded->numberOfImages(), 1);

    std::filesystem::remove(path("kept.png"));
    LogCapture capture;
    EXPECT_EQ(KeyedUnarchiver::unarchiveObjectWithData(archive), nullptr);
    EXPECT_EQ(capture.count("Failed to access image(" + path("kept.png") + ")"), 1u);

    // A picture that was never there has no bookmark to keep.
    const auto never = KeyedArchiver::archivedDataWithRootObject(SCImageResource::createWithURL(path("never.png")));
    EXPECT_EQ(KeyedUnarchiver::unarchiveObjectWithData(never), nullptr);
    EXPECT_EQ(capture.count("Failed to access image((null))"), 1u);
}

}  // namespace
}  // namespace qm
