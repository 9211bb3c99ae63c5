#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <numbers>
#include <thread>

#include "platform/UserDefaults.h"
#include "recording/SCMovieWritter.h"
#include "store/AMResourceMgr.h"
#include "store/SCRecordingJournal.h"

#include "support/TestEnvironment.h"

namespace qm {
namespace {

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

constexpr int kWidth = 64;
constexpr int kHeight = 48;
constexpr int kSampleRate = 16000;
// One frame and one audio buffer every 40 ms.
constexpr int64_t kStepMilliseconds = 40;
constexpr int kSamplesPerStep = 640;
constexpr int64_t kUnitsPerMillisecond = 705'600;

std::array<uint8_t, 3> colourOfFrame(int index) {
    return {static_cast<uint8_t>(20 + 47 * (index % 5)), static_cast<uint8_t>(230 - 61 * (index % 3)),
            static_cast<uint8_t>(index % 2 ? 200 : 40)};
}

// 1 kHz at a quarter of full scale.
int16_t sineAt(int64_t sample) {
    return static_cast<int16_t>(
        std::lround(8000.0 * std::sin(2 * std::numbers::pi * 1000.0 * static_cast<double>(sample) / kSampleRate)));
}

CMTime clockAt(int64_t milliseconds) { return CMTime::make(9'000'000'000 + milliseconds * 1'000'000, 1'000'000'000); }

std::shared_ptr<const AudioFormatDescription> monoS16Format() {
    AudioStreamBasicDescription description;
    description.mSampleRate = kSampleRate;
    description.mFormatFlags = kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked;
    description.mBytesPerPacket = 2;
    description.mFramesPerPacket = 1;
    description.mBytesPerFrame = 2;
    description.mChannelsPerFrame = 1;
    description.mBitsPerChannel = 16;
    return AudioFormatDescription::create(description, kAudioChannelLayoutTag_Mono);
}

std::shared_ptr<VideoSampleBuffer> frame(int index) {
    auto pixels = createPixelBufferWithType(kWidth, kHeight, kCVPixelFormatType_32BGRA);
    const auto colour = colourOfFrame(index);
    for (int y = 0; y < kHeight; ++y) {
        uint8_t* row = pixels->mutablePlane(0) + y * pixels->bytesPerRow(0);
        for (int x = 0; x < kWidth; ++x) {
            const uint8_t bgra[4] = {colour[2], colour[1], colour[0], 255};
            std::memcpy(row + x * 4, bgra, 4);
        }
    }
    return VideoSampleBuffer::create(pixels, clockAt(index * kStepMilliseconds), CMTime{});
}

std::shared_ptr<MediaSampleBuffer> audioBuffer(int index) {
    auto buffer = MediaSampleBuffer::create(monoS16Format(), kSamplesPerStep, CMTime::make(1, kSampleRate),
                                            clockAt(index * kStepMilliseconds));
    std::vector<uint8_t> bytes(kSamplesPerStep * 2);
    for (int i = 0; i < kSamplesPerStep; ++i) {
        const int16_t value = sineAt(int64_t{index} * kSamplesPerStep + i);
        std::memcpy(&bytes[static_cast<size_t>(i) * 2], &value, 2);
    }
    buffer->setDataBuffer(std::move(bytes));
    return buffer;
}

// What the recording process reports after each step it handed to the writer.
struct StepReport {
    int32_t index;
    int64_t steadyNanoseconds;
};

// The recording process: records in real time and reports each step until it is killed.
[[noreturn]] void recordUntilKilled(int reportFd) {
    auto writer = SCMovieWritter::createWithDelegate(std::make_shared<SCMovieWritterDelegate>(),
                                                     DispatchQueue::createSerial(), CMTime::make(1, 25));
    writer->addVideoTrackWithSourceFormatDescription(
        VideoFormatDescription::create(kWidth, kHeight, kCVPixelFormatType_32BGRA), AffineTransform{}, {});
    writer->addAudioTrackWithSourceFormatDescription(monoS16Format(), {});
    writer->prepareToWrite();
    while (writer->status() != SCMovieWritter::StatusWriting) std::this_thread::sleep_for(1ms);
    const auto start = SteadyClock::now();
    for (int32_t index = 0; index < 1000; ++index) {
        std::this_thread::sleep_until(start + index * std::chrono::milliseconds(kStepMilliseconds));
        writer->appendVideoSampleBuffer(frame(index));
        writer->appendAudioSampleBuffer(audioBuffer(index));
        const StepReport report{index, SteadyClock::now().time_since_epoch().count()};
        if (::write(reportFd, &report, sizeof report) != sizeof report) break;
    }
    ::_exit(0);
}

// Reads step reports until `duration` has passed since the first; the reports in order.
std::vector<StepReport> readReportsFor(int reportFd, std::chrono::milliseconds duration) {
    std::vector<StepReport> reports;
    std::optional<SteadyClock::time_point> first;
    while (!first || SteadyClock::now() - *first < duration) {
        pollfd waiting{reportFd, POLLIN, 0};
        if (::poll(&waiting, 1, 10'000) <= 0) break;
        StepReport report{};
        if (::read(reportFd, &report, sizeof report) != sizeof report) break;
        if (!first) first = SteadyClock::now();
        reports.push_back(report);
    }
    return reports;
}

TEST(RecordingJournalCrashTest, AKilledRecordingComesBackWithAllButItsLastSecond) {
    test::PrivateUserDirectories user("recording_journal_crash_test");
    int pipeFds[2];
    ASSERT_EQ(::pipe(pipeFds), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::close(pipeFds[0]);
        recordUntilKilled(pipeFds[1]);
    }
    ::close(pipeFds[1]);
    const auto reports = readReportsFor(pipeFds[0], 2600ms);
    ::kill(child, SIGKILL);
    const auto killTime = SteadyClock::now();
    int status = 0;
    ::waitpid(child, &status, 0);
    ::close(pipeFds[0]);
    ASSERT_TRUE(WIFSIGNALED(status));
    ASSERT_GT(reports.size(), 20u);

    // Steps handed over 1.5 s before the kill were journaled (a sync a second, plus the queue's
    // lag); step 0 set the start and is not stored.
    const auto syncedBy = (killTime - 1500ms).time_since_epoch().count();
    int32_t lastSafeStep = 0;
    for (const auto& report : reports) {
        if (report.steadyNanoseconds <= syncedBy) lastSafeStep = report.index;
    }
    const int32_t lastStep = reports.back().index;
    ASSERT_GT(lastSafeStep, 5);

    const auto manager = AMResourceMgr::createWithDefaults(UserDefaults::createWithPath(user.file("defaults.sqlite3")));
    const auto recordings = manager->recordingResources();
    ASSERT_EQ(recordings.size(), 1u);
    EXPECT_EQ(recordings[0]->humanReadableName().rfind("Recovered recording ", 0), 0u);

    const auto video = recordings[0]->videoResource();
    ASSERT_NE(video, nullptr);
    const int64_t frames = video->numberOfFrames();
    EXPECT_GE(frames, lastSafeStep);
    EXPECT_LE(frames, lastStep);
    for (const int64_t k : {int64_t{0}, frames / 2, frames - 1}) {
        const int step = static_cast<int>(k) + 1;
        const int64_t timestamp = step * kStepMilliseconds * kUnitsPerMillisecond;
        EXPECT_EQ(video->blocks()[k]->timestamp(), timestamp);
        const auto picture = video->cgImageAtTimestamp(timestamp);
        ASSERT_NE(picture, nullptr);
        const auto pixel = picture->pixelAt(kWidth / 2, kHeight / 2);
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(pixel[c], colourOfFrame(step)[c], 6) << "step " << step;
    }

    const auto audio = recordings[0]->audioResource();
    ASSERT_NE(audio, nullptr);
    const int64_t samples = audio->sampleRange().length();
    EXPECT_GE(samples, int64_t{lastSafeStep} * kSamplesPerStep);
    EXPECT_LE(samples, int64_t{lastStep} * kSamplesPerStep);
    const auto stored = audio->sampleBufferWithRange(QVRange(0, samples));
    ASSERT_NE(stored, nullptr);
    const auto bytes = stored->data();
    ASSERT_EQ(bytes.size(), static_cast<size_t>(samples) * 2);
    for (int64_t i = 0; i < samples; i += 101) {
        int16_t value = 0;
        std::memcpy(&value, &bytes[static_cast<size_t>(i) * 2], 2);
        // Step 0's buffer set the start and was dropped: the stored wave begins one step in.
        ASSERT_EQ(value, sineAt(kSamplesPerStep + i)) << i;
    }

    std::error_code error;
    for (const auto& entry :
         std::filesystem::directory_iterator(SCResourceStorage::pathOfResourceStoragePath(), error)) {
        EXPECT_NE(entry.path().extension(), SCRecordingJournal::fileExtension);
    }
}

}  // namespace
}  // namespace qm
