#include "platform/FileHandle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

namespace qm {

namespace {

constexpr uint64_t kReadChunk = 1 << 20;
constexpr uint64_t kMaxOffset = static_cast<uint64_t>(std::numeric_limits<off_t>::max());

}  // namespace

std::shared_ptr<FileHandle> FileHandle::openAtPath(const std::string& path, int flags) {
    int fd = -1;
    do {
        fd = ::open(path.c_str(), flags | O_CLOEXEC, 0644);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return nullptr;
    struct stat info {};
    if (fstat(fd, &info) != 0 || S_ISDIR(info.st_mode)) {
        ::close(fd);
        return nullptr;
    }
    return std::shared_ptr<FileHandle>(new FileHandle(fd));
}

std::shared_ptr<FileHandle> FileHandle::fileHandleForReadingAtPath(const std::string& path) {
    return openAtPath(path, O_RDONLY);
}

std::shared_ptr<FileHandle> FileHandle::fileHandleForWritingAtPath(const std::string& path, bool create) {
    return openAtPath(path, O_WRONLY | (create ? O_CREAT : 0));
}

std::shared_ptr<FileHandle> FileHandle::fileHandleForUpdatingAtPath(const std::string& path, bool create) {
    return openAtPath(path, O_RDWR | (create ? O_CREAT : 0));
}

FileHandle::~FileHandle() { closeFile(); }

std::vector<uint8_t> FileHandle::readUpTo(int64_t offset, uint64_t length) const {
    std::vector<uint8_t> data;
    if (_fd < 0) return data;
    while (data.size() < length) {
        const uint64_t chunk = std::min(length - data.size(), kReadChunk);
        const size_t start = data.size();
        data.resize(start + chunk);
        const ssize_t count = offset < 0 ? ::read(_fd, data.data() + start, chunk)
                                         : ::pread(_fd, data.data() + start, chunk, offset + static_cast<off_t>(start));
        if (count < 0 && errno == EINTR) {
            data.resize(start);
            continue;
        }
        data.resize(start + static_cast<size_t>(std::max<ssize_t>(count, 0)));
        if (count <= 0) break;
    }
    if (data.capacity() > 2 * data.size() + 4096) data.shrink_to_fit();
    return data;
}

std::vector<uint8_t> FileHandle::readDataOfLength(uint64_t length) { return readUpTo(-1, length); }

std::vector<uint8_t> FileHandle::readDataToEndOfFile() {
    return readUpTo(-1, std::numeric_limits<uint64_t>::max());
}

std::vector<uint8_t> FileHandle::readAt(uint64_t offset, uint64_t length) const {
    if (offset > kMaxOffset) return {};
    return readUpTo(static_cast<int64_t>(offset), length);
}

bool FileHandle::writeData(const std::vector<uint8_t>& data) { return writeData(data.data(), data.size()); }

bool FileHandle::writeData(const uint8_t* bytes, size_t length) {
    if (_fd < 0) return false;
    size_t written = 0;
    while (written < length) {
        const ssize_t count = ::write(_fd, bytes + written, length - written);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        written += static_cast<size_t>(count);
    }
    return true;
}

bool FileHandle::writeAt(uint64_t offset, const std::vector<uint8_t>& data) {
    return writeAt(offset, data.data(), data.size());
}

bool FileHandle::writeAt(uint64_t offset, const uint8_t* bytes, size_t length) {
    if (_fd < 0 || offset > kMaxOffset || length > kMaxOffset - offset) return false;
    size_t written = 0;
    while (written < length) {
        const ssize_t count = ::pwrite(_fd, bytes + written, length - written, static_cast<off_t>(offset + written));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        written += static_cast<size_t>(count);
    }
    return true;
}

uint64_t FileHandle::offsetInFile() const {
    if (_fd < 0) return 0;
    const off_t offset = ::lseek(_fd, 0, SEEK_CUR);
    return offset < 0 ? 0 : static_cast<uint64_t>(offset);
}

bool FileHandle::seekToFileOffset(uint64_t offset) {
    return _fd >= 0 && offset <= kMaxOffset && ::lseek(_fd, static_cast<off_t>(offset), SEEK_SET) >= 0;
}

uint64_t FileHandle::seekToEndOfFile() {
    if (_fd < 0) return 0;
    const off_t offset = ::lseek(_fd, 0, SEEK_END);
    return offset < 0 ? 0 : static_cast<uint64_t>(offset);
}

bool FileHandle::truncateFileAtOffset(uint64_t offset) {
    if (_fd < 0 || offset > kMaxOffset) return false;
    int result = 0;
    do {
        result = ::ftruncate(_fd, static_cast<off_t>(offset));
    } while (result != 0 && errno == EINTR);
    return result == 0 && seekToFileOffset(offset);
}

bool FileHandle::synchronizeFile() { return _fd >= 0 && ::fsync(_fd) == 0; }

void FileHandle::closeFile() {
    if (_fd < 0) return;
    ::close(_fd);
    _fd = -1;
}

}  // namespace qm
