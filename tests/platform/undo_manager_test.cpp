#include "platform/UndoManager.h"

#include <gtest/gtest.h>

#include <memory>

#include "platform/NotificationCenter.h"

namespace qm {

namespace {

// A model object whose setters record their inverse, as the engine's setters do.
struct Point {
    UndoRef undo;
    int x = 0;
    int y = 0;
    bool sawUndoing = false;

    void setX(int value) {
        if (value == x) return;
        int old = x;
        sawUndoing = undo.isUndoing();
        undo.registerUndo(this, [this, old] { setX(old); });
        x = value;
    }
    void setY(int value) {
        if (value == y) return;
        int old = y;
        undo.registerUndo(this, [this, old] { setY(old); });
        y = value;
    }
};

class UndoManagerTest : public ::testing::Test {
protected:
    std::shared_ptr<UndoManager> manager = std::make_shared<UndoManager>();
    Point point{manager};
};

TEST_F(UndoManagerTest, UngroupedRecordsAreStepsOfTheirOwnAndNewRegistrationClearsRedo) {
    point.setX(1);
    point.setX(2);
    point.setY(3);
    manager->undo();
    EXPECT_EQ(point.y, 0);
    EXPECT_EQ(point.x, 2);
    EXPECT_FALSE(point.sawUndoing);
    manager->undo();
    EXPECT_EQ(point.x, 1);
    EXPECT_TRUE(point.sawUndoing);

    manager->redo();
    EXPECT_EQ(point.x, 2);
    EXPECT_FALSE(manager->isUndoing());
    point.setX(5);
    EXPECT_FALSE(manager->canRedo());
}

TEST_F(UndoManagerTest, NestedGroupsUndoInOneStepAndRedoExactly) {
    manager->beginUndoGrouping();
    point.setX(1);
    manager->beginUndoGrouping();
    point.setY(5);
    point.setX(2);
    manager->endUndoGrouping();
    point.setY(6);
    EXPECT_EQ(manager->groupingLevel(), 1);
    manager->endUndoGrouping();
    EXPECT_EQ(manager->groupingLevel(), 0);

    manager->undo();
    EXPECT_EQ(point.x, 0);
    EXPECT_EQ(point.y, 0);
    EXPECT_FALSE(manager->canUndo());

    manager->redo();
    EXPECT_EQ(point.x, 2);
    EXPECT_EQ(point.y, 6);
}

TEST_F(UndoManagerTest, UndoNestedGroupInsideAnOpenGroupTakesBackOnlyTheLastInnerGroup) {
    manager->beginUndoGrouping();
    point.setX(1);
    manager->beginUndoGrouping();
    point.setX(2);
    point.setY(3);
    manager->endUndoGrouping();

    manager->undoNestedGroup();
    EXPECT_EQ(point.x, 1);
    EXPECT_EQ(point.y, 0);
    EXPECT_EQ(manager->groupingLevel(), 1);

    manager->redo();  // back into the open group
    EXPECT_EQ(point.x, 2);
    EXPECT_EQ(point.y, 3);

    manager->endUndoGrouping();
    manager->undo();
    EXPECT_EQ(point.x, 0);
    EXPECT_EQ(point.y, 0);
    EXPECT_FALSE(manager->canUndo());
}

TEST_F(UndoManagerTest, UndoClosesAnOpenTopLevelGroupButNotNestedOnes) {
    manager->beginUndoGrouping();
    manager->beginUndoGrouping();
    point.setX(1);
    manager->undo();  // two groups open: refused
    EXPECT_EQ(point.x, 1);
    manager->endUndoGrouping();
    point.setX(2);

    manager->undo();
    EXPECT_EQ(manager->groupingLevel(), 0);
    EXPECT_EQ(point.x, 0);
}

TEST_F(UndoManagerTest, EmptyGroupsAreDropped) {
    point.setX(1);
    manager->beginUndoGrouping();
    manager->beginUndoGrouping();
    manager->endUndoGrouping();
    manager->endUndoGrouping();
    manager->undo();
    EXPECT_EQ(point.x, 0);
    EXPECT_FALSE(manager->canUndo());
}

TEST_F(UndoManagerTest, DisabledRegistrationRecordsNothing) {
    manager->disableUndoRegistration();
    manager->disableUndoRegistration();
    point.setX(1);
    manager->enableUndoRegistration();
    point.setX(2);
    EXPECT_FALSE(manager->canUndo());
    manager->enableUndoRegistration();
    point.setX(3);
    manager->undo();
    EXPECT_EQ(point.x, 2);
}

TEST_F(UndoManagerTest, RemovingATargetKeepsTheOthers) {
    Point other{manager};
    manager->beginUndoGrouping();
    point.setX(1);
    other.setX(1);
    manager->endUndoGrouping();
    point.setY(1);
    manager->removeAllActionsWithTarget(&point);
    manager->undo();
    EXPECT_EQ(other.x, 0);
    EXPECT_EQ(point.x, 1);
    EXPECT_EQ(point.y, 1);
    EXPECT_FALSE(manager->canUndo());
}

TEST_F(UndoManagerTest, PostsDidUndoAndDidRedoWithTheManager) {
    int undos = 0;
    int redos = 0;
    auto& center = NotificationCenter::defaultCenter();
    auto undoToken = center.addObserver(NSUndoManagerDidUndoChangeNotification, manager.get(),
                                        [&](const Notification&) { ++undos; });
    auto redoToken = center.addObserver(NSUndoManagerDidRedoChangeNotification, manager.get(), [&](const Notification&) {
        EXPECT_FALSE(manager->isRedoing());
        ++redos;
    });
    point.setX(1);
    manager->undo();
    manager->undo();  // nothing left: no notice
    EXPECT_EQ(undos, 1);
    EXPECT_EQ(redos, 0);
    manager->redo();
    EXPECT_EQ(redos, 1);
}

TEST(UndoRef, EveryCallOnANullManagerIsANoOp) {
    Point point;
    point.setX(4);
    UndoRef none;
    none.beginUndoGrouping();
    none.registerUndo(&point, [&] { point.x = -1; });
    none.endUndoGrouping();
    none.undo();
    EXPECT_EQ(point.x, 4);
    EXPECT_EQ(none.groupingLevel(), 0);
    EXPECT_FALSE(static_cast<bool>(none));
}

}  // namespace
}  // namespace qm
