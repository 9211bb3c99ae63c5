#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "effects/QVTimeFunction.h"
#include "platform/KeyedArchiver.h"

using namespace qm;

TEST(QVTimeFunctionCatalogueTest, NamesAndClasses) {
    EXPECT_EQ(QVTimeFunction::namesOfTimeFunction(),
              (std::vector<std::string>{"Ease-in pacing", "Ease-in-ease out pacing", "Ease-out pacing",
                                        "Linear pacing"}));
    EXPECT_EQ(QVTimeFunction::create()->name(), "Linear pacing");

    for (const auto& name : QVTimeFunction::namesOfTimeFunction()) {
        const auto function = QVTimeFunction::timeFunctionWithName(name);
        ASSERT_NE(function, nullptr) << name;
        EXPECT_EQ(function->name(), name);
    }
    EXPECT_NE(std::dynamic_pointer_cast<QVEraseInTimeFunction>(
                  QVTimeFunction::timeFunctionWithName(QVTimeFunctionEaseIn)),
              nullptr);
    EXPECT_NE(std::dynamic_pointer_cast<QVEraseOutTimeFunction>(
                  QVTimeFunction::timeFunctionWithName(QVTimeFunctionEaseOut)),
              nullptr);
    EXPECT_NE(std::dynamic_pointer_cast<QVEraseInOutTimeFunction>(
                  QVTimeFunction::timeFunctionWithName(QVTimeFunctionEaseInEaseOut)),
              nullptr);
    EXPECT_EQ(QVTimeFunction::timeFunctionWithName("Ease-in"), nullptr);
    EXPECT_EQ(QVTimeFunction::timeFunctionWithName(""), nullptr);
}

TEST(QVTimeFunctionPacingTest, CurvesMeetTheEndsAndBendTheMiddle) {
    const auto in = QVTimeFunction::timeFunctionWithName(QVTimeFunctionEaseIn);
    const auto out = QVTimeFunction::timeFunctionWithName(QVTimeFunctionEaseOut);
    const auto inOut = QVTimeFunction::timeFunctionWithName(QVTimeFunctionEaseInEaseOut);
    for (const auto& function : {in, out, inOut}) {
        EXPECT_DOUBLE_EQ(function->redirectPercent(0), 0) << function->name();
        EXPECT_DOUBLE_EQ(function->redirectPercent(1), 1) << function->name();
    }
    EXPECT_DOUBLE_EQ(in->redirectPercent(0.5), 0.3125);
    EXPECT_DOUBLE_EQ(out->redirectPercent(0.5), 0.6875);
    EXPECT_DOUBLE_EQ(inOut->redirectPercent(0.5), 0.5);
    EXPECT_LT(in->redirectPercent(0.25), 0.25);
    EXPECT_GT(out->redirectPercent(0.25), 0.25);
}

TEST(QVTimeFunctionPacingTest, NoClampingAndSinglePrecisionParameter) {
    const auto linear = QVTimeFunction::create();
    EXPECT_EQ(linear->redirectPercent(1.7), 1.7);
    EXPECT_EQ(linear->redirectPercent(-0.3), -0.3);

    // The parameter is narrowed to float: 0.1 becomes 0.100000001490116..., and the
    // polynomial is evaluated in float, so the result is exactly the float computation.
    const auto out = QVTimeFunction::timeFunctionWithName(QVTimeFunctionEaseOut);
    const float t = 0.1f;
    const float expected = -0.5f * t * t * t + 0.0f * t * t + 1.5f * t;
    EXPECT_EQ(out->redirectPercent(0.1), static_cast<double>(expected));

    // Beyond 1 the ease-out cubic -0.5 t^3 + 1.5 t falls again: t = 2 gives -1.
    EXPECT_DOUBLE_EQ(out->redirectPercent(2.0), -1.0);
}

TEST(QVTimeFunctionPacingTest, BezierPointUsesBothCoordinatesAndAddsTheStart) {
    const Point points[4] = {{10, 20}, {10, 20}, {12, 24}, {13, 26}};
    const Point start = QVTimeFunction::pointOnCubicBezier(points, 0.0f);
    EXPECT_EQ(start, (Point{10, 20}));
    const Point end = QVTimeFunction::pointOnCubicBezier(points, 1.0f);
    EXPECT_NEAR(end.x, 13, 1e-6);
    EXPECT_NEAR(end.y, 26, 1e-6);
    // c = 0, b = 3 * 2 = 6, a = 3 - 6 = -3 for x: at 0.5, -0.375 + 1.5 = 1.125.
    const Point middle = QVTimeFunction::pointOnCubicBezier(points, 0.5f);
    EXPECT_DOUBLE_EQ(middle.x, 11.125);
    EXPECT_DOUBLE_EQ(middle.y, 22.25);
}

TEST(QVTimeFunctionCopyTest, CopyGoesThroughTheName) {
    const auto original = QVTimeFunction::timeFunctionWithName(QVTimeFunctionEaseIn);
    const auto copy = original->copy();
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, original);
    EXPECT_EQ(copy->name(), QVTimeFunctionEaseIn);
    EXPECT_NE(std::dynamic_pointer_cast<QVEraseInTimeFunction>(copy), nullptr);

    // A linear function carrying a curve's name copies into that curve's class; an unknown
    // name copies into nothing.
    EXPECT_NE(std::dynamic_pointer_cast<QVEraseOutTimeFunction>(
                  QVTimeFunction::createWithName(QVTimeFunctionEaseOut)->copy()),
              nullptr);
    EXPECT_EQ(QVTimeFunction::createWithName("Bounce")->copy(), nullptr);
}

TEST(QVTimeFunctionArchiveTest, RoundTripKeepsClassAndName) {
    QVTimeFunction::registerArchiveClasses();
    for (const auto& name : QVTimeFunction::namesOfTimeFunction()) {
        const auto function = QVTimeFunction::timeFunctionWithName(name);
        const auto data = KeyedArchiver::archivedDataWithRootObject(function);
        ASSERT_FALSE(data.empty());
        const auto decoded =
            std::dynamic_pointer_cast<QVTimeFunction>(KeyedUnarchiver::unarchiveObjectWithData(data));
        ASSERT_NE(decoded, nullptr) << name;
        EXPECT_EQ(decoded->name(), name);
        EXPECT_EQ(decoded->archiveClassName(), function->archiveClassName());
        EXPECT_DOUBLE_EQ(decoded->redirectPercent(0.3), function->redirectPercent(0.3));
    }
}
