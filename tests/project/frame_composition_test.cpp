#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <string>

#include "effects/QVEffectInstance.h"
#include "effects/QVTransitionInstance.h"
#include "image/RenderContext.h"
#include "platform/KeyedArchiver.h"
#include "platform/Log.h"
#include "project/ProjectArchive.h"
#include "project/QVClip.h"
#include "project/QVMediaClip.h"
#include "project/QVProject.h"
#include "project/QVTrack.h"

#include "support/ModelConsistency.h"
#include "support/StoredMedia.h"
#include "support/TestEnvironment.h"

namespace qm {
namespace {

using Rgba = std::array<int, 4>;

const Color kRed{1, 0, 0, 1};
const Color kBlue{0, 0, 1, 1};
const Color kGreen{0, 1, 0, 1};

// A clip whose source is a solid picture of one colour, as a colour clip has.
class SolidClip : public QVClip {
public:
    static std::shared_ptr<SolidClip> create(const Color& color, Size size, bool video = true) {
        std::shared_ptr<SolidClip> clip(new SolidClip(color, size, video));
        clip->loadDefaultSettings();
        return clip;
    }

    Size sourceSize() const override { return _size; }
    bool videoExist() const override { return _video; }
    Image imageAtSourceTimestamp(int64_t) override {
        return _video ? Image::imageWithColor(_color).cropped({{0, 0}, _size}) : Image();
    }
    std::shared_ptr<const Bitmap> cgImageAtSourceTimestamp(int64_t) override {
        return _video ? RenderContext::create()->createBitmap(imageAtSourceTimestamp(0), {{0, 0}, _size}) : nullptr;
    }

private:
    SolidClip(const Color& color, Size size, bool video) : _color(color), _size(size), _video(video) {}

    Color _color;
    Size _size;
    bool _video;
};

// The pixel of `image` whose lower left corner is at (x, y), as 8-bit premultiplied RGBA.
Rgba pixelOf(const Image& image, double x, double y) {
    const auto bitmap = RenderContext::create()->createBitmap(image, {x, y, 1, 1});
    if (!bitmap) return {-1, -1, -1, -1};
    const auto p = bitmap->pixelAt(0, 0);
    return {p[0], p[1], p[2], p[3]};
}

std::string text(const Rgba& p) {
    return "(" + std::to_string(p[0]) + ", " + std::to_string(p[1]) + ", " + std::to_string(p[2]) + ", " +
           std::to_string(p[3]) + ")";
}

// Each component within one 8-bit step.
::testing::AssertionResult nearPixel(const Rgba& actual, const Rgba& expected) {
    for (size_t i = 0; i < 4; ++i) {
        if (std::abs(actual[i] - expected[i]) > 1) {
            return ::testing::AssertionFailure() << text(actual) << " is not near " << text(expected);
        }
    }
    return ::testing::AssertionSuccess();
}

// The canvas is 160 x 120, 30 frames per second, over a green background.
class FrameCompositionTest : public ModelTest {
protected:
    void SetUp() override {
        project->setOutVideoWidth(160);
        project->setOutVideoHeight(120);
        project->setBackgroundColor(kGreen);
    }

    // A track appended below the others.
    std::shared_ptr<QVTrack> addTrack() {
        auto track = QVTrack::createWithProject(project);
        project->addTracksObject(track);
        return track;
    }

    // A solid clip from `from` to `to` seconds at `bounds` on `track`.
    static std::shared_ptr<SolidClip> solid(const std::shared_ptr<QVTrack>& track, const Color& color, double from,
                                            double to, const Rect& bounds = {0, 0, 160, 120}, bool video = true) {
        auto clip = SolidClip::create(color, bounds.size, video);
        clip->setTrackDuration(sec(to - from));
        clip->setTimestampOfTrack(sec(from));
        clip->clipPosition()->setBounds(bounds);
        EXPECT_TRUE(track->addClip(clip));
        return clip;
    }

