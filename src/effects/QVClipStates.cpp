#include "effects/QVClipStates.h"

#include <algorithm>
#include <cmath>

#include "effects/transitions/PSTransitionBase.h"
#include "foundation/QMCommon.h"

namespace qm {

namespace {

double between(double start, double end, double percent) { return QMCommon::valueInsertStart(start, end, percent); }

bool nearly(double a, double b) { return std::fabs(a - b) < QMCommon::expression(); }

// Stands for the shape owner's bounds among the keys a position's keys depend on.
constexpr const char* kShapeBoundsKey = "shapeClipOwner.bounds";

}  // namespace

// --- QVClipPosition

std::shared_ptr<QVClipPosition> QVClipPosition::create() { return createWithSize(Size{}); }

std::shared_ptr<QVClipPosition> QVClipPosition::createWithSize(Size size) {
    return std::shared_ptr<QVClipPosition>(new QVClipPosition(size));
}

std::shared_ptr<QVClipPosition> QVClipPosition::createWithSize(Size size, const std::shared_ptr<QVClipStateOwner>& owner) {
    auto position = createWithSize(size);
    position->_owner = owner;
    return position;
}

std::shared_ptr<QVClipPosition> QVClipPosition::createWithCoder(KeyedUnarchiver& coder) {
    auto position = create();
    position->_position = coder.decodePoint("position");
    position->_size = coder.decodeSize("size");
    position->_rotateDegress = coder.decodeDouble("rotateAngle");
    return position;
}

AffineTransform QVClipPosition::makeTranformWithPosition(Point position, double scaleX, double scaleY,
                                                         double rotateAngle) {
    AffineTransform transform;
    transform.translateXBy(position.x, position.y);
    transform.scaleXBy(scaleX, scaleY);
    transform.rotateByDegrees(rotateAngle);
    return transform;
}

AffineTransform QVClipPosition::makeTranformWithCenter(Point center, double rotateAngle) {
    return QMCommon::transformRotate(rotateAngle, center);
}

void QVClipPosition::setOwner(const std::shared_ptr<QVClipStateOwner>& owner) {
    willChangeValueForKey("owner");
    _owner = owner;
    _shapeBoundsToken = {};
    if (const auto shape = shapeClipOwner()) {
        _shapeBoundsToken = shape->addBoundsObserver([this] {
            willChangeValueForKey(kShapeBoundsKey);
            didChangeValueForKey(kShapeBoundsKey);
        });
    }
    didChangeValueForKey("owner");
}

std::shared_ptr<QVShapeGeometry> QVClipPosition::shapeClipOwner() const {
    return std::dynamic_pointer_cast<QVShapeGeometry>(_owner.lock());
}

Point QVClipPosition::location() const {
    if (const auto shape = shapeClipOwner()) return shape->bounds().origin;
    return _position;
}

Size QVClipPosition::size() const {
    if (const auto shape = shapeClipOwner()) return shape->bounds().size;
    return _size;
}

UndoRef QVClipPosition::undoManager() const {
    auto clip = owner();
    return clip ? clip->undoManager() : UndoRef();
}

void QVClipPosition::registerUndo(std::function<void(QVClipPosition&)> restore) {
    const UndoRef undo = undoManager();
    if (!undo) return;
    std::weak_ptr<QVClipPosition> weak = weak_from_this();
    undo.registerUndo(this, [weak, restore = std::move(restore)] {
        if (auto position = weak.lock()) restore(*position);
    });
}

void QVClipPosition::setLocation(Point location) {
    if (const auto shape = shapeClipOwner()) return shape->setBounds({location, shape->bounds().size});
    if (location == _position) return;
    const Point old = _position;
    registerUndo([old](QVClipPosition& position) { position.setLocation(old); });
    willChangeValueForKey("location");
    _position = location;
    didChangeValueForKey("location");
}

void QVClipPosition::setSize(Size size) {
    size.width = std::max(size.width, 0.0);
    size.height = std::max(size.height, 0.0);
    if (const auto shape = shapeClipOwner()) return shape->setBounds({shape->bounds().origin, size});
    if (size == _size) return;
    const Size old = _size;
    registerUndo([old](QVClipPosition& position) { position.setSize(old); });
    willChangeValueForKey("size");
    _size = size;
    didChangeValueForKey("size");
}

void QVClipPosition::setPositionX(double x) {
    if (const auto shape = shapeClipOwner()) return shape->setBoundsX(x);
    setLocation({x, _position.y});
}

void QVClipPosition::setPositionY(double y) {
    if (const auto shape = shapeClipOwner()) return shape->setBoundsY(y);
    setLocation({_position.x, y});
}

void QVClipPosition::setWidth(double width) {
    if (const auto shape = shapeClipOwner()) return shape->setBoundsWidth(width);
    setSize({width, _size.height});
}

void QVClipPosition::setHeight(double height) {
    if (const auto shape = shapeClipOwner()) return shape->setBoundsHeight(height);
    setSize({_size.width, height});
}

void QVClipPosition::setBounds(const Rect& bounds) {
    if (const auto shape = shapeClipOwner()) return shape->setBounds(bounds);
    setLocation(bounds.origin);
    setSize(bounds.size);
}

void QVClipPosition::setRotateAngle(double angle) {
    while (angle < 0) angle += 360.0;
    if (!(std::fabs(angle - _rotateDegress) > QMCommon::expression())) return;
    const double old = _rotateDegress;
    registerUndo([old](QVClipPosition& position) { position.setRotateAngle(old); });
    willChangeValueForKey("rotateAngle");
    _rotateDegress = angle;
    didChangeValueForKey("rotateAngle");
}

std::shared_ptr<QVClipPosition> QVClipPosition::calcPositionWithStart(const QVClipPosition& start,
                                                                      double percent) const {
    auto result = create();
    result->setLocation({between(start.positionX(), positionX(), percent),
                         between(start.positionY(), positionY(), percent)});
    result->setSize({between(start.width(), width(), percent), between(start.height(), height(), percent)});
    result->setRotateAngle(between(start.rotateAngle(), rotateAngle(), percent));
    return result;
}

AffineTransform QVClipPosition::tranformWithSourceBounds(const Rect& sourceBounds) const {
    return PSTransitionBase::makeAffineTranformFromRect(sourceBounds, bounds(), rotateAngle());
}

std::shared_ptr<QVClipPosition> QVClipPosition::copy() const {
    auto position = createWithSize(size());
    position->setLocation(location());
    position->setRotateAngle(rotateAngle());
    return position;
}

std::any QVClipPosition::valueForKey(const std::string& key) const {
    if (key == "owner") return owner();
    if (key == "shapeClipOwner") return shapeClipOwner();
    if (key == "location") return location();
    if (key == "size") return size();
    if (key == "rotateAngle") return rotateAngle();
    if (key == "positionX") return positionX();
    if (key == "positionY") return positionY();
    if (key == "width") return width();
    if (key == "height") return height();
    if (key == "bounds") return bounds();
    return Observable::valueForKey(key);
}

std::vector<std::string> QVClipPosition::keyPathsForValuesAffectingValueForKey(const std::string& key) const {
    if (key == "shapeClipOwner") return {"owner"};
    if (key == "positionX" || key == "positionY") return {"location", kShapeBoundsKey};
    if (key == "width") return {"size"};
    if (key == "height") return {"size", kShapeBoundsKey};
    if (key == "bounds") return {"size", "location", kShapeBoundsKey};
    return Observable::keyPathsForValuesAffectingValueForKey(key);
}

void QVClipPosition::encodeWithCoder(KeyedArchiver& coder) const {
    coder.encodePoint("position", _position);
    coder.encodeSize("size", _size);
    coder.encodeDouble("rotateAngle", _rotateDegress);
}

// --- QVColorState

std::shared_ptr<QVColorState> QVColorState::create() { return std::shared_ptr<QVColorState>(new QVColorState()); }

std::shared_ptr<QVColorState> QVColorState::createWithBrightness(double brightness, double contrast,
                                                                 double saturation, double opacity) {
    auto state = create();
    state->_brightness = brightness;
    state->_contrast = contrast;
    state->_saturation = saturation;
    state->_opacity = opacity;
    return state;
}

std::shared_ptr<QVColorState> QVColorState::createWithCoder(KeyedUnarchiver& coder) {
    return createWithBrightness(coder.decodeFloat("brightness"), coder.decodeFloat("contrast"),
                                coder.decodeFloat("saturation"), coder.decodeFloat("opacity"));
}

void QVColorState::store(double& field, double value, const char* key) {
    willChangeValueForKey(key);
    field = value;
    didChangeValueForKey(key);
}

void QVColorState::setBrightness(double brightness) { store(_brightness, brightness, "brightness"); }

void QVColorState::setContrast(double contrast) { store(_contrast, contrast, "contrast"); }

void QVColorState::setSaturation(double saturation) { store(_saturation, saturation, "saturation"); }

void QVColorState::setOpacity(double opacity) { store(_opacity, opacity, "opacity"); }

bool QVColorState::defaultColorContorls() const {
    return nearly(_brightness, 0) && nearly(_contrast, 1) && nearly(_saturation, 1);
}

bool QVColorState::defaultOpacity() const { return nearly(_opacity, 1); }

std::shared_ptr<QVColorState> QVColorState::calcColorStateWithStart(const std::shared_ptr<QVColorState>& start,
                                                                    double percent) const {
    const auto from = start ? start : defaultColorState();
    return createWithBrightness(between(from->_brightness, _brightness, percent),
                                between(from->_contrast, _contrast, percent),
                                between(from->_saturation, _saturation, percent),
                                between(from->_opacity, _opacity, percent));
}

std::shared_ptr<QVColorState> QVColorState::copy() const {
    return createWithBrightness(_brightness, _contrast, _saturation, _opacity);
}

std::any QVColorState::valueForKey(const std::string& key) const {
    if (key == "brightness") return _brightness;
    if (key == "contrast") return _contrast;
    if (key == "saturation") return _saturation;
    if (key == "opacity") return _opacity;
    if (key == "defaultColorContorls") return defaultColorContorls();
    if (key == "defaultOpacity") return defaultOpacity();
    return Observable::valueForKey(key);
}

std::vector<std::string> QVColorState::keyPathsForValuesAffectingValueForKey(const std::string& key) const {
    if (key == "defaultOpacity") return {"opacity"};
    if (key == "defaultColorContorls") return {"brightness", "contrast", "saturation"};
    return Observable::keyPathsForValuesAffectingValueForKey(key);
}

void QVColorState::encodeWithCoder(KeyedArchiver& coder) const {
    coder.encodeFloat("brightness", _brightness);
    coder.encodeFloat("contrast", _contrast);
    coder.encodeFloat("saturation", _saturation);
    coder.encodeFloat("opacity", _opacity);
}

// --- QVShadowState

std::shared_ptr<QVShadowState> QVShadowState::create() {
    return std::shared_ptr<QVShadowState>(new QVShadowState());
}

std::shared_ptr<QVShadowState> QVShadowState::createWithOffset(Size offset, const Color& color, double blurRadius) {
    auto state = create();
    state->_shadowOffsetX = offset.width;
    state->_shadowOffsetY = offset.height;
    state->_shadowColor = color;
    state->_blurRadius = blurRadius;
    return state;
}

std::shared_ptr<QVShadowState> QVShadowState::createWithCoder(KeyedUnarchiver& coder) {
    auto state = create();
    state->_shadowColor = coder.decodeColor("shadowColor").value_or(Color::black());
    state->_shadowOffsetX = coder.decodeFloat("shadowOffsetX");
    state->_shadowOffsetY = coder.decodeFloat("shadowOffsetY");
    state->_blurRadius = coder.decodeFloat("blurRadius");
    return state;
}

void QVShadowState::store(double& field, double value, const char* key) {
    willChangeValueForKey(key);
    field = value;
    didChangeValueForKey(key);
}

void QVShadowState::setShadowOffsetX(double offsetX) { store(_shadowOffsetX, offsetX, "shadowOffsetX"); }

void QVShadowState::setShadowOffsetY(double offsetY) { store(_shadowOffsetY, offsetY, "shadowOffsetY"); }

void QVShadowState::setBlurRadius(double blurRadius) { store(_blurRadius, blurRadius, "blurRadius"); }

void QVShadowState::setShadowColor(const Color& color) {
    willChangeValueForKey("shadowColor");
    _shadowColor = color;
    didChangeValueForKey("shadowColor");
}

Shadow QVShadowState::shadow() const {
    Shadow shadow;
    shadow.offset = Size{_shadowOffsetX, _shadowOffsetY};
    shadow.color = _shadowColor;
    shadow.blurRadius = _blurRadius;
    return shadow;
}

std::shared_ptr<QVShadowState> QVShadowState::calcShadowStateWithStart(const std::shared_ptr<QVShadowState>& start,
                                                                      double percent) const {
    const auto from = start ? start : defaultShadowState();
    auto state = create();
    state->_blurRadius = between(from->_blurRadius, _blurRadius, percent);
    state->_shadowOffsetX = between(from->_shadowOffsetX, _shadowOffsetX, percent);
    state->_shadowOffsetY = between(from->_shadowOffsetY, _shadowOffsetY, percent);
    state->_shadowColor = from->_shadowColor.blendedColorWithFraction(percent, _shadowColor);
    return state;
}

std::shared_ptr<QVShadowState> QVShadowState::copy() const {
    return createWithOffset({_shadowOffsetX, _shadowOffsetY}, _shadowColor, _blurRadius);
}

std::any QVShadowState::valueForKey(const std::string& key) const {
    if (key == "shadowOffsetX") return _shadowOffsetX;
    if (key == "shadowOffsetY") return _shadowOffsetY;
    if (key == "shadowColor") return _shadowColor;
    if (key == "blurRadius") return _blurRadius;
    if (key == "shadow") return shadow();
    return Observable::valueForKey(key);
}

std::vector<std::string> QVShadowState::keyPathsForValuesAffectingValueForKey(const std::string& key) const {
    if (key == "shadow") return {"shadowOffsetX", "shadowOffsetY", "shadowColor", "blurRadius"};
    return Observable::keyPathsForValuesAffectingValueForKey(key);
}

void QVShadowState::encodeWithCoder(KeyedArchiver& coder) const {
    coder.encodeFloat("shadowOffsetX", _shadowOffsetX);
    coder.encodeFloat("shadowOffsetY", _shadowOffsetY);
    coder.encodeFloat("blurRadius", _blurRadius);
    coder.encodeColor("shadowColor", _shadowColor);
}

// --- QVCropState

std::shared_ptr<QVCropState> QVCropState::create() { return createWithRect(Rect{0, 0, 800, 600}); }

std::shared_ptr<QVCropState> QVCropState::createWithRect(const Rect& rect) {
    return std::shared_ptr<QVCropState>(new QVCropState(rect));
}

std::shared_ptr<QVCropState> QVCropState::createWithCoder(KeyedUnarchiver& coder) {
    return createWithRect(coder.decodeRect("cropRect"));
}

Rect QVCropState::cropRect() const {
    std::lock_guard<std::mutex> lock(_cropRectLock);
    return _cropRect;
}

void QVCropState::setCropRect(const Rect& rect) {
    willChangeValueForKey("cropRect");
    {
        std::lock_guard<std::mutex> lock(_cropRectLock);
        _cropRect = rect;
    }
    didChangeValueForKey("cropRect");
}

void QVCropState::storePart(const char* key, void (*apply)(Rect&, double), double value) {
    willChangeValueForKey(key);
    {
        std::lock_guard<std::mutex> lock(_cropRectLock);
        apply(_cropRect, value);
    }
    didChangeValueForKey(key);
}

void QVCropState::setX(double x) {
    storePart("x", [](Rect& r, double v) { r.origin.x = v; }, x);
}

void QVCropState::setY(double y) {
    storePart("y", [](Rect& r, double v) { r.origin.y = v; }, y);
}

void QVCropState::setWidth(double width) {
    storePart("width", [](Rect& r, double v) { r.size.width = v; }, width);
}

void QVCropState::setHeight(double height) {
    storePart("height", [](Rect& r, double v) { r.size.height = v; }, height);
}

std::shared_ptr<QVCropState> QVCropState::calcCropStateWithStart(const std::shared_ptr<QVCropState>& start,
                                                                double percent) const {
    const Rect from = start ? start->cropRect() : Rect{};
    const Rect to = cropRect();
    return createWithRect(Rect{between(from.origin.x, to.origin.x, percent),
                               between(from.origin.y, to.origin.y, percent),
                               between(from.size.width, to.size.width, percent),
                               between(from.size.height, to.size.height, percent)});
}

std::shared_ptr<QVCropState> QVCropState::copy() const { return createWithRect(cropRect()); }

std::any QVCropState::valueForKey(const std::string& key) const {
    if (key == "cropRect") return cropRect();
    if (key == "x") return x();
    if (key == "y") return y();
    if (key == "width") return width();
    if (key == "height") return height();
    return Observable::valueForKey(key);
}

std::vector<std::string> QVCropState::keyPathsForValuesAffectingValueForKey(const std::string& key) const {
    if (key == "cropRect") return {"x", "y", "width", "height"};
    if (key == "x" || key == "y" || key == "width" || key == "height") return {"cropRect"};
    return Observable::keyPathsForValuesAffectingValueForKey(key);
}

void QVCropState::encodeWithCoder(KeyedArchiver& coder) const { coder.encodeRect("cropRect", cropRect()); }

}  // namespace qm
