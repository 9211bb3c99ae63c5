#pragma once

#include <memory>
#include <string>

#include "image/ImageKernel.h"
#include "image/ImageTile.h"
#include "platform/Color.h"

// What every transition's kernel starts from: its time, its colours as pixels, and the kernel
// itself.
namespace qm::kernels {

// The time of a transition: clamped to 0..1, NaN counts as 0.
inline float transitionTime(double time) {
    if (!(time > 0)) return 0.0f;
    return time >= 1 ? 1.0f : static_cast<float>(time);
}

// A colour as premultiplied RGBA.
inline Float4 premultiplied(const Color& color) {
    const Color c = color.premultiplied();
    return Float4{float(c.r), float(c.g), float(c.b), float(c.a)};
}

// A kernel named `name` whose extent is the union of from and target and which reads its first
// three inputs in place where they show bitmaps; the caller sets its render function.
std::shared_ptr<ImageKernel> transitionKernel(std::string name);

}  // namespace qm::kernels
