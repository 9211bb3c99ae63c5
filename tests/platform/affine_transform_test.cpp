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

void expectNear(const Rect& actual, const Rect& expected) {
    expectNear(actual.origin, expected.origin);
    EXPECT_NEAR(actual.size.width, expected.size.width, kNear) << actual << " vs " << expected;
    EXPECT_NEAR(actual.size.height, expected.size.height, kNear) << actual << " vs " << expected;
}

void expectNear(const AffineTransform& actual, const AffineTransform& expected) {
    EXPECT_NEAR(actual.m11, expected.m11, kNear) << actual << " vs " << expected;
    EXPECT_NEAR(actual.m12, expected.m12, kNear) << actual << " vs " << expected;
    EXPECT_NEAR(actual.m21, expected.m21, kNear) << actual << " vs " << expected;
    EXPECT_NEAR(actual.m22, expected.m22, kNear) << actual << " vs " << expected;
    EXPECT_NEAR(actual.tX, expected.tX, kNear) << actual << " vs " << expected;
    EXPECT_NEAR(actual.tY, expected.tY, kNear) << actual << " vs " << expected;
}

TEST(AffineTransformTest, DefaultIsIdentityAndFieldsMapPointsAsDocumented) {
    const AffineTransform identity;
    EXPECT_TRUE(identity.isIdentity());
    EXPECT_EQ(identity, AffineTransform::identity());
    EXPECT_EQ(identity.transformPoint({3, -4}), (Point{3, -4}));

    const AffineTransform t{1, 2, 3, 4, 5, 6};
    EXPECT_FALSE(t.isIdentity());
    EXPECT_EQ(t.transformPoint({1, 0}), (Point{6, 8}));
    EXPECT_EQ(t.transformPoint({0, 1}), (Point{8, 10}));
    EXPECT_EQ(t.transformPoint({1, 1}), (Point{9, 12}));
}

TEST(AffineTransformTest, PositiveRotationTurnsCounterClockwise) {
    AffineTransform quarter;
    quarter.rotateByDegrees(90);
    EXPECT_EQ(quarter.transformPoint({1, 0}), (Point{0, 1}));
    EXPECT_EQ(quarter.transformPoint({0, 1}), (Point{-1, 0}));

    AffineTransform radians;
    radians.rotateByRadians(std::numbers::pi / 2);
    expectNear(radians.transformPoint({1, 0}), {0, 1});

    AffineTransform thirty;
    thirty.rotateByDegrees(30);
    expectNear(thirty.transformPoint({2, 0}), {std::sqrt(3.0), 1});
}

TEST(AffineTransformTest, QuarterTurnsAreExact) {
    const struct {
        double degrees;
        Point image;
    } cases[] = {{0, {1, 0}},    {90, {0, 1}},   {180, {-1, 0}}, {270, {0, -1}},
                 {360, {1, 0}},  {450, {0, 1}},  {-90, {0, -1}}, {-180, {-1, 0}},
                 {-270, {0, 1}}, {-720, {1, 0}}};
    for (const auto& c : cases) {
        AffineTransform t;
        t.rotateByDegrees(c.degrees);
        EXPECT_EQ(t.transformPoint({1, 0}), c.image) << c.degrees;
    }
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

    AffineTransform translateThenRotate;
    translateThenRotate.rotateByDegrees(90);
    translateThenRotate.translateXBy(10, 0);
    EXPECT_EQ(translateThenRotate.transformPoint({0, 0}), (Point{0, 10}));

    AffineTransform rotateThenTranslate;
    rotateThenTranslate.translateXBy(10, 0);
    rotateThenTranslate.rotateByDegrees(90);
    EXPECT_EQ(rotateThenTranslate.transformPoint({0, 0}), (Point{10, 0}));
    EXPECT_EQ(rotateThenTranslate.transformPoint({1, 0}), (Point{10, 1}));
}

TEST(AffineTransformTest, ScaleXByScalesEachAxis) {
    AffineTransform t;
    t.translateXBy(1, 1);
    t.scaleXBy(3, -2);
    EXPECT_EQ(t.transformPoint({1, 1}), (Point{4, -1}));
}

