#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "store/SCResource.h"

namespace qm::cli {

// What became of the files handed to importFiles.
struct ImportOutcome {
    // Every file now in the store, by the path it was given as.
    std::map<std::string, std::shared_ptr<SCResource>> resources;
    // Files that were in the store already (not decoded again).
    std::vector<std::string> duplicates;
    // One line per file that could not be imported: "path: reason".
    std::vector<std::string> failures;
};

// Brings `paths` into the shared store with a progress bar; files already there are found by their
// signature and not imported again. Runs the main loop until the import ends.
ImportOutcome importFiles(const std::vector<std::string>& paths);

// The catalogue line of a resource: identifier, kind, duration, size, name.
std::string describeResource(SCResource& resource);

}  // namespace qm::cli
