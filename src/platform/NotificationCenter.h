#pragma once

#include <any>
#include <functional>
#include <map>
#include <memory>
#include <string>

namespace qm {

// Keeps one observer registered while it lives. Destroying or resetting the token removes the
// observer; this is safe from within the observer's own callback and from any thread. Once removal
// has returned no new delivery to the observer begins (one already running on another thread may
// still finish).
class ObserverToken {
public:
    ObserverToken() = default;
    explicit ObserverToken(std::function<void()> remove);
    ~ObserverToken();
    ObserverToken(ObserverToken&& other) noexcept;
    ObserverToken& operator=(ObserverToken&& other) noexcept;
    ObserverToken(const ObserverToken&) = delete;
    ObserverToken& operator=(const ObserverToken&) = delete;

    // Removes the observer now; later calls do nothing.
    void reset();
    // True while the token still holds a registration.
    explicit operator bool() const { return static_cast<bool>(_remove); }

private:
    std::function<void()> _remove;
};

struct Notification {
    std::string name;
    const void* object = nullptr;  // the sender's identity, may be null
    std::map<std::string, std::any> userInfo;
};

using NotificationCallback = std::function<void(const Notification&)>;

// Broadcasts notifications by name to registered observers (NSNotificationCenter).
class NotificationCenter {
public:
    static NotificationCenter& defaultCenter();

    NotificationCenter();
    ~NotificationCenter();
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    // Registers `callback` for notifications called `name` (every name when empty) sent by `object`
    // (any sender when null). The observer stays registered while the returned token lives.
    [[nodiscard]] ObserverToken addObserver(std::string name, const void* object, NotificationCallback callback);

    // Delivers synchronously on the calling thread to every matching observer, in the order they
    // were added. Observers added during the delivery get the next notification, not this one;
    // observers removed during it are skipped if not yet reached.
    void post(std::string name, const void* object = nullptr, std::map<std::string, std::any> userInfo = {});
    void post(const Notification& notification);

    // Delivers later, from the main queue.
    void postOnMainQueue(std::string name, const void* object = nullptr,
                         std::map<std::string, std::any> userInfo = {});

private:
    struct Registry;
    std::shared_ptr<Registry> _registry;
};

}  // namespace qm
