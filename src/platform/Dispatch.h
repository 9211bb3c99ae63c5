#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace qm {

using DispatchTask = std::function<void()>;

class DispatchQueueImpl;

// A queue of tasks in the manner of a GCD queue.
//
// Serial queues run their tasks one at a time, in FIFO order, on a worker thread that ends once the
// queue has been idle for a moment. Global queues run tasks concurrently on one shared pool of workers
// sized to the hardware. The main queue runs its tasks only on the main thread, when MainLoop (or a
// host's event loop calling MainLoop::drain) drains it.
//
// A queue's state lives as long as work for it is pending: dropping the last reference to a serial
// queue with queued tasks is safe and the tasks still run.
class DispatchQueue {
public:
    enum class Priority { High, Default, Low, Background };

    // A new serial queue.
    static std::shared_ptr<DispatchQueue> createSerial(std::string label = {});
    // The serial queue of the main thread.
    static DispatchQueue& main();
    // The concurrent queue of `priority`. All priorities share one pool of hardware_concurrency
    // workers; queued tasks of a higher priority are started before those of a lower one. A worker
    // blocked in sync, a group wait or a semaphore wait is replaced while it waits, so tasks that
    // wait for other tasks of the pool cannot starve it.
    static DispatchQueue& global(Priority priority = Priority::Default);

    ~DispatchQueue();
    DispatchQueue(const DispatchQueue&) = delete;
    DispatchQueue& operator=(const DispatchQueue&) = delete;

    const std::string& label() const;

    // Queues `task` and returns at once.
    void async(DispatchTask task);

    // Runs `task` within the queue and returns when it has finished.
    // - Serial queue: waits for the tasks queued before it, then runs `task` on the calling thread
    //   while the queue is held. Calling it from code already running within this queue (a task, or a
    //   sync block, also nested through other queues) runs `task` inline instead of deadlocking.
    // - Main queue: on the main thread runs inline; elsewhere blocks until the main loop has run it.
    // - Global queue: runs inline on the calling thread.
    void sync(const std::function<void()>& task);

    // Queues `task` once `delay` has passed (dispatch_after). Tasks with equal deadlines are queued
    // in the order they were given.
    void after(std::chrono::nanoseconds delay, DispatchTask task);

    // True while the calling code runs within this queue: one of its tasks or a sync block on it (for
    // the main queue: on the main thread).
    bool isCurrent() const;

private:
    friend class DispatchGroup;
    explicit DispatchQueue(std::shared_ptr<DispatchQueueImpl> impl);

    std::shared_ptr<DispatchQueueImpl> _impl;
};

// Drives the main queue. The first thread that calls run, runUntil or drain becomes the main thread;
// on any other thread these do nothing.
class MainLoop {
public:
    // Drains the main queue as work arrives until stop() is called. A stop() that comes while no
    // run() is under way ends the next run() at once.
    static void run();
    // Ends run(); callable from any thread.
    static void stop();
    // Drains the main queue (and with it the `after` timers aimed at it) until `predicate` is true or
    // `timeout` has passed; gives the predicate's last answer. The predicate is checked after every
    // drain and at least every few milliseconds, so it may also watch state set by other threads.
    static bool runUntil(const std::function<bool()>& predicate, std::chrono::nanoseconds timeout);
    // Runs the tasks queued on main at the time of the call; gives how many ran.
    static size_t drain();
    // True on the main thread (false everywhere until a main thread exists).
    static bool isMainThread();
    // `handler` is called, on the posting thread, whenever work is posted to the main queue, so that
    // a host's event loop can schedule a drain(). An empty function removes it.
    static void setWakeUpHandler(std::function<void()> handler);
};

// Tracks a set of tasks: enter/leave pairs, waits for all of them, or runs a task when they are done.
// Work in flight keeps the group's state alive, so the group may be destroyed before it finishes.
class DispatchGroup {
public:
    DispatchGroup();
    ~DispatchGroup();
    DispatchGroup(const DispatchGroup&) = delete;
    DispatchGroup& operator=(const DispatchGroup&) = delete;

    void enter();
    // A leave without a matching enter is ignored and logged.
    void leave();
    // enter(), then queues `task` followed by leave() on `queue`.
    void async(DispatchQueue& queue, DispatchTask task);
    // Blocks until every entered task has left.
    void wait();
    // As wait(); false if `timeout` passed first.
    bool wait(std::chrono::nanoseconds timeout);
    // Queues `task` on `queue` once every entered task has left (at once if none is pending).
    void notify(DispatchQueue& queue, DispatchTask task);

private:
    struct State;
    std::shared_ptr<State> _state;
};

// A counting semaphore: wait() takes one unit, blocking while none is there; signal() gives one back.
class DispatchSemaphore {
public:
    explicit DispatchSemaphore(long value = 0);
    DispatchSemaphore(const DispatchSemaphore&) = delete;
    DispatchSemaphore& operator=(const DispatchSemaphore&) = delete;

    void signal();
    void wait();
    // False if `timeout` passed before a unit was available; no unit is taken then.
    bool wait(std::chrono::nanoseconds timeout);

private:
    std::mutex _mutex;
    std::condition_variable _available;
    long _value;
};

// dispatch_once: runs `fn` the first time `flag` is passed, once per process.
template <typename Fn>
void dispatchOnce(std::once_flag& flag, Fn&& fn) {
    std::call_once(flag, std::forward<Fn>(fn));
}

}  // namespace qm
