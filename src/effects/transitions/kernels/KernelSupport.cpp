#include "effects/transitions/kernels/KernelSupport.h"

namespace qm::kernels {

Span projectRect(const Rect& rect, double dx, double dy) {
    const double xs[2] = {rect.minX(), rect.maxX()};
    const double ys[2] = {rect.minY(), rect.maxY()};
    double lo = xs[0] * dx + ys[0] * dy;
    double hi = lo;
    for (double x : xs) {
        for (double y : ys) {
            const double d = x * dx + y * dy;
            lo = std::min(lo, d);
            hi = std::max(hi, d);
        }
    }
    return {float(lo), float(hi)};
}

Rect unionOfFromAndTo(std::span<const Rect> extents) {
    return extents[0].unionWith(extents[1]);
}

Rect unionOfShifted(const Rect& rect, std::span<const Point> shifts) {
    Rect result = rect;
    for (const Point& shift : shifts) result = result.unionWith(rect.offsetBy(shift.x, shift.y));
    return result;
}

SphereShading::SphereShading(const ConstImageTile& tile, const Rect& extent)
    : _tile(&tile),
      _cx(float(extent.midX())),
      _cy(float(extent.midY())),
      _rx(float(extent.width() * 0.5 - 1.0)),
      _ry(float(extent.height() * 0.5 - 1.0)),
      _flat(tile.sample(_cx, _cy)) {}

Float4 SphereShading::apply(Float4 color, float nx, float ny) const {
    const Float4 light = sampleBilinear(*_tile, _cx + nx * _rx, _cy + ny * _ry) - _flat;
    Float4 result = color + light * color[3];
    for (int c = 0; c < 3; ++c) result[c] = std::clamp(result[c], 0.0f, color[3]);
    result[3] = color[3];
    return result;
}

std::shared_ptr<ImageKernel> transitionKernel(std::string name) {
    auto kernel = std::make_shared<ImageKernel>();
    kernel->name = std::move(name);
    kernel->extent = unionOfFromAndTo;
    return kernel;
}

}  // namespace qm::kernels
