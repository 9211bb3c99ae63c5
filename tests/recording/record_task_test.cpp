#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "codec/QVTimebase.h"
#include "platform/Log.h"
#include "recording/SCRecordTask.h"
#include "store/SCAudioResource.h"
#include "store/SCVideoResource.h"
#include "support/HeadlessDesktop.h"
#include "support/TestEnvironment.h"

namespace qm {
namespace {

constexpr int32_t kPackedFloat = 3;

// Keeps what the task reports on the main queue.
class RecordingObserver : public SCRecordTaskDelegate {
public:
    void SCRecordTaskStart(SCRecordTask&) override { ++starts; }
    void SCRecordTaskRecordDuration(SCRecordTask&, int64_t duration) override { durations.push_back(duration); }
    void SCRecordTaskCompleteWithResource(SCRecordTask&, std::shared_ptr<SCResource> result) override {
        completed = true;
        resource = std::move(result);
    }

    int starts = 0;
    std::vector<int64_t> durations;
    bool completed = false;
    std::shared_ptr<SCResource> resource;
};

// Records `seconds` with a fresh task of `type` and gives what the observer saw.
std::shared_ptr<RecordingObserver> record(int32_t type, double seconds, Rect rect = {}) {
    auto observer = std::make_shared<RecordingObserver>();
    auto task = SCRecordTask::createWithRecordType(type, observer);
    task->setRecordRect(rect);
    task->configureTask();
    EXPECT_TRUE(task->isSessionRunning());
    if (!task->isSessionRunning()) return observer;
    EXPECT_TRUE(task->startRecord());
    EXPECT_TRUE(MainLoop::runUntil([&] { return observer->starts == 1; }, std::chrono::seconds(20)));
    EXPECT_EQ(task->status(), RecordRunning);
    MainLoop::runUntil([] { return false; }, std::chrono::milliseconds(static_cast<int64_t>(seconds * 1000)));
    task->stopRecord();
    EXPECT_TRUE(MainLoop::runUntil([&] { return observer->completed; }, std::chrono::seconds(30)));
    EXPECT_EQ(task->status(), RecordIdle);
    return observer;
}

std::vector<float> allSamples(SCAudioResource& audio) {
    auto buffer = audio.readSamplesWithRange(audio.sampleRange());
    std::vector<float> samples;
    if (!buffer) return samples;
    const auto bytes = buffer->data();
    samples.resize(bytes.size() / sizeof(float));
    std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
    return samples;
}

double toneFrequency(const std::vector<float>& samples, int channels, double rate) {
    int crossings = 0;
    for (size_t i = channels; i < samples.size(); i += channels)
        crossings += samples[i - channels] < 0 && samples[i] >= 0;
    return crossings * rate / (samples.size() / channels);
}

double seconds(int64_t units) { return static_cast<double>(units) / QVTimebase; }

class RecordTaskTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        directories = new test::PrivateUserDirectories("quormedia-record");
        display = new test::PrivateDisplay(320, 240);
        display->fillRectangle(0, 0, 320, 240, 0x000000);
        display->fillRectangle(20, 30, 100, 50, 0xFF0000);
        display->fillRectangle(200, 100, 60, 60, 0x00FF00);
        display->fillRectangle(0, 200, 60, 40, 0x808080);
        display->warpPointer(30, 220);
        sound = new test::PrivateSoundServer(440);
    }
    static void TearDownTestSuite() {
        delete sound;
        delete display;
        delete directories;
    }

    static test::PrivateUserDirectories* directories;
    static test::PrivateDisplay* display;
    static test::PrivateSoundServer* sound;
};

test::PrivateUserDirectories* RecordTaskTest::directories = nullptr;
test::PrivateDisplay* RecordTaskTest::display = nullptr;
test::PrivateSoundServer* RecordTaskTest::sound = nullptr;

