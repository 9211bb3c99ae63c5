#include "effects/transitions/PSTransitionMotion.h"

#include <algorithm>
#include <cmath>

#include "effects/QVTimeFunction.h"
#include "effects/transitions/PSTransitionBase.h"

namespace qm {

namespace {

double easeOut(double percent) {
    static const auto function = QVTimeFunction::timeFunctionWithName(QVTimeFunctionEaseOut);
    return function->redirectPercent(percent);
}

double lerp(double from, double to, double percent) {
    return PSTransition::fromValue(from, to, percent);
}

Image translated(const Image& image, const Point& by) {
    AffineTransform transform;
    transform.translateXBy(by.x, by.y);
    return PSTransitionBase::transformImage(image, transform);
}

struct Moves {
    Point to;
    Point from;
};

// How Push moves the incoming picture (extent t) and the outgoing one (extent f) at eased
// percent e. Left and Bottom start one extent below the origin; Right and Top at the outer edge
// of whichever picture reaches farther.
Moves pushMoves(int32_t direction, const Rect& f, const Rect& t, double e) {
    const double topmost = std::max(f.maxY(), t.maxY());
    const double rightmost = std::max(f.maxX(), t.maxX());
    switch (direction) {
        case PSTransitionDirectionLeft: {
            const double v = lerp(-t.width(), t.minX(), e);
            return {{v - t.minX(), 0}, {v + t.width(), 0}};
        }
        case PSTransitionDirectionTop: {
            const double v = lerp(topmost, t.minY(), e);
            return {{0, v - t.minY()}, {0, v - topmost}};
        }
        case PSTransitionDirectionRight: {
            const double v = lerp(rightmost, t.minX(), e);
            return {{v - t.minX(), 0}, {v - rightmost, 0}};
        }
        case PSTransitionDirectionBottom: {
            const double v = lerp(-t.height(), t.minY(), e);
            return {{0, v - t.minY()}, {0, v + t.height()}};
        }
        default:
            return {};
    }
}

// How Reveal moves the outgoing picture (extent f) at eased percent e.
Point revealMove(int32_t direction, const Rect& f, const Rect& t, double e) {
    switch (direction) {
        case PSTransitionDirectionLeft:
            return {lerp(f.minX(), -f.width() - f.minX(), e) - f.minX(), 0};
        case PSTransitionDirectionTop:
            return {0, lerp(f.minY(), std::max(f.maxY(), t.maxY()), e) - f.minY()};
        case PSTransitionDirectionRight:
            return {lerp(f.minX(), std::max(f.maxX(), t.maxX()), e) - f.minX(), 0};
        case PSTransitionDirectionBottom:
            return {0, lerp(f.minY(), -f.height() - f.minY(), e) - f.minY()};
        default:
            return {};
    }
}

}  // namespace

Image PSTransitionPush::transitionImage(const Image& from, const Image& to, double percent) const {
    if (!from || !to) return to;
    const Moves moves = pushMoves(direction(), from.extent(), to.extent(), easeOut(percent));
    return PSTransitionBase::sourceOverImage(translated(to, moves.to), translated(from, moves.from));
}

Image PSTransitionMoveIn::transitionImage(const Image& from, const Image& to, double percent) const {
    if (!from || !to) return to;
    const Moves moves = pushMoves(direction(), from.extent(), to.extent(), easeOut(percent));
    return PSTransitionBase::sourceOverImage(translated(to, moves.to), from);
}

Image PSTransitionReveal::transitionImage(const Image& from, const Image& to, double percent) const {
    if (!from || !to) return to;
    const double e = easeOut(percent);
    Image moved = translated(from, revealMove(direction(), from.extent(), to.extent(), e));
    if (std::fabs((1 - e) - 1) > 1e-06) moved = PSTransitionBase::blendImage(moved, 1 - e);
    return PSTransitionBase::sourceOverImage(moved, to);
}

}  // namespace qm
