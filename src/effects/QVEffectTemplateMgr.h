#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "effects/QVEffectState.h"

namespace qm {

// The name of no effect, first in each list.
inline constexpr char QVNoneEffect[] = "None";

// The catalogue of named clip effects. Given a name and a clip's resting state it builds the other
// end of the animation: where an entrance begins, where an exit ends, or where an emphasis stands
// at a moment. Stateless and shared; callable from any thread.
//
// The three make... operations give back the resting state itself (the same object) for an empty
// name, "None" or a name not in their list; QVEffectInstance tests that identity to see that
// nothing animates. Every builder starts from a deep copy of the resting state; a fade gives the
// resting state itself a neutral colour facet when it has none.
class QVEffectTemplateMgr {
public:
    static QVEffectTemplateMgr& shareEffectTemplateMgr();

    // "None", then the fade, zoom and fly entrances (20 names); the exit list has the same shape
    // with "out"/"Out"; the emphasis list is "None", "Flashing", "Shaking", "Pan&Zoom".
    const std::vector<std::string>& supportedEntranceEffects() const;
    const std::vector<std::string>& supportedExitEffects() const;
    const std::vector<std::string>& supportedEnhanceEffects() const;

    std::shared_ptr<QVEffectState> makeEntranceBeginStateWithName(const std::string& name,
                                                                  const std::shared_ptr<QVEffectState>& endState,
                                                                  const QVEffectContext* context) const;
    std::shared_ptr<QVEffectState> makeExitStateWithName(const std::string& name,
                                                         const std::shared_ptr<QVEffectState>& startState,
                                                         const QVEffectContext* context) const;
    // The emphasis at `curTimestamp` into an emphasis of length `duration`.
    std::shared_ptr<QVEffectState> makeEnhanceStateWithName(const std::string& name,
                                                            const std::shared_ptr<QVEffectState>& startState,
                                                            const QVEffectContext* context, int64_t curTimestamp,
                                                            int64_t duration) const;

    // The builders. `direction` 0 left, 1 top, 2 right, anything else bottom.
    std::shared_ptr<QVEffectState> flyState(const std::shared_ptr<QVEffectState>& state,
                                            const QVEffectContext* context, int32_t direction, bool fade,
                                            bool zoom) const;
    std::shared_ptr<QVEffectState> fadeState(const std::shared_ptr<QVEffectState>& state,
                                             const QVEffectContext* context, bool zoom) const;
    std::shared_ptr<QVEffectState> zoomState(const std::shared_ptr<QVEffectState>& state,
                                             const QVEffectContext* context) const;
    std::shared_ptr<QVEffectState> flashState(const std::shared_ptr<QVEffectState>& state,
                                              const QVEffectContext* context, int64_t curTimestamp,
                                              int64_t duration) const;
    std::shared_ptr<QVEffectState> shakeState(const std::shared_ptr<QVEffectState>& state,
                                              const QVEffectContext* context, int64_t curTimestamp,
                                              int64_t duration) const;
    std::shared_ptr<QVEffectState> panZoomState(const std::shared_ptr<QVEffectState>& state,
                                                const QVEffectContext* context, int64_t curTimestamp,
                                                int64_t duration) const;

private:
    QVEffectTemplateMgr() = default;
};

}  // namespace qm
