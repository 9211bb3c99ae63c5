#include "effects/transitions/kernels/support/SphereShading.h"

#include <cstddef>

#include "effects/transitions/kernels/support/BilinearSampling.h"

namespace qm::kernels {

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

ShadingProfile::ShadingProfile(const SphereShading& shading, float dx, float dy, TileScratch& scratch)
    : _light(scratch.allocate<Float4>(2 * size_t(kSteps) + 1)) {
    for (int i = 0; i <= 2 * kSteps; ++i) {
        const float s = float(i) / float(kSteps) - 1.0f;
        _light[i] = shading.light(s * dx, s * dy);
    }
}

}  // namespace qm::kernels
