#pragma once

// What the benchmark programs share: wall time, the machine's load, and private user folders.

#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

namespace qm::bench {

using Clock = std::chrono::steady_clock;

inline double millisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// The first line of /proc/loadavg: other work on the machine skews every number a benchmark prints.
inline std::string loadAverage() {
    std::ifstream in("/proc/loadavg");
    std::string line;
    std::getline(in, line);
    return line.empty() ? "unknown" : line;
}

// A fresh directory under the temporary directory, removed with everything in it at the end; the
// store (XDG_DATA_HOME), settings (XDG_CONFIG_HOME) and runtime files (XDG_RUNTIME_DIR) of the
// program, and of the programs it starts, live in folders inside it meanwhile.
class PrivateUserFolders {
public:
    explicit PrivateUserFolders(const std::string& prefix) {
        std::string pattern = (std::filesystem::temp_directory_path() / (prefix + ".XXXXXX")).string();
        _path = ::mkdtemp(pattern.data()) ? pattern : std::string();
        if (_path.empty()) return;
        for (const char* name : {"XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_RUNTIME_DIR"}) {
            const std::string folder = file(name);
            std::filesystem::create_directories(folder);
            ::setenv(name, folder.c_str(), 1);
        }
    }
    ~PrivateUserFolders() {
        std::error_code ignored;
        if (!_path.empty()) std::filesystem::remove_all(_path, ignored);
    }
    PrivateUserFolders(const PrivateUserFolders&) = delete;
    PrivateUserFolders& operator=(const PrivateUserFolders&) = delete;

    const std::string& path() const { return _path; }
    std::string file(const std::string& name) const { return _path + "/" + name; }

private:
    std::string _path;
};

}  // namespace qm::bench
