#include "platform/Color.h"

#include <gtest/gtest.h>

#include <cmath>

namespace qm {
namespace {

TEST(ColorTest, NamedColours) {
    EXPECT_EQ(Color::black(), (Color{0, 0, 0, 1}));
    EXPECT_EQ(Color::white(), (Color{1, 1, 1, 1}));
    EXPECT_EQ(Color::clear(), (Color{0, 0, 0, 0}));
    EXPECT_EQ(Color{}, Color::black());
    EXPECT_EQ(Color::colorWithWhite(0.25, 0.5), (Color{0.25, 0.25, 0.25, 0.5}));
}

TEST(ColorTest, NamedConstructorsClampComponents) {
    EXPECT_EQ(Color::colorWithRed(1.5, -0.2, 0.5, 2), (Color{1, 0, 0.5, 1}));
    EXPECT_EQ(Color::colorWithRed(0.1, 0.2, 0.3), (Color{0.1, 0.2, 0.3, 1}));
    EXPECT_EQ(Color::colorWithRed(NAN, 0.2, 0.3, NAN), (Color{0, 0.2, 0.3, 0}));
    EXPECT_EQ(Color::colorWithWhite(3, -1), (Color{1, 1, 1, 0}));
}

TEST(ColorTest, Rgba8RoundTripsEveryLevel) {
    for (int level = 0; level < 256; ++level) {
        const auto byte = static_cast<std::uint8_t>(level);
        const Color c = Color::fromRGBA8(byte, static_cast<std::uint8_t>(255 - level), byte, byte);
        EXPECT_NEAR(c.r, level / 255.0, 1e-12);
        const std::array<std::uint8_t, 4> expected{byte, static_cast<std::uint8_t>(255 - level),
                                                   byte, byte};
        EXPECT_EQ(c.toRGBA8(), expected) << level;
    }
    EXPECT_EQ(Color::fromRGBA8(10, 20, 30).a, 1);
}

TEST(ColorTest, ToRgba8RoundsToNearestAndClamps) {
    const std::array<std::uint8_t, 4> halfway{128, 127, 255, 0};
    EXPECT_EQ((Color{0.5, 126.6 / 255, 1.2, -0.1}).toRGBA8(), halfway);
}

TEST(ColorTest, AlphaComponentReplacesAlphaOnly) {
    const Color c = Color::colorWithRed(0.2, 0.4, 0.6, 0.8);
    EXPECT_EQ(c.colorWithAlphaComponent(0.5), (Color{0.2, 0.4, 0.6, 0.5}));
    EXPECT_EQ(c.colorWithAlphaComponent(7), (Color{0.2, 0.4, 0.6, 1}));
}

TEST(ColorTest, BlendMixesEveryComponentIncludingAlpha) {
    const Color from{0.2, 0.4, 1.0, 1.0};
    const Color to{1.0, 0.0, 0.5, 0.0};
    EXPECT_EQ(from.blendedColorWithFraction(0, to), from);
    EXPECT_EQ(from.blendedColorWithFraction(1, to), to);
    EXPECT_EQ(from.blendedColorWithFraction(0.5, to), (Color{0.6, 0.2, 0.75, 0.5}));
    EXPECT_EQ(from.blendedColorWithFraction(0.25, to), (Color{0.4, 0.3, 0.875, 0.75}));
}

TEST(ColorTest, BlendClampsTheFraction) {
    const Color from{0.2, 0.4, 1.0, 1.0};
    const Color to{1.0, 0.0, 0.5, 0.0};
    EXPECT_EQ(from.blendedColorWithFraction(-0.5, to), from);
    EXPECT_EQ(from.blendedColorWithFraction(3, to), to);
    EXPECT_EQ(from.blendedColorWithFraction(NAN, to), from);
}

TEST(ColorTest, PremultipliedScalesColourByAlpha) {
    EXPECT_EQ((Color{0.8, 0.4, 1.0, 0.5}).premultiplied(), (Color{0.4, 0.2, 0.5, 0.5}));
    EXPECT_EQ(Color::clear().premultiplied(), Color::clear());
}

TEST(ColorTest, EqualityToleratesTinyDifferences) {
    const Color c{0.5, 0.5, 0.5, 0.5};
    EXPECT_EQ(c, (Color{0.5 + 5e-7, 0.5, 0.5 - 5e-7, 0.5}));
    EXPECT_NE(c, (Color{0.5, 0.5, 0.5, 0.5 + 2e-6}));
    EXPECT_NE(c, (Color{0.5, 0.5 - 2e-6, 0.5, 0.5}));
}

TEST(ColorTest, Description) {
    EXPECT_EQ(Color::colorWithRed(1, 0.5, 0, 0.25).description(), "sRGB 1 0.5 0 0.25");
}

TEST(ShadowTest, DefaultIsUnblurredBlackAtOneThirdAlpha) {
    const Shadow shadow;
    EXPECT_EQ(shadow.offset, Size{});
    EXPECT_EQ(shadow.blurRadius, 0);
    ASSERT_TRUE(shadow.color.has_value());
    EXPECT_EQ(*shadow.color, (Color{0, 0, 0, 1.0 / 3.0}));
}

TEST(ShadowTest, EqualityComparesEveryField) {
    const Shadow base{{3, -4}, 2.5, Color::black()};
    EXPECT_EQ(base, (Shadow{{3, -4}, 2.5, Color{0, 0, 0, 1 - 1e-8}}));
    EXPECT_NE(base, (Shadow{{3, 4}, 2.5, Color::black()}));
    EXPECT_NE(base, (Shadow{{3, -4}, 2, Color::black()}));
    EXPECT_NE(base, (Shadow{{3, -4}, 2.5, std::nullopt}));
    EXPECT_NE(base, (Shadow{{3, -4}, 2.5, Color::white()}));
}

}  // namespace
}  // namespace qm
