#pragma once

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/NotificationCenter.h"

namespace qm {

// A thread-safe list of observers, each registered for as long as the ObserverToken that adding
// it gave lives. Delivery works on a snapshot, so observers may be added or removed from within
// a callback; one removed before it is reached is skipped.
template <class Observer>
class ObserverList : public std::enable_shared_from_this<ObserverList<Observer>> {
public:
    static std::shared_ptr<ObserverList> create() { return std::shared_ptr<ObserverList>(new ObserverList()); }

    [[nodiscard]] ObserverToken add(Observer observer) {
        auto slot = std::make_shared<Slot>(std::move(observer));
        {
            std::lock_guard<std::mutex> lock(_mutex);
            _slots.push_back(slot);
        }
        std::weak_ptr<ObserverList> list = this->shared_from_this();
        std::weak_ptr<Slot> weakSlot = slot;
        return ObserverToken([list, weakSlot] {
            auto alive = list.lock();
            auto added = weakSlot.lock();
            if (alive && added) alive->remove(added);
        });
    }

    // Calls `deliver` with every observer that `matches`, in the order they were added.
    template <class Matches, class Deliver>
    void forEach(Matches matches, Deliver deliver) const {
        std::vector<std::shared_ptr<Slot>> snapshot;
        {
            std::lock_guard<std::mutex> lock(_mutex);
            for (const auto& slot : _slots) {
                if (matches(slot->observer)) snapshot.push_back(slot);
            }
        }
        for (const auto& slot : snapshot) {
            if (slot->active) deliver(slot->observer);
        }
    }

private:
    struct Slot {
        explicit Slot(Observer o) : observer(std::move(o)) {}
        Observer observer;
        std::atomic<bool> active{true};
    };

    ObserverList() = default;

    void remove(const std::shared_ptr<Slot>& slot) {
        slot->active = false;
        std::lock_guard<std::mutex> lock(_mutex);
        _slots.erase(std::remove(_slots.begin(), _slots.end(), slot), _slots.end());
    }

    mutable std::mutex _mutex;
    std::vector<std::shared_ptr<Slot>> _slots;
};

}  // namespace qm
