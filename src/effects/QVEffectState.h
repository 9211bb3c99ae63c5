#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "effects/QVClipStates.h"
#include "image/Image.h"
#include "platform/Geometry.h"

namespace qm {

// What an effect needs to know of its clip: the canvas size and the clip's bounds on it, and the
// neutral states an animation starts from when its own start says nothing on a facet. Each neutral
// state is made on first request and then kept; they may be requested from several threads.
class QVEffectContext {
public:
    static std::shared_ptr<QVEffectContext> createWithConvasSize(Size canvasSize, const Rect& bounds);

    Size canvasSize() const { return _canvasSize; }
    const Rect& bounds() const { return _bounds; }

    // A position of zero size at the origin.
    std::shared_ptr<QVClipPosition> defaultMotionState() const;
    std::shared_ptr<QVColorState> defaultColorState() const;
    std::shared_ptr<QVShadowState> defaultShadowState() const;
    // A crop of the clip's bounds.
    std::shared_ptr<QVCropState> defaultCropState() const;

private:
    QVEffectContext(Size canvasSize, const Rect& bounds) : _canvasSize(canvasSize), _bounds(bounds) {}

    Size _canvasSize;
    Rect _bounds;
    mutable std::once_flag _motionOnce, _shadowOnce, _cropOnce, _colorOnce;
    mutable std::shared_ptr<QVClipPosition> _motionState;
    mutable std::shared_ptr<QVShadowState> _shadowState;
    mutable std::shared_ptr<QVCropState> _cropState;
    mutable std::shared_ptr<QVColorState> _colorState;
};

// One complete look of a clip: position, colour, shadow and crop. A null facet says nothing on
// that facet. The facets are shared objects: a clip's own state holds the clip's live states, and
// an interpolated state may share a facet of its start, so treat facets as read-only.
class QVEffectState {
public:
    // All four facets null.
    static std::shared_ptr<QVEffectState> create();

    const std::shared_ptr<QVClipPosition>& motionState() const { return _motionState; }
    void setMotionState(std::shared_ptr<QVClipPosition> state) { _motionState = std::move(state); }
    const std::shared_ptr<QVColorState>& colorState() const { return _colorState; }
    void setColorState(std::shared_ptr<QVColorState> state) { _colorState = std::move(state); }
    const std::shared_ptr<QVShadowState>& shadowState() const { return _shadowState; }
    void setShadowState(std::shared_ptr<QVShadowState> state) { _shadowState = std::move(state); }
    const std::shared_ptr<QVCropState>& cropState() const { return _cropState; }
    void setCropState(std::shared_ptr<QVCropState> state) { _cropState = std::move(state); }

    // A deep copy; null facets stay null.
    std::shared_ptr<QVEffectState> copy() const;

    // The state at `percent` on the way from `start` (0) to this one (1), facet by facet:
    // - both present: the facet's interpolation;
    // - only this one present: interpolated from the context's neutral facet;
    // - only the start present: the start's facet object itself, at every percent;
    // - neither: null.
    // A null start counts as a state with four null facets. The percent is not clamped; neither
    // state is changed.
    std::shared_ptr<QVEffectState> calcEffectStateSince(const std::shared_ptr<QVEffectState>& start,
                                                        const QVEffectContext& context, double percent) const;

    // `image` in this look, a lazy graph in this order:
    // 1. crop to cropState's rect;
    // 2. move the extent so far onto the motion bounds, turned by its angle (no motion state:
    //    left where it is);
    // 3. shadow: the moved image's silhouette, offset and blurred, then turned once more about the
    //    centre of the motion bounds by the motion angle, with the moved image over it;
    // 4. colour controls unless neutral, then opacity by a colour matrix unless 1; as this comes
    //    after the shadow, opacity thins the shadow too.
    // Neutral steps are skipped. A null image gives a null image.
    Image applyState(const Image& image) const;

private:
    QVEffectState() = default;

    std::shared_ptr<QVClipPosition> _motionState;
    std::shared_ptr<QVColorState> _colorState;
    std::shared_ptr<QVShadowState> _shadowState;
    std::shared_ptr<QVCropState> _cropState;
};

}  // namespace qm
