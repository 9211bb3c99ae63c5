#include "platform/Paths.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <vector>

#include "platform/Log.h"

namespace qm {

namespace {

// The variable's value when it is an absolute path, else empty.
std::string absoluteFromEnvironment(const char* name) {
    const char* value = std::getenv(name);
    return value && value[0] == '/' ? std::string(value) : std::string();
}

std::string withoutTrailingSlash(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

std::string xdgDirectory(const char* variable, const char* homeRelative) {
    const std::string value = absoluteFromEnvironment(variable);
    return withoutTrailingSlash(value.empty() ? Paths::homeDirectory() + "/" + homeRelative : value);
}

// True when `path` is a real directory (not a link) owned by this user and closed to others,
// tightening its mode if it is ours but too open.
bool isPrivateDirectory(const std::string& path) {
    struct stat info {};
    if (lstat(path.c_str(), &info) != 0 || !S_ISDIR(info.st_mode) || info.st_uid != getuid()) return false;
    return (info.st_mode & 077) == 0 || chmod(path.c_str(), 0700) == 0;
}

std::mutex& identifierMutex() {
    static std::mutex mutex;
    return mutex;
}

std::string& identifierStorage() {
    static std::string identifier = Bundle::defaultIdentifier;
    return identifier;
}

}  // namespace

std::string Paths::homeDirectory() {
    const std::string home = absoluteFromEnvironment("HOME");
    if (!home.empty()) return withoutTrailingSlash(home);
    struct passwd entry {};
    struct passwd* found = nullptr;
    std::vector<char> buffer(16384);
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found && found->pw_dir &&
        found->pw_dir[0] == '/') {
        return withoutTrailingSlash(found->pw_dir);
    }
    return "/";
}

std::string Paths::applicationSupport() { return xdgDirectory("XDG_DATA_HOME", ".local/share"); }

std::string Paths::configHome() { return xdgDirectory("XDG_CONFIG_HOME", ".config"); }

std::string Paths::runtimeDir() {
    const std::string runtime = absoluteFromEnvironment("XDG_RUNTIME_DIR");
    if (!runtime.empty()) return withoutTrailingSlash(runtime);

    std::error_code error;
    std::string temporary = std::filesystem::temp_directory_path(error).string();
    if (error || temporary.empty()) temporary = "/tmp";
    const std::string path = withoutTrailingSlash(temporary) + "/qm-runtime-" + std::to_string(getuid());
    mkdir(path.c_str(), 0700);
    if (isPrivateDirectory(path)) return path;

    static std::once_flag once;
    static std::string fallback;
    std::call_once(once, [&path] {
        std::string pattern = path + "-XXXXXX";
        if (mkdtemp(pattern.data())) fallback = pattern;
        QMLog("Warning: runtime directory %s is not private; using %s", path.c_str(),
              fallback.empty() ? "none" : fallback.c_str());
    });
    return fallback;
}

bool Paths::createDirectories(const std::string& path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    return std::filesystem::is_directory(path, error);
}

std::string Bundle::identifier() {
    std::lock_guard<std::mutex> lock(identifierMutex());
    return identifierStorage();
}

void Bundle::setIdentifier(const std::string& identifier) {
    std::lock_guard<std::mutex> lock(identifierMutex());
    identifierStorage() = identifier.empty() ? std::string(defaultIdentifier) : identifier;
}

}  // namespace qm
