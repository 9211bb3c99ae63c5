#include "effects/QVTransitionInstance.h"

#include <gtest/gtest.h>

#include <ostream>
#include <set>
#include <thread>
#include <vector>

#include "FakeTimedClip.h"
#include "effects/QVEffectInstance.h"
#include "platform/Log.h"

namespace qm {
namespace {

constexpr int64_t kSecond = QVTimebase;

// validate, trackLength, trackStart, trackEnd, and the warnings they logged.
struct Answers {
    bool validate;
    int64_t length;
    int64_t start;
    int64_t end;
    size_t warnings;

    friend bool operator==(const Answers&, const Answers&) = default;
    friend std::ostream& operator<<(std::ostream& out, const Answers& a) {
        return out << "{" << a.validate << ", " << a.length << ", " << a.start << ", " << a.end << ", " << a.warnings
                   << "}";
    }
};

Answers answersOf(const QVTransitionInstance& transition) {
    LogCapture capture;
    Answers answers{transition.validate(), transition.trackLength(), transition.trackStart(), transition.trackEnd(), 0};
    answers.warnings = capture.count("Warning: No transition exist.");
    return answers;
}

// A start clip from 3 s to 8 s and an end clip from 7 s.
struct TwoClips {
    TwoClips() { transition->setEndClip(end); }

