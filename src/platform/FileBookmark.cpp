#include "platform/FileBookmark.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "platform/Log.h"

namespace qm {

std::optional<FileBookmark::Identity> FileBookmark::identityOfFile(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0 || S_ISDIR(info.st_mode)) return std::nullopt;
    return Identity{static_cast<uint64_t>(info.st_dev), static_cast<uint64_t>(info.st_ino),
                    static_cast<int64_t>(info.st_size),
                    static_cast<int64_t>(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec};
}

std::optional<FileBookmark> FileBookmark::bookmarkWithPath(const std::string& path) {
    if (path.empty()) return std::nullopt;
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(path, error);
    if (error) return std::nullopt;
    const std::string normal = absolute.lexically_normal().string();
    const auto identity = identityOfFile(normal);
    if (!identity) return std::nullopt;
    return FileBookmark(normal, *identity);
}

std::optional<FileBookmark> FileBookmark::createWithData(const std::vector<uint8_t>& data) {
    const nlohmann::json map = nlohmann::json::from_cbor(data, true, false);
    const auto has = [&map](const char* key, bool text) {
        const auto found = map.find(key);
        return found != map.end() && (text ? found->is_string() : found->is_number_integer());
    };
    if (!map.is_object() || !has("path", true) || !has("device", false) || !has("inode", false) ||
        !has("size", false) || !has("modified", false) || map["path"].get_ref<const std::string&>().empty() ||
        map["path"].get_ref<const std::string&>()[0] != '/') {
        QMLog("Error: damaged file bookmark.");
        return std::nullopt;
    }
    return FileBookmark(map["path"].get<std::string>(),
                        Identity{map["device"].get<uint64_t>(), map["inode"].get<uint64_t>(),
                                 map["size"].get<int64_t>(), map["modified"].get<int64_t>()});
}

std::vector<uint8_t> FileBookmark::data() const {
    const nlohmann::json map = {{"path", _path},
                                {"device", _identity.device},
                                {"inode", _identity.inode},
                                {"size", _identity.size},
                                {"modified", _identity.modified}};
    return nlohmann::json::to_cbor(map);
}

std::optional<std::string> FileBookmark::resolve(bool* isStale) const {
    const auto identity = identityOfFile(_path);
    if (!identity || ::access(_path.c_str(), R_OK) != 0) return std::nullopt;
    if (isStale) *isStale = !(*identity == _identity);
    return _path;
}

}  // namespace qm
