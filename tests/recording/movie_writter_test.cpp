#include "recording/SCMovieWritter.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <numbers>
#include <thread>

#include "foundation/QVSampleDescription.h"
#include "platform/Log.h"
#include "store/SCRecordingJournal.h"

#include "support/TestEnvironment.h"

namespace qm {
namespace {

using namespace std::chrono_literals;

// Capture clock: nanoseconds. Time units of the store: 705,600,000 per second.
constexpr int32_t kClockScale = 1'000'000'000;
constexpr int64_t kClockStart = 5'000'000'000'000;
constexpr int64_t kUnitsPerMillisecond = 705'600;
constexpr int kWidth = 64;
constexpr int kHeight = 48;

CMTime clockAt(int64_t milliseconds) { return CMTime::make(kClockStart + milliseconds * 1'000'000, kClockScale); }

struct Colour {
    uint8_t r, g, b;
};

// Frame i of a recording: a flat colour that differs clearly from its neighbours.
Colour colourOfFrame(int index) {
    return {static_cast<uint8_t>(40 + 50 * (index % 4)), static_cast<uint8_t>(200 - 30 * (index % 5)),
            static_cast<uint8_t>(index % 2 ? 220 : 30)};
}

std::shared_ptr<VideoSampleBuffer> frameAt(int64_t milliseconds, Colour colour) {
    auto pixels = createPixelBufferWithType(kWidth, kHeight, kCVPixelFormatType_32BGRA);
    for (int y = 0; y < kHeight; ++y) {
        uint8_t* row = pixels->mutablePlane(0) + y * pixels->bytesPerRow(0);
        for (int x = 0; x < kWidth; ++x) {
            row[x * 4] = colour.b;
            row[x * 4 + 1] = colour.g;
            row[x * 4 + 2] = colour.r;
            row[x * 4 + 3] = 255;
        }
    }
    return VideoSampleBuffer::create(pixels, clockAt(milliseconds), CMTime{});
}

std::shared_ptr<const AudioFormatDescription> floatStereoFormat() {
    AudioStreamBasicDescription description;
    description.mSampleRate = 48000;
    description.mFormatID = 0x6C70636D;
    description.mFormatFlags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
    description.mBytesPerPacket = 8;
    description.mFramesPerPacket = 1;
    description.mBytesPerFrame = 8;
    description.mChannelsPerFrame = 2;
    description.mBitsPerChannel = 32;
    return AudioFormatDescription::create(description, kAudioChannelLayoutTag_Stereo);
}

// 440 Hz on the left, its negative on the right, from sample `first` of the wave.
float sineAt(int64_t sample) {
    return static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * 440.0 * static_cast<double>(sample) / 48000.0));
}

constexpr int kSamplesPerBuffer = 480;

std::shared_ptr<MediaSampleBuffer> sineBufferAt(int64_t milliseconds, int64_t firstSample) {
    auto buffer = MediaSampleBuffer::create(floatStereoFormat(), kSamplesPerBuffer, CMTime::make(1, 48000),
                                            clockAt(milliseconds));
    std::vector<float> values;
    for (int64_t i = 0; i < kSamplesPerBuffer; ++i) {
        values.push_back(sineAt(firstSample + i));
        values.push_back(-sineAt(firstSample + i));
    }
    std::vector<uint8_t> bytes(values.size() * sizeof(float));
    std::memcpy(bytes.data(), values.data(), bytes.size());
    buffer->setDataBuffer(std::move(bytes));
    return buffer;
}

// Keeps what the writer reports and lets the test wait for it.
class RecordingDelegate : public SCMovieWritterDelegate {
public:
    explicit RecordingDelegate(std::shared_ptr<DispatchQueue> callbackQueue)
        : _callbackQueue(std::move(callbackQueue)) {}

    void SCMovieWritterDidFinishPreparing(SCMovieWritter&) override {
        note([this] { ++prepared; });
    }
    void SCMovieWritterDidFailWithError(SCMovieWritter&, std::shared_ptr<const SCError> error) override {
        note([this, &error] {
            ++failed;
            failure = std::move(error);
        });
    }
    void SCMovieWritterDidFinishWritting(SCMovieWritter&, std::shared_ptr<SCResource> result) override {
        note([this, &result] {
            ++finished;
            resource = std::move(result);
        });
    }

