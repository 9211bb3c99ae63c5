#include <gtest/gtest.h>

#include <algorithm>

#include "CaptureCollector.h"
#include "recording/capture/CaptureClock.h"
#include "recording/capture/CaptureSession.h"
#include "recording/capture/CursorOverlay.h"
#include "recording/capture/ScreenInput.h"
#include "support/HeadlessDesktop.h"

namespace qm {
namespace {

using test::bgrAt;
using Bgr = std::array<uint8_t, 3>;

constexpr Bgr kBlack{0, 0, 0};
constexpr Bgr kRed{0, 0, 255};
constexpr Bgr kGreen{0, 255, 0};
constexpr Bgr kGray{128, 128, 128};

class ScreenCaptureTest : public ::testing::Test {
protected:
    void SetUp() override {
        display = std::make_unique<test::PrivateDisplay>(320, 240);
        display->fillRectangle(0, 0, 320, 240, 0x000000);
        display->fillRectangle(20, 30, 100, 50, 0xFF0000);
        display->fillRectangle(200, 100, 60, 60, 0x00FF00);
        display->fillRectangle(0, 200, 60, 40, 0x808080);
        display->warpPointer(30, 220);
    }

    // Runs a session on `input` until `frames` pictures have come.
    std::vector<std::shared_ptr<VideoSampleBuffer>> capture(const std::shared_ptr<ScreenInput>& input, size_t frames,
                                                            CaptureVideoSettings settings = {}) {
        auto session = CaptureSession::create();
        auto output = CaptureVideoDataOutput::create();
        output->setVideoSettings(settings);
        output->setAlwaysDiscardsLateVideoFrames(false);
        output->setSampleBufferDelegate(collector, DispatchQueue::createSerial());
        session->addInput(input);
        session->addOutput(output);
        session->startRunning();
        EXPECT_TRUE(collector->waitForVideo(frames));
        session->stopRunning();
        return collector->video();
    }

    std::shared_ptr<ScreenInput> screen() {
        auto input = ScreenInput::createWithDisplayID(display->name());
        input->setCapturesCursor(false);
        return input;
    }

