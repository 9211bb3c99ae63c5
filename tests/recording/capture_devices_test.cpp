#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>

#include "CaptureCollector.h"
#include "recording/capture/CaptureClock.h"
#include "recording/capture/CaptureSession.h"
#include "recording/capture/PulseMicrophone.h"
#include "recording/capture/SoftwareCamera.h"
#include "support/HeadlessDesktop.h"

namespace qm {
namespace {

// Rising zero crossings per second of the first channel of interleaved float frames.
double frequencyOf(const std::vector<float>& samples, int channels, double sampleRate) {
    int crossings = 0;
    for (size_t i = channels; i < samples.size(); i += channels)
        crossings += samples[i - channels] < 0 && samples[i] >= 0;
    return crossings * sampleRate / (samples.size() / channels);
}

void startCapture(const std::shared_ptr<CaptureSession>& session, const std::shared_ptr<CaptureInput>& input,
                  const std::shared_ptr<CaptureOutput>& output,
                  const std::shared_ptr<test::CaptureCollector>& collector) {
    output->setSampleBufferDelegate(collector, DispatchQueue::createSerial());
    session->addInput(input);
    session->addOutput(output);
    session->startRunning();
}

class MicrophoneTest : public ::testing::Test {
protected:
    test::PrivateSoundServer server{440};
};

TEST_F(MicrophoneTest, DefaultSourceListsFloatThenIntegerAt48kHz) {
    auto microphone = CaptureDevice::defaultDeviceWithMediaType(CaptureMediaType::audio);
    ASSERT_NE(microphone, nullptr);
    EXPECT_EQ(microphone->uniqueID(), "nullsink.monitor");
    EXPECT_EQ(CaptureDevice::authorizationStatusForMediaType(CaptureMediaType::audio), CaptureDevice::authorized);
    ASSERT_GE(microphone->formats().size(), 2u);
    const auto& first = microphone->formats()[0]->streamDescription();
    EXPECT_EQ(first.mSampleRate, 48000.0);
    EXPECT_EQ(first.mBitsPerChannel, 32u);
    EXPECT_EQ(first.mFormatFlags, kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked);
    EXPECT_EQ(first.mBytesPerFrame, first.mChannelsPerFrame * 4);
    const auto& second = microphone->formats()[1]->streamDescription();
    EXPECT_EQ(second.mBitsPerChannel, 16u);
    EXPECT_EQ(second.mFormatFlags, kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked);
}

TEST_F(MicrophoneTest, CaptureGivesTheToneInContiguousStampedBlocks) {
    auto microphone = CaptureDevice::defaultDeviceWithMediaType(CaptureMediaType::audio);
    ASSERT_NE(microphone, nullptr);
    auto session = CaptureSession::create();
    auto output = CaptureAudioDataOutput::create();
    output->setAudioSettings({0x6C70636D, 48000, 2, 32, true, false});
    auto collector = std::make_shared<test::CaptureCollector>();
    const CMTime before = captureClockNow();
    startCapture(session, CaptureDeviceInput::deviceInputWithDevice(microphone, nullptr), output, collector);
    ASSERT_TRUE(collector->waitForAudio(40));
    session->stopRunning();
    const CMTime after = captureClockNow();

    const auto buffers = collector->audio();
    std::vector<float> samples;
    std::vector<int64_t> gaps;
    for (size_t i = 0; i < buffers.size(); ++i) {
        const auto& buffer = *buffers[i];
        const auto& format = buffer.format().streamDescription();
        ASSERT_EQ(format.mSampleRate, 48000.0);
        ASSERT_EQ(format.mChannelsPerFrame, 2u);
        ASSERT_EQ(format.mFormatFlags & kAudioFormatFlagIsFloat, kAudioFormatFlagIsFloat);
        ASSERT_EQ(buffer.sampleCount(), PulseMicrophone::kFramesPerBuffer);
        const size_t start = samples.size();
        samples.resize(start + buffer.bytes().size() / 4);
        std::memcpy(samples.data() + start, buffer.bytes().data(), buffer.bytes().size());
        EXPECT_LT(buffer.presentationTime().value, after.value);
        if (i > 0) gaps.push_back(buffer.presentationTime().value - buffers[i - 1]->presentationTime().value);
    }
    // Each block starts where the previous one ended: 1024 / 48000 s, within the jitter of reads.
    std::sort(gaps.begin(), gaps.end());
    const int64_t block = int64_t{kCaptureClockTimescale} * 1024 / 48000;
    EXPECT_NEAR(gaps[gaps.size() / 2], block, block / 4);
    // The first block was taken after the capture began, less the server's buffering.
    EXPECT_GT(buffers.front()->presentationTime().value, before.value - kCaptureClockTimescale / 2);
    EXPECT_NEAR(frequencyOf(samples, 2, 48000), 440.0, 3.0);
    EXPECT_GT(*std::max_element(samples.begin(), samples.end()), 0.1f);
}

TEST(MicrophoneToneStartTest, SoundIsStampedWithTheTimeItWasHeard) {
    test::PrivateSoundServer server{std::nullopt};
    auto microphone = CaptureDevice::defaultDeviceWithMediaType(CaptureMediaType::audio);
    ASSERT_NE(microphone, nullptr);
    auto session = CaptureSession::create();
    auto output = CaptureAudioDataOutput::create();
    output->setAudioSettings({0x6C70636D, 48000, 2, 32, true, false});
    auto collector = std::make_shared<test::CaptureCollector>();
    startCapture(session, CaptureDeviceInput::deviceInputWithDevice(microphone, nullptr), output, collector);
    ASSERT_TRUE(collector->waitForAudio(10));
    const CMTime before = captureClockNow();
    server.playTone(440);
    const CMTime after = captureClockNow();
    ASSERT_TRUE(collector->waitForAudio(collector->audio().size() + 20));
    session->stopRunning();

    std::optional<int64_t> heard;
    for (const auto& buffer : collector->audio()) {
        const auto* samples = reinterpret_cast<const float*>(buffer->bytes().data());
        for (int64_t frame = 0; frame < buffer->sampleCount() && !heard; ++frame) {
            if (std::abs(samples[frame * 2]) > 0.05f) {
                heard = buffer->presentationTime().value + frame * kCaptureClockTimescale / 48000;
            }
        }
        if (heard) break;
    }
    ASSERT_TRUE(heard);
    // The tone began while pactl loaded it; it is heard then, give or take the server's 10 ms blocks.
    const int64_t slack = kCaptureClockTimescale / 10;
    EXPECT_GT(*heard, before.value - slack / 5);
    EXPECT_LT(*heard, after.value + slack);
}

TEST(MicrophoneWithoutServerTest, NoServerGivesNoDeviceAndNoPermission) {
    test::ScopedEnvironment environment;
    environment.set("PULSE_SERVER", "unix:/nonexistent/pulse/native");
    EXPECT_EQ(CaptureDevice::defaultDeviceWithMediaType(CaptureMediaType::audio), nullptr);
    EXPECT_EQ(CaptureDevice::authorizationStatusForMediaType(CaptureMediaType::audio), CaptureDevice::denied);
}

TEST(SoftwareCameraTest, OnlyStandsInWhenAllowed) {
    CaptureDevice::setSoftwareCameraAllowed(false);
    EXPECT_EQ(CaptureDevice::defaultDeviceWithMediaType(CaptureMediaType::video), nullptr);
    EXPECT_EQ(CaptureDevice::authorizationStatusForMediaType(CaptureMediaType::video), CaptureDevice::denied);
    CaptureDevice::setSoftwareCameraAllowed(true);
    auto camera = CaptureDevice::defaultDeviceWithMediaType(CaptureMediaType::video);
    CaptureDevice::setSoftwareCameraAllowed(false);
    ASSERT_NE(camera, nullptr);
    ASSERT_EQ(camera->formats().size(), 2u);
    EXPECT_EQ(camera->formats()[1]->width(), 1280);
    EXPECT_EQ(camera->formats()[1]->videoSupportedFrameRateRanges().front().maxFrameRate, 30.0);
}

TEST(SoftwareCameraTest, PicturesShowTheBarsMovingFrameByFrame) {
    auto camera = SoftwareCamera::create();
    ASSERT_TRUE(camera->lockForConfiguration(nullptr));
    EXPECT_FALSE(camera->lockForConfiguration(nullptr));
    camera->setActiveVideoMinFrameDuration(CMTime::make(1, 30));
    camera->unlockForConfiguration();
    auto session = CaptureSession::create();
    auto output = CaptureVideoDataOutput::create();
    output->setAlwaysDiscardsLateVideoFrames(false);
    auto collector = std::make_shared<test::CaptureCollector>();
    startCapture(session, CaptureDeviceInput::deviceInputWithDevice(camera, nullptr), output, collector);
    ASSERT_TRUE(collector->waitForVideo(3));
    session->stopRunning();

    const auto frames = collector->video();
    for (size_t index = 0; index < 3; ++index) {
        const auto& picture = *frames[index]->imageBuffer();
        ASSERT_EQ(picture.width(), 640);
        ASSERT_EQ(frames[index]->formatDescription()->pixelFormatType(), kCVPixelFormatType_422YpCbCr8_yuvs);
        const uint8_t* row = picture.plane(0) + 100 * picture.bytesPerRow(0);
        // Bar edges at 80-pixel steps, moved 8 pixels a frame: check just inside each edge.
        for (int x : {0, 78, 80 + 8 * static_cast<int>(index), 88 + 8 * static_cast<int>(index), 638}) {
            const int pair = x & ~1;
            uint8_t y = 0, cb = 0, cr = 0;
            SoftwareCamera::colorAt(pair, 640, static_cast<int64_t>(index), &y, &cb, &cr);
            EXPECT_EQ(row[pair * 2], y) << "frame " << index << " x " << x;
            EXPECT_EQ(row[pair * 2 + 1], cb);
            EXPECT_EQ(row[pair * 2 + 3], cr);
        }
    }
    uint8_t first = 0, shifted = 0, unused = 0;
    SoftwareCamera::colorAt(8, 640, 1, &shifted, &unused, &unused);
    SoftwareCamera::colorAt(0, 640, 0, &first, &unused, &unused);
    EXPECT_EQ(first, shifted);
}

}  // namespace
}  // namespace qm
