#include "platform/Color.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ostream>

namespace qm {

namespace {

constexpr double kTolerance = 1e-6;

double unit(double value) { return std::isnan(value) ? 0 : std::clamp(value, 0.0, 1.0); }

std::uint8_t toByte(double value) {
    return static_cast<std::uint8_t>(std::lround(unit(value) * 255));
}

}  // namespace

Color Color::colorWithRed(double red, double green, double blue, double alpha) {
    return {unit(red), unit(green), unit(blue), unit(alpha)};
}

Color Color::colorWithWhite(double white, double alpha) {
    const double level = unit(white);
    return {level, level, level, unit(alpha)};
}

Color Color::fromRGBA8(std::uint8_t red, std::uint8_t green, std::uint8_t blue,
                       std::uint8_t alpha) {
    return {red / 255.0, green / 255.0, blue / 255.0, alpha / 255.0};
}

Color Color::colorWithAlphaComponent(double alpha) const { return {r, g, b, unit(alpha)}; }

Color Color::blendedColorWithFraction(double fraction, const Color& other) const {
    const double f = unit(fraction);
    const auto mix = [f](double from, double to) { return (1 - f) * from + f * to; };
    return {mix(r, other.r), mix(g, other.g), mix(b, other.b), mix(a, other.a)};
}

std::array<std::uint8_t, 4> Color::toRGBA8() const {
    return {toByte(r), toByte(g), toByte(b), toByte(a)};
}

Color Color::premultiplied() const { return {r * a, g * a, b * a, a}; }

std::string Color::description() const {
    char text[128];
    std::snprintf(text, sizeof text, "sRGB %g %g %g %g", r, g, b, a);
    return text;
}

bool operator==(const Color& lhs, const Color& rhs) {
    return std::abs(lhs.r - rhs.r) < kTolerance && std::abs(lhs.g - rhs.g) < kTolerance &&
           std::abs(lhs.b - rhs.b) < kTolerance && std::abs(lhs.a - rhs.a) < kTolerance;
}

std::ostream& operator<<(std::ostream& out, const Color& c) { return out << c.description(); }

}  // namespace qm
