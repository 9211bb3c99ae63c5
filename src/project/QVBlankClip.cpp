#include "effects/transitions/PSTransitionBase.h"
#include "foundation/QMCommon.h"
#include "project/QVProject.h"
#include "project/QVTextClip.h"
#include "project/QVTrack.h"

namespace qm {

std::shared_ptr<QVBlankClip> QVBlankClip::create() { return createWithColor(Color::black()); }

std::shared_ptr<QVBlankClip> QVBlankClip::createWithColor(const std::optional<Color>& color) {
    std::shared_ptr<QVBlankClip> clip(new QVBlankClip());
    clip->loadDefaultSettings();
    clip->_color = color;
    return clip;
}

std::shared_ptr<QVBlankClip> QVBlankClip::createWithCoder(KeyedUnarchiver& coder) {
    std::shared_ptr<QVBlankClip> clip(new QVBlankClip());
    if (!clip->initWithCoder(coder)) return nullptr;
    return clip;
}

bool QVBlankClip::initWithCoder(KeyedUnarchiver& coder) {
    if (!QVClip::initWithCoder(coder)) return false;
    _color = coder.decodeColor("color");
    return true;
}

void QVBlankClip::encodeWithCoder(KeyedArchiver& coder) const {
    QVClip::encodeWithCoder(coder);
    coder.encodeColor("color", _color);
}

std::shared_ptr<QVClip> QVBlankClip::copy() const {
    std::shared_ptr<QVBlankClip> clip(new QVBlankClip());
    clip->loadDefaultSettings();
    copyPropertiesTo(*clip);
    clip->_color = _color;
    return clip;
}

void QVBlankClip::setColor(const std::optional<Color>& color) {
    const auto old = _color;
    registerUndo([old](QVClip& clip) { static_cast<QVBlankClip&>(clip).setColor(old); });
    willChangeValueForKey("color");
    _color = color;
    resetCacheImage();
    didChangeValueForKey("color");
}

Size QVBlankClip::sourceSize() const {
    const auto track = owner();
    const auto project = track ? track->owner() : nullptr;
    if (!project) return {};
    return {static_cast<double>(project->outVideoWidth()), static_cast<double>(project->outVideoHeight())};
}

std::string QVBlankClip::title() const { return "Blank"; }

Image QVBlankClip::outputImage() const { return PSTransitionBase::colorImage(_color, {{0, 0}, sourceSize()}); }

std::shared_ptr<const Bitmap> QVBlankClip::outputCgImage() {
    return _cacheImage.bitmap([this] { return QMCommon::CGImageConvertFromCIImage(outputImage()); });
}

void QVBlankClip::resetCacheImage() { _cacheImage.reset(); }

Image QVBlankClip::imageAtSourceTimestamp(int64_t) { return outputImage(); }

std::shared_ptr<const Bitmap> QVBlankClip::cgImageAtSourceTimestamp(int64_t) { return outputCgImage(); }

std::shared_ptr<const Bitmap> QVBlankClip::thumbnail() { return outputCgImage(); }

std::any QVBlankClip::valueForKey(const std::string& key) const {
    if (key == "color") return _color;
    if (key == "outputImage") return outputImage();
    return QVClip::valueForKey(key);
}

std::vector<std::string> QVBlankClip::keyPathsForValuesAffectingValueForKey(const std::string& key) const {
    auto keys = QVClip::keyPathsForValuesAffectingValueForKey(key);
    if (key == "outputImage") keys.push_back("color");
    return keys;
}

}  // namespace qm