    std::unique_ptr<test::PrivateDisplay> display;
    std::shared_ptr<test::CaptureCollector> collector = std::make_shared<test::CaptureCollector>();
};

TEST_F(ScreenCaptureTest, WholeDisplayShowsWhatWasDrawnOnTheMonotonicClockAtTheFrameRate) {
    const CMTime before = captureClockNow();
    const auto frames = capture(screen(), 15);
    const CMTime after = captureClockNow();
    ASSERT_GE(frames.size(), 15u);

    const auto& picture = *frames.back()->imageBuffer();
    EXPECT_EQ(picture.width(), 320);
    EXPECT_EQ(picture.height(), 240);
    EXPECT_EQ(frames.back()->formatDescription()->pixelFormatType(), kCVPixelFormatType_32BGRA);
    EXPECT_EQ(bgrAt(picture, 20, 30), kRed);
    EXPECT_EQ(bgrAt(picture, 119, 79), kRed);
    EXPECT_EQ(bgrAt(picture, 120, 80), kBlack);
    EXPECT_EQ(bgrAt(picture, 230, 130), kGreen);
    EXPECT_EQ(bgrAt(picture, 5, 5), kBlack);
    EXPECT_EQ(picture.plane(0)[3], 255);

    std::vector<int64_t> gaps;
    for (size_t i = 0; i < frames.size(); ++i) {
        const CMTime time = frames[i]->presentationTime();
        EXPECT_EQ(time.timescale, kCaptureClockTimescale);
        EXPECT_GT(time.value, before.value);
        EXPECT_LT(time.value, after.value);
        if (i > 0) gaps.push_back(time.value - frames[i - 1]->presentationTime().value);
    }
    // Pictures come at most once per 1/30 s, give or take the scheduler's wake-up.
    std::sort(gaps.begin(), gaps.end());
    const int64_t period = kCaptureClockTimescale / 30;
    EXPECT_GT(gaps.front(), period / 2);
    EXPECT_GE(gaps[gaps.size() / 2], period * 9 / 10);
    EXPECT_EQ(frames.back()->duration().value * 30, frames.back()->duration().timescale);
}

TEST_F(ScreenCaptureTest, CropRectRecordsOnlyItsPartAndOutputSizeScalesIt) {
    auto input = screen();
    input->setCropRect(Rect{{20, 30}, {100, 50}});
    const auto cropped = capture(input, 1);
    const auto& picture = *cropped.front()->imageBuffer();
    ASSERT_EQ(picture.width(), 100);
    ASSERT_EQ(picture.height(), 50);
    for (auto [x, y] : {std::pair{0, 0}, {99, 0}, {0, 49}, {99, 49}, {50, 25}}) EXPECT_EQ(bgrAt(picture, x, y), kRed);

    auto wider = screen();
    wider->setCropRect(Rect{{180, 90}, {101, 51}});
    collector = std::make_shared<test::CaptureCollector>();
    const auto scaled = capture(wider, 1, {kCVPixelFormatType_32BGRA, 102, 52, true});
    const auto& larger = *scaled.front()->imageBuffer();
    ASSERT_EQ(larger.width(), 102);
    ASSERT_EQ(larger.height(), 52);
    EXPECT_EQ(bgrAt(larger, 2, 2), kBlack);
    EXPECT_EQ(bgrAt(larger, 60, 40), kGreen);
}

TEST_F(ScreenCaptureTest, CursorIsDrawnInOnlyWhenAskedFor) {
    auto input = screen();
    input->setCropRect(Rect{{0, 200}, {60, 40}});
    const auto plain = capture(input, 1);
    const auto& without = *plain.front()->imageBuffer();
    for (int y = 0; y < 40; ++y) {
        for (int x = 0; x < 60; ++x) ASSERT_EQ(bgrAt(without, x, y), kGray) << x << "," << y;
    }

    input->setCapturesCursor(true);
    collector = std::make_shared<test::CaptureCollector>();
    const auto withCursor = capture(input, 1);
    const auto& with = *withCursor.front()->imageBuffer();
    int changed = 0;
    for (int y = 0; y < 40; ++y) {
        for (int x = 0; x < 60; ++x) changed += bgrAt(with, x, y) != kGray;
    }
    EXPECT_GT(changed, 10);
}

TEST_F(ScreenCaptureTest, ARingMarksThePointerWhileTheButtonIsDown) {
    auto input = screen();
    input->setCapturesMouseClicks(true);
    input->setCropRect(Rect{{0, 200}, {60, 40}});
    const Bgr ring{0x1F, 0xD2, 0xFF};
    const int ringX = 30 + CursorOverlay::kClickRingRadius - 1;

    display->setLeftButtonDown(true);
    const auto pressed = capture(input, 1);
    display->setLeftButtonDown(false);
    EXPECT_EQ(bgrAt(*pressed.front()->imageBuffer(), ringX, 20), ring);
    EXPECT_EQ(bgrAt(*pressed.front()->imageBuffer(), 30, 20), kGray);

    collector = std::make_shared<test::CaptureCollector>();
    const auto released = capture(input, 1);
    EXPECT_EQ(bgrAt(*released.front()->imageBuffer(), ringX, 20), kGray);
}

TEST(ScreenCaptureFailureTest, NoDisplayGivesNoCaptureAndTheReason) {
    auto input = ScreenInput::createWithDisplayID(":987");
    CaptureError error;
    EXPECT_EQ(input->startVideo(
                  {}, [](auto) {}, &error),
              nullptr);
    EXPECT_EQ(error.description, "Cannot open display \":987\".");
}

std::shared_ptr<PixelBuffer> filledPicture(int width, int height, uint8_t value) {
    auto picture = createPixelBufferWithType(width, height, kCVPixelFormatType_32BGRA);
    for (int y = 0; y < height; ++y)
        std::fill_n(picture->mutablePlane(0) + y * picture->bytesPerRow(0), width * 4, value);
    return picture;
}

TEST(CursorOverlayTest, CursorBlendsPremultipliedAtItsHotSpotAndClipsAtTheEdges) {
    auto picture = filledPicture(8, 8, 255);
    CursorImage cursor;
    cursor.width = 3;
    cursor.height = 3;
    cursor.xhot = 1;
    cursor.yhot = 1;
    // Half-covering red (premultiplied) everywhere, a transparent centre.
    cursor.pixels.assign(9, 0x80800000u);
    cursor.pixels[4] = 0;
    CursorOverlay::drawCursor(*picture, cursor, 0, 0);
    // Over white: red 128 + 255 * 127 / 255 = 255, green and blue 255 * 127 / 255 = 127.
    EXPECT_EQ(bgrAt(*picture, 1, 1), (Bgr{127, 127, 255}));
    EXPECT_EQ(bgrAt(*picture, 1, 0), (Bgr{127, 127, 255}));
    EXPECT_EQ(bgrAt(*picture, 0, 0), (Bgr{255, 255, 255}));
    EXPECT_EQ(bgrAt(*picture, 2, 2), (Bgr{255, 255, 255}));

    CursorOverlay::drawCursor(*picture, cursor, 100, 100);
    CursorOverlay::drawCursor(*picture, cursor, -5, 3);
    EXPECT_EQ(bgrAt(*picture, 7, 7), (Bgr{255, 255, 255}));
}

TEST(CursorOverlayTest, ClickRingCoversItsBandOnly) {
    auto picture = filledPicture(40, 40, 0);
    CursorOverlay::drawClickRing(*picture, 20, 20);
    const Bgr ring{0x1F, 0xD2, 0xFF};
    EXPECT_EQ(bgrAt(*picture, 20 + CursorOverlay::kClickRingRadius, 20), ring);
    EXPECT_EQ(bgrAt(*picture, 20, 20 - CursorOverlay::kClickRingRadius + CursorOverlay::kClickRingWidth), ring);
    EXPECT_EQ(bgrAt(*picture, 20, 20), kBlack);
    EXPECT_EQ(bgrAt(*picture, 20 + CursorOverlay::kClickRingRadius - CursorOverlay::kClickRingWidth - 1, 20), kBlack);
    EXPECT_EQ(bgrAt(*picture, 20 + CursorOverlay::kClickRingRadius + 1, 20), kBlack);

    CursorOverlay::drawClickRing(*picture, 0, 39);
    EXPECT_EQ(bgrAt(*picture, CursorOverlay::kClickRingRadius, 39), ring);
}

}  // namespace
}  // namespace qm
