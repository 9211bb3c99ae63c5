#include "effects/transitions/kernels/support/KernelSetup.h"

#include <span>
#include <utility>

namespace qm::kernels {

namespace {

Rect unionOfFromAndTo(std::span<const Rect> extents) { return extents[0].unionWith(extents[1]); }

}  // namespace

std::shared_ptr<ImageKernel> transitionKernel(std::string name) {
    auto kernel = std::make_shared<ImageKernel>();
    kernel->name = std::move(name);
    kernel->extent = unionOfFromAndTo;
    kernel->byteInputs = {true, true, true};
    return kernel;
}

}  // namespace qm::kernels