    // Waits (with a generous guard against a hang) until `done` holds.
    bool waitFor(const std::function<bool()>& done) {
        std::unique_lock lock(_mutex);
        return _changed.wait_for(lock, 20s, done);
    }
    bool waitForPrepared() {
        return waitFor([this] { return prepared > 0 || failed > 0; });
    }
    bool waitForEnd() {
        return waitFor([this] { return finished > 0 || failed > 0; });
    }

    int prepared = 0;
    int failed = 0;
    int finished = 0;
    int callsOffTheCallbackQueue = 0;
    std::shared_ptr<const SCError> failure;
    std::shared_ptr<SCResource> resource;

private:
    void note(const std::function<void()>& change) {
        std::lock_guard lock(_mutex);
        if (!_callbackQueue->isCurrent()) ++callsOffTheCallbackQueue;
        change();
        _changed.notify_all();
    }

    std::shared_ptr<DispatchQueue> _callbackQueue;
    std::mutex _mutex;
    std::condition_variable _changed;
};

class MovieWritterTest : public ::testing::Test {
protected:
    std::shared_ptr<SCMovieWritter> makeWriter(bool video, bool audio) {
        auto writer = SCMovieWritter::createWithDelegate(_delegate, _callbackQueue, CMTime::make(1, 30));
        if (video) {
            writer->addVideoTrackWithSourceFormatDescription(
                VideoFormatDescription::create(kWidth, kHeight, kCVPixelFormatType_32BGRA), AffineTransform{}, {});
        }
        if (audio) writer->addAudioTrackWithSourceFormatDescription(floatStereoFormat(), {});
        return writer;
    }
    std::shared_ptr<SCMovieWritter> preparedWriter(bool video, bool audio) {
        auto writer = makeWriter(video, audio);
        writer->prepareToWrite();
        EXPECT_TRUE(_delegate->waitForPrepared());
        EXPECT_EQ(writer->status(), SCMovieWritter::StatusWriting);
        return writer;
    }
    std::shared_ptr<SCResource> finish(SCMovieWritter& writer) {
        writer.finishRecording();
        EXPECT_TRUE(_delegate->waitForEnd());
        EXPECT_EQ(_delegate->failed, 0);
        return _delegate->resource;
    }
    std::vector<std::string> journals() const {
        std::vector<std::string> found;
        std::error_code error;
        for (const auto& entry :
             std::filesystem::directory_iterator(SCResourceStorage::pathOfResourceStoragePath(), error)) {
            if (entry.path().extension() == SCRecordingJournal::fileExtension) found.push_back(entry.path());
        }
        return found;
    }

    test::PrivateUserDirectories _user{"movie_writter_test"};
    std::shared_ptr<DispatchQueue> _callbackQueue = DispatchQueue::createSerial();
    std::shared_ptr<RecordingDelegate> _delegate = std::make_shared<RecordingDelegate>(_callbackQueue);
};

