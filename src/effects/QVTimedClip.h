#pragma once

#include <cstdint>

#include "effects/QVClipStates.h"
#include "foundation/QVRange.h"

namespace qm {

// A clip as its effect and transition instances see it: where it lies on the track, whether it
// has a picture, and where its edits are undone.
class QVTimedClip : public QVClipStateOwner {
public:
    // Start on the track.
    virtual int64_t timestampOfTrack() const = 0;
    // Length on the track.
    virtual int64_t trackDuration() const = 0;
    // (timestampOfTrack, trackDuration).
    virtual QVRange trackTimeRange() const = 0;
    virtual bool videoExist() const = 0;
};

}  // namespace qm
