#include "platform/Dispatch.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <thread>
#include <vector>

#include "platform/Log.h"

namespace qm {

using Clock = std::chrono::steady_clock;

namespace {

// How long an idle serial-queue worker waits for more work before its thread ends.
constexpr auto kSerialIdle = std::chrono::milliseconds(100);
// How long an idle pool worker waits for more work before its thread ends.
constexpr auto kPoolIdle = std::chrono::seconds(1);
// How often runUntil re-checks its predicate while the main queue is empty.
constexpr auto kRunUntilPoll = std::chrono::milliseconds(5);
// Timeouts beyond this are waited as "forever" (a deadline this far out would overflow the clock).
constexpr auto kForever = std::chrono::hours(24 * 365 * 100);

// The queues whose exclusion the current thread's code runs within, innermost last.
thread_local std::vector<const DispatchQueueImpl*> tHeldQueues;
// Set on the threads of the global pool.
thread_local bool tIsPoolWorker = false;

bool isHeld(const DispatchQueueImpl* queue) {
    return std::find(tHeldQueues.begin(), tHeldQueues.end(), queue) != tHeldQueues.end();
}

// Marks the current thread as running within `queue` while it lives.
class HoldScope {
public:
    explicit HoldScope(const DispatchQueueImpl* queue) { tHeldQueues.push_back(queue); }
    ~HoldScope() { tHeldQueues.pop_back(); }
    HoldScope(const HoldScope&) = delete;
    HoldScope& operator=(const HoldScope&) = delete;
};

template <typename Predicate>
bool waitFor(std::condition_variable& cv, std::unique_lock<std::mutex>& lock, std::chrono::nanoseconds timeout,
             Predicate predicate) {
    if (timeout >= kForever) {
        cv.wait(lock, predicate);
        return true;
    }
    return cv.wait_until(lock, Clock::now() + timeout, predicate);
}

// The threads behind the global queues. A worker that blocks in a wait of this file no longer counts
// against the pool's width, so tasks that wait for other tasks of the pool cannot starve it.
class WorkerPool {
public:
    static WorkerPool& shared() {
        static WorkerPool* pool = new WorkerPool();  // never destroyed: detached workers use it to the end
        return *pool;
    }

    void submit(size_t priority, DispatchTask task) {
        std::lock_guard<std::mutex> lock(_mutex);
        _tasks[priority].push_back(std::move(task));
        ++_pending;
        if (_pending <= _idle) {
            _workAvailable.notify_one();
        } else {
            spawnIfRoom();
        }
    }

    void enterBlocking() {
        std::lock_guard<std::mutex> lock(_mutex);
        ++_blocked;
        if (_pending > _idle) spawnIfRoom();
    }

    void leaveBlocking() {
        std::lock_guard<std::mutex> lock(_mutex);
        --_blocked;
    }

private:
    WorkerPool() : _width(std::max(1u, std::thread::hardware_concurrency())) {}

    void spawnIfRoom() {
        if (_threads - _blocked >= _width) return;
        ++_threads;
        std::thread([this] { work(); }).detach();
    }

    void work() {
        tIsPoolWorker = true;
        std::unique_lock<std::mutex> lock(_mutex);
        for (;;) {
            if (_pending == 0) {
                ++_idle;
                bool woken = _workAvailable.wait_for(lock, kPoolIdle, [this] { return _pending > 0; });
                --_idle;
                if (!woken) {
                    --_threads;
                    return;
                }
            }
            DispatchTask task = takeHighest();
            lock.unlock();
            task();
            task = nullptr;
            lock.lock();
        }
    }

    DispatchTask takeHighest() {
        for (auto& queue : _tasks) {
            if (queue.empty()) continue;
            DispatchTask task = std::move(queue.front());
            queue.pop_front();
            --_pending;
            return task;
        }
        return {};
    }

    const unsigned _width;
    std::mutex _mutex;
    std::condition_variable _workAvailable;
    std::array<std::deque<DispatchTask>, 4> _tasks;  // by DispatchQueue::Priority, highest first
    unsigned _pending = 0;
    unsigned _idle = 0;
    unsigned _threads = 0;
    unsigned _blocked = 0;
};

// Tells the pool that the current thread waits, for as long as it lives.
class BlockingScope {
public:
    BlockingScope() : _poolWorker(tIsPoolWorker) {
        if (_poolWorker) WorkerPool::shared().enterBlocking();
    }
    ~BlockingScope() {
        if (_poolWorker) WorkerPool::shared().leaveBlocking();
    }
    BlockingScope(const BlockingScope&) = delete;
    BlockingScope& operator=(const BlockingScope&) = delete;

private:
    const bool _poolWorker;
};

std::atomic<std::thread::id> gMainThread{};

// Makes the calling thread the main thread if there is none yet; true if it is the main thread.
bool claimMainThread() {
    std::thread::id none;
    std::thread::id self = std::this_thread::get_id();
    gMainThread.compare_exchange_strong(none, self);
    return gMainThread.load() == self;
}

}  // namespace

class DispatchQueueImpl : public std::enable_shared_from_this<DispatchQueueImpl> {
public:
    explicit DispatchQueueImpl(std::string label) : _label(std::move(label)) {}
    virtual ~DispatchQueueImpl() = default;

