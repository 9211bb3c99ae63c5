#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "image/Image.h"
#include "platform/Color.h"
#include "platform/Geometry.h"

namespace qm {

class QVClip;
class QVPlayerViewInterface;

// Posted by a canvas view, with the view's QVPlayerViewInterface address as object, when its frame
// changes.
inline constexpr const char* QVPlayerViewFrameDidChangeNotification = "NSViewFrameDidChangeNotification";

// What a canvas view asks for to draw the project. The defaults are the answers of a delegate
// that does not answer.
class QVPlayerViewDelegate {
public:
    virtual ~QVPlayerViewDelegate() = default;

    virtual Size QVPlayerViewSourceSize(QVPlayerViewInterface& view) { return {}; }
    virtual Image QVPlayerViewCurrentContent(QVPlayerViewInterface& view) { return {}; }
    virtual int64_t QVPlayerViewCurrentTimestamps(QVPlayerViewInterface& view) { return 0; }
    virtual std::vector<std::shared_ptr<QVClip>> QVPlayerViewCurrentSelection(QVPlayerViewInterface& view) {
        return {};
    }
    virtual std::vector<std::shared_ptr<QVClip>> QVPlayerViewCurrentClips(QVPlayerViewInterface& view) { return {}; }
    virtual bool QVPlayerViewAllowCreateShape(QVPlayerViewInterface& view) { return false; }
    virtual int32_t QVPlayerViewCurrentShapeType(QVPlayerViewInterface& view) { return 0; }
    virtual Color QVPlayerViewCurrentShapeFillColor(QVPlayerViewInterface& view) { return Color::black(); }
    virtual Color QVPlayerViewCurrentShapeStrokeColor(QVPlayerViewInterface& view) { return Color::white(); }
    virtual double QVPlayerViewCurrentShapeLineWidth(QVPlayerViewInterface& view) { return 1.0; }
    virtual Size QVPlayerViewCurrentShapeRoundSize(QVPlayerViewInterface& view) { return {}; }
    virtual void QVPlayerViewDidCreateShapeClip(QVPlayerViewInterface& view, const std::shared_ptr<QVClip>& clip) {}
};

// The canvas view as its controller sees it, so that the controller needs no toolkit. All calls
// come on the main thread.
class QVPlayerViewInterface {
public:
    virtual ~QVPlayerViewInterface() = default;

    // The source size or the picture's placement changed: lay out and draw again.
    virtual void reloadData() = 0;
    // Draw the current picture again; `playing` while playback runs.
    virtual void reloadContent(bool playing) = 0;
    // The selection changed.
    virtual void reloadSelected() = 0;
    // True while the view sits in a window's view tree, so that its pictures can be seen.
    virtual bool hasSuperview() const = 0;
    // Not owned; null removes it.
    virtual void setDelegate(QVPlayerViewDelegate* delegate) = 0;
};

}  // namespace qm
