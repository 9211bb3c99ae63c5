#include "effects/QVEffectState.h"

#include "effects/transitions/PSTransitionBase.h"

namespace qm {

namespace {

// The interpolation of one facet: see calcEffectStateSince.
template <class State, class Interpolate, class Neutral>
std::shared_ptr<State> facetBetween(const std::shared_ptr<State>& start, const std::shared_ptr<State>& target,
                                    Interpolate interpolate, Neutral neutral) {
    if (target) return interpolate(*target, start ? start : neutral());
    return start;
}

}  // namespace

// --- QVEffectContext

std::shared_ptr<QVEffectContext> QVEffectContext::createWithConvasSize(Size canvasSize, const Rect& bounds) {
    return std::shared_ptr<QVEffectContext>(new QVEffectContext(canvasSize, bounds));
}

std::shared_ptr<QVClipPosition> QVEffectContext::defaultMotionState() const {
    std::call_once(_motionOnce, [this] { _motionState = QVClipPosition::create(); });
    return _motionState;
}

std::shared_ptr<QVColorState> QVEffectContext::defaultColorState() const {
    std::call_once(_colorOnce, [this] { _colorState = QVColorState::create(); });
    return _colorState;
}

std::shared_ptr<QVShadowState> QVEffectContext::defaultShadowState() const {
    std::call_once(_shadowOnce, [this] { _shadowState = QVShadowState::create(); });
    return _shadowState;
}

std::shared_ptr<QVCropState> QVEffectContext::defaultCropState() const {
    std::call_once(_cropOnce, [this] { _cropState = QVCropState::createWithRect(_bounds); });
    return _cropState;
}

// --- QVEffectState

std::shared_ptr<QVEffectState> QVEffectState::create() { return std::shared_ptr<QVEffectState>(new QVEffectState()); }

std::shared_ptr<QVEffectState> QVEffectState::copy() const {
    auto state = create();
    if (_motionState) state->_motionState = _motionState->copy();
    if (_colorState) state->_colorState = _colorState->copy();
    if (_shadowState) state->_shadowState = _shadowState->copy();
    if (_cropState) state->_cropState = _cropState->copy();
    return state;
}

std::shared_ptr<QVEffectState> QVEffectState::calcEffectStateSince(const std::shared_ptr<QVEffectState>& start,
                                                                   const QVEffectContext& context,
                                                                   double percent) const {
    auto state = create();
    const QVEffectState empty;
    const QVEffectState& from = start ? *start : empty;
    state->_motionState = facetBetween(
        from._motionState, _motionState,
        [percent](const QVClipPosition& target, const std::shared_ptr<QVClipPosition>& origin) {
            return target.calcPositionWithStart(*origin, percent);
        },
        [&context] { return context.defaultMotionState(); });
    state->_colorState = facetBetween(
        from._colorState, _colorState,
        [percent](const QVColorState& target, const std::shared_ptr<QVColorState>& origin) {
            return target.calcColorStateWithStart(origin, percent);
        },
        [&context] { return context.defaultColorState(); });
    state->_cropState = facetBetween(
        from._cropState, _cropState,
        [percent](const QVCropState& target, const std::shared_ptr<QVCropState>& origin) {
            return target.calcCropStateWithStart(origin, percent);
        },
        [&context] { return context.defaultCropState(); });
    state->_shadowState = facetBetween(
        from._shadowState, _shadowState,
        [percent](const QVShadowState& target, const std::shared_ptr<QVShadowState>& origin) {
            return target.calcShadowStateWithStart(origin, percent);
        },
        [&context] { return context.defaultShadowState(); });
    return state;
}

Image QVEffectState::applyState(const Image& input) const {
    Image image = input;
    if (_cropState) image = PSTransitionBase::cropImage(image, _cropState->cropRect());

    if (_motionState) {
        const Rect sourceBounds = image.extent();
        image = PSTransitionBase::transformImage(image, _motionState->tranformWithSourceBounds(sourceBounds));
    }

    if (_shadowState) {
        const Rect bounds = _motionState ? _motionState->bounds() : image.extent();
        const double angle = _motionState ? _motionState->rotateAngle() : 0;
        const Shadow shadow = _shadowState->shadow();
        Image silhouette = PSTransitionBase::shadowImage(image, &shadow, bounds);
        silhouette = PSTransitionBase::transformImage(silhouette, bounds, bounds, angle);
        image = PSTransitionBase::sourceOverImage(image, silhouette);
    }

    if (_colorState) {
        if (!_colorState->defaultColorContorls()) {
            image = image.colorControls(_colorState->brightness(), _colorState->contrast(), _colorState->saturation());
        }
        if (!_colorState->defaultOpacity()) {
            ColorMatrix matrix;
            matrix.a = {0, 0, 0, static_cast<float>(_colorState->opacity())};
            image = image.colorMatrix(matrix);
        }
    }
    return image;
}

}  // namespace qm
