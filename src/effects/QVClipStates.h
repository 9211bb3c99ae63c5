#pragma once

#include <any>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/AffineTransform.h"
#include "platform/Color.h"
#include "platform/Geometry.h"
#include "platform/KeyedArchiver.h"
#include "platform/Observable.h"
#include "platform/UndoManager.h"

namespace qm {

// What a clip state asks of the clip that owns it.
class QVClipStateOwner {
public:
    virtual ~QVClipStateOwner() = default;
    // Where the state records the inverse of its edits; empty for none.
    virtual UndoRef undoManager() const = 0;
};

// The geometry of a shape clip, which keeps it itself: a position owned by a shape clip reads and
// writes the shape's bounds instead of its own fields.
class QVShapeGeometry {
public:
    virtual ~QVShapeGeometry() = default;
    virtual Rect bounds() const = 0;
    virtual void setBounds(const Rect& bounds) = 0;
    virtual void setBoundsX(double x) = 0;
    virtual void setBoundsY(double y) = 0;
    virtual void setBoundsWidth(double width) = 0;
    virtual void setBoundsHeight(double height) = 0;
    // Calls `observer` after each change of the bounds, for as long as the token lives.
    [[nodiscard]] virtual ObserverToken addBoundsObserver(std::function<void()> observer) = 0;
};

// Where a clip stands on the canvas: the lower left corner (`location`), the size and the
// rotation in degrees. The owner is the clip, held weakly. setLocation, setSize and
// setRotateAngle record their inverse on the owner's undo manager; a position without an owner
// records nothing. When the owner is a shape clip, location and size are the shape's bounds: the
// getters read them, the setters write them through the shape (which records the undo), and the
// position's own fields are left alone. Made by the factories and held by shared_ptr.
//
// Observable keys: "owner", "shapeClipOwner" (follows "owner"), "location", "size",
// "rotateAngle", "positionX" and "positionY" (follow "location"), "width" and "height" (follow
// "size"), "bounds" (follows "location" and "size"). A change of a shape owner's bounds notifies
// "positionX", "positionY", "height" and "bounds" (not "width"), with the new value as old value.
class QVClipPosition : public Observable, public Archivable, public std::enable_shared_from_this<QVClipPosition> {
public:
    // Zero size, location zero, angle 0, no owner.
    static std::shared_ptr<QVClipPosition> create();
    static std::shared_ptr<QVClipPosition> createWithSize(Size size);
    static std::shared_ptr<QVClipPosition> createWithSize(Size size, const std::shared_ptr<QVClipStateOwner>& owner);
    // Reads "position", "size" and "rotateAngle" straight into the fields (a negative angle stays).
    static std::shared_ptr<QVClipPosition> createWithCoder(KeyedUnarchiver& coder);

    // Translate by `position`, scale, then rotate by `rotateAngle` degrees.
    static AffineTransform makeTranformWithPosition(Point position, double scaleX, double scaleY, double rotateAngle);
    // Rotation by `rotateAngle` degrees about `center`.
    static AffineTransform makeTranformWithCenter(Point center, double rotateAngle);

    std::shared_ptr<QVClipStateOwner> owner() const { return _owner.lock(); }
    void setOwner(const std::shared_ptr<QVClipStateOwner>& owner);
    // The owner if it is a shape clip.
    std::shared_ptr<QVShapeGeometry> shapeClipOwner() const;
    // The owner's undo manager; empty without an owner.
    UndoRef undoManager() const;

    Point location() const;
    // Undoable when the point differs.
    void setLocation(Point location);
    Size size() const;
    // Negative sides become 0; undoable when the size differs.
    void setSize(Size size);
    double positionX() const { return location().x; }
    void setPositionX(double x);
    double positionY() const { return location().y; }
    void setPositionY(double y);
    double width() const { return size().width; }
    void setWidth(double width);
    double height() const { return size().height; }
    void setHeight(double height);
    Rect bounds() const { return {location(), size()}; }
    // setLocation, then setSize.
    void setBounds(const Rect& bounds);
    double rotateAngle() const { return _rotateDegress; }
    // Adds 360 while negative (values of 360 and more stay); stored and undoable only when it
    // differs from the old angle by more than QMCommon::expression().
    void setRotateAngle(double angle);

