#include "effects/transitions/kernels/KernelSupport.h"

#include <array>
#include <cstring>

namespace qm::kernels {

float* rowBuffer(int pixels) {
    thread_local std::array<std::vector<float>, kRowBuffers> buffers;
    thread_local size_t next = 0;
    std::vector<float>& buffer = buffers[next++ % buffers.size()];
    if (buffer.size() < size_t(pixels) * 4) buffer.resize(size_t(pixels) * 4);
    return buffer.data();
}

void copyRow(const ConstImageTile& tile, int y, int x0, int x1, float* dst) {
    const PixelRect& r = tile.rect;
    if (y < r.y || y >= r.maxY() || x0 < r.x || x1 > r.maxX()) {
        for (int x = x0; x < x1; ++x) storeFloat4(dst + 4 * (x - x0), tile.pixel(x, y));
        return;
    }
    if (tile.bytes) bytesToFloatRow(tile.byteAt(x0, y), dst, x1 - x0);
    else std::memcpy(dst, tile.at(x0, y), sizeof(float) * 4 * size_t(x1 - x0));
}

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

Float4 SphereShading::light(float nx, float ny) const {
    return sampleBilinear(*_tile, _cx + nx * _rx, _cy + ny * _ry) - _flat;
}

ShadingProfile::ShadingProfile(const SphereShading& shading, float dx, float dy) : _light(2 * kSteps + 1) {
    for (int i = 0; i <= 2 * kSteps; ++i) {
        const float s = float(i) / float(kSteps) - 1.0f;
        _light[size_t(i)] = shading.light(s * dx, s * dy);
    }
}

std::shared_ptr<ImageKernel> transitionKernel(std::string name) {
    auto kernel = std::make_shared<ImageKernel>();
    kernel->name = std::move(name);
    kernel->extent = unionOfFromAndTo;
    kernel->byteInputs = {true, true, true};
    return kernel;
}

bool copyEndInput(const ImageTile& out, std::span<const ConstImageTile> in, float t) {
    if (t > 0.0f && t < 1.0f) return false;
    for (int y = out.rect.y; y < out.rect.maxY(); ++y) copyRow(in[t <= 0.0f ? 0 : 1], y, out.rect.x, out.rect.maxX(), out.row(y));
    return true;
}

}  // namespace qm::kernels