    virtual void async(DispatchTask task) = 0;
    virtual void sync(const std::function<void()>& task) = 0;
    virtual bool isCurrent() const { return isHeld(this); }

    const std::string& label() const { return _label; }

private:
    const std::string _label;
};

namespace {

class SerialQueueImpl final : public DispatchQueueImpl {
public:
    using DispatchQueueImpl::DispatchQueueImpl;

    void async(DispatchTask task) override {
        std::unique_lock<std::mutex> lock(_mutex);
        _items.push_back(Item{std::move(task), nullptr});
        wakeWorker();
    }

    void sync(const std::function<void()>& task) override {
        if (isHeld(this)) {
            task();
            return;
        }
        {
            std::unique_lock<std::mutex> lock(_mutex);
            if (_held || !_items.empty()) {
                Ticket ticket;
                _items.push_back(Item{{}, &ticket});
                wakeWorker();
                BlockingScope blocking;
                ticket.turn.wait(lock, [&ticket] { return ticket.granted; });
            } else {
                _held = true;
            }
        }
        Release release{this};
        HoldScope hold(this);
        task();
    }

private:
    // A sync caller waiting in line; the worker hands the queue over to it when its turn comes.
    struct Ticket {
        std::condition_variable turn;
        bool granted = false;
    };
    struct Item {
        DispatchTask task;
        Ticket* ticket;
    };
    struct Release {
        SerialQueueImpl* queue;
        ~Release() { queue->release(); }
    };

    // Called with _mutex held, after work was queued.
    void wakeWorker() {
        if (_held) return;  // the holder hands over or wakes the worker when it lets go
        if (_workerAlive) {
            _workAvailable.notify_one();
            return;
        }
        _workerAlive = true;
        auto self = std::static_pointer_cast<SerialQueueImpl>(shared_from_this());
        std::thread([self] { self->work(); }).detach();
    }

    void release() {
        std::lock_guard<std::mutex> lock(_mutex);
        _held = false;
        if (!_items.empty()) wakeWorker();
    }

    void work() {
        std::unique_lock<std::mutex> lock(_mutex);
        for (;;) {
            if (!_workAvailable.wait_for(lock, kSerialIdle, [this] { return !_held && !_items.empty(); })) {
                _workerAlive = false;
                return;
            }
            Item item = std::move(_items.front());
            _items.pop_front();
            _held = true;
            if (item.ticket) {
                item.ticket->granted = true;
                item.ticket->turn.notify_one();
                continue;
            }
            lock.unlock();
            {
                HoldScope hold(this);
                item.task();
            }
            item.task = nullptr;
            lock.lock();
            _held = false;
        }
    }

    std::mutex _mutex;
    std::condition_variable _workAvailable;
    std::deque<Item> _items;
    bool _held = false;  // a task or a sync block is running
    bool _workerAlive = false;
};

class ConcurrentQueueImpl final : public DispatchQueueImpl {
public:
    ConcurrentQueueImpl(std::string label, size_t priority)
        : DispatchQueueImpl(std::move(label)), _priority(priority) {}

    void async(DispatchTask task) override {
        WorkerPool::shared().submit(_priority, [this, task = std::move(task)] {
            HoldScope hold(this);
            task();
        });
    }

    void sync(const std::function<void()>& task) override {
        HoldScope hold(this);
        task();
    }

private:
    const size_t _priority;
};

class MainQueueImpl final : public DispatchQueueImpl {
public:
    MainQueueImpl() : DispatchQueueImpl("main") {}

    void async(DispatchTask task) override {
        std::function<void()> wakeUp;
        {
            std::lock_guard<std::mutex> lock(_mutex);
            _tasks.push_back(std::move(task));
            _changed.notify_all();
            wakeUp = _wakeUp;
        }
        if (wakeUp) wakeUp();
    }

    void sync(const std::function<void()>& task) override {
        if (MainLoop::isMainThread()) {
            task();
            return;
        }
        DispatchSemaphore done(0);
        async([&task, &done] {
            task();
            done.signal();
        });
        done.wait();
    }

