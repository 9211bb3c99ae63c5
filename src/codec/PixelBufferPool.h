#pragma once

#include <memory>

#include "codec/PixelBuffer.h"

namespace qm {

// Recycles pixel buffers of one size and format. A buffer handed out returns to the pool when its
// last reference goes; the pool makes new buffers while none is free, and keeps at least the
// minimum count made from the start. Buffers may be taken and released on any thread.
class PixelBufferPool {
public:
    // Nothing for a size that is not positive, an unknown format or a buffer that cannot be made.
    static std::shared_ptr<PixelBufferPool> create(int width, int height, int pixelFormat, int minimumBufferCount);

    ~PixelBufferPool();
    PixelBufferPool(const PixelBufferPool&) = delete;
    PixelBufferPool& operator=(const PixelBufferPool&) = delete;

    // A free buffer (its pixels are what was last written to it); nothing when memory runs out.
    std::shared_ptr<PixelBuffer> createPixelBuffer();

private:
    struct Shelf;
    explicit PixelBufferPool(std::shared_ptr<Shelf> shelf) : _shelf(std::move(shelf)) {}

    std::shared_ptr<Shelf> _shelf;
};

}  // namespace qm
