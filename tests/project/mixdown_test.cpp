#include <gtest/gtest.h>

#include <algorithm>

#include "foundation/QVSampleBuffer.h"
#include "platform/Log.h"
#include "project/QVMediaClip.h"
#include "project/QVProject.h"
#include "project/QVTrack.h"
#include "store/SCResource.h"

#include "support/SampleBytes.h"
#include "support/StoredMedia.h"
#include "support/TestEnvironment.h"

namespace qm {
namespace {

constexpr int64_t kSec = QVTimebase;
constexpr int64_t kRate = 48000;
const QVSampleDescription kStereo(kRate, 2, QVSampleFormatS16, 0);

class MixdownTest : public ::testing::Test {
protected:
    // A clip of constant `value` (full scale 1) from `from` for `seconds`, at `rate`.
    static std::shared_ptr<QVMediaClip> clipAt(double from, double seconds, double value, int64_t rate = kRate) {
        test::StoredAudioPlan plan;
        plan.sampleRate = rate;
        plan.numberOfSamples = static_cast<int64_t>(seconds * static_cast<double>(rate));
        plan.signal = test::constantSignal(value);
        auto clip = QVMediaClip::createWithResource(test::storedAudioResource(plan));
        clip->setTimestampOfTrack(static_cast<int64_t>(from * static_cast<double>(kSec)));
        return clip;
    }

    std::shared_ptr<QVTrack> trackWith(const std::vector<std::shared_ptr<QVMediaClip>>& clips) {
        auto track = QVTrack::create();
        _project->addTracksObject(track);
        for (const auto& clip : clips) EXPECT_TRUE(track->addClip(clip));
        return track;
    }

    // The left channel of the project's sound over `range`; empty for nothing.
    std::vector<int16_t> left(const QVRange& range) const {
        const auto sound = _project->sampleBufferWithDescription(kStereo, range);
        if (!sound) return {};
        EXPECT_TRUE(sound->sampleRange().isEqualRange(range)) << sound->sampleRange().description();
        std::vector<int16_t> values;
        const auto all = test::s16Values(sound);
        for (size_t i = 0; i < all.size(); i += 2) values.push_back(all[i]);
        return values;
    }

    static std::vector<int16_t> repeated(int16_t value, size_t count) { return std::vector<int16_t>(count, value); }

    static std::vector<int16_t> joined(std::initializer_list<std::vector<int16_t>> parts) {
        std::vector<int16_t> all;
        for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
        return all;
    }

