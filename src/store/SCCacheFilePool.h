#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>

#include "platform/FileHandle.h"

namespace qm {

// The open cache files of the process, at most `capacity` at a time: a file is opened when it is
// used and the least recently used one is closed to make room. A closed file is opened again on
// its next use, so a store of thousands of cache files needs only a few descriptors.
//
// Handles are shared: one closed here stays open until its last user lets it go, so a read in
// progress is never cut short. Handles are opened for reading and writing, and their users read
// and write at explicit offsets (the file position is not theirs to keep). Thread-safe.
class SCCacheFilePool {
public:
    static constexpr size_t defaultCapacity = 64;

    // The pool of the process, with defaultCapacity.
    static SCCacheFilePool& shared();

    explicit SCCacheFilePool(size_t capacity);
    SCCacheFilePool(const SCCacheFilePool&) = delete;
    SCCacheFilePool& operator=(const SCCacheFilePool&) = delete;

    // The open file at `path`, now the most recently used; with `create`, a missing file is made.
    // Nothing when it cannot be opened.
    std::shared_ptr<FileHandle> fileAtPath(const std::string& path, bool create = false);
    // Lets go of the file at `path` if the pool holds it open.
    void closeFileAtPath(const std::string& path);

    size_t capacity() const { return _capacity; }
    // Files the pool holds open.
    size_t openCount() const;
    bool isOpen(const std::string& path) const;

private:
    using Entry = std::pair<std::string, std::shared_ptr<FileHandle>>;

    const size_t _capacity;
    mutable std::mutex _mutex;
    // Most recently used first.
    std::list<Entry> _recent;
    std::unordered_map<std::string, std::list<Entry>::iterator> _byPath;
};

}  // namespace qm
