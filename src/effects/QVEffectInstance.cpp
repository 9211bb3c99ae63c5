#include "effects/QVEffectInstance.h"

#include <mutex>

#include "effects/QVEffectTemplateMgr.h"
#include "effects/QVTransitionInstance.h"

namespace qm {

namespace {

// Time functions are immutable, so two with the same class and name pace alike.
bool samePacing(const std::shared_ptr<QVTimeFunction>& a, const std::shared_ptr<QVTimeFunction>& b) {
    if (a == b) return true;
    if (!a || !b) return false;
    return a->archiveClassName() == b->archiveClassName() && a->name() == b->name();
}

bool enabled(const std::string& name, int64_t duration) {
    return !name.empty() && name != QVNoneEffect && duration > 0;
}

// Records `setter` with the old value on the owner's undo manager, then stores `value` in `field`
// and tells the observers of `key`.
template <class T, class Setter>
void replaceValue(QVEffectInstance& instance, T& field, const T& value, const char* key, Setter setter) {
    if (const UndoRef undo = instance.undoManager()) {
        std::weak_ptr<QVEffectInstance> weak = instance.weak_from_this();
        undo.registerUndo(&instance, [weak, old = field, setter] {
            if (auto self = weak.lock()) (self.get()->*setter)(old);
        });
    }
    instance.willChangeValueForKey(key);
    field = value;
    instance.didChangeValueForKey(key);
}

double paced(const std::shared_ptr<QVTimeFunction>& function, double percent) {
    return function ? function->redirectPercent(percent) : percent;
}

}  // namespace

std::shared_ptr<QVEffectInstance> QVEffectInstance::create() {
    const auto& templates = QVEffectTemplateMgr::shareEffectTemplateMgr();
    return createWithEntrance(templates.supportedEntranceEffects().front(), templates.supportedEnhanceEffects().front(),
                              templates.supportedExitEffects().front());
}

std::shared_ptr<QVEffectInstance> QVEffectInstance::createWithEntrance(const std::string& entrance,
                                                                       const std::string& enhance,
                                                                       const std::string& exit) {
    auto instance = std::shared_ptr<QVEffectInstance>(new QVEffectInstance(entrance, enhance, exit));
    instance->_entranceTimeFunc = QVTimeFunction::create();
    instance->_exitTimeFunc = QVTimeFunction::create();
    instance->_enhanceTimeFunc = QVTimeFunction::create();
    return instance;
}

std::shared_ptr<QVEffectInstance> QVEffectInstance::createWithCoder(KeyedUnarchiver& coder) {
    auto instance = std::shared_ptr<QVEffectInstance>(new QVEffectInstance({}, {}, {}));
    instance->_durationOfEntrance = coder.decodeInt64("durationEntranceEffect");
    instance->_durationOfExit = coder.decodeInt64("durationExitEffect");
    instance->_durationOfEnhance = coder.decodeInt64("durationEnhanceEffect");
    instance->_enhanceName = coder.decodeString("enhanceName");
    instance->_entranceName = coder.decodeString("entranceName");
    instance->_exitName = coder.decodeString("exitName");
    instance->_entranceTimeFunc = coder.decodeObjectOfClass<QVTimeFunction>("entranceTimeFunction");
    instance->_exitTimeFunc = coder.decodeObjectOfClass<QVTimeFunction>("exitTimeFunction");
    instance->_enhanceTimeFunc = coder.decodeObjectOfClass<QVTimeFunction>("enhanceTimeFunction");
    return instance;
}

QVEffectInstance::QVEffectInstance(const std::string& entrance, const std::string& enhance, const std::string& exit)
    : _entranceName(entrance), _enhanceName(enhance), _exitName(exit) {}

void QVEffectInstance::setEntranceName(const std::string& name) {
    if (name == _entranceName) return;
    replaceValue(*this, _entranceName, name, "entranceName", &QVEffectInstance::setEntranceName);
}

void QVEffectInstance::setEnhanceName(const std::string& name) {
    if (name == _enhanceName) return;
    replaceValue(*this, _enhanceName, name, "enhanceName", &QVEffectInstance::setEnhanceName);
}

void QVEffectInstance::setExitName(const std::string& name) {
    if (name == _exitName) return;
    replaceValue(*this, _exitName, name, "exitName", &QVEffectInstance::setExitName);
}

void QVEffectInstance::setDurationEntranceEffect(int64_t duration) {
    if (duration == _durationOfEntrance) return;
    replaceValue(*this, _durationOfEntrance, duration, "durationEntranceEffect",
                 &QVEffectInstance::setDurationEntranceEffect);
}

void QVEffectInstance::setDurationEnhanceEffect(int64_t duration) {
    if (duration == _durationOfEnhance) return;
    replaceValue(*this, _durationOfEnhance, duration, "durationEnhanceEffect",
                 &QVEffectInstance::setDurationEnhanceEffect);
}

void QVEffectInstance::setDurationExitEffect(int64_t duration) {
    if (duration == _durationOfExit) return;
    replaceValue(*this, _durationOfExit, duration, "durationExitEffect", &QVEffectInstance::setDurationExitEffect);
}

void QVEffectInstance::setEntranceTimeFunction(const std::shared_ptr<QVTimeFunction>& function) {
    if (samePacing(function, _entranceTimeFunc)) return;
    replaceValue(*this, _entranceTimeFunc, function, "entranceTimeFunction",
                 &QVEffectInstance::setEntranceTimeFunction);
}

void QVEffectInstance::setEnhanceTimeFunction(const std::shared_ptr<QVTimeFunction>& function) {
    if (samePacing(function, _enhanceTimeFunc)) return;
    replaceValue(*this, _enhanceTimeFunc, function, "enhanceTimeFunction", &QVEffectInstance::setEnhanceTimeFunction);
}

void QVEffectInstance::setExitTimeFunction(const std::shared_ptr<QVTimeFunction>& function) {
    if (samePacing(function, _exitTimeFunc)) return;
    replaceValue(*this, _exitTimeFunc, function, "exitTimeFunction", &QVEffectInstance::setExitTimeFunction);
}

UndoRef QVEffectInstance::undoManager() const {
    auto clip = owner();
    return clip ? clip->undoManager() : UndoRef();
}

bool QVEffectInstance::entranceEffectEnabled() const { return enabled(_entranceName, _durationOfEntrance); }

bool QVEffectInstance::enhanceEffectEnabled() const { return enabled(_enhanceName, _durationOfEnhance); }

bool QVEffectInstance::exitEffectEnabled() const { return enabled(_exitName, _durationOfExit); }

std::shared_ptr<QVEffectState> QVEffectInstance::calcEffectStateWithStart(const std::shared_ptr<QVEffectState>& state,
                                                                          const QVEffectContext& context,
                                                                          int64_t timestamp) const {
    const auto& templates = QVEffectTemplateMgr::shareEffectTemplateMgr();
    const int64_t entrance = _durationOfEntrance;
    const int64_t enhance = _durationOfEnhance;
    const int64_t exit = _durationOfExit;
    const auto clip = owner();
    const int64_t duration = clip ? clip->trackDuration() : 0;

    if (timestamp < entrance) {
        auto begin = templates.makeEntranceBeginStateWithName(_entranceName, state, &context);
        if (begin == state) return state;
        const double percent = static_cast<double>(timestamp) / static_cast<double>(entrance);
        return state->calcEffectStateSince(begin, context, paced(_entranceTimeFunc, percent));
    }
    if (timestamp < entrance + enhance) {
        return templates.makeEnhanceStateWithName(_enhanceName, state, &context, timestamp - entrance, enhance);
    }
    if (timestamp > duration) return templates.makeExitStateWithName(_exitName, state, &context);
    if (timestamp < duration - exit) return state;

    auto end = templates.makeExitStateWithName(_exitName, state, &context);
    if (end == state) return state;
    const double percent = static_cast<double>(exit + timestamp - duration) / static_cast<double>(exit);
    return end->calcEffectStateSince(state, context, paced(_exitTimeFunc, percent));
}

Image QVEffectInstance::applyImage(const Image& image, const std::shared_ptr<QVEffectState>& state,
                                   const QVEffectContext& context, int64_t timestamp) const {
    const auto clip = owner();
    if (!clip || !clip->trackTimeRange().containLocation(timestamp)) return Image();
    const auto moment = calcEffectStateWithStart(state, context, timestamp - clip->timestampOfTrack());
    return moment->applyState(image);
}

std::shared_ptr<QVEffectInstance> QVEffectInstance::copy() const {
    auto instance = create();
    instance->setEntranceName(_entranceName);
    instance->setEnhanceName(_enhanceName);
    instance->setExitName(_exitName);
    instance->setDurationEntranceEffect(_durationOfEntrance);
    instance->setDurationEnhanceEffect(_durationOfEnhance);
    instance->setDurationExitEffect(_durationOfExit);
    instance->setEntranceTimeFunction(_entranceTimeFunc);
    instance->setEnhanceTimeFunction(_enhanceTimeFunc);
    instance->setExitTimeFunction(_exitTimeFunc);
    return instance;
}

std::any QVEffectInstance::valueForKey(const std::string& key) const {
    if (key == "entranceName") return _entranceName;
    if (key == "enhanceName") return _enhanceName;
    if (key == "exitName") return _exitName;
    if (key == "durationEntranceEffect") return _durationOfEntrance;
    if (key == "durationEnhanceEffect") return _durationOfEnhance;
    if (key == "durationExitEffect") return _durationOfExit;
    if (key == "entranceTimeFunction") return _entranceTimeFunc;
    if (key == "enhanceTimeFunction") return _enhanceTimeFunc;
    if (key == "exitTimeFunction") return _exitTimeFunc;
    if (key == "entranceEffectEnabled") return entranceEffectEnabled();
    if (key == "enhanceEffectEnabled") return enhanceEffectEnabled();
    if (key == "exitEffectEnabled") return exitEffectEnabled();
    return Observable::valueForKey(key);
}

std::vector<std::string> QVEffectInstance::keyPathsForValuesAffectingValueForKey(const std::string& key) const {
    if (key == "entranceEffect") return {"validateEntranceEffect"};
    if (key == "enhanceEffect") return {"validateEnhanceEffect"};
    if (key == "exitEffect") return {"validateExitEffect"};
    if (key == "entranceEffectEnabled") return {"entranceName", "durationEntranceEffect"};
    if (key == "enhanceEffectEnabled") return {"enhanceName", "durationEnhanceEffect"};
    if (key == "exitEffectEnabled") return {"exitName", "durationExitEffect"};
    return Observable::keyPathsForValuesAffectingValueForKey(key);
}

void QVEffectInstance::encodeWithCoder(KeyedArchiver& coder) const {
    coder.encodeInt64("durationEntranceEffect", _durationOfEntrance);
    coder.encodeInt64("durationExitEffect", _durationOfExit);
    coder.encodeInt64("durationEnhanceEffect", _durationOfEnhance);
    if (!_enhanceName.empty()) coder.encodeString("enhanceName", _enhanceName);
    if (!_entranceName.empty()) coder.encodeString("entranceName", _entranceName);
    if (!_exitName.empty()) coder.encodeString("exitName", _exitName);
    coder.encodeObject("entranceTimeFunction", _entranceTimeFunc);
    coder.encodeObject("exitTimeFunction", _exitTimeFunc);
    coder.encodeObject("enhanceTimeFunction", _enhanceTimeFunc);
}

void QVEffectInstance::registerArchiveClasses() {
    static std::once_flag once;
    std::call_once(once, [] {
        KeyedUnarchiver::registerClass<QVEffectInstance>("QVEffectInstance");
        KeyedUnarchiver::registerClass<QVTransitionInstance>("QVTransitionInstance");
    });
    QVTimeFunction::registerArchiveClasses();
}

}  // namespace qm