TEST_F(RecordTaskTest, ScreenRecordingHoldsTheDisplayTheCursorAndTheToneInStep) {
    const auto observer = record(SCRecordTypeScreen, 2.0);
    ASSERT_NE(observer->resource, nullptr);
    EXPECT_EQ(observer->starts, 1);
    ASSERT_GE(observer->durations.size(), 3u);
    EXPECT_TRUE(std::is_sorted(observer->durations.begin(), observer->durations.end()));
    EXPECT_NEAR(seconds(observer->durations.back()), 2.0, 0.5);

    const auto& video = observer->resource->videoResource();
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(video->width(), 320);
    EXPECT_EQ(video->height(), 240);
    const double videoSeconds = seconds(video->duration());
    EXPECT_NEAR(videoSeconds, 2.0, 0.5);
    // 30 pictures a second: never more, and a loaded machine loses only some.
    EXPECT_LE(video->numberOfFrames(), std::lround(videoSeconds * 30) + 1);
    EXPECT_GE(video->numberOfFrames(), std::lround(videoSeconds * 30 * 0.5));

    const auto picture = video->cgImageAtTimestamp(video->duration() / 2);
    ASSERT_NE(picture, nullptr);
    auto near = [](std::array<uint8_t, 4> pixel, int r, int g, int b) {
        return std::abs(pixel[0] - r) < 24 && std::abs(pixel[1] - g) < 24 && std::abs(pixel[2] - b) < 24;
    };
    EXPECT_TRUE(near(picture->pixelAt(60, 50), 255, 0, 0));
    EXPECT_TRUE(near(picture->pixelAt(230, 130), 0, 255, 0));
    EXPECT_TRUE(near(picture->pixelAt(160, 10), 0, 0, 0));
    // The pointer sits on the grey patch, so part of the patch no longer reads grey.
    int covered = 0;
    for (int y = 202; y < 238; ++y) {
        for (int x = 2; x < 58; ++x) covered += !near(picture->pixelAt(x, y), 128, 128, 128);
    }
    EXPECT_GT(covered, 20);

    const auto& audio = observer->resource->audioResource();
    ASSERT_NE(audio, nullptr);
    EXPECT_EQ(audio->sampleRate(), 48000);
    EXPECT_EQ(audio->numberOfChannels(), 2);
    EXPECT_EQ(audio->sampleFormat(), kPackedFloat);
    EXPECT_NEAR(toneFrequency(allSamples(*audio), 2, 48000), 440.0, 3.0);
    // Sound and picture cover the same stretch of time.
    EXPECT_NEAR(seconds(audio->duration()), videoSeconds, 0.25);
}

TEST_F(RecordTaskTest, AudioAloneNeverWaitsForPictures) {
    const auto observer = record(SCRecordTypeAudio, 1.0);
    ASSERT_NE(observer->resource, nullptr);
    EXPECT_EQ(observer->resource->videoResource(), nullptr);
    ASSERT_NE(observer->resource->audioResource(), nullptr);
    EXPECT_NEAR(seconds(observer->resource->audioResource()->duration()), 1.0, 0.3);
}

TEST_F(RecordTaskTest, CameraRecordingUsesTheLastFormatFastEnough) {
    CaptureDevice::setSoftwareCameraAllowed(true);
    const auto observer = record(SCRecordTypeCamera, 1.0);
    CaptureDevice::setSoftwareCameraAllowed(false);
    ASSERT_NE(observer->resource, nullptr);
    const auto& video = observer->resource->videoResource();
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(video->width(), 1280);
    EXPECT_EQ(video->height(), 720);
    ASSERT_GE(video->numberOfFrames(), 10);
    const auto first = video->cgImageAtTimestamp(0);
    const auto later = video->cgImageAtTimestamp(video->blocks()[5]->timestamp());
    ASSERT_TRUE(first && later);
    // The bars move 8 pixels a frame, so five frames on their edges have moved along the row.
    bool moved = false;
    for (int x = 0; x < 1280; ++x) moved |= first->pixelAt(x, 300) != later->pixelAt(x, 300);
    EXPECT_TRUE(moved);
    EXPECT_NE(observer->resource->audioResource(), nullptr);
}

TEST_F(RecordTaskTest, ConfiguringPicksFloatSoundAndRoundsTheRectangleUp) {
    auto task = SCRecordTask::createWithRecordType(SCRecordTypeScreen, nullptr);
    task->setRecordRect(Rect{{10, 20}, {1001, 501}});
    EXPECT_EQ(task->width(), 1002);
    EXPECT_EQ(task->height(), 502);
    EXPECT_EQ(SCRecordTask::createWithRecordType(SCRecordTypeScreen, nullptr)->width(), 320);
    EXPECT_EQ(SCRecordTask::createWithRecordType(SCRecordTypeAudio, nullptr)->width(), 0);
    EXPECT_EQ(SCRecordTask::createWithRecordType(3, nullptr), nullptr);

    auto audio = SCRecordTask::createWithRecordType(SCRecordTypeAudio, nullptr);
    audio->configureTask();
    const auto chosen = audio->currentABSD();
    EXPECT_EQ(chosen.mFormatFlags, kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked);
    EXPECT_EQ(chosen.mBytesPerFrame, 8u);
    EXPECT_EQ(chosen.mSampleRate, 48000.0);
}

