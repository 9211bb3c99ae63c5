#include "store/SCCacheFilePool.h"

namespace qm {

SCCacheFilePool& SCCacheFilePool::shared() {
    // Never destroyed: queue threads may still be closing files while the process exits.
    static SCCacheFilePool* pool = new SCCacheFilePool(defaultCapacity);
    return *pool;
}

SCCacheFilePool::SCCacheFilePool(size_t capacity) : _capacity(capacity > 0 ? capacity : 1) {}

std::shared_ptr<FileHandle> SCCacheFilePool::fileAtPath(const std::string& path, bool create) {
    std::lock_guard<std::mutex> lock(_mutex);
    if (const auto found = _byPath.find(path); found != _byPath.end()) {
        _recent.splice(_recent.begin(), _recent, found->second);
        return found->second->second;
    }
    auto file = FileHandle::fileHandleForUpdatingAtPath(path, create);
    if (!file) return nullptr;
    if (_recent.size() >= _capacity) {
        _byPath.erase(_recent.back().first);
        _recent.pop_back();
    }
    _recent.emplace_front(path, file);
    _byPath[path] = _recent.begin();
    return file;
}

void SCCacheFilePool::closeFileAtPath(const std::string& path) {
    std::lock_guard<std::mutex> lock(_mutex);
    const auto found = _byPath.find(path);
    if (found == _byPath.end()) return;
    _recent.erase(found->second);
    _byPath.erase(found);
}

size_t SCCacheFilePool::openCount() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _recent.size();
}

bool SCCacheFilePool::isOpen(const std::string& path) const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _byPath.count(path) != 0;
}

}  // namespace qm
