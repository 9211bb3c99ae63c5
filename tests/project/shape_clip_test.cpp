#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "project/QVProject.h"
#include "project/QVShapeClip.h"
#include "project/QVTrack.h"

namespace qm {
namespace {

using Pixel = std::array<uint8_t, 4>;
const Pixel kRed{255, 0, 0, 255};
const Pixel kBlue{0, 0, 255, 255};
const Pixel kClear{0, 0, 0, 0};

// The pixel whose lower left corner is at canvas (x, y) of a picture of the shape.
Pixel at(const Bitmap& bitmap, int x, int y) { return bitmap.pixelAt(x, bitmap.height() - 1 - y); }

void expectRectNear(const Rect& actual, const Rect& expected, double tolerance = 1e-6) {
    EXPECT_NEAR(actual.minX(), expected.minX(), tolerance);
    EXPECT_NEAR(actual.minY(), expected.minY(), tolerance);
    EXPECT_NEAR(actual.width(), expected.width(), tolerance);
    EXPECT_NEAR(actual.height(), expected.height(), tolerance);
}

class ShapeClipTest : public ::testing::Test {
protected:
    template <class Clip>
    std::shared_ptr<Clip> owned(std::shared_ptr<Clip> clip) {
        project->addClip(clip);
        project->undoManager()->removeAllActions();
        return clip;
    }
    void undo() { project->undoManager()->undo(); }
    int undoSteps() {
        int steps = 0;
        while (project->undoManager()->canUndo()) {
            undo();
            ++steps;
        }
        return steps;
    }