TEST_F(RecordTaskTest, StartingTwiceFailsWithAlreadyRecording) {
    auto observer = std::make_shared<RecordingObserver>();
    auto task = SCRecordTask::createWithRecordType(SCRecordTypeAudio, observer);
    LogCapture log;
    EXPECT_FALSE(task->startRecord());
    EXPECT_EQ(log.count("Configure task first."), 1u);
    task->configureTask();
    ASSERT_TRUE(task->startRecord());
    EXPECT_FALSE(task->startRecord());
    EXPECT_EQ(log.count("Already recording."), 1u);
    ASSERT_NE(task->error(), nullptr);
    EXPECT_EQ(task->error()->domain, "com.screenrecord");
    EXPECT_EQ(task->error()->code, -1);
    EXPECT_EQ(task->error()->userInfo.at("SCScreenRecordError"), "Already recording.");
    // Stopping before the writer is ready does nothing; once running it ends the recording.
    task->stopRecord();
    ASSERT_TRUE(MainLoop::runUntil([&] { return observer->starts == 1; }, std::chrono::seconds(20)));
    task->stopRecord();
    EXPECT_TRUE(MainLoop::runUntil([&] { return observer->completed; }, std::chrono::seconds(20)));
}

TEST(RecordTaskWithoutDevicesTest, NoInputLeavesTheErrorAndNoSession) {
    test::ScopedEnvironment environment;
    environment.set("PULSE_SERVER", "unix:/nonexistent/pulse/native");
    CaptureDevice::setSoftwareCameraAllowed(false);
    auto task = SCRecordTask::createWithRecordType(SCRecordTypeCamera, nullptr);
    LogCapture log;
    task->configureTask();
    EXPECT_FALSE(task->isSessionRunning());
    EXPECT_EQ(task->captureSession(), nullptr);
    ASSERT_NE(task->error(), nullptr);
    EXPECT_EQ(task->error()->userInfo.at("SCRecordInputError"), "No validate audio&video input.");
    EXPECT_EQ(log.count("Warning: can not add audio input."), 1u);
    EXPECT_EQ(log.count("Warning: can not add video input"), 1u);
    EXPECT_FALSE(task->startRecord());
}

TEST(RecordTaskSettingsTest, AudioSettingsFollowTheDescriptionButStayLinearPCM) {
    AudioStreamBasicDescription description;
    description.mSampleRate = 44100;
    description.mFormatID = 0x61616320;  // 'aac '
    description.mFormatFlags = kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked;
    description.mChannelsPerFrame = 1;
    description.mBitsPerChannel = 16;
    const auto settings = SCRecordTask::dictionSettingsWithABSD(description);
    EXPECT_EQ(settings.formatID, 0x6C70636Du);
    EXPECT_EQ(settings.sampleRate, 44100.0f);
    EXPECT_EQ(settings.numberOfChannels, 1u);
    EXPECT_EQ(settings.bitDepth, 16u);
    EXPECT_FALSE(settings.isFloat);
    EXPECT_FALSE(settings.isNonInterleaved);

    auto task = SCRecordTask::createWithRecordType(SCRecordTypeAudio, nullptr);
    const auto fallback = task->currentABSD();
    EXPECT_EQ(fallback.mSampleRate, 48000.0);
    EXPECT_EQ(fallback.mFormatID, 0x6C70636Du);
    EXPECT_EQ(fallback.mFormatFlags, 9u);
    EXPECT_EQ(fallback.mBytesPerPacket, 8u);
    EXPECT_EQ(fallback.mChannelsPerFrame, 2u);
    EXPECT_EQ(fallback.mBitsPerChannel, 32u);
}

