#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "image/Image.h"
#include "platform/Geometry.h"

namespace qm {

class Bitmap;

// Layouts of 8-bit pixel memory. "Premultiplied" stores colour multiplied by alpha; the others
// store straight colour (fully transparent pixels as 0, 0, 0, 0).
enum class PixelFormat { RGBA8Premultiplied, RGBA8, BGRA8Premultiplied, BGRA8 };

// Three planes of 8-bit YUV 4:2:0 (I420): full-size Y, then U (Cb) and V (Cr) at half width and
// half height, rounded up.
struct YUVPlanes {
    uint8_t* y = nullptr;
    size_t yRowBytes = 0;
    uint8_t* u = nullptr;
    size_t uRowBytes = 0;
    uint8_t* v = nullptr;
    size_t vRowBytes = 0;
};

// Renders Images into memory (the CIContext of this engine). The region to render is given in
// image coordinates and snapped outwards to whole pixels; memory rows run from the top of the
// region down, as in Bitmap. A null image renders as transparent.
//
// Rendering pulls from each node only what the region needs and works tile by tile on a pool of
// threads (the calling thread and helpers of the global dispatch queue), in premultiplied RGBA
// float. All functions are const and may be called from several threads at once.
class RenderContext {
public:
    struct Options {
        // Side of the square tiles the region is cut into.
        int tileSize = 128;
        // Threads working on one render, the caller included; 0 means one per hardware thread.
        int threadCount = 0;
    };

    static std::shared_ptr<RenderContext> create();
    static std::shared_ptr<RenderContext> create(const Options& options);

    const Options& options() const { return _options; }

    // Writes the region into `data`, `rowBytes` apart, in `format`. Values are clamped to 0..1
    // and rounded to the nearest 8-bit step.
    void render(const Image& image, const Rect& region, PixelFormat format, uint8_t* data,
                size_t rowBytes) const;
    // Writes the region as YUV 4:2:0 with BT.709 coefficients in limited range (Y 16-235,
    // U and V 16-240); chroma is the mean of each 2 x 2 block. Video has no alpha: transparent
    // parts come out as if over black.
    void renderYUV420(const Image& image, const Rect& region, const YUVPlanes& planes) const;
    // Premultiplied RGBA float, 4 floats per pixel, rows `rowFloats` floats apart. No clamping.
    void renderFloat(const Image& image, const Rect& region, float* data, size_t rowFloats) const;
    // The region as a new Bitmap (createCGImage:fromRect:). Nothing for an empty or infinite
    // region.
    std::shared_ptr<const Bitmap> createBitmap(const Image& image, const Rect& region) const;

private:
    explicit RenderContext(const Options& options);

    Options _options;
};

}  // namespace qm
