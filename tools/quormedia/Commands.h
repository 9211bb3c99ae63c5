#pragma once

#include <string>
#include <vector>

namespace qm::cli {

// Each command takes the arguments after its name, prints its results, and returns the exit code;
// bad input and failures throw CommandError.
int runImport(const std::vector<std::string>& args);
int runResources(const std::vector<std::string>& args);
int runFrame(const std::vector<std::string>& args);
int runExport(const std::vector<std::string>& args);
int runSave(const std::vector<std::string>& args);
int runPlay(const std::vector<std::string>& args);
int runRecord(const std::vector<std::string>& args);

// FFmpeg's own messages go through QMLog, warnings and above only.
void quietenMediaLibraries();

}  // namespace qm::cli
