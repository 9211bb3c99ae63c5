#include "project/QVProject.h"

#include <gtest/gtest.h>

#include "foundation/QMCommon.h"
#include "platform/Log.h"
#include "platform/Pasteboard.h"
#include "project/ProjectArchive.h"
#include "project/QVClip.h"
#include "project/QVTrack.h"
#include "support/ModelConsistency.h"
#include "support/TestEnvironment.h"

namespace qm {
namespace {

constexpr int64_t kMin = QVClip::minClipDuration;

// Every test runs with private user directories, so the pasteboard is never the user's.
class ProjectTest : public ModelTest {
protected:
    // A clip from..to seconds added through the project; checks the model.
    std::shared_ptr<QVClip> add(double from, double to) {
        auto clip = clipFromTo(from, to);
        project->addClip(clip);
        check();
        return clip;
    }

    test::PrivateUserDirectories _user{"quormedia-project-test"};
};

TEST_F(ProjectTest, OutputSizeIsRaisedToTheMinimumWithoutUndo) {
    std::vector<Rect> bounds;
    auto token = project->addObserver(
        "outBounds", [&](const KeyValueChange& change) { bounds.push_back(std::any_cast<Rect>(change.newValue)); });
    project->setOutVideoWidth(100);
    project->setOutVideoHeight(100);
    EXPECT_EQ(project->outVideoWidth(), 160);
    EXPECT_EQ(project->outVideoHeight(), 120);
    EXPECT_EQ(bounds, (std::vector<Rect>{{{0, 0}, {160, 600}}, {{0, 0}, {160, 120}}}));
    project->setBackgroundColor(Color::white());
    EXPECT_FALSE(undoManager->canUndo());
    EXPECT_TRUE(contentMessages().empty());
}

TEST_F(ProjectTest, PlayheadMovesAreUndoableUnlessNotAllowUndo) {
    std::vector<int64_t> seen;
    auto token = project->addObserver(
        "currentTimestamp", [&](const KeyValueChange& change) { seen.push_back(std::any_cast<int64_t>(change.newValue)); });
    project->setCurrentTimestamp(-1);
    EXPECT_EQ(project->currentTimestamp(), 0);
    EXPECT_FALSE(undoManager->canUndo());

    expectUndoRedoExact([&] { project->setCurrentTimestamp(sec(5)); });
    project->setNotAllowUndo(true);
    project->setCurrentTimestamp(sec(7));
    project->setNotAllowUndo(false);
    undo();
    EXPECT_EQ(project->currentTimestamp(), 0);
    EXPECT_EQ(seen, (std::vector<int64_t>{sec(5), 0, sec(5), sec(7), 0}));
}

TEST_F(ProjectTest, DurationOfFrameTruncatesAndFallsBackForZero) {
    project->setOutVideoFPS(29.97);
    EXPECT_EQ(project->durationOfFrame(), 23543543);
    project->setOutVideoFPS(-25);
    EXPECT_EQ(project->durationOfFrame(), -28224000);
    LogCapture capture;
    project->setOutVideoFPS(0);
    EXPECT_EQ(project->durationOfFrame(), 28224000);
    EXPECT_EQ(capture.count("Warning, out video FPS is zero."), 1u);
}

TEST_F(ProjectTest, AddClipMakesANewTopTrackWhenNoTrackTakesIt) {
    EXPECT_EQ(project->duration(), 0);
    auto first = add(0, 5);
    EXPECT_EQ(contentMessages().size(), 2u);

    auto lower = trackAt(0);
    auto second = clipFromTo(0, 5);
    expectUndoRedoExact([&] { project->addClip(second); });
    EXPECT_EQ(project->tracks().size(), 2u);
    EXPECT_EQ(second->owner(), trackAt(0));
    EXPECT_EQ(project->findTrackWithClip(first), lower);
    EXPECT_EQ(project->indexOfTrackWithClip(QVClip::create()), QVNotFound);
}

TEST_F(ProjectTest, AddClipsKeepsEachStartInOneStepWithOneMessage) {
    add(0, 2);
    contentMessages();
    std::vector<std::shared_ptr<QVClip>> clips{clipFromTo(1, 3), clipFromTo(1, 3), clipFromTo(6, 7)};
    expectUndoRedoExact([&] { project->addClips(clips); });
    EXPECT_EQ(layout(), "[1+2 6+1] [0+2 1+2]");
    EXPECT_EQ(contentMessages().size(), 2u);
    project->setCurrentTimestamp(sec(1.5));
    EXPECT_EQ(project->currentClips(), (std::vector<std::shared_ptr<QVClip>>{clips[1], trackAt(1)->firstClip(), clips[0]}));
}

TEST_F(ProjectTest, RemovingTheLastClipOfATrackRemovesTheTrackAndOneUndoBringsAllBack) {
    add(0, 4);
    auto clip = add(0, 4);
    project->addSelectionClip(clip);
    expectUndoRedoExact([&] { project->removeClip(clip); });
    EXPECT_EQ(project->tracks().size(), 1u);
    EXPECT_TRUE(project->selection().empty());
    undo();
    EXPECT_EQ(clip->owner(), trackAt(0));
    EXPECT_TRUE(project->clipIsSelected(clip));
}

TEST_F(ProjectTest, RemoveClipsAndRemoveSelectedClipsAreOneStepEach) {
    auto a = add(0, 2);
    auto b = add(0, 2);
    auto c = add(3, 5);
    EXPECT_EQ(layout(), "[0+2 3+2] [0+2]");
    expectUndoRedoExact([&] { project->removeClips({a, c}); });
    EXPECT_EQ(layout(), "[0+2]");
    undo();

    project->setSelection({b, c});
    contentMessages();
    expectUndoRedoExact([&] { project->removeSelectedClips(); });
    EXPECT_EQ(layout(), "[0+2]");
    EXPECT_TRUE(project->selection().empty());
    EXPECT_EQ(contentMessages().size(), 2u);
}

TEST_F(ProjectTest, RemoveAllGapsClosesEveryTrackInOneStep) {
    add(1, 3);
    add(5, 6);
    add(2, 4);
    add(3, 4);
    EXPECT_EQ(layout(), "[3+1] [1+2 2+2 5+1]");
    expectUndoRedoExact([&] { project->removeAllGaps(); });
    EXPECT_EQ(layout(), "[0+1] [0+2 1+2 3+1]");
}

TEST_F(ProjectTest, RemoveEmptyTrackAndClearData) {
    auto clip = add(0, 2);
    project->insertObjectInTracksAtIndex(QVTrack::create(), 0);
    project->addTracksObject(QVTrack::create());
    contentMessages();
    expectUndoRedoExact([&] { project->removeEmptyTrack(); });
    EXPECT_EQ(project->tracks().size(), 1u);
    EXPECT_TRUE(contentMessages().empty());

    project->setSelection({clip});
    project->clearData();
    EXPECT_TRUE(project->tracks().empty());
    EXPECT_EQ(project->selection().size(), 1u);
    EXPECT_EQ(contentMessages().size(), 2u);
    undo();
    EXPECT_EQ(project->tracks().size(), 1u);
    check();
}

TEST_F(ProjectTest, TrackPrimitivesRecordTheirInverse) {
    auto a = QVTrack::createWithProject(project);
    auto b = QVTrack::createWithProject(project);
    auto c = QVTrack::createWithProject(project);
    expectUndoRedoExact([&] { project->setTracks({a, b}); });
    expectUndoRedoExact([&] { project->insertTracks({c}, {1}); });
    EXPECT_EQ(project->tracks(), (std::vector<std::shared_ptr<QVTrack>>{a, c, b}));
    expectUndoRedoExact([&] { project->replaceObjectInTracksAtIndex(1, QVTrack::createWithProject(project)); });
    expectUndoRedoExact([&] { EXPECT_TRUE(project->removeTrack(b)); });
    EXPECT_FALSE(project->removeTrack(b));

    // insertTracks leaves owners as they were; insertObjectInTracksAtIndex sets them.
    auto loose = QVTrack::create();
    project->insertTracks({loose}, {0});
    EXPECT_FALSE(loose->owner());
    project->removeTracksAtIndexes({0});
    project->insertObjectInTracksAtIndex(loose, 0);
    EXPECT_EQ(loose->owner(), project);
    check();
}

TEST_F(ProjectTest, SelectionPrimitivesObservationAndSelectAll) {
    auto a = add(0, 2);
    auto b = add(0, 2);
    auto c = add(3, 4);
    std::vector<std::string> keys;
    std::vector<ObserverToken> tokens;
    for (const char* key : {"selection", "canCut", "canCopy"}) {
        tokens.push_back(project->addObserver(key, [&](const KeyValueChange& change) { keys.push_back(change.key); }));
    }
    EXPECT_FALSE(project->canCut());
    project->addSelectionClip(c);
    EXPECT_EQ(keys, (std::vector<std::string>{"selection", "canCut", "canCopy"}));

    expectUndoRedoExact([&] { project->selectAllClips(); });
    EXPECT_EQ(project->selection(), (std::vector<std::shared_ptr<QVClip>>{b, c, a}));
    project->removeSelectedClip(a);
    expectUndoRedoExact([&] { project->insertSelection({a, a}, {0, 3}); });
    EXPECT_EQ(project->selection(), (std::vector<std::shared_ptr<QVClip>>{a, b, c, a}));
    // Out-of-range indexes change nothing.
    project->insertSelection({a}, {9});
    EXPECT_EQ(project->selection().size(), 4u);
}

class SplitTest : public ProjectTest {
protected:
    // Selects `clips`, moves the playhead to `at`, splits in one checked, undoable step, and
    // expects `messages` content messages (video and audio per message).
    void split(const std::vector<std::shared_ptr<QVClip>>& clips, int64_t at, size_t messages = 1) {
        project->setSelection(clips);
        project->setCurrentTimestamp(at);
        contentMessages();
        expectUndoRedoExact([&] { project->splitSelectedClipAtCurrentTime(); });
        EXPECT_EQ(contentMessages().size(), 2 * messages);
    }

