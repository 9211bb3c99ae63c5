#include "store/AMResourceImportTask.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "codec/QVTimebase.h"
#include "foundation/QMCommon.h"
#include "platform/Dispatch.h"
#include "store/SCAudioResource.h"
#include "store/SCImageResource.h"
#include "store/SCVideoResource.h"
#include "support/MediaFileWriter.h"
#include "support/TestEnvironment.h"

namespace qm {
namespace {

using test::MediaFileSpec;

struct HandlerCall {
    int32_t phase;
    bool hadInfo;
    AMTaskInfo info;
    bool onMainThread;
};

test::RGB centreOf(const Bitmap& picture) {
    const uint8_t* p = picture.data() + (picture.height() / 2) * picture.bytesPerRow() + (picture.width() / 2) * 4;
    return {p[0], p[1], p[2]};
}

class ImportTaskTest : public ::testing::Test {
protected:
    std::string write(const std::string& name, const MediaFileSpec& recipe) {
        const std::string path = _user.file(name);
        EXPECT_EQ(test::writeMediaFile(path, recipe), "");
        return path;
    }

    static MediaFileSpec movie(int frames, double audioSeconds) {
        MediaFileSpec recipe;
        recipe.video = test::VideoTrackSpec{.width = 64, .height = 48, .frameCount = frames, .maxBFrames = 2};
        if (audioSeconds > 0) recipe.audio = test::AudioTrackSpec{.seconds = audioSeconds};
        return recipe;
    }

    // Starts an import through `start` and runs the main loop until its end phase. `answer` gives
    // the handler's reply to each progress report.
    std::vector<HandlerCall> runImport(const std::function<void(AMResourceImportTask::Handler)>& start,
                                       std::function<bool(const AMTaskInfo&)> answer = {}) {
        std::vector<HandlerCall> calls;
        bool ended = false;
        start([&](int32_t phase, const AMTaskInfo* info) {
            calls.push_back({phase, info != nullptr, info ? *info : AMTaskInfo{}, MainLoop::isMainThread()});
            if (phase == AMResourceImportTask::phaseEnd) ended = true;
            return phase == AMResourceImportTask::phaseProgress && answer && answer(*info);
        });
        EXPECT_TRUE(MainLoop::runUntil([&] { return ended; }, std::chrono::seconds(120)));
        return calls;
    }

    std::vector<HandlerCall> importURLs(const std::vector<std::string>& urls, bool ignoreVideo = false,
                                        std::function<bool(const AMTaskInfo&)> answer = {}) {
        return runImport([&](auto handler) { _task->importURLs(urls, ignoreVideo, handler); }, std::move(answer));
    }

    static const AMResourceImportResult& resultOf(const std::vector<HandlerCall>& calls) {
        return *calls.back().info.representObject;
    }

    static std::vector<HandlerCall> progressOf(const std::vector<HandlerCall>& calls) {
        std::vector<HandlerCall> progress;
        for (const auto& call : calls) {
            if (call.phase == AMResourceImportTask::phaseProgress) progress.push_back(call);
        }
        return progress;
    }

