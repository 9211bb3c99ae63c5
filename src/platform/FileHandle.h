#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace qm {

// An open file with a current position (NSFileHandle). Reads at the end of the file give fewer
// bytes (or none) rather than an error; failed writes give false. After closeFile every read gives
// nothing and every write fails. The handle closes its file when it goes.
//
// readAt and writeAt use positioned I/O and leave the current position alone, so they may run on
// several threads at once; everything else is for one thread at a time.
class FileHandle {
public:
    // nullptr when the file cannot be opened (missing, a directory, no permission).
    static std::shared_ptr<FileHandle> fileHandleForReadingAtPath(const std::string& path);
    // Writing only; with `create` a missing file is made (mode 0644), else it must exist. An
    // existing file is never truncated on opening.
    static std::shared_ptr<FileHandle> fileHandleForWritingAtPath(const std::string& path, bool create = false);
    // Reading and writing, otherwise as fileHandleForWritingAtPath.
    static std::shared_ptr<FileHandle> fileHandleForUpdatingAtPath(const std::string& path, bool create = false);

    ~FileHandle();
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    // Up to `length` bytes from the current position, which moves past them.
    std::vector<uint8_t> readDataOfLength(uint64_t length);
    // Everything from the current position to the end.
    std::vector<uint8_t> readDataToEndOfFile();
    // Writes all bytes at the current position, which moves past them.
    bool writeData(const std::vector<uint8_t>& data);
    bool writeData(const uint8_t* bytes, size_t length);

    uint64_t offsetInFile() const;
    bool seekToFileOffset(uint64_t offset);
    // Moves to the end; gives the new offset (the file's length).
    uint64_t seekToEndOfFile();
    // Cuts or extends (with zeros) the file to `offset` and moves the position there.
    bool truncateFileAtOffset(uint64_t offset);
    // Flushes the file's data and metadata to the disk (fsync).
    bool synchronizeFile();
    void closeFile();

    // Up to `length` bytes at `offset`; the current position does not move.
    std::vector<uint8_t> readAt(uint64_t offset, uint64_t length) const;
    // All bytes at `offset`, extending the file as needed; the current position does not move.
    bool writeAt(uint64_t offset, const uint8_t* bytes, size_t length);
    bool writeAt(uint64_t offset, const std::vector<uint8_t>& data);

    // The POSIX descriptor, or -1 after closeFile.
    int fileDescriptor() const { return _fd; }

private:
    explicit FileHandle(int fd) : _fd(fd) {}
    static std::shared_ptr<FileHandle> openAtPath(const std::string& path, int flags);
    // Reads up to `length` bytes, from the current position when `offset` is negative.
    std::vector<uint8_t> readUpTo(int64_t offset, uint64_t length) const;

    int _fd;
};

}  // namespace qm
