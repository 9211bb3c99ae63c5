#pragma once

#include "image/Image.h"
#include "platform/Color.h"
#include "platform/Geometry.h"

namespace qm {

// The picture transitions as lazy image operations (the Core Image transition filters of this
// engine). Each takes the from image, the target image and the time, clamped to 0..1: time 0 gives
// the from image and time 1 the target, pixel for pixel, inside their extents. The output extent
// is the union of the two extents. A null input gives a null image.
//
// Each parameter struct starts at the filter's default values; a caller sets what it needs.
// Angles are in radians, y up, and name the way the transition travels: angle 0 sweeps towards
// +x, so the target comes in from the left. Lengths are in pixels.

// CIDissolveTransition: a cross-fade, from + (to - from) * time.
Image dissolveTransition(const Image& from, const Image& to, double time);

// CISwipeTransition: a straight edge sweeps across `extent` at `angle`. The edge is a soft band
// `width` wide, in which the pictures cross-fade and which `color` tints with a peak opacity of
// `opacity` (a parabola across the band). The band starts just before the extent and leaves it
// at time 1.
struct SwipeTransitionParameters {
    Rect extent{0, 0, 300, 300};
    Color color{1, 1, 1, 1};
    double angle = 0;
    double width = 300;
    double opacity = 0;
};
Image swipeTransition(const Image& from, const Image& to, double time, const SwipeTransitionParameters& parameters);

// CIBarsSwipeTransition: the from image is cut into bars `width` wide, lying along `angle`, that
// slide away along `angle` and uncover the target. Odd bars trail even ones by `barOffset`. Each
// bar travels the from image's length along `angle` plus `barOffset` over the transition, so the
// last bar leaves at time 1. Along an axis (as in the catalogue) bars move by whole pixels.
struct BarsSwipeTransitionParameters {
    double angle = 3.14;
    double width = 30;
    double barOffset = 10;
};
Image barsSwipeTransition(const Image& from, const Image& to, double time,
                          const BarsSwipeTransitionParameters& parameters);

// CICopyMachineTransition: a scanner light `width` wide crosses `extent` at `angle`. Behind its
// centre line the target shows, ahead of it the from image. The light adds `color` to the
// picture with strength opacity * (1 - 2|d| / width)^2 at distance d from the centre line,
// limited so that no component exceeds alpha.
struct CopyMachineTransitionParameters {
    Rect extent{0, 0, 300, 300};
    Color color{0.6, 1, 1, 1};
    double angle = 0;
    double width = 200;
    double opacity = 1.3;
};
Image copyMachineTransition(const Image& from, const Image& to, double time,
                            const CopyMachineTransitionParameters& parameters);

// CIFlashTransition: a flash of `color` grows from `center` and floods the picture by time
// `fadeThreshold`, then fades into the target. With s = time / fadeThreshold and d the distance
// from the centre over the distance to the farthest corner of `extent`, the flash covers
//   w = s^2 + s * (glow + rays),  glow = 1 / (1 + 16 d^2),
//   rays = striationStrength * stripes(angle)^(2 * striationContrast) * r / (r + 4 d),
// with r = maxStriationRadius and stripes a fixed pattern of 16 and 7 spokes; the picture is
// mix(from, color, min(w, 1)), w being evaluated every eighth pixel and interpolated. After the
// threshold: mix(color, to, (time - threshold) / (1 - threshold)).
struct FlashTransitionParameters {
    Point center{150, 150};
    Rect extent{0, 0, 300, 300};
    Color color{1, 0.8, 0.6, 1};
    double maxStriationRadius = 2.58;
    double striationStrength = 0.5;
    double striationContrast = 1.375;
    double fadeThreshold = 0.85;
};
Image flashTransition(const Image& from, const Image& to, double time, const FlashTransitionParameters& parameters);

// CIModTransition: the target shows through holes that open in the from image. The holes are the
// cells of two lattices (one turned by `angle`, one by a further 45 degrees at 0.7 times the
// pitch) of pitch 2 * radius around `center`; farther from the centre the pattern is compressed by
// 1 + distance / compression, so the holes are smaller and more irregular there. A point joins the
// target once time * 1.415 passes its distance to the nearest cell centre, in half-pitches (a
// field evaluated every fourth pixel and interpolated).
struct ModTransitionParameters {
    Point center{150, 150};
    double angle = 2;
    double radius = 150;
    double compression = 300;
};
Image modTransition(const Image& from, const Image& to, double time, const ModTransitionParameters& parameters);

// CIRippleTransition: a circular wave `width` wide runs out from `center` and leaves the target
// in its wake; it reaches past the farthest corner of `extent` at time 1. Inside the wave, at
// phase f (0 at the front, 1 at the back) the pictures cross-fade by smoothstep(f), are displaced
// outwards by scale / 2 * sin(2 pi f) pixels (reading no farther than the edge of `extent`), and
// lit from `shadingImage` (a shaded sphere: the pixel at the wave's surface normal, relative to
// the sphere's centre, is added; the normal tilts by up to 0.3 * scale / 50). A positive `scale`
// starts the wave as a bulge, a negative one as a dimple.
struct RippleTransitionParameters {
    Image shadingImage;
    Point center{150, 150};
    Rect extent{0, 0, 300, 300};
    double width = 100;
    double scale = 50;
};
Image rippleTransition(const Image& from, const Image& to, double time, const RippleTransitionParameters& parameters);

// CIPageCurlTransition: the from image, as a page over `extent`, rolls up from its corner against
// `angle` around a cylinder of `radius` and travels along `angle` until it has left the extent at
// time 1. The rolled part shows `backsideImage` (mirrored, as the back of the page) and lies over
// the flat part; the target shows where no page is left. Curved surfaces are lit from
// `shadingImage` as in rippleTransition. The radius is at most the page's length along the angle
// over 2 pi. A null backside image shows the from image.
struct PageCurlTransitionParameters {
    Image backsideImage;
    Image shadingImage;
    Rect extent{0, 0, 0, 0};
    double angle = 0;
    double radius = 100;
};
Image pageCurlTransition(const Image& from, const Image& to, double time,
                         const PageCurlTransitionParameters& parameters);

// CIPageCurlWithShadowTransition: the page curl without a shading image (the roll is shaded by
// the cosine of its slope), plus the shadow the roll casts on the target: darkness
// shadowAmount * (1 - x / (shadowSize * 2 * radius))^2 at distance x in front of the roll, where
// the roll has page above it and only inside `shadowExtent`.
struct PageCurlWithShadowTransitionParameters {
    Image backsideImage;
    Rect extent{0, 0, 0, 0};
    double angle = 0;
    double radius = 100;
    double shadowSize = 0.5;
    double shadowAmount = 0.7;
    Rect shadowExtent{0, 0, 0, 0};
};
Image pageCurlWithShadowTransition(const Image& from, const Image& to, double time,
                                   const PageCurlWithShadowTransitionParameters& parameters);

// CIAccordionFoldTransition: the from image folds up like an accordion of `numberOfFolds` vertical
// panels towards its left edge, uncovering the target, which stays in place behind it. At time t
// the folded picture is 1 - t of its width; alternate panels tilt opposite ways by the fold angle a
// (cos a = 1 - t), perspective narrows each panel vertically towards its deeper edge (so the top and
// bottom edges zigzag), and the panels facing away darken by foldShadowAmount * sin a, the others by
// a quarter of that.
struct AccordionFoldTransitionParameters {
    double numberOfFolds = 3;
    double foldShadowAmount = 0.1;
};
Image accordionFoldTransition(const Image& from, const Image& to, double time,
                              const AccordionFoldTransitionParameters& parameters);

// CIDisintegrateWithMaskTransition: the from image falls apart where the mask (its luminance, on
// the same coordinates) is below the time, dark parts first. The edge is anti-aliased by the
// mask's own slope, and the remaining from image casts a shadow of `shadowDensity` onto the
// target, moved by `shadowOffset` and softened over `shadowRadius` pixels.
struct DisintegrateWithMaskTransitionParameters {
    Image maskImage;
    double shadowRadius = 8;
    double shadowDensity = 0.65;
    Point shadowOffset{0, -10};
};
Image disintegrateWithMaskTransition(const Image& from, const Image& to, double time,
                                     const DisintegrateWithMaskTransitionParameters& parameters);

}  // namespace qm
