#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qm {

// A per-user clipboard of typed bytes (NSPasteboard), shared by the processes of one user.
//
// A pasteboard is a directory under Paths::runtimeDir(), "<bundle id>.pasteboard/<name>", with the
// declared types in a file "types" (one a line) and the bytes of each type in a file of its own.
// Every write replaces its file by rename, so a reader sees an old or a new file, never half of
// one. The directory is looked up on every call, so a change of $XDG_RUNTIME_DIR takes effect at
// once. Main thread only.
class Pasteboard {
public:
    // The pasteboard named "general".
    static Pasteboard& generalPasteboard();

    explicit Pasteboard(std::string name);

    const std::string& name() const { return _name; }

    // Clears the pasteboard and declares `types`, in order of preference. False when the
    // pasteboard cannot be written.
    bool declareTypes(const std::vector<std::string>& types);
    // The declared types, in the order declared.
    std::vector<std::string> types() const;
    // Stores `bytes` as the data of a declared type. False for a type that was not declared or
    // when the bytes cannot be written.
    bool setData(const std::vector<uint8_t>& bytes, const std::string& type);
    // The bytes of a declared type; nothing when the type is not declared or has no data.
    std::optional<std::vector<uint8_t>> dataForType(const std::string& type) const;
    // The first of `types` that is declared on the pasteboard, or nothing.
    std::optional<std::string> availableTypeFromArray(const std::vector<std::string>& types) const;

private:
    std::string directory() const;
    // The file holding the data of `type`; characters outside [A-Za-z0-9._-] are %-escaped.
    std::string dataPath(const std::string& type) const;

    std::string _name;
};

}  // namespace qm
