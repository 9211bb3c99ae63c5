#include "store/SCResourceStorage.h"

#include <unistd.h>

#include <algorithm>

#include "platform/Log.h"
#include "platform/Paths.h"
#include "platform/UUID.h"

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

std::string SCResourceStorage::pathOfResourceStoragePath() {
    const std::string path = Paths::applicationSupport() + "/" + Bundle::identifier() + "/Resource";
    Paths::createDirectories(path);
    return path;
}

std::shared_ptr<SCResourceStorage> SCResourceStorage::create() {
    std::shared_ptr<SCResourceStorage> storage(new SCResourceStorage());
    storage->_cacheFile = pathOfResourceStoragePath() + "/" + UUID::create().UUIDString();
    storage->_fileHandle = FileHandle::fileHandleForUpdatingAtPath(*storage->_cacheFile, true);
    if (storage->_fileHandle) storage->_fileHandle->truncateFileAtOffset(0);
    storage->_allowEdit = true;
    return storage;
}

std::shared_ptr<SCResourceStorage> SCResourceStorage::createWithCoder(KeyedUnarchiver& coder) {
    const std::string path = coder.decodeString("_cacheFile");
    auto handle = path.empty() ? nullptr : FileHandle::fileHandleForUpdatingAtPath(path);
    if (!handle) return nullptr;
    std::shared_ptr<SCResourceStorage> storage(new SCResourceStorage());
    storage->_cacheFile = path;
    storage->_fileHandle = std::move(handle);
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
    _fileHandle.reset();
    if (_cacheFile) ::unlink(_cacheFile->c_str());
    _cacheFile.reset();
    _allowEdit = false;
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
        QMLog(_fileHandle ? "Warning: not allow to write resource data." : "Error: No cache created.");
        return;
    }
    if (!_fileHandle) {
        QMLog("Error: No cache created.");
        return;
    }
    if (_cacheBuffer.size() + bytes.size() < cacheBufferLimit) {
        _cacheBuffer.insert(_cacheBuffer.end(), bytes.begin(), bytes.end());
        return;
    }
    _fileHandle->seekToEndOfFile();
    if (!_cacheBuffer.empty()) {
        _fileHandle->writeData(_cacheBuffer);
        _cacheBuffer.clear();
    }
    _fileHandle->writeData(bytes.data(), bytes.size());
}

void SCResourceStorage::flushCacheBuffer() {
    if (!_allowEdit || !_fileHandle || _cacheBuffer.empty()) return;
    _fileHandle->seekToEndOfFile();
    _fileHandle->writeData(_cacheBuffer);
    _cacheBuffer.clear();
}

// MARK: Reads

bool SCResourceStorage::reportMissingHandle() const {
    if (_fileHandle) return false;
    QMLog("Error: No process found.");
    return true;
}

std::vector<uint8_t> SCResourceStorage::readAllData() {
    if (reportMissingHandle() || !_fileHandle->seekToFileOffset(0)) return {};
    return _fileHandle->readDataToEndOfFile();
}

std::vector<uint8_t> SCResourceStorage::readDataOfLength(uint64_t length) {
    if (reportMissingHandle()) return {};
    return _fileHandle->readDataOfLength(length);
}

std::vector<uint8_t> SCResourceStorage::readDataOfLength(uint64_t length, uint64_t offset) {
    if (reportMissingHandle()) return {};
    flushCacheBuffer();
    if (!_fileHandle->seekToFileOffset(offset)) return {};
    return _fileHandle->readDataOfLength(length);
}

// MARK: Key table

uint64_t SCResourceStorage::seekToEnd() { return _fileHandle ? _fileHandle->seekToEndOfFile() : 0; }

void SCResourceStorage::writeAt(uint64_t offset, std::span<const uint8_t> bytes) {
    if (_fileHandle && _fileHandle->seekToFileOffset(offset)) _fileHandle->writeData(bytes.data(), bytes.size());
}

std::shared_ptr<SCResBlock> SCResourceStorage::appendRegion(std::span<const uint8_t> bytes) {
    const uint64_t location = seekToEnd();
    writeAt(location, bytes);
    uint64_t capacity = bytes.size();
    if (capacity < minimumBlockCapacity) {
        if (_fileHandle) _fileHandle->truncateFileAtOffset(location + minimumBlockCapacity);
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
    for (const auto& block : found->second) {
        if (block->length() == 0 || !_fileHandle || !_fileHandle->seekToFileOffset(block->location())) continue;
        const std::vector<uint8_t> part = _fileHandle->readDataOfLength(block->length());
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
