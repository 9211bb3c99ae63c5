#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qm {

class QVProject;

// The file calls a project save makes, one virtual each, so that a test can make any of them
// fail. The standard instance calls the system.
class ProjectFileSystem {
public:
    virtual ~ProjectFileSystem() = default;
    static ProjectFileSystem& standard();

    // As open(2), write(2), fsync(2), close(2), rename(2): -1 with errno set on failure.
    virtual int openFile(const std::string& path, int flags, mode_t mode);
    virtual ssize_t writeFile(int fd, const void* bytes, size_t size);
    virtual int syncFile(int fd);
    virtual int closeFile(int fd);
    virtual int renameFile(const std::string& from, const std::string& to);
};

// A project as a file: the bytes of its keyed archive. Saving writes a new file beside the old
// one ("<path>.saving"), flushes it to the disk and renames it into place, so a save that fails
// at any step leaves the last saved file as it was. Opening reports a file that cannot be read,
// is empty, damaged or holds something else with a message that names the file.
class ProjectFile {
public:
    // Bytes handed to one write call.
    static constexpr size_t writeChunkSize = 64 * 1024;

    struct OpenResult {
        std::shared_ptr<QVProject> project;
        // Empty when the project was read.
        std::string error;
    };

    // Nothing when the project is in place, else what went wrong, naming the file.
    static std::optional<std::string> save(const std::shared_ptr<QVProject>& project, const std::string& path,
                                           ProjectFileSystem& fileSystem = ProjectFileSystem::standard());
    static OpenResult open(const std::string& path);
    // The project in `bytes`; `name` stands for the file in messages.
    static OpenResult openData(const std::vector<uint8_t>& bytes, const std::string& name);
    // Where a save of `path` writes before the rename.
    static std::string temporaryPath(const std::string& path) { return path + ".saving"; }
};

}  // namespace qm