    Rgba previewAt(double seconds, double x = 80, double y = 60) const {
        return pixelOf(project->imageAtTimestamp(sec(seconds)), x, y);
    }

    // Red share `r` of a red-to-blue blend, opaque.
    static Rgba redBlue(double r) { return {int(std::lround(255 * r)), 0, int(std::lround(255 * (1 - r))), 255}; }
};

TEST_F(FrameCompositionTest, TracksStackWithTrackZeroOnTopOverTheBackground) {
    auto top = addTrack();
    auto bottom = addTrack();
    solid(top, kRed, 0, 5, {0, 0, 80, 60});
    solid(bottom, kBlue, 0, 5);

    EXPECT_TRUE(nearPixel(previewAt(1, 10, 10), Rgba{255, 0, 0, 255}));
    EXPECT_TRUE(nearPixel(previewAt(1, 120, 100), Rgba{0, 0, 255, 255}));

    // Where only the background lies.
    bottom->removeClip(bottom->firstClip());
    EXPECT_TRUE(nearPixel(previewAt(1, 120, 100), Rgba{0, 255, 0, 255}));
}

TEST_F(FrameCompositionTest, OpacityShowsTheLowerTrackAndThenTheBackground) {
    auto top = addTrack();
    auto bottom = addTrack();
    auto red = solid(top, kRed, 0, 5);
    solid(bottom, kBlue, 0, 5, {0, 0, 80, 120});
    red->setValidateColorControl(true);
    red->colorState()->setOpacity(0.5);

    EXPECT_TRUE(nearPixel(previewAt(1, 40, 60), Rgba{128, 0, 127, 255}));
    EXPECT_TRUE(nearPixel(previewAt(1, 120, 60), Rgba{128, 127, 0, 255}));
}

TEST_F(FrameCompositionTest, TransitionPercentRunsFromTheStartToTheEndOfTheOverlap) {
    auto track = addTrack();
    auto earlier = solid(track, kRed, 0, 4);
    auto later = solid(track, kBlue, 3, 7);
    earlier->transitionInstance()->setTransitionName("Dissolve");

    EXPECT_TRUE(nearPixel(previewAt(2), redBlue(1)));
    EXPECT_TRUE(nearPixel(previewAt(3), redBlue(1)));
    EXPECT_EQ(earlier->transitionInstance()->endClip(), later);
    EXPECT_TRUE(nearPixel(previewAt(3.25), redBlue(0.75)));
    EXPECT_TRUE(nearPixel(previewAt(3.5), redBlue(0.5)));
    // The last unit of the overlap is just short of the end.
    EXPECT_TRUE(nearPixel(pixelOf(project->imageAtTimestamp(sec(4) - 1), 80, 60), redBlue(0)));
    EXPECT_TRUE(nearPixel(previewAt(4), redBlue(0)));
}

TEST_F(FrameCompositionTest, ClipWithSoundOnlyInAnOverlapGivesTheOtherPictureAtOnce) {
    auto first = addTrack();
    solid(first, kRed, 0, 4, {0, 0, 160, 120}, false);
    solid(first, kBlue, 3, 7);
    EXPECT_TRUE(nearPixel(previewAt(3.25), redBlue(0)));

    auto second = addTrack();
    project->removeTrack(first);
    solid(second, kRed, 0, 4);
    solid(second, kBlue, 3, 7, {0, 0, 160, 120}, false);
    EXPECT_TRUE(nearPixel(previewAt(3.25), redBlue(1)));
}

TEST_F(FrameCompositionTest, TileTransitionOnAShortClipStartsPastItsBeginning) {
    auto track = addTrack();
    auto clip = solid(track, kRed, 1, 2);
    auto transition = clip->transitionInstance();
    transition->setTransitionName("Dissolve");

    EXPECT_TRUE(nearPixel(previewAt(1.5), Rgba{255, 0, 0, 255}));
    transition->setAllowTransitionToTile(true);
    // The stored length of 2 s is not cut to the clip: the percent is 0.5 at the clip's start.
    EXPECT_TRUE(nearPixel(previewAt(1), Rgba{128, 127, 0, 255}));
    EXPECT_TRUE(nearPixel(previewAt(1.5), Rgba{64, 191, 0, 255}));
}

TEST_F(FrameCompositionTest, EffectPhasesOnAShortClipAreLaidWithoutScaling) {
    project->setBackgroundColor(Color::black());
    auto clip = solid(addTrack(), kRed, 0, 1.5);
    auto effects = clip->effectInstance();
    effects->setEntranceName("Fade In");
    effects->setDurationEntranceEffect(sec(1));
    effects->setEnhanceName("Flashing");
    effects->setDurationEnhanceEffect(sec(0.25));
    effects->setExitName("Fade Out");
    effects->setDurationExitEffect(sec(1));

    // Entrance: opacity t / E.
    EXPECT_TRUE(nearPixel(previewAt(0.5), Rgba{128, 0, 0, 255}));
    // Emphasis, a quarter into its first period of 0.2 s: a quarter of the way to opacity 0.
    EXPECT_TRUE(nearPixel(previewAt(1.05), Rgba{191, 0, 0, 255}));
    // Exit, shown only in what is left: percent (X + t - D) / X = 0.8.
    EXPECT_TRUE(nearPixel(previewAt(1.3), Rgba{51, 0, 0, 255}));
    EXPECT_EQ(clip->timestampOfClipPosition(), sec(1));
}

TEST_F(FrameCompositionTest, OneFramePastTheEndStillGivesTheBackground) {
    const int64_t frame = project->durationOfFrame();
    EXPECT_TRUE(nearPixel(pixelOf(project->imageAtTimestamp(0), 10, 10), Rgba{0, 255, 0, 255}));
    EXPECT_TRUE(nearPixel(pixelOf(project->imageAtTimestamp(frame), 10, 10), Rgba{0, 255, 0, 255}));
    EXPECT_FALSE(project->imageAtTimestamp(frame + 1));

    solid(addTrack(), kRed, 0, 2);
    EXPECT_TRUE(nearPixel(pixelOf(project->imageAtTimestamp(sec(2)), 10, 10), Rgba{0, 255, 0, 255}));
    EXPECT_TRUE(project->imageAtTimestamp(sec(2) + frame));
    EXPECT_FALSE(project->imageAtTimestamp(sec(2) + frame + 1));
}

TEST_F(FrameCompositionTest, ExportCutsTheOverhangThatPreviewKeeps) {
    solid(addTrack(), kRed, 0, 2, {100, 0, 120, 60});

    EXPECT_TRUE(nearPixel(pixelOf(project->imageAtTimestamp(sec(1), false), 200, 10), Rgba{255, 0, 0, 255}));
    EXPECT_TRUE(nearPixel(pixelOf(project->imageAtTimestamp(sec(1), true), 200, 10), Rgba{0, 0, 0, 0}));
    EXPECT_EQ(project->imageAtTimestamp(sec(1), true).extent(), project->outBounds());
    EXPECT_TRUE(nearPixel(pixelOf(project->imageAtTimestamp(sec(1), true), 150, 10), Rgba{255, 0, 0, 255}));
}

TEST_F(FrameCompositionTest, ExportCropMovesTheCutAwayFromTheOrigin) {
    solid(addTrack(), kRed, 0, 2, {40, 20, 10, 10});
    project->setCropRect({40, 20, 80, 60});
    project->setEnableCropped(true);

    const Image exported = project->imageAtTimestamp(sec(1), true);
    EXPECT_TRUE(nearPixel(pixelOf(exported, 85, 45), Rgba{255, 0, 0, 255}));
    EXPECT_TRUE(nearPixel(pixelOf(exported, 45, 25), Rgba{0, 255, 0, 255}));
    // The preview ignores the crop.
    EXPECT_TRUE(nearPixel(previewAt(1, 45, 25), Rgba{255, 0, 0, 255}));
}

TEST_F(FrameCompositionTest, CrowdedTracksAreReportedAndStillGiveAPicture) {
    auto track = addTrack();
    auto first = SolidClip::create(kRed, {160, 120});
    auto second = SolidClip::create(kBlue, {160, 120});
    track->addClipsObject(first);
    track->addClipsObject(second);
    LogCapture log;
    EXPECT_TRUE(nearPixel(previewAt(1), Rgba{255, 0, 0, 255}));
    EXPECT_EQ(log.count("Warning: Clip track start can not be same at the same track."), 1u);

    track->addClipsObject(SolidClip::create(kBlue, {160, 120}));
    EXPECT_TRUE(nearPixel(previewAt(1), Rgba{0, 255, 0, 255}));
    EXPECT_EQ(log.count("At the same time clip count can not over 2."), 1u);
}

TEST_F(FrameCompositionTest, ClipPictureIsNothingOutsideAndRawFromTheSource) {
    auto clip = solid(addTrack(), kRed, 1, 2);
    clip->effectInstance()->setEntranceName("Fade In");
    EXPECT_FALSE(clip->imageAtTimestamp(sec(0.5)));
    EXPECT_FALSE(clip->imageAtTimestamp(sec(2)));
    EXPECT_EQ(clip->cgImageAtTimestamp(sec(2)), nullptr);
    // At the entrance's start the picture is transparent; the raw source is not.
    EXPECT_TRUE(nearPixel(pixelOf(clip->imageAtTimestamp(sec(1)), 80, 60), Rgba{0, 0, 0, 0}));
    const auto raw = clip->cgImageAtTimestamp(sec(1));
    ASSERT_NE(raw, nullptr);
    EXPECT_EQ(raw->pixelAt(5, 5)[0], 255);
    EXPECT_EQ(raw->pixelAt(5, 5)[3], 255);
}

// Media clips on stored frames and on a picture, rendered at a few times.
class StoredMediaCompositionTest : public FrameCompositionTest {
protected:
    test::PrivateUserDirectories directories{"frame_composition_test"};
};

TEST_F(StoredMediaCompositionTest, StoredFramesAndAPictureShowAtTheirTimes) {
    constexpr int64_t kFrame = QVTimebase / 10;
    auto movie = QVMediaClip::createWithResource(test::storedVideoResource(20, kFrame));
    movie->clipPosition()->setBounds({0, 0, 160, 120});
    movie->setTimestampOfResource(sec(0.5));
    movie->setTrackDuration(sec(1.5));
    movie->setTimestampOfTrack(sec(1));
    auto picture = QVMediaClip::createWithResource(test::storedImageResource(directories.file("p.png"), 32, 24));
    picture->clipPosition()->setBounds({0, 0, 32, 24});
    auto top = addTrack();
    auto bottom = addTrack();
    ASSERT_TRUE(top->addClip(picture));
    ASSERT_TRUE(bottom->addClip(movie));

    auto grey = [](int level) { return Rgba{level, level, level, 255}; };
    // Source time 0.75 s: frame 7.
    EXPECT_TRUE(nearPixel(previewAt(1.25), grey(test::storedFrameGrey(7))));
    // Source time 1.9 s: frame 19, the last.
    EXPECT_TRUE(nearPixel(previewAt(2.4), grey(test::storedFrameGrey(19))));
    EXPECT_TRUE(nearPixel(previewAt(1.25, 10, 10), grey(200)));
    // Before the movie only the picture and the background.
    EXPECT_TRUE(nearPixel(previewAt(0.5), Rgba{0, 255, 0, 255}));
    EXPECT_TRUE(nearPixel(previewAt(0.5, 10, 10), grey(200)));
    // The same picture object serves every frame.
    EXPECT_EQ(picture->imageAtSourceTimestamp(0), picture->imageAtSourceTimestamp(sec(3)));
}

TEST_F(FrameCompositionTest, ThumbnailIsTheExportFrameAtZeroKeptForGood) {
    solid(addTrack(), kRed, 0, 2, {0, 0, 80, 120});
    const auto thumbnail = project->thumbnail();
    ASSERT_NE(thumbnail, nullptr);
    EXPECT_EQ(thumbnail->width(), 160);
    EXPECT_EQ(thumbnail->pixelAt(10, 10)[0], 255);
    EXPECT_EQ(thumbnail->pixelAt(150, 10)[1], 255);
    project->setBackgroundColor(kBlue);
    EXPECT_EQ(project->thumbnail(), thumbnail);
}

// --- Transitions for all clips, effect members of the clip, archive and copy.

TEST_F(FrameCompositionTest, ApplyTransitionNameSetsClipsWithAPictureInOneStep) {
    auto track = addTrack();
    auto picture = solid(track, kRed, 0, 2);
    auto sound = solid(track, kRed, 3, 5, {0, 0, 160, 120}, false);
    const std::string soundName = sound->transitionInstance()->transitionName();

    project->applyTransitionName(std::string("Dissolve"));
    EXPECT_EQ(picture->transitionInstance()->transitionName(), "Dissolve");
    EXPECT_EQ(sound->transitionInstance()->transitionName(), soundName);
    undo();
    EXPECT_EQ(picture->transitionInstance()->transitionName(), soundName);

    project->randomTransitionName();
    const auto& names = PSTransition::supportTransitions();
    EXPECT_NE(std::find(names.begin(), names.end(), picture->transitionInstance()->transitionName()), names.end());
    EXPECT_EQ(sound->transitionInstance()->transitionName(), soundName);
}

TEST_F(FrameCompositionTest, InstancesAreMadeOnceAndFollowTheClipThroughArchiveAndCopy) {
    registerProjectArchiveClasses();
    auto clip = clipFromTo(1, 4);
    EXPECT_EQ(clip->effectInstance(), clip->effectInstance());
    EXPECT_EQ(clip->transitionInstance()->transitionName(), PSTransition::supportTransitions().front());
    EXPECT_EQ(clip->transitionInstance()->startClip(), clip);
    EXPECT_EQ(clip->effectInstance()->owner(), clip);
    EXPECT_EQ(clip->timestampOfClipPosition(), sec(1));

    clip->effectInstance()->setEntranceName("Zoom In");
    clip->effectInstance()->setDurationEntranceEffect(sec(0.5));
    clip->transitionInstance()->setTransitionName("Dissolve");
    clip->transitionInstance()->setAllowTransitionToTile(true);
    EXPECT_EQ(clip->timestampOfClipPosition(), sec(1.5));

    const auto decoded = std::dynamic_pointer_cast<QVClip>(
        KeyedUnarchiver::unarchiveObjectWithData(KeyedArchiver::archivedDataWithRootObject(clip)));
    ASSERT_NE(decoded, nullptr);
    const auto copied = clip->copy();
    for (const auto& other : {decoded, copied}) {
        EXPECT_EQ(other->effectInstance()->entranceName(), "Zoom In");
        EXPECT_EQ(other->effectInstance()->durationEntranceEffect(), sec(0.5));
        EXPECT_EQ(other->effectInstance()->owner(), other);
        EXPECT_EQ(other->transitionInstance()->transitionName(), "Dissolve");
        EXPECT_TRUE(other->transitionInstance()->allowTransitionToTile());
        EXPECT_EQ(other->transitionInstance()->startClip(), other);
        EXPECT_EQ(other->transitionInstance()->endClip(), nullptr);
        EXPECT_NE(other->effectInstance(), clip->effectInstance());
    }
}

}  // namespace
}  // namespace qm
