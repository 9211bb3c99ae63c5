#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "project/QVClip.h"
#include "project/QVProject.h"
#include "project/QVTrack.h"

namespace qm {

// What is wrong with a track: clips not sorted by start (or two with one start), a clip
// containing another, three clips at one moment (clip n + 2 starting before clip n ends), or a
// clip whose owner is not the track. Empty when the track is consistent.
std::vector<std::string> trackConsistencyProblems(const QVTrack& track);
// The problems of every track, plus tracks whose owner is not the project, a track or clip that
// appears twice, and selected clips that lie on no track of the project.
std::vector<std::string> modelConsistencyProblems(const QVProject& project);

::testing::AssertionResult isConsistent(const QVTrack& track);
::testing::AssertionResult isConsistent(const QVProject& project);

// Everything the editing model holds, with object identities, so that an undo can be checked to
// restore the exact earlier model.
struct ClipSnapshot {
    const QVClip* object = nullptr;
    const QVTrack* owner = nullptr;
    std::string identifier;
    int64_t start = 0;
    int64_t duration = 0;
    double volume = 0;
    bool mute = false;
    bool validate = false;
    bool ignoreVideo = false;

    friend bool operator==(const ClipSnapshot&, const ClipSnapshot&) = default;
};

struct TrackSnapshot {
    const QVTrack* object = nullptr;
    const QVProject* owner = nullptr;
    std::string identifier;
    bool mute = false;
    bool ignoreVideo = false;
    bool validate = false;
    std::vector<ClipSnapshot> clips;

    friend bool operator==(const TrackSnapshot&, const TrackSnapshot&) = default;
};

struct ModelSnapshot {
    std::vector<TrackSnapshot> tracks;
    std::vector<const QVClip*> selection;
    int64_t currentTimestamp = 0;

    static ModelSnapshot of(const QVProject& project);

    friend bool operator==(const ModelSnapshot&, const ModelSnapshot&) = default;
};

// One line per track: "[start+duration ...]" in seconds, owners and identities left out.
std::ostream& operator<<(std::ostream& out, const ModelSnapshot& snapshot);

// A project with its own undo manager, and steps that check the model after each of them.
class ModelTest : public ::testing::Test {
protected:
    // Runs the content messages still queued, so none reaches a later test.
    void TearDown() override;

    // A timestamp of `seconds`, rounded to the nearest unit.
    static int64_t sec(double seconds);
    // A lone clip from `from` to `to` seconds.
    static std::shared_ptr<QVClip> clipFromTo(double from, double to);

    // Fails the test unless the model is consistent.
    void check() const;
    // Undoes one step (undoNestedGroup) or redoes one, then checks.
    void undo();
    void redo();
    // Runs `edit` as one step and checks that one undo gives back the exact model from before,
    // and one redo the exact model from after. Leaves the model as after the edit.
    void expectUndoRedoExact(const std::function<void()>& edit);
    // A track of the project at `index` (fails the test when there is none).
    std::shared_ptr<QVTrack> trackAt(size_t index) const;
    // Runs the main queue and gives the names of the content messages the project posted.
    std::vector<std::string> contentMessages();
    // The tracks as "[0+2 1+3]" lines, one per track, in seconds: start+duration.
    std::string layout() const;

    std::shared_ptr<UndoManager> undoManager = std::make_shared<UndoManager>();
    std::shared_ptr<QVProject> project = QVProject::createWithUndoManager(undoManager);
};

}  // namespace qm
