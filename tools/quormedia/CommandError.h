#pragma once

#include <stdexcept>
#include <string>

namespace qm::cli {

// Exit codes of the command-line host.
inline constexpr int kExitFailure = 1;   // the work itself failed (import, export, disk)
inline constexpr int kExitBadInput = 2;  // the command line or an input file is wrong

// A failure the user is told of in one line, with the exit code it ends in.
class CommandError : public std::runtime_error {
public:
    CommandError(const std::string& message, int exitCode) : std::runtime_error(message), _exitCode(exitCode) {}
    int exitCode() const { return _exitCode; }

private:
    int _exitCode;
};

}  // namespace qm::cli
