#include "project/QVMediaClip.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "foundation/QVVolumeEffect.h"
#include "platform/KeyedArchiver.h"
#include "platform/Log.h"
#include "project/ProjectArchive.h"
#include "project/QVTrack.h"
#include "store/AMResourceMgr.h"
#include "store/SCAudioResource.h"

#include "support/ModelConsistency.h"
#include "support/SampleBytes.h"
#include "support/StoredMedia.h"
#include "support/TestEnvironment.h"

namespace qm {
namespace {

constexpr int64_t kSec = QVTimebase;
const QVSampleDescription kStereo48k(48000, 2, QVSampleFormatS16, 0);

// The shared resource manager reads the user folders once per process: they stay private for all
// tests of this file.
const test::PrivateUserDirectories& processUserDirectories() {
    static const test::PrivateUserDirectories directories("media_clip_test");
    return directories;
}

class MediaClipTest : public ModelTest {
protected:
    void SetUp() override {
        processUserDirectories();
        registerStoreArchiveClasses();
        registerProjectArchiveClasses();
    }

    static std::shared_ptr<SCResource> audio(double seconds, int64_t rate = 48000,
                                             std::function<double(int64_t, int64_t)> signal = nullptr) {
        test::StoredAudioPlan plan;
        plan.sampleRate = rate;
        plan.numberOfSamples = static_cast<int64_t>(seconds * static_cast<double>(rate));
        plan.signal = signal ? std::move(signal) : test::sineSignal(440.0, rate);
        return test::storedAudioResource(plan);
    }

    // The clip on a track of the project, so that its edits are undoable.
    std::shared_ptr<QVMediaClip> onTrack(const std::shared_ptr<QVMediaClip>& clip) {
        auto track = QVTrack::create();
        project->addTracksObject(track);
        EXPECT_TRUE(track->addClip(clip));
        return clip;
    }

