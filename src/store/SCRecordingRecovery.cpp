#include "store/SCRecordingRecovery.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <utility>

#include "foundation/QMCommon.h"
#include "platform/KeyedArchiver.h"
#include "platform/Log.h"
#include "store/SCAudioResource.h"
#include "store/SCVideoResource.h"

namespace qm {

namespace {

// A cache file as an archived storage, so that it reads back as a storage of that file.
class CacheFileReference : public Archivable {
public:
    explicit CacheFileReference(std::string path) : _path(std::move(path)) {}
    std::string archiveClassName() const override { return "SCResourceStorage"; }
    void encodeWithCoder(KeyedArchiver& coder) const override { coder.encodeString("_cacheFile", _path); }

private:
    std::string _path;
};

std::shared_ptr<SCResourceStorage> storageOfCacheFile(const std::string& path) {
    registerStoreArchiveClasses();
    const auto archive = KeyedArchiver::archivedDataWithRootObject(std::make_shared<CacheFileReference>(path));
    return std::dynamic_pointer_cast<SCResourceStorage>(KeyedUnarchiver::unarchiveObjectWithData(archive));
}

std::optional<uint64_t> lengthOfFile(const std::optional<std::string>& path) {
    std::error_code error;
    if (!path) return std::nullopt;
    const auto length = std::filesystem::file_size(*path, error);
    if (error) return std::nullopt;
    return length;
}

void removeFile(const std::optional<std::string>& path) {
    if (path) ::unlink(path->c_str());
}

// The leading blocks that follow on from each other, in sample and file order, inside the file.
std::vector<std::shared_ptr<SCAudioBlock>> wholeAudioBlocks(const std::vector<std::shared_ptr<SCAudioBlock>>& blocks,
                                                            uint64_t fileLength) {
    std::vector<std::shared_ptr<SCAudioBlock>> whole;
    uint64_t offset = 0;
    uint64_t sample = 0;
    for (const auto& block : blocks) {
        if (block->offset() != offset || block->indexOfSamples() != sample || block->length() == 0 ||
            block->numberOfSamples() == 0 || block->length() > fileLength - offset) {
            break;
        }
        whole.push_back(block);
        offset += block->length();
        sample += block->numberOfSamples();
    }
    return whole;
}

// The leading frames that follow on from each other in file order and time, inside the file, each
// lasting until the next; the last keeps its journaled duration.
std::vector<std::shared_ptr<SCVideoBlock>> wholeVideoBlocks(const std::vector<std::shared_ptr<SCVideoBlock>>& blocks,
                                                            uint64_t fileLength) {
    std::vector<std::shared_ptr<SCVideoBlock>> whole;
    uint64_t offset = 0;
    for (const auto& block : blocks) {
        const bool inOrder = whole.empty() || block->timestamp() >= whole.back()->timestamp();
        if (block->offset() != offset || block->length() == 0 || block->length() > fileLength - offset ||
            block->timestamp() < 0 || !inOrder) {
            break;
        }
        if (!whole.empty()) {
            const auto& last = *whole.back();
            whole.back() = SCVideoBlock::createWithOffset(last.offset(), last.length(), last.timestamp(),
                                                          block->timestamp() - last.timestamp());
        }
        whole.push_back(block);
        offset += block->length();
    }
    return whole;
}

std::shared_ptr<SCAudioResource> recoveredAudio(const SCRecordingJournalContents& contents) {
    const auto& header = contents.header;
    const auto length = lengthOfFile(header.audioCacheFile);
    if (!length || header.sampleFormat < 0 || header.sampleRate <= 0) return nullptr;
    auto blocks = wholeAudioBlocks(contents.audioBlocks, *length);
    if (blocks.empty()) return nullptr;
    const auto storage = storageOfCacheFile(*header.audioCacheFile);
    if (!storage) return nullptr;
    return SCAudioResource::createWithDataStorage(storage, std::move(blocks), header.sampleRate,
                                                  header.numberOfChannels, header.sampleFormat, 0);
}

std::shared_ptr<SCVideoResource> recoveredVideo(const SCRecordingJournalContents& contents) {
    const auto& header = contents.header;
    const auto length = lengthOfFile(header.videoCacheFile);
    if (!length || header.width <= 0 || header.height <= 0) return nullptr;
    auto blocks = wholeVideoBlocks(contents.videoBlocks, *length);
    if (blocks.empty()) return nullptr;
    const auto storage = storageOfCacheFile(*header.videoCacheFile);
    if (!storage) return nullptr;
    return SCVideoResource::createWithStorage(storage, std::move(blocks), header.width, header.height);
}

}  // namespace

std::shared_ptr<SCResource> SCRecordingRecovery::resourceFromJournal(const SCRecordingJournalContents& contents) {
    auto audio = recoveredAudio(contents);
    auto video = recoveredVideo(contents);
    if (!audio) removeFile(contents.header.audioCacheFile);
    if (!video) removeFile(contents.header.videoCacheFile);
    if (!audio && !video) return nullptr;
    auto resource = SCResource::createWithAudio(std::move(audio), std::move(video));
    resource->setHumanReadableName(std::string(recoveredName) + " " +
                                   QMCommon::stringFromDate(contents.header.creationDate));
    return resource;
}

size_t SCRecordingRecovery::recoverOrphanedRecordings(const std::string& directory,
                                                      const std::function<void(std::shared_ptr<SCResource>)>& keep) {
    std::error_code error;
    std::vector<std::string> journals;
    for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
        if (entry.path().extension() == SCRecordingJournal::fileExtension) journals.push_back(entry.path());
    }
    size_t recovered = 0;
    for (const auto& path : journals) {
        const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) continue;
        // A live writer holds its journal locked.
        if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
            ::close(fd);
            continue;
        }
        const auto contents = SCRecordingJournal::readJournalAtPath(path);
        const auto resource = contents ? resourceFromJournal(*contents) : nullptr;
        if (resource) {
            keep(resource);
            ++recovered;
        } else {
            QMLog("Removed an unrecoverable recording: %s", path.c_str());
        }
        ::unlink(path.c_str());
        ::close(fd);
    }
    return recovered;
}

}  // namespace qm
