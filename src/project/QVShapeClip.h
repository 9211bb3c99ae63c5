#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/BezierPath.h"
#include "platform/Color.h"
#include "project/BitmapCache.h"
#include "project/QVClip.h"

namespace qm {

// A clip that draws vector geometry into a bitmap: the base class is the free-form shape, its
// subclasses rectangles, ellipses, lines and arrows. Geometry is in canvas coordinates. The shape
// owns its bounds: the clip's position reads and writes them (see QVClipPosition).
//
// Setters of colours, line width, opacity, radii and end points record their inverse on the
// owner's undo manager and drop the rendered picture. Opacity is kept but does not change the
// picture: a clip's visible opacity comes from its colour state.
//
// Observable keys, besides QVClip's: "fillColor", "strokeColor", "lineWidth", "opacity", "xRadius",
// "yRadius", "startPoint", "endPoint", "doubleArrow", "location", "bounds" (follows the end
// points, "lineWidth", "doubleArrow", "location", "rect"), "boundsX", "boundsY", "boundsWidth",
// "boundsHeight" (follow "bounds"), "outputImage".
class QVShapeClip : public QVClip, public QVShapeGeometry {
public:
    // A free-form shape of `path`.
    static std::shared_ptr<QVShapeClip> shapeClipWithPath(const BezierPath& path);
    static std::shared_ptr<QVShapeClip> create() { return shapeClipWithPath(BezierPath()); }
    // The base keys, then "path", "fillColor", "strokeColor", "opacity", "lineWidth", "xRadius",
    // "yRadius", "startPoint", "endPoint", "doubleArrow", "location".
    static std::shared_ptr<QVShapeClip> createWithCoder(KeyedUnarchiver& coder);

    // Degrees of the direction from p1 to p2; -90 or 90 for a vertical line.
    static double angleWithPoint(Point p1, Point p2);
    // Open strokes of an arrow from start to end with heads of half-height 2 * width; nothing when
    // the two points coincide.
    static std::optional<BezierPath> bezierPathWithArrowStart(Point start, Point end, double width, bool doubleArrow);

    std::shared_ptr<QVClip> copy() const override;

    virtual int shapeType() const { return 4; }
    virtual bool allowRoundRadius() const { return false; }
    virtual bool canFill() const { return true; }

    // The path in canvas coordinates, or nothing.
    virtual std::optional<BezierPath> path() const;
    Rect bounds() const override;
    void setBounds(const Rect& bounds) override;
    double boundsX() const { return bounds().minX(); }
    double boundsY() const { return bounds().minY(); }
    double boundsWidth() const { return bounds().width(); }
    double boundsHeight() const { return bounds().height(); }
    void setBoundsX(double x) override;
    void setBoundsY(double y) override;
    void setBoundsWidth(double width) override;
    void setBoundsHeight(double height) override;
    ObserverToken addBoundsObserver(std::function<void()> observer) override;

    // Black when no colour is set.
    Color fillColor() const { return _fillColor.value_or(Color::black()); }
    void setFillColor(const std::optional<Color>& color);
    const std::optional<Color>& strokeColor() const { return _strokeColor; }
    void setStrokeColor(const std::optional<Color>& color);
    double lineWidth() const { return _lineWidth; }
    // Raised to 1; changes of at most 1e-6 are ignored.
    void setLineWidth(double width);
    double opacity() const { return _opacity; }
    void setOpacity(double opacity);
    double xRadius() const { return _xRoundRadius; }
    void setXRadius(double radius);
    double yRadius() const { return _yRoundRadius; }
    void setYRadius(double radius);
    Point startPoint() const { return _startPoint; }
    void setStartPoint(Point point);
    Point endPoint() const { return _endPoint; }
    void setEndPoint(Point point);
    bool doubleArrow() const { return _doubleArrow; }
    // A plain store.
    void setDoubleArrow(bool doubleArrow);

    // The path drawn into a bitmap of the bounds' size, its outline inside; null for empty bounds.
    std::shared_ptr<const Bitmap> createShapeImage() const;
    std::shared_ptr<const Bitmap> outputCgImage();
    Image outputImage();

    // The bounds' size.
    Size sourceSize() const override { return bounds().size; }
    // "Custom Shape" here.
    std::string title() const override;
    bool allowResizeBounds() const override { return false; }
    void resetCacheImage() override;
    Image imageAtSourceTimestamp(int64_t timestamp) override;
    std::shared_ptr<const Bitmap> cgImageAtSourceTimestamp(int64_t timestamp) override;
    std::shared_ptr<const Bitmap> thumbnail() override;

