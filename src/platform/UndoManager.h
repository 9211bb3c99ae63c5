#pragma once

#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace qm {

inline constexpr const char* NSUndoManagerDidUndoChangeNotification = "NSUndoManagerDidUndoChangeNotification";
inline constexpr const char* NSUndoManagerDidRedoChangeNotification = "NSUndoManagerDidRedoChangeNotification";

// An undo stack of grouped records (NSUndoManager). A record is a target and an operation that
// restores an old value, typically by calling the setter again with it, which registers the inverse.
// Made with std::make_shared; used on the main thread only.
//
// - Records made outside any group form a group of their own each; groups nest; a top-level group
//   left empty is dropped.
// - Undoing a group runs its records in reverse order, as one step. What is registered meanwhile
//   becomes one group on the redo stack; what a redo registers becomes one group on the undo side.
// - A registration outside undo and redo clears the redo stack.
// - After an undo or a redo, NSUndoManagerDidUndoChangeNotification or
//   NSUndoManagerDidRedoChangeNotification is posted on NotificationCenter::defaultCenter() with the
//   manager as object.
class UndoManager {
public:
    using Operation = std::function<void()>;

    UndoManager();
    UndoManager(const UndoManager&) = delete;
    UndoManager& operator=(const UndoManager&) = delete;

    // Records `operation` for `target` in the innermost open group; ignored while registration is
    // disabled.
    void registerUndo(const void* target, Operation operation);

    void beginUndoGrouping();
    // Closes the innermost open group; does nothing when none is open.
    void endUndoGrouping();
    // The number of open groups.
    int groupingLevel() const;

    // Undoes the last top-level group. An open top-level group is closed first; with nested groups
    // open it does nothing. Ignored during undo or redo.
    void undo();
    // Undoes the last group at the current nesting level: with no group open the last top-level
    // group, inside an open group the last group (or lone record) closed within it. Ignored during
    // undo or redo.
    void undoNestedGroup();
    // Performs the last group of the redo stack. Its registrations go where a registration would go
    // now: into the open group if one is open, else onto the undo stack as one group.
    void redo();

    // True when undo() or undoNestedGroup() has something recorded to take back.
    bool canUndo() const;
    bool canRedo() const;
    bool isUndoing() const { return _undoing; }
    bool isRedoing() const { return _redoing; }

    // Clears both stacks and every open group, and enables registration again.
    void removeAllActions();
    // Drops every record of `target` from both stacks and the open groups; groups left empty go too.
    void removeAllActionsWithTarget(const void* target);

    // Registration is ignored while disable calls outnumber enable calls.
    void disableUndoRegistration();
    void enableUndoRegistration();
    bool isUndoRegistrationEnabled() const { return _disableCount == 0; }

private:
    struct Group;
    // A record, or a nested group when `group` is set.
    struct Action {
        const void* target = nullptr;
        Operation operation;
        std::unique_ptr<Group> group;
    };
    struct Group {
        std::vector<Action> actions;
    };

    // Runs `action` in the given mode and files what it registers.
    void replay(Action action, bool undoing);
    static void perform(Action& action);
    static bool removeTarget(Group& group, const void* target);
    // Closes the innermost open group into its parent, or onto the undo stack at the top level.
    void closeGroup();

    std::vector<Group> _undoStack;
    std::vector<Group> _redoStack;
    std::vector<Group> _openGroups;  // outermost first
    int _disableCount = 0;
    bool _undoing = false;
    bool _redoing = false;
};

// A maybe-null UndoManager. Every call through an empty handle does nothing and answers
// 0 / false, so model code can call through it without checking.
class UndoRef {
public:
    UndoRef() = default;
    UndoRef(std::shared_ptr<UndoManager> manager) : _manager(std::move(manager)) {}

    const std::shared_ptr<UndoManager>& manager() const { return _manager; }
    explicit operator bool() const { return static_cast<bool>(_manager); }

    void registerUndo(const void* target, UndoManager::Operation operation) const {
        if (_manager) _manager->registerUndo(target, std::move(operation));
    }
    void beginUndoGrouping() const {
        if (_manager) _manager->beginUndoGrouping();
    }
    void endUndoGrouping() const {
        if (_manager) _manager->endUndoGrouping();
    }
    int groupingLevel() const { return _manager ? _manager->groupingLevel() : 0; }
    void undo() const {
        if (_manager) _manager->undo();
    }
    void undoNestedGroup() const {
        if (_manager) _manager->undoNestedGroup();
    }
    void redo() const {
        if (_manager) _manager->redo();
    }
    bool canUndo() const { return _manager && _manager->canUndo(); }
    bool canRedo() const { return _manager && _manager->canRedo(); }
    bool isUndoing() const { return _manager && _manager->isUndoing(); }
    bool isRedoing() const { return _manager && _manager->isRedoing(); }
    void removeAllActions() const {
        if (_manager) _manager->removeAllActions();
    }
    void removeAllActionsWithTarget(const void* target) const {
        if (_manager) _manager->removeAllActionsWithTarget(target);
    }
    void disableUndoRegistration() const {
        if (_manager) _manager->disableUndoRegistration();
    }
    void enableUndoRegistration() const {
        if (_manager) _manager->enableUndoRegistration();
    }

private:
    std::shared_ptr<UndoManager> _manager;
};

}  // namespace qm
