#include "image/TileScratch.h"

#include <algorithm>

namespace qm {

namespace {

constexpr size_t kFirstChunk = size_t(64) << 10;

}  // namespace

void* TileScratch::bytes(size_t size) {
    size = (size + kAlignment - 1) / kAlignment * kAlignment;
    if (_chunk < _chunks.size() && _chunks[_chunk].capacity - _used >= size) {
        void* result = reinterpret_cast<char*>(_chunks[_chunk].lease.data()) + _used;
        _used += size;
        return result;
    }
    // The next chunk, if there is one that fits, else a new one at least twice the last.
    size_t next = _chunk < _chunks.size() ? _chunk + 1 : 0;
    while (next < _chunks.size() && _chunks[next].capacity < size) ++next;
    if (next >= _chunks.size()) {
        const size_t last = _chunks.empty() ? kFirstChunk / 2 : _chunks.back().capacity;
        const size_t capacity = std::max(size, 2 * last);
        _chunks.push_back({ScratchLease::acquire(capacity / sizeof(float)), capacity});
        next = _chunks.size() - 1;
    }
    _chunk = next;
    _used = size;
    return _chunks[_chunk].lease.data();
}

void TileScratch::rewind(size_t chunk, size_t used) {
    _chunk = chunk;
    _used = used;
}

}  // namespace qm
