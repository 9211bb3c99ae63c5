#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <typeinfo>
#include <vector>

#include "effects/transitions/PSTransition.h"
#include "effects/transitions/PSTransitionBase.h"
#include "effects/transitions/PSTransitionFade.h"
#include "effects/transitions/PSTransitionFilters.h"
#include "effects/transitions/PSTransitionMotion.h"
#include "image/RenderContext.h"
#include "platform/Log.h"

using namespace qm;

namespace {

constexpr double kStoredPi = 3.1415916;

Image solid(const Color& color, const Rect& rect) {
    return Image::imageWithColor(color).cropped(rect);
}

// Premultiplied RGBA8 of the one pixel whose lower left corner is (x, y).
std::array<uint8_t, 4> pixelAt(const Image& image, int x, int y) {
    static const auto context = RenderContext::create();
    std::array<uint8_t, 4> pixel{};
    context->render(image, Rect{double(x), double(y), 1, 1}, PixelFormat::RGBA8Premultiplied, pixel.data(), 4);
    return pixel;
}

}  // namespace

TEST(PSTransitionCatalogueTest, NamesInDisplayOrderMapBackToTheirClasses) {
    const std::vector<std::string> expected = {
        "Fade", "Push(Left)", "Push(Right)", "Push(Top)", "Push(Bottom)", "Move In(Left)", "Move In(Right)",
        "Move In(Top)", "Move In(Bottom)", "Reveal(Left)", "Reveal(Right)", "Reveal(Top)", "Reveal(Bottom)",
        "Accordion Fold", "Bars Swipe(Left)", "Bars Swipe(Right)", "Bars Swipe(Top)", "Bars Swipe(Bottom)",
        "Copy Machine(Left)", "Copy Machine(Right)", "Copy Machine(Top)", "Copy Machine(Bottom)", "Mod", "Flash",
        "Dissolve", "Page Curl(Left)", "Page Curl(Right)", "Page Curl(Top)", "Page Curl(Bottom)",
        "Page Curl With Shadow(Left)", "Page Curl With Shadow(Right)", "Page Curl With Shadow(Top)",
        "Page Curl With Shadow(Bottom)", "Ripple", "Swipe(Left)", "Swipe(Right)", "Swipe(Top)", "Swipe(Bottom)",
        "Disintegrate With Mask"};
    EXPECT_EQ(PSTransition::supportTransitions(), expected);

    for (const auto& name : expected) {
        const auto transition = PSTransition::transitionWithName(name);
        ASSERT_NE(transition, nullptr);
        EXPECT_EQ(transition->name(), name);
        EXPECT_NE(typeid(*transition), typeid(PSTransition)) << name;
    }
    EXPECT_EQ(std::string(PSTransitionPushRightName), "Push(Right)");
    EXPECT_EQ(typeid(*PSTransition::transitionWithName(PSTransitionPageCurlWithShadowTopName)),
              typeid(PSTransitionPageCurlWithShadowTop));
    EXPECT_EQ(typeid(*PSTransition::defaultTransition()), typeid(PSTransitionFade));
}

TEST(PSTransitionCatalogueTest, VariantsKeepTheFamilyAndChangeTheDirection) {
    const std::vector<std::pair<std::string, int32_t>> variants = {
        {"Push(Left)", 0}, {"Push(Top)", 1}, {"Push(Right)", 2}, {"Push(Bottom)", 3},
        {"Move In(Right)", 2}, {"Reveal(Top)", 1}, {"Bars Swipe(Bottom)", 3},
        {"Copy Machine(Right)", 2}, {"Page Curl(Top)", 1}, {"Page Curl With Shadow(Bottom)", 3},
        {"Swipe(Left)", 0}};
    for (const auto& [name, direction] : variants) {
        const auto transition = PSTransition::transitionWithName(name);
        int32_t actual = -1;
        if (auto t = std::dynamic_pointer_cast<PSTransitionPush>(transition)) actual = t->direction();
        if (auto t = std::dynamic_pointer_cast<PSTransitionMoveIn>(transition)) actual = t->direction();
        if (auto t = std::dynamic_pointer_cast<PSTransitionReveal>(transition)) actual = t->direction();
        if (auto t = std::dynamic_pointer_cast<PSTransitionBarsSwipe>(transition)) actual = t->direction();
        if (auto t = std::dynamic_pointer_cast<PSTransitionCopyMachine>(transition)) actual = t->direction();
        if (auto t = std::dynamic_pointer_cast<PSTransitionPageCurl>(transition)) actual = t->direction();
        if (auto t = std::dynamic_pointer_cast<PSTransitionPageCurlWithShadow>(transition)) actual = t->direction();
        if (auto t = std::dynamic_pointer_cast<PSTransitionSwipe>(transition)) actual = t->direction();
        EXPECT_EQ(actual, direction) << name;
    }
}

