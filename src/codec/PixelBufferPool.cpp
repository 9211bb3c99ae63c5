#include "codec/PixelBufferPool.h"

#include <mutex>
#include <vector>

namespace qm {

struct PixelBufferPool::Shelf {
    int width, height, pixelFormat;
    std::mutex mutex;
    std::vector<std::shared_ptr<PixelBuffer>> free;
};

std::shared_ptr<PixelBufferPool> PixelBufferPool::create(int width, int height, int pixelFormat,
                                                         int minimumBufferCount) {
    auto shelf = std::make_shared<Shelf>();
    shelf->width = width;
    shelf->height = height;
    shelf->pixelFormat = pixelFormat;
    for (int i = 0; i < std::max(minimumBufferCount, 1); ++i) {
        auto buffer = PixelBuffer::create(width, height, pixelFormat);
        if (!buffer) return nullptr;
        shelf->free.push_back(std::move(buffer));
    }
    return std::shared_ptr<PixelBufferPool>(new PixelBufferPool(std::move(shelf)));
}

PixelBufferPool::~PixelBufferPool() = default;

std::shared_ptr<PixelBuffer> PixelBufferPool::createPixelBuffer() {
    std::shared_ptr<PixelBuffer> buffer;
    {
        std::lock_guard lock(_shelf->mutex);
        if (!_shelf->free.empty()) {
            buffer = std::move(_shelf->free.back());
            _shelf->free.pop_back();
        }
    }
    if (!buffer) buffer = PixelBuffer::create(_shelf->width, _shelf->height, _shelf->pixelFormat);
    if (!buffer) return nullptr;
    PixelBuffer* raw = buffer.get();
    // The handed-out pointer owns nothing itself: when it goes, the buffer goes back on the shelf.
    return std::shared_ptr<PixelBuffer>(raw, [shelf = _shelf, buffer = std::move(buffer)](PixelBuffer*) mutable {
        std::lock_guard lock(shelf->mutex);
        shelf->free.push_back(std::move(buffer));
    });
}

}  // namespace qm
