#include "platform/Observable.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qm {
namespace {

// width and height are stored; area depends on both, label on area (so on both, transitively).
class Box : public Observable {
public:
    void setWidth(int width) {
        willChangeValueForKey("width");
        _width = width;
        didChangeValueForKey("width");
    }

    std::any valueForKey(const std::string& key) const override {
        if (key == "width") return _width;
        if (key == "height") return _height;
        if (key == "area") return _width * _height;
        if (key == "label") return std::to_string(_width * _height) + " px";
        return Observable::valueForKey(key);
    }

    int _width = 2;
    int _height = 3;

protected:
    std::vector<std::string> keyPathsForValuesAffectingValueForKey(const std::string& key) const override {
        if (key == "area") return {"width", "height"};
        if (key == "label") return {"area"};
        return Observable::keyPathsForValuesAffectingValueForKey(key);
    }
};

// Records every change seen, as "key: old -> new".
struct Recorder {
    std::vector<std::string> seen;

    KeyValueObserver observer() {
        return [this](const KeyValueChange& change) {
            seen.push_back(change.key + ": " + text(change.oldValue) + " -> " + text(change.newValue));
        };
    }

    static std::string text(const std::any& value) {
        if (auto number = std::any_cast<int>(&value)) return std::to_string(*number);
        if (auto string = std::any_cast<std::string>(&value)) return *string;
        return "?";
    }
};

TEST(Observable, NotifiesTheKeyThenItsObservedDependentsTransitively) {
    Box box;
    Recorder recorder;
    auto label = box.addObserver("label", recorder.observer());
    auto width = box.addObserver("width", recorder.observer());
    auto height = box.addObserver("height", recorder.observer());

    box.setWidth(5);
    EXPECT_EQ(recorder.seen, (std::vector<std::string>{"width: 2 -> 5", "label: 6 px -> 15 px"}));

    recorder.seen.clear();
    box.willChangeValueForKey("height");
    box._height = 4;
    box.didChangeValueForKey("height");
    EXPECT_EQ(recorder.seen, (std::vector<std::string>{"height: 3 -> 4", "label: 15 px -> 20 px"}));

    // A copy starts unobserved; unchanged values are still reported.
    recorder.seen.clear();
    Box copy = box;
    copy.setWidth(7);
    box.setWidth(5);
    EXPECT_EQ(recorder.seen, (std::vector<std::string>{"width: 5 -> 5", "label: 20 px -> 20 px"}));
}

TEST(Observable, NestedChangesOfOneKeyPairUp) {
    Box box;
    Recorder recorder;
    auto area = box.addObserver("area", recorder.observer());
    box.willChangeValueForKey("width");
    box._width = 4;
    box.willChangeValueForKey("width");
    box._width = 10;
    box.didChangeValueForKey("width");
    box.didChangeValueForKey("width");
    box.didChangeValueForKey("width");  // unmatched: nothing
    EXPECT_EQ(recorder.seen, (std::vector<std::string>{"area: 12 -> 30", "area: 6 -> 30"}));
}

TEST(Observable, ObserversMayBeRemovedAndAddedInsideCallbacks) {
    Box box;
    std::vector<std::string> calls;
    ObserverToken second;
    ObserverToken late;
    auto first = box.addObserver("width", [&](const KeyValueChange&) {
        calls.push_back("first");
        second.reset();
        if (!late) late = box.addObserver("width", [&](const KeyValueChange&) { calls.push_back("late"); });
    });
    second = box.addObserver("width", [&](const KeyValueChange&) { calls.push_back("second"); });
    box.setWidth(3);
    EXPECT_EQ(calls, (std::vector<std::string>{"first"}));

    calls.clear();
    first.reset();
    box.setWidth(4);
    EXPECT_EQ(calls, (std::vector<std::string>{"late"}));
}

TEST(Observable, TokensMayOutliveTheObject) {
    Recorder recorder;
    ObserverToken token;
    {
        Box original;
        token = original.addObserver("width", recorder.observer());
        original.setWidth(8);
    }
    token.reset();
    EXPECT_EQ(recorder.seen, (std::vector<std::string>{"width: 2 -> 8"}));
}

// a and b depend on each other; c depends on a.
class Cycle : public Observable {
protected:
    std::vector<std::string> keyPathsForValuesAffectingValueForKey(const std::string& key) const override {
        if (key == "a") return {"b"};
        if (key == "b") return {"a"};
        if (key == "c") return {"a"};
        return {};
    }
};

TEST(Observable, DependencyCyclesEnd) {
    Cycle cycle;
    std::vector<std::string> keys;
    auto c = cycle.addObserver("c", [&](const KeyValueChange& change) { keys.push_back(change.key); });
    auto a = cycle.addObserver("a", [&](const KeyValueChange& change) { keys.push_back(change.key); });
    cycle.willChangeValueForKey("b");
    cycle.didChangeValueForKey("b");
    EXPECT_EQ(keys, (std::vector<std::string>{"c", "a"}));
}

}  // namespace
}  // namespace qm