TEST(AffineTransformTest, AppendAndPrependDifferOnNonCommutingPair) {
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

    AffineTransform sameAsAppend = quarter;
    sameAsAppend.prependTransform(stretch);
    EXPECT_EQ(sameAsAppend, stretchFirst);
}

TEST(AffineTransformTest, AppendRunsAfterTheReceiverIncludingTranslation) {
    AffineTransform t;
    t.translateXBy(5, 0);
    AffineTransform scale;
    scale.scaleBy(3);
    t.appendTransform(scale);
    EXPECT_EQ(t.transformPoint({1, 1}), (Point{18, 3}));
}

TEST(AffineTransformTest, RotationAboutACentreKeepsTheCentreFixed) {
    const Point c{100, 50};
    AffineTransform quarter;
    quarter.translateXBy(c.x, c.y);
    quarter.rotateByDegrees(90);
    quarter.translateXBy(-c.x, -c.y);
    EXPECT_EQ(quarter.transformPoint(c), c);
    EXPECT_EQ(quarter.transformPoint({110, 50}), (Point{100, 60}));
    EXPECT_EQ(quarter.transformPoint({100, 60}), (Point{90, 50}));

    AffineTransform oblique;
    oblique.translateXBy(c.x, c.y);
    oblique.rotateByDegrees(30);
    oblique.translateXBy(-c.x, -c.y);
    expectNear(oblique.transformPoint(c), c);
    expectNear(oblique.transformPoint({102, 50}), {100 + std::sqrt(3.0), 51});
}

TEST(AffineTransformTest, InvertRoundTrips) {
    AffineTransform t;
    t.translateXBy(12, -7);
    t.rotateByDegrees(37);
    t.scaleXBy(2, 0.5);
    AffineTransform inverse = t;
    ASSERT_TRUE(inverse.invert());

    for (const Point p : {Point{0, 0}, Point{3, 4}, Point{-250.5, 1e3}}) {
        expectNear(inverse.transformPoint(t.transformPoint(p)), p);
        expectNear(t.transformPoint(inverse.transformPoint(p)), p);
    }
    AffineTransform product = t;
    product.appendTransform(inverse);
    expectNear(product, AffineTransform{});

    AffineTransform twice = inverse;
    ASSERT_TRUE(twice.invert());
    expectNear(twice, t);
}

TEST(AffineTransformTest, SingularTransformStaysUnchangedOnInvert) {
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

TEST(AffineTransformTest, TransformSizeIgnoresTranslation) {
    AffineTransform t;
    t.translateXBy(100, 100);
    t.scaleBy(2);
    EXPECT_EQ(t.transformSize({3, 4}), (Size{6, 8}));

    AffineTransform quarter;
    quarter.translateXBy(100, 100);
    quarter.rotateByDegrees(90);
    EXPECT_EQ(quarter.transformSize({3, 4}), (Size{-4, 3}));
}

TEST(AffineTransformTest, TransformRectGivesBoundingBoxOfCorners) {
    AffineTransform quarter;
    quarter.rotateByDegrees(90);
    EXPECT_EQ(quarter.transformRect({0, 0, 10, 20}), (Rect{-20, 0, 20, 10}));

    const double half = 5 * std::numbers::sqrt2;
    AffineTransform eighth;
    eighth.translateXBy(1, 2);
    eighth.rotateByDegrees(45);
    expectNear(eighth.transformRect({0, 0, 10, 10}), {1 - half, 2, 2 * half, 2 * half});

    AffineTransform mirror;
    mirror.scaleXBy(-1, 1);
    EXPECT_EQ(mirror.transformRect({2, 3, 4, 5}), (Rect{-6, 3, 4, 5}));
}

TEST(AffineTransformTest, Description) {
    AffineTransform t;
    t.translateXBy(3, -4.5);
    t.scaleBy(2);
    EXPECT_EQ(t.description(), "[2 0 0 2 3 -4.5]");
}

}  // namespace
}  // namespace qm
