#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qm::cli {

// A file written whole or not at all: the bytes go to a hidden file beside `path`, which is renamed
// into place only when everything was written. Throws CommandError (with the system's reason,
// "No space left on device" for a full disk) and leaves nothing behind on failure.
void writeFileAtomically(const std::string& path, const std::vector<uint8_t>& bytes);

// The hidden file beside `path` that a writer fills before it is renamed into place.
std::string partialPathFor(const std::string& path);

// Throws CommandError unless the file beside `path` that a writer fills can be created.
void requireWritableFolder(const std::string& path);

}  // namespace qm::cli
