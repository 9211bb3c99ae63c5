#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/Dispatch.h"
#include "platform/FileHandle.h"
#include "platform/KeyedArchiver.h"

namespace qm {

// One region of a storage's cache file owned by a key: `capacity` bytes reserved at
// `location`, of which the first `length` are in use. Archived as "SCResBlock" with the
// integers "location", "capacity", "length".
class SCResBlock : public Archivable {
public:
    static std::shared_ptr<SCResBlock> createWithLocation(uint64_t location, uint64_t capacity, uint64_t length);
    static std::shared_ptr<SCResBlock> createWithCoder(KeyedUnarchiver& coder);

    uint64_t location() const { return _location; }
    uint64_t capacity() const { return _capacity; }
    uint64_t length() const { return _length; }
    void setLength(uint64_t length) { _length = length; }

    std::string archiveClassName() const override { return "SCResBlock"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

private:
    uint64_t _location = 0;
    uint64_t _capacity = 0;
    uint64_t _length = 0;
};

// A private cache file under <application support>/<bundle id>/Resource/<UUID>, with no header,
// used two ways: an append stream with a 16384-byte write buffer, whose callers keep their own
// offsets, and a table from key to regions of the file that are rewritten in place.
//
// A storage made by create() may append; one read from an archive may not (its key table may
// still be rewritten). After cleanCache the file is gone and reads give nothing. The class takes
// no lock: one writer at a time, and readers serialised by their owner (readwriteQueue() is there
// for callers that want to order their use).
//
// The file is not held open: each use takes it from SCCacheFilePool::shared(), which keeps only a
// bounded set of cache files open. The storage keeps its own file position.
//
// Archived as "SCResourceStorage" with "_cacheFile" (the absolute path) and "_bufferDict" (key to
// list of SCResBlock). The write buffer is not archived: flushCacheBuffer first.
class SCResourceStorage : public Archivable {
public:
    // A buffer that would reach this many bytes goes to the file.
    static constexpr size_t cacheBufferLimit = 16384;
    // Smallest region a key gets at the end of the file.
    static constexpr uint64_t minimumBlockCapacity = 4096;

    // The directory of cache files, made with its parents if missing (a failure is ignored).
    static std::string pathOfResourceStoragePath();

    // A new empty cache file named by a fresh UUID, open for appending.
    static std::shared_ptr<SCResourceStorage> create();
    // Nothing when the archived file cannot be opened (for instance, it was deleted).
    static std::shared_ptr<SCResourceStorage> createWithCoder(KeyedUnarchiver& coder);

    // The cache file's path; nothing after cleanCache.
    std::optional<std::string> cacheFile() const { return _cacheFile; }
    // True from create() until cleanCache; false for a storage read from an archive.
    bool allowEdit() const { return _allowEdit; }

    // Closes and deletes the file. Later appends log "Error: No cache created.", later reads
    // "Error: No process found.".
    void cleanCache();

    // Appends through the write buffer; refused with a log line unless editable.
    void appendData(std::span<const uint8_t> bytes);
    void appendBytes(const void* bytes, size_t lenght);
    // Writes the buffered bytes to the end of the file (editable storages only).
    void flushCacheBuffer();

    // The whole file from offset 0, without flushing the buffer.
    std::vector<uint8_t> readAllData();
    // Up to `length` bytes from where the last read or write stopped, without flushing.
    std::vector<uint8_t> readDataOfLength(uint64_t length);
    // Flushes, then up to `length` bytes at `offset` (fewer at the end of the file).
    std::vector<uint8_t> readDataOfLength(uint64_t length, uint64_t offset);

    // Replaces the value of `key`, reusing its regions in order and putting only the excess at
    // the end of the file; regions are never freed and keep their capacity.
    void writeData(std::span<const uint8_t> bytes, const std::string& key);
    // The value of `key`; nothing for a key without regions, empty bytes for an empty value.
    std::optional<std::vector<uint8_t>> readDataWithKey(const std::string& key);
    // Copies of the regions of `key`, in order.
    std::vector<SCResBlock> blocksWithKey(const std::string& key) const;

    // A serial queue for callers that order their use of this storage; made on first use.
    DispatchQueue& readwriteQueue();

    std::string archiveClassName() const override { return "SCResourceStorage"; }
    // Logs "Warning: Process Data was clean" and writes nothing after cleanCache.
    void encodeWithCoder(KeyedArchiver& coder) const override;

private:
    using BlockList = std::vector<std::shared_ptr<SCResBlock>>;

    SCResourceStorage() = default;

    // The open cache file; nothing after cleanCache or when it cannot be opened.
    std::shared_ptr<FileHandle> file() const;
    // The open cache file for a read; nothing, with "Error: No process found.", without one.
    std::shared_ptr<FileHandle> fileForReading() const;
    // Writes at `offset` and moves the position past the bytes; without a file nothing.
    void writeAt(uint64_t offset, std::span<const uint8_t> bytes);
    // Reads up to `length` bytes at `offset` and moves the position past them.
    std::vector<uint8_t> readAt(FileHandle& file, uint64_t offset, uint64_t length);
    // Writes the buffered bytes at the end of the file.
    void writeCacheBuffer(FileHandle& file);
    // Appends `bytes` as a new region at the end of the file, of at least minimumBlockCapacity.
    std::shared_ptr<SCResBlock> appendRegion(std::span<const uint8_t> bytes);

    std::optional<std::string> _cacheFile;
    // Where plain reads go on from: past the last bytes read or written.
    uint64_t _position = 0;
    bool _allowEdit = false;
    std::vector<uint8_t> _cacheBuffer;
    std::map<std::string, BlockList> _bufferDict;
    std::once_flag _queueOnce;
    std::shared_ptr<DispatchQueue> _readwritequeue;
};

}  // namespace qm