// A device with a fixed list of formats.
class ListedDevice : public CaptureDevice {
public:
    ListedDevice(CaptureMediaType type, std::vector<std::shared_ptr<const CaptureDeviceFormat>> formats)
        : CaptureDevice("listed", "Listed", type, std::move(formats)) {}
};

std::shared_ptr<const CaptureDeviceFormat> pcm(double rate, uint32_t bits, uint32_t flags) {
    AudioStreamBasicDescription description;
    description.mSampleRate = rate;
    description.mFormatID = 0x6C70636D;
    description.mFormatFlags = flags;
    description.mChannelsPerFrame = 2;
    description.mBitsPerChannel = bits;
    description.mBytesPerFrame = bits / 4;
    return CaptureDeviceFormat::createAudio(description);
}

std::shared_ptr<const CaptureDeviceFormat> video(int32_t width, std::vector<double> fastestRates) {
    std::vector<CaptureFrameRateRange> ranges;
    for (double rate : fastestRates) {
        ranges.push_back({1, rate, CMTime::make(1000, static_cast<int32_t>(rate * 1000)), CMTime::make(1, 1)});
    }
    return CaptureDeviceFormat::createVideo(width, width * 9 / 16, kCVPixelFormatType_422YpCbCr8_yuvs, ranges);
}

TEST(RecordTaskDeviceFormatTest, AudioTakesTheFirst32BitThenThe16BitFormatAt48kHz) {
    constexpr uint32_t packed = kAudioFormatFlagIsPacked;
    constexpr uint32_t signedInteger = kAudioFormatFlagIsSignedInteger;
    constexpr uint32_t floating = kAudioFormatFlagIsFloat;
    auto task = SCRecordTask::createWithRecordType(SCRecordTypeAudio, nullptr);
    ListedDevice mixed(
        CaptureMediaType::audio,
        {pcm(44100, 32, packed | floating), pcm(48000, 16, packed | signedInteger), pcm(48000, 32, floating),
         pcm(48000, 32, packed | signedInteger), pcm(48000, 32, packed | floating)});
    task->configureAudioDevice(mixed);
    EXPECT_EQ(mixed.activeFormat(), mixed.formats()[3]);
    EXPECT_EQ(task->currentABSD().mFormatFlags, packed | signedInteger);

    ListedDevice integers(CaptureMediaType::audio,
                          {pcm(48000, 16, signedInteger), pcm(48000, 16, packed | signedInteger)});
    task->configureAudioDevice(integers);
    EXPECT_EQ(integers.activeFormat(), integers.formats()[1]);
    EXPECT_EQ(task->currentABSD().mBitsPerChannel, 16u);

    auto fresh = SCRecordTask::createWithRecordType(SCRecordTypeAudio, nullptr);
    ListedDevice elsewhere(CaptureMediaType::audio,
                           {pcm(44100, 32, packed | floating), pcm(44100, 16, packed | signedInteger)});
    LogCapture log;
    fresh->configureAudioDevice(elsewhere);
    EXPECT_EQ(log.count("Warning: Only support s16, s32, float sample format."), 1u);
    EXPECT_EQ(elsewhere.activeFormat(), elsewhere.formats()[0]);
    EXPECT_EQ(fresh->currentABSD().mSampleRate, 48000.0);
    EXPECT_EQ(fresh->currentABSD().mFormatFlags, 9u);
}

TEST(RecordTaskDeviceFormatTest, VideoTakesTheLastFormatWhoseRangeReachesTheFrameRate) {
    test::PrivateUserDirectories directories("quormedia-video-format");
    auto task = SCRecordTask::createWithRecordType(SCRecordTypeCamera, nullptr);
    ListedDevice camera(CaptureMediaType::video,
                        {video(640, {30}), video(1280, {15, 60, 30}), video(1920, {24}), video(320, {10})});
    task->configureVideoDevice(camera);
    EXPECT_EQ(camera.activeFormat(), camera.formats()[1]);
    EXPECT_EQ(camera.activeVideoMinFrameDuration().timescale, 60000);
    EXPECT_EQ(camera.activeVideoMaxFrameDuration().timescale, 60000);

    ListedDevice slow(CaptureMediaType::video, {video(640, {15}), video(1280, {20})});
    task->configureVideoDevice(slow);
    EXPECT_EQ(slow.activeFormat(), slow.formats()[0]);
}

}  // namespace
}  // namespace qm
