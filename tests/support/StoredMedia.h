#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "foundation/QVSampleDescription.h"
#include "platform/Bitmap.h"
#include "store/SCResource.h"

namespace qm::test {

// Stored resources made directly in the store, without import: the samples and frames are known
// exactly, so tests can compare what comes back value by value.

struct StoredAudioPlan {
    int64_t sampleRate = 48000;
    int64_t channels = 2;
    // A packed format, 0 to 4.
    int32_t sampleFormat = QVSampleFormatS16;
    int64_t numberOfSamples = 48000;
    // Samples per stored block.
    int64_t blockSamples = 1024;
    // The value of a sample position and channel, full scale -1 to 1.
    std::function<double(int64_t position, int64_t channel)> signal;
};

// A sine of `frequency` Hz at half scale on every channel, the second channel a quarter turn late.
std::function<double(int64_t, int64_t)> sineSignal(double frequency, int64_t sampleRate);
// The same value everywhere.
std::function<double(int64_t, int64_t)> constantSignal(double value);

// A record holding only stored audio.
std::shared_ptr<SCResource> storedAudioResource(const StoredAudioPlan& plan);

// A record holding only stored video: `frameCount` frames of `frameDuration` time units, frame i
// a solid picture of grey level storedFrameGrey(i).
std::shared_ptr<SCResource> storedVideoResource(int frameCount, int64_t frameDuration, int width = 64, int height = 48);

// The grey level of frame i of storedVideoResource: 40 + 20 * i, modulo 256.
uint8_t storedFrameGrey(int index);

// A record holding one PNG picture written to `path`, of one colour.
std::shared_ptr<SCResource> storedImageResource(const std::string& path, int width, int height);

}  // namespace qm::test
