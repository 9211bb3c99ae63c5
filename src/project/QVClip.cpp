#include "project/QVClip.h"

#include <cmath>

#include "effects/QVClipStates.h"
#include "effects/QVEffectInstance.h"
#include "effects/QVEffectState.h"
#include "effects/QVTransitionInstance.h"
#include "foundation/QMCommon.h"
#include "foundation/QVSampleDescription.h"
#include "foundation/QVVolumeEffect.h"
#include "platform/UUID.h"
#include "project/QVProject.h"
#include "project/QVTrack.h"

namespace qm {

namespace {

// Wrapping sums: durations read from an archive are not limited, and a sum of them must not trap.
int64_t plus(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

int64_t minus(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

// (low, high - low), or (low, 0) when high is not above low.
QVRange halfOpen(int64_t low, int64_t high) { return high > low ? QVRange(low, minus(high, low)) : QVRange(low, 0); }

int64_t endOf(const QVClip& clip) { return clip.trackTimeRange().end(); }

// `value` raised to the range's location and lowered to its endLocation, in that order.
int64_t limited(int64_t value, const QVRange& range) {
    if (value < range.location()) value = range.location();
    if (value > range.endLocation()) value = range.endLocation();
    return value;
}

}  // namespace

QVClip::QVClip()
    : _identifier(UUID::create().UUIDString()), _volume(QVVolumeEffect::defaultVolume()) {}

QVClip::~QVClip() = default;

std::shared_ptr<QVClip> QVClip::create() {
    std::shared_ptr<QVClip> clip(new QVClip());
    clip->loadDefaultSettings();
    return clip;
}

std::shared_ptr<QVClip> QVClip::createWithCoder(KeyedUnarchiver& coder) {
    std::shared_ptr<QVClip> clip(new QVClip());
    if (!clip->initWithCoder(coder)) return nullptr;
    return clip;
}

std::shared_ptr<QVClip> QVClip::copy() const {
    auto clip = create();
    copyPropertiesTo(*clip);
    return clip;
}

void QVClip::copyPropertiesTo(QVClip& clip) const {
    clip.setOwner(nullptr);
    clip.setTrackDuration(_duration);
    clip.setTimestampOfTrack(_timestampOfTrack);
    clip.setValidate(_validate);
    clip.setMute(_mute);
    clip.setIgnoreVideo(_ignoreVideo);
    clip.adoptPosition(clipPosition()->copy());
    auto transition = transitionInstance()->copy();
    transition->setStartClip(clip.self());
    clip._transitionInstance.store(std::move(transition));
    auto effects = effectInstance()->copy();
    effects->setOwner(clip.self());
    clip._effectInstance.store(std::move(effects));
    clip.setValideteShadow(_valideteShadow);
    clip.setValidateCrop(_validateCrop);
    clip.setValidateColorControl(_validateColorControl);
    if (auto state = colorState()) clip._colorState = state->copy();
    if (auto state = shadowState()) clip._shadowState = state->copy();
    if (auto state = cropState()) clip._cropState = state->copy();
    clip._volume = _volume;
    clip._volumeGain.reset();
}

void QVClip::resetCacheImage() {}

int64_t QVClip::sourceDuration() const { return unlimitedSourceDuration; }

bool QVClip::audioExist() const { return false; }

bool QVClip::videoExist() const { return true; }

std::string QVClip::title() const { return "Unknown"; }

Size QVClip::sourceSize() const { return {}; }

bool QVClip::allowResizeBounds() const { return true; }

bool QVClip::allowRotate() const { return true; }

bool QVClip::allowMove() const { return true; }

void QVClip::loadDefaultSettings() {
    setTimestampOfTrack(0);
    const int64_t source = sourceDuration();
    setTrackDuration(source == unlimitedSourceDuration ? 5 * QVTimebase : source);
    setValidate(true);
    setMute(false);
    setIgnoreVideo(false);
}

std::shared_ptr<QVSampleBuffer> QVClip::sampleBufferWithRange(const QVRange&, const QVSampleDescription&, bool) {
    return nullptr;
}

std::shared_ptr<QVSampleBuffer> QVClip::sampleBufferWithRange(const QVRange& range,
                                                              const QVSampleDescription& description) {
    return sampleBufferWithRange(range, description, false);
}

int64_t QVClip::trackTimestampToSource(int64_t) const { return 0; }

int64_t QVClip::trackTimestampFromSource(int64_t) const { return 0; }

Image QVClip::imageAtSourceTimestamp(int64_t) { return Image(); }

std::shared_ptr<const Bitmap> QVClip::cgImageAtSourceTimestamp(int64_t) { return nullptr; }

std::shared_ptr<const Bitmap> QVClip::thumbnail() { return nullptr; }

QVRange QVClip::trackTimeRange() const { return QVRange(_timestampOfTrack, _duration); }

std::shared_ptr<QVClip> QVClip::self() const { return std::const_pointer_cast<QVClip>(shared_from_this()); }

QVClip::Neighbours QVClip::neighbours() const {
    Neighbours found;
    auto track = owner();
    if (!track) return found;
    const size_t index = track->indexOfObjectInClips(self());
    if (index == QVNotFound) return found;
    if (index >= 1) found.prev = track->objectInClipsAtIndex(index - 1);
    if (index >= 2) found.prevprev = track->objectInClipsAtIndex(index - 2);
    found.next = track->objectInClipsAtIndex(index + 1);
    found.nextnext = track->objectInClipsAtIndex(index + 2);
    return found;
}

QVRange QVClip::rangeOfTimestampAtTrack() const {
    const Neighbours n = neighbours();
    const int64_t min = minClipDuration;
    const int64_t d = _duration;
    int64_t low = 0;
    if (n.prev) {
        low = plus(n.prev->timestampOfTrack(), min);
        const int64_t prevEnd = endOf(*n.prev);
        if (plus(low, d) <= plus(prevEnd, min)) low = plus(minus(prevEnd, d), min);
        if (n.prevprev && low <= endOf(*n.prevprev)) low = endOf(*n.prevprev);
    }
    if (!n.next) return halfOpen(low, unlimitedBound);
    int64_t high = minus(n.next->timestampOfTrack(), min);
    const int64_t nextEnd = endOf(*n.next);
    if (minus(nextEnd, min) <= plus(d, high)) high = minus(minus(nextEnd, min), d);
    if (n.nextnext && n.nextnext->timestampOfTrack() <= plus(d, high)) {
        high = minus(minus(n.nextnext->timestampOfTrack(), d), 1);
    }
    return halfOpen(low, high);
}

QVRange QVClip::rangeOfDurationAtTrack() const {
    const Neighbours n = neighbours();
    const int64_t min = minClipDuration;
    const int64_t s = _timestampOfTrack;
    int64_t low = min;
    if (n.prev && plus(s, low) < plus(endOf(*n.prev), min)) low = minus(plus(endOf(*n.prev), min), s);
    if (!n.next) return halfOpen(low, unlimitedBound);
    int64_t high = minus(minus(endOf(*n.next), min), s);
    if (n.nextnext && n.nextnext->timestampOfTrack() < plus(s, high)) {
        high = minus(n.nextnext->timestampOfTrack(), s);
    }
    return halfOpen(low, high);
}

QVRange QVClip::rangeOfTimestampForCut() const {
    const Neighbours n = neighbours();
    const int64_t min = minClipDuration;
    int64_t low = 0;
    if (n.prev) {
        low = plus(n.prev->timestampOfTrack(), min);
        if (n.prevprev && low < endOf(*n.prevprev)) low = endOf(*n.prevprev);
    }
    int64_t high = minus(endOf(*this), min);
    if (n.next && minus(n.next->timestampOfTrack(), min) < high) high = minus(n.next->timestampOfTrack(), min);
    return halfOpen(low, high);
}

void QVClip::setTimestampOfTrack(int64_t timestamp) {
    if (!_notCheckValue) {
        const QVRange range = rangeOfTimestampAtTrack();
        if (range.empty()) return;
        timestamp = limited(timestamp, range);
    }
    if (timestamp == _timestampOfTrack) return;
    const int64_t old = _timestampOfTrack;
    registerUndo([old](QVClip& clip) { clip.setTimestampOfTrack(old); });
    willChangeValueForKey("timestampOfTrack");
    _timestampOfTrack = timestamp;
    didChangeValueForKey("timestampOfTrack");
}

void QVClip::setTrackDuration(int64_t duration) {
    if (!_notCheckValue) {
        const QVRange range = rangeOfDurationAtTrack();
        if (range.empty()) return;
        duration = limited(duration, range);
    }
    if (duration == _duration) return;
    const int64_t old = _duration;
    registerUndo([old](QVClip& clip) { clip.setTrackDuration(old); });
    willChangeValueForKey("trackDuration");
    _duration = duration;
    didChangeValueForKey("trackDuration");
}

void QVClip::cutAtTimestamp(int64_t timestamp) {
    const UndoRef undo = undoManager();
    undo.beginUndoGrouping();
    timestamp = limited(timestamp, rangeOfTimestampForCut());
    const int64_t end = endOf(*this);
    _notCheckValue = true;
    setTrackDuration(minus(end, timestamp));
    setTimestampOfTrack(timestamp);
    _notCheckValue = false;
    undo.endUndoGrouping();
}

QVRange QVClip::sampleRangeWithSampleDescription(const QVSampleDescription& description) const {
    const int64_t rate = description.sampleRate();
    return QVRange(QMSamplesFromTimestamp(rate, _timestampOfTrack), QMSamplesFromTimestamp(rate, _duration));
}

void QVClip::setMute(bool mute) {
    if (mute == _mute) return;
    const bool old = _mute;
    registerUndo([old](QVClip& clip) { clip.setMute(old); });
    willChangeValueForKey("mute");
    _mute = mute;
    didChangeValueForKey("mute");
}

void QVClip::setTrackVolume(double volume) {
    if (!(std::fabs(_volume - volume) > QMCommon::expression())) return;
    const double old = _volume;
    registerUndo([old](QVClip& clip) { clip.setTrackVolume(old); });
    willChangeValueForKey("trackVolume");
    _volume = volume;
    _volumeGain.reset();
    didChangeValueForKey("trackVolume");
}

std::shared_ptr<QVVolumeGainEffect> QVClip::volumeGain() {
    if (!_volumeGain) _volumeGain = QVVolumeGainEffect::createWithVolume(_volume);
    return _volumeGain;
}

void QVClip::storeFlag(bool& field, bool value, const char* key) {
    willChangeValueForKey(key);
    field = value;
    didChangeValueForKey(key);
}

void QVClip::setValidate(bool validate) { storeFlag(_validate, validate, "validate"); }

void QVClip::setIgnoreVideo(bool ignoreVideo) { storeFlag(_ignoreVideo, ignoreVideo, "ignoreVideo"); }

void QVClip::setValidateColorControl(bool validate) {
    storeFlag(_validateColorControl, validate, "validateColorControl");
}

void QVClip::setValidateCrop(bool validate) { storeFlag(_validateCrop, validate, "validateCrop"); }

void QVClip::setValideteShadow(bool validate) { storeFlag(_valideteShadow, validate, "valideteShadow"); }

std::shared_ptr<QVClipPosition> QVClip::clipPosition() const {
    if (!_position) adoptPosition(QVClipPosition::createWithSize(sourceSize()));
    return _position;
}

void QVClip::adoptPosition(std::shared_ptr<QVClipPosition> position) const {
    // Lazy members are filled from const readers; the clip itself is never a const object.
    auto* clip = const_cast<QVClip*>(this);
    position->setOwner(self());
    clip->_positionBoundsToken = position->addObserver("bounds", [clip](const KeyValueChange& change) {
        clip->_boundsBeforeChange = std::any_cast<Rect>(change.oldValue);
        clip->willChangeValueForKey("clipPosition.bounds");
        clip->_boundsBeforeChange.reset();
        clip->didChangeValueForKey("clipPosition.bounds");
    });
    _position = std::move(position);
}

Rect QVClip::bounds() const { return clipPosition()->bounds(); }

template <class State>
std::shared_ptr<State> QVClip::lazyState(std::shared_ptr<State>& field, bool flag) const {
    if (!flag) return nullptr;
    if (!field) {
        field = State::create();
        field->setUndoManager(undoManager());
    }
    return field;
}

std::shared_ptr<QVColorState> QVClip::colorState() const { return lazyState(_colorState, _validateColorControl); }

std::shared_ptr<QVShadowState> QVClip::shadowState() const { return lazyState(_shadowState, _valideteShadow); }

std::shared_ptr<QVCropState> QVClip::cropState() const { return lazyState(_cropState, _validateCrop); }

std::shared_ptr<QVEffectState> QVClip::effectState() const {
    auto state = QVEffectState::create();
    state->setMotionState(clipPosition());
    state->setColorState(_validateColorControl ? colorState() : nullptr);
    state->setCropState(_validateCrop ? cropState() : nullptr);
    state->setShadowState(_valideteShadow ? shadowState() : nullptr);
    return state;
}

std::shared_ptr<QVEffectContext> QVClip::effectContext() const {
    Size canvas;
    if (auto track = owner()) {
        if (auto project = track->owner()) {
            canvas = Size{static_cast<double>(project->outVideoWidth()),
                          static_cast<double>(project->outVideoHeight())};
        }
    }
    const Rect clipBounds = bounds();
    auto context = _effectContext.load();
    if (!context || !(context->canvasSize() == canvas) || !(context->bounds() == clipBounds)) {
        context = QVEffectContext::createWithConvasSize(canvas, clipBounds);
        _effectContext.store(context);
    }
    return context;
}

namespace {

// The member held in `field`, made by `make` on first read. Two first readers may both make one;
// the first stored wins and both get it.
template <class T, class Make>
std::shared_ptr<T> madeOnFirstRead(std::atomic<std::shared_ptr<T>>& field, Make make) {
    auto value = field.load();
    if (value) return value;
    auto made = make();
    if (field.compare_exchange_strong(value, made)) return made;
    return value;
}

}  // namespace

std::shared_ptr<QVEffectInstance> QVClip::effectInstance() const {
    return madeOnFirstRead(_effectInstance, [this] {
        auto instance = QVEffectInstance::create();
        instance->setOwner(self());
        return instance;
    });
}

std::shared_ptr<QVTransitionInstance> QVClip::transitionInstance() const {
    return madeOnFirstRead(_transitionInstance, [this] {
        return QVTransitionInstance::createWithTransitionName(PSTransition::supportTransitions().front(), self());
    });
}

int64_t QVClip::timestampOfClipPosition() const {
    const auto effects = effectInstance();
    return effects->entranceEffectEnabled() ? plus(_timestampOfTrack, effects->durationEntranceEffect())
                                            : _timestampOfTrack;
}

UndoRef QVClip::undoManager() const {
    auto track = owner();
    return track ? track->undoManager() : UndoRef();
}

void QVClip::registerUndo(std::function<void(QVClip&)> restore) {
    const UndoRef undo = undoManager();
    if (!undo) return;
    std::weak_ptr<QVClip> weak = self();
    undo.registerUndo(this, [weak, restore = std::move(restore)] {
        if (auto clip = weak.lock()) restore(*clip);
    });
}

std::any QVClip::valueForKey(const std::string& key) const {
    if (key == "mute") return _mute;
    if (key == "trackVolume") return _volume;
    if (key == "volumeGain") return _volumeGain;
    if (key == "timestampOfTrack") return _timestampOfTrack;
    if (key == "trackDuration") return _duration;
    if (key == "trackTimeRange") return trackTimeRange();
    if (key == "validate") return _validate;
    if (key == "ignoreVideo") return _ignoreVideo;
    if (key == "validateColorControl") return _validateColorControl;
    if (key == "validateCrop") return _validateCrop;
    if (key == "valideteShadow") return _valideteShadow;
    if (key == "colorState") return colorState();
    if (key == "cropState") return cropState();
    if (key == "shadowState") return shadowState();
    if (key == "bounds") return _boundsBeforeChange ? *_boundsBeforeChange : bounds();
    return Observable::valueForKey(key);
}

std::vector<std::string> QVClip::keyPathsForValuesAffectingValueForKey(const std::string& key) const {
    if (key == "volumeGain") return {"trackVolume"};
    if (key == "trackTimeRange") return {"timestampOfTrack", "trackDuration"};
    if (key == "colorState") return {"validateColorControl"};
    if (key == "cropState") return {"validateCrop"};
    if (key == "shadowState") return {"valideteShadow"};
    if (key == "bounds") return {"clipPosition.bounds"};
    return Observable::keyPathsForValuesAffectingValueForKey(key);
}

void QVClip::encodeWithCoder(KeyedArchiver& coder) const {
    coder.encodeString("identifier", _identifier);
    coder.encodeInt64("timestampOfTrack", _timestampOfTrack);
    coder.encodeInt64("duration", _duration);
    coder.encodeBool("ignoreVideo", _ignoreVideo);
    coder.encodeBool("mute", _mute);
    coder.encodeBool("validate", _validate);
    coder.encodeObject("position", clipPosition());
    coder.encodeBool("validateColorControl", _validateColorControl);
    coder.encodeObject("colorState", _colorState);
    coder.encodeBool("validateCrop", _validateCrop);
    coder.encodeObject("cropState", _cropState);
    coder.encodeBool("valideteShadow", _valideteShadow);
    coder.encodeObject("shadowState", _shadowState);
    coder.encodeObject("transitionInstance", transitionInstance());
    coder.encodeObject("effectInstance", effectInstance());
    coder.encodeFloat("volume", _volume);
}

bool QVClip::initWithCoder(KeyedUnarchiver& coder) {
    _identifier = coder.decodeString("identifier");
    _duration = coder.decodeInt64("duration");
    setTimestampOfTrack(coder.decodeInt64("timestampOfTrack"));
    setValidate(coder.decodeBool("validate"));
    setMute(coder.decodeBool("mute"));
    setIgnoreVideo(coder.decodeBool("ignoreVideo"));
    if (auto position = coder.decodeObjectOfClass<QVClipPosition>("position")) adoptPosition(std::move(position));
    auto transition = coder.decodeObjectOfClass<QVTransitionInstance>("transitionInstance");
    auto effects = coder.decodeObjectOfClass<QVEffectInstance>("effectInstance");
    setValideteShadow(coder.decodeBool("valideteShadow"));
    setValidateCrop(coder.decodeBool("validateCrop"));
    setValidateColorControl(coder.decodeBool("validateColorControl"));
    _colorState = coder.decodeObjectOfClass<QVColorState>("colorState");
    _shadowState = coder.decodeObjectOfClass<QVShadowState>("shadowState");
    _cropState = coder.decodeObjectOfClass<QVCropState>("cropState");
    _volume = coder.decodeFloat("volume");
    _notCheckValue = false;
    if (effects) {
        effects->setOwner(self());
        _effectInstance.store(std::move(effects));
    }
    if (transition) {
        transition->setStartClip(self());
        _transitionInstance.store(std::move(transition));
    }
    setOwner(nullptr);
    return true;
}

}  // namespace qm
