#include "effects/QVEffectInstance.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "FakeTimedClip.h"
#include "effects/QVEffectTemplateMgr.h"
#include "effects/QVTransitionInstance.h"
#include "image/RenderContext.h"
#include "platform/Bitmap.h"

namespace qm {
namespace {

constexpr int64_t kSecond = QVTimebase;
// A quarter of the swing period of Shaking: 8 units away from rest.
constexpr int64_t kQuarterShake = QVTimebase / 20;

// Fade entrance and exit with the default lengths (E 2 s, H 1 s, X 2 s) on a clip of `duration`
// that starts at 10 s; the resting state is a 4 x 4 clip at (100, 200), opaque.
struct FadedClip {
    explicit FadedClip(int64_t duration, const std::string& enhance = QVNoneEffect)
        : clip(FakeTimedClip::create(10 * kSecond, duration)),
          effect(QVEffectInstance::createWithEntrance("Fade In", enhance, "Fade Out")) {
        effect->setOwner(clip);
        auto motion = QVClipPosition::createWithSize({4, 4});
        motion->setLocation({100, 200});
        rest->setMotionState(motion);
        rest->setColorState(QVColorState::create());
    }

    std::shared_ptr<QVEffectState> at(int64_t t) const { return effect->calcEffectStateWithStart(rest, *context, t); }
    double opacityAt(int64_t t) const { return at(t)->colorState()->opacity(); }
    double xAt(int64_t t) const { return at(t)->motionState()->positionX(); }

