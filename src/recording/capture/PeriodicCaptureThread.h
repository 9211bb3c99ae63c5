#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "recording/capture/CaptureTypes.h"

namespace qm {

// Calls `tick` on its own thread once per period of `frameDuration`, from its construction until
// its destruction. A tick that overruns gives up the periods it missed rather than bunching them.
class PeriodicCaptureThread {
public:
    PeriodicCaptureThread(CMTime frameDuration, std::function<void()> tick);
    ~PeriodicCaptureThread();
    PeriodicCaptureThread(const PeriodicCaptureThread&) = delete;
    PeriodicCaptureThread& operator=(const PeriodicCaptureThread&) = delete;

private:
    void run();

    std::chrono::nanoseconds _period;
    std::function<void()> _tick;
    std::mutex _mutex;
    std::condition_variable _wake;
    bool _stopping = false;
    std::thread _thread;
};

}  // namespace qm
