#include "platform/AffineTransform.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>

namespace qm {
namespace {

constexpr double kNear = 1e-9;

void expectNear(Point actual, Point expected) {
    EXPECT_NEAR(actual.x, expected.x, kNear) << actual << " vs " << expected;
    EXPECT_NEAR(actual.y, expected.y, kNear) << actual << " vs " << expected;
}

TEST(AffineTransformTest, PositiveRotationTurnsCounterClockwiseAndQuarterTurnsAreExact) {
    const struct {
        double degrees;
        Point image;
    } cases[] = {{90, {0, 1}}, {180, {-1, 0}}, {270, {0, -1}}, {450, {0, 1}}, {-90, {0, -1}}, {-720, {1, 0}}};
    for (const auto& c : cases) {
        AffineTransform t;
        t.rotateByDegrees(c.degrees);
        EXPECT_EQ(t.transformPoint({1, 0}), c.image) << c.degrees;
    }

    AffineTransform radians;
    radians.rotateByRadians(std::numbers::pi / 6);
    expectNear(radians.transformPoint({2, 0}), {std::sqrt(3.0), 1});
}

TEST(AffineTransformTest, NewOperationsActOnPointsBeforeExistingOnes) {
    AffineTransform scaleThenTranslate;
    scaleThenTranslate.translateXBy(10, 0);
    scaleThenTranslate.scaleBy(2);
    EXPECT_EQ(scaleThenTranslate.transformPoint({1, 0}), (Point{12, 0}));

    AffineTransform translateThenScale;
    translateThenScale.scaleBy(2);
    translateThenScale.translateXBy(10, 0);
    EXPECT_EQ(translateThenScale.transformPoint({1, 0}), (Point{22, 0}));

    AffineTransform rotateThenTranslate;
    rotateThenTranslate.translateXBy(10, 0);
    rotateThenTranslate.rotateByDegrees(90);
    EXPECT_EQ(rotateThenTranslate.transformPoint({1, 0}), (Point{10, 1}));
}

TEST(AffineTransformTest, AppendRunsAfterTheReceiverAndPrependBefore) {
    AffineTransform stretch;
    stretch.scaleXBy(2, 1);
    AffineTransform quarter;
    quarter.rotateByDegrees(90);

    AffineTransform stretchFirst = stretch;
    stretchFirst.appendTransform(quarter);
    EXPECT_EQ(stretchFirst.transformPoint({1, 0}), (Point{0, 2}));

    AffineTransform quarterFirst = stretch;
    quarterFirst.prependTransform(quarter);
    EXPECT_EQ(quarterFirst.transformPoint({1, 0}), (Point{0, 1}));
}

TEST(AffineTransformTest, InvertRoundTripsAndSingularStaysUnchanged) {
    AffineTransform t;
    t.translateXBy(12, -7);
    t.rotateByDegrees(37);
    t.scaleXBy(2, 0.5);
    AffineTransform inverse = t;
    ASSERT_TRUE(inverse.invert());
    for (const Point p : {Point{0, 0}, Point{-250.5, 1e3}}) expectNear(inverse.transformPoint(t.transformPoint(p)), p);

    AffineTransform flat;
    flat.translateXBy(4, 5);
    flat.scaleXBy(0, 1);
    const AffineTransform before = flat;
    EXPECT_FALSE(flat.invert());
    EXPECT_EQ(flat, before);

    AffineTransform infinite{std::numeric_limits<double>::infinity(), 0, 0, 1, 0, 0};
    EXPECT_FALSE(infinite.invert());
    EXPECT_EQ(infinite.m11, std::numeric_limits<double>::infinity());
}

TEST(AffineTransformTest, SizesIgnoreTranslationAndRectsGiveTheBoundingBox) {
    AffineTransform quarter;
    quarter.translateXBy(100, 100);
    quarter.rotateByDegrees(90);
    EXPECT_EQ(quarter.transformSize({3, 4}), (Size{-4, 3}));

    AffineTransform turn;
    turn.rotateByDegrees(90);
    EXPECT_EQ(turn.transformRect({0, 0, 10, 20}), (Rect{-20, 0, 20, 10}));

    const double half = 5 * std::numbers::sqrt2;
    AffineTransform eighth;
    eighth.translateXBy(1, 2);
    eighth.rotateByDegrees(45);
    const Rect box = eighth.transformRect({0, 0, 10, 10});
    expectNear(box.origin, {1 - half, 2});
    expectNear(Point{box.size.width, box.size.height}, {2 * half, 2 * half});
}

}  // namespace
}  // namespace qm