    static std::vector<int16_t> values(const std::shared_ptr<QVSampleBuffer>& buffer) {
        return buffer ? test::s16Values(buffer) : std::vector<int16_t>();
    }
};

TEST_F(MediaClipTest, BindsItsResourceAndLastsAsLongAsTheSource) {
    const auto resource = audio(3.0);
    resource->setHumanReadableName("Interview");
    const auto clip = QVMediaClip::createWithResource(resource);
    EXPECT_EQ(clip->resIdentifier(), resource->identifier());
    EXPECT_EQ(clip->sourceDuration(), 3 * kSec);
    EXPECT_EQ(clip->trackDuration(), 3 * kSec);
    EXPECT_TRUE(clip->audioExist());
    EXPECT_FALSE(clip->videoExist());
    EXPECT_FALSE(clip->allowMove());
    EXPECT_EQ(clip->title(), "Interview");
    EXPECT_EQ(clip->durationOfFadeIn(), 2 * kSec);
    EXPECT_FALSE(clip->fadeIn());

    const auto video = QVMediaClip::createWithResource(test::storedVideoResource(10, kSec / 10, 64, 48));
    EXPECT_TRUE(video->videoExist());
    EXPECT_TRUE(video->allowRotate());
    EXPECT_EQ(video->trackDuration(), kSec);
    EXPECT_EQ(video->sourceSize().width, 64);
    EXPECT_EQ(video->ares(), nullptr);
    EXPECT_EQ(video->sampleBufferWithRange(QVRange(0, 100), kStereo48k), nullptr);

    test::TemporaryDirectory directory;
    const auto image = QVMediaClip::createWithResource(test::storedImageResource(directory.file("a.png"), 30, 20));
    EXPECT_EQ(image->trackDuration(), 5 * kSec);
    EXPECT_EQ(image->sourceSize().width, 30);
}

TEST_F(MediaClipTest, FindsItsResourceByIdentifierInTheSharedManager) {
    const auto resource = audio(1.0);
    AMResourceMgr::resourceMgr().addResource(resource, AMResourceTypeUser);
    const auto clip = QVMediaClip::createWithResourceIdentifier(resource->identifier());
    ASSERT_TRUE(clip);
    EXPECT_EQ(clip->resource(), resource);
    EXPECT_EQ(clip->trackDuration(), kSec);
    EXPECT_EQ(QVMediaClip::createWithResourceIdentifier("no-such-resource"), nullptr);
}

TEST_F(MediaClipTest, TrackTimeMapsToSourceTimeByTheTwoStarts) {
    const auto clip = QVMediaClip::createWithResource(audio(3.0));
    clip->setTimestampOfTrack(10 * kSec);
    clip->setTrackDuration(2 * kSec);
    clip->setTimestampOfResource(kSec / 2);
    EXPECT_EQ(clip->trackTimestampToSource(11 * kSec), kSec + kSec / 2);
    EXPECT_EQ(clip->trackTimestampFromSource(kSec + kSec / 2), 11 * kSec);
    EXPECT_TRUE(clip->resourceTimeRange().isEqualRange(QVRange(kSec / 2, 2 * kSec)));
    EXPECT_TRUE(clip->resourceSampleRange().isEqualRange(QVRange(24000, 96000)));
    // Equal rates: positions shift by the two starts.
    EXPECT_TRUE(
        clip->trackSampleRangeToSourceRange(QVRange(480000, 100), kStereo48k).isEqualRange(QVRange(24000, 100)));
    EXPECT_TRUE(
        clip->trackSampleRangeFromSourceRange(QVRange(24000, 100), kStereo48k).isEqualRange(QVRange(480000, 100)));
    // Another rate: the track position is converted first, then the clip's start taken off.
    const QVSampleDescription at44k(44100, 2, QVSampleFormatS16, 0);
    EXPECT_TRUE(clip->trackSampleRangeToSourceRange(QVRange(441000, 441), at44k)
                    .isEqualRange(QVRange(480000 + 24000 - 480000, 480)));
    EXPECT_TRUE(clip->trackSampleRangeFromSourceRange(QVRange(24000, 480), at44k).isEqualRange(QVRange(441000, 441)));
}

TEST_F(MediaClipTest, DurationStopsAtTheEndOfTheSourceButNotBelowTheShortestClip) {
    const auto clip = QVMediaClip::createWithResource(audio(3.0));
    clip->setTimestampOfResource(kSec);
    clip->setTrackDuration(10 * kSec);
    EXPECT_EQ(clip->trackDuration(), 2 * kSec);

    const auto shortSource = QVMediaClip::createWithResource(audio(0.25));
    EXPECT_EQ(shortSource->trackDuration(), QVClip::minClipDuration);

    const auto video = QVMediaClip::createWithResource(test::storedVideoResource(10, kSec / 10));
    video->setTrackDuration(4 * kSec);
    EXPECT_EQ(video->trackDuration(), kSec);

    test::TemporaryDirectory directory;
    const auto image = QVMediaClip::createWithResource(test::storedImageResource(directory.file("a.png"), 8, 8));
    image->setTrackDuration(60 * kSec);
    EXPECT_EQ(image->trackDuration(), 60 * kSec);
}

TEST_F(MediaClipTest, CuttingTrimsIntoTheSourceAndGivesBackMaterialOnlyDownToSourceZero) {
    const auto clip = onTrack(QVMediaClip::createWithResource(audio(3.0)));
    clip->setTimestampOfTrack(2 * kSec);
    clip->setTimestampOfResource(kSec / 2);
    clip->setTrackDuration(2 * kSec);

    clip->cutAtTimestamp(3 * kSec);
    EXPECT_EQ(clip->timestampOfTrack(), 3 * kSec);
    EXPECT_EQ(clip->timestampOfResource(), kSec + kSec / 2);
    EXPECT_EQ(clip->trackTimeRange().end(), 4 * kSec);
    undo();
    EXPECT_EQ(clip->timestampOfTrack(), 2 * kSec);
    EXPECT_EQ(clip->timestampOfResource(), kSec / 2);

    // Left past source time 0: the head stops where the source begins.
    clip->cutAtTimestamp(kSec);
    EXPECT_EQ(clip->timestampOfResource(), 0);
    EXPECT_EQ(clip->timestampOfTrack(), 2 * kSec - kSec / 2);
    EXPECT_EQ(clip->trackTimeRange().end(), 4 * kSec);

    // A cut near the end keeps the shortest clip (the cut range ends one unit short of it).
    clip->cutAtTimestamp(10 * kSec);
    EXPECT_EQ(clip->trackDuration(), QVClip::minClipDuration + 1);
    EXPECT_EQ(clip->trackTimeRange().end(), 4 * kSec);
    EXPECT_EQ(clip->timestampOfResource(), clip->trackTimestampToSource(clip->timestampOfTrack()));
}

TEST_F(MediaClipTest, ExtendingTheHeadNearTheSourceEndUsesTheOldPositionsLimit) {
    const auto clip = onTrack(QVMediaClip::createWithResource(audio(3.0)));
    clip->setTimestampOfTrack(2 * kSec);
    clip->setTimestampOfResource(kSec + kSec / 2);
    clip->setTrackDuration(kSec + kSec / 2);
    clip->cutAtTimestamp(kSec);
    EXPECT_EQ(clip->timestampOfTrack(), kSec);
    EXPECT_EQ(clip->timestampOfResource(), kSec / 2);
    EXPECT_EQ(clip->trackDuration(), kSec + kSec / 2);
    EXPECT_EQ(clip->trackTimeRange().end(), 2 * kSec + kSec / 2);

    test::TemporaryDirectory directory;
    const auto image =
        onTrack(QVMediaClip::createWithResource(test::storedImageResource(directory.file("a.png"), 8, 8)));
    image->cutAtTimestamp(2 * kSec);
    EXPECT_EQ(image->timestampOfTrack(), 2 * kSec);
    EXPECT_EQ(image->timestampOfResource(), 0);
}

TEST_F(MediaClipTest, FadeLengthsFitTheClipAndOverlongFadesShareIt) {
    const auto clip = onTrack(QVMediaClip::createWithResource(audio(3.0)));
    clip->setDurationOfFadeIn(1);
    EXPECT_EQ(clip->durationOfFadeIn(), QVMediaClip::minFadeDuration);
    clip->setFadeOut(true);
    clip->setDurationOfFadeIn(2 * kSec);
    EXPECT_EQ(clip->durationOfFadeIn(), kSec);
    undo();
    EXPECT_EQ(clip->durationOfFadeIn(), QVMediaClip::minFadeDuration);

    // Both on and together longer than the clip: each takes half of it.
    clip->setFadeIn(true);
    clip->setTimestampOfTrack(kSec);
    EXPECT_TRUE(clip->sampleRangeOfFadeInWithSampleDescription(kStereo48k).isEqualRange(QVRange(48000, 4800)));
    clip->setFadeOut(false);
    clip->setDurationOfFadeIn(2 * kSec);
    clip->setFadeOut(true);
    EXPECT_TRUE(clip->sampleRangeOfFadeInWithSampleDescription(kStereo48k).isEqualRange(QVRange(48000, 72000)));
    EXPECT_TRUE(clip->sampleRangeOfFadeOutWithSampleDescription(kStereo48k).isEqualRange(QVRange(120000, 72000)));

    // A 1-second clip with the 2-second fade-out on leaves the fade-in at -1 second, and empty.
    const auto second = QVMediaClip::createWithResource(audio(1.0));
    second->setFadeOut(true);
    second->setFadeIn(true);
    second->setDurationOfFadeIn(kSec / 2);
    EXPECT_EQ(second->durationOfFadeIn(), -kSec);
    EXPECT_TRUE(second->sampleRangeOfFadeInWithSampleDescription(kStereo48k).empty());
    second->setFadeOut(false);
    EXPECT_TRUE(second->sampleRangeOfFadeOutWithSampleDescription(kStereo48k).empty());
}

TEST_F(MediaClipTest, SameFormatSoundComesStraightFromTheResourceWithoutTheCache) {
    const auto resource = audio(3.0, 48000, [](int64_t position, int64_t channel) {
        return static_cast<double>(position % 1000 + 1000 * channel) / 32767.0;
    });
    const auto clip = QVMediaClip::createWithResource(resource);
    clip->setTimestampOfTrack(kSec);
    clip->setTimestampOfResource(kSec / 2);
    clip->setTrackDuration(kSec);

    // Only the part of the request inside the clip comes back.
    const auto sound = clip->sampleBufferWithRange(QVRange(47990, 20), kStereo48k);
    ASSERT_TRUE(sound);
    EXPECT_TRUE(sound->sampleRange().isEqualRange(QVRange(48000, 10)));
    const auto samples = values(sound);
    EXPECT_EQ(samples[0], 24000 % 1000);
    EXPECT_EQ(samples[1], 24000 % 1000 + 1000);
    EXPECT_EQ(samples[18], 24009 % 1000);

    clip->sampleBufferWithRange(QVRange(60000, 1024), kStereo48k);
    EXPECT_FALSE(clip->cacheSampleBuffer());
    EXPECT_EQ(clip->sampleBufferWithRange(QVRange(0, 48000), kStereo48k), nullptr);
    EXPECT_EQ(clip->sampleBufferWithRange(QVRange(96000, 100), kStereo48k), nullptr);

    clip->setMute(true);
    EXPECT_EQ(clip->sampleBufferWithRange(QVRange(48000, 10), kStereo48k), nullptr);
    EXPECT_TRUE(clip->sampleBufferWithRange(QVRange(48000, 10), kStereo48k, true));
}

TEST_F(MediaClipTest, FadesRampFromSilenceAndBackOnTopOfTheVolume) {
    const auto clip = QVMediaClip::createWithResource(audio(3.0, 48000, test::constantSignal(0.5)));
    clip->setFadeIn(true);
    clip->setDurationOfFadeIn(kSec);
    clip->setFadeOut(true);
    clip->setDurationOfFadeOut(kSec);
    const auto samples = values(clip->sampleBufferWithRange(QVRange(0, 3 * 48000), kStereo48k));
    ASSERT_EQ(samples.size(), 2u * 3 * 48000);
    const int16_t full = samples[2 * 72000];
    EXPECT_NEAR(full, 16384, 2);
    EXPECT_LT(std::abs(samples[0]), 100);
    EXPECT_LT(std::abs(samples.back()), 100);
    for (size_t i = 2; i < 2 * 48000; i += 2 * 997) EXPECT_LE(samples[i - 2], samples[i]) << i;
    for (size_t i = 2 * 96000 + 2; i < samples.size(); i += 2 * 997) EXPECT_GE(samples[i - 2], samples[i]) << i;
    EXPECT_EQ(samples[2 * 48000], full);
    EXPECT_EQ(samples[2 * 96000 - 2], full);

    // The clip's volume counts once more inside a fade.
    clip->setTrackVolume(0.5);
    const auto quieter = values(clip->sampleBufferWithRange(QVRange(72000, 1), kStereo48k));
    const double gain = QVVolumeEffect::gainFactorFromVolume(0.5);
    EXPECT_NEAR(quieter[0], 16384 * gain, 2);
    const auto fadeEnd = values(clip->sampleBufferWithRange(QVRange(47999, 1), kStereo48k));
    EXPECT_NEAR(fadeEnd[0], 16384 * gain * gain, 40);

    // Overlapping fades on a 1.5-second stretch: up to the middle, then down.
    const auto shortClip = QVMediaClip::createWithResource(audio(1.5, 48000, test::constantSignal(0.5)));
    shortClip->setFadeIn(true);
    shortClip->setFadeOut(true);
    const auto ramp = values(shortClip->sampleBufferWithRange(QVRange(0, 72000), kStereo48k));
    const auto peak = std::max_element(ramp.begin(), ramp.end()) - ramp.begin();
    EXPECT_NEAR(static_cast<double>(peak / 2), 36000.0, 2.0);
    EXPECT_LT(std::abs(ramp[2 * 18000]), std::abs(ramp[2 * 30000]));
    EXPECT_LT(std::abs(ramp[2 * 54000]), std::abs(ramp[2 * 42000]));
}

class ResampledSoundTest : public MediaClipTest {
protected:
    void SetUp() override {
        MediaClipTest::SetUp();
        _resource = audio(4.0, 44100);
    }