TEST(PSTransitionCatalogueTest, UnknownNamesGiveThePlainTransitionWithoutPicture) {
    const Image from = solid(Color{1, 0, 0, 1}, Rect{0, 0, 4, 4});
    const Image to = solid(Color{0, 0, 1, 1}, Rect{0, 0, 4, 4});
    for (const std::string name : {"None", "", "fade", "Push(left)", "Fade "}) {
        const auto transition = PSTransition::transitionWithName(name);
        ASSERT_NE(transition, nullptr) << name;
        EXPECT_EQ(typeid(*transition), typeid(PSTransition)) << name;
        EXPECT_EQ(transition->name(), "None");
        EXPECT_TRUE(transition->transitionImage(from, to, 0.5).isNull());
        EXPECT_EQ(transition->face(), nullptr);
    }
}

TEST(PSTransitionCatalogueTest, FromValueHasExactEnds) {
    // The formula would give 0 here: 1e16 + (1 - 1e16) loses the 1.
    EXPECT_EQ(PSTransition::fromValue(1e16, 1, 1.0), 1.0);
    EXPECT_EQ(PSTransition::fromValue(1e16, 1, 0.0), 1e16);
    EXPECT_EQ(PSTransition::fromValue(2, 10, 1.5), 10);
    EXPECT_EQ(PSTransition::fromValue(2, 10, -0.5), 2);
    EXPECT_EQ(PSTransition::fromValue(2, 10, std::nan("")), 2);
    EXPECT_EQ(PSTransition::fromValue(2, 10, 0.25), 4);
    EXPECT_EQ(PSTransition::fromValue(10, 2, 0.75), 4);
}

TEST(PSTransitionCatalogueTest, AngleTablesUseTheStoredPi) {
    EXPECT_EQ(transitionAngleA(PSTransitionDirectionLeft), 0.0);
    EXPECT_EQ(transitionAngleA(PSTransitionDirectionTop), 1.5 * kStoredPi);
    EXPECT_EQ(transitionAngleA(PSTransitionDirectionRight), kStoredPi);
    EXPECT_EQ(transitionAngleA(PSTransitionDirectionBottom), 0.5 * kStoredPi);
    EXPECT_EQ(transitionAngleB(PSTransitionDirectionLeft), -0.25 * kStoredPi);
    EXPECT_EQ(transitionAngleB(PSTransitionDirectionTop), -0.75 * kStoredPi);
    EXPECT_EQ(transitionAngleB(PSTransitionDirectionRight), 0.75 * kStoredPi);
    EXPECT_EQ(transitionAngleB(PSTransitionDirectionBottom), 0.25 * kStoredPi);
    EXPECT_NE(transitionAngleA(PSTransitionDirectionRight), M_PI);
    for (int32_t unknown : {-1, 4, 99}) {
        EXPECT_EQ(transitionAngleA(unknown), 0.0);
        EXPECT_EQ(transitionAngleB(unknown), -0.25 * kStoredPi);
    }
}

