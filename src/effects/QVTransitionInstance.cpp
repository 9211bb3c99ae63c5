#include "effects/QVTransitionInstance.h"

#include <algorithm>
#include <random>

#include "platform/Log.h"

namespace qm {

namespace {

void warnNoTransition() { QMLog("Warning: No transition exist."); }

bool hasVideo(const std::shared_ptr<QVTimedClip>& clip) { return clip && clip->videoExist(); }

int64_t endOf(const QVTimedClip& clip) { return clip.trackTimeRange().end(); }

// The end clip starts strictly before the start clip ends.
bool overlaps(const QVTimedClip& start, const QVTimedClip& end) { return end.timestampOfTrack() < endOf(start); }

}  // namespace

std::shared_ptr<QVTransitionInstance> QVTransitionInstance::create() {
    return createWithTransitionName(PSTransition::supportTransitions().front());
}

std::shared_ptr<QVTransitionInstance> QVTransitionInstance::createWithTransitionName(const std::string& name) {
    return createWithTransitionName(name, nullptr);
}

std::shared_ptr<QVTransitionInstance> QVTransitionInstance::createWithTransitionName(
    const std::string& name, const std::shared_ptr<QVTimedClip>& startClip) {
    auto instance = std::shared_ptr<QVTransitionInstance>(new QVTransitionInstance(name));
    instance->_startClip = startClip;
    return instance;
}

std::shared_ptr<QVTransitionInstance> QVTransitionInstance::createWithCoder(KeyedUnarchiver& coder) {
    const int64_t length = coder.decodeInt64("transitionToTileLength");
    const bool allow = coder.decodeBool("allowTransitionToTile");
    auto instance = createWithTransitionName(coder.decodeString("transitionName"));
    instance->_transitionToTileLength = length;
    instance->_allowTransitionToTile = allow;
    return instance;
}

UndoRef QVTransitionInstance::undoManager() const {
    auto clip = startClip();
    return clip ? clip->undoManager() : UndoRef();
}

void QVTransitionInstance::setTransitionName(const std::string& name) {
    if (const UndoRef undo = undoManager()) {
        std::weak_ptr<QVTransitionInstance> weak = weak_from_this();
        undo.registerUndo(this, [weak, old = _transitionName] {
            if (auto self = weak.lock()) self->setTransitionName(old);
        });
    }
    willChangeValueForKey("transitionName");
    _transitionName = name;
    _transition.store(nullptr);
    didChangeValueForKey("transitionName");
}

void QVTransitionInstance::randomTransition() {
    const auto& names = PSTransition::supportTransitions();
    std::random_device source;
    std::uniform_int_distribution<size_t> pick(0, names.size() - 1);
    setTransitionName(names[pick(source)]);
}

std::shared_ptr<PSTransition> QVTransitionInstance::transition() const {
    if (auto cached = _transition.load()) return cached;
    auto made = PSTransition::transitionWithName(_transitionName);
    // A thread that lost the race takes the winner's object.
    std::shared_ptr<PSTransition> expected;
    if (_transition.compare_exchange_strong(expected, made)) return made;
    return expected;
}

void QVTransitionInstance::setAllowTransitionToTile(bool allow) {
    willChangeValueForKey("allowTransitionToTile");
    _allowTransitionToTile = allow;
    didChangeValueForKey("allowTransitionToTile");
}

void QVTransitionInstance::setTransitionToTileLength(int64_t length) {
    willChangeValueForKey("transitionToTileLength");
    _transitionToTileLength = length;
    didChangeValueForKey("transitionToTileLength");
}

bool QVTransitionInstance::validate() const {
    const auto start = startClip();
    if (!hasVideo(start)) return false;
    if (_allowTransitionToTile) return _transitionToTileLength > 0;
    const auto end = endClip();
    if (!hasVideo(end)) return false;
    return overlaps(*start, *end);
}

int64_t QVTransitionInstance::trackLength() const {
    const auto start = startClip();
    if (!hasVideo(start)) return 0;
    if (_allowTransitionToTile) return std::min(_transitionToTileLength, start->trackDuration());
    const auto end = endClip();
    if (!hasVideo(end)) return 0;
    return overlaps(*start, *end) ? endOf(*start) - end->timestampOfTrack() : 0;
}

int64_t QVTransitionInstance::trackStart() const {
    const auto start = startClip();
    if (!hasVideo(start)) return 0;
    if (_allowTransitionToTile) return endOf(*start) - std::min(start->trackDuration(), _transitionToTileLength);
    const auto end = endClip();
    if (!hasVideo(end)) {
        warnNoTransition();
        return 0;
    }
    if (overlaps(*start, *end)) return end->timestampOfTrack();
    warnNoTransition();
    return endOf(*start);
}

int64_t QVTransitionInstance::trackEnd() const {
    const auto start = startClip();
    if (!start) return 0;
    if (_allowTransitionToTile) return endOf(*start);
    const auto end = endClip();
    if (hasVideo(end) && overlaps(*start, *end)) return endOf(*start);
    // Without an end clip or an overlap the answer is 0, where trackStart gives the clip's end.
    warnNoTransition();
    return 0;
}

std::shared_ptr<QVTransitionInstance> QVTransitionInstance::copy() const {
    auto instance = createWithTransitionName(_transitionName);
    instance->_allowTransitionToTile = _allowTransitionToTile;
    instance->_transitionToTileLength = _transitionToTileLength;
    return instance;
}

std::any QVTransitionInstance::valueForKey(const std::string& key) const {
    if (key == "transitionName") return _transitionName;
    if (key == "allowTransitionToTile") return _allowTransitionToTile;
    if (key == "transitionToTileLength") return _transitionToTileLength;
    if (key == "validate") return validate();
    if (key == "trackStart") return trackStart();
    if (key == "trackEnd") return trackEnd();
    if (key == "trackLength") return trackLength();
    return Observable::valueForKey(key);
}

std::vector<std::string> QVTransitionInstance::keyPathsForValuesAffectingValueForKey(const std::string& key) const {
    if (key == "validate" || key == "trackStart" || key == "trackEnd" || key == "trackLength") {
        return {"allowTransitionToTile", "transitionToTileLength"};
    }
    return Observable::keyPathsForValuesAffectingValueForKey(key);
}

void QVTransitionInstance::encodeWithCoder(KeyedArchiver& coder) const {
    coder.encodeString("transitionName", _transitionName);
    coder.encodeBool("allowTransitionToTile", _allowTransitionToTile);
    coder.encodeInt64("transitionToTileLength", _transitionToTileLength);
}

}  // namespace qm