    bool isCurrent() const override { return MainLoop::isMainThread(); }

    size_t drain() {
        size_t queued;
        {
            std::lock_guard<std::mutex> lock(_mutex);
            queued = _tasks.size();
        }
        size_t ran = 0;
        while (ran < queued) {
            DispatchTask task;
            {
                std::lock_guard<std::mutex> lock(_mutex);
                if (_tasks.empty()) break;
                task = std::move(_tasks.front());
                _tasks.pop_front();
            }
            task();
            ++ran;
        }
        return ran;
    }

    // Waits until work is queued or `deadline` passes.
    void waitForWork(Clock::time_point deadline) {
        std::unique_lock<std::mutex> lock(_mutex);
        _changed.wait_until(lock, deadline, [this] { return !_tasks.empty(); });
    }

    // Waits until work is queued or a stop is requested; true (consuming the request) on a stop.
    bool waitForWorkOrStop() {
        std::unique_lock<std::mutex> lock(_mutex);
        _changed.wait(lock, [this] { return !_tasks.empty() || _stopRequested; });
        bool stop = _stopRequested;
        _stopRequested = false;
        return stop;
    }

    void requestStop() {
        std::lock_guard<std::mutex> lock(_mutex);
        _stopRequested = true;
        _changed.notify_all();
    }

    void setWakeUpHandler(std::function<void()> handler) {
        std::lock_guard<std::mutex> lock(_mutex);
        _wakeUp = std::move(handler);
    }

private:
    std::mutex _mutex;
    std::condition_variable _changed;
    std::deque<DispatchTask> _tasks;
    bool _stopRequested = false;
    std::function<void()> _wakeUp;
};

std::shared_ptr<MainQueueImpl> mainQueueImpl() {
    static auto* impl = new std::shared_ptr<MainQueueImpl>(std::make_shared<MainQueueImpl>());
    return *impl;
}

// One thread that queues `after` tasks on their queues when they fall due.
class TimerThread {
public:
    static TimerThread& shared() {
        static TimerThread* timer = new TimerThread();  // never destroyed: its detached thread uses it
        return *timer;
    }

    void schedule(Clock::time_point due, std::shared_ptr<DispatchQueueImpl> queue, DispatchTask task) {
        std::lock_guard<std::mutex> lock(_mutex);
        _entries.push_back(Entry{due, _nextSequence++, std::move(queue), std::move(task)});
        std::push_heap(_entries.begin(), _entries.end(), later);
        if (!_started) {
            _started = true;
            std::thread([this] { work(); }).detach();
        }
        _changed.notify_one();
    }

private:
    struct Entry {
        Clock::time_point due;
        uint64_t sequence;
        std::shared_ptr<DispatchQueueImpl> queue;
        DispatchTask task;
    };

    // Heap order: the earliest deadline, then the earliest scheduled, on top.
    static bool later(const Entry& a, const Entry& b) {
        return a.due != b.due ? a.due > b.due : a.sequence > b.sequence;
    }

    void work() {
        std::unique_lock<std::mutex> lock(_mutex);
        for (;;) {
            if (_entries.empty()) {
                _changed.wait(lock);
                continue;
            }
            // A copy: scheduling during the wait may move the entries.
            const Clock::time_point due = _entries.front().due;
            if (due > Clock::now()) {
                _changed.wait_until(lock, due);
                continue;
            }
            std::pop_heap(_entries.begin(), _entries.end(), later);
            Entry entry = std::move(_entries.back());
            _entries.pop_back();
            lock.unlock();
            entry.queue->async(std::move(entry.task));
            entry = Entry{};
            lock.lock();
        }
    }