TEST(PSTransitionBaseTest, RectToRectTransform) {
    const Rect from{10, 20, 100, 50};
    const Rect to{200, 100, 50, 100};
    const AffineTransform plain = PSTransitionBase::makeAffineTranformFromRect(from, to, 0);
    const Point origin = plain.transformPoint({10, 20});
    const Point corner = plain.transformPoint({110, 70});
    EXPECT_NEAR(origin.x, 200, 1e-9);
    EXPECT_NEAR(origin.y, 100, 1e-9);
    EXPECT_NEAR(corner.x, 250, 1e-9);
    EXPECT_NEAR(corner.y, 200, 1e-9);

    // A quarter turn (degrees) about the centre (225, 150) of the target.
    const Point turned = PSTransitionBase::makeAffineTranformFromRect(from, to, 90).transformPoint({10, 20});
    EXPECT_NEAR(turned.x, 275, 1e-9);
    EXPECT_NEAR(turned.y, 125, 1e-9);
}

TEST(PSTransitionBaseTest, TinySizesCountAsOneTenth) {
    // A zero-width source: sx = 5 / 0.1 = 50.
    const AffineTransform widen = PSTransitionBase::makeAffineTranformFromRect({0, 0, 0, 10}, {0, 0, 5, 10}, 0);
    EXPECT_NEAR(widen.transformPoint({0.1, 0}).x, 5, 1e-9);
    EXPECT_NEAR(widen.m11, 50, 1e-9);

    // A zero-width target turns about the centre of its corrected size: (0.05, 5).
    const AffineTransform half =
        PSTransitionBase::makeAffineTranformFromRect({0, 0, 1e-7, 10}, {0, 0, -1e-7, 10}, 180);
    const Point p = half.transformPoint({0, 0});
    EXPECT_NEAR(p.x, 0.1, 1e-9);
    EXPECT_NEAR(p.y, 10, 1e-9);
    EXPECT_NEAR(half.m11, -1, 1e-9);  // 0.1 / 0.1, turned half way round
}

TEST(PSTransitionBaseTest, NullAndEmptyRules) {
    const Image image = solid(Color{1, 0, 0, 1}, Rect{0, 0, 8, 8});
    EXPECT_TRUE(PSTransitionBase::cropImage({}, Rect{0, 0, 1, 1}).isNull());
    EXPECT_TRUE(PSTransitionBase::blendImage({}, 0.5).isNull());
    EXPECT_EQ(PSTransitionBase::blendImage(image, 1.0 + 5e-7), image);
    EXPECT_NE(PSTransitionBase::blendImage(image, 1.0 + 5e-6), image);
    EXPECT_TRUE(PSTransitionBase::transformImage({}, Rect{0, 0, 1, 1}, Rect{0, 0, 2, 2}, 0).isNull());
    EXPECT_TRUE(PSTransitionBase::transformImage(image, Rect{0, 0, 0, 1}, Rect{0, 0, 2, 2}, 0).isNull());
    EXPECT_TRUE(PSTransitionBase::transformImage(image, Rect{0, 0, 1, 1}, Rect{0, 0, 2, -2}, 0).isNull());
    EXPECT_TRUE(PSTransitionBase::colorImage(std::nullopt, Rect{0, 0, 2, 2}).isNull());
    EXPECT_TRUE(PSTransitionBase::shadowImage(image, nullptr, Rect{0, 0, 8, 8}).isNull());
    Shadow colourless;
    colourless.color.reset();
    EXPECT_TRUE(PSTransitionBase::shadowImage(image, &colourless, Rect{0, 0, 8, 8}).isNull());
    EXPECT_TRUE(PSTransitionBase::sourceOverImage({}, image).isNull());
    EXPECT_EQ(PSTransitionBase::sourceOverImage(image, {}), image);
}

