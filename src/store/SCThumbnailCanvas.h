#pragma once

#include <memory>

#include "platform/Bitmap.h"
#include "platform/Geometry.h"

namespace qm {

// Draws the store's posters: one picture onto a fresh transparent canvas (drawInRect:fromRect:
// with source-over, which on an empty canvas is a copy).
class SCThumbnailCanvas {
public:
    // A canvas of `canvasSize` pixels with the part `from` of `picture` scaled into `dest`
    // (area-averaged when shrinking). Both rectangles have their origin at the lower left, `from`
    // in the picture's pixels; whatever falls outside the picture or the canvas is not drawn.
    // With no picture, or an empty rectangle, the canvas stays transparent.
    static std::shared_ptr<const Bitmap> drawPicture(Size canvasSize, const std::shared_ptr<const Bitmap>& picture,
                                                     const Rect& dest, const Rect& from);
    // The "music" picture of audio without artwork: a white note on a violet ground.
    static std::shared_ptr<const Bitmap> musicPicture(Size canvasSize);
};

}  // namespace qm