    std::shared_ptr<QVMediaClip> freshClip() const {
        auto clip = QVMediaClip::createWithResource(_resource);
        clip->setTimestampOfTrack(kSec);
        return clip;
    }

    // The clip's sound from `from` to `to` (track samples at 48 kHz), asked in blocks of `block`.
    static std::vector<int16_t> inBlocks(QVMediaClip& clip, int64_t from, int64_t to, int64_t block) {
        std::vector<int16_t> all;
        for (int64_t at = from; at < to; at += block) {
            const auto sound = clip.sampleBufferWithRange(QVRange(at, std::min(block, to - at)), kStereo48k);
            EXPECT_TRUE(sound) << at;
            if (!sound) return all;
            EXPECT_EQ(sound->sampleRange().location(), at);
            const auto samples = test::s16Values(sound);
            all.insert(all.end(), samples.begin(), samples.end());
        }
        return all;
    }

    static int maxDifference(const std::vector<int16_t>& a, const std::vector<int16_t>& b, size_t from = 0) {
        EXPECT_EQ(a.size(), b.size());
        int largest = 0;
        for (size_t i = from; i < std::min(a.size(), b.size()); ++i) largest = std::max(largest, std::abs(a[i] - b[i]));
        return largest;
    }

    std::shared_ptr<SCResource> _resource;
};

TEST_F(ResampledSoundTest, BlocksOfAnySizeGiveTheSameSoundAsOneLargeRequest) {
    const int64_t start = 48000;
    const int64_t end = start + 3 * 48000;
    auto whole = freshClip();
    const auto once = values(whole->sampleBufferWithRange(QVRange(start, end - start), kStereo48k));
    ASSERT_EQ(once.size(), 2u * (end - start));
    // The resampled sine keeps its level.
    EXPECT_NEAR(*std::max_element(once.begin() + 2000, once.end()), 16384, 200);

    for (const int64_t block : {512, 1024}) {
        auto clip = freshClip();
        EXPECT_LE(maxDifference(inBlocks(*clip, start, end, block), once), 1) << block;
        // The cache stays below its trim threshold plus one read.
        EXPECT_LT(clip->cacheSampleBuffer()->sampleRange().length(), QVMediaClip::cacheTrimThreshold + 2 * block);
        EXPECT_GE(clip->cacheSourceRange()->end(),
                  clip->trackSampleRangeToSourceRange(QVRange(end - 1, 1), kStereo48k).end());
    }
}

TEST_F(ResampledSoundTest, AJumpBackStartsOverAndASmallJumpForwardContinues) {
    const int64_t start = 48000;
    auto reference = freshClip();
    const auto continuous = values(reference->sampleBufferWithRange(QVRange(start, 48000), kStereo48k));

    // Forward by less than a fifth of a second: the skipped sound is read, so the result matches
    // the continuous stream.
    auto clip = freshClip();
    inBlocks(*clip, start, start + 4096, 1024);
    const int64_t ahead = start + 4096 + 4000;
    const auto afterSkip = values(clip->sampleBufferWithRange(QVRange(ahead, 1024), kStereo48k));
    const std::vector<int16_t> expected(continuous.begin() + 2 * (ahead - start),
                                        continuous.begin() + 2 * (ahead - start + 1024));
    EXPECT_LE(maxDifference(afterSkip, expected), 1);
    EXPECT_EQ(clip->cacheSampleBuffer()->sampleRange().location(), start);

    // Back by one sample before the cache: a fresh start, exactly as a new clip gives it.
    auto restarted = freshClip();
    inBlocks(*restarted, start + 2000, start + 4048, 1024);
    const auto back = values(restarted->sampleBufferWithRange(QVRange(start + 1999, 1024), kStereo48k));
    EXPECT_EQ(restarted->cacheSampleBuffer()->sampleRange().location(), start + 1999);
    auto fresh = freshClip();
    EXPECT_EQ(back, values(fresh->sampleBufferWithRange(QVRange(start + 1999, 1024), kStereo48k)));

    // Forward by more than a fifth of a second starts over as well.
    const auto far = values(restarted->sampleBufferWithRange(QVRange(start + 30000, 1024), kStereo48k));
    EXPECT_EQ(restarted->cacheSampleBuffer()->sampleRange().location(), start + 30000);
    auto freshFar = freshClip();
    EXPECT_EQ(far, values(freshFar->sampleBufferWithRange(QVRange(start + 30000, 1024), kStereo48k)));
}

TEST_F(ResampledSoundTest, MovingTheClipOrItsSourceOffsetStartsANewCache) {
    auto clip = freshClip();
    inBlocks(*clip, 48000, 48000 + 4096, 1024);
    clip->setTimestampOfResource(kSec / 4);
    auto offset = freshClip();
    offset->setTimestampOfResource(kSec / 4);
    EXPECT_EQ(values(clip->sampleBufferWithRange(QVRange(48000 + 1024, 1024), kStereo48k)),
              values(offset->sampleBufferWithRange(QVRange(48000 + 1024, 1024), kStereo48k)));

    inBlocks(*clip, 48000 + 2048, 48000 + 4096, 1024);
    clip->setTimestampOfTrack(kSec + kSec / 100);
    auto moved = freshClip();
    moved->setTimestampOfResource(kSec / 4);
    moved->setTimestampOfTrack(kSec + kSec / 100);
    EXPECT_EQ(values(clip->sampleBufferWithRange(QVRange(48000 + 3072, 1024), kStereo48k)),
              values(moved->sampleBufferWithRange(QVRange(48000 + 3072, 1024), kStereo48k)));
}

TEST_F(ResampledSoundTest, AnotherRequestedFormatStartsANewCache) {
    auto clip = freshClip();
    inBlocks(*clip, 48000, 48000 + 2048, 1024);
    const QVSampleDescription floats(48000, 2, QVSampleFormatFLT, 0);
    const auto sound = clip->sampleBufferWithRange(QVRange(48000 + 2048, 1024), floats);
    ASSERT_TRUE(sound);
    EXPECT_EQ(sound->sampleDescription(), floats);
    EXPECT_TRUE(clip->cacheSampleBuffer()->sampleDescription().isEqualTo(floats));
    EXPECT_EQ(clip->cacheSampleBuffer()->sampleRange().location(), 48000 + 2048);
}

TEST_F(MediaClipTest, ThumbnailIsTheSourcesFirstPictureMadeOnce) {
    const auto clip = QVMediaClip::createWithResource(test::storedVideoResource(10, kSec / 10, 64, 48));
    clip->setTimestampOfResource(kSec / 2);
    const auto thumbnail = clip->thumbnail();
    ASSERT_TRUE(thumbnail);
    EXPECT_EQ(thumbnail->width(), 160);
    EXPECT_EQ(thumbnail->height(), 120);
    EXPECT_NEAR(thumbnail->pixelAt(80, 60)[0], test::storedFrameGrey(0), 3);
    EXPECT_EQ(clip->thumbnail(), thumbnail);

    const auto ignoring = QVMediaClip::createWithResource(test::storedVideoResource(2, kSec));
    ignoring->setIgnoreVideo(true);
    EXPECT_EQ(ignoring->thumbnail(), nullptr);
    EXPECT_EQ(QVMediaClip::createWithResource(audio(1.0))->thumbnail(), nullptr);
    EXPECT_NEAR(clip->cgImageAtSourceTimestamp(kSec / 2 + 1)->pixelAt(10, 10)[0], test::storedFrameGrey(5), 3);
}

TEST_F(MediaClipTest, CopySharesTheResourceAndCarriesOffsetAndFades) {
    const auto clip = QVMediaClip::createWithResource(audio(3.0, 44100));
    clip->setTimestampOfResource(kSec / 2);
    clip->setTrackDuration(2 * kSec);
    clip->setFadeIn(true);
    clip->setDurationOfFadeIn(kSec / 2);
    clip->sampleBufferWithRange(QVRange(0, 1024), kStereo48k);
    ASSERT_TRUE(clip->cacheSampleBuffer());

    const auto copy = std::dynamic_pointer_cast<QVMediaClip>(clip->copy());
    ASSERT_TRUE(copy);
    EXPECT_NE(copy->identifier(), clip->identifier());
    EXPECT_EQ(copy->resource(), clip->resource());
    EXPECT_EQ(copy->timestampOfResource(), kSec / 2);
    EXPECT_EQ(copy->trackDuration(), 2 * kSec);
    EXPECT_TRUE(copy->fadeIn());
    EXPECT_EQ(copy->durationOfFadeIn(), kSec / 2);
    EXPECT_FALSE(copy->cacheSampleBuffer());
}

TEST_F(MediaClipTest, ArchiveKeepsOnlyTheIdentifierAndDropsAClipWhoseResourceIsGone) {
    const auto resource = audio(3.0);
    AMResourceMgr::resourceMgr().addResource(resource, AMResourceTypeUser);
    const auto clip = QVMediaClip::createWithResource(resource);
    clip->setTimestampOfResource(kSec / 4);
    clip->setFadeOut(true);
    clip->setDurationOfFadeOut(kSec / 3);
    const auto bytes = KeyedArchiver::archivedDataWithRootObject(clip);

    const auto read = std::dynamic_pointer_cast<QVMediaClip>(KeyedUnarchiver::unarchiveObjectWithData(bytes));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->resource(), resource);
    EXPECT_EQ(read->identifier(), clip->identifier());
    EXPECT_EQ(read->timestampOfResource(), kSec / 4);
    EXPECT_TRUE(read->fadeOut());
    EXPECT_EQ(read->durationOfFadeOut(), kSec / 3);
    EXPECT_EQ(read->durationOfFadeIn(), 2 * kSec);

    const auto orphan = QVMediaClip::createWithResource(audio(1.0));
    LogCapture capture;
    EXPECT_EQ(KeyedUnarchiver::unarchiveObjectWithData(KeyedArchiver::archivedDataWithRootObject(orphan)), nullptr);
    EXPECT_EQ(capture.count("Can not find resource with identifier " + orphan->resIdentifier()), 1u);
}

TEST_F(MediaClipTest, FadeAndOffsetEditsAreUndoable) {
    const auto clip = onTrack(QVMediaClip::createWithResource(audio(3.0)));
    expectUndoRedoExact([&] { clip->setFadeIn(true); });
    EXPECT_TRUE(clip->fadeIn());
    undo();
    EXPECT_FALSE(clip->fadeIn());
    clip->setTimestampOfResource(kSec);
    clip->setDurationOfFadeOut(kSec);
    undo();
    EXPECT_EQ(clip->durationOfFadeOut(), 2 * kSec);
    undo();
    EXPECT_EQ(clip->timestampOfResource(), 0);
}

}  // namespace
}  // namespace qm