    std::shared_ptr<QVProject> project = QVProject::create();
};

TEST_F(ShapeClipTest, KindsAnswerTheirTypeTitleAndAbilities) {
    const std::vector<std::shared_ptr<QVShapeClip>> clips{
        QVRectShapeClip::shapeClipWithRect({0, 0, 10, 10}),
        QVEllipseShapeClip::shapeClipWithEllipseInRect({0, 0, 10, 10}),
        QVLineShapeClip::shapeClipWithLineStartPoint({0, 0}, {5, 5}),
        QVArrowShapeClip::shapeClipWithArrawStartPoint({0, 0}, {5, 5}), QVShapeClip::create()};
    const char* titles[] = {"Rectangle", "Ellipse", "Line", "Arrow", "Custom Shape"};
    const bool resize[] = {true, true, false, false, false};
    const bool round[] = {true, false, false, false, false};
    const bool rotate[] = {true, true, false, false, true};
    const bool fill[] = {true, true, false, false, true};
    for (size_t i = 0; i < clips.size(); ++i) {
        EXPECT_EQ(clips[i]->shapeType(), static_cast<int>(i));
        EXPECT_EQ(clips[i]->title(), titles[i]);
        EXPECT_EQ(clips[i]->allowResizeBounds(), resize[i]) << titles[i];
        EXPECT_EQ(clips[i]->allowRoundRadius(), round[i]) << titles[i];
        EXPECT_EQ(clips[i]->allowRotate(), rotate[i]) << titles[i];
        EXPECT_EQ(clips[i]->canFill(), fill[i]) << titles[i];
        EXPECT_EQ(clips[i]->strokeColor(), (Color{1, 1, 0, 1}));
        EXPECT_EQ(clips[i]->fillColor(), Color::clear());
    }
}

TEST_F(ShapeClipTest, LineWidthIsAtLeastOneAndEmptyShapesDrawNothing) {
    auto shape = QVShapeClip::create();
    shape->setLineWidth(0.2);
    EXPECT_EQ(shape->lineWidth(), 1.0);
    EXPECT_EQ(shape->bounds(), Rect{});
    EXPECT_FALSE(shape->outputCgImage());
    EXPECT_FALSE(shape->imageAtSourceTimestamp(0));
    shape->setFillColor(std::nullopt);
    EXPECT_EQ(shape->fillColor(), Color::black());
}

TEST_F(ShapeClipTest, FreeFormBoundsAreThePathGrownByTheLineWidthAndOnlyMove) {
    BezierPath path = BezierPath::bezierPathWithRect({10, 20, 30, 40});
    auto shape = owned(QVShapeClip::shapeClipWithPath(path));
    EXPECT_EQ(shape->bounds(), (Rect{9, 19, 32, 42}));
    EXPECT_EQ(shape->clipPosition()->bounds(), shape->bounds());
    shape->setBounds({50, 60, 5, 5});
    EXPECT_EQ(shape->bounds(), (Rect{50, 60, 32, 42}));
    EXPECT_EQ(shape->clipPosition()->bounds(), shape->bounds());
    shape->setLineWidth(3);
    EXPECT_EQ(shape->bounds(), (Rect{50, 60, 36, 46}));
    EXPECT_EQ(undoSteps(), 2);
    EXPECT_EQ(shape->bounds(), (Rect{9, 19, 32, 42}));
    EXPECT_EQ(shape->clipPosition()->bounds(), shape->bounds());
}

// A 20 x 10 rectangle and ellipse with a line width of 3, red outline, blue fill.
TEST_F(ShapeClipTest, RectangleAndEllipseInsetByHalfTheWidthRoundedOrNot) {
    auto rect = QVRectShapeClip::shapeClipWithRect({100, 50, 20, 10});
    auto ellipse = QVEllipseShapeClip::shapeClipWithEllipseInRect({100, 50, 20, 10});
    for (const std::shared_ptr<QVShapeClip>& clip :
         {std::shared_ptr<QVShapeClip>(rect), std::shared_ptr<QVShapeClip>(ellipse)}) {
        clip->setLineWidth(3);
        clip->setStrokeColor(Color{1, 0, 0, 1});
        clip->setFillColor(Color{0, 0, 1, 1});
    }
    const auto r = rect->outputCgImage();
    ASSERT_TRUE(r);
    EXPECT_EQ(r->width(), 20);
    EXPECT_EQ(r->height(), 10);
    // The rectangle's path is inset by 2 and moved back by 0.5: outline over x 0..3 and 16..19.
    EXPECT_EQ(at(*r, 0, 5), kRed);
    EXPECT_EQ(at(*r, 2, 5), kRed);
    EXPECT_EQ(at(*r, 10, 5), kBlue);
    EXPECT_EQ(at(*r, 18, 5), kRed);
    EXPECT_EQ(at(*r, 19, 5), kClear);
    EXPECT_EQ(at(*r, 10, 0), kRed);
    EXPECT_EQ(at(*r, 10, 9), kClear);
    // The ellipse's path is inset by 1.5: its outline reaches the last column.
    const auto e = ellipse->outputCgImage();
    ASSERT_TRUE(e);
    EXPECT_GT(at(*e, 19, 5)[0], 200);
    EXPECT_EQ(at(*e, 10, 5), kBlue);
    EXPECT_LT(at(*e, 0, 0)[3], 40);
}

TEST_F(ShapeClipTest, RoundedCornersAndResizing) {
    auto rect = owned(QVRectShapeClip::shapeClipWithRect({0, 0, 40, 40}, 12, 12));
    rect->setStrokeColor(Color{1, 0, 0, 1});
    rect->setFillColor(Color{1, 0, 0, 1});
    const auto rounded = rect->outputCgImage();
    EXPECT_EQ(at(*rounded, 1, 1), kClear);
    EXPECT_EQ(at(*rounded, 20, 1), kRed);
    rect->setBounds({5, 5, 60, 30});
    EXPECT_EQ(rect->clipPosition()->bounds(), (Rect{5, 5, 60, 30}));
    EXPECT_EQ(rect->outputCgImage()->width(), 60);
    undo();
    EXPECT_EQ(rect->bounds(), (Rect{0, 0, 40, 40}));
    EXPECT_EQ(rect->clipPosition()->bounds(), (Rect{0, 0, 40, 40}));
    EXPECT_EQ(rect->outputCgImage()->width(), 40);
}

TEST_F(ShapeClipTest, MovingThePositionMovesTheShapeAsOneStep) {
    auto rect = owned(QVRectShapeClip::shapeClipWithRect({0, 0, 40, 30}));
    rect->clipPosition()->setLocation({50, 60});
    EXPECT_EQ(rect->bounds(), (Rect{50, 60, 40, 30}));
    rect->clipPosition()->setWidth(80);
    EXPECT_EQ(rect->bounds(), (Rect{50, 60, 80, 30}));
    EXPECT_EQ(rect->outputCgImage()->width(), 80);
    EXPECT_EQ(undoSteps(), 2);
    EXPECT_EQ(rect->bounds(), (Rect{0, 0, 40, 30}));
    EXPECT_EQ(rect->clipPosition()->bounds(), (Rect{0, 0, 40, 30}));

    // A line moves with its position, but keeps its size.
    auto line = owned(QVLineShapeClip::shapeClipWithLineStartPoint({10, 10}, {50, 10}));
    line->clipPosition()->setBounds({19.5, 29.5, 999, 999});
    EXPECT_EQ(line->startPoint(), (Point{20, 30}));
    EXPECT_EQ(line->endPoint(), (Point{60, 30}));
    EXPECT_EQ(line->clipPosition()->bounds(), (Rect{19.5, 29.5, 41, 1}));
    EXPECT_EQ(undoSteps(), 1);
    EXPECT_EQ(line->startPoint(), (Point{10, 10}));
    EXPECT_EQ(line->clipPosition()->bounds(), (Rect{9.5, 9.5, 41, 1}));

    // A copy's position drives the copy, not the original.
    auto copy = std::dynamic_pointer_cast<QVRectShapeClip>(rect->copy());
    copy->clipPosition()->setLocation({5, 5});
    EXPECT_EQ(copy->bounds(), (Rect{5, 5, 40, 30}));
    EXPECT_EQ(rect->bounds(), (Rect{0, 0, 40, 30}));
}

TEST_F(ShapeClipTest, ThePositionReadsTheShapeAndTellsItsObserversOfShapeChanges) {
    auto line = owned(QVLineShapeClip::shapeClipWithLineStartPoint({10, 10}, {50, 10}));
    const auto position = line->clipPosition();
    EXPECT_EQ(position->shapeClipOwner(), std::dynamic_pointer_cast<QVShapeGeometry>(line));
    std::vector<std::string> told;
    std::vector<ObserverToken> tokens;
    for (const char* key : {"positionX", "positionY", "width", "height", "bounds"}) {
        tokens.push_back(position->addObserver(key, [&told, key](const KeyValueChange&) { told.push_back(key); }));
    }
    line->setEndPoint({50, 40});
    EXPECT_EQ(position->bounds(), (Rect{9.5, 9.5, 41, 31}));
    EXPECT_EQ(position->height(), 31);
    // "width" hears only changes of the position's own size.
    std::sort(told.begin(), told.end());
    EXPECT_EQ(told, (std::vector<std::string>{"bounds", "height", "positionX", "positionY"}));

    // A copy keeps the shape's geometry in its own fields and has no owner.
    const auto copy = position->copy();
    EXPECT_EQ(copy->shapeClipOwner(), nullptr);
    EXPECT_EQ(copy->bounds(), (Rect{9.5, 9.5, 41, 31}));

    // The position's own edits stay undoable beside the shape's.
    position->setRotateAngle(30);
    position->setPositionX(100);
    EXPECT_EQ(line->startPoint(), (Point{100.5, 10}));
    EXPECT_EQ(undoSteps(), 3);
    EXPECT_EQ(position->rotateAngle(), 0);
    EXPECT_EQ(line->endPoint(), (Point{50, 10}));
}

TEST_F(ShapeClipTest, LineBoundsGrowByHalfTheWidthAndMovingIsOneStep) {
    auto line = owned(QVLineShapeClip::shapeClipWithLineStartPoint({10, 10}, {50, 10}));
    line->setLineWidth(4);
    EXPECT_EQ(line->bounds(), (Rect{8, 8, 44, 4}));
    line->setStrokeColor(Color{1, 0, 0, 1});
    const auto picture = line->outputCgImage();
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->width(), 44);
    EXPECT_EQ(picture->height(), 4);
    EXPECT_EQ(at(*picture, 22, 1), kRed);
    // Round caps: the ends of the middle rows are inked, the corners only partly.
    EXPECT_GT(at(*picture, 0, 2)[3], 200);
    EXPECT_LT(at(*picture, 0, 0)[3], 200);
    undoSteps();
    line->setLineWidth(4);
    project->undoManager()->removeAllActions();

