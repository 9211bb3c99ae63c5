#include "OutputFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "CommandError.h"

namespace qm::cli {

namespace {

[[noreturn]] void cannotWrite(const std::string& path, int error) {
    throw CommandError("cannot write " + path + ": " + std::strerror(error), kExitFailure);
}

}  // namespace

std::string partialPathFor(const std::string& path) {
    const std::filesystem::path target(path);
    std::string name = ".";
    name += target.filename().string();
    name += ".part";
    return (target.parent_path() / name).string();
}

void requireWritableFolder(const std::string& path) {
    const std::string partial = partialPathFor(path);
    const int fd = ::open(partial.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0 && errno != EEXIST) cannotWrite(path, errno);
    if (fd >= 0) {
        ::close(fd);
        ::unlink(partial.c_str());
    }
}

void writeFileAtomically(const std::string& path, const std::vector<uint8_t>& bytes) {
    const std::string partial = partialPathFor(path);
    const int fd = ::open(partial.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) cannotWrite(path, errno);
    size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            const int error = n < 0 ? errno : ENOSPC;
            ::close(fd);
            ::unlink(partial.c_str());
            cannotWrite(path, error);
        }
        written += static_cast<size_t>(n);
    }
    const int synced = ::fsync(fd) == 0 ? 0 : errno;
    const int closed = ::close(fd) == 0 ? 0 : errno;
    if (synced != 0 || closed != 0) {
        ::unlink(partial.c_str());
        cannotWrite(path, synced != 0 ? synced : closed);
    }
    if (std::rename(partial.c_str(), path.c_str()) != 0) {
        const int error = errno;
        ::unlink(partial.c_str());
        cannotWrite(path, error);
    }
}

}  // namespace qm::cli
