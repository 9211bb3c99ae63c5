#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <vector>

#include "codec/QVTimebase.h"
#include "platform/Dispatch.h"
#include "platform/Log.h"
#include "platform/NotificationCenter.h"
#include "platform/UndoManager.h"
#include "playback/QVPlayerViewCtrl.h"
#include "project/QVClip.h"
#include "project/QVProject.h"
#include "project/QVTrack.h"

#include "support/ModelConsistency.h"

namespace qm {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Records what the controller asks of its view, with the project's timestamp at each redraw.
class FakePlayerView : public QVPlayerViewInterface {
public:
    struct Redraw {
        Clock::time_point when;
        int64_t timestamp;
        bool playing;
    };

    void reloadData() override { ++reloadDataCount; }
    void reloadContent(bool playing) override {
        redraws.push_back({Clock::now(), delegate ? delegate->QVPlayerViewCurrentTimestamps(*this) : -1, playing});
    }
    void reloadSelected() override { ++reloadSelectedCount; }
    bool hasSuperview() const override { return inWindow; }
    void setDelegate(QVPlayerViewDelegate* d) override { delegate = d; }

    void postFrameChanged() { NotificationCenter::defaultCenter().post(QVPlayerViewFrameDidChangeNotification, this); }

    bool inWindow = true;
    QVPlayerViewDelegate* delegate = nullptr;
    int reloadDataCount = 0;
    int reloadSelectedCount = 0;
    std::vector<Redraw> redraws;
};

class CountingDelegate : public QVPlayerViewCtrlDelegate {
public:
    void QVPlayerViewCtrlCompletePlay(QVPlayerViewCtrl&) override { ++completions; }
    int completions = 0;
};

class PlayerViewCtrlTest : public ModelTest {
protected:
    static void SetUpTestSuite() { setenv("SDL_AUDIODRIVER", "dummy", 1); }

    void SetUp() override {
        project->setOutVideoWidth(160);
        project->setOutVideoHeight(120);
        ctrl->setView(&view);
        ctrl->setProject(project);
        ctrl->setDelegate(delegate);
    }

    void TearDown() override {
        ctrl->pause();
        // Lets a pass of the video loop that is under way see the stop.
        MainLoop::runUntil([] { return false; }, 150ms);
        ctrl->setView(nullptr);
        ModelTest::TearDown();
    }

    // A project of one clip from 0 to `seconds`.
    void fillProject(double seconds) {
        auto track = QVTrack::createWithProject(project);
        project->addTracksObject(track);
        ASSERT_TRUE(track->addClip(clipFromTo(0, seconds)));
        project->setCurrentTimestamp(0);
        MainLoop::runUntil([] { return false; }, 10ms);
    }

    bool runUntil(const std::function<bool()>& predicate, std::chrono::nanoseconds timeout = 10s) {
        return MainLoop::runUntil(predicate, timeout);
    }

    size_t playingRedraws() const {
        size_t count = 0;
        for (const auto& redraw : view.redraws) count += redraw.playing;
        return count;
    }

