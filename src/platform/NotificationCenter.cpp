#include "platform/NotificationCenter.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <vector>

#include "platform/Dispatch.h"

namespace qm {

// ObserverToken

ObserverToken::ObserverToken(std::function<void()> remove) : _remove(std::move(remove)) {}

ObserverToken::~ObserverToken() { reset(); }

ObserverToken::ObserverToken(ObserverToken&& other) noexcept : _remove(std::move(other._remove)) {
    other._remove = nullptr;
}

ObserverToken& ObserverToken::operator=(ObserverToken&& other) noexcept {
    if (this != &other) {
        reset();
        _remove = std::move(other._remove);
        other._remove = nullptr;
    }
    return *this;
}

void ObserverToken::reset() {
    auto remove = std::move(_remove);
    _remove = nullptr;
    if (remove) remove();
}

// NotificationCenter

struct NotificationCenter::Registry {
    struct Observer {
        std::string name;
        const void* object;
        NotificationCallback callback;
        std::atomic<bool> active{true};
    };

    std::mutex mutex;
    std::vector<std::shared_ptr<Observer>> observers;

    void remove(const std::shared_ptr<Observer>& observer) {
        observer->active = false;
        std::lock_guard<std::mutex> lock(mutex);
        observers.erase(std::remove(observers.begin(), observers.end(), observer), observers.end());
    }

    void deliver(const Notification& notification) {
        std::vector<std::shared_ptr<Observer>> matching;
        {
            std::lock_guard<std::mutex> lock(mutex);
            for (const auto& observer : observers) {
                bool nameMatches = observer->name.empty() || observer->name == notification.name;
                bool objectMatches = observer->object == nullptr || observer->object == notification.object;
                if (nameMatches && objectMatches) matching.push_back(observer);
            }
        }
        for (const auto& observer : matching) {
            if (observer->active) observer->callback(notification);
        }
    }
};

NotificationCenter& NotificationCenter::defaultCenter() {
    static NotificationCenter center;
    return center;
}

NotificationCenter::NotificationCenter() : _registry(std::make_shared<Registry>()) {}

NotificationCenter::~NotificationCenter() = default;

ObserverToken NotificationCenter::addObserver(std::string name, const void* object, NotificationCallback callback) {
    auto observer = std::make_shared<Registry::Observer>();
    observer->name = std::move(name);
    observer->object = object;
    observer->callback = std::move(callback);
    {
        std::lock_guard<std::mutex> lock(_registry->mutex);
        _registry->observers.push_back(observer);
    }
    std::weak_ptr<Registry> registry = _registry;
    std::weak_ptr<Registry::Observer> weakObserver = observer;
    return ObserverToken([registry, weakObserver] {
        auto alive = registry.lock();
        auto observer = weakObserver.lock();
        if (alive && observer) alive->remove(observer);
    });
}

void NotificationCenter::post(std::string name, const void* object, std::map<std::string, std::any> userInfo) {
    post(Notification{std::move(name), object, std::move(userInfo)});
}

void NotificationCenter::post(const Notification& notification) { _registry->deliver(notification); }

void NotificationCenter::postOnMainQueue(std::string name, const void* object,
                                         std::map<std::string, std::any> userInfo) {
    std::weak_ptr<Registry> registry = _registry;
    DispatchQueue::main().async(
        [registry, notification = Notification{std::move(name), object, std::move(userInfo)}] {
            if (auto alive = registry.lock()) alive->deliver(notification);
        });
}

}  // namespace qm
