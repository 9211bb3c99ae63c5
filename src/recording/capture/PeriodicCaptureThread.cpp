#include "recording/capture/PeriodicCaptureThread.h"

namespace qm {

PeriodicCaptureThread::PeriodicCaptureThread(CMTime frameDuration, std::function<void()> tick)
    : _period(frameDuration.isValid() && frameDuration.value > 0
                  ? frameDuration.value * 1000000000LL / frameDuration.timescale
                  : 1000000000LL / 30),
      _tick(std::move(tick)) {
    _thread = std::thread([this] { run(); });
}

PeriodicCaptureThread::~PeriodicCaptureThread() {
    {
        std::lock_guard lock(_mutex);
        _stopping = true;
    }
    _wake.notify_all();
    _thread.join();
}

void PeriodicCaptureThread::run() {
    auto deadline = std::chrono::steady_clock::now();
    std::unique_lock lock(_mutex);
    while (!_stopping) {
        lock.unlock();
        _tick();
        lock.lock();
        deadline += _period;
        const auto now = std::chrono::steady_clock::now();
        if (deadline < now) deadline = now;
        _wake.wait_until(lock, deadline, [this] { return _stopping; });
    }
}

}  // namespace qm
