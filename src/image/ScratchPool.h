#pragma once

#include <cstddef>
#include <memory>

namespace qm {

// Float memory leased from a pool that belongs to the calling thread, reused from tile to tile so
// that rendering does not allocate in steady state. A lease must be dropped on the thread that
// took it.
class ScratchLease {
public:
    ScratchLease() = default;
    // At least `floats` floats, contents undefined.
    static ScratchLease acquire(size_t floats);
    ~ScratchLease();
    ScratchLease(ScratchLease&& other) noexcept;
    ScratchLease& operator=(ScratchLease&& other) noexcept;
    ScratchLease(const ScratchLease&) = delete;
    ScratchLease& operator=(const ScratchLease&) = delete;

    float* data() const { return _data; }

private:
    struct Block;
    explicit ScratchLease(Block* block);
    void release();

    Block* _block = nullptr;
    float* _data = nullptr;
};

}  // namespace qm
