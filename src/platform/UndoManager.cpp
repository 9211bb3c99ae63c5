#include "platform/UndoManager.h"

#include <algorithm>

#include "platform/NotificationCenter.h"

namespace qm {

UndoManager::UndoManager() = default;

void UndoManager::registerUndo(const void* target, Operation operation) {
    if (_disableCount > 0) return;
    if (!_undoing && !_redoing) _redoStack.clear();
    Action action{target, std::move(operation), nullptr};
    if (!_openGroups.empty()) {
        _openGroups.back().actions.push_back(std::move(action));
        return;
    }
    Group own;
    own.actions.push_back(std::move(action));
    _undoStack.push_back(std::move(own));
}

void UndoManager::beginUndoGrouping() { _openGroups.emplace_back(); }

void UndoManager::endUndoGrouping() {
    if (!_openGroups.empty()) closeGroup();
}

int UndoManager::groupingLevel() const { return static_cast<int>(_openGroups.size()); }

void UndoManager::closeGroup() {
    Group closed = std::move(_openGroups.back());
    _openGroups.pop_back();
    if (closed.actions.empty()) return;
    if (_openGroups.empty()) {
        _undoStack.push_back(std::move(closed));
    } else {
        _openGroups.back().actions.push_back(Action{nullptr, {}, std::make_unique<Group>(std::move(closed))});
    }
}

void UndoManager::undo() {
    if (_undoing || _redoing || _openGroups.size() > 1) return;
    if (_openGroups.size() == 1) closeGroup();
    undoNestedGroup();
}

void UndoManager::undoNestedGroup() {
    if (_undoing || _redoing) return;
    Action action;
    if (_openGroups.empty()) {
        if (_undoStack.empty()) return;
        action.group = std::make_unique<Group>(std::move(_undoStack.back()));
        _undoStack.pop_back();
    } else {
        auto& actions = _openGroups.back().actions;
        if (actions.empty()) return;
        action = std::move(actions.back());
        actions.pop_back();
    }
    replay(std::move(action), true);
}

void UndoManager::redo() {
    if (_undoing || _redoing || _redoStack.empty()) return;
    Action action;
    action.group = std::make_unique<Group>(std::move(_redoStack.back()));
    _redoStack.pop_back();
    replay(std::move(action), false);
}

void UndoManager::replay(Action action, bool undoing) {
    // Registrations made while replaying collect in a group of their own, apart from any open groups.
    std::vector<Group> outer = std::move(_openGroups);
    _openGroups.clear();
    _openGroups.emplace_back();
    bool& mode = undoing ? _undoing : _redoing;
    mode = true;
    perform(action);
    while (_openGroups.size() > 1) closeGroup();
    mode = false;

    Group registered;
    if (!_openGroups.empty()) registered = std::move(_openGroups.front());
    _openGroups = std::move(outer);
    if (!registered.actions.empty()) {
        if (undoing) {
            _redoStack.push_back(std::move(registered));
        } else if (_openGroups.empty()) {
            _undoStack.push_back(std::move(registered));
        } else {
            _openGroups.back().actions.push_back(Action{nullptr, {}, std::make_unique<Group>(std::move(registered))});
        }
    }
    NotificationCenter::defaultCenter().post(
        undoing ? NSUndoManagerDidUndoChangeNotification : NSUndoManagerDidRedoChangeNotification, this);
}

void UndoManager::perform(Action& action) {
    if (!action.group) {
        if (action.operation) action.operation();
        return;
    }
    auto& actions = action.group->actions;
    for (auto it = actions.rbegin(); it != actions.rend(); ++it) perform(*it);
}

bool UndoManager::canUndo() const {
    if (!_undoStack.empty()) return true;
    return std::any_of(_openGroups.begin(), _openGroups.end(), [](const Group& group) { return !group.actions.empty(); });
}

bool UndoManager::canRedo() const { return !_redoStack.empty(); }

void UndoManager::removeAllActions() {
    _undoStack.clear();
    _redoStack.clear();
    _openGroups.clear();
    _disableCount = 0;
}

bool UndoManager::removeTarget(Group& group, const void* target) {
    std::vector<Action> kept;
    for (auto& action : group.actions) {
        bool drop = action.group ? removeTarget(*action.group, target) : action.target == target;
        if (!drop) kept.push_back(std::move(action));
    }
    group.actions = std::move(kept);
    return group.actions.empty();
}

void UndoManager::removeAllActionsWithTarget(const void* target) {
    for (auto* stack : {&_undoStack, &_redoStack}) {
        std::vector<Group> kept;
        for (auto& group : *stack) {
            if (!removeTarget(group, target)) kept.push_back(std::move(group));
        }
        *stack = std::move(kept);
    }
    for (auto& group : _openGroups) removeTarget(group, target);
}

void UndoManager::disableUndoRegistration() { ++_disableCount; }

void UndoManager::enableUndoRegistration() {
    if (_disableCount > 0) --_disableCount;
}

}  // namespace qm
