#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "codec/QVAudioFrame2.h"

namespace qm {

// Makes a decoded audio stream count its samples from the file's start, the origin of its
// frames' timestamps: silence goes before a stream that starts late, and the samples before
// the origin are cut from one that starts early.
class AudioStartAligner {
public:
    // Reading goes on from `timestamp`: from the origin, the next frame is taken as the stream's
    // first; from later on, frames pass as they are.
    void restartAt(int64_t timestamp) { _started = timestamp > 0; }

    // The frames to give in place of `frame`, in order: none while the stream is still before
    // the origin; for the first frame of a late stream, silence and then the frame; the frame
    // without its samples before the origin; later frames as they are.
    std::vector<std::shared_ptr<QVAudioFrame2>> align(std::shared_ptr<QVAudioFrame2> frame);

private:
    bool _started = false;
};

}  // namespace qm
