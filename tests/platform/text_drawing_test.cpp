#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <optional>

#include "platform/AttributedString.h"
#include "platform/BezierPath.h"
#include "platform/BitmapContext.h"
#include "platform/FontManager.h"
#include "platform/GraphicsArchive.h"
#include "platform/KeyedArchiver.h"
#include "platform/TextLayout.h"

namespace qm {
namespace {

void expectRectNear(const Rect& actual, const Rect& expected, double tolerance = 1e-6) {
    EXPECT_NEAR(actual.minX(), expected.minX(), tolerance);
    EXPECT_NEAR(actual.minY(), expected.minY(), tolerance);
    EXPECT_NEAR(actual.width(), expected.width(), tolerance);
    EXPECT_NEAR(actual.height(), expected.height(), tolerance);
}

// The rows (top first) and columns holding any pixel with alpha above `threshold`.
struct Ink {
    int top = -1, bottom = -1, left = -1, right = -1;
    bool empty() const { return top < 0; }
};

Ink inkOf(const Bitmap& bitmap, int threshold = 64) {
    Ink ink;
    for (int y = 0; y < bitmap.height(); ++y) {
        for (int x = 0; x < bitmap.width(); ++x) {
            if (bitmap.pixelAt(x, y)[3] <= threshold) continue;
            if (ink.top < 0) ink.top = y;
            ink.bottom = y;
            ink.left = ink.left < 0 ? x : std::min(ink.left, x);
            ink.right = std::max(ink.right, x);
        }
    }
    return ink;
}

int inkInRow(const Bitmap& bitmap, int y) {
    int count = 0;
    for (int x = 0; x < bitmap.width(); ++x) count += bitmap.pixelAt(x, y)[3] > 128 ? 1 : 0;
    return count;
}

Font dejaVu(double size, const char* name = "DejaVuSans") { return *Font::fontWithName(name, size); }

AttributedString styled(const std::string& text, const Font& font, const Color& color = Color::white()) {
    TextAttributes attributes;
    attributes.font = font;
    attributes.foregroundColor = color;
    return AttributedString(text, attributes);
}

TEST(BezierPathTest, BoundsFollowTheCurveNotTheControlPoints) {
    expectRectNear(BezierPath::bezierPathWithRect({10, 20, 40, 30}).bounds(), {10, 20, 40, 30});
    expectRectNear(BezierPath::bezierPathWithOvalInRect({10, 20, 40, 30}).bounds(), {10, 20, 40, 30}, 1e-3);
    expectRectNear(BezierPath::bezierPathWithRoundedRect({0, 0, 50, 20}, 8, 30).bounds(), {0, 0, 50, 20}, 1e-3);
    EXPECT_EQ(BezierPath().bounds(), Rect{});

    BezierPath line;
    line.moveToPoint({0, 0});
    line.lineToPoint({10, 0});
    AffineTransform quarter;
    quarter.rotateByDegrees(90);
    line.transformUsingAffineTransform(quarter);
    expectRectNear(line.bounds(), {0, 0, 0, 10});
}

TEST(BezierPathTest, HitTestingUsesTheFilledArea) {
    const auto oval = BezierPath::bezierPathWithOvalInRect({0, 0, 100, 50});
    EXPECT_TRUE(oval.containsPoint({50, 25}));
    EXPECT_TRUE(oval.containsPoint({2, 25}));
    EXPECT_FALSE(oval.containsPoint({3, 3}));
    EXPECT_FALSE(oval.containsPoint({101, 25}));
}

TEST(BitmapContextTest, CanvasYGrowsUpwardAndPixelsArePremultipliedRGBA) {
    auto context = BitmapContext::create(10, 8);
    ASSERT_TRUE(context);
    context->setFillColor({1, 0, 0, 1});
    context->fillPath(BezierPath::bezierPathWithRect({2, 1, 3, 2}));
    context->setFillColor({0, 0, 1, 0.5});
    context->fillPath(BezierPath::bezierPathWithRect({0, 7, 1, 1}));
    const auto bitmap = context->makeBitmap();
    ASSERT_TRUE(bitmap);
    // Canvas rows 1 and 2 are bitmap rows 6 and 5 of 8, counted from the top.
    EXPECT_EQ(bitmap->pixelAt(2, 6), (std::array<uint8_t, 4>{255, 0, 0, 255}));
    EXPECT_EQ(bitmap->pixelAt(4, 5), (std::array<uint8_t, 4>{255, 0, 0, 255}));
    EXPECT_EQ(bitmap->pixelAt(2, 7)[3], 0);
    EXPECT_EQ(bitmap->pixelAt(2, 4)[3], 0);
    EXPECT_EQ(bitmap->pixelAt(5, 6)[3], 0);
    const auto blue = bitmap->pixelAt(0, 0);
    EXPECT_EQ(blue[0], 0);
    EXPECT_NEAR(blue[2], 128, 1);
    EXPECT_NEAR(blue[3], 128, 1);
    EXPECT_FALSE(BitmapContext::create(0, 5));
}

TEST(BitmapContextTest, StrokesHonourWidthAndCaps) {
    BezierPath line;
    line.moveToPoint({5, 10});
    line.lineToPoint({15, 10});
    line.setLineWidth(4);
    for (const auto cap : {BezierPath::LineCapStyle::Butt, BezierPath::LineCapStyle::Round}) {
        auto context = BitmapContext::create(20, 20);
        line.setLineCapStyle(cap);
        context->setStrokeColor(Color::white());
        context->strokePath(line);
        const Ink ink = inkOf(*context->makeBitmap());
        // Canvas y 8..12 are bitmap rows 8..11.
        EXPECT_EQ(ink.top, 8);
        EXPECT_EQ(ink.bottom, 11);
        EXPECT_EQ(ink.left, cap == BezierPath::LineCapStyle::Butt ? 5 : 3);
        EXPECT_EQ(ink.right, cap == BezierPath::LineCapStyle::Butt ? 14 : 16);
    }
}

TEST(AttributedStringTest, ChangingARangeSplitsAndMergesRuns) {
    AttributedString text = styled("Hello world", dejaVu(20));
    text.changeAttributes(6, 5, [](TextAttributes& a) { a.underlineStyle = 1; });
    ASSERT_EQ(text.runs().size(), 2u);
    EXPECT_EQ(text.runs()[1].location, 6u);
    EXPECT_EQ(text.attributesAtIndex(5).underlineStyle, 0);
    EXPECT_EQ(text.attributesAtIndex(6).underlineStyle, 1);
    text.changeAttributes(0, 100, [](TextAttributes& a) { a.underlineStyle = 1; });
    EXPECT_EQ(text.runs().size(), 1u);
    text.replaceString("Bye");
    EXPECT_EQ(text.attributesAtIndex(0).underlineStyle, 1);
    EXPECT_EQ(text.runs().front().length, 3u);
    EXPECT_FALSE(AttributedString::createWithRuns("abc", {{0, 2, {}}}));
    EXPECT_FALSE(AttributedString::createWithRuns("abc", {{0, 2, {}}, {1, 2, {}}}));
}

TEST(FontManagerTest, FamiliesMembersAndTraitsComeFromFontconfig) {
    auto& fonts = FontManager::sharedFontManager();
    const auto families = fonts.availableFontFamilies();
    EXPECT_NE(std::find(families.begin(), families.end(), "DejaVu Sans"), families.end());
    EXPECT_TRUE(std::is_sorted(families.begin(), families.end()));
    EXPECT_TRUE(fonts.availableMembersOfFontFamily("Helvetica").empty());
    EXPECT_EQ(fonts.availableMembersOfFontFamily("DejaVu Sans").front().fontName, "DejaVuSans");
    EXPECT_TRUE(fonts.fontNamedHasTraits("DejaVuSans-BoldOblique", FontManager::boldTrait | FontManager::italicTrait));
    EXPECT_FALSE(fonts.fontNamedHasTraits("DejaVuSans-Oblique", FontManager::boldTrait));

    const Font bold = fonts.convertFontToHaveTrait(dejaVu(30), FontManager::boldTrait);
    EXPECT_EQ(bold.fontName, "DejaVuSans-Bold");
    EXPECT_EQ(bold.pointSize, 30);
    EXPECT_EQ(fonts.convertFontToHaveTrait(bold, FontManager::italicTrait).fontName, "DejaVuSans-BoldOblique");
    EXPECT_EQ(fonts.convertFontToNotHaveTrait(bold, FontManager::boldTrait).fontName, "DejaVuSans");

    const Font helvetica = *Font::fontWithName("Helvetica", 16);
    EXPECT_EQ(helvetica.familyName, "Helvetica");
    EXPECT_EQ(fonts.traitsOfFont(helvetica), 0u);
    EXPECT_EQ(fonts.convertFontToHaveTrait(helvetica, FontManager::boldTrait), helvetica);
    EXPECT_FALSE(Font::fontWithName("", 16));
}

TEST(TextLayoutTest, MeasuresByTheFontsAdvancesAndLineHeight) {
    // DejaVu Sans advances per em: H 0.752, e 0.615, l 0.278, o 0.612; line height 1.164 em.
    const Size one = TextLayout::sizeOfAttributedString(styled("Hello", dejaVu(20)));
    EXPECT_NEAR(one.width, 20 * (0.752 + 0.615 + 0.278 + 0.278 + 0.612), 1.0);
    EXPECT_NEAR(one.height, 20 * 1.164, 1.0);
    const Size two = TextLayout::sizeOfAttributedString(styled("Hello\nHello", dejaVu(20)));
    EXPECT_NEAR(two.width, one.width, 1e-6);
    EXPECT_NEAR(two.height, 2 * one.height, 1.0);
    const Size big = TextLayout::sizeOfAttributedString(styled("Hello", dejaVu(40)));
    EXPECT_NEAR(big.width, 2 * one.width, 1.0);
    EXPECT_EQ(TextLayout::sizeOfAttributedString(AttributedString()), Size{});
}

TEST(TextLayoutTest, DrawsUprightFromTheTopOfTheRect) {
    auto context = BitmapContext::create(200, 80);
    // "T": a bar at cap height above a stem, so the widest inked rows must be the top ones.
    TextLayout::drawInRect(*context, styled("T", dejaVu(40)), {20, 10, 160, 60});
    const auto bitmap = context->makeBitmap();
    const Ink ink = inkOf(*bitmap);
    ASSERT_FALSE(ink.empty());
    // The rect's top edge is canvas y 70, bitmap row 10; DejaVu's cap height sits 0.199 em below
    // the ascent: about 8 rows.
    EXPECT_NEAR(ink.top, 10 + 0.199 * 40, 2.0);
    EXPECT_GE(ink.left, 20);
    EXPECT_GT(inkInRow(*bitmap, ink.top + 1), 3 * inkInRow(*bitmap, ink.bottom - 1));
}

TEST(TextLayoutTest, AlignmentPlacesTheLineInTheRect) {
    for (const auto alignment : {TextAlignment::Left, TextAlignment::Center, TextAlignment::Right}) {
        AttributedString text = styled("Hi", dejaVu(20));
        text.changeAttributes(0, 2, [&](TextAttributes& a) { a.alignment = alignment; });
        const double width = TextLayout::sizeOfAttributedString(text).width;
        auto context = BitmapContext::create(300, 40);
        TextLayout::drawInRect(*context, text, {0, 0, 300, 40});
        const Ink ink = inkOf(*context->makeBitmap());
        const double expectedLeft = alignment == TextAlignment::Left     ? 0
                                    : alignment == TextAlignment::Center ? (300 - width) / 2
                                                                         : 300 - width;
        EXPECT_NEAR(ink.left, expectedLeft, 4.0) << static_cast<int>(alignment);
    }
}

TEST(TextLayoutTest, EachRunDrawsInItsOwnColourAndSize) {
    // "HH" in red at 20 and "HH" in blue at 40, on one line.
    AttributedString text = styled("HHHH", dejaVu(20), Color{1, 0, 0, 1});
    text.changeAttributes(2, 2, [](TextAttributes& a) {
        a.foregroundColor = Color{0, 0, 1, 1};
        a.font = dejaVu(40);
    });
    EXPECT_EQ(text.runs().size(), 2u);
    auto context = BitmapContext::create(200, 60);
    TextLayout::drawInRect(*context, text, {0, 0, 200, 60});
    const auto bitmap = context->makeBitmap();
    int redTop = 60, blueTop = 60, redRight = -1, blueLeft = 200;
    for (int y = 0; y < 60; ++y) {
        for (int x = 0; x < 200; ++x) {
            const auto p = bitmap->pixelAt(x, y);
            if (p[3] < 200) continue;
            if (p[0] > 200 && p[2] < 50) {
                redTop = std::min(redTop, y);
                redRight = std::max(redRight, x);
            }
            if (p[2] > 200 && p[0] < 50) {
                blueTop = std::min(blueTop, y);
                blueLeft = std::min(blueLeft, x);
            }
        }
    }
    ASSERT_GE(redRight, 0);
    ASSERT_LT(blueLeft, 200);
    EXPECT_LT(redRight, blueLeft);
    // Both runs share a baseline: the capitals of 40 rise 0.729 em * 20 higher than those of 20.
    EXPECT_NEAR(redTop - blueTop, 0.729 * 20, 2.0);
}

TEST(TextLayoutTest, UnknownFamiliesStillDrawWithASubstitute) {
    for (const char* family : {"Helvetica", "No Such Family 42"}) {
        auto context = BitmapContext::create(120, 40);
        TextLayout::drawInRect(*context, styled("Abc", *Font::fontWithName(family, 24)), {0, 0, 120, 40});
        EXPECT_FALSE(inkOf(*context->makeBitmap()).empty()) << family;
    }
}

TEST(TextLayoutTest, ColourAndOpacityOfTheRunReachThePixels) {
    auto context = BitmapContext::create(60, 40);
    TextLayout::drawInRect(*context, styled("\u2588", dejaVu(30), Color{0, 1, 0, 0.5}), {0, 0, 60, 40});
    const auto bitmap = context->makeBitmap();
    const Ink ink = inkOf(*bitmap, 32);
    ASSERT_FALSE(ink.empty());
    const auto pixel = bitmap->pixelAt((ink.left + ink.right) / 2, (ink.top + ink.bottom) / 2);
    EXPECT_EQ(pixel[0], 0);
    EXPECT_NEAR(pixel[1], 128, 2);
    EXPECT_NEAR(pixel[3], 128, 2);
}

TEST(GraphicsArchiveTest, PathsAndTextRoundTripExactly) {
    registerGraphicsArchiveClasses();
    BezierPath path = BezierPath::bezierPathWithRoundedRect({1.25, 2.5, 30.125, 40}, 3, 4);
    path.setLineWidth(2.75);
    path.setLineCapStyle(BezierPath::LineCapStyle::Round);
    path.setLineJoinStyle(BezierPath::LineJoinStyle::Bevel);
    const auto pathBytes = KeyedArchiver::archivedDataWithRootObject(ArchivedBezierPath::createWithPath(path));
    const auto readPath =
        std::dynamic_pointer_cast<ArchivedBezierPath>(KeyedUnarchiver::unarchiveObjectWithData(pathBytes));
    ASSERT_TRUE(readPath);
    EXPECT_EQ(readPath->path(), path);

    AttributedString text = styled("Hello world", dejaVu(20), Color{0.2, 0.4, 0.6, 0.8});
    text.changeAttributes(6, 5, [](TextAttributes& a) {
        a.underlineStyle = 1;
        a.underlineColor = Color{1, 0, 0, 1};
        a.alignment = TextAlignment::Center;
    });
    const auto textBytes = KeyedArchiver::archivedDataWithRootObject(ArchivedAttributedString::createWithString(text));
    const auto readText =
        std::dynamic_pointer_cast<ArchivedAttributedString>(KeyedUnarchiver::unarchiveObjectWithData(textBytes));
    ASSERT_TRUE(readText);
    EXPECT_EQ(readText->attributedString(), text);
}

}  // namespace
}  // namespace qm
