#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "codec/QVTimebase.h"
#include "effects/QVTimedClip.h"
#include "effects/transitions/PSTransition.h"
#include "platform/KeyedArchiver.h"
#include "platform/Observable.h"
#include "platform/UndoManager.h"

namespace qm {

// The transition that ends a clip (the start clip). Its stretch on the track is derived on every
// question from the overlap with the clip that follows (the end clip), or, for a transition into
// the project's background ("tile"), from a stored length at the end of the start clip. Only the
// name, the tile flag and the tile length are kept and archived; the transition object is cached
// by name.
//
// Both clips are held weakly. The end clip is a working link that the track sets, from whichever
// queue composes, before each picture: it is stored atomically and tells no observer. Asked where
// there is no transition, trackStart and trackEnd log "Warning: No transition exist." and answer
// their failure values.
//
// Observable keys: "transitionName", "allowTransitionToTile", "transitionToTileLength";
// "validate", "trackStart", "trackEnd" and "trackLength" follow the last two.
class QVTransitionInstance : public Observable,
                             public Archivable,
                             public std::enable_shared_from_this<QVTransitionInstance> {
public:
    // The first name of PSTransition::supportTransitions(), no clips.
    static std::shared_ptr<QVTransitionInstance> create();
    static std::shared_ptr<QVTransitionInstance> createWithTransitionName(const std::string& name);
    static std::shared_ptr<QVTransitionInstance> createWithTransitionName(const std::string& name,
                                                                          const std::shared_ptr<QVTimedClip>& startClip);
    // Reads the three keys in reverse order of writing; no clips.
    static std::shared_ptr<QVTransitionInstance> createWithCoder(KeyedUnarchiver& coder);

    QVTransitionInstance(const QVTransitionInstance&) = delete;
    QVTransitionInstance& operator=(const QVTransitionInstance&) = delete;

    std::shared_ptr<QVTimedClip> startClip() const { return _startClip.lock(); }
    void setStartClip(const std::shared_ptr<QVTimedClip>& clip) { _startClip = clip; }
    std::shared_ptr<QVTimedClip> endClip() const { return _endClip.load().lock(); }
    void setEndClip(const std::shared_ptr<QVTimedClip>& clip) { _endClip.store(clip); }
    // The start clip's undo manager; empty without one.
    UndoRef undoManager() const;

    const std::string& transitionName() const { return _transitionName; }
    // Records the old name for undo, stores, and drops the cached transition, also when the name
    // is the present one.
    void setTransitionName(const std::string& name);
    // setTransitionName with a uniformly drawn entry of supportTransitions (the present one too).
    void randomTransition();
    // The transition object for the name, made on first use and cached; never nullptr. Safe to
    // call from several threads.
    std::shared_ptr<PSTransition> transition() const;

    // Plain accessors, not undoable.
    bool allowTransitionToTile() const { return _allowTransitionToTile; }
    void setAllowTransitionToTile(bool allow);
    int64_t transitionToTileLength() const { return _transitionToTileLength; }
    void setTransitionToTileLength(int64_t length);

    // Whether there is a transition to draw.
    bool validate() const;
    int64_t trackStart() const;
    int64_t trackEnd() const;
    int64_t trackLength() const;

    // A new instance with the name, flag and length; no clips.
    std::shared_ptr<QVTransitionInstance> copy() const;

    std::any valueForKey(const std::string& key) const override;
    std::string archiveClassName() const override { return "QVTransitionInstance"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

protected:
    std::vector<std::string> keyPathsForValuesAffectingValueForKey(const std::string& key) const override;

private:
    explicit QVTransitionInstance(std::string name) : _transitionName(std::move(name)) {}

    std::string _transitionName;
    bool _allowTransitionToTile = false;
    int64_t _transitionToTileLength = 2 * QVTimebase;
    std::weak_ptr<QVTimedClip> _startClip;
    std::atomic<std::weak_ptr<QVTimedClip>> _endClip;
    mutable std::atomic<std::shared_ptr<PSTransition>> _transition;
};

}  // namespace qm
