#include "project/ProjectFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

#include "foundation/QMCommon.h"
#include "project/ProjectArchive.h"
#include "project/QVProject.h"

namespace qm {

namespace {

std::string failure(const std::string& path, const std::string& what, int error) {
    return "Can not save project " + path + ": " + what + ": " + std::strerror(error);
}

std::string directoryOf(const std::string& path) {
    const auto slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// Flushes the folder entry of a rename; the project is already in place, so a failure only
// weakens the guarantee against a power cut and is not reported.
void syncDirectory(const std::string& path) {
    const int fd = ::open(directoryOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    ::fsync(fd);
    ::close(fd);
}

}  // namespace

ProjectFileSystem& ProjectFileSystem::standard() {
    static ProjectFileSystem fileSystem;
    return fileSystem;
}

int ProjectFileSystem::openFile(const std::string& path, int flags, mode_t mode) {
    return ::open(path.c_str(), flags, mode);
}

ssize_t ProjectFileSystem::writeFile(int fd, const void* bytes, size_t size) { return ::write(fd, bytes, size); }

int ProjectFileSystem::syncFile(int fd) { return ::fsync(fd); }

int ProjectFileSystem::closeFile(int fd) { return ::close(fd); }

int ProjectFileSystem::renameFile(const std::string& from, const std::string& to) {
    return ::rename(from.c_str(), to.c_str());
}

std::optional<std::string> ProjectFile::save(const std::shared_ptr<QVProject>& project, const std::string& path,
                                             ProjectFileSystem& fileSystem) {
    const std::vector<uint8_t> bytes = QMCommon::archiveRootObject(project);
    if (bytes.empty()) return "Can not save project " + path + ": the project can not be archived";
    const std::string temporary = temporaryPath(path);
    const int fd = fileSystem.openFile(temporary, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return failure(path, "can not create " + temporary, errno);
    const auto abandon = [&](const std::string& what, int error, bool open) {
        if (open) fileSystem.closeFile(fd);
        ::unlink(temporary.c_str());
        return failure(path, what, error);
    };
    size_t written = 0;
    while (written < bytes.size()) {
        const size_t chunk = std::min(writeChunkSize, bytes.size() - written);
        const ssize_t count = fileSystem.writeFile(fd, bytes.data() + written, chunk);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return abandon("write failed", count < 0 ? errno : EIO, true);
        written += static_cast<size_t>(count);
    }
    if (fileSystem.syncFile(fd) != 0) return abandon("flush failed", errno, true);
    if (fileSystem.closeFile(fd) != 0) return abandon("close failed", errno, false);
    if (fileSystem.renameFile(temporary, path) != 0) return abandon("rename failed", errno, false);
    syncDirectory(path);
    return std::nullopt;
}

ProjectFile::OpenResult ProjectFile::open(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return {nullptr, "Can not open project " + path + ": " + std::strerror(errno)};
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) return {nullptr, "Can not open project " + path + ": the file can not be read"};
    return openData(bytes, path);
}

ProjectFile::OpenResult ProjectFile::openData(const std::vector<uint8_t>& bytes, const std::string& name) {
    if (bytes.empty()) return {nullptr, "Can not open project " + name + ": the file is empty"};
    registerProjectArchiveClasses();
    const auto object = QMCommon::unarchiveObjectWithData(bytes);
    if (!object) return {nullptr, "Can not open project " + name + ": the file is damaged or is not a project"};
    auto project = std::dynamic_pointer_cast<QVProject>(object);
    if (!project) return {nullptr, "Can not open project " + name + ": the file holds no project"};
    return {project, {}};
}

}  // namespace qm