    line->setBounds({18, 28, 1, 1});
    EXPECT_EQ(line->startPoint(), (Point{20, 30}));
    EXPECT_EQ(line->endPoint(), (Point{60, 30}));
    EXPECT_EQ(line->clipPosition()->location(), (Point{18, 28}));
    EXPECT_EQ(undoSteps(), 1);
    EXPECT_EQ(line->startPoint(), (Point{10, 10}));
    EXPECT_EQ(line->endPoint(), (Point{50, 10}));
}

TEST_F(ShapeClipTest, ArrowAnglesAndHeads) {
    EXPECT_EQ(QVShapeClip::angleWithPoint({0, 0}, {0, 10}), 90.0);
    EXPECT_EQ(QVShapeClip::angleWithPoint({0, 10}, {0, 0}), -90.0);
    EXPECT_EQ(QVShapeClip::angleWithPoint({0, 0}, {-5, 0}), 180.0);
    EXPECT_NEAR(QVShapeClip::angleWithPoint({0, 0}, {5, 5}), 45.0, 1e-4);
    EXPECT_NEAR(QVShapeClip::angleWithPoint({0, 0}, {-5, -5}), 225.0, 1e-4);

    // Width 2: heads of half-height 4 and length 4 / tan 30 = 6.928.
    const double back = 4 / std::tan(30.0 * M_PI / 180.0);
    const auto single = QVShapeClip::bezierPathWithArrowStart({0, 0}, {100, 0}, 2, false);
    ASSERT_TRUE(single);
    expectRectNear(single->bounds(), {0, -4, 100, 8}, 1e-3);
    ASSERT_EQ(single->elements().size(), 5u);
    EXPECT_NEAR(single->elements()[2].points[0].x, 100 - back, 1e-3);
    const auto both = QVShapeClip::bezierPathWithArrowStart({0, 0}, {100, 0}, 2, true);
    ASSERT_EQ(both->elements().size(), 9u);
    EXPECT_NEAR(both->elements()[6].points[0].x, back, 1e-3);
    EXPECT_NEAR(both->elements()[6].points[0].y, 4, 1e-3);
    EXPECT_NEAR(both->elements()[8].points[0].y, -4, 1e-3);
    const auto up = QVShapeClip::bezierPathWithArrowStart({0, 0}, {0, 100}, 2, false);
    expectRectNear(up->bounds(), {-4, 0, 8, 100}, 1e-2);
    EXPECT_NEAR(up->elements()[2].points[0].y, 100 - back, 1e-2);
    EXPECT_EQ(up->lineCapStyle(), BezierPath::LineCapStyle::Round);
    EXPECT_EQ(up->lineJoinStyle(), BezierPath::LineJoinStyle::Round);
    EXPECT_FALSE(QVShapeClip::bezierPathWithArrowStart({3, 3}, {3, 3}, 2, false));

    auto degenerate = QVArrowShapeClip::shapeClipWithArrawStartPoint({3, 3}, {3, 3});
    EXPECT_EQ(degenerate->bounds(), Rect{});
    EXPECT_FALSE(degenerate->outputCgImage());
    auto arrow = QVArrowShapeClip::shapeClipWithArrawStartPoint({0, 0}, {40, 0});
    arrow->setLineWidth(2);
    expectRectNear(arrow->bounds(), {-1, -5, 42, 10}, 1e-3);
}

TEST_F(ShapeClipTest, DoubleArrowHeadsMirrorEachOther) {
    auto arrow = QVArrowShapeClip::shapeClipWithArrawStartPoint({0, 0}, {60, 0});
    arrow->setLineWidth(2);
    arrow->setDoubleArrow(true);
    arrow->resetCacheImage();
    const auto picture = arrow->outputCgImage();
    ASSERT_TRUE(picture);
    // The ink is symmetric left to right, row by row (up to antialiasing): both heads have the
    // same size and point outwards.
    for (int y = 0; y < picture->height(); ++y) {
        int left = 0, right = 0;
        for (int x = 0; x < picture->width() / 2; ++x) {
            left += picture->pixelAt(x, y)[3];
            right += picture->pixelAt(picture->width() - 1 - x, y)[3];
        }
        EXPECT_NEAR(left, right, 0.03 * std::max(left, right) + 2) << y;
    }
    // Above the shaft near each end, a head's stroke; in the middle, nothing.
    EXPECT_GT(at(*picture, 5, 7)[3], 100);
    EXPECT_GT(at(*picture, picture->width() - 6, 7)[3], 100);
    EXPECT_EQ(at(*picture, picture->width() / 2, 8)[3], 0);
}

TEST_F(ShapeClipTest, OpacityIsKeptButLeavesThePicture) {
    auto rect = owned(QVRectShapeClip::shapeClipWithRect({0, 0, 16, 16}));
    rect->setFillColor(Color{0, 1, 0, 1});
    const auto before = rect->outputCgImage();
    rect->setOpacity(0.25);
    EXPECT_EQ(rect->opacity(), 0.25);
    const auto after = rect->outputCgImage();
    EXPECT_NE(after, before);
    EXPECT_EQ(std::vector<uint8_t>(after->data(), after->data() + 16 * 16 * 4),
              std::vector<uint8_t>(before->data(), before->data() + 16 * 16 * 4));
    rect->setOpacity(0.25 + 1e-7);
    EXPECT_EQ(undoSteps(), 2);
    EXPECT_EQ(rect->opacity(), 1.0);
}

TEST_F(ShapeClipTest, CopiesCarryTheShape) {
    auto rect = QVRectShapeClip::shapeClipWithRect({3, 4, 30, 20}, 5, 6);
    rect->setLineWidth(2.5);
    rect->setStrokeColor(Color{0, 1, 1, 1});
    auto rectCopy = std::dynamic_pointer_cast<QVRectShapeClip>(rect->copy());
    ASSERT_TRUE(rectCopy);
    EXPECT_EQ(rectCopy->bounds(), (Rect{3, 4, 30, 20}));
    EXPECT_EQ(rectCopy->xRadius(), 5);
    EXPECT_EQ(rectCopy->yRadius(), 6);
    EXPECT_EQ(rectCopy->lineWidth(), 2.5);
    EXPECT_EQ(rectCopy->strokeColor(), (Color{0, 1, 1, 1}));
    EXPECT_EQ(rectCopy->clipPosition()->bounds(), (Rect{3, 4, 30, 20}));
    EXPECT_TRUE(std::dynamic_pointer_cast<QVEllipseShapeClip>(
        QVEllipseShapeClip::shapeClipWithEllipseInRect({0, 0, 5, 5})->copy()));
    auto arrow = QVArrowShapeClip::shapeClipWithArrawStartPoint({1, 2}, {30, 40});
    arrow->setDoubleArrow(true);
    auto arrowCopy = std::dynamic_pointer_cast<QVArrowShapeClip>(arrow->copy());
    ASSERT_TRUE(arrowCopy);
    EXPECT_EQ(arrowCopy->startPoint(), (Point{1, 2}));
    EXPECT_EQ(arrowCopy->endPoint(), (Point{30, 40}));
    EXPECT_TRUE(arrowCopy->doubleArrow());
}

}  // namespace
}  // namespace qm
