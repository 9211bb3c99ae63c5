#include "support/ModelConsistency.h"

#include <cmath>
#include <cstdio>
#include <set>
#include <sstream>

#include "codec/QVTimebase.h"
#include "platform/Dispatch.h"
#include "platform/NotificationCenter.h"

namespace qm {

namespace {

std::string seconds(int64_t timestamp) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", static_cast<double>(timestamp) / static_cast<double>(QVTimebase));
    return text;
}

std::string describe(const QVClip& clip) {
    return "clip " + seconds(clip.timestampOfTrack()) + "+" + seconds(clip.trackDuration());
}

std::string describe(const std::vector<TrackSnapshot>& tracks) {
    std::string text;
    for (const auto& track : tracks) {
        if (!text.empty()) text += " ";
        text += "[";
        for (size_t i = 0; i < track.clips.size(); ++i) {
            if (i > 0) text += " ";
            text += seconds(track.clips[i].start) + "+" + seconds(track.clips[i].duration);
        }
        text += "]";
    }
    return text;
}

::testing::AssertionResult result(const std::vector<std::string>& problems) {
    if (problems.empty()) return ::testing::AssertionSuccess();
    auto failure = ::testing::AssertionFailure();
    for (const auto& problem : problems) failure << problem << "\n";
    return failure;
}

}  // namespace

std::vector<std::string> trackConsistencyProblems(const QVTrack& track) {
    std::vector<std::string> problems;
    const auto clips = track.clips();
    for (size_t i = 0; i < clips.size(); ++i) {
        const QVClip& clip = *clips[i];
        if (clip.owner().get() != &track) problems.push_back(describe(clip) + " is not owned by its track");
        if (i == 0) continue;
        const QVClip& before = *clips[i - 1];
        if (before.timestampOfTrack() >= clip.timestampOfTrack()) {
            problems.push_back(describe(clip) + " does not start after " + describe(before));
        }
        // With starts ascending, no clip contains another exactly when ends ascend too.
        if (before.trackTimeRange().end() >= clip.trackTimeRange().end()) {
            problems.push_back(describe(before) + " contains " + describe(clip));
        }
        if (i >= 2 && clips[i - 2]->trackTimeRange().end() > clip.timestampOfTrack()) {
            problems.push_back(describe(clip) + " starts before " + describe(*clips[i - 2]) +
                               " ends: three clips at one moment");
        }
    }
    return problems;
}

std::vector<std::string> modelConsistencyProblems(const QVProject& project) {
    std::vector<std::string> problems;
    std::set<const QVTrack*> tracks;
    std::set<const QVClip*> clips;
    for (const auto& track : project.tracks()) {
        if (!tracks.insert(track.get()).second) problems.push_back("a track appears twice");
        if (track->owner().get() != &project) problems.push_back("a track is not owned by the project");
        for (auto& problem : trackConsistencyProblems(*track)) problems.push_back(std::move(problem));
        for (const auto& clip : track->clips()) {
            if (!clips.insert(clip.get()).second) problems.push_back(describe(*clip) + " lies on two tracks");
        }
    }
    for (const auto& clip : project.selection()) {
        if (!clips.count(clip.get())) problems.push_back("selected " + describe(*clip) + " lies on no track");
    }
    return problems;
}

::testing::AssertionResult isConsistent(const QVTrack& track) { return result(trackConsistencyProblems(track)); }

::testing::AssertionResult isConsistent(const QVProject& project) {
    return result(modelConsistencyProblems(project));
}

ModelSnapshot ModelSnapshot::of(const QVProject& project) {
    ModelSnapshot snapshot;
    for (const auto& track : project.tracks()) {
        TrackSnapshot trackSnapshot{track.get(), track->owner().get(), track->identifier(), track->mute(),
                                    track->ignoreVideo(), track->validate(), {}};
        for (const auto& clip : track->clips()) {
            trackSnapshot.clips.push_back(ClipSnapshot{clip.get(), clip->owner().get(), clip->identifier(),
                                                       clip->timestampOfTrack(), clip->trackDuration(),
                                                       clip->trackVolume(), clip->mute(), clip->validate(),
                                                       clip->ignoreVideo()});
        }
        snapshot.tracks.push_back(std::move(trackSnapshot));
    }
    for (const auto& clip : project.selection()) snapshot.selection.push_back(clip.get());
    snapshot.currentTimestamp = project.currentTimestamp();
    return snapshot;
}

std::ostream& operator<<(std::ostream& out, const ModelSnapshot& snapshot) {
    return out << describe(snapshot.tracks) << " selected " << snapshot.selection.size() << " playhead "
               << seconds(snapshot.currentTimestamp);
}

int64_t ModelTest::sec(double seconds) { return std::llround(seconds * static_cast<double>(QVTimebase)); }

std::shared_ptr<QVClip> ModelTest::clipFromTo(double from, double to) {
    auto clip = QVClip::create();
    clip->setTrackDuration(sec(to - from));
    clip->setTimestampOfTrack(sec(from));
    return clip;
}

void ModelTest::TearDown() { MainLoop::drain(); }

void ModelTest::check() const { EXPECT_TRUE(isConsistent(*project)) << layout(); }

void ModelTest::undo() {
    undoManager->undoNestedGroup();
    check();
}

void ModelTest::redo() {
    undoManager->redo();
    check();
}

void ModelTest::expectUndoRedoExact(const std::function<void()>& edit) {
    const auto before = ModelSnapshot::of(*project);
    edit();
    check();
    const auto after = ModelSnapshot::of(*project);
    undo();
    EXPECT_EQ(ModelSnapshot::of(*project), before) << "one undo does not restore the earlier model";
    redo();
    EXPECT_EQ(ModelSnapshot::of(*project), after) << "one redo does not restore the later model";
}

std::shared_ptr<QVTrack> ModelTest::trackAt(size_t index) const {
    auto track = project->objectInTracksAtIndex(index);
    EXPECT_TRUE(track) << "no track at " << index;
    return track;
}

std::vector<std::string> ModelTest::contentMessages() {
    std::vector<std::string> names;
    auto record = [&names](const Notification& notification) { names.push_back(notification.name); };
    auto video = NotificationCenter::defaultCenter().addObserver(QVProjectVideoContentChanged, project.get(), record);
    auto audio = NotificationCenter::defaultCenter().addObserver(QVProjectAudioContentChanged, project.get(), record);
    MainLoop::drain();
    return names;
}

std::string ModelTest::layout() const { return describe(ModelSnapshot::of(*project).tracks); }

}  // namespace qm
