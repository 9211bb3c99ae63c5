#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qm {

// A durable reference to a file (the security-scoped bookmark): its absolute path and what
// identified the file when the bookmark was made (device, inode, size, modification time).
// Its bytes are a small CBOR map, safe to keep in archives and settings.
class FileBookmark {
public:
    // A bookmark of the file at `path`; nothing when no file is there.
    static std::optional<FileBookmark> bookmarkWithPath(const std::string& path);
    // Reads the bytes of data(); nothing (and one logged line) when they are not a bookmark.
    static std::optional<FileBookmark> createWithData(const std::vector<uint8_t>& data);

    std::vector<uint8_t> data() const;
    const std::string& path() const { return _path; }

    // The path, when a file that this process may read is still there; nothing otherwise.
    // `isStale`, when given, is set when that file is no longer the one bookmarked (another
    // inode, or a changed size or modification time).
    std::optional<std::string> resolve(bool* isStale = nullptr) const;

private:
    struct Identity {
        uint64_t device = 0;
        uint64_t inode = 0;
        int64_t size = 0;
        int64_t modified = 0;  // nanoseconds since the epoch
        bool operator==(const Identity&) const = default;
    };

    FileBookmark(std::string path, Identity identity) : _path(std::move(path)), _identity(identity) {}
    static std::optional<Identity> identityOfFile(const std::string& path);

    std::string _path;
    Identity _identity;
};

}  // namespace qm
