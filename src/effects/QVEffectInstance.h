#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "codec/QVTimebase.h"
#include "effects/QVEffectState.h"
#include "effects/QVTimeFunction.h"
#include "effects/QVTimedClip.h"
#include "image/Image.h"
#include "platform/KeyedArchiver.h"
#include "platform/Observable.h"
#include "platform/UndoManager.h"

namespace qm {

// What a clip keeps of its three effects: the entrance, emphasis ("enhance") and exit names, how
// long each runs and how the entrance and exit are paced. At picture time it maps a time to a
// phase, asks QVEffectTemplateMgr for the state to animate from or to, and renders the clip's
// image through the state of that moment.
//
// The owner is the clip, held weakly. Each setter returns at once for an unchanged value;
// otherwise it records its inverse on the owner's undo manager, then stores. Nothing is clamped:
// a duration may be 0, negative or longer than the clip. The picture path only reads.
//
// Observable keys: the nine property names; "entranceEffectEnabled", "enhanceEffectEnabled" and
// "exitEffectEnabled" (each following its name and duration); "entranceEffect", "enhanceEffect"
// and "exitEffect" (each following "validateEntranceEffect", "validateEnhanceEffect",
// "validateExitEffect").
class QVEffectInstance : public Observable, public Archivable, public std::enable_shared_from_this<QVEffectInstance> {
public:
    // QVTimebase / 1000: the shortest length the interface offers; not enforced here.
    static constexpr int64_t minEffectDuration = QVTimebase / 1000;

    // "None" three times.
    static std::shared_ptr<QVEffectInstance> create();
    // The given names; entrance and exit 2 s, emphasis 1 s, all linear.
    static std::shared_ptr<QVEffectInstance> createWithEntrance(const std::string& entrance,
                                                                const std::string& enhance, const std::string& exit);
    // Reads the keys in their order; no owner.
    static std::shared_ptr<QVEffectInstance> createWithCoder(KeyedUnarchiver& coder);

    QVEffectInstance(const QVEffectInstance&) = delete;
    QVEffectInstance& operator=(const QVEffectInstance&) = delete;

    const std::string& entranceName() const { return _entranceName; }
    void setEntranceName(const std::string& name);
    const std::string& enhanceName() const { return _enhanceName; }
    void setEnhanceName(const std::string& name);
    const std::string& exitName() const { return _exitName; }
    void setExitName(const std::string& name);
    int64_t durationEntranceEffect() const { return _durationOfEntrance; }
    void setDurationEntranceEffect(int64_t duration);
    int64_t durationEnhanceEffect() const { return _durationOfEnhance; }
    void setDurationEnhanceEffect(int64_t duration);
    int64_t durationExitEffect() const { return _durationOfExit; }
    void setDurationExitEffect(int64_t duration);
    // Pacing; nullptr paces linearly. Compared by class and name when set.
    const std::shared_ptr<QVTimeFunction>& entranceTimeFunction() const { return _entranceTimeFunc; }
    void setEntranceTimeFunction(const std::shared_ptr<QVTimeFunction>& function);
    // Stored and archived; no picture depends on it.
    const std::shared_ptr<QVTimeFunction>& enhanceTimeFunction() const { return _enhanceTimeFunc; }
    void setEnhanceTimeFunction(const std::shared_ptr<QVTimeFunction>& function);
    const std::shared_ptr<QVTimeFunction>& exitTimeFunction() const { return _exitTimeFunc; }
    void setExitTimeFunction(const std::shared_ptr<QVTimeFunction>& function);

    std::shared_ptr<QVTimedClip> owner() const { return _owner.lock(); }
    void setOwner(const std::shared_ptr<QVTimedClip>& owner) { _owner = owner; }
    // The owner's undo manager; empty without an owner.
    UndoRef undoManager() const;

    // False for no name, "None", or a duration not above 0.
    bool entranceEffectEnabled() const;
    bool enhanceEffectEnabled() const;
    bool exitEffectEnabled() const;

    // The state to render at `timestamp` after the clip's start, from the resting state: entrance
    // while t < E, emphasis while t < E + H, the exit's end past the clip, rest until D - X, then
    // the exit. Phases are not scaled to fit a short clip; the earlier phase wins.
    std::shared_ptr<QVEffectState> calcEffectStateWithStart(const std::shared_ptr<QVEffectState>& state,
                                                            const QVEffectContext& context, int64_t timestamp) const;
    // `image` in the state of track time `timestamp`; null outside the owner's track range.
    Image applyImage(const Image& image, const std::shared_ptr<QVEffectState>& state, const QVEffectContext& context,
                     int64_t timestamp) const;

    // A new instance with the nine values and no owner.
    std::shared_ptr<QVEffectInstance> copy() const;

    std::any valueForKey(const std::string& key) const override;
    std::string archiveClassName() const override { return "QVEffectInstance"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;
    // Registers "QVEffectInstance" and "QVTransitionInstance" with KeyedUnarchiver (and the time
    // functions); safe to call more than once.
    static void registerArchiveClasses();

protected:
    std::vector<std::string> keyPathsForValuesAffectingValueForKey(const std::string& key) const override;

private:
    QVEffectInstance(const std::string& entrance, const std::string& enhance, const std::string& exit);

    std::string _entranceName;
    std::string _enhanceName;
    std::string _exitName;
    int64_t _durationOfEntrance = 2 * QVTimebase;
    int64_t _durationOfEnhance = QVTimebase;
    int64_t _durationOfExit = 2 * QVTimebase;
    std::shared_ptr<QVTimeFunction> _entranceTimeFunc;
    std::shared_ptr<QVTimeFunction> _exitTimeFunc;
    std::shared_ptr<QVTimeFunction> _enhanceTimeFunc;
    std::weak_ptr<QVTimedClip> _owner;
};

}  // namespace qm
