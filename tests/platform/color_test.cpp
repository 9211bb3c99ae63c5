#include "platform/Color.h"

#include <gtest/gtest.h>

#include <cmath>

namespace qm {
namespace {

TEST(ColorTest, NamedConstructorsClampComponents) {
    EXPECT_EQ(Color::colorWithWhite(0.25, 0.5), (Color{0.25, 0.25, 0.25, 0.5}));
    EXPECT_EQ(Color::colorWithRed(1.5, -0.2, 0.5, 2), (Color{1, 0, 0.5, 1}));
    EXPECT_EQ(Color::colorWithRed(NAN, 0.2, 0.3, NAN), (Color{0, 0.2, 0.3, 0}));
    EXPECT_EQ(Color::colorWithRed(0.2, 0.4, 0.6, 0.8).colorWithAlphaComponent(7), (Color{0.2, 0.4, 0.6, 1}));
}

TEST(ColorTest, Rgba8RoundTripsEveryLevelAndRoundsToNearest) {
    for (int level = 0; level < 256; ++level) {
        const auto byte = static_cast<std::uint8_t>(level);
        const auto inverse = static_cast<std::uint8_t>(255 - level);
        EXPECT_EQ(Color::fromRGBA8(byte, inverse, byte, byte).toRGBA8(),
                  (std::array<std::uint8_t, 4>{byte, inverse, byte, byte}))
            << level;
    }
    EXPECT_EQ(Color::fromRGBA8(10, 20, 30).a, 1);
    EXPECT_EQ((Color{0.5, 126.6 / 255, 1.2, -0.1}).toRGBA8(), (std::array<std::uint8_t, 4>{128, 127, 255, 0}));
}

TEST(ColorTest, BlendMixesEveryComponentAndClampsTheFraction) {
    const Color from{0.2, 0.4, 1.0, 1.0};
    const Color to{1.0, 0.0, 0.5, 0.0};
    EXPECT_EQ(from.blendedColorWithFraction(1, to), to);
    EXPECT_EQ(from.blendedColorWithFraction(0.25, to), (Color{0.4, 0.3, 0.875, 0.75}));
    EXPECT_EQ(from.blendedColorWithFraction(-0.5, to), from);
    EXPECT_EQ(from.blendedColorWithFraction(3, to), to);
    EXPECT_EQ(from.blendedColorWithFraction(NAN, to), from);
}

TEST(ColorTest, EqualityToleratesTinyDifferencesAndPremultipliedScalesByAlpha) {
    EXPECT_EQ((Color{0.8, 0.4, 1.0, 0.5}).premultiplied(), (Color{0.4, 0.2, 0.5, 0.5}));
    const Color c{0.5, 0.5, 0.5, 0.5};
    EXPECT_EQ(c, (Color{0.5 + 5e-7, 0.5, 0.5 - 5e-7, 0.5}));
    EXPECT_NE(c, (Color{0.5, 0.5, 0.5, 0.5 + 2e-6}));
}

TEST(ShadowTest, DefaultIsUnblurredBlackAtOneThirdAlphaAndEqualityComparesEveryField) {
    const Shadow shadow;
    EXPECT_EQ(shadow, (Shadow{{0, 0}, 0, Color{0, 0, 0, 1.0 / 3.0}}));

    const Shadow base{{3, -4}, 2.5, Color::black()};
    EXPECT_EQ(base, (Shadow{{3, -4}, 2.5, Color{0, 0, 0, 1 - 1e-8}}));
    EXPECT_NE(base, (Shadow{{3, 4}, 2.5, Color::black()}));
    EXPECT_NE(base, (Shadow{{3, -4}, 2, Color::black()}));
    EXPECT_NE(base, (Shadow{{3, -4}, 2.5, std::nullopt}));
}

}  // namespace
}  // namespace qm
