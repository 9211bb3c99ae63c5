#pragma once

#include <cstddef>
#include <functional>

namespace qm {

// Runs body(0), ..., body(count - 1) on up to `threadCount` threads: the calling thread and helpers
// from the global dispatch queue. Returns when every call has finished. The caller works too, so
// this never waits for a busy queue: helpers that start late find nothing left and leave.
void parallelFor(size_t count, int threadCount, const std::function<void(size_t)>& body);

}  // namespace qm