TEST(PSTransitionBaseTest, PixelsOfTheOperations) {
    const Image red = solid(Color{1, 0, 0, 1}, Rect{0, 0, 8, 8});
    EXPECT_EQ(PSTransitionBase::cropImage(red, Rect{2, 2, 3, 3}).extent(), (Rect{2, 2, 3, 3}));
    EXPECT_EQ(pixelAt(PSTransitionBase::blendImage(red, 0.5), 1, 1), (std::array<uint8_t, 4>{128, 0, 0, 128}));

    const Image blue = PSTransitionBase::colorImage(Color{0, 0, 1, 1}, Rect{1, 1, 4, 4});
    EXPECT_EQ(blue.extent(), (Rect{1, 1, 4, 4}));
    EXPECT_EQ(pixelAt(blue, 2, 2), (std::array<uint8_t, 4>{0, 0, 255, 255}));

    // Half-transparent green over red: 0.5 green + 0.5 red.
    const Image green = solid(Color{0, 1, 0, 0.5}, Rect{0, 0, 8, 8});
    EXPECT_EQ(pixelAt(PSTransitionBase::sourceOverImage(green, red), 3, 3), (std::array<uint8_t, 4>{128, 128, 0, 255}));

    Shadow shadow;
    shadow.offset = {5, -3};
    shadow.color = Color{0, 0, 1, 1};
    EXPECT_EQ(PSTransitionBase::positionOfShadow(shadow, Rect{10, 10, 4, 4}), (Rect{15, 7, 4, 4}));
    const Image cast = PSTransitionBase::shadowImage(red, &shadow, Rect{0, 0, 8, 8});
    EXPECT_EQ(cast.extent(), (Rect{5, -3, 8, 8}));
    EXPECT_EQ(pixelAt(cast, 6, -2), (std::array<uint8_t, 4>{0, 0, 255, 255}));
    EXPECT_EQ(pixelAt(cast, 4, -2), (std::array<uint8_t, 4>{0, 0, 0, 0}));
}

TEST(PSTransitionFadeTest, PercentRules) {
    const auto fade = PSTransition::defaultTransition();
    const Image from = solid(Color{1, 0, 0, 1}, Rect{0, 0, 4, 4});
    const Image to = solid(Color{0, 0, 1, 0.5}, Rect{0, 0, 4, 4});

    LogCapture capture;
    EXPECT_EQ(fade->transitionImage(from, to, 1.01), to);
    EXPECT_EQ(capture.count("Out of transition timestamp"), 1u);

    // At 1 the incoming picture is not blended, the outgoing one is blended to nothing.
    EXPECT_EQ(pixelAt(fade->transitionImage(from, to, 1.0), 1, 1), (std::array<uint8_t, 4>{0, 0, 128, 128}));
    // At 0 the outgoing picture is untouched and the incoming one blended to nothing.
    EXPECT_EQ(pixelAt(fade->transitionImage(from, to, 0.0), 1, 1), (std::array<uint8_t, 4>{255, 0, 0, 255}));
    // Half way: to at 0.25 alpha over from at 0.5.
    EXPECT_EQ(pixelAt(fade->transitionImage(from, to, 0.5), 1, 1), (std::array<uint8_t, 4>{96, 0, 64, 159}));
    EXPECT_EQ(capture.count("Out of transition timestamp"), 1u);
}

TEST(PSTransitionFadeTest, OnePictureMissing) {
    const auto fade = PSTransitionFade::create();
    const Image from = solid(Color{1, 0, 0, 1}, Rect{0, 0, 4, 4});
    EXPECT_EQ(pixelAt(fade->transitionImage(from, {}, 0.25), 0, 0), (std::array<uint8_t, 4>{191, 0, 0, 191}));
    EXPECT_EQ(pixelAt(fade->transitionImage({}, from, 0.25), 0, 0), (std::array<uint8_t, 4>{64, 0, 0, 64}));
    EXPECT_EQ(fade->transitionImage(from, {}, 0.0), from);
    EXPECT_TRUE(fade->transitionImage({}, {}, 0.5).isNull());
}

TEST(PSTransitionNullRuleTest, EveryOtherTransitionGivesTheIncomingPicture) {
    const Image picture = solid(Color{1, 0, 0, 1}, Rect{0, 0, 4, 4});
    for (const auto& name : PSTransition::supportTransitions()) {
        if (name == PSTransitionFadeName) continue;
        const auto transition = PSTransition::transitionWithName(name);
        EXPECT_EQ(transition->transitionImage({}, picture, 0.5), picture) << name;
        EXPECT_TRUE(transition->transitionImage(picture, {}, 0.5).isNull()) << name;
        EXPECT_TRUE(transition->transitionImage({}, {}, 0.5).isNull()) << name;
    }
}