    std::shared_ptr<FakeTimedClip> clip;
    std::shared_ptr<QVEffectInstance> effect;
    std::shared_ptr<QVEffectState> rest = QVEffectState::create();
    std::shared_ptr<QVEffectContext> context = QVEffectContext::createWithConvasSize({640, 480}, {100, 200, 4, 4});
};

TEST(EffectInstanceTest, DefaultsAndEnabledFlags) {
    auto effect = QVEffectInstance::create();
    EXPECT_EQ(effect->entranceName(), "None");
    EXPECT_EQ(effect->enhanceName(), "None");
    EXPECT_EQ(effect->exitName(), "None");
    EXPECT_EQ(effect->durationEntranceEffect(), 2 * kSecond);
    EXPECT_EQ(effect->durationEnhanceEffect(), kSecond);
    EXPECT_EQ(effect->durationExitEffect(), 2 * kSecond);
    for (const auto& function :
         {effect->entranceTimeFunction(), effect->enhanceTimeFunction(), effect->exitTimeFunction()}) {
        ASSERT_TRUE(function);
        EXPECT_EQ(function->name(), "Linear pacing");
    }
    EXPECT_EQ(QVEffectInstance::minEffectDuration, 705600);
    EXPECT_FALSE(effect->entranceEffectEnabled());

    std::vector<bool> exitEnabled;
    auto token = effect->addObserver("exitEffectEnabled", [&](const KeyValueChange& change) {
        exitEnabled.push_back(std::any_cast<bool>(change.newValue));
    });
    effect->setEntranceName("Fade In");
    effect->setEnhanceName("Shaking");
    effect->setExitName("Zoom Out");
    effect->setDurationExitEffect(1);
    EXPECT_TRUE(effect->entranceEffectEnabled());
    EXPECT_TRUE(effect->enhanceEffectEnabled());
    EXPECT_TRUE(effect->exitEffectEnabled());
    effect->setDurationEntranceEffect(0);
    effect->setDurationEnhanceEffect(-1);
    effect->setExitName("");
    EXPECT_FALSE(effect->entranceEffectEnabled());
    EXPECT_FALSE(effect->enhanceEffectEnabled());
    EXPECT_FALSE(effect->exitEffectEnabled());
    EXPECT_EQ(exitEnabled, (std::vector<bool>{true, true, false}));
}

TEST(EffectInstanceTest, EachSetterUndoesToItsOldValue) {
    auto clip = FakeTimedClip::create(0, 10 * kSecond);
    auto effect = QVEffectInstance::create();
    effect->setOwner(clip);
    effect->setEntranceName("Fade In");
    effect->setEnhanceName("Flashing");
    effect->setExitName("Zoom Out");
    effect->setDurationEntranceEffect(3 * kSecond);
    effect->setDurationEnhanceEffect(0);
    effect->setDurationExitEffect(-kSecond);
    effect->setEntranceTimeFunction(QVTimeFunction::timeFunctionWithName(QVTimeFunctionEaseIn));
    effect->setEnhanceTimeFunction(nullptr);
    effect->setExitTimeFunction(QVTimeFunction::timeFunctionWithName(QVTimeFunctionEaseOut));

    // One step per setter, in reverse order.
    const std::vector<std::function<bool()>> restored = {
        [&] { return effect->exitTimeFunction()->name() == QVTimeFunctionLinear; },
        [&] { return effect->enhanceTimeFunction() != nullptr; },
        [&] { return effect->entranceTimeFunction()->name() == QVTimeFunctionLinear; },
        [&] { return effect->durationExitEffect() == 2 * kSecond; },
        [&] { return effect->durationEnhanceEffect() == kSecond; },
        [&] { return effect->durationEntranceEffect() == 2 * kSecond; },
        [&] { return effect->exitName() == "None"; },
        [&] { return effect->enhanceName() == "None" && effect->entranceName() == "Fade In"; },
        [&] { return effect->entranceName() == "None"; }};
    for (size_t step = 0; step < restored.size(); ++step) {
        clip->undo->undo();
        EXPECT_TRUE(restored[step]()) << step;
    }
    EXPECT_FALSE(clip->undo->canUndo());
    clip->undo->redo();
    EXPECT_EQ(effect->entranceName(), "Fade In");

    // The undo record does not keep the instance alive; undoing then finds nothing to restore.
    const std::weak_ptr<QVEffectInstance> weak = effect;
    effect.reset();
    EXPECT_TRUE(weak.expired());
    clip->undo->undo();
}

TEST(EffectInstanceTest, UnchangedValuesRecordAndTellNothing) {
    auto clip = FakeTimedClip::create(0, 10 * kSecond);
    auto effect = QVEffectInstance::create();
    effect->setOwner(clip);
    int changes = 0;
    auto token = effect->addObserver("exitTimeFunction", [&](const KeyValueChange&) { ++changes; });
    effect->setEntranceName("None");
    effect->setDurationEntranceEffect(2 * kSecond);
    effect->setExitTimeFunction(QVTimeFunction::create());
    EXPECT_FALSE(clip->undo->canUndo());
    EXPECT_EQ(changes, 0);
    // Another class under the linear name is a change.
    effect->setExitTimeFunction(QVEraseInTimeFunction::createWithName(QVTimeFunctionLinear));
    EXPECT_TRUE(clip->undo->canUndo());
    EXPECT_EQ(changes, 1);
}

TEST(EffectInstanceTest, PhasesOfALongClip) {
    FadedClip faded(10 * kSecond);
    EXPECT_NE(faded.at(0), faded.rest);
    EXPECT_EQ(faded.opacityAt(0), 0);
    EXPECT_DOUBLE_EQ(faded.opacityAt(kSecond / 2), 0.25);
    EXPECT_DOUBLE_EQ(faded.opacityAt(kSecond), 0.5);
    for (int64_t t : {2 * kSecond, 3 * kSecond, 8 * kSecond - 1}) EXPECT_EQ(faded.at(t), faded.rest) << t;
    // The exit runs from D - X at percent 0 to D at percent 1, then stays at its end.
    EXPECT_NE(faded.at(8 * kSecond), faded.rest);
    EXPECT_EQ(faded.opacityAt(8 * kSecond), 1);
    EXPECT_DOUBLE_EQ(faded.opacityAt(9 * kSecond), 0.5);
    EXPECT_EQ(faded.opacityAt(10 * kSecond), 0);
    EXPECT_EQ(faded.opacityAt(11 * kSecond), 0);
    EXPECT_EQ(faded.rest->colorState()->opacity(), 1);

    faded.effect->setEntranceTimeFunction(QVTimeFunction::timeFunctionWithName(QVTimeFunctionEaseIn));
    faded.effect->setExitTimeFunction(QVTimeFunction::timeFunctionWithName(QVTimeFunctionEaseOut));
    EXPECT_DOUBLE_EQ(faded.opacityAt(kSecond), 0.3125);
    EXPECT_DOUBLE_EQ(faded.opacityAt(9 * kSecond), 1 - 0.6875);
    faded.effect->setEntranceTimeFunction(nullptr);
    EXPECT_DOUBLE_EQ(faded.opacityAt(kSecond), 0.5);

    // No exit length: D itself divides 0 by 0.
    faded.effect->setDurationExitEffect(0);
    EXPECT_EQ(faded.at(10 * kSecond - 1), faded.rest);
    EXPECT_TRUE(std::isnan(faded.opacityAt(10 * kSecond)));
}

TEST(EffectInstanceTest, EmphasisCountsFromTheEntranceEndWithoutPacing) {
    FadedClip faded(10 * kSecond, "Shaking");
    // E = 1.05 s is 5.25 swing periods: counted from 0 the moment below would be on the way back.
    const int64_t entrance = kSecond + kSecond / 20;
    faded.effect->setDurationEntranceEffect(entrance);
    EXPECT_DOUBLE_EQ(faded.xAt(entrance + kQuarterShake), 108);
    faded.effect->setEnhanceTimeFunction(QVTimeFunction::timeFunctionWithName(QVTimeFunctionEaseOut));
    EXPECT_DOUBLE_EQ(faded.xAt(entrance + kQuarterShake), 108);
    EXPECT_EQ(faded.at(entrance + kSecond), faded.rest);

    // "None" still takes its time before the emphasis.
    faded.effect->setEntranceName("None");
    EXPECT_EQ(faded.at(kSecond), faded.rest);
    EXPECT_DOUBLE_EQ(faded.xAt(entrance + kQuarterShake), 108);
}

TEST(EffectInstanceTest, ShortClipsKeepThePhasesUnscaled) {
    // t = E with no emphasis falls through to the exit, whose window began at D - X = 1 s.
    FadedClip noEmphasis(3 * kSecond, "Shaking");
    noEmphasis.effect->setDurationEnhanceEffect(0);
    EXPECT_DOUBLE_EQ(noEmphasis.opacityAt(2 * kSecond), 0.5);

    // D = 4 s: entrance to 2 s, emphasis to 3 s, then the exit from its middle.
    FadedClip faded(4 * kSecond);
    EXPECT_EQ(faded.at(2 * kSecond + kSecond / 2), faded.rest);
    EXPECT_DOUBLE_EQ(faded.opacityAt(3 * kSecond), 0.5);
    EXPECT_DOUBLE_EQ(faded.opacityAt(3 * kSecond + kSecond / 2), 0.25);
    // An entrance longer than the clip is cut by its end.
    faded.effect->setDurationEntranceEffect(5 * kSecond);
    EXPECT_DOUBLE_EQ(faded.opacityAt(4 * kSecond), 0.8);
}

// The premultiplied RGBA8 pixel whose lower left corner is (x, y).
std::vector<uint8_t> pixelAt(const Image& image, double x, double y) {
    std::vector<uint8_t> pixel(4);
    RenderContext::create()->render(image, {x, y, 1, 1}, PixelFormat::RGBA8Premultiplied, pixel.data(), 4);
    return pixel;
}

TEST(EffectInstanceTest, ImageIsRenderedInsideTheClipByItsOwnTime) {
    FadedClip faded(10 * kSecond);
    const Image white = Image::imageWithBitmap(Bitmap::createWithPixels(4, 4, std::vector<uint8_t>(64, 255)));
    auto apply = [&](int64_t trackTime) {
        return faded.effect->applyImage(white, faded.rest, *faded.context, trackTime);
    };
    EXPECT_TRUE(apply(10 * kSecond - 1).isNull());
    EXPECT_TRUE(apply(20 * kSecond).isNull());
    EXPECT_NEAR(pixelAt(apply(11 * kSecond), 101, 201)[3], 128, 1);
    EXPECT_EQ(pixelAt(apply(15 * kSecond), 101, 201), (std::vector<uint8_t>{255, 255, 255, 255}));
    EXPECT_EQ(pixelAt(apply(15 * kSecond), 99, 201)[3], 0);

    // With no exit length, D lies outside the clip: the division by zero makes no picture.
    faded.effect->setDurationExitEffect(0);
    EXPECT_FALSE(apply(20 * kSecond - 1).isNull());
    EXPECT_TRUE(apply(20 * kSecond).isNull());
    faded.effect->setOwner(nullptr);
    EXPECT_TRUE(apply(15 * kSecond).isNull());
}

// The nine values as text; a time function as its class and name.
std::string valuesOf(const QVEffectInstance& effect) {
    std::ostringstream text;
    text << effect.entranceName() << "|" << effect.enhanceName() << "|" << effect.exitName() << "|"
         << effect.durationEntranceEffect() << "|" << effect.durationEnhanceEffect() << "|"
         << effect.durationExitEffect();
    for (const auto& function :
         {effect.entranceTimeFunction(), effect.enhanceTimeFunction(), effect.exitTimeFunction()}) {
        text << "|" << (function ? function->archiveClassName() + ":" + function->name() : "null");
    }
    return text.str();
}

TEST(EffectInstanceTest, CopyAndArchiveKeepTheNineValuesWithoutOwner) {
    QVEffectInstance::registerArchiveClasses();
    auto clip = FakeTimedClip::create(0, 10 * kSecond);
    auto effect = QVEffectInstance::createWithEntrance("Fly in from top", "Pan&Zoom", "Fade Out");
    effect->setOwner(clip);
    effect->setDurationEntranceEffect(kSecond / 3);
    effect->setDurationEnhanceEffect(-7);
    effect->setDurationExitEffect(0);
    effect->setEntranceTimeFunction(QVTimeFunction::timeFunctionWithName(QVTimeFunctionEaseIn));
    effect->setEnhanceTimeFunction(nullptr);
    clip->undo->removeAllActions();
    const std::string expected =
        "Fly in from top|Pan&Zoom|Fade Out|235200000|-7|0|QVEraseInTimeFunction:Ease-in "
        "pacing|null|QVTimeFunction:Linear pacing";
    ASSERT_EQ(valuesOf(*effect), expected);

    auto copy = effect->copy();
    auto read = std::dynamic_pointer_cast<QVEffectInstance>(
        KeyedUnarchiver::unarchiveObjectWithData(KeyedArchiver::archivedDataWithRootObject(effect)));
    ASSERT_TRUE(read);
    for (const auto& other : {copy, read}) {
        EXPECT_EQ(valuesOf(*other), expected);
        EXPECT_FALSE(other->owner());
    }
    copy->setExitName("Zoom Out");
    EXPECT_EQ(effect->exitName(), "Fade Out");
    EXPECT_FALSE(clip->undo->canUndo());

    auto transition = QVTransitionInstance::createWithTransitionName("Dissolve");
    EXPECT_TRUE(std::dynamic_pointer_cast<QVTransitionInstance>(
        KeyedUnarchiver::unarchiveObjectWithData(KeyedArchiver::archivedDataWithRootObject(transition))));
}

TEST(EffectInstanceTest, ArchiveWritesOnlySetNamesAndReadsNoDefaults) {
    QVEffectInstance::registerArchiveClasses();
    auto effect = QVEffectInstance::create();
    effect->setEnhanceName("");
    KeyedArchiver writer;
    effect->encodeWithCoder(writer);
    auto reader = KeyedUnarchiver::createForReadingWithData(writer.finishEncoding());
    ASSERT_TRUE(reader);
    EXPECT_TRUE(reader->containsValueForKey("entranceName"));
    EXPECT_FALSE(reader->containsValueForKey("enhanceName"));
    EXPECT_TRUE(reader->containsValueForKey("durationEnhanceEffect"));
    EXPECT_TRUE(reader->containsValueForKey("enhanceTimeFunction"));

    KeyedArchiver sparse;
    sparse.encodeString("entranceName", "Fade In");
    auto sparseReader = KeyedUnarchiver::createForReadingWithData(sparse.finishEncoding());
    ASSERT_TRUE(sparseReader);
    auto read = QVEffectInstance::createWithCoder(*sparseReader);
    EXPECT_EQ(read->entranceName(), "Fade In");
    EXPECT_EQ(read->exitName(), "");
    EXPECT_EQ(read->durationEntranceEffect(), 0);
    EXPECT_FALSE(read->entranceTimeFunction());
}

}  // namespace
}  // namespace qm
