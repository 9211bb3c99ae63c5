#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qm::test {

// A fresh private directory under the system's temporary directory, removed with its contents
// when the object goes.
class TemporaryDirectory {
public:
    explicit TemporaryDirectory(const std::string& prefix = "quormedia-test");
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const { return _path; }
    // `name` inside the directory.
    std::string file(const std::string& name) const { return _path + "/" + name; }

private:
    std::string _path;
};

// Sets or unsets environment variables for a scope and puts the old values back afterwards.
class ScopedEnvironment {
public:
    ScopedEnvironment() = default;
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

    void set(const std::string& name, const std::string& value);
    void unset(const std::string& name);

private:
    void remember(const std::string& name);

    std::vector<std::pair<std::string, std::optional<std::string>>> _saved;
};

// A private set of user folders for one test: XDG_DATA_HOME, XDG_CONFIG_HOME and
// XDG_RUNTIME_DIR point into a fresh temporary directory until the object goes.
class PrivateUserDirectories {
public:
    explicit PrivateUserDirectories(const std::string& prefix = "quormedia-test");

    const std::string& path() const { return _directory.path(); }
    std::string file(const std::string& name) const { return _directory.file(name); }

private:
    TemporaryDirectory _directory;
    ScopedEnvironment _environment;
};

// What a shell command printed (standard output and error together) and how it ended.
struct ShellRun {
    int exitCode = -1;  // -1 when it did not exit normally
    std::string output;
};

// Runs `command` through the shell to its end.
ShellRun runShellCommand(const std::string& command);

}  // namespace qm::test