    std::mutex _mutex;
    std::condition_variable _changed;
    std::vector<Entry> _entries;
    uint64_t _nextSequence = 0;
    bool _started = false;
};

}  // namespace

// DispatchQueue

DispatchQueue::DispatchQueue(std::shared_ptr<DispatchQueueImpl> impl) : _impl(std::move(impl)) {}

DispatchQueue::~DispatchQueue() = default;

std::shared_ptr<DispatchQueue> DispatchQueue::createSerial(std::string label) {
    return std::shared_ptr<DispatchQueue>(new DispatchQueue(std::make_shared<SerialQueueImpl>(std::move(label))));
}

DispatchQueue& DispatchQueue::main() {
    static DispatchQueue* queue = new DispatchQueue(mainQueueImpl());
    return *queue;
}

DispatchQueue& DispatchQueue::global(Priority priority) {
    static const std::array<DispatchQueue*, 4> queues = [] {
        const char* labels[] = {"global.high", "global.default", "global.low", "global.background"};
        std::array<DispatchQueue*, 4> made{};
        for (size_t i = 0; i < made.size(); ++i) {
            made[i] = new DispatchQueue(std::make_shared<ConcurrentQueueImpl>(labels[i], i));
        }
        return made;
    }();
    return *queues[static_cast<size_t>(priority)];
}

const std::string& DispatchQueue::label() const { return _impl->label(); }

void DispatchQueue::async(DispatchTask task) { _impl->async(std::move(task)); }

void DispatchQueue::sync(const std::function<void()>& task) { _impl->sync(task); }

void DispatchQueue::after(std::chrono::nanoseconds delay, DispatchTask task) {
    TimerThread::shared().schedule(Clock::now() + std::min<std::chrono::nanoseconds>(delay, kForever), _impl,
                                   std::move(task));
}

bool DispatchQueue::isCurrent() const { return _impl->isCurrent(); }

// MainLoop

void MainLoop::run() {
    if (!claimMainThread()) return;
    auto queue = mainQueueImpl();
    for (;;) {
        queue->drain();
        if (queue->waitForWorkOrStop()) return;
    }
}

void MainLoop::stop() { mainQueueImpl()->requestStop(); }

bool MainLoop::runUntil(const std::function<bool()>& predicate, std::chrono::nanoseconds timeout) {
    if (!claimMainThread()) return false;
    auto queue = mainQueueImpl();
    const auto deadline = Clock::now() + std::min<std::chrono::nanoseconds>(timeout, kForever);
    for (;;) {
        if (predicate()) return true;
        queue->drain();
        if (predicate()) return true;
        auto now = Clock::now();
        if (now >= deadline) return false;
        queue->waitForWork(std::min<Clock::time_point>(deadline, now + kRunUntilPoll));
    }
}

size_t MainLoop::drain() {
    if (!claimMainThread()) return 0;
    return mainQueueImpl()->drain();
}

bool MainLoop::isMainThread() { return gMainThread.load() == std::this_thread::get_id(); }

void MainLoop::setWakeUpHandler(std::function<void()> handler) { mainQueueImpl()->setWakeUpHandler(std::move(handler)); }

// DispatchGroup

struct DispatchGroup::State {
    std::mutex mutex;
    std::condition_variable done;
    long pending = 0;
    std::vector<std::pair<std::shared_ptr<DispatchQueueImpl>, DispatchTask>> notifications;

    void leave() {
        std::vector<std::pair<std::shared_ptr<DispatchQueueImpl>, DispatchTask>> due;
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (pending == 0) {
                QMLog("DispatchGroup: leave without enter.");
                return;
            }
            if (--pending > 0) return;
            due.swap(notifications);
            done.notify_all();
        }
        for (auto& [queue, task] : due) queue->async(std::move(task));
    }
};

DispatchGroup::DispatchGroup() : _state(std::make_shared<State>()) {}

DispatchGroup::~DispatchGroup() = default;

void DispatchGroup::enter() {
    std::lock_guard<std::mutex> lock(_state->mutex);
    ++_state->pending;
}

void DispatchGroup::leave() { _state->leave(); }

void DispatchGroup::async(DispatchQueue& queue, DispatchTask task) {
    enter();
    queue.async([state = _state, task = std::move(task)] {
        task();
        state->leave();
    });
}

void DispatchGroup::wait() { wait(kForever); }

bool DispatchGroup::wait(std::chrono::nanoseconds timeout) {
    std::unique_lock<std::mutex> lock(_state->mutex);
    if (_state->pending == 0) return true;
    BlockingScope blocking;
    return waitFor(_state->done, lock, timeout, [this] { return _state->pending == 0; });
}

void DispatchGroup::notify(DispatchQueue& queue, DispatchTask task) {
    {
        std::lock_guard<std::mutex> lock(_state->mutex);
        if (_state->pending > 0) {
            _state->notifications.emplace_back(queue._impl, std::move(task));
            return;
        }
    }
    queue.async(std::move(task));
}

// DispatchSemaphore

DispatchSemaphore::DispatchSemaphore(long value) : _value(value) {}

void DispatchSemaphore::signal() {
    std::lock_guard<std::mutex> lock(_mutex);
    ++_value;
    _available.notify_one();  // under the lock: a waiter may destroy the semaphore as soon as it wakes
}

void DispatchSemaphore::wait() { wait(kForever); }

bool DispatchSemaphore::wait(std::chrono::nanoseconds timeout) {
    std::unique_lock<std::mutex> lock(_mutex);
    if (_value <= 0) {
        BlockingScope blocking;
        if (!waitFor(_available, lock, timeout, [this] { return _value > 0; })) return false;
    }
    --_value;
    return true;
}

}  // namespace qm