    FakePlayerView view;
    std::shared_ptr<CountingDelegate> delegate = std::make_shared<CountingDelegate>();
    std::shared_ptr<QVPlayerViewCtrl> ctrl = QVPlayerViewCtrl::create();
};

double seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

TEST_F(PlayerViewCtrlTest, DefaultPlaybackFormatIsFloatStereoAt48kHz) {
    const auto format = QVPlayerViewCtrl::defaultAudioStreamBasicDescription();
    EXPECT_EQ(format.mSampleRate, 48000.0);
    EXPECT_EQ(format.mFormatFlags, 9u);
    EXPECT_EQ(format.mBytesPerPacket, 8u);
    EXPECT_EQ(format.mFramesPerPacket, 1u);
    EXPECT_EQ(format.mBytesPerFrame, 8u);
    EXPECT_EQ(format.mChannelsPerFrame, 2u);
    EXPECT_EQ(format.mBitsPerChannel, 32u);
    EXPECT_EQ(ctrl->delayPerFrame(), 0.03999999910593033);
}

TEST_F(PlayerViewCtrlTest, VideoLoopTimestampsFollowTheWallClockFromTheStart) {
    fillProject(10);
    project->setCurrentTimestamp(sec(2));
    undoManager->removeAllActions();
    view.redraws.clear();
    const auto before = Clock::now();
    ASSERT_TRUE(ctrl->play());
    const auto after = Clock::now();
    // Long enough that a clock that stood still would be far off by the last frames.
    ASSERT_TRUE(runUntil([&] { return playingRedraws() >= 8 && Clock::now() - after > 800ms; }));
    ctrl->pause();

    ASSERT_GE(view.redraws.size(), 9u);
    for (const auto& redraw : view.redraws) {
        if (!redraw.playing) continue;
        // The loop reads the clock between the start and the redraw; the main queue may hold the
        // redraw back by a few milliseconds.
        const double shown = double(redraw.timestamp - sec(2)) / QVTimebase;
        EXPECT_LE(shown, seconds(redraw.when - before) + 1e-6);
        EXPECT_GE(shown, seconds(redraw.when - after) - 0.25);
    }
    EXPECT_FALSE(view.redraws.back().playing) << "pause redraws as stopped";
    EXPECT_FALSE(undoManager->canUndo()) << "the loop's timestamps are not undoable";
}

TEST_F(PlayerViewCtrlTest, TimestampsSetByTheLoopAreNeverSeeks) {
    fillProject(10);
    bool sawSeekFlag = false;
    // Added after the controller's observer, so it runs right after it for the same change.
    auto token = project->addObserver("currentTimestamp", [&](const KeyValueChange&) {
        sawSeekFlag = sawSeekFlag || ctrl->isVideoSeek() || ctrl->isAudioSeek();
    });
    ASSERT_TRUE(ctrl->play());
    ASSERT_TRUE(runUntil([&] { return playingRedraws() >= 6; }));
    EXPECT_FALSE(sawSeekFlag);
    EXPECT_TRUE(ctrl->respondTimestampChanged());
}

TEST_F(PlayerViewCtrlTest, SeekWhilePlayingReanchorsBothClocks) {
    fillProject(20);
    ASSERT_TRUE(ctrl->play());
    ASSERT_TRUE(runUntil([&] { return playingRedraws() >= 2; }));

    project->setCurrentTimestamp(sec(8));
    const auto seekedAt = Clock::now();
    EXPECT_EQ(ctrl->seekTimestamp(), sec(8));
    EXPECT_EQ(ctrl->state(), 1) << "a seek keeps playing";
    EXPECT_TRUE(ctrl->isVideoSeek());

    const size_t redrawsBefore = view.redraws.size();
    ASSERT_TRUE(
        runUntil([&] { return view.redraws.size() >= redrawsBefore + 3 && ctrl->indexOfSampleStart() > 8 * 48000; }));
    const auto checkedAt = Clock::now();
    for (size_t i = redrawsBefore; i < view.redraws.size(); ++i) {
        const double shown = double(view.redraws[i].timestamp - sec(8)) / QVTimebase;
        EXPECT_GE(shown, 0.0);
        EXPECT_LE(shown, seconds(view.redraws[i].when - seekedAt) + 1e-6);
    }
    // The fill restarted at sample 8 * 48000 and has delivered whole blocks since.
    const int64_t index = ctrl->indexOfSampleStart();
    EXPECT_GE(index, 8 * 48000 + 512);
    EXPECT_LE(index, 8 * 48000 + int64_t(48000 * seconds(Clock::now() - seekedAt)) + 4 * 512);
    EXPECT_LT(checkedAt - seekedAt, 10s);
}

TEST_F(PlayerViewCtrlTest, AudioAloneDrivesTheTimestampAndTheEnd) {
    fillProject(0.5);
    view.inWindow = false;
    ASSERT_TRUE(ctrl->play());
    EXPECT_FALSE(ctrl->validateVideo());
    ASSERT_TRUE(runUntil([&] { return ctrl->state() == 0; }));
    MainLoop::runUntil([] { return false; }, 100ms);

    // 24000 samples take 47 blocks of 512; the last block ends at sample 24064.
    EXPECT_EQ(project->currentTimestamp(), int64_t(double(QVTimebase) * (24064 / 48000.0)));
    EXPECT_EQ(ctrl->indexOfSampleStart(), 24064);
    EXPECT_EQ(delegate->completions, 1);
    EXPECT_EQ(playingRedraws(), 0u) << "no video loop without a visible view";
    EXPECT_FALSE(ctrl->audioPlayer()->isPlaying());
}

TEST_F(PlayerViewCtrlTest, AudioOnlyPlaybackOfAnEmptyProjectEndsAtOnce) {
    view.inWindow = false;
    ASSERT_TRUE(ctrl->play());
    ASSERT_TRUE(runUntil([&] { return ctrl->state() == 0; }));
    MainLoop::runUntil([] { return false; }, 50ms);
    EXPECT_EQ(delegate->completions, 1);
    EXPECT_EQ(project->currentTimestamp(), 0);
}

TEST_F(PlayerViewCtrlTest, ReachingTheEndWithVideoEndsPlayOnce) {
    fillProject(0.3);
    ASSERT_TRUE(ctrl->play());
    ASSERT_TRUE(runUntil([&] { return ctrl->state() == 0; }));
    MainLoop::runUntil([] { return false; }, 200ms);
    EXPECT_EQ(delegate->completions, 1);
    EXPECT_GE(project->currentTimestamp(), project->duration());
    EXPECT_FALSE(ctrl->audioPlayer()->isPlaying());
}

TEST_F(PlayerViewCtrlTest, PlayAndPauseActOnlyInTheirState) {
    fillProject(10);
    ctrl->pause();
    EXPECT_TRUE(view.redraws.empty()) << "pause while stopped does nothing";

    ASSERT_TRUE(ctrl->play());
    EXPECT_EQ(ctrl->state(), 1);
    EXPECT_FALSE(ctrl->play());
    EXPECT_EQ(ctrl->state(), 1);
    ctrl->pause();
    EXPECT_EQ(ctrl->state(), 0);
    EXPECT_FALSE(ctrl->audioPlayer()->isPlaying());
    ASSERT_FALSE(view.redraws.empty());
    EXPECT_FALSE(view.redraws.back().playing);
    MainLoop::runUntil([] { return false; }, 150ms);
    EXPECT_EQ(delegate->completions, 0);
}

TEST_F(PlayerViewCtrlTest, AnEditOfThePicturePausesAndReloads) {
    fillProject(10);
    ASSERT_TRUE(ctrl->play());
    const int reloadsBefore = view.reloadDataCount;

    auto other = QVProject::create();
    NotificationCenter::defaultCenter().post(QVProjectVideoContentChanged, other.get());
    EXPECT_EQ(ctrl->state(), 1) << "another project's edit";

    project->notifyVideoContentChangedMsg();
    ASSERT_TRUE(runUntil([&] { return ctrl->state() == 0; }, 2s));
    EXPECT_EQ(view.reloadDataCount, reloadsBefore + 1);
}

TEST_F(PlayerViewCtrlTest, ObservedChangesReachTheView) {
    fillProject(10);
    const int data = view.reloadDataCount;
    project->setOutVideoWidth(320);
    project->setOutVideoHeight(240);
    view.postFrameChanged();
    EXPECT_EQ(view.reloadDataCount, data + 3);

    view.redraws.clear();
    project->setCurrentTimestamp(sec(1));
    ASSERT_EQ(view.redraws.size(), 1u);
    EXPECT_FALSE(view.redraws[0].playing);
    EXPECT_EQ(view.redraws[0].timestamp, sec(1));
    EXPECT_FALSE(ctrl->isVideoSeek()) << "stopped, a timestamp change is no seek";

    project->setSelection({project->tracks()[0]->clips()[0]});
    EXPECT_EQ(view.reloadSelectedCount, 1);
    ASSERT_TRUE(ctrl->play());
    project->setSelection({});
    EXPECT_EQ(view.reloadSelectedCount, 1) << "not while playing";
}

TEST_F(PlayerViewCtrlTest, SetProjectMovesTheObservations) {
    auto other = QVProject::create();
    const int data = view.reloadDataCount;
    ctrl->setProject(other);
    EXPECT_EQ(view.reloadDataCount, data + 1);
    project->setOutVideoWidth(640);
    EXPECT_EQ(view.reloadDataCount, data + 1) << "the old project is no longer observed";
    other->setOutVideoWidth(640);
    EXPECT_EQ(view.reloadDataCount, data + 2);
}

TEST_F(PlayerViewCtrlTest, UndoAndRedoGoToTheProjectsManager) {
    EXPECT_FALSE(ctrl->validateMenuItem("undo:"));
    EXPECT_FALSE(ctrl->validateMenuItem("redo:"));
    project->setCurrentTimestamp(sec(3));
    EXPECT_TRUE(ctrl->validateMenuItem("undo:"));
    EXPECT_FALSE(ctrl->validateMenuItem("copy:"));
    ctrl->undo();
    EXPECT_EQ(project->currentTimestamp(), 0);
    EXPECT_TRUE(ctrl->validateMenuItem("redo:"));
    ctrl->redo();
    EXPECT_EQ(project->currentTimestamp(), sec(3));
}

// Answers every shape question with fixed values.
class ShapeDelegate : public QVPlayerViewCtrlDelegate {
public:
    std::optional<bool> QVPlayerViewCtrlAllowCreateShape(QVPlayerViewCtrl&) override { return true; }
    std::optional<int32_t> QVPlayerViewCtrlCurrentShapeType(QVPlayerViewCtrl&) override { return 3; }
    std::optional<Color> QVPlayerViewCtrlCurrentShapeFillColor(QVPlayerViewCtrl&) override { return Color{1, 0, 0, 1}; }
    std::optional<Color> QVPlayerViewCtrlCurrentShapeStrokeColor(QVPlayerViewCtrl&) override {
        return Color{0, 0, 1, 1};
    }
    std::optional<double> QVPlayerViewCtrlCurrentShapeLineWidth(QVPlayerViewCtrl&) override { return 4.5; }
    std::optional<Size> QVPlayerViewCtrlCurrentShapeRoundSize(QVPlayerViewCtrl&) override { return Size{6, 7}; }
    void QVPlayerViewCtrlDidCreateShapeClip(QVPlayerViewCtrl&, const std::shared_ptr<QVClip>& clip) override {
        created = clip;
    }
    std::shared_ptr<QVClip> created;
};

TEST_F(PlayerViewCtrlTest, ViewQuestionsWithoutProjectOrAnsweringDelegate) {
    ctrl->setProject(nullptr);
    ctrl->setDelegate(nullptr);
    EXPECT_EQ(ctrl->QVPlayerViewSourceSize(view), (Size{0, 0}));
    EXPECT_TRUE(ctrl->QVPlayerViewCurrentContent(view).isNull());
    EXPECT_EQ(ctrl->QVPlayerViewCurrentTimestamps(view), 0);
    EXPECT_TRUE(ctrl->QVPlayerViewCurrentSelection(view).empty());
    EXPECT_TRUE(ctrl->QVPlayerViewCurrentClips(view).empty());
    EXPECT_FALSE(ctrl->QVPlayerViewAllowCreateShape(view));
    EXPECT_EQ(ctrl->QVPlayerViewCurrentShapeType(view), 0);
    EXPECT_EQ(ctrl->QVPlayerViewCurrentShapeFillColor(view), Color::black());
    EXPECT_EQ(ctrl->QVPlayerViewCurrentShapeStrokeColor(view), Color::white());
    EXPECT_EQ(ctrl->QVPlayerViewCurrentShapeLineWidth(view), 1.0);
    EXPECT_EQ(ctrl->QVPlayerViewCurrentShapeRoundSize(view), (Size{0, 0}));

    ctrl->setDelegate(delegate);
    EXPECT_FALSE(ctrl->QVPlayerViewAllowCreateShape(view)) << "a delegate that does not answer";
    EXPECT_EQ(ctrl->QVPlayerViewCurrentShapeLineWidth(view), 1.0);
}

TEST_F(PlayerViewCtrlTest, ViewQuestionsAnsweredFromProjectAndDelegate) {
    fillProject(4);
    project->setCurrentTimestamp(sec(1.5));
    project->setSelection({project->tracks()[0]->clips()[0]});
    auto shapes = std::make_shared<ShapeDelegate>();
    ctrl->setDelegate(shapes);

    EXPECT_EQ(view.delegate, ctrl.get());
    EXPECT_EQ(ctrl->QVPlayerViewSourceSize(view), (Size{160, 120}));
    EXPECT_EQ(ctrl->QVPlayerViewCurrentTimestamps(view), sec(1.5));
    EXPECT_EQ(ctrl->QVPlayerViewCurrentSelection(view), project->selection());
    ASSERT_EQ(ctrl->QVPlayerViewCurrentClips(view).size(), 1u);
    EXPECT_EQ(ctrl->QVPlayerViewCurrentClips(view)[0], project->tracks()[0]->clips()[0]);
    EXPECT_EQ(ctrl->QVPlayerViewCurrentContent(view).extent(), project->currentImageForExport(false).extent());
    EXPECT_TRUE(ctrl->QVPlayerViewAllowCreateShape(view));
    EXPECT_EQ(ctrl->QVPlayerViewCurrentShapeType(view), 3);
    EXPECT_EQ(ctrl->QVPlayerViewCurrentShapeFillColor(view), (Color{1, 0, 0, 1}));
    EXPECT_EQ(ctrl->QVPlayerViewCurrentShapeStrokeColor(view), (Color{0, 0, 1, 1}));
    EXPECT_EQ(ctrl->QVPlayerViewCurrentShapeLineWidth(view), 4.5);
    EXPECT_EQ(ctrl->QVPlayerViewCurrentShapeRoundSize(view), (Size{6, 7}));
    auto clip = clipFromTo(0, 1);
    ctrl->QVPlayerViewDidCreateShapeClip(view, clip);
    EXPECT_EQ(shapes->created, clip);

    ASSERT_TRUE(ctrl->play());
    EXPECT_FALSE(ctrl->QVPlayerViewAllowCreateShape(view)) << "not while playing";
}

}  // namespace
}  // namespace qm
