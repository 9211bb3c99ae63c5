#pragma once

#include <memory>

#include "effects/QVTimedClip.h"
#include "platform/UndoManager.h"

namespace qm {

// A clip reduced to what effect and transition instances ask of it, with its own undo manager.
class FakeTimedClip : public QVTimedClip {
public:
    static std::shared_ptr<FakeTimedClip> create(int64_t start, int64_t duration, bool video = true) {
        auto clip = std::make_shared<FakeTimedClip>();
        clip->start = start;
        clip->duration = duration;
        clip->video = video;
        return clip;
    }

    UndoRef undoManager() const override { return undo; }
    int64_t timestampOfTrack() const override { return start; }
    int64_t trackDuration() const override { return duration; }
    QVRange trackTimeRange() const override { return QVRange(start, duration); }
    bool videoExist() const override { return video; }

    int64_t start = 0;
    int64_t duration = 0;
    bool video = true;
    std::shared_ptr<UndoManager> undo = std::make_shared<UndoManager>();
};

}  // namespace qm
