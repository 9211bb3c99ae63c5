#include "platform/Observable.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <set>

namespace qm {

struct Observable::Observers {
    struct Entry {
        std::string key;
        KeyValueObserver callback;
        std::atomic<bool> active{true};
    };

    mutable std::mutex mutex;
    std::vector<std::shared_ptr<Entry>> entries;

    std::vector<std::shared_ptr<Entry>> entriesFor(const std::string& key) const {
        std::lock_guard<std::mutex> lock(mutex);
        std::vector<std::shared_ptr<Entry>> found;
        for (const auto& entry : entries) {
            if (entry->key == key) found.push_back(entry);
        }
        return found;
    }

    // Every observed key once, in the order of first observation.
    std::vector<std::string> keys() const {
        std::lock_guard<std::mutex> lock(mutex);
        std::vector<std::string> found;
        for (const auto& entry : entries) {
            if (std::find(found.begin(), found.end(), entry->key) == found.end()) found.push_back(entry->key);
        }
        return found;
    }

    void remove(const std::shared_ptr<Entry>& entry) {
        entry->active = false;
        std::lock_guard<std::mutex> lock(mutex);
        entries.erase(std::remove(entries.begin(), entries.end(), entry), entries.end());
    }
};

Observable::Observable() : _observers(std::make_shared<Observers>()) {}

Observable::~Observable() = default;

Observable::Observable(const Observable&) : Observable() {}

Observable& Observable::operator=(const Observable&) { return *this; }

std::any Observable::valueForKey(const std::string&) const { return {}; }

std::vector<std::string> Observable::keyPathsForValuesAffectingValueForKey(const std::string&) const { return {}; }

ObserverToken Observable::addObserver(std::string key, KeyValueObserver observer) {
    auto entry = std::make_shared<Observers::Entry>();
    entry->key = std::move(key);
    entry->callback = std::move(observer);
    {
        std::lock_guard<std::mutex> lock(_observers->mutex);
        _observers->entries.push_back(entry);
    }
    std::weak_ptr<Observers> observers = _observers;
    std::weak_ptr<Observers::Entry> weakEntry = entry;
    return ObserverToken([observers, weakEntry] {
        auto alive = observers.lock();
        auto entry = weakEntry.lock();
        if (alive && entry) alive->remove(entry);
    });
}

void Observable::willChangeValueForKey(const std::string& key) {
    PendingChange change{key, {}};
    for (auto& affected : observedKeysAffectedBy(key)) {
        std::any old = valueForKey(affected);
        change.oldValues.emplace_back(std::move(affected), std::move(old));
    }
    _pendingChanges.push_back(std::move(change));
}

void Observable::didChangeValueForKey(const std::string& key) {
    auto match = std::find_if(_pendingChanges.rbegin(), _pendingChanges.rend(),
                              [&key](const PendingChange& change) { return change.key == key; });
    if (match == _pendingChanges.rend()) return;
    PendingChange change = std::move(*match);
    _pendingChanges.erase(std::next(match).base());
    for (auto& [affected, old] : change.oldValues) {
        std::any current = valueForKey(affected);
        notify(KeyValueChange{affected, std::move(old), std::move(current)});
    }
}

std::vector<std::string> Observable::observedKeysAffectedBy(const std::string& key) const {
    std::vector<std::string> observed = _observers->keys();
    std::vector<std::string> affected;
    if (std::find(observed.begin(), observed.end(), key) != observed.end()) affected.push_back(key);
    for (const auto& candidate : observed) {
        if (candidate != key && dependsOn(candidate, key)) affected.push_back(candidate);
    }
    return affected;
}

bool Observable::dependsOn(const std::string& key, const std::string& affecting) const {
    std::set<std::string> visited{key};
    std::vector<std::string> toVisit{key};
    while (!toVisit.empty()) {
        std::string current = std::move(toVisit.back());
        toVisit.pop_back();
        for (auto& next : keyPathsForValuesAffectingValueForKey(current)) {
            if (next == affecting) return true;
            if (visited.insert(next).second) toVisit.push_back(std::move(next));
        }
    }
    return false;
}

void Observable::notify(const KeyValueChange& change) const {
    for (const auto& entry : _observers->entriesFor(change.key)) {
        if (entry->active) entry->callback(change);
    }
}

}  // namespace qm
