#include "recording/capture/CaptureClock.h"

#include <cmath>

namespace qm {

CMTime captureClockNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return captureTimeFromTimespec(now);
}

CMTime captureTimeFromTimespec(const timespec& time) {
    return CMTime::make(static_cast<int64_t>(time.tv_sec) * kCaptureClockTimescale + time.tv_nsec,
                        kCaptureClockTimescale);
}

CMTime captureTimeOffsetBySeconds(CMTime time, double seconds) {
    return CMTime::make(time.value + std::llround(seconds * kCaptureClockTimescale), time.timescale);
}

}  // namespace qm
