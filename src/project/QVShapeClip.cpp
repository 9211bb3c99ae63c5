#include "project/QVShapeClip.h"

#include <cmath>

#include "foundation/QMCommon.h"
#include "platform/BitmapContext.h"
#include "platform/GraphicsArchive.h"

namespace qm {

namespace {

constexpr double changeTolerance = 1e-06;

}  // namespace

// --- QVShapeClip

ObserverToken QVShapeClip::addBoundsObserver(std::function<void()> observer) {
    return addObserver("bounds", [observer = std::move(observer)](const KeyValueChange&) { observer(); });
}

std::shared_ptr<QVShapeClip> QVShapeClip::shapeClipWithPath(const BezierPath& path) {
    std::shared_ptr<QVShapeClip> clip(new QVShapeClip());
    clip->loadDefaultSettings();
    clip->initWithPath(path);
    return clip;
}

void QVShapeClip::initWithPath(const BezierPath& path) {
    _path = path;
    setFillColor(Color::clear());
    setStrokeColor(Color{1, 1, 0, 1});
    setLineWidth(1.0);
    setOpacity(1.0);
    setXRadius(0);
    setYRadius(0);
    if (!path.isEmpty()) setBounds(path.bounds().insetBy(-_lineWidth, -_lineWidth));
}

std::shared_ptr<QVShapeClip> QVShapeClip::createWithCoder(KeyedUnarchiver& coder) {
    return readShape(coder, std::shared_ptr<QVShapeClip>(new QVShapeClip()));
}

bool QVShapeClip::initWithCoder(KeyedUnarchiver& coder) {
    if (!QVClip::initWithCoder(coder)) return false;
    const auto path = coder.decodeObjectOfClass<ArchivedBezierPath>("path");
    _path = path ? path->path() : BezierPath();
    _fillColor = coder.decodeColor("fillColor");
    _strokeColor = coder.decodeColor("strokeColor");
    _opacity = coder.decodeFloat("opacity");
    _lineWidth = coder.decodeFloat("lineWidth");
    _xRoundRadius = coder.decodeFloat("xRadius");
    _yRoundRadius = coder.decodeFloat("yRadius");
    _startPoint = coder.decodePoint("startPoint");
    _endPoint = coder.decodePoint("endPoint");
    _doubleArrow = coder.decodeBool("doubleArrow");
    _location = coder.decodePoint("location");
    return true;
}

void QVShapeClip::encodeWithCoder(KeyedArchiver& coder) const {
    QVClip::encodeWithCoder(coder);
    coder.encodeObject("path", ArchivedBezierPath::createWithPath(_path));
    coder.encodeColor("fillColor", _fillColor);
    coder.encodeColor("strokeColor", _strokeColor);
    coder.encodeFloat("opacity", _opacity);
    coder.encodeFloat("lineWidth", _lineWidth);
    coder.encodeFloat("xRadius", _xRoundRadius);
    coder.encodeFloat("yRadius", _yRoundRadius);
    coder.encodePoint("startPoint", _startPoint);
    coder.encodePoint("endPoint", _endPoint);
    coder.encodeBool("doubleArrow", _doubleArrow);
    coder.encodePoint("location", _location);
}

std::shared_ptr<QVClip> QVShapeClip::copy() const {
    std::shared_ptr<QVShapeClip> clip(new QVShapeClip());
    clip->loadDefaultSettings();
    copyShapeTo(*clip);
    return clip;
}

void QVShapeClip::copyShapeTo(QVShapeClip& clip) const {
    copyPropertiesTo(clip);
    clip._path = _path;
    clip.setFillColor(_fillColor);
    clip.setStrokeColor(_strokeColor);
    clip.setOpacity(_opacity);
    clip.setLineWidth(_lineWidth);
    clip.setXRadius(_xRoundRadius);
    clip.setYRadius(_yRoundRadius);
    clip.setStartPoint(_startPoint);
    clip.setEndPoint(_endPoint);
    clip.setDoubleArrow(_doubleArrow);
}

double QVShapeClip::angleWithPoint(Point p1, Point p2) {
    const double dx = p1.x - p2.x;
    if (std::fabs(dx) < changeTolerance) return p1.y >= p2.y ? -90.0 : 90.0;
    const double a = QMCommon::degreeFromRadian(std::atan((p2.y - p1.y) / (p2.x - p1.x)));
    return p2.x < p1.x ? a + 180.0 : a;
}

std::optional<BezierPath> QVShapeClip::bezierPathWithArrowStart(Point start, Point end, double width,
                                                                bool doubleArrow) {
    const double length = QMCommon::distanceWithPoint(start, end);
    if (std::fabs(length) < changeTolerance) return std::nullopt;
    const double h = 2.0 * width;
    const double back = h / std::tan(QMCommon::degreeToRadian(30.0));
    const double sx = start.x, sy = start.y;
    BezierPath path;
    path.moveToPoint({sx, sy});
    path.lineToPoint({sx + length, sy});
    path.lineToPoint({sx + length - back, sy + h});
    path.moveToPoint({sx + length, sy});
    path.lineToPoint({sx + length - back, sy - h});
    if (doubleArrow) {
        path.moveToPoint({sx, sy});
        path.lineToPoint({sx + back, sy + h});
        path.moveToPoint({sx, sy});
        path.lineToPoint({sx + back, sy - h});
    }
    path.transformUsingAffineTransform(QMCommon::transformRotate(angleWithPoint(start, end), start));
    path.setLineWidth(width);
    path.setLineCapStyle(BezierPath::LineCapStyle::Round);
    path.setLineJoinStyle(BezierPath::LineJoinStyle::Round);
    return path;
}

std::optional<BezierPath> QVShapeClip::path() const { return _path; }

Rect QVShapeClip::bounds() const {
    if (_path.isEmpty()) return {};
    const Size size = _path.bounds().insetBy(-_lineWidth, -_lineWidth).size;
    return {_location, size};
}

void QVShapeClip::setBounds(const Rect& bounds) {
    if (bounds.origin == _location) return;
    const Point old = _location;
    changeShape(
        "location",
        [old](QVShapeClip& clip) {
            clip.setBounds({old, clip.bounds().size});
        },
        [this, &bounds] { _location = bounds.origin; });
}

void QVShapeClip::setBoundsX(double x) {
    Rect r = bounds();
    r.origin.x = x;
    setBounds(r);
}

void QVShapeClip::setBoundsY(double y) {
    Rect r = bounds();
    r.origin.y = y;
    setBounds(r);
}

void QVShapeClip::setBoundsWidth(double width) {
    Rect r = bounds();
    r.size.width = width;
    setBounds(r);
}

void QVShapeClip::setBoundsHeight(double height) {
    Rect r = bounds();
    r.size.height = height;
    setBounds(r);
}

void QVShapeClip::changeShape(const char* key, const std::function<void(QVShapeClip&)>& restore,
                              const std::function<void()>& change) {
    registerUndo([restore](QVClip& clip) { restore(static_cast<QVShapeClip&>(clip)); });
    willChangeValueForKey(key);
    change();
    resetCacheImage();
    didChangeValueForKey(key);
}

void QVShapeClip::setFillColor(const std::optional<Color>& color) {
    if (color == _fillColor) return;
    const auto old = _fillColor;
    changeShape(
        "fillColor", [old](QVShapeClip& clip) { clip.setFillColor(old); }, [this, &color] { _fillColor = color; });
}

void QVShapeClip::setStrokeColor(const std::optional<Color>& color) {
    if (color == _strokeColor) return;
    const auto old = _strokeColor;
    changeShape(
        "strokeColor", [old](QVShapeClip& clip) { clip.setStrokeColor(old); },
        [this, &color] { _strokeColor = color; });
}

void QVShapeClip::setLineWidth(double width) {
    if (width < 1.0) width = 1.0;
    if (std::fabs(width - _lineWidth) <= changeTolerance) return;
    const double old = _lineWidth;
    changeShape(
        "lineWidth", [old](QVShapeClip& clip) { clip.setLineWidth(old); }, [this, width] { _lineWidth = width; });
}

void QVShapeClip::setOpacity(double opacity) {
    if (std::fabs(opacity - _opacity) <= changeTolerance) return;
    const double old = _opacity;
    changeShape(
        "opacity", [old](QVShapeClip& clip) { clip.setOpacity(old); }, [this, opacity] { _opacity = opacity; });
}

void QVShapeClip::setXRadius(double radius) {
    if (std::fabs(radius - _xRoundRadius) <= changeTolerance) return;
    const double old = _xRoundRadius;
    changeShape(
        "xRadius", [old](QVShapeClip& clip) { clip.setXRadius(old); }, [this, radius] { _xRoundRadius = radius; });
}

void QVShapeClip::setYRadius(double radius) {
    if (std::fabs(radius - _yRoundRadius) <= changeTolerance) return;
    const double old = _yRoundRadius;
    changeShape(
        "yRadius", [old](QVShapeClip& clip) { clip.setYRadius(old); }, [this, radius] { _yRoundRadius = radius; });
}

void QVShapeClip::setStartPoint(Point point) {
    if (point == _startPoint) return;
    const Point old = _startPoint;
    changeShape(
        "startPoint", [old](QVShapeClip& clip) { clip.setStartPoint(old); }, [this, point] { _startPoint = point; });
}

void QVShapeClip::setEndPoint(Point point) {
    if (point == _endPoint) return;
    const Point old = _endPoint;
    changeShape(
        "endPoint", [old](QVShapeClip& clip) { clip.setEndPoint(old); }, [this, point] { _endPoint = point; });
}

void QVShapeClip::setDoubleArrow(bool doubleArrow) {
    willChangeValueForKey("doubleArrow");
    _doubleArrow = doubleArrow;
    didChangeValueForKey("doubleArrow");
}

std::shared_ptr<const Bitmap> QVShapeClip::createShapeImage() const {
    const Rect box = bounds();
    if (box.isEmpty()) return nullptr;
    auto context = BitmapContext::create(static_cast<int>(static_cast<unsigned>(box.width())),
                                         static_cast<int>(static_cast<unsigned>(box.height())));
    const auto shape = path();
    if (!context || !shape) return nullptr;
    BezierPath p = *shape;
    p.setLineWidth(_lineWidth);
    const Rect r = p.bounds();
    context->translate(0.5 * _lineWidth - r.minX(), 0.5 * _lineWidth - r.minY());
    context->setFillColor(fillColor());
    if (_strokeColor) context->setStrokeColor(*_strokeColor);
    context->fillPath(p);
    if (_strokeColor) context->strokePath(p);
    return context->makeBitmap();
}

std::shared_ptr<const Bitmap> QVShapeClip::outputCgImage() {
    return _cacheImage.bitmap([this] { return createShapeImage(); });
}

Image QVShapeClip::outputImage() {
    const auto bitmap = outputCgImage();
    return bitmap ? Image::imageWithBitmap(bitmap) : Image();
}

std::string QVShapeClip::title() const { return "Custom Shape"; }

void QVShapeClip::resetCacheImage() { _cacheImage.reset(); }

Image QVShapeClip::imageAtSourceTimestamp(int64_t) { return outputImage(); }

std::shared_ptr<const Bitmap> QVShapeClip::cgImageAtSourceTimestamp(int64_t) { return outputCgImage(); }

std::shared_ptr<const Bitmap> QVShapeClip::thumbnail() { return outputCgImage(); }

std::any QVShapeClip::valueForKey(const std::string& key) const {
    if (key == "fillColor") return fillColor();
    if (key == "strokeColor") return _strokeColor;
    if (key == "lineWidth") return _lineWidth;
    if (key == "opacity") return _opacity;
    if (key == "xRadius") return _xRoundRadius;
    if (key == "yRadius") return _yRoundRadius;
    if (key == "startPoint") return _startPoint;
    if (key == "endPoint") return _endPoint;
    if (key == "doubleArrow") return _doubleArrow;
    if (key == "location") return _location;
    if (key == "bounds") return bounds();
    if (key == "boundsX") return boundsX();
    if (key == "boundsY") return boundsY();
    if (key == "boundsWidth") return boundsWidth();
    if (key == "boundsHeight") return boundsHeight();
    return QVClip::valueForKey(key);
}

std::vector<std::string> QVShapeClip::keyPathsForValuesAffectingValueForKey(const std::string& key) const {
    // The shape's bounds are its own; the clip's position reads them, not the other way round.
    if (key == "bounds") return {"startPoint", "endPoint", "lineWidth", "doubleArrow", "location", "rect"};
    auto keys = QVClip::keyPathsForValuesAffectingValueForKey(key);
    const auto add = [&keys](std::initializer_list<const char*> more) {
        keys.insert(keys.end(), more.begin(), more.end());
    };
    if (key == "outputImage") {
        add({"bounds", "fillColor", "strokeColor", "opacity", "lineWidth", "xRadius", "yRadius"});
    } else if (key == "boundsX" || key == "boundsY" || key == "boundsWidth" || key == "boundsHeight") {
        add({"bounds"});
    }
    return keys;
}

// --- QVRectShapeClip

std::shared_ptr<QVRectShapeClip> QVRectShapeClip::shapeClipWithRect(const Rect& rect) {
    return shapeClipWithRect(rect, 0, 0);
}

std::shared_ptr<QVRectShapeClip> QVRectShapeClip::shapeClipWithRect(const Rect& rect, double xRadius, double yRadius) {
    std::shared_ptr<QVRectShapeClip> clip(new QVRectShapeClip());
    clip->loadDefaultSettings();
    clip->initWithRect(rect, xRadius, yRadius);
    return clip;
}

void QVRectShapeClip::initWithRect(const Rect& rect, double xRadius, double yRadius) {
    initWithPath(BezierPath());
    _rect = rect;
    setXRadius(xRadius);
    setYRadius(yRadius);
}

std::shared_ptr<QVRectShapeClip> QVRectShapeClip::createWithCoder(KeyedUnarchiver& coder) {
    return readShape(coder, std::shared_ptr<QVRectShapeClip>(new QVRectShapeClip()));
}

bool QVRectShapeClip::initWithCoder(KeyedUnarchiver& coder) {
    if (!QVShapeClip::initWithCoder(coder)) return false;
    _rect = coder.decodeRect("_rect");
    return true;
}

void QVRectShapeClip::encodeWithCoder(KeyedArchiver& coder) const {
    QVShapeClip::encodeWithCoder(coder);
    coder.encodeRect("_rect", _rect);
}

std::shared_ptr<QVClip> QVRectShapeClip::copy() const {
    std::shared_ptr<QVRectShapeClip> clip(new QVRectShapeClip());
    clip->loadDefaultSettings();
    copyRectTo(*clip);
    return clip;
}

void QVRectShapeClip::copyRectTo(QVRectShapeClip& clip) const {
    copyShapeTo(clip);
    clip.setBounds(_rect);
}

std::optional<BezierPath> QVRectShapeClip::path() const {
    const double inset = std::ceil(0.5 * lineWidth());
    return BezierPath::bezierPathWithRoundedRect(_rect.insetBy(inset, inset), xRadius(), yRadius());
}

void QVRectShapeClip::setBounds(const Rect& bounds) {
    if (bounds == _rect) return;
    const Rect old = _rect;
    changeShape(
        "rect", [old](QVShapeClip& clip) { clip.setBounds(old); }, [this, &bounds] { _rect = bounds; });
}

std::string QVRectShapeClip::title() const { return "Rectangle"; }

// --- QVEllipseShapeClip

std::shared_ptr<QVEllipseShapeClip> QVEllipseShapeClip::shapeClipWithEllipseInRect(const Rect& rect) {
    std::shared_ptr<QVEllipseShapeClip> clip(new QVEllipseShapeClip());
    clip->loadDefaultSettings();
    clip->initWithRect(rect, 0, 0);
    return clip;
}

std::shared_ptr<QVEllipseShapeClip> QVEllipseShapeClip::createWithCoder(KeyedUnarchiver& coder) {
    return readShape(coder, std::shared_ptr<QVEllipseShapeClip>(new QVEllipseShapeClip()));
}

std::shared_ptr<QVClip> QVEllipseShapeClip::copy() const {
    std::shared_ptr<QVEllipseShapeClip> clip(new QVEllipseShapeClip());
    clip->loadDefaultSettings();
    copyRectTo(*clip);
    return clip;
}

std::optional<BezierPath> QVEllipseShapeClip::path() const {
    const double inset = 0.5 * lineWidth();
    return BezierPath::bezierPathWithOvalInRect(bounds().insetBy(inset, inset));
}

std::string QVEllipseShapeClip::title() const { return "Ellipse"; }

// --- QVLineShapeClip

std::shared_ptr<QVLineShapeClip> QVLineShapeClip::shapeClipWithLineStartPoint(Point start, Point end) {
    std::shared_ptr<QVLineShapeClip> clip(new QVLineShapeClip());
    clip->loadDefaultSettings();
    clip->initWithStartPoint(start, end);
    return clip;
}

void QVLineShapeClip::initWithStartPoint(Point start, Point end) {
    initWithPath(BezierPath());
    setStartPoint(start);
    setEndPoint(end);
}

std::shared_ptr<QVLineShapeClip> QVLineShapeClip::createWithCoder(KeyedUnarchiver& coder) {
    return readShape(coder, std::shared_ptr<QVLineShapeClip>(new QVLineShapeClip()));
}

std::shared_ptr<QVClip> QVLineShapeClip::copy() const {
    std::shared_ptr<QVLineShapeClip> clip(new QVLineShapeClip());
    clip->loadDefaultSettings();
    copyShapeTo(*clip);
    return clip;
}

std::optional<BezierPath> QVLineShapeClip::path() const {
    BezierPath line;
    line.moveToPoint(startPoint());
    line.lineToPoint(endPoint());
    line.setLineWidth(lineWidth());
    line.setLineCapStyle(BezierPath::LineCapStyle::Round);
    return line;
}

Rect QVLineShapeClip::bounds() const {
    const auto line = path();
    if (!line) return {};
    const double half = 0.5 * lineWidth();
    return line->bounds().insetBy(-half, -half);
}

void QVLineShapeClip::setBounds(const Rect& bounds) {
    const Point old = this->bounds().origin;
    if (bounds.origin == old) return;
    const double dx = bounds.origin.x - old.x;
    const double dy = bounds.origin.y - old.y;
    const UndoRef undo = undoManager();
    undo.beginUndoGrouping();
    setStartPoint({startPoint().x + dx, startPoint().y + dy});
    setEndPoint({endPoint().x + dx, endPoint().y + dy});
    undo.endUndoGrouping();
}

std::string QVLineShapeClip::title() const { return "Line"; }

// --- QVArrowShapeClip

std::shared_ptr<QVArrowShapeClip> QVArrowShapeClip::shapeClipWithArrawStartPoint(Point start, Point end) {
    std::shared_ptr<QVArrowShapeClip> clip(new QVArrowShapeClip());
    clip->loadDefaultSettings();
    clip->initWithStartPoint(start, end);
    return clip;
}

std::shared_ptr<QVArrowShapeClip> QVArrowShapeClip::createWithCoder(KeyedUnarchiver& coder) {
    return readShape(coder, std::shared_ptr<QVArrowShapeClip>(new QVArrowShapeClip()));
}

std::shared_ptr<QVClip> QVArrowShapeClip::copy() const {
    std::shared_ptr<QVArrowShapeClip> clip(new QVArrowShapeClip());
    clip->loadDefaultSettings();
    copyShapeTo(*clip);
    return clip;
}

std::optional<BezierPath> QVArrowShapeClip::path() const {
    return bezierPathWithArrowStart(startPoint(), endPoint(), lineWidth(), doubleArrow());
}

std::string QVArrowShapeClip::title() const { return "Arrow"; }

}  // namespace qm
