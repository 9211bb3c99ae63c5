#pragma once

#include <any>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/NotificationCenter.h"

namespace qm {

// One change of an observed key: its value before and after.
struct KeyValueChange {
    std::string key;
    std::any oldValue;
    std::any newValue;
};

using KeyValueObserver = std::function<void(const KeyValueChange&)>;

// Change observation by key for model objects (KVO). A subclass gives its values through
// valueForKey, brackets every change of a key with willChangeValueForKey / didChangeValueForKey, and
// names derived keys through keyPathsForValuesAffectingValueForKey. Model objects belong to the main
// thread; only token removal may happen elsewhere.
//
// A copy starts with no observers and no change in progress.
class Observable {
public:
    Observable();
    virtual ~Observable();
    Observable(const Observable&);
    Observable& operator=(const Observable&);

    // The current value of `key`; empty for keys the class does not know.
    virtual std::any valueForKey(const std::string& key) const;

    // Calls `observer` after each change of `key` (also one that leaves the value as it was) and after
    // each change of a key it depends on, for as long as the token lives. Observers of one key are
    // called in the order they were added; removal from within a callback is safe.
    [[nodiscard]] ObserverToken addObserver(std::string key, KeyValueObserver observer);

    // Records the old values of `key` and of every observed key depending on it.
    void willChangeValueForKey(const std::string& key);
    // Reads the new values and notifies, the key itself first, then its dependents. Pairs with the
    // latest unmatched willChangeValueForKey of the same key; an unmatched call does nothing.
    void didChangeValueForKey(const std::string& key);

protected:
    // The keys whose changes also change `key`. Dependencies are followed transitively; cycles are
    // tolerated. Overrides add their class's keys to those of the base class.
    virtual std::vector<std::string> keyPathsForValuesAffectingValueForKey(const std::string& key) const;

private:
    struct Observers;
    struct PendingChange {
        std::string key;
        std::vector<std::pair<std::string, std::any>> oldValues;
    };

    // `key` itself and the observed keys depending on it, if observed.
    std::vector<std::string> observedKeysAffectedBy(const std::string& key) const;
    bool dependsOn(const std::string& key, const std::string& affecting) const;
    void notify(const KeyValueChange& change) const;

    std::shared_ptr<Observers> _observers;
    std::vector<PendingChange> _pendingChanges;
};

}  // namespace qm
