#include "platform/Observable.h"

#include <algorithm>
#include <set>

#include "platform/ObserverList.h"

namespace qm {

struct Observable::Observers {
    struct Entry {
        std::string key;
        KeyValueObserver callback;
    };

    std::shared_ptr<ObserverList<Entry>> list = ObserverList<Entry>::create();

    // Every observed key once, in the order of first observation.
    std::vector<std::string> keys() const {
        std::vector<std::string> found;
        list->forEach([](const Entry&) { return true; },
                      [&](const Entry& entry) {
                          if (std::find(found.begin(), found.end(), entry.key) == found.end()) found.push_back(entry.key);
                      });
        return found;
    }
};

Observable::Observable() : _observers(std::make_shared<Observers>()) {}

Observable::~Observable() = default;

Observable::Observable(const Observable&) : Observable() {}

Observable& Observable::operator=(const Observable&) { return *this; }

std::any Observable::valueForKey(const std::string&) const { return {}; }

std::vector<std::string> Observable::keyPathsForValuesAffectingValueForKey(const std::string&) const { return {}; }

ObserverToken Observable::addObserver(std::string key, KeyValueObserver observer) {
    return _observers->list->add(Observers::Entry{std::move(key), std::move(observer)});
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
    _observers->list->forEach([&](const Observers::Entry& entry) { return entry.key == change.key; },
                              [&](const Observers::Entry& entry) { entry.callback(change); });
}

}  // namespace qm
