#include "project/QVTrack.h"

#include <gtest/gtest.h>

#include "foundation/QVSampleDescription.h"
#include "project/ProjectArchive.h"
#include "project/QVClip.h"
#include "support/ModelConsistency.h"

namespace qm {
namespace {

class TrackTest : public ModelTest {
protected:
    void SetUp() override {
        project->addTracksObject(track);
        undoManager->removeAllActions();
    }

    // Adds clips from..to seconds, each expected to be accepted; checks the model after each.
    void place(const std::vector<std::pair<double, double>>& spans) {
        for (const auto& [from, to] : spans) {
            EXPECT_TRUE(track->addClip(clipFromTo(from, to))) << from << " to " << to;
            check();
        }
    }

    // The offered clip is refused, and nothing at all changes.
    void expectRefused(double from, double to) {
        const auto before = ModelSnapshot::of(*project);
        const bool couldUndo = undoManager->canUndo();
        auto clip = clipFromTo(from, to);
        EXPECT_FALSE(track->addClip(clip)) << from << " to " << to;
        EXPECT_FALSE(clip->owner());
        EXPECT_EQ(ModelSnapshot::of(*project), before);
        EXPECT_EQ(undoManager->canUndo(), couldUndo);
        check();
    }

    std::shared_ptr<QVTrack> track = QVTrack::create();
};

TEST_F(TrackTest, EmptyTrackAnswersNothing) {
    EXPECT_EQ(track->duration(), 0);
    EXPECT_TRUE(track->findClipsAtTimestamp(0).empty());
    EXPECT_FALSE(track->prevousClip(QVClip::create()));
    EXPECT_FALSE(track->objectInClipsAtIndex(0));
    EXPECT_EQ(track->findPositionWithTimestamp(5), 0u);
}

TEST_F(TrackTest, ClipsThatOnlyTouchGoInWithoutOverlapInOrder) {
    place({{2, 4}, {4, 6}, {0, 2}});
    EXPECT_EQ(layout(), "[0+2 2+2 4+2]");
    EXPECT_EQ(track->duration(), sec(6));
    // A clip starting at the time lies before the position.
    EXPECT_EQ(track->findPositionWithTimestamp(sec(2)), 2u);
    EXPECT_EQ(track->findPositionWithTimestamp(sec(2) - 1), 1u);
}

TEST_F(TrackTest, OneOverlapGoesOnTheSideOfItsStart) {
    place({{0, 4}, {3, 6}});
    EXPECT_EQ(layout(), "[0+4 3+3]");
    place({{10, 14}, {8, 11}});
    EXPECT_EQ(layout(), "[0+4 3+3 8+3 10+4]");
}

TEST_F(TrackTest, ContainmentEitherWayIsRefused) {
    place({{2, 6}});
    for (const auto& [from, to] : {std::pair{2.0, 6.0}, {2.0, 8.0}, {3.0, 5.0}, {1.0, 7.0}}) expectRefused(from, to);
}

TEST_F(TrackTest, AClipBridgingTwoSeparateClipsLandsBetweenThem) {
    place({{0, 5}, {7, 12}});
    place({{4, 8}});
    EXPECT_EQ(layout(), "[0+5 4+4 7+5]");
}

TEST_F(TrackTest, TwoOverlapsAreRefusedOnContainmentOrWhenTheyOverlapEachOther) {
    place({{0, 5}, {3, 12}});
    // Those two overlap already: a third clip at one moment.
    expectRefused(4, 13);
    // The first contains the new clip.
    expectRefused(1, 4.5);
    // The new clip contains the second.
    auto other = QVTrack::create();
    project->addTracksObject(other);
    ASSERT_TRUE(other->addClip(clipFromTo(0, 5)));
    ASSERT_TRUE(other->addClip(clipFromTo(6, 8)));
    EXPECT_FALSE(other->addClip(clipFromTo(4, 9)));
    // Three overlaps.
    ASSERT_TRUE(other->addClip(clipFromTo(9, 10)));
    EXPECT_FALSE(other->addClip(clipFromTo(4.5, 9.5)));
    EXPECT_EQ(other->clips().size(), 3u);
    check();
}

TEST_F(TrackTest, InsertionAndRemovalAreUndoneByIndex) {
    place({{0, 2}, {4, 6}});
    auto clip = clipFromTo(2, 4);
    expectUndoRedoExact([&] { EXPECT_TRUE(track->addClip(clip)); });
    EXPECT_EQ(track->indexOfObjectInClips(clip), 1u);
    expectUndoRedoExact([&] { track->removeClip(clip); });
    EXPECT_EQ(track->indexOfObjectInClips(clip), QVNotFound);
    // A removed clip still names its last track.
    EXPECT_EQ(clip->owner(), track);
    undo();
    EXPECT_EQ(track->objectInClipsAtIndex(1), clip);
}

TEST_F(TrackTest, NeighboursAndLookups) {
    place({{0, 3}, {2, 5}, {6, 8}});
    const auto clips = track->clips();
    EXPECT_EQ(track->prevousClip(clips[1]), clips[0]);
    EXPECT_FALSE(track->nextClip(clips[2]));
    EXPECT_EQ(track->findClipsAtTimestamp(sec(2.5)), (std::vector<std::shared_ptr<QVClip>>{clips[0], clips[1]}));
    EXPECT_EQ(track->findClipsAtTimestamp(sec(5)), std::vector<std::shared_ptr<QVClip>>{});
    // containClip compares identifiers; a copy has its own.
    EXPECT_TRUE(track->containClip(clips[2]));
    EXPECT_FALSE(track->containClip(clips[2]->copy()));
    EXPECT_EQ(track->numberOfSamplesWithDescription(QVSampleDescription(48000, 2, 1, 3)), 8 * 48000);
}

TEST_F(TrackTest, RemoveGapBeforeClipMovesItAndEverythingBehind) {
    place({{0, 2}, {5, 7}, {6, 9}});
    contentMessages();
    expectUndoRedoExact([&] { track->removeGapBeforeClip(track->objectInClipsAtIndex(1)); });
    EXPECT_EQ(layout(), "[0+2 2+2 3+3]");
    EXPECT_EQ(contentMessages().size(), 2u);

    // No gap before the first clip at 0: no message.
    track->removeGapBeforeClip(track->firstClip());
    EXPECT_TRUE(contentMessages().empty());
}

TEST_F(TrackTest, RemoveAllGapsKeepsOverlaps) {
    place({{1, 3}, {2, 5}, {7, 8}});
    contentMessages();
    expectUndoRedoExact([&] { track->removeAllGaps(); });
    EXPECT_EQ(layout(), "[0+2 1+3 4+1]");
    EXPECT_EQ(contentMessages().size(), 2u);

    // Nothing to shift: no message.
    track->removeAllGaps();
    EXPECT_TRUE(contentMessages().empty());
}

TEST_F(TrackTest, FlagsUndoExceptLocked) {
    expectUndoRedoExact([&] { track->setValidate(false); });
    undoManager->removeAllActions();
    track->setLocked(true);
    EXPECT_FALSE(undoManager->canUndo());
}

TEST_F(TrackTest, ObserversHearClipsMuteAndLocked) {
    std::vector<std::string> keys;
    std::vector<ObserverToken> tokens;
    for (const char* key : {"clips", "mute", "locked"}) {
        tokens.push_back(track->addObserver(key, [&](const KeyValueChange& change) { keys.push_back(change.key); }));
    }
    place({{0, 1}});
    track->setMute(true);
    track->setLocked(true);
    undo();
    EXPECT_EQ(keys, (std::vector<std::string>{"clips", "mute", "locked", "mute"}));
}

TEST_F(TrackTest, ArchiveKeepsClipsAndFlagsButNotLockOrPlacement) {
    registerProjectArchiveClasses();
    place({{0, 2}, {1, 3}});
    track->setMute(true);
    track->setLocked(true);
    // Appended without the placement rule: reading must not run it either.
    track->addClipsObject(clipFromTo(0, 2));

    const auto bytes = KeyedArchiver::archivedDataWithRootObject(track);
    auto read = std::dynamic_pointer_cast<QVTrack>(KeyedUnarchiver::unarchiveObjectWithData(bytes));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->identifier(), track->identifier());
    EXPECT_TRUE(read->mute());
    EXPECT_FALSE(read->locked());
    ASSERT_EQ(read->clips().size(), 3u);
    EXPECT_EQ(read->clips()[1]->owner(), read);
    EXPECT_EQ(read->clips()[1]->identifier(), track->clips()[1]->identifier());
    EXPECT_FALSE(isConsistent(*read));
}

}  // namespace
}  // namespace qm