    std::any valueForKey(const std::string& key) const override;
    std::string archiveClassName() const override { return "QVShapeClip"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

protected:
    QVShapeClip() = default;
    // The defaults through the setters, then, for a path that is not empty, setBounds with its
    // bounds grown by lineWidth.
    void initWithPath(const BezierPath& path);
    bool initWithCoder(KeyedUnarchiver& coder) override;
    // Gives `clip` the shape's settings, after the base class's.
    void copyShapeTo(QVShapeClip& clip) const;
    std::vector<std::string> keyPathsForValuesAffectingValueForKey(const std::string& key) const override;
    // `clip` read from `coder`, or nothing.
    template <class Clip>
    static std::shared_ptr<Clip> readShape(KeyedUnarchiver& coder, std::shared_ptr<Clip> clip) {
        QVShapeClip& shape = *clip;
        return shape.initWithCoder(coder) ? clip : nullptr;
    }

    // Records `restore` for undo, calls `change` between the change notices of `key` and drops the
    // picture.
    void changeShape(const char* key, const std::function<void(QVShapeClip&)>& restore,
                     const std::function<void()>& change);

private:
    BezierPath _path;
    BitmapCache _cacheImage;
    std::optional<Color> _fillColor = Color::clear();
    std::optional<Color> _strokeColor = Color{1, 1, 0, 1};
    double _lineWidth = 1.0;
    double _opacity = 1.0;
    double _xRoundRadius = 0;
    double _yRoundRadius = 0;
    Point _startPoint;
    Point _endPoint;
    bool _doubleArrow = false;
    Point _location;
};

// A rectangle with rounded corners; its bounds are the rectangle.
class QVRectShapeClip : public QVShapeClip {
public:
    static std::shared_ptr<QVRectShapeClip> shapeClipWithRect(const Rect& rect);
    static std::shared_ptr<QVRectShapeClip> shapeClipWithRect(const Rect& rect, double xRadius, double yRadius);
    // The shape's keys, then "_rect".
    static std::shared_ptr<QVRectShapeClip> createWithCoder(KeyedUnarchiver& coder);

    std::shared_ptr<QVClip> copy() const override;

    int shapeType() const override { return 0; }
    bool allowRoundRadius() const override { return true; }
    // The bounds inset by half the line width rounded up, with the corner radii.
    std::optional<BezierPath> path() const override;
    Rect bounds() const override { return _rect; }
    // Undoable unless equal.
    void setBounds(const Rect& bounds) override;
    // "Rectangle".
    std::string title() const override;
    bool allowResizeBounds() const override { return true; }

    std::string archiveClassName() const override { return "QVRectShapeClip"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

protected:
    QVRectShapeClip() = default;
    void initWithRect(const Rect& rect, double xRadius, double yRadius);
    bool initWithCoder(KeyedUnarchiver& coder) override;
    // Gives `clip` this rectangle's settings, after those of the shape.
    void copyRectTo(QVRectShapeClip& clip) const;

private:
    Rect _rect;
};

// An ellipse inscribed in its bounds.
class QVEllipseShapeClip : public QVRectShapeClip {
public:
    static std::shared_ptr<QVEllipseShapeClip> shapeClipWithEllipseInRect(const Rect& rect);
    static std::shared_ptr<QVEllipseShapeClip> createWithCoder(KeyedUnarchiver& coder);

    std::shared_ptr<QVClip> copy() const override;

    int shapeType() const override { return 1; }
    bool allowRoundRadius() const override { return false; }
    // The bounds inset by half the line width, not rounded.
    std::optional<BezierPath> path() const override;
    // "Ellipse".
    std::string title() const override;

    std::string archiveClassName() const override { return "QVEllipseShapeClip"; }

private:
    QVEllipseShapeClip() = default;
};

// A straight line with round caps from startPoint to endPoint.
class QVLineShapeClip : public QVShapeClip {
public:
    static std::shared_ptr<QVLineShapeClip> shapeClipWithLineStartPoint(Point start, Point end);
    static std::shared_ptr<QVLineShapeClip> createWithCoder(KeyedUnarchiver& coder);

    std::shared_ptr<QVClip> copy() const override;

    int shapeType() const override { return 2; }
    bool canFill() const override { return false; }
    bool allowRotate() const override { return false; }
    std::optional<BezierPath> path() const override;
    // The path's bounds grown by half the line width; zero without a path.
    Rect bounds() const override;
    // Moves both points by the change of origin, as one undo step; the size is ignored.
    void setBounds(const Rect& bounds) override;
    // "Line".
    std::string title() const override;

    std::string archiveClassName() const override { return "QVLineShapeClip"; }

protected:
    QVLineShapeClip() = default;
    void initWithStartPoint(Point start, Point end);
};

// A line with an open head at the end, or at both ends.
class QVArrowShapeClip : public QVLineShapeClip {
public:
    // The misspelt name is the model's own.
    static std::shared_ptr<QVArrowShapeClip> shapeClipWithArrawStartPoint(Point start, Point end);
    static std::shared_ptr<QVArrowShapeClip> createWithCoder(KeyedUnarchiver& coder);

    std::shared_ptr<QVClip> copy() const override;

    int shapeType() const override { return 3; }
    std::optional<BezierPath> path() const override;
    // "Arrow".
    std::string title() const override;

    std::string archiveClassName() const override { return "QVArrowShapeClip"; }

private:
    QVArrowShapeClip() = default;
};

}  // namespace qm
