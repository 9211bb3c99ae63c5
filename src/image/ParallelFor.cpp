#include "image/ParallelFor.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "platform/Dispatch.h"

namespace qm {

namespace {

struct Job {
    explicit Job(size_t n, const std::function<void(size_t)>* b) : count(n), body(b) {}

    // Claims and runs indexes until none are left. `body` is only touched for a claimed index, and
    // the caller waits for every claimed index, so a helper that starts after the caller returned
    // never reaches it.
    void work() {
        for (size_t i = next.fetch_add(1); i < count; i = next.fetch_add(1)) {
            (*body)(i);
            if (done.fetch_add(1) + 1 == count) {
                std::lock_guard lock(mutex);
                finished.notify_all();
            }
        }
    }

    const size_t count;
    const std::function<void(size_t)>* body;
    std::atomic<size_t> next{0};
    std::atomic<size_t> done{0};
    std::mutex mutex;
    std::condition_variable finished;
};

}  // namespace

void parallelFor(size_t count, int threadCount, const std::function<void(size_t)>& body) {
    if (count == 0) return;
    const size_t helpers = std::min(count - 1, size_t(std::max(threadCount, 1) - 1));
    if (helpers == 0) {
        for (size_t i = 0; i < count; ++i) body(i);
        return;
    }
    auto job = std::make_shared<Job>(count, &body);
    for (size_t h = 0; h < helpers; ++h)
        DispatchQueue::global(DispatchQueue::Priority::High).async([job] { job->work(); });
    job->work();
    std::unique_lock lock(job->mutex);
    job->finished.wait(lock, [&] { return job->done.load() == count; });
}

}  // namespace qm
