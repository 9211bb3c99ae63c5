#include "platform/NotificationCenter.h"

#include "platform/Dispatch.h"
#include "platform/ObserverList.h"

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
    };

    std::shared_ptr<ObserverList<Observer>> observers = ObserverList<Observer>::create();

    void deliver(const Notification& notification) const {
        observers->forEach(
            [&](const Observer& observer) {
                return (observer.name.empty() || observer.name == notification.name) &&
                       (observer.object == nullptr || observer.object == notification.object);
            },
            [&](const Observer& observer) { observer.callback(notification); });
    }
};

NotificationCenter& NotificationCenter::defaultCenter() {
    static NotificationCenter center;
    return center;
}

NotificationCenter::NotificationCenter() : _registry(std::make_shared<Registry>()) {}

NotificationCenter::~NotificationCenter() = default;

ObserverToken NotificationCenter::addObserver(std::string name, const void* object, NotificationCallback callback) {
    return _registry->observers->add(Registry::Observer{std::move(name), object, std::move(callback)});
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
