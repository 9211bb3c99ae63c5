#include "platform/Geometry.h"

#include <gtest/gtest.h>

namespace qm {
namespace {

TEST(GeometryTest, EdgesAndCentreOfARect) {
    const Rect r{10, 20, 30, 40};
    EXPECT_EQ(r.minX(), 10);
    EXPECT_EQ(r.midX(), 25);
    EXPECT_EQ(r.maxX(), 40);
    EXPECT_EQ(r.minY(), 20);
    EXPECT_EQ(r.midY(), 40);
    EXPECT_EQ(r.maxY(), 60);
    EXPECT_EQ(r.center(), (Point{25, 40}));
}

TEST(GeometryTest, EqualityIsExactPerComponent) {
    EXPECT_EQ((Rect{{1, 2}, {3, 4}}), (Rect{1, 2, 3, 4}));
    EXPECT_NE((Rect{1, 2, 3, 4}), (Rect{1, 2, 3, 4.000000001}));
    EXPECT_NE((Point{1, 2}), (Point{2, 1}));
    EXPECT_NE((Size{3, 4}), (Size{4, 3}));
    EXPECT_EQ(Rect{}, (Rect{0, 0, 0, 0}));
}

TEST(GeometryTest, EmptyWhenEitherExtentIsNotPositive) {
    EXPECT_FALSE((Rect{0, 0, 1, 1}).isEmpty());
    EXPECT_TRUE((Rect{5, 5, 0, 10}).isEmpty());
    EXPECT_TRUE((Rect{5, 5, 10, 0}).isEmpty());
    EXPECT_TRUE((Rect{5, 5, 10, -1}).isEmpty());
    EXPECT_TRUE((Rect{5, 5, -10, -1}).isEmpty());
}

TEST(GeometryTest, ContainsPointIncludesMinEdgesAndExcludesMaxEdges) {
    const Rect r{0, 0, 10, 20};
    EXPECT_TRUE(r.containsPoint({0, 0}));
    EXPECT_TRUE(r.containsPoint({9.999, 19.999}));
    EXPECT_TRUE(r.containsPoint({5, 0}));
    EXPECT_FALSE(r.containsPoint({10, 5}));
    EXPECT_FALSE(r.containsPoint({5, 20}));
    EXPECT_FALSE(r.containsPoint({10, 20}));
    EXPECT_FALSE(r.containsPoint({-0.001, 5}));
    EXPECT_FALSE((Rect{3, 3, 0, 5}).containsPoint({3, 4}));
}

TEST(GeometryTest, ContainsRectIncludesSharedEdgesButNotEmptyRects) {
    const Rect outer{0, 0, 10, 10};
    EXPECT_TRUE(outer.containsRect({2, 2, 3, 3}));
    EXPECT_TRUE(outer.containsRect(outer));
    EXPECT_TRUE(outer.containsRect({0, 5, 10, 5}));
    EXPECT_FALSE(outer.containsRect({8, 8, 3, 1}));
    EXPECT_FALSE(outer.containsRect({-1, 2, 3, 3}));
    EXPECT_FALSE(outer.containsRect({2, 2, 0, 3}));
}

TEST(GeometryTest, IntersectionOfOverlappingRects) {
    const Rect a{0, 0, 10, 10};
    const Rect b{5, -5, 10, 8};
    EXPECT_TRUE(a.intersects(b));
    EXPECT_TRUE(b.intersects(a));
    EXPECT_EQ(a.intersection(b), (Rect{5, 0, 5, 3}));
    EXPECT_EQ(b.intersection(a), (Rect{5, 0, 5, 3}));
    EXPECT_EQ(a.intersection({2, 3, 4, 5}), (Rect{2, 3, 4, 5}));
}

TEST(GeometryTest, TouchingOrDisjointRectsDoNotIntersect) {
    const Rect a{0, 0, 10, 10};
    const Rect right{10, 0, 5, 10};
    const Rect above{0, 10, 10, 5};
    const Rect corner{10, 10, 5, 5};
    const Rect far{20, 20, 5, 5};
    for (const Rect& other : {right, above, corner, far}) {
        EXPECT_FALSE(a.intersects(other)) << other;
        EXPECT_FALSE(other.intersects(a)) << other;
        EXPECT_EQ(a.intersection(other), Rect{}) << other;
    }
}

TEST(GeometryTest, EmptyRectsIntersectNothing) {
    const Rect a{0, 0, 10, 10};
    const Rect line{5, 0, 0, 10};
    EXPECT_FALSE(a.intersects(line));
    EXPECT_EQ(a.intersection(line), Rect{});
}

TEST(GeometryTest, UnionCoversBothAndIgnoresEmptyRects) {
    const Rect a{0, 0, 10, 10};
    EXPECT_EQ(a.unionWith({20, -5, 5, 5}), (Rect{0, -5, 25, 15}));
    EXPECT_EQ(a.unionWith({100, 100, 0, 0}), a);
    EXPECT_EQ((Rect{-50, -50, 5, 0}).unionWith(a), a);
    EXPECT_EQ((Rect{3, 3, 0, 0}).unionWith({9, 9, -1, 4}), Rect{});
}

TEST(GeometryTest, InsetMovesEveryEdgeAndNegativeInsetGrows) {
    const Rect r{10, 20, 100, 50};
    EXPECT_EQ(r.insetBy(20, 5), (Rect{30, 25, 60, 40}));
    EXPECT_EQ(r.insetBy(-2, -2), (Rect{8, 18, 104, 54}));
    EXPECT_TRUE(r.insetBy(60, 0).isEmpty());
    EXPECT_EQ(r.insetBy(60, 0).size.width, -20);
}

TEST(GeometryTest, OffsetMovesOriginOnly) {
    EXPECT_EQ((Rect{1, 2, 3, 4}).offsetBy(-1, 10), (Rect{0, 12, 3, 4}));
}

TEST(GeometryTest, IntegralRoundsEdgesOutwards) {
    EXPECT_EQ((Rect{0.5, -1.2, 2.0, 1.5}).integral(), (Rect{0, -2, 3, 3}));
    EXPECT_EQ((Rect{1, 2, 3, 4}).integral(), (Rect{1, 2, 3, 4}));
    EXPECT_EQ((Rect{0.2, 0.2, 0.1, 0.1}).integral(), (Rect{0, 0, 1, 1}));
    EXPECT_EQ((Rect{5.5, 5.5, 0, 3}).integral(), Rect{});
}

TEST(GeometryTest, StandardizedFlipsNegativeExtents) {
    EXPECT_EQ((Rect{10, 10, -4, -6}).standardized(), (Rect{6, 4, 4, 6}));
    EXPECT_EQ((Rect{10, 10, 4, -6}).standardized(), (Rect{10, 4, 4, 6}));
    EXPECT_EQ((Rect{10, 10, 4, 6}).standardized(), (Rect{10, 10, 4, 6}));
}

TEST(GeometryTest, Descriptions) {
    EXPECT_EQ((Point{1.5, -2}).description(), "{1.5, -2}");
    EXPECT_EQ((Size{640, 480}).description(), "{640, 480}");
    EXPECT_EQ((Rect{0, 0, 1920, 1080}).description(), "{{0, 0}, {1920, 1080}}");
}

}  // namespace
}  // namespace qm
