#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "store/SCRecordingJournal.h"
#include "store/SCResource.h"

namespace qm {

// Rebuilds recordings that a dead process left behind: every crash journal that no live writer
// holds is read, and the whole blocks it lists become a resource named "Recovered recording" and
// the recording's date. An entry is whole when it follows on from the one before it and its bytes
// lie inside its cache file; reading stops at the first that is not.
class SCRecordingRecovery {
public:
    static constexpr const char* recoveredName = "Recovered recording";

    // Recovers each orphaned journal in `directory`: `keep` receives the resource (and should make
    // it durable), then the journal is deleted. A journal with nothing whole is deleted with its
    // cache files and one log line. Gives the number of resources kept.
    static size_t recoverOrphanedRecordings(const std::string& directory,
                                            const std::function<void(std::shared_ptr<SCResource>)>& keep);

    // The resource of a journal's whole blocks; nothing when no block is whole. Cache files
    // without a whole block are deleted.
    static std::shared_ptr<SCResource> resourceFromJournal(const SCRecordingJournalContents& contents);
};

}  // namespace qm
