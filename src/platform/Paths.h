#pragma once

#include <string>

namespace qm {

// Per-user directories after the XDG base-directory rules. An XDG variable that is unset, empty or
// not an absolute path is ignored. Only runtimeDir creates anything; other directories are made
// by createDirectories where a caller needs them. Paths have no trailing '/'.
class Paths {
public:
    // $HOME, else the home directory of the password database, else "/".
    static std::string homeDirectory();
    // Application support (NSApplicationSupportDirectory): $XDG_DATA_HOME, else ~/.local/share.
    static std::string applicationSupport();
    // Settings: $XDG_CONFIG_HOME, else ~/.config.
    static std::string configHome();
    // Per-user files that live no longer than the session: $XDG_RUNTIME_DIR, else a directory of
    // mode 0700 owned by this user under the temporary directory, made on demand. If that name is
    // taken by someone else, a fresh private directory is made once per process instead (empty
    // if even that fails).
    static std::string runtimeDir();
    // Makes `path` and its missing parents. True when the directory exists afterwards.
    static bool createDirectories(const std::string& path);
};

// The application's bundle identifier, which names its directories.
class Bundle {
public:
    static constexpr const char* defaultIdentifier = "com.quorvia.QuorMedia";

    // defaultIdentifier unless the host set another. Thread-safe.
    static std::string identifier();
    // Set by the host before the first use of any directory; empty restores the default.
    static void setIdentifier(const std::string& identifier);
};

}  // namespace qm
