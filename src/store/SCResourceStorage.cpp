#include "store/SCResourceStorage.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "platform/Log.h"
#include "platform/Paths.h"
#include "platform/UUID.h"
#include "store/SCCacheFilePool.h"

namespace qm {

// MARK: - SCResBlock

std::shared_ptr<SCResBlock> SCResBlock::createWithLocation(uint64_t location, uint64_t capacity, uint64_t length) {
    auto block = std::make_shared<SCResBlock>();
    block->_location = location;
    block->_capacity = capacity;
    block->_length = length;
    return block;
}

std::shared_ptr<SCResBlock> SCResBlock::createWithCoder(KeyedUnarchiver& coder) {
    return createWithLocation(static_cast<uint64_t>(coder.decodeInt64("location")),
                              static_cast<uint64_t>(coder.decodeInt64("capacity")),
                              static_cast<uint64_t>(coder.decodeInt64("length")));
}

void SCResBlock::encodeWithCoder(KeyedArchiver& coder) const {
    coder.encodeInteger("location", static_cast<int64_t>(_location));
    coder.encodeInteger("capacity", static_cast<int64_t>(_capacity));
    coder.encodeInteger("length", static_cast<int64_t>(_length));
}

// MARK: - SCResourceStorage

namespace {

// Whether the file at `path` is a regular file this process may read and write; it is opened
// only when used.
bool isWritableFile(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && ::access(path.c_str(), R_OK | W_OK) == 0;
}

}  // namespace

std::string SCResourceStorage::pathOfResourceStoragePath() {
    const std::string path = Paths::applicationSupport() + "/" + Bundle::identifier() + "/Resource";
    Paths::createDirectories(path);
    return path;
}

std::shared_ptr<SCResourceStorage> SCResourceStorage::create() {
    std::shared_ptr<SCResourceStorage> storage(new SCResourceStorage());
    storage->_cacheFile = pathOfResourceStoragePath() + "/" + UUID::create().UUIDString();
    if (const auto file = SCCacheFilePool::shared().fileAtPath(*storage->_cacheFile, true)) {
        file->truncateFileAtOffset(0);
    }
    storage->_allowEdit = true;
    return storage;
}

std::shared_ptr<SCResourceStorage> SCResourceStorage::createWithCoder(KeyedUnarchiver& coder) {
    const std::string path = coder.decodeString("_cacheFile");
    if (path.empty() || !isWritableFile(path)) return nullptr;
    std::shared_ptr<SCResourceStorage> storage(new SCResourceStorage());
    storage->_cacheFile = path;
    if (const auto dictionary = coder.decodeObjectOfClass<ArchivedDictionary>("_bufferDict")) {
        for (const auto& [key, value] : dictionary->map()) {
            if (const auto list = std::dynamic_pointer_cast<ArchivedList>(value)) {
                storage->_bufferDict[key] = list->objectsOfClass<SCResBlock>();
            }
        }
    }
    return storage;
}

void SCResourceStorage::encodeWithCoder(KeyedArchiver& coder) const {
    if (!_cacheFile) {
        QMLog("Warning: Process Data was clean");
        return;
    }
    coder.encodeString("_cacheFile", *_cacheFile);
    ArchivedDictionary::Map table;
    for (const auto& [key, blocks] : _bufferDict) table[key] = ArchivedList::createWithObjects(blocks);
    coder.encodeObject("_bufferDict", ArchivedDictionary::createWithMap(std::move(table)));
}

void SCResourceStorage::cleanCache() {
    if (_cacheFile) {
        SCCacheFilePool::shared().closeFileAtPath(*_cacheFile);
        ::unlink(_cacheFile->c_str());
    }
    _cacheFile.reset();
    _allowEdit = false;
}

std::shared_ptr<FileHandle> SCResourceStorage::file() const {
    return _cacheFile ? SCCacheFilePool::shared().fileAtPath(*_cacheFile) : nullptr;
}

DispatchQueue& SCResourceStorage::readwriteQueue() {
    std::call_once(_queueOnce, [this] { _readwritequeue = DispatchQueue::createSerial(); });
    return *_readwritequeue;
}

// MARK: Append stream

void SCResourceStorage::appendBytes(const void* bytes, size_t lenght) {
    const auto* first = static_cast<const uint8_t*>(bytes);
    const std::vector<uint8_t> copy(first, first + lenght);
    appendData(copy);
}

void SCResourceStorage::appendData(std::span<const uint8_t> bytes) {
    if (!_allowEdit) {
        QMLog(_cacheFile ? "Warning: not allow to write resource data." : "Error: No cache created.");
        return;
    }
    if (_cacheBuffer.size() + bytes.size() < cacheBufferLimit) {
        _cacheBuffer.insert(_cacheBuffer.end(), bytes.begin(), bytes.end());
        return;
    }
    const auto handle = file();
    if (!handle) {
        QMLog("Error: No cache created.");
        return;
    }
    writeCacheBuffer(*handle);
    writeAt(handle->seekToEndOfFile(), bytes);
}

void SCResourceStorage::flushCacheBuffer() {
    if (!_allowEdit || _cacheBuffer.empty()) return;
    if (const auto handle = file()) writeCacheBuffer(*handle);
}

void SCResourceStorage::writeCacheBuffer(FileHandle& handle) {
    if (_cacheBuffer.empty()) return;
    writeAt(handle.seekToEndOfFile(), _cacheBuffer);
    _cacheBuffer.clear();
}

// MARK: Reads

std::shared_ptr<FileHandle> SCResourceStorage::fileForReading() const {
    auto handle = file();
    if (!handle) QMLog("Error: No process found.");
    return handle;
}

std::vector<uint8_t> SCResourceStorage::readAt(FileHandle& handle, uint64_t offset, uint64_t length) {
    std::vector<uint8_t> bytes = handle.readAt(offset, length);
    _position = offset + bytes.size();
    return bytes;
}

std::vector<uint8_t> SCResourceStorage::readAllData() {
    const auto handle = fileForReading();
    if (!handle) return {};
    return readAt(*handle, 0, handle->seekToEndOfFile());
}

std::vector<uint8_t> SCResourceStorage::readDataOfLength(uint64_t length) {
    const auto handle = fileForReading();
    if (!handle) return {};
    return readAt(*handle, _position, length);
}

std::vector<uint8_t> SCResourceStorage::readDataOfLength(uint64_t length, uint64_t offset) {
    const auto handle = fileForReading();
    if (!handle) return {};
    flushCacheBuffer();
    return readAt(*handle, offset, length);
}

// MARK: Key table

void SCResourceStorage::writeAt(uint64_t offset, std::span<const uint8_t> bytes) {
    const auto handle = file();
    if (!handle || !handle->writeAt(offset, bytes.data(), bytes.size())) return;
    _position = offset + bytes.size();
}

std::shared_ptr<SCResBlock> SCResourceStorage::appendRegion(std::span<const uint8_t> bytes) {
    const auto handle = file();
    const uint64_t location = handle ? handle->seekToEndOfFile() : 0;
    writeAt(location, bytes);
    uint64_t capacity = bytes.size();
    if (capacity < minimumBlockCapacity) {
        if (handle && handle->truncateFileAtOffset(location + minimumBlockCapacity)) {
            _position = location + minimumBlockCapacity;
        }
        capacity = minimumBlockCapacity;
    }
    return SCResBlock::createWithLocation(location, capacity, bytes.size());
}

void SCResourceStorage::writeData(std::span<const uint8_t> bytes, const std::string& key) {
    flushCacheBuffer();
    const auto found = _bufferDict.find(key);
    if (found == _bufferDict.end() || found->second.empty()) {
        _bufferDict[key] = BlockList{appendRegion(bytes)};
        return;
    }
    BlockList blocks;
    uint64_t written = 0;
    for (const auto& block : found->second) {
        if (written < bytes.size()) {
            const uint64_t count = std::min<uint64_t>(block->capacity(), bytes.size() - written);
            writeAt(block->location(), bytes.subspan(written, count));
            block->setLength(count);
            written += count;
        } else {
            block->setLength(0);
        }
        blocks.push_back(block);
    }
    if (written < bytes.size()) blocks.push_back(appendRegion(bytes.subspan(written)));
    _bufferDict[key] = std::move(blocks);
}

std::optional<std::vector<uint8_t>> SCResourceStorage::readDataWithKey(const std::string& key) {
    const auto found = _bufferDict.find(key);
    if (found == _bufferDict.end() || found->second.empty()) return std::nullopt;
    std::vector<uint8_t> value;
    const auto handle = file();
    for (const auto& block : found->second) {
        if (block->length() == 0 || !handle) continue;
        const std::vector<uint8_t> part = readAt(*handle, block->location(), block->length());
        value.insert(value.end(), part.begin(), part.end());
    }
    return value;
}

std::vector<SCResBlock> SCResourceStorage::blocksWithKey(const std::string& key) const {
    std::vector<SCResBlock> copies;
    const auto found = _bufferDict.find(key);
    if (found == _bufferDict.end()) return copies;
    for (const auto& block : found->second) copies.push_back(*block);
    return copies;
}

}  // namespace qm
