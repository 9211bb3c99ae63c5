#include "support/TestEnvironment.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace qm::test {

ShellRun runShellCommand(const std::string& command) {
    ShellRun run;
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    if (!pipe) return run;
    char buffer[4096];
    while (const size_t n = std::fread(buffer, 1, sizeof buffer, pipe)) run.output.append(buffer, n);
    const int status = ::pclose(pipe);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

TemporaryDirectory::TemporaryDirectory(const std::string& prefix) {
    std::string pattern = (std::filesystem::temp_directory_path() / (prefix + "-XXXXXX")).string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make a temporary directory");
    _path = pattern;
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(_path, ignored);
}

ScopedEnvironment::~ScopedEnvironment() {
    for (auto it = _saved.rbegin(); it != _saved.rend(); ++it) {
        if (it->second) {
            setenv(it->first.c_str(), it->second->c_str(), 1);
        } else {
            unsetenv(it->first.c_str());
        }
    }
}

void ScopedEnvironment::set(const std::string& name, const std::string& value) {
    remember(name);
    setenv(name.c_str(), value.c_str(), 1);
}

void ScopedEnvironment::unset(const std::string& name) {
    remember(name);
    unsetenv(name.c_str());
}

void ScopedEnvironment::remember(const std::string& name) {
    const char* value = std::getenv(name.c_str());
    _saved.emplace_back(name, value ? std::optional<std::string>(value) : std::nullopt);
}

PrivateUserDirectories::PrivateUserDirectories(const std::string& prefix) : _directory(prefix) {
    _environment.set("XDG_DATA_HOME", _directory.file("data"));
    _environment.set("XDG_CONFIG_HOME", _directory.file("config"));
    std::filesystem::create_directories(_directory.file("runtime"));
    std::filesystem::permissions(_directory.file("runtime"), std::filesystem::perms::owner_all);
    _environment.set("XDG_RUNTIME_DIR", _directory.file("runtime"));
}

}  // namespace qm::test