    test::PrivateUserDirectories _user{"import_task_test"};
    std::shared_ptr<AMResourceMgr> _manager =
        AMResourceMgr::createWithDefaults(UserDefaults::createWithPath(_user.file("defaults.sqlite3")));
    std::shared_ptr<AMResourceImportTask> _task = AMResourceImportTask::create(*_manager);
};

TEST_F(ImportTaskTest, MovieIsStoredFrameByFrameWithProgressFromVideoOnTheMainThread) {
    const std::string path = write("Holiday Clip.mp4", movie(30, 1.2));
    const auto calls = importURLs({path});

    ASSERT_GE(calls.size(), 3u);
    EXPECT_EQ(calls.front().phase, AMResourceImportTask::phaseStart);
    EXPECT_FALSE(calls.front().hadInfo);
    EXPECT_EQ(calls.back().phase, AMResourceImportTask::phaseEnd);
    for (const auto& call : calls) EXPECT_TRUE(call.onMainThread);
    // One report per three video frames, in time order.
    const auto progress = progressOf(calls);
    ASSERT_EQ(progress.size(), 10u);
    for (size_t i = 0; i < progress.size(); ++i) {
        EXPECT_EQ(progress[i].info.msgInfo, "Holiday Clip.mp4");
        EXPECT_NEAR(progress[i].info.percent, 100.0 * (3 * i) / 25 / 1.2, 0.5);
    }

    const auto& result = resultOf(calls);
    EXPECT_EQ(calls.back().info.errorCode, 0);
    EXPECT_DOUBLE_EQ(calls.back().info.percent, 100.0);
    ASSERT_EQ(result.importResources().size(), 1u);
    EXPECT_TRUE(result.failureUrls().empty());
    const auto record = result.importResources()[0];
    EXPECT_EQ(record->humanReadableName(), "Holiday Clip");
    EXPECT_EQ(record->signture(), QMCommon::calcSigntureWithURL(path));
    EXPECT_EQ(_manager->userResource(), std::vector<std::shared_ptr<SCResource>>{record});

    const auto video = record->videoResource();
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(video->height(), 48);
    ASSERT_EQ(video->numberOfFrames(), 30);
    for (int i = 0; i < 30; ++i) {
        EXPECT_EQ(video->blocks()[i]->timestamp(), i * (QVTimebase / 25));
        EXPECT_NEAR(static_cast<double>(video->blocks()[i]->duration()), QVTimebase / 25, 1.0);
    }
    for (int i : {0, 7, 29}) {
        const auto picture = video->cgImageAtTimestamp(i * (QVTimebase / 25) + 1000);
        ASSERT_NE(picture, nullptr);
        EXPECT_EQ(test::nearestFrameIndex(centreOf(*picture), 30), i);
    }
    const auto audio = record->audioResource();
    ASSERT_NE(audio, nullptr);
    EXPECT_EQ(audio->sampleFormat(), 3);  // planar float decodes are stored packed
    EXPECT_NEAR(static_cast<double>(audio->sampleRange().length()), 48000 * 1.2, 2048);
}

TEST_F(ImportTaskTest, PhoneVideoAndOddSurroundFilesAreStoredAsTheyPlay) {
    MediaFileSpec phone;
    const std::vector<int64_t> times{0, 33000, 70000, 100000, 180000, 190000};
    phone.video = test::VideoTrackSpec{.width = 64, .height = 48, .frameCount = 6, .frameRate = {30, 1},
                                       .ptsMicroseconds = times, .rotationDegrees = 90};
    MediaFileSpec odd;
    odd.video = test::VideoTrackSpec{.width = 33, .height = 17, .frameCount = 4, .codec = "mpeg4"};
    odd.audio = test::AudioTrackSpec{.codec = "pcm_s16le", .sampleRate = 32000,
                                     .channelLayout = AV_CH_LAYOUT_5POINT1, .seconds = 0.25};
    const auto calls = importURLs({write("portrait.mp4", phone), write("odd.mov", odd)});
    const auto& resources = resultOf(calls).importResources();
    ASSERT_EQ(resources.size(), 2u);

    const auto portrait = resources[0]->videoResource();
    EXPECT_EQ(portrait->width(), 48);
    EXPECT_EQ(portrait->height(), 64);
    ASSERT_EQ(portrait->numberOfFrames(), 6);
    EXPECT_NEAR(static_cast<double>(portrait->blocks()[2]->timestamp()),
                static_cast<double>(QMMultiplyDivide(times[2], QVTimebase, 1000000)), QVTimebase / 1000.0);
    EXPECT_EQ(portrait->cgImageAtTimestamp(0)->width(), 48);

    const auto small = resources[1]->videoResource();
    EXPECT_EQ(small->width(), 33);
    EXPECT_EQ(small->numberOfFrames(), 4);
    const auto surround = resources[1]->audioResource();
    EXPECT_EQ(surround->numberOfChannels(), 6);
    EXPECT_EQ(surround->chsLayout(), static_cast<int64_t>(AV_CH_LAYOUT_5POINT1));
    EXPECT_EQ(surround->sampleFormat(), 1);  // packed S16, as decoded
    EXPECT_EQ(surround->sampleRange().length(), 8000);
}

TEST_F(ImportTaskTest, HeldFramesAndRateChangesShowTheSourceFrameAtEveryTime) {
    // Four frames at 25 fps, the last of them held for 1.5 s, then 50 fps.
    const std::vector<int64_t> times{0, 40000, 80000, 120000, 1620000, 1640000, 1660000, 1680000};
    MediaFileSpec recorder;
    recorder.video = test::VideoTrackSpec{.width = 64,
                                          .height = 48,
                                          .frameCount = static_cast<int>(times.size()),
                                          .frameRate = {25, 1},
                                          .ptsMicroseconds = times};
    const std::string path = write("screen.mp4", recorder);
    const auto video = resultOf(importURLs({path})).importResources().at(0)->videoResource();
    ASSERT_NE(video, nullptr);
    ASSERT_EQ(video->numberOfFrames(), static_cast<int64_t>(times.size()));
    // The last frame lasts one frame at the rate the file states.
    const double statedRate = QVDemuxerContext::createWithFilename(path)->frameRate();
    EXPECT_NEAR(static_cast<double>(video->blocks().back()->duration()), QVTimebase / statedRate, 1.0);

    const int64_t end = times.back() + 40000;
    for (int64_t probe = 5000; probe < end; probe += 10000) {
        const auto shown = std::upper_bound(times.begin(), times.end(), probe) - times.begin() - 1;
        const auto picture = video->cgImageAtTimestamp(QMMultiplyDivide(probe, QVTimebase, 1000000));
        ASSERT_NE(picture, nullptr) << probe;
        EXPECT_EQ(test::nearestFrameIndex(centreOf(*picture), static_cast<int>(times.size())), shown) << probe;
    }
}

TEST_F(ImportTaskTest, JoinedRecordingThatStepsBackKeepsItsBlocksAscending) {
    // The second part restarts its clock, so its first ten frames fall behind the first part's end.
    const std::string first = write("first.ts", movie(10, 0));
    const std::string second = write("second.ts", movie(20, 0));
    const std::string joined = _user.file("joined.ts");
    {
        std::ofstream out(joined, std::ios::binary);
        out << std::ifstream(first, std::ios::binary).rdbuf() << std::ifstream(second, std::ios::binary).rdbuf();
    }
    const auto video = resultOf(importURLs({joined})).importResources().at(0)->videoResource();
    ASSERT_NE(video, nullptr);
    ASSERT_EQ(video->numberOfFrames(), 20);
    for (size_t i = 1; i < video->blocks().size(); ++i) {
        EXPECT_GT(video->blocks()[i]->timestamp(), video->blocks()[i - 1]->timestamp()) << i;
    }
    for (int i : {9, 10, 19}) {
        const auto picture = video->cgImageAtTimestamp(i * (QVTimebase / 25) + 1000);
        ASSERT_NE(picture, nullptr);
        EXPECT_EQ(test::nearestFrameIndex(centreOf(*picture), 20), i);
    }
}

TEST_F(ImportTaskTest, ProgressOfVideoThatStartsAfterItsSoundStaysWithinAHundred) {
    MediaFileSpec late = movie(25, 1.5);
    for (int i = 0; i < 25; ++i) late.video->ptsMicroseconds.push_back(500000 + i * 40000);
    const auto progress = progressOf(importURLs({write("late video.mp4", late)}));
    ASSERT_FALSE(progress.empty());
    for (const auto& report : progress) EXPECT_LE(report.info.percent, 100.0);
    EXPECT_GT(progress.back().info.percent, 90.0);
}

// A movie with a white flash and a 1 kHz beep, both at 1.04 s; the stream named by `late` starts
// 0.52 s (13 frames) after the other.
std::string flashAndBeepCommand(const std::string& path, const std::string& late) {
    const std::string lateOffset = "-itsoffset 0.52 ";
    const std::string flashAt = late == "video" ? "0.52" : "1.04";
    const std::string beepAt = late == "audio" ? "0.52" : "1.04";
    return "ffmpeg -v error -y " + (late == "video" ? lateOffset : "") +
           "-f lavfi -i \"color=c=black:s=64x48:r=25:d=2,drawbox=w=iw:h=ih:c=white:t=fill:enable='between(t," +
           flashAt + "-0.01," + flashAt + "+0.01)'\" " + (late == "audio" ? lateOffset : "") +
           "-f lavfi -i \"aevalsrc='0.5*sin(2*PI*1000*t)*between(t," + beepAt + "," + beepAt +
           "+0.1)':s=48000:d=2\" -vsync passthrough -c:v libx264 -pix_fmt yuv420p -c:a aac \"" + path + "\"";
}

double flashSeconds(SCVideoResource& video) {
    for (const auto& block : video.blocks()) {
        const auto picture = video.cgImageAtTimestamp(block->timestamp());
        if (picture && centreOf(*picture).r > 128) return static_cast<double>(block->timestamp()) / QVTimebase;
    }
    return -1.0;
}

double beepSeconds(SCAudioResource& audio) {
    const auto samples = audio.sampleBufferWithRange(audio.sampleRange());
    if (!samples || audio.sampleFormat() != QVSampleFormatFLT) return -1.0;
    const std::vector<uint8_t>& bytes = samples->data();
    const int64_t channels = audio.numberOfChannels();
    for (size_t i = 0; i * sizeof(float) < bytes.size(); ++i) {
        float value;
        std::memcpy(&value, bytes.data() + i * sizeof(float), sizeof(float));
        if (std::abs(value) > 0.1f) return static_cast<double>(i / channels) / static_cast<double>(audio.sampleRate());
    }
    return -1.0;
}

TEST_F(ImportTaskTest, LateOrEarlySoundStaysWithThePicture) {
    for (const std::string late : {"audio", "video"}) {
        const std::string path = _user.file("late " + late + ".mp4");
        ASSERT_EQ(std::system(flashAndBeepCommand(path, late).c_str()), 0);
        const auto record = resultOf(importURLs({path})).importResources().at(0);
        const double flash = flashSeconds(*record->videoResource());
        const double beep = beepSeconds(*record->audioResource());
        EXPECT_NEAR(flash, 1.04, 0.001) << late;
        EXPECT_NEAR(beep, flash, 0.010) << late;
    }
}

// How many video frames FFmpeg's own tools decode from `path`.
int ffmpegFrameCount(const std::string& path) {
    const std::string command =
        "ffprobe -v quiet -select_streams v -count_frames -show_entries "
        "stream=nb_read_frames -of csv=p=0 \"" +
        path + "\"";
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe) return -1;
    int count = -1;
    if (std::fscanf(pipe, "%d", &count) != 1) count = -1;
    ::pclose(pipe);
    return count;
}

TEST_F(ImportTaskTest, MovieCutShortKeepsEveryFrameFFmpegDecodes) {
    // The index comes first, so only the media data is cut.
    const std::string whole = _user.file("whole.mp4");
    ASSERT_EQ(std::system(("ffmpeg -v error -y -f lavfi -i testsrc=s=320x240:r=25:d=4 -c:v libx264 -bf 2 "
                           "-pix_fmt yuv420p -movflags +faststart \"" +
                           whole + "\"")
                              .c_str()),
              0);
    const std::string cut = _user.file("cut at sixty.mp4");
    std::filesystem::copy_file(whole, cut);
    std::filesystem::resize_file(cut, std::filesystem::file_size(whole) * 6 / 10);
    const int expected = ffmpegFrameCount(cut);
    ASSERT_GT(expected, 0);

    const auto video = resultOf(importURLs({cut})).importResources().at(0)->videoResource();
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(video->numberOfFrames(), expected);
}

TEST_F(ImportTaskTest, SongsJoinedAtAnotherRateKeepTheFirstFormatAndPlayAtTheirSpeed) {
    MediaFileSpec first;
    first.audio = test::AudioTrackSpec{.codec = "libmp3lame", .sampleRate = 44100, .seconds = 1.0};
    MediaFileSpec second;
    second.audio = test::AudioTrackSpec{.codec = "libmp3lame", .sampleRate = 48000, .seconds = 1.0};
    const std::string firstPath = write("first.mp3", first);
    const std::string secondPath = write("second.mp3", second);
    const std::string joined = _user.file("joined.mp3");
    {
        std::ofstream out(joined, std::ios::binary);
        out << std::ifstream(firstPath, std::ios::binary).rdbuf()
            << std::ifstream(secondPath, std::ios::binary).rdbuf();
    }
    const auto audio = resultOf(importURLs({joined})).importResources().at(0)->audioResource();
    ASSERT_NE(audio, nullptr);
    EXPECT_EQ(audio->sampleRate(), 44100);
    // Two seconds at 44.1 kHz, give or take the coder's padding of each part.
    EXPECT_NEAR(static_cast<double>(audio->sampleRange().length()), 2 * 44100, 2304);
    for (const auto& block : audio->blocks()) {
        const auto frame =
            SCResource::decodeAudioFrame(audio->storage()->readDataOfLength(block->length(), block->offset()));
        ASSERT_NE(frame, nullptr);
        ASSERT_EQ(frame->sampleRate(), 44100);
        ASSERT_EQ(static_cast<uint64_t>(frame->numberOfSamples()), block->numberOfSamples());
    }
}

TEST_F(ImportTaskTest, IgnoringVideoStoresSoundOnlyAndSoundReportsItsOwnProgress) {
    const auto calls = importURLs({write("talk.mkv", movie(10, 2.0))}, true);
    const auto progress = progressOf(calls);
    ASSERT_FALSE(progress.empty());
    EXPECT_GT(progress.back().info.percent, 80.0);
    const auto record = resultOf(calls).importResources().at(0);
    EXPECT_EQ(record->videoResource(), nullptr);
    ASSERT_NE(record->audioResource(), nullptr);
    EXPECT_NEAR(static_cast<double>(record->audioResource()->sampleRange().length()), 96000, 2048);
}

TEST_F(ImportTaskTest, KnownSignatureIsNotDecodedAgain) {
    const std::string path = write("same.mp4", movie(6, 0));
    const auto first = resultOf(importURLs({path})).importResources().at(0);
    const auto again = importURLs({path});
    EXPECT_TRUE(progressOf(again).empty());
    ASSERT_EQ(resultOf(again).importResources().size(), 1u);
    EXPECT_EQ(resultOf(again).importResources()[0], first);
    EXPECT_EQ(_manager->userResource().size(), 1u);
}

TEST_F(ImportTaskTest, CancelAtTheFirstReportKeepsNothingAndListsNoFailure) {
    const auto calls = importURLs({write("long.mp4", movie(40, 1.0)), write("next.mp4", movie(5, 0))}, false,
                                  [](const AMTaskInfo&) { return true; });
    EXPECT_EQ(progressOf(calls).size(), 1u);
    EXPECT_EQ(calls.back().info.errorCode, 2);
    EXPECT_TRUE(resultOf(calls).importResources().empty());
    EXPECT_TRUE(resultOf(calls).failureUrls().empty());
    EXPECT_TRUE(_manager->userResource().empty());
    EXPECT_EQ(_task->videoResource(), nullptr);
}

TEST_F(ImportTaskTest, SongCoverBecomesTheThumbnailAndSilentFilesInheritThePreviousSound) {
    MediaFileSpec song;
    song.audio = test::AudioTrackSpec{.codec = "libmp3lame", .seconds = 0.5};
    song.coverArtJPEGorPNG = test::solidJPEG(40, 40, {30, 60, 200});
    const auto calls = importURLs({write("song.mp3", song), write("silent.mp4", movie(4, 0))});
    const auto& resources = resultOf(calls).importResources();
    ASSERT_EQ(resources.size(), 2u);
    const auto cover = resources[0]->audioResource()->thumbnail();
    ASSERT_NE(cover, nullptr);
    EXPECT_NEAR(centreOf(*cover).b, 200, 8);
    EXPECT_EQ(resources[1]->audioResource(), resources[0]->audioResource());
    EXPECT_NE(resources[1]->videoResource(), nullptr);
}

TEST_F(ImportTaskTest, DamagedAndMissingFilesAreListedWithTheirReasonBesideGoodOnes) {
    std::ofstream(_user.file("notes.mp4")) << "plain words, not a movie";
    std::ofstream(_user.file("empty.mov"));
    const std::string whole = write("whole.mp4", movie(12, 0));
    std::filesystem::copy_file(whole, _user.file("cut.mp4"));
    std::filesystem::resize_file(_user.file("cut.mp4"), std::filesystem::file_size(whole) / 3);
    const std::string good = write("good.mkv", movie(3, 0.3));
    const std::string vanishing = write("vanishing.mp4", movie(3, 0));

    const auto calls = importURLs(
        {_user.file("notes.mp4"), _user.file("empty.mov"), _user.file("cut.mp4"), good, vanishing}, false,
        [&](const AMTaskInfo&) {
            std::filesystem::remove(vanishing);
            return false;
        });
    const auto& result = resultOf(calls);
    EXPECT_EQ(calls.back().info.errorCode, 1);
    const std::vector<std::string> failed{_user.file("notes.mp4"), _user.file("empty.mov"), _user.file("cut.mp4"),
                                          vanishing};
    EXPECT_EQ(result.failureUrls(), failed);
    EXPECT_EQ(result.errorDescription(),
              std::vector<std::string>(4, "DRM protected information has been detected in this file"));
    ASSERT_EQ(result.importResources().size(), 1u);
    EXPECT_EQ(result.importResources()[0]->originalPath(), good);
    EXPECT_EQ(_manager->userResource().size(), 1u);
}

TEST_F(ImportTaskTest, PicturesAreReferredToAndAnimatedGIFsKeepEveryFrame) {
    ASSERT_EQ(test::writeAnimatedGif(_user.file("wave.GIF"), 24, 16, 5, 10), "");
    std::ofstream(_user.file("broken.png")) << "not a picture";
    const auto calls = importURLs({_user.file("wave.GIF"), _user.file("broken.png")});
    const auto progress = progressOf(calls);
    ASSERT_EQ(progress.size(), 1u);
    EXPECT_DOUBLE_EQ(progress[0].info.percent, 100.0);
    EXPECT_EQ(progress[0].info.msgInfo, "wave.GIF");
    const auto& result = resultOf(calls);
    ASSERT_EQ(result.importResources().size(), 1u);
    EXPECT_EQ(result.importResources()[0]->imageResource()->numberOfImages(), 5);
    EXPECT_EQ(result.failureUrls(), std::vector<std::string>{_user.file("broken.png")});
    EXPECT_EQ(result.errorDescription(), std::vector<std::string>{AMResourceImportTask::noPictureText});
}

class LibraryItem : public AMMediaObject {
public:
    LibraryItem(std::string url, std::string identifier) : _url(std::move(url)), _identifier(std::move(identifier)) {}
    std::string URL() const override { return _url; }
    std::string identifier() const override { return _identifier; }

private:
    std::string _url, _identifier;
};

TEST_F(ImportTaskTest, MediaLibraryItemsGoToTheirOwnListsByIdentifier) {
    MediaFileSpec tune;
    tune.audio = test::AudioTrackSpec{.codec = "aac", .seconds = 0.3};
    const std::vector<std::shared_ptr<AMMediaObject>> items{
        std::make_shared<LibraryItem>(write("tune.m4a", tune), "library-7"),
        std::make_shared<LibraryItem>(_user.file("gone.m4a"), "library-8")};
    auto run = [&] {
        return runImport([&](auto handler) { _task->importMediaObjects(items, false, handler); });
    };
    const auto calls = run();
    const auto& result = resultOf(calls);
    ASSERT_EQ(result.importResources().size(), 1u);
    EXPECT_EQ(result.importResources()[0]->identifier(), "library-7");
    EXPECT_EQ(result.failureUrls(), std::vector<std::string>{_user.file("gone.m4a")});
    EXPECT_EQ(result.errorDescription(), std::vector<std::string>{"No access rights"});
    EXPECT_EQ(_manager->iTunesResource().size(), 1u);
    EXPECT_TRUE(_manager->userResource().empty());

    // Found again by its identifier, without decoding.
    const auto again = run();
    EXPECT_TRUE(progressOf(again).empty());
    EXPECT_EQ(resultOf(again).importResources().at(0), result.importResources()[0]);
}

}  // namespace
}  // namespace qm
