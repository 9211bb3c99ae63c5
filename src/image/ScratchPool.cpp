#include "image/ScratchPool.h"

#include <vector>

namespace qm {

struct ScratchLease::Block {
    std::unique_ptr<float[]> data;
    size_t capacity = 0;
    bool inUse = false;
};

ScratchLease ScratchLease::acquire(size_t floats) {
    // The blocks of this thread. Their number never exceeds the most leases held at once: a
    // request that no free block fits grows the largest free block instead of adding one.
    thread_local std::vector<std::unique_ptr<Block>> blocks;
    Block* best = nullptr;
    Block* largestFree = nullptr;
    for (auto& block : blocks) {
        if (block->inUse) continue;
        if (block->capacity >= floats && (!best || block->capacity < best->capacity)) best = block.get();
        if (!largestFree || block->capacity > largestFree->capacity) largestFree = block.get();
    }
    if (!best) {
        best = largestFree;
        if (!best) {
            blocks.push_back(std::make_unique<Block>());
            best = blocks.back().get();
        }
        const size_t capacity = floats + floats / 4 + 64;
        best->data.reset(new float[capacity]);
        best->capacity = capacity;
    }
    best->inUse = true;
    return ScratchLease(best);
}

ScratchLease::ScratchLease(Block* block) : _block(block), _data(block->data.get()) {}

ScratchLease::~ScratchLease() { release(); }

ScratchLease::ScratchLease(ScratchLease&& other) noexcept : _block(other._block), _data(other._data) {
    other._block = nullptr;
    other._data = nullptr;
}

ScratchLease& ScratchLease::operator=(ScratchLease&& other) noexcept {
    if (this != &other) {
        release();
        _block = other._block;
        _data = other._data;
        other._block = nullptr;
        other._data = nullptr;
    }
    return *this;
}

void ScratchLease::release() {
    if (_block) _block->inUse = false;
    _block = nullptr;
    _data = nullptr;
}

}  // namespace qm