    test::PrivateUserDirectories _user{"mixdown_test"};
    std::shared_ptr<QVProject> _project = QVProject::create();
};

TEST_F(MixdownTest, FindsTheClipsMeetingARangeInListOrder) {
    const auto a = clipAt(0.0, 1.0, 0.25);
    const auto b = clipAt(0.75, 1.0, 0.25);
    const auto c = clipAt(3.0, 1.0, 0.25);
    const auto track = trackWith({a, b, c});
    using Clips = std::vector<std::shared_ptr<QVClip>>;
    EXPECT_EQ(track->findClipsAtRange(QVRange(40000, 1000), kStereo), (Clips{a, b}));
    EXPECT_EQ(track->findClipsAtRange(QVRange(48000, 1000), kStereo), (Clips{b}));
    EXPECT_TRUE(track->findClipsAtRange(QVRange(84000, 60000), kStereo).empty());
    EXPECT_EQ(track->findClipsAtRange(QVRange(84000, 60001), kStereo), (Clips{c}));
    EXPECT_TRUE(track->findClipsAtRange(QVRange(192000, 100), kStereo).empty());
}

TEST_F(MixdownTest, ATrackBridgesGapsUpToATenthOfASecondAndLosesTheRequestOverIt) {
    const auto track = trackWith({clipAt(0.0, 1.0, 0.25), clipAt(1.05, 1.0, 0.25)});
    const auto bridged = track->sampleBufferWithDescription(kStereo, QVRange(40000, 16000));
    ASSERT_TRUE(bridged);
    EXPECT_TRUE(bridged->sampleRange().isEqualRange(QVRange(40000, 16000)));
    EXPECT_EQ(left(QVRange(40000, 16000)), joined({repeated(8192, 8000), repeated(0, 2400), repeated(8192, 5600)}));

    _project = QVProject::create();
    const auto wide = trackWith({clipAt(0.0, 1.0, 0.25), clipAt(1.2, 1.0, 0.25)});
    LogCapture capture;
    EXPECT_EQ(wide->sampleBufferWithDescription(kStereo, QVRange(40000, 20000)), nullptr);
    EXPECT_FALSE(capture.lines().empty());
    // The project answers such a request with silence; either clip alone still sounds.
    EXPECT_EQ(left(QVRange(40000, 20000)), repeated(0, 20000));
    EXPECT_EQ(left(QVRange(58000, 1000)), repeated(8192, 1000));
}

TEST_F(MixdownTest, TheProjectPadsItsSoundToTheRangeAndGivesNothingFromItsEnd) {
    trackWith({clipAt(1.0, 1.0, 0.25)});
    EXPECT_EQ(_project->numberOfSamplesWithDescription(kStereo), 2 * kRate);
    EXPECT_EQ(left(QVRange(40000, 16000)), joined({repeated(0, 8000), repeated(8192, 8000)}));
    EXPECT_EQ(left(QVRange(0, 1000)), repeated(0, 1000));
    EXPECT_EQ(left(QVRange(2 * kRate - 1, 100)), joined({repeated(8192, 1), repeated(0, 99)}));
    EXPECT_EQ(_project->sampleBufferWithDescription(kStereo, QVRange(2 * kRate, 100)), nullptr);

    EXPECT_EQ(QVProject::create()->sampleBufferWithDescription(kStereo, QVRange(0, 10)), nullptr);
}

TEST_F(MixdownTest, TracksMergeAndMutedTracksOrClipsGiveNoPart) {
    const auto loud = clipAt(0.0, 1.0, 0.25);
    const auto first = trackWith({loud});
    const auto second = trackWith({clipAt(0.0, 1.0, -0.125)});
    // Opposite sides of silence add.
    EXPECT_EQ(left(QVRange(1000, 10)), repeated(4096, 10));
    second->setMute(true);
    EXPECT_EQ(left(QVRange(1000, 10)), repeated(8192, 10));
    EXPECT_EQ(second->sampleBufferWithDescription(kStereo, QVRange(1000, 10)), nullptr);
    loud->setMute(true);
    EXPECT_EQ(left(QVRange(1000, 10)), repeated(0, 10));
    loud->setMute(false);
    first->setMute(true);
    EXPECT_EQ(left(QVRange(1000, 10)), repeated(0, 10));
}

TEST_F(MixdownTest, AResampledProjectReadInBlocksEndsWithNothing) {
    trackWith({clipAt(0.5, 1.0, 0.25, 44100)});
    const int64_t total = _project->numberOfSamplesWithDescription(kStereo);
    EXPECT_EQ(total, 72000);
    int64_t at = 0;
    int64_t loudSamples = 0;
    for (; at < 2 * total; at += 1024) {
        const auto sound = _project->sampleBufferWithDescription(kStereo, QVRange(at, 1024));
        if (!sound) break;
        ASSERT_TRUE(sound->sampleRange().isEqualRange(QVRange(at, 1024)));
        const auto values = test::s16Values(sound);
        loudSamples += std::count_if(values.begin(), values.end(), [](int16_t v) { return std::abs(v - 8192) < 8; });
    }
    EXPECT_EQ(at, 72704);
    // Both channels of the clip's second, save the resampler's edges.
    EXPECT_NEAR(static_cast<double>(loudSamples), 2.0 * kRate, 200.0);
}

}  // namespace
}  // namespace qm
