#include <cstdio>

#include "CommandError.h"
#include "Commands.h"
#include "EditFile.h"
#include "project/ProjectFile.h"
#include "project/QVTrack.h"

namespace qm::cli {

int runSave(const std::vector<std::string>& args) {
    if (args.size() != 2) throw CommandError("save needs EDIT.json PROJECT", kExitBadInput);
    const auto project = loadEditFile(args[0]);
    if (const auto error = ProjectFile::save(project, args[1])) throw CommandError(*error, kExitFailure);
    size_t clips = 0;
    for (const auto& track : project->tracks()) clips += track->clips().size();
    std::printf("%s: %zu tracks, %zu clips\n", args[1].c_str(), project->tracks().size(), clips);
    return 0;
}

}  // namespace qm::cli
