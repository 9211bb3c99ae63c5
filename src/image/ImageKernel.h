#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "image/Image.h"
#include "image/ImageTile.h"
#include "image/TileScratch.h"
#include "platform/Geometry.h"

namespace qm {

// A custom operation on N input images, rendered tile by tile (the CIKernel of this engine).
//
//   auto kernel = std::make_shared<ImageKernel>();
//   kernel->name = "dissolve";
//   kernel->extent = [](std::span<const Rect> e) { return e[0].unionWith(e[1]); };
//   kernel->render = [t](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch&) {
//       for (int y = out.rect.y; y < out.rect.maxY(); ++y)
//           for (int x = out.rect.x; x < out.rect.maxX(); ++x)
//               storeFloat4(out.at(x, y), mix(in[0].pixel(x, y), in[1].pixel(x, y), t));
//   };
//   Image result = applyKernel(kernel, {from, to});
//
// The functions are called from several threads at once, for different tiles, and possibly long
// after applyKernel returned; they must not change shared state. Capture parameters by value.
struct ImageKernel {
    // For messages and debugging.
    std::string name;

    // The output extent from the extents of the inputs, in input order. Required. May be infinite
    // (Image::infiniteExtent()).
    std::function<Rect(std::span<const Rect> inputExtents)> extent;

    // The area of input `index` that render() reads to fill `outputRect`. It must grow with the
    // output rect (a bigger rect never needs less). Not set: the output rect itself.
    std::function<Rect(size_t index, const Rect& outputRect)> regionOfInterest;

    // Inputs rendered once per RenderContext call, over all that the whole output needs of them,
    // and shared by every tile (indexes with `true`). Mark an input that tiles read far away from
    // themselves (a page's backside, a fold), so that its pixels are not made again for each tile.
    // Missing entries count as false.
    std::vector<bool> wholeInputs;

    // Inputs (indexes with `true`) that, where they show a bitmap unchanged (a picture, or a crop of
    // one), arrive as byte tiles reading the bitmap in place (see ConstImageTile) instead of being
    // converted to float first. Mark only inputs that render() reads through pixel() and sample()
    // (or helpers built on them), never through row(), at() or `pixels`. It pays for inputs read a
    // pixel or two per output pixel, or only in parts of the output; inputs sampled densely at
    // scattered points are faster as floats. A bitmap read in place needs no shared copy, so
    // wholeInputs does not apply to it. Missing entries count as false.
    std::vector<bool> byteInputs;

    // Fills every pixel of `output` (premultiplied RGBA float, see ImageTile). inputs[i] holds
    // input i's pixels over its region of interest for this tile, clipped to where that input has
    // pixels; read it with pixel() or sample(), which give transparent outside its rect. Buffers the
    // kernel needs while it works come from `scratch`. Required.
    std::function<void(const ImageTile& output, std::span<const ConstImageTile> inputs, TileScratch& scratch)> render;
};

// The kernel applied to `inputs`. Null when any input is null or the kernel lacks extent or render.
Image applyKernel(std::shared_ptr<const ImageKernel> kernel, std::vector<Image> inputs);

}  // namespace qm
