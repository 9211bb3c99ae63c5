#pragma once

#include <cstddef>
#include <type_traits>
#include <vector>

#include "image/ScratchPool.h"

namespace qm {

// Scratch memory for rendering one tile, handed to a kernel by the render pass. Memory comes in
// chunks leased from the rendering thread's pool and goes back when the tile is done, so nothing
// outlives the tile or passes to another thread, and steady-state rendering does not allocate.
// Allocation bumps a pointer; a Scope gives back what was allocated inside it, so a per-row
// buffer can be taken afresh on every row without growing.
class TileScratch {
public:
    TileScratch() = default;
    TileScratch(const TileScratch&) = delete;
    TileScratch& operator=(const TileScratch&) = delete;

    // `count` values of T, uninitialised, valid until the enclosing Scope ends or the tile is done.
    template <class T>
    T* allocate(size_t count) {
        static_assert(std::is_trivially_destructible_v<T> && alignof(T) <= kAlignment);
        return static_cast<T*>(bytes(count * sizeof(T)));
    }

    // Gives back, when it ends, everything allocated while it lived.
    class Scope {
    public:
        explicit Scope(TileScratch& scratch) : _scratch(scratch), _chunk(scratch._chunk), _used(scratch._used) {}
        ~Scope() { _scratch.rewind(_chunk, _used); }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        TileScratch& _scratch;
        size_t _chunk;
        size_t _used;
    };

private:
    static constexpr size_t kAlignment = 16;
    struct Chunk {
        ScratchLease lease;
        size_t capacity = 0;  // bytes
    };

    void* bytes(size_t size);
    void rewind(size_t chunk, size_t used);

    std::vector<Chunk> _chunks;
    size_t _chunk = 0;  // the chunk allocations come from; _chunks.size() before the first
    size_t _used = 0;   // bytes used in it
};

}  // namespace qm
