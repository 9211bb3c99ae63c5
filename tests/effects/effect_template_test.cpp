#include "effects/QVEffectTemplateMgr.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "codec/QVTimebase.h"

namespace qm {
namespace {

const QVEffectTemplateMgr& templates() { return QVEffectTemplateMgr::shareEffectTemplateMgr(); }

// A resting state with only a position: the clip at (100, 200), 100 x 50.
std::shared_ptr<QVEffectState> rest() {
    auto state = QVEffectState::create();
    auto motion = QVClipPosition::createWithSize({100, 50});
    motion->setLocation({100, 200});
    state->setMotionState(motion);
    return state;
}

// Canvas 640 x 480; the clip's bounds are deliberately not the resting state's size.
const auto kCanvas = QVEffectContext::createWithConvasSize({640, 480}, {10, 20, 120, 70});

std::shared_ptr<QVEffectState> entrance(const std::string& name, const std::shared_ptr<QVEffectState>& state) {
    return templates().makeEntranceBeginStateWithName(name, state, kCanvas.get());
}

TEST(EffectTemplateTest, ListsInTheirOrder) {
    std::vector<std::string> entrances = {"None", "Fade In", "Zoom In", "Fade&Zoom In"};
    std::vector<std::string> exits = {"None", "Fade Out", "Zoom Out", "Fade&Zoom Out"};
    for (const char* kind : {"Fly", "Fly&Fade", "Fly&Zoom", "Fly&Fade&Zoom"}) {
        for (const char* side : {"left", "top", "right", "bottom"}) {
            entrances.push_back(std::string(kind) + " in from " + side);
            exits.push_back(std::string(kind) + " out from " + side);
        }
    }
    EXPECT_EQ(templates().supportedEntranceEffects(), entrances);
    EXPECT_EQ(templates().supportedExitEffects(), exits);
    EXPECT_EQ(templates().supportedEnhanceEffects(),
              (std::vector<std::string>{"None", "Flashing", "Shaking", "Pan&Zoom"}));
}

TEST(EffectTemplateTest, NamesOutsideTheirListGiveTheRestingStateItself) {
    auto state = rest();
    for (const std::string name : {"", "None", "fade in", "Flashing", "Fade Out"}) {
        EXPECT_EQ(entrance(name, state), state) << name;
    }
    for (const std::string name : {"", "None", "Fly in from left", "Fade In"}) {
        EXPECT_EQ(templates().makeExitStateWithName(name, state, kCanvas.get()), state) << name;
        EXPECT_EQ(templates().makeEnhanceStateWithName(name, state, kCanvas.get(), QVTimebase / 10, QVTimebase), state)
            << name;
    }
    EXPECT_NE(templates().makeExitStateWithName("Zoom Out", state, kCanvas.get()), state);
}

TEST(EffectTemplateTest, FlyStartsJustOutsideTheCanvasKeepingTheOtherAxis) {
    const std::pair<const char*, Point> rows[] = {{"Fly in from left", {-120, 200}},
                                                  {"Fly in from top", {100, 480}},
                                                  {"Fly in from right", {640, 200}},
                                                  {"Fly in from bottom", {100, -70}}};
    for (const auto& [name, begin] : rows) {
        auto state = rest();
        auto start = entrance(name, state);
        EXPECT_EQ(start->motionState()->bounds(), (Rect{begin, {100, 50}})) << name;
        EXPECT_FALSE(start->colorState()) << name;
        EXPECT_EQ(state->motionState()->location(), (Point{100, 200})) << name;
        EXPECT_FALSE(state->colorState()) << name;
    }
    EXPECT_EQ(templates().flyState(rest(), kCanvas.get(), 7, false, false)->motionState()->location(),
              (Point{100, -70}));
    // No context: zero canvas and bounds.
    EXPECT_EQ(
        templates().makeEntranceBeginStateWithName("Fly in from left", rest(), nullptr)->motionState()->location(),
        (Point{0, 200}));
    EXPECT_EQ(templates().makeExitStateWithName("Fly out from top", rest(), nullptr)->motionState()->location(),
              (Point{100, 0}));
}

TEST(EffectTemplateTest, ZoomShrinksTowardsTheCentreFromWhereverTheFlyPutIt) {
    // (-120, 200) plus half the resting size, at half a point.
    EXPECT_EQ(entrance("Fly&Zoom in from left", rest())->motionState()->bounds(), (Rect{-70, 225, 0.5, 0.5}));
    auto all = templates().makeExitStateWithName("Fly&Fade&Zoom out from top", rest(), kCanvas.get());
    EXPECT_EQ(all->motionState()->bounds(), (Rect{150, 505, 0.5, 0.5}));
    EXPECT_EQ(all->colorState()->opacity(), 0);
    EXPECT_EQ(entrance("Zoom In", rest())->motionState()->bounds(), (Rect{150, 225, 0.5, 0.5}));
}

TEST(EffectTemplateTest, FadeHidesACopyAndLeavesTheRestingColourAsItWas) {
    auto state = rest();
    state->setColorState(QVColorState::createWithBrightness(0.2, 1, 1, 0.7));
    const auto restColor = state->colorState();
    auto faded = templates().makeExitStateWithName("Fade&Zoom Out", state, kCanvas.get());
    EXPECT_EQ(faded->colorState()->opacity(), 0);
    EXPECT_EQ(faded->colorState()->brightness(), 0.2);
    EXPECT_EQ(faded->motionState()->bounds(), (Rect{150, 225, 0.5, 0.5}));
    EXPECT_EQ(state->colorState(), restColor);
    EXPECT_EQ(restColor->opacity(), 0.7);
    EXPECT_EQ(state->motionState()->bounds(), (Rect{100, 200, 100, 50}));
}

TEST(EffectTemplateTest, FadeGivesAStateWithoutColourANeutralFacetOfItsOwn) {
    auto state = rest();
    auto faded = entrance("Fade In", state);
    ASSERT_TRUE(state->colorState());
    EXPECT_TRUE(state->colorState()->defaultColorContorls());
    EXPECT_EQ(state->colorState()->opacity(), 1);
    EXPECT_EQ(faded->colorState()->opacity(), 0);
}

constexpr int64_t kFifth = QVTimebase / 5;
constexpr int64_t kLong = 10 * QVTimebase;

std::shared_ptr<QVEffectState> emphasis(const char* name, const std::shared_ptr<QVEffectState>& state, int64_t t,
                                        int64_t length = kLong) {
    return templates().makeEnhanceStateWithName(name, state, kCanvas.get(), t, length);
}

TEST(EffectTemplateTest, FlashingSwingsOpacityAwayInEvenPeriodsAndBackInOdd) {
    auto state = rest();
    for (int64_t t : {int64_t{0}, int64_t{-1}, kLong}) EXPECT_EQ(emphasis("Flashing", state, t), state) << t;
    EXPECT_EQ(emphasis("Flashing", state, kFifth / 2, kFifth / 2), state);

    const std::pair<int64_t, double> rows[] = {{kFifth / 4, 0.75}, {kFifth / 2, 0.5},
                                               {kFifth, 0},        {kFifth + kFifth / 4, 0.25},
                                               {2 * kFifth, 1},    {2 * kFifth + kFifth / 4, 0.75}};
    for (const auto& [t, opacity] : rows) {
        EXPECT_DOUBLE_EQ(emphasis("Flashing", state, t)->colorState()->opacity(), opacity) << t;
    }
    // The length does not shape the wave.
    EXPECT_DOUBLE_EQ(emphasis("Flashing", state, kFifth / 4, kFifth)->colorState()->opacity(), 0.75);
    // The resting state was given a neutral colour facet to swing from.
    ASSERT_TRUE(state->colorState());
    EXPECT_EQ(state->colorState()->opacity(), 1);
}

TEST(EffectTemplateTest, ShakingAndPanZoomMoveByTheirOwnPeriods) {
    auto state = rest();
    const std::pair<int64_t, double> shakes[] = {
        {kFifth / 4, 108}, {kFifth, 132}, {kFifth + kFifth / 4, 124}, {kFifth + kFifth / 2, 116}};
    for (const auto& [t, x] : shakes) {
        EXPECT_DOUBLE_EQ(emphasis("Shaking", state, t)->motionState()->positionX(), x) << t;
    }
    // A fifth of a second is 0.4 of the half-second period.
    const auto early = emphasis("Pan&Zoom", state, kFifth)->motionState();
    EXPECT_DOUBLE_EQ(early->positionX(), 106.4);
    EXPECT_DOUBLE_EQ(early->positionY(), 206.4);
    EXPECT_DOUBLE_EQ(early->width(), 102);
    EXPECT_DOUBLE_EQ(early->height(), 51);
    EXPECT_EQ(emphasis("Pan&Zoom", state, QVTimebase / 2)->motionState()->bounds(), (Rect{116, 216, 105, 52.5}));
    EXPECT_EQ(state->motionState()->bounds(), (Rect{100, 200, 100, 50}));
}

}  // namespace
}  // namespace qm
