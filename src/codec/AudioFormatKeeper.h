#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "codec/QVAudioFrame2.h"
#include "codec/QVResampleContext2.h"

namespace qm {

// Keeps a decoded audio stream in the format of its first frame: later frames of another sample
// format, channel layout or rate (files joined end to end) are converted through a resampler.
class AudioFormatKeeper {
public:
    // The frame in the kept format, with its timestamp; nothing while the resampler holds back
    // all of its samples, or when the frame cannot be converted.
    std::shared_ptr<QVAudioFrame2> keep(std::shared_ptr<QVAudioFrame2> frame);

private:
    struct Format {
        int32_t sampleFormat;
        int64_t channelLayout;
        int32_t sampleRate;
    };

    std::optional<Format> _kept;
    std::shared_ptr<QVResampleContext2> _resampler;
};

}  // namespace qm
