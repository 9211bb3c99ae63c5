#include "ProjectInput.h"

#include <cctype>
#include <fstream>

#include "CommandError.h"
#include "EditFile.h"
#include "project/ProjectFile.h"

namespace qm::cli {

namespace {

bool looksLikeEditFile(const std::string& path) {
    if (path.size() >= 5 && path.compare(path.size() - 5, 5, ".json") == 0) return true;
    std::ifstream in(path, std::ios::binary);
    char c = 0;
    while (in.get(c)) {
        if (!std::isspace(static_cast<unsigned char>(c))) return c == '{';
    }
    return false;
}

}  // namespace

std::shared_ptr<QVProject> openProjectArgument(const std::string& path) {
    if (looksLikeEditFile(path)) return loadEditFile(path);
    auto opened = ProjectFile::open(path);
    if (!opened.project) throw CommandError(opened.error, kExitBadInput);
    return opened.project;
}

}  // namespace qm::cli
