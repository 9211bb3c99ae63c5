#pragma once

#include <memory>
#include <string>

#include "project/QVProject.h"

namespace qm::cli {

// The project a command argument names: a JSON edit file (a name ending in ".json", or a file
// whose first character that is not a blank is "{") or a project file saved by "quormedia save".
// A file that cannot be opened or read throws CommandError naming the file.
std::shared_ptr<QVProject> openProjectArgument(const std::string& path);

}  // namespace qm::cli
