// Dissolve: a cross-fade from one picture to the other.
#include <cstddef>
#include <span>

#include "effects/transitions/kernels/TransitionKernels.h"
#include "effects/transitions/kernels/support/InputRows.h"
#include "effects/transitions/kernels/support/KernelSetup.h"
#include "effects/transitions/kernels/support/TileFill.h"
#include "image/PixelRows.h"

namespace qm {

using namespace kernels;

namespace {

struct DissolveContext {
    float t = 0;  // the target's share
};

void renderDissolve(const DissolveContext& c, const ImageTile& out, std::span<const ConstImageTile> in,
                    TileScratch& scratch) {
    if (copyEndInput(out, in, c.t)) return;
    const int width = out.rect.width;
    float* target = scratch.allocate<float>(4 * size_t(width));
    for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
        float* row = out.row(y);
        copyRow(in[0], y, out.rect.x, out.rect.maxX(), row);
        copyRow(in[1], y, out.rect.x, out.rect.maxX(), target);
        mixRows(row, target, c.t, row, 4 * width);
    }
}

}  // namespace

Image dissolveTransition(const Image& from, const Image& to, double time) {
    const DissolveContext context{transitionTime(time)};
    auto kernel = transitionKernel("dissolve");
    kernel->render = [context](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch& scratch) {
        renderDissolve(context, out, in, scratch);
    };
    return applyKernel(kernel, {from, to});
}

}  // namespace qm