// Polls `done` until it holds, with a generous guard against a hang.
bool eventually(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

void expectColour(const std::shared_ptr<const Bitmap>& picture, Colour colour, const std::string& what) {
    ASSERT_NE(picture, nullptr) << what;
    ASSERT_EQ(picture->width(), kWidth);
    ASSERT_EQ(picture->height(), kHeight);
    // JPEG keeps a flat colour to within a few levels.
    const auto pixel = picture->pixelAt(kWidth / 2, kHeight / 2);
    EXPECT_NEAR(pixel[0], colour.r, 6) << what;
    EXPECT_NEAR(pixel[1], colour.g, 6) << what;
    EXPECT_NEAR(pixel[2], colour.b, 6) << what;
}

TEST_F(MovieWritterTest, StatusRunsFromIdleThroughWritingToFinishedWithLoggedRefusals) {
    LogCapture log;
    auto writer = makeWriter(true, true);
    EXPECT_EQ(writer->status(), SCMovieWritter::StatusIdle);

    writer->appendVideoSampleBuffer(frameAt(0, colourOfFrame(0)));
    EXPECT_EQ(log.count("Not ready to write yet."), 1u);
    writer->finishRecording();
    EXPECT_EQ(log.count("Not writing."), 1u);

    writer->addVideoTrackWithSourceFormatDescription(VideoFormatDescription::create(8, 8, kCVPixelFormatType_32BGRA),
                                                     AffineTransform{}, {});
    writer->addAudioTrackWithSourceFormatDescription(floatStereoFormat(), {});
    EXPECT_EQ(log.count("Can not add more than one video track"), 1u);
    EXPECT_EQ(log.count("Can not add more than one audio track."), 1u);

    writer->prepareToWrite();
    writer->prepareToWrite();
    EXPECT_EQ(log.count("Already prepared, can not prepare again."), 1u);
    ASSERT_TRUE(_delegate->waitForPrepared());
    EXPECT_EQ(_delegate->prepared, 1);
    EXPECT_EQ(writer->status(), SCMovieWritter::StatusWriting);

    writer->addAudioTrackWithSourceFormatDescription(floatStereoFormat(), {});
    EXPECT_EQ(log.count("Can not add track while not idle"), 1u);

    ASSERT_NE(finish(*writer), nullptr);
    EXPECT_EQ(writer->status(), SCMovieWritter::StatusFinished);
    // The first video track's size stands, not the refused one's.
    EXPECT_EQ(_delegate->resource->videoResource()->width(), kWidth);
    writer->finishRecording();
    EXPECT_EQ(log.count("Not writing."), 2u);
    EXPECT_EQ(_delegate->callsOffTheCallbackQueue, 0);
}

TEST_F(MovieWritterTest, TheFirstVideoTracksTransformIsKept) {
    auto writer = SCMovieWritter::createWithDelegate(_delegate, _callbackQueue);
    EXPECT_TRUE(writer->videoTrackTransform().isIdentity());
    const AffineTransform quarterTurn{0, 1, -1, 0, 10, 20};
    const auto format = VideoFormatDescription::create(kWidth, kHeight, kCVPixelFormatType_32BGRA);
    writer->addVideoTrackWithSourceFormatDescription(format, quarterTurn, {});
    writer->addVideoTrackWithSourceFormatDescription(format, AffineTransform{}, {});
    EXPECT_EQ(writer->videoTrackTransform(), quarterTurn);
}

TEST_F(MovieWritterTest, VideoBlocksStartAfterTheFirstFrameAndLastUntilTheNext) {
    auto writer = preparedWriter(true, false);
    // Frames at 0 (sets the start, dropped), 40, 80, 80 again, then a gap to 200 ms.
    const std::vector<int64_t> times = {0, 40, 80, 80, 200};
    for (size_t i = 0; i < times.size(); ++i) {
        writer->appendVideoSampleBuffer(frameAt(times[i], colourOfFrame(static_cast<int>(i))));
    }
    const auto resource = finish(*writer);
    ASSERT_NE(resource, nullptr);
    EXPECT_EQ(resource->audioResource(), nullptr);
    const auto video = resource->videoResource();
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(video->width(), kWidth);
    EXPECT_EQ(video->height(), kHeight);

    const int64_t ms = kUnitsPerMillisecond;
    const int64_t provisional = 705'600'000 / 30;
    const std::vector<std::pair<int64_t, int64_t>> expected = {
        {40 * ms, 40 * ms}, {80 * ms, 0}, {80 * ms, 120 * ms}, {200 * ms, provisional}};
    ASSERT_EQ(video->numberOfFrames(), 4);
    uint64_t offset = 0;
    for (size_t i = 0; i < expected.size(); ++i) {
        const auto& block = *video->blocks()[i];
        EXPECT_EQ(block.timestamp(), expected[i].first) << i;
        EXPECT_EQ(block.duration(), expected[i].second) << i;
        EXPECT_EQ(block.offset(), offset) << i;
        EXPECT_EQ(block.thumbLength(), 0u);
        offset += block.length();
    }
    EXPECT_EQ(video->duration(), 200 * ms + provisional);
    expectColour(video->cgImageAtTimestamp(50 * ms), colourOfFrame(1), "frame at 50 ms");
    expectColour(video->cgImageAtTimestamp(150 * ms), colourOfFrame(3), "frame at 150 ms");
    expectColour(video->cgImageAtTimestamp(210 * ms), colourOfFrame(4), "frame at 210 ms");
}

TEST_F(MovieWritterTest, AudioIsStoredByTheSamplesThatArrived) {
    auto writer = preparedWriter(false, true);
    // Buffers of 10 ms; the one at 0 sets the start. A gap of 30 ms after the third is not filled.
    const std::vector<int64_t> times = {0, 10, 20, 30, 70, 80};
    for (size_t i = 0; i < times.size(); ++i) {
        writer->appendAudioSampleBuffer(sineBufferAt(times[i], static_cast<int64_t>(i) * kSamplesPerBuffer));
    }
    const auto resource = finish(*writer);
    ASSERT_NE(resource, nullptr);
    EXPECT_EQ(resource->videoResource(), nullptr);
    const auto audio = resource->audioResource();
    ASSERT_NE(audio, nullptr);
    EXPECT_EQ(audio->sampleRate(), 48000);
    EXPECT_EQ(audio->numberOfChannels(), 2);
    EXPECT_EQ(audio->sampleFormat(), QVSampleFormatFLT);

    const int kept = static_cast<int>(times.size()) - 1;
    ASSERT_EQ(audio->blocks().size(), static_cast<size_t>(kept));
    uint64_t offset = 0;
    for (int i = 0; i < kept; ++i) {
        const auto& block = *audio->blocks()[i];
        EXPECT_EQ(block.indexOfSamples(), static_cast<uint64_t>(i * kSamplesPerBuffer));
        EXPECT_EQ(block.numberOfSamples(), static_cast<uint64_t>(kSamplesPerBuffer));
        EXPECT_EQ(block.offset(), offset);
        offset += block.length();
    }
    EXPECT_EQ(audio->sampleRange().length(), kept * kSamplesPerBuffer);
    EXPECT_EQ(audio->duration(), kept * kSamplesPerBuffer * 705'600'000LL / 48000);

    // The kept buffers are those that began at wave sample 480 and on, without a hole.
    const auto samples = audio->sampleBufferWithRange(QVRange(0, kept * kSamplesPerBuffer));
    ASSERT_NE(samples, nullptr);
    const std::vector<uint8_t> bytes = samples->data();
    ASSERT_EQ(bytes.size(), static_cast<size_t>(kept * kSamplesPerBuffer * 8));
    std::vector<float> values(bytes.size() / sizeof(float));
    std::memcpy(values.data(), bytes.data(), bytes.size());
    for (int64_t i = 0; i < kept * kSamplesPerBuffer; i += 37) {
        EXPECT_EQ(values[i * 2], sineAt(kSamplesPerBuffer + i)) << i;
        EXPECT_EQ(values[i * 2 + 1], -sineAt(kSamplesPerBuffer + i)) << i;
    }
}

TEST_F(MovieWritterTest, OnlyBuffersStrictlyLaterThanTheFirstAreKept) {
    LogCapture log;
    auto writer = preparedWriter(true, true);
    writer->appendAudioSampleBuffer(sineBufferAt(100, 0));
    writer->appendVideoSampleBuffer(frameAt(100, colourOfFrame(0)));
    writer->appendVideoSampleBuffer(frameAt(60, colourOfFrame(1)));
    writer->appendVideoSampleBuffer(frameAt(140, colourOfFrame(2)));
    writer->appendAudioSampleBuffer(sineBufferAt(110, 480));
    const auto resource = finish(*writer);
    ASSERT_NE(resource, nullptr);
    EXPECT_EQ(log.count("Ignore sample buffer(soun) befor start session time."), 1u);
    EXPECT_EQ(log.count("Ignore sample buffer(vide) befor start session time."), 2u);
    ASSERT_EQ(resource->videoResource()->numberOfFrames(), 1);
    EXPECT_EQ(resource->videoResource()->blocks()[0]->timestamp(), 40 * kUnitsPerMillisecond);
    EXPECT_EQ(resource->audioResource()->sampleRange().length(), kSamplesPerBuffer);
}

TEST_F(MovieWritterTest, BuffersQueuedBeforeFinishingAreWrittenAndLaterOnesDropped) {
    LogCapture log;
    auto writer = preparedWriter(true, false);
    for (int i = 0; i < 12; ++i) writer->appendVideoSampleBuffer(frameAt(i * 40, colourOfFrame(i)));
    writer->finishRecording();
    // Still accepted by the capture side while finishing, then dropped on the writing queue.
    for (int i = 12; i < 16; ++i) writer->appendVideoSampleBuffer(frameAt(i * 40, colourOfFrame(i)));
    ASSERT_TRUE(_delegate->waitForEnd());
    ASSERT_NE(_delegate->resource, nullptr);
    const auto video = _delegate->resource->videoResource();
    ASSERT_EQ(video->numberOfFrames(), 11);
    EXPECT_EQ(video->blocks().back()->timestamp(), 11 * 40 * kUnitsPerMillisecond);
    expectColour(video->cgImageAtTimestamp(video->blocks().back()->timestamp()), colourOfFrame(11), "last frame");

    // In StatusFinished a buffer passes the first test and is dropped silently.
    writer->appendVideoSampleBuffer(frameAt(2000, colourOfFrame(0)));
    writer->appendVideoPixelBuffer(nullptr, clockAt(2040));
    EXPECT_EQ(log.count("Not ready to write yet."), 0u);
    EXPECT_EQ(log.count("Sample buffer create failed (-12743)"), 1u);
    EXPECT_EQ(video->numberOfFrames(), 11);
}

TEST_F(MovieWritterTest, PixelBuffersAreWrappedWithTheirTime) {
    auto writer = preparedWriter(true, false);
    for (int i = 0; i < 3; ++i) {
        writer->appendVideoPixelBuffer(frameAt(0, colourOfFrame(i))->imageBuffer(), clockAt(i * 50));
    }
    const auto resource = finish(*writer);
    ASSERT_NE(resource, nullptr);
    const auto video = resource->videoResource();
    ASSERT_EQ(video->numberOfFrames(), 2);
    EXPECT_EQ(video->blocks()[1]->timestamp(), 100 * kUnitsPerMillisecond);
    expectColour(video->cgImageAtTimestamp(100 * kUnitsPerMillisecond), colourOfFrame(2), "frame at 100 ms");
}

TEST_F(MovieWritterTest, AJournalListsTheRecordingWhileItRunsAndGoesAtTheEnd) {
    auto writer = preparedWriter(true, true);
    const auto open = journals();
    ASSERT_EQ(open.size(), 1u);
    for (int i = 0; i < 4; ++i) {
        writer->appendVideoSampleBuffer(frameAt(i * 40, colourOfFrame(i)));
        writer->appendAudioSampleBuffer(sineBufferAt(i * 40 + 5, i * kSamplesPerBuffer));
    }
    const auto resource = finish(*writer);
    ASSERT_NE(resource, nullptr);
    EXPECT_TRUE(journals().empty());
    EXPECT_FALSE(std::filesystem::exists(open[0]));
    // The cache files stay with the resource.
    EXPECT_TRUE(std::filesystem::exists(*resource->videoResource()->storage()->cacheFile()));
    EXPECT_TRUE(std::filesystem::exists(*resource->audioResource()->storage()->cacheFile()));
}

TEST_F(MovieWritterTest, AStorageThatCannotBeMadeFailsThePreparing) {
    // The data folder lies below a plain file, so no cache file can be made there (even as root).
    const std::string blocker = _user.file("blocker");
    std::ofstream(blocker) << "x";
    test::ScopedEnvironment environment;
    environment.set("XDG_DATA_HOME", blocker + "/data");

    LogCapture log;
    auto writer = makeWriter(true, true);
    writer->prepareToWrite();
    ASSERT_TRUE(_delegate->waitForEnd());
    EXPECT_EQ(_delegate->failed, 1);
    EXPECT_EQ(_delegate->prepared, 0);
    ASSERT_NE(_delegate->failure, nullptr);
    EXPECT_EQ(_delegate->failure->domain, "com.quorvia.screenrecorder");
    EXPECT_EQ(_delegate->failure->userInfo.at("NSLocalizedDescriptionKey"), "Recording cannot be started");
    EXPECT_EQ(writer->status(), SCMovieWritter::StatusFailed);
    writer->finishRecording();
    EXPECT_EQ(log.count("Writing has failed, nothing to do."), 1u);
}

TEST_F(MovieWritterTest, AWriteFailureEndsWithoutAnErrorAndDeletesTheCacheFiles) {
    // 8-bit PCM is a format the capture may deliver but the store does not keep.
    AudioStreamBasicDescription description;
    description.mSampleRate = 8000;
    description.mFormatFlags = kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked;
    description.mBytesPerPacket = 1;
    description.mFramesPerPacket = 1;
    description.mBytesPerFrame = 1;
    description.mChannelsPerFrame = 1;
    description.mBitsPerChannel = 8;
    const auto format = AudioFormatDescription::create(description, kAudioChannelLayoutTag_Mono);
    ASSERT_NE(format, nullptr);

    auto writer = SCMovieWritter::createWithDelegate(_delegate, _callbackQueue);
    writer->addVideoTrackWithSourceFormatDescription(
        VideoFormatDescription::create(kWidth, kHeight, kCVPixelFormatType_32BGRA), AffineTransform{}, {});
    writer->addAudioTrackWithSourceFormatDescription(format, {});
    writer->prepareToWrite();
    ASSERT_TRUE(_delegate->waitForPrepared());
    writer->appendVideoSampleBuffer(frameAt(0, colourOfFrame(0)));
    writer->appendVideoSampleBuffer(frameAt(40, colourOfFrame(1)));
    auto buffer = MediaSampleBuffer::create(format, 80, CMTime::make(1, 8000), clockAt(50));
    buffer->setDataBuffer(std::vector<uint8_t>(80, 128));
    writer->appendAudioSampleBuffer(buffer);

    ASSERT_TRUE(_delegate->waitForEnd());
    EXPECT_EQ(_delegate->failed, 1);
    EXPECT_EQ(_delegate->failure, nullptr);
    EXPECT_EQ(_delegate->finished, 0);
    EXPECT_EQ(writer->status(), SCMovieWritter::StatusFailed);
    // Both cache files and the journal go in the teardown, on the writing queue after the call.
    const auto directory = SCResourceStorage::pathOfResourceStoragePath();
    EXPECT_TRUE(eventually([&directory] { return std::filesystem::is_empty(directory); }));
}

TEST(MovieWritterFormatTest, SampleFormatsFollowTheWidthAndFlags) {
    const auto formatOf = [](uint32_t bits, uint32_t flags) {
        AudioStreamBasicDescription description;
        description.mBitsPerChannel = bits;
        description.mFormatFlags = flags;
        return SCMovieWritter::sampleFormatFromDescription(&description);
    };
    EXPECT_EQ(SCMovieWritter::sampleFormatFromDescription(nullptr), -1);
    EXPECT_EQ(formatOf(16, 12), QVSampleFormatS16);
    EXPECT_EQ(formatOf(16, 4), -1);
    EXPECT_EQ(formatOf(32, 9), QVSampleFormatFLT);
    EXPECT_EQ(formatOf(32, 13), QVSampleFormatFLT);
    EXPECT_EQ(formatOf(32, 12), QVSampleFormatS32);
    EXPECT_EQ(formatOf(32, 8), -1);
    EXPECT_EQ(formatOf(24, 12), -1);
    EXPECT_EQ(formatOf(8, 12), -1);
}

TEST(MovieWritterFormatTest, TimesAreLoggedWithValueScaleFlagAndEpoch) {
    LogCapture log;
    SCMovieWritter::logCurrentTime(CMTime::make(-1200, 600), "video");
    SCMovieWritter::logCurrentTime(CMTime{}, "audio");
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"video, Value: -1200, Scale: 600, flag: 1, epon: 0",
                                                     "audio, Value: 0, Scale: 0, flag: 0, epon: 0"}));
}

}  // namespace
}  // namespace qm