    std::shared_ptr<FakeTimedClip> start = FakeTimedClip::create(3 * kSecond, 5 * kSecond);
    std::shared_ptr<FakeTimedClip> end = FakeTimedClip::create(7 * kSecond, 4 * kSecond);
    std::shared_ptr<QVTransitionInstance> transition =
        QVTransitionInstance::createWithTransitionName(PSTransitionDissolveName, start);
};

TEST(TransitionInstanceTest, NewInstanceHasNothingToDrawAndSaysNothing) {
    auto transition = QVTransitionInstance::create();
    EXPECT_EQ(transition->transitionName(), "Fade");
    EXPECT_FALSE(transition->allowTransitionToTile());
    EXPECT_EQ(transition->transitionToTileLength(), 2 * kSecond);
    EXPECT_EQ(answersOf(*transition), (Answers{false, 0, 0, 0, 0}));
}

TEST(TransitionInstanceTest, OverlapRows) {
    TwoClips clips;
    EXPECT_EQ(answersOf(*clips.transition), (Answers{true, kSecond, 7 * kSecond, 8 * kSecond, 0}));

    // Touching or apart: trackStart fails with the start clip's end, trackEnd with 0.
    for (int64_t endStart : {8 * kSecond, 9 * kSecond}) {
        clips.end->start = endStart;
        EXPECT_EQ(answersOf(*clips.transition), (Answers{false, 0, 8 * kSecond, 0, 2})) << endStart;
    }
    clips.end->start = 7 * kSecond;

    // Only trackEnd does not ask for the start clip's video.
    clips.start->video = false;
    EXPECT_EQ(answersOf(*clips.transition), (Answers{false, 0, 0, 8 * kSecond, 0}));
    clips.start->video = true;

    clips.end->video = false;
    EXPECT_EQ(answersOf(*clips.transition), (Answers{false, 0, 0, 0, 2}));
    // Neither link keeps its clip alive.
    clips.end.reset();
    EXPECT_EQ(answersOf(*clips.transition), (Answers{false, 0, 0, 0, 2}));
    clips.start.reset();
    EXPECT_EQ(answersOf(*clips.transition), (Answers{false, 0, 0, 0, 0}));
}

TEST(TransitionInstanceTest, TileRowsIgnoreTheEndClip) {
    TwoClips clips;
    std::vector<int64_t> lengths;
    auto token = clips.transition->addObserver("trackLength", [&](const KeyValueChange& change) {
        lengths.push_back(std::any_cast<int64_t>(change.newValue));
    });
    clips.transition->setAllowTransitionToTile(true);
    clips.transition->setEndClip(nullptr);
    EXPECT_EQ(answersOf(*clips.transition), (Answers{true, 2 * kSecond, 6 * kSecond, 8 * kSecond, 0}));

    // A 1 s clip: the default 2 s cover all of it, from its start.
    clips.start->duration = kSecond;
    EXPECT_EQ(answersOf(*clips.transition), (Answers{true, kSecond, 3 * kSecond, 4 * kSecond, 0}));
    clips.transition->setTransitionToTileLength(kSecond / 2);
    EXPECT_EQ(answersOf(*clips.transition), (Answers{true, kSecond / 2, 3 * kSecond + kSecond / 2, 4 * kSecond, 0}));
    clips.transition->setTransitionToTileLength(0);
    EXPECT_EQ(answersOf(*clips.transition), (Answers{false, 0, 4 * kSecond, 4 * kSecond, 0}));
    EXPECT_EQ(lengths, (std::vector<int64_t>{2 * kSecond, kSecond / 2, 0}));

    clips.transition->setTransitionToTileLength(kSecond);
    clips.start->video = false;
    EXPECT_EQ(answersOf(*clips.transition), (Answers{false, 0, 0, 4 * kSecond, 0}));
    // The tile settings are not undoable.
    EXPECT_FALSE(clips.start->undo->canUndo());
}

TEST(TransitionInstanceTest, RenameIsUndoableAndRebuildsTheCache) {
    TwoClips clips;
    const auto dissolve = clips.transition->transition();
    EXPECT_EQ(dissolve->name(), "Dissolve");
    EXPECT_EQ(clips.transition->transition(), dissolve);

    clips.transition->setTransitionName(PSTransitionRippleName);
    EXPECT_EQ(clips.transition->transition()->name(), "Ripple");
    clips.start->undo->undo();
    EXPECT_EQ(clips.transition->transitionName(), "Dissolve");
    EXPECT_EQ(clips.transition->transition()->name(), "Dissolve");
    EXPECT_NE(clips.transition->transition(), dissolve);
    EXPECT_FALSE(clips.start->undo->canUndo());
    clips.start->undo->redo();
    EXPECT_EQ(clips.transition->transition()->name(), "Ripple");

    EXPECT_EQ(QVTransitionInstance::createWithTransitionName("No such one")->transition()->name(), "None");
}

TEST(TransitionInstanceTest, RandomDrawsEveryEntryAndIsUndoable) {
    auto loose = QVTransitionInstance::create();
    const auto& names = PSTransition::supportTransitions();
    std::set<std::string> drawn;
    // 2000 draws miss one of 39 entries with a chance of about 1e-21.
    for (int i = 0; i < 2000; ++i) {
        loose->randomTransition();
        drawn.insert(loose->transitionName());
    }
    EXPECT_EQ(drawn, std::set<std::string>(names.begin(), names.end()));

    TwoClips clips;
    clips.transition->randomTransition();
    EXPECT_EQ(clips.transition->transition()->name(), clips.transition->transitionName());
    ASSERT_TRUE(clips.start->undo->canUndo());
    clips.start->undo->undo();
    EXPECT_EQ(clips.transition->transitionName(), "Dissolve");
}

TEST(TransitionInstanceTest, ThreadsRacingForTheCacheShareOneObject) {
    auto transition = QVTransitionInstance::createWithTransitionName(PSTransitionSwipeName);
    std::vector<std::shared_ptr<PSTransition>> seen(4);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < seen.size(); ++i) threads.emplace_back([&, i] { seen[i] = transition->transition(); });
    for (auto& thread : threads) thread.join();
    for (const auto& each : seen) EXPECT_EQ(each, transition->transition());
    EXPECT_EQ(seen[0]->name(), "Swipe(Left)");
}

TEST(TransitionInstanceTest, CopyAndArchiveKeepNameFlagAndLengthButNoClips) {
    QVEffectInstance::registerArchiveClasses();
    TwoClips clips;
    clips.transition->setAllowTransitionToTile(true);
    clips.transition->setTransitionToTileLength(kSecond / 3);

    auto copy = clips.transition->copy();
    auto read = std::dynamic_pointer_cast<QVTransitionInstance>(
        KeyedUnarchiver::unarchiveObjectWithData(KeyedArchiver::archivedDataWithRootObject(clips.transition)));
    ASSERT_TRUE(read);
    for (const auto& other : {copy, read}) {
        EXPECT_EQ(other->transitionName(), "Dissolve");
        EXPECT_TRUE(other->allowTransitionToTile());
        EXPECT_EQ(other->transitionToTileLength(), kSecond / 3);
        EXPECT_FALSE(other->startClip());
        EXPECT_FALSE(other->endClip());
    }
    copy->setTransitionToTileLength(kSecond);
    EXPECT_EQ(clips.transition->transitionToTileLength(), kSecond / 3);

    KeyedArchiver sparse;
    sparse.encodeString("transitionName", "Flash");
    auto reader = KeyedUnarchiver::createForReadingWithData(sparse.finishEncoding());
    ASSERT_TRUE(reader);
    auto partial = QVTransitionInstance::createWithCoder(*reader);
    EXPECT_EQ(partial->transitionName(), "Flash");
    EXPECT_EQ(partial->transitionToTileLength(), 0);
}

}  // namespace
}  // namespace qm
