#pragma once

#include <array>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>

#include "platform/Geometry.h"

namespace qm {

// An sRGB colour with straight (not premultiplied) alpha, every component in 0..1.
// Brace initialisation stores the components as given (`Color{}` is opaque black); the named
// constructors clamp each component into 0..1 and read NaN as 0.
struct Color {
    double r = 0;
    double g = 0;
    double b = 0;
    double a = 1;

    static Color black() { return {0, 0, 0, 1}; }
    static Color white() { return {1, 1, 1, 1}; }
    // Black with zero alpha.
    static Color clear() { return {0, 0, 0, 0}; }
    // Clamped components (colorWithRed:green:blue:alpha:).
    static Color colorWithRed(double red, double green, double blue, double alpha = 1);
    // A grey of the given level, clamped (colorWithWhite:alpha:).
    static Color colorWithWhite(double white, double alpha = 1);
    // Components 0..255 mapped onto 0..1.
    static Color fromRGBA8(std::uint8_t red, std::uint8_t green, std::uint8_t blue,
                           std::uint8_t alpha = 255);

    // The same colour with alpha replaced by `alpha`, clamped.
    Color colorWithAlphaComponent(double alpha) const;
    // Every component, alpha included, becomes (1 - f) * this + f * other, where f is `fraction`
    // clamped to 0..1 (NaN counts as 0): 0 gives this colour, 1 gives `other`.
    Color blendedColorWithFraction(double fraction, const Color& other) const;
    // Components scaled to 0..255 and rounded to nearest, after clamping into 0..1.
    std::array<std::uint8_t, 4> toRGBA8() const;
    // Red, green and blue multiplied by alpha; alpha unchanged.
    Color premultiplied() const;

    // "sRGB r g b a", each component with up to six significant digits.
    std::string description() const;

    // Equal when every component differs by less than 1e-6.
    friend bool operator==(const Color& lhs, const Color& rhs);
};

std::ostream& operator<<(std::ostream& out, const Color& c);

// How a shadow is cast (NSShadow): `offset` moves it (width along x, height along y, y up),
// `blurRadius` softens it, and `color` paints it. A fresh shadow is black at one-third alpha;
// no colour means no shadow is drawn.
struct Shadow {
    Size offset;
    double blurRadius = 0;
    std::optional<Color> color = Color{0, 0, 0, 1.0 / 3.0};

    friend bool operator==(const Shadow&, const Shadow&) = default;
};

}  // namespace qm
