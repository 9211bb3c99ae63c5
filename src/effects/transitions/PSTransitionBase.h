#pragma once

#include <optional>

#include "image/Image.h"
#include "platform/AffineTransform.h"
#include "platform/Color.h"
#include "platform/Geometry.h"

namespace qm {

// The image operations shared by the transitions and the clip rendering. Every operation is a
// lazy graph step; a null image in gives a null image out unless told otherwise.
class PSTransitionBase {
public:
    // The part of `image` inside `rect` (CICrop).
    static Image cropImage(const Image& image, const Rect& rect);
    // `image` with its alpha (and so, premultiplied, its colour) scaled by `alpha`; the image
    // itself when alpha is within 1e-6 of 1.
    static Image blendImage(const Image& image, double alpha);
    // `image` moved by `transform`.
    static Image transformImage(const Image& image, const AffineTransform& transform);
    // Maps `from` onto `to`: p -> R((p - from.origin) * (sx, sy) + to.origin), where sx, sy are the
    // ratios of the sizes and R turns by `rotate` degrees about the centre of `to`. A width or
    // height below 1e-6 in magnitude counts as 0.1.
    static AffineTransform makeAffineTranformFromRect(const Rect& from, const Rect& to, double rotate);
    // transformImage with makeAffineTranformFromRect; null when either rect is empty.
    static Image transformImage(const Image& image, const Rect& fromRect, const Rect& toRect, double rotate);
    // `dest` moved by the shadow's offset, as it stands (no flip).
    static Rect positionOfShadow(const Shadow& shadow, const Rect& dest);
    // The colour filling `dest`; null for no colour.
    static Image colorImage(const std::optional<Color>& color, const Rect& dest);
    // The silhouette of `image` in the shadow's colour, moved from `dest` to the shadow's position
    // and blurred by its radius. Null for no shadow or a shadow without colour; the caller
    // composites it.
    static Image shadowImage(const Image& image, const Shadow* shadow, const Rect& dest);
    // `foreground` over `background`; null without a foreground, the foreground itself without
    // a background.
    static Image sourceOverImage(const Image& foreground, const Image& background);
};

}  // namespace qm