TEST(PSTransitionMotionTest, RightAndTopStartAtTheFartherOuterEdge) {
    const Image from = solid(Color{1, 0, 0, 1}, Rect{0, 0, 40, 20});
    const Image to = solid(Color{0, 0, 1, 1}, Rect{0, 0, 20, 10});
    // At percent 0 the incoming picture waits just outside: Right and Top at the outer edge of
    // the larger picture, Left and Bottom one own size below the origin.
    EXPECT_EQ(PSTransitionPushRight::create()->transitionImage(from, to, 0).extent(), (Rect{0, 0, 60, 20}));
    EXPECT_EQ(PSTransitionPushTop::create()->transitionImage(from, to, 0).extent(), (Rect{0, 0, 40, 30}));
    EXPECT_EQ(PSTransitionPush::create()->transitionImage(from, to, 0).extent(), (Rect{-20, 0, 60, 20}));
    EXPECT_EQ(PSTransitionPushBottom::create()->transitionImage(from, to, 0).extent(), (Rect{0, -10, 40, 30}));
    // At 1 the outgoing picture has moved by the farther edge too.
    EXPECT_EQ(PSTransitionPushRight::create()->transitionImage(from, to, 1).extent(), (Rect{-40, 0, 60, 20}));
    EXPECT_EQ(PSTransitionPush::create()->transitionImage(from, to, 1).extent(), (Rect{0, 0, 60, 20}));
    // Reveal(Right) moves the outgoing picture to the farther edge.
    EXPECT_EQ(PSTransitionRevealRight::create()->transitionImage(to, from, 1).extent(), (Rect{0, 0, 60, 20}));
}

TEST(PSTransitionMotionTest, EaseOutPacing) {
    const Image from = solid(Color{1, 0, 0, 1}, Rect{0, 0, 32, 8});
    const Image to = solid(Color{0, 0, 1, 1}, Rect{0, 0, 32, 8});
    // Eased 0.5 is 0.6875: Move In(Left) has covered 22 of 32 columns.
    const Image moved = PSTransitionMoveIn::create()->transitionImage(from, to, 0.5);
    EXPECT_EQ(pixelAt(moved, 21, 4), (std::array<uint8_t, 4>{0, 0, 255, 255}));
    EXPECT_EQ(pixelAt(moved, 22, 4), (std::array<uint8_t, 4>{255, 0, 0, 255}));
    // Reveal fades the outgoing picture by the eased percent too: alpha 0.3125 over blue.
    const Image revealed = PSTransitionRevealRight::create()->transitionImage(from, to, 0.5);
    EXPECT_EQ(pixelAt(revealed, 31, 4), (std::array<uint8_t, 4>{80, 0, 175, 255}));
    EXPECT_EQ(pixelAt(revealed, 10, 4), (std::array<uint8_t, 4>{0, 0, 255, 255}));
}

namespace {

// A Push whose direction code is none of the four.
class SidewaysPush : public PSTransitionPush {
public:
    int32_t direction() const override { return 7; }
};

}  // namespace

TEST(PSTransitionMotionTest, UnknownDirectionsLeaveThePicturesInPlace) {
    const Image from = solid(Color{1, 0, 0, 1}, Rect{0, 0, 40, 20});
    const Image to = solid(Color{0, 0, 1, 0.5}, Rect{0, 0, 20, 10});
    const Image pushed = SidewaysPush().transitionImage(from, to, 0.3);
    EXPECT_EQ(pushed.extent(), (Rect{0, 0, 40, 20}));
    EXPECT_EQ(pixelAt(pushed, 5, 5), (std::array<uint8_t, 4>{128, 0, 128, 255}));
    EXPECT_EQ(pixelAt(pushed, 30, 15), (std::array<uint8_t, 4>{255, 0, 0, 255}));
}