    // As split, for a playhead where nothing may be split: the model stays, the message comes.
    void splitNothing(const std::vector<std::shared_ptr<QVClip>>& clips, int64_t at) {
        project->setSelection(clips);
        project->setCurrentTimestamp(at);
        contentMessages();
        const auto before = ModelSnapshot::of(*project);
        project->splitSelectedClipAtCurrentTime();
        check();
        EXPECT_EQ(ModelSnapshot::of(*project), before);
        EXPECT_EQ(contentMessages().size(), 2u);
    }
};

TEST_F(SplitTest, TheClipBecomesTheRightPartAndANewUnselectedClipTheLeft) {
    auto clip = add(0, 6);
    clip->setMute(true);
    const std::string identifier = clip->identifier();
    split({clip}, sec(2));
    EXPECT_EQ(layout(), "[0+2 2+4]");
    EXPECT_EQ(clip->identifier(), identifier);
    EXPECT_EQ(project->selection(), std::vector<std::shared_ptr<QVClip>>{clip});
    EXPECT_TRUE(trackAt(0)->firstClip()->mute());
}

TEST_F(SplitTest, SplitsOnlyAtLeastMinFromEitherEnd) {
    auto clip = add(1, 5);
    splitNothing({clip}, sec(1) + kMin - 1);
    splitNothing({clip}, sec(5) - kMin + 1);

    split({clip}, sec(1) + kMin);
    EXPECT_EQ(trackAt(0)->firstClip()->trackDuration(), kMin);
    EXPECT_EQ(clip->timestampOfTrack(), sec(1.5));

    // At end - min the cut stops one unit short, so the right part keeps min + 1.
    split({clip}, sec(5) - kMin);
    EXPECT_EQ(clip->timestampOfTrack(), sec(4.5) - 1);
    EXPECT_EQ(clip->trackDuration(), kMin + 1);
    EXPECT_EQ(trackAt(0)->objectInClipsAtIndex(1)->trackTimeRange().end(), clip->timestampOfTrack());
}

TEST_F(SplitTest, TheLeftPartEndsWhereTheCutLimitsPutTheRightPart) {
    auto clip = add(0, 6);
    add(4, 10);
    split({clip}, sec(5));
    EXPECT_EQ(clip->timestampOfTrack(), sec(3.5) - 1);
    EXPECT_EQ(trackAt(0)->firstClip()->trackTimeRange().end(), sec(3.5) - 1);
}

TEST_F(SplitTest, ALeftPartTheTrackRefusesGoesToANewTopTrack) {
    add(0, 4);
    auto clip = add(3, 10);
    // The project's addClip sends a message of its own.
    split({clip}, sec(3.5), 2);
    EXPECT_EQ(layout(), "[3+0.5] [0+4 3.5+6.5]");
}

TEST_F(SplitTest, ClipsOnDifferentTracksSplitInOneStep) {
    auto bottom = add(0, 4);
    auto top = add(0, 6);
    EXPECT_EQ(layout(), "[0+6] [0+4]");
    split({top, bottom}, sec(3));
    EXPECT_EQ(layout(), "[0+3 3+3] [0+3 3+1]");
}

TEST_F(SplitTest, UndoOfASplitRunsTheClipLimitsAgain) {
    add(0, 10);
    auto clip = add(5, 20);
    project->setSelection({clip});
    project->setCurrentTimestamp(sec(19));
    project->splitSelectedClipAtCurrentTime();
    EXPECT_EQ(layout(), "[0+10 5+14 19+1]");
    // Undoing the cut sets the start first, while the clip is still one second long: the start
    // limit holds it 0.5 s past the end of its predecessor.
    undo();
    EXPECT_EQ(layout(), "[0+10 9.5+15]");
}

class PasteTest : public ProjectTest {};

TEST_F(PasteTest, PastedCopiesAllStartAtThePlayheadAndGoWhereTheyFit) {
    EXPECT_FALSE(project->canPaste());
    project->pasteClips();
    EXPECT_TRUE(project->tracks().empty());
    auto a = add(0, 2);
    auto b = add(8, 10);
    auto c = add(12, 14);
    project->setSelection({a, b, c});
    project->copySelectedClips();
    EXPECT_TRUE(project->canPaste());
    project->setCurrentTimestamp(sec(4));
    expectUndoRedoExact([&] { project->pasteClips(); });
    // One fits the gap of the busy track, the other two make new tracks, the last one on top.
    ASSERT_EQ(layout(), "[4+2] [4+2] [0+2 4+2 8+2 12+2]");
    const auto selection = project->selection();
    ASSERT_EQ(selection.size(), 3u);
    EXPECT_EQ(selection[0], trackAt(2)->objectInClipsAtIndex(1));
    EXPECT_EQ(selection[2], trackAt(0)->firstClip());
    EXPECT_NE(selection[0]->identifier(), a->identifier());
}

TEST_F(PasteTest, PasteboardHoldsAnArchiveOfCopies) {
    auto a = add(0, 2);
    a->setTrackVolume(0.5);
    project->setSelection({a});
    project->copySelectedClips();
    registerProjectArchiveClasses();
    const auto bytes = Pasteboard::generalPasteboard().dataForType(kQVCopyDataCoding);
    ASSERT_TRUE(bytes);
    auto list = std::dynamic_pointer_cast<ArchivedList>(QMCommon::unarchiveObjectWithData(*bytes));
    ASSERT_TRUE(list);
    const auto clips = list->objectsOfClass<QVClip>();
    ASSERT_EQ(clips.size(), 1u);
    EXPECT_NE(clips[0]->identifier(), a->identifier());
    EXPECT_DOUBLE_EQ(clips[0]->trackVolume(), 0.5);
}

TEST_F(ProjectTest, ArchiveKeepsTheTreeAndTheSelectionAsShared) {
    registerProjectArchiveClasses();
    add(0, 2);
    auto b = add(1, 4);
    add(0, 3);
    project->setSelection({b});
    project->setCurrentTimestamp(sec(3));
    project->setOutVideoWidth(1280);
    project->setName("Holiday");
    trackAt(0)->setLocked(true);

    const auto bytes = QMCommon::archiveRootObject(project);
    auto read = std::dynamic_pointer_cast<QVProject>(QMCommon::unarchiveObjectWithData(bytes));
    ASSERT_TRUE(read);
    EXPECT_TRUE(isConsistent(*read));
    EXPECT_EQ(read->identifier(), project->identifier());
    ASSERT_EQ(read->tracks().size(), 2u);
    ASSERT_EQ(read->selection().size(), 1u);
    EXPECT_EQ(read->selection()[0], read->tracks()[1]->objectInClipsAtIndex(1));
    EXPECT_EQ(read->outVideoWidth(), 1280);
    EXPECT_EQ(read->name(), "Holiday");
    EXPECT_FALSE(read->tracks()[0]->locked());
    EXPECT_FALSE(read->edited());
    // The playhead went through its setter: one record on the new undo manager.
    EXPECT_TRUE(read->undoManager()->canUndo());
    read->undoManager()->undo();
    EXPECT_EQ(read->currentTimestamp(), 0);
    EXPECT_FALSE(read->undoManager()->canUndo());

    project->setCurrentTimestamp(0);
    auto atZero = std::dynamic_pointer_cast<QVProject>(QMCommon::unarchiveObjectWithData(QMCommon::archiveRootObject(project)));
    ASSERT_TRUE(atZero);
    EXPECT_FALSE(atZero->undoManager()->canUndo());
}

TEST_F(ProjectTest, ArchiveWithoutKeysReadsZeroAndRaisesTheSize) {
    registerProjectArchiveClasses();
    class Bare : public Archivable {
    public:
        std::string archiveClassName() const override { return "QVProject"; }
        void encodeWithCoder(KeyedArchiver&) const override {}
    };
    auto read = std::dynamic_pointer_cast<QVProject>(
        QMCommon::unarchiveObjectWithData(QMCommon::archiveRootObject(std::make_shared<Bare>())));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->outVideoWidth(), 160);
    EXPECT_EQ(read->outVideoHeight(), 120);
    EXPECT_FALSE(read->backgroundColor());
}

TEST_F(ProjectTest, UndoRecordsHoldRemovedObjectsButNotTheProject) {
    auto manager = std::make_shared<UndoManager>();
    auto alone = QVProject::createWithUndoManager(manager);
    auto clip = clipFromTo(0, 2);
    alone->addClip(clip);
    alone->setSelection({clip});
    alone->removeSelectedClips();
    std::weak_ptr<QVProject> weakProject = alone;
    std::weak_ptr<QVClip> weakClip = clip;
    alone.reset();
    clip.reset();
    EXPECT_TRUE(weakProject.expired());
    // The removal records keep the removed clip and track, so that undo can put them back.
    EXPECT_FALSE(weakClip.expired());
    manager->removeAllActions();
    EXPECT_TRUE(weakClip.expired());
}

}  // namespace
}  // namespace qm