    // A new position, without owner, between `start` (percent 0) and this one (percent 1), value by
    // value; the angle is not taken the short way round.
    std::shared_ptr<QVClipPosition> calcPositionWithStart(const QVClipPosition& start, double percent) const;
    // Maps `sourceBounds` onto `bounds`, turned by rotateAngle about the centre of bounds.
    AffineTransform tranformWithSourceBounds(const Rect& sourceBounds) const;
    // Size, location and angle of this one, through the setters; no owner.
    std::shared_ptr<QVClipPosition> copy() const;

    std::any valueForKey(const std::string& key) const override;
    std::string archiveClassName() const override { return "QVClipPosition"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

protected:
    std::vector<std::string> keyPathsForValuesAffectingValueForKey(const std::string& key) const override;

private:
    explicit QVClipPosition(Size size) : _size(size) {}
    // Records `restore` for this position on the owner's undo manager.
    void registerUndo(std::function<void(QVClipPosition&)> restore);

    std::weak_ptr<QVClipStateOwner> _owner;
    ObserverToken _shapeBoundsToken;
    Point _position;
    Size _size;
    double _rotateDegress = 0;
};

// Colour controls and opacity of a clip. Setters are plain stores (observable, no undo); the undo
// manager is only held for the clip that made the state. Copies have no manager.
//
// Observable keys: "brightness", "contrast", "saturation", "opacity", "defaultOpacity" (follows
// "opacity"), "defaultColorContorls" (follows the other three).
class QVColorState : public Observable, public Archivable {
public:
    // Brightness 0, contrast 1, saturation 1, opacity 1.
    static std::shared_ptr<QVColorState> create();
    static std::shared_ptr<QVColorState> defaultColorState() { return create(); }
    static std::shared_ptr<QVColorState> createWithBrightness(double brightness, double contrast, double saturation,
                                                              double opacity);
    static std::shared_ptr<QVColorState> createWithCoder(KeyedUnarchiver& coder);

    UndoRef undoManager() const { return UndoRef(_undoManager.lock()); }
    void setUndoManager(const UndoRef& undoManager) { _undoManager = undoManager.manager(); }

    double brightness() const { return _brightness; }
    void setBrightness(double brightness);
    double contrast() const { return _contrast; }
    void setContrast(double contrast);
    double saturation() const { return _saturation; }
    void setSaturation(double saturation);
    double opacity() const { return _opacity; }
    void setOpacity(double opacity);

    // Brightness, contrast and saturation each within QMCommon::expression() of neutral.
    bool defaultColorContorls() const;
    // Opacity within QMCommon::expression() of 1.
    bool defaultOpacity() const;

    // A new state between `start` (percent 0) and this one (percent 1); no start means the
    // default state.
    std::shared_ptr<QVColorState> calcColorStateWithStart(const std::shared_ptr<QVColorState>& start,
                                                          double percent) const;
    std::shared_ptr<QVColorState> copy() const;

    std::any valueForKey(const std::string& key) const override;
    std::string archiveClassName() const override { return "QVColorState"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

protected:
    std::vector<std::string> keyPathsForValuesAffectingValueForKey(const std::string& key) const override;

private:
    QVColorState() = default;
    void store(double& field, double value, const char* key);

    std::weak_ptr<UndoManager> _undoManager;
    double _brightness = 0.0;
    double _contrast = 1.0;
    double _saturation = 1.0;
    double _opacity = 1.0;
};

// The drop shadow of a clip. Setters are plain stores (observable, no undo).
//
// Observable keys: "shadowOffsetX", "shadowOffsetY", "shadowColor", "blurRadius", "shadow"
// (follows the four).
class QVShadowState : public Observable, public Archivable {
public:
    // No offset, black, no blur.
    static std::shared_ptr<QVShadowState> create();
    static std::shared_ptr<QVShadowState> defaultShadowState() { return create(); }
    static std::shared_ptr<QVShadowState> createWithOffset(Size offset, const Color& color, double blurRadius);
    // Reads "shadowColor" first, then the three numbers.
    static std::shared_ptr<QVShadowState> createWithCoder(KeyedUnarchiver& coder);

