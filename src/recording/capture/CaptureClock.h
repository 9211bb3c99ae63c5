#pragma once

#include <ctime>

#include "codec/MediaSampleBuffer.h"

namespace qm {

// Every captured picture and sound is stamped on CLOCK_MONOTONIC in nanoseconds, so that the
// media of one session line up however their devices deliver.
inline constexpr int32_t kCaptureClockTimescale = 1000000000;

// The capture clock's time now.
CMTime captureClockNow();
// A CLOCK_MONOTONIC time as a capture time.
CMTime captureTimeFromTimespec(const timespec& time);
// `time` moved by `seconds` (negative for earlier).
CMTime captureTimeOffsetBySeconds(CMTime time, double seconds);

}  // namespace qm
