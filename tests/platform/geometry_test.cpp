#include "platform/Geometry.h"

#include <gtest/gtest.h>

namespace qm {
namespace {

TEST(GeometryTest, EmptyWhenEitherExtentIsNotPositive) {
    EXPECT_FALSE((Rect{0, 0, 1, 1}).isEmpty());
    EXPECT_TRUE((Rect{5, 5, 0, 10}).isEmpty());
    EXPECT_TRUE((Rect{5, 5, 10, -1}).isEmpty());
    EXPECT_NE((Rect{1, 2, 3, 4}), (Rect{1, 2, 3, 4.000000001}));
}

TEST(GeometryTest, ContainmentIncludesMinEdgesAndExcludesMaxEdges) {
    const Rect r{0, 0, 10, 20};
    EXPECT_TRUE(r.containsPoint({0, 0}));
    EXPECT_TRUE(r.containsPoint({9.999, 19.999}));
    EXPECT_FALSE(r.containsPoint({10, 5}));
    EXPECT_FALSE(r.containsPoint({5, 20}));
    EXPECT_FALSE((Rect{3, 3, 0, 5}).containsPoint({3, 4}));

    const Rect outer{0, 0, 10, 10};
    EXPECT_TRUE(outer.containsRect(outer));
    EXPECT_FALSE(outer.containsRect({8, 8, 3, 1}));
    EXPECT_FALSE(outer.containsRect({2, 2, 0, 3}));
}

TEST(GeometryTest, IntersectionOfOverlappingTouchingAndEmptyRects) {
    const Rect a{0, 0, 10, 10};
    const Rect b{5, -5, 10, 8};
    EXPECT_TRUE(b.intersects(a));
    EXPECT_EQ(a.intersection(b), (Rect{5, 0, 5, 3}));
    for (const Rect& other : {Rect{10, 0, 5, 10}, Rect{10, 10, 5, 5}, Rect{5, 0, 0, 10}}) {
        EXPECT_FALSE(a.intersects(other)) << other;
        EXPECT_EQ(a.intersection(other), Rect{}) << other;
    }
}

TEST(GeometryTest, UnionCoversBothAndIgnoresEmptyRects) {
    const Rect a{0, 0, 10, 10};
    EXPECT_EQ(a.unionWith({20, -5, 5, 5}), (Rect{0, -5, 25, 15}));
    EXPECT_EQ((Rect{-50, -50, 5, 0}).unionWith(a), a);
    EXPECT_EQ((Rect{3, 3, 0, 0}).unionWith({9, 9, -1, 4}), Rect{});
}

TEST(GeometryTest, InsetOffsetIntegralAndStandardized) {
    const Rect r{10, 20, 100, 50};
    EXPECT_EQ(r.center(), (Point{60, 45}));
    EXPECT_EQ(r.maxY(), 70);
    EXPECT_EQ(r.insetBy(20, 5), (Rect{30, 25, 60, 40}));
    EXPECT_EQ(r.insetBy(60, 0).size.width, -20);
    EXPECT_EQ((Rect{1, 2, 3, 4}).offsetBy(-1, 10), (Rect{0, 12, 3, 4}));
    EXPECT_EQ((Rect{0.5, -1.2, 2.0, 1.5}).integral(), (Rect{0, -2, 3, 3}));
    EXPECT_EQ((Rect{5.5, 5.5, 0, 3}).integral(), Rect{});
    EXPECT_EQ((Rect{10, 10, -4, -6}).standardized(), (Rect{6, 4, 4, 6}));
}

}  // namespace
}  // namespace qm