    UndoRef undoManager() const { return UndoRef(_undoManager.lock()); }
    void setUndoManager(const UndoRef& undoManager) { _undoManager = undoManager.manager(); }

    double shadowOffsetX() const { return _shadowOffsetX; }
    void setShadowOffsetX(double offsetX);
    double shadowOffsetY() const { return _shadowOffsetY; }
    void setShadowOffsetY(double offsetY);
    const Color& shadowColor() const { return _shadowColor; }
    void setShadowColor(const Color& color);
    double blurRadius() const { return _blurRadius; }
    void setBlurRadius(double blurRadius);

    // A new shadow record of these values.
    Shadow shadow() const;

    // A new state between `start` (percent 0) and this one (percent 1), the colour blended; no
    // start means the default state.
    std::shared_ptr<QVShadowState> calcShadowStateWithStart(const std::shared_ptr<QVShadowState>& start,
                                                            double percent) const;
    std::shared_ptr<QVShadowState> copy() const;

    std::any valueForKey(const std::string& key) const override;
    std::string archiveClassName() const override { return "QVShadowState"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

protected:
    std::vector<std::string> keyPathsForValuesAffectingValueForKey(const std::string& key) const override;

private:
    QVShadowState() = default;
    void store(double& field, double value, const char* key);

    std::weak_ptr<UndoManager> _undoManager;
    double _shadowOffsetX = 0;
    double _shadowOffsetY = 0;
    Color _shadowColor = Color::black();
    double _blurRadius = 0;
};

// The crop of a clip, in source coordinates. cropRect is read and written as one value under a
// lock, so a composing thread never sees half an edit. Setters are plain stores (observable, no
// undo).
//
// Observable keys: "cropRect", "x", "y", "width", "height"; "cropRect" follows the four parts
// and each part follows "cropRect".
class QVCropState : public Observable, public Archivable {
public:
    // The fixed rect (0, 0, 800, 600), whatever the source or the output size.
    static std::shared_ptr<QVCropState> create();
    static std::shared_ptr<QVCropState> createWithRect(const Rect& rect);
    static std::shared_ptr<QVCropState> createWithCoder(KeyedUnarchiver& coder);

    UndoRef undoManager() const { return UndoRef(_undoManager.lock()); }
    void setUndoManager(const UndoRef& undoManager) { _undoManager = undoManager.manager(); }

    Rect cropRect() const;
    void setCropRect(const Rect& rect);
    double x() const { return cropRect().origin.x; }
    void setX(double x);
    double y() const { return cropRect().origin.y; }
    void setY(double y);
    double width() const { return cropRect().size.width; }
    void setWidth(double width);
    double height() const { return cropRect().size.height; }
    void setHeight(double height);

    // A new state between `start` (percent 0) and this one (percent 1); no start reads as zeros.
    std::shared_ptr<QVCropState> calcCropStateWithStart(const std::shared_ptr<QVCropState>& start,
                                                        double percent) const;
    std::shared_ptr<QVCropState> copy() const;

    std::any valueForKey(const std::string& key) const override;
    std::string archiveClassName() const override { return "QVCropState"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

protected:
    std::vector<std::string> keyPathsForValuesAffectingValueForKey(const std::string& key) const override;

private:
    explicit QVCropState(const Rect& rect) : _cropRect(rect) {}
    // Changes one part of the rect, telling observers of `key`.
    void storePart(const char* key, void (*apply)(Rect&, double), double value);

    mutable std::mutex _cropRectLock;
    Rect _cropRect;
    std::weak_ptr<UndoManager> _undoManager;
};

}  // namespace qm
