#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "store/SCAudioResource.h"
#include "store/SCResourceStorage.h"
#include "store/SCVideoResource.h"

namespace qm {

// What a recovery needs to know about a recording beyond its blocks.
struct SCRecordingJournalHeader {
    // Set from the storages when the journal is made.
    std::optional<std::string> videoCacheFile;
    std::optional<std::string> audioCacheFile;
    std::chrono::system_clock::time_point creationDate;
    int64_t width = 0;
    int64_t height = 0;
    int64_t sampleRate = 0;
    int64_t numberOfChannels = 0;
    // QVAudioFrame2's sample format; -1 without audio.
    int32_t sampleFormat = -1;
};

// A journal as read back: its header and the blocks of every whole entry, in order.
struct SCRecordingJournalContents {
    SCRecordingJournalHeader header;
    std::vector<std::shared_ptr<SCAudioBlock>> audioBlocks;
    std::vector<std::shared_ptr<SCVideoBlock>> videoBlocks;
    // True when the file ends in a damaged or partly written entry, which is left out.
    bool torn = false;
};

// The crash journal of a recording in progress: a small file beside its cache files that lists
// every block whose bytes are safely on disk, so that an interrupted recording can be rebuilt.
//
// Entries are kept in memory until sync(), which first writes the storages' buffered bytes and
// syncs the cache files, and only then appends the entries and syncs the journal: an entry never
// points at bytes that were not on disk before it. The file stays locked (flock) while the
// journal lives, so a recovery leaves the journal of a running recording alone.
//
// File: the magic "QMRJ1\n", then records of a 32-bit little-endian payload length, the first 8
// hex digits of the payload's MD5, and the payload. The first payload is 'H' and a keyed archive
// of the header; the others are 'A' or 'V' and four 64-bit little-endian integers: offset,
// length, then first sample and sample count (audio) or timestamp and duration (video).
//
// Used on one thread at a time (the writer's queue).
class SCRecordingJournal {
public:
    static constexpr const char* fileExtension = ".recjournal";
    static constexpr std::chrono::seconds syncInterval{1};

    // A new journal named by a fresh UUID in `directory`, locked, its header written and synced.
    // Nothing, with one log line, when the file cannot be made.
    static std::shared_ptr<SCRecordingJournal> createInDirectory(const std::string& directory,
                                                                 SCRecordingJournalHeader header,
                                                                 std::shared_ptr<SCResourceStorage> videoStorage,
                                                                 std::shared_ptr<SCResourceStorage> audioStorage);
    // Whole entries of the journal at `path`; nothing when its magic or header does not read.
    static std::optional<SCRecordingJournalContents> readJournalAtPath(const std::string& path);

    // Releases the lock and keeps the file.
    ~SCRecordingJournal();
    SCRecordingJournal(const SCRecordingJournal&) = delete;
    SCRecordingJournal& operator=(const SCRecordingJournal&) = delete;

    const std::string& path() const { return _path; }

    // Call after the block's bytes were appended to its storage.
    void appendAudioBlock(const SCAudioBlock& block);
    void appendVideoBlock(const SCVideoBlock& block);

    // Makes the pending entries durable. False when a cache file does not hold the bytes of its
    // entries (its storage failed to write); those entries are not journaled. A failure of the
    // journal file itself logs one line and stops journaling, but is not a failure here.
    bool sync();
    // sync() when the last one was syncInterval ago or more; true otherwise.
    bool syncIfDue();
    // Deletes the file; later calls write nothing.
    void remove();

private:
    struct CacheFile {
        int fd = -1;
        uint64_t requiredLength = 0;
    };

    SCRecordingJournal(std::string path, int fd, std::shared_ptr<SCResourceStorage> videoStorage,
                       std::shared_ptr<SCResourceStorage> audioStorage);
    void appendRecord(const std::vector<uint8_t>& payload);
    bool writeToJournal(const std::vector<uint8_t>& bytes);
    static bool syncCacheFile(const std::shared_ptr<SCResourceStorage>& storage, CacheFile& file);

    std::string _path;
    int _fd = -1;
    std::shared_ptr<SCResourceStorage> _videoStorage;
    std::shared_ptr<SCResourceStorage> _audioStorage;
    CacheFile _videoCache;
    CacheFile _audioCache;
    std::vector<uint8_t> _pending;
    std::chrono::steady_clock::time_point _lastSync;
};

}  // namespace qm
