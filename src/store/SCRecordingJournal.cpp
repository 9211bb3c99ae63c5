#include "store/SCRecordingJournal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <span>
#include <utility>

#include "platform/KeyedArchiver.h"
#include "platform/Log.h"
#include "platform/UUID.h"

namespace qm {

namespace {

constexpr std::string_view kMagic = "QMRJ1\n";
constexpr size_t kChecksumLength = 8;
constexpr size_t kRecordPrefixLength = 4 + kChecksumLength;
constexpr size_t kBlockPayloadLength = 1 + 4 * 8;
// Far above any header; a larger length is damage, not a record.
constexpr uint32_t kMaximumPayloadLength = 1 << 20;

constexpr uint8_t kHeaderRecord = 'H';
constexpr uint8_t kAudioRecord = 'A';
constexpr uint8_t kVideoRecord = 'V';

void putUInt64(std::vector<uint8_t>& bytes, uint64_t value) {
    for (int shift = 0; shift < 64; shift += 8) bytes.push_back(static_cast<uint8_t>(value >> shift));
}

uint64_t getUInt64(const uint8_t* bytes) {
    uint64_t value = 0;
    for (int index = 7; index >= 0; --index) value = (value << 8) | bytes[index];
    return value;
}

uint32_t getUInt32(const uint8_t* bytes) {
    return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
           static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

// The CRC-32 of the payload in hexadecimal digits.
std::string checksumOf(std::span<const uint8_t> payload) {
    const uLong crc = crc32(crc32(0L, Z_NULL, 0), payload.data(), static_cast<uInt>(payload.size()));
    char text[kChecksumLength + 1];
    std::snprintf(text, sizeof text, "%08lX", crc & 0xffffffffUL);
    return std::string(text, kChecksumLength);
}

std::vector<uint8_t> blockPayload(uint8_t kind, uint64_t offset, uint64_t length, int64_t start, int64_t extent) {
    std::vector<uint8_t> payload{kind};
    putUInt64(payload, offset);
    putUInt64(payload, length);
    putUInt64(payload, static_cast<uint64_t>(start));
    putUInt64(payload, static_cast<uint64_t>(extent));
    return payload;
}

std::vector<uint8_t> headerPayload(const SCRecordingJournalHeader& header) {
    KeyedArchiver coder;
    if (header.videoCacheFile) coder.encodeString("videoCacheFile", *header.videoCacheFile);
    if (header.audioCacheFile) coder.encodeString("audioCacheFile", *header.audioCacheFile);
    coder.encodeDouble("creationDate", std::chrono::duration<double>(header.creationDate.time_since_epoch()).count());
    coder.encodeInt64("width", header.width);
    coder.encodeInt64("height", header.height);
    coder.encodeInt64("sampleRate", header.sampleRate);
    coder.encodeInt64("numberOfChannels", header.numberOfChannels);
    coder.encodeInt32("sampleFormat", header.sampleFormat);
    std::vector<uint8_t> payload{kHeaderRecord};
    const std::vector<uint8_t> archive = coder.finishEncoding();
    payload.insert(payload.end(), archive.begin(), archive.end());
    return payload;
}

std::optional<SCRecordingJournalHeader> headerFromPayload(std::span<const uint8_t> payload) {
    if (payload.empty() || payload[0] != kHeaderRecord) return std::nullopt;
    const auto coder = KeyedUnarchiver::createForReadingWithData({payload.begin() + 1, payload.end()});
    if (!coder) return std::nullopt;
    SCRecordingJournalHeader header;
    if (coder->containsValueForKey("videoCacheFile")) header.videoCacheFile = coder->decodeString("videoCacheFile");
    if (coder->containsValueForKey("audioCacheFile")) header.audioCacheFile = coder->decodeString("audioCacheFile");
    header.creationDate =
        std::chrono::system_clock::time_point(std::chrono::duration_cast<std::chrono::system_clock::duration>(
            std::chrono::duration<double>(coder->decodeDouble("creationDate"))));
    header.width = coder->decodeInt64("width");
    header.height = coder->decodeInt64("height");
    header.sampleRate = coder->decodeInt64("sampleRate");
    header.numberOfChannels = coder->decodeInt64("numberOfChannels");
    header.sampleFormat = coder->decodeInt32("sampleFormat");
    return header;
}

// Adds the block of a whole entry; false for a payload that is no block entry.
bool addBlockFromPayload(std::span<const uint8_t> payload, SCRecordingJournalContents& contents) {
    if (payload.size() != kBlockPayloadLength) return false;
    const uint8_t* values = payload.data() + 1;
    const uint64_t offset = getUInt64(values);
    const uint64_t length = getUInt64(values + 8);
    const uint64_t start = getUInt64(values + 16);
    const uint64_t extent = getUInt64(values + 24);
    if (payload[0] == kAudioRecord) {
        contents.audioBlocks.push_back(SCAudioBlock::createWithOffset(offset, length, start, extent));
        return true;
    }
    if (payload[0] == kVideoRecord) {
        contents.videoBlocks.push_back(
            SCVideoBlock::createWithOffset(offset, length, static_cast<int64_t>(start), static_cast<int64_t>(extent)));
        return true;
    }
    return false;
}

bool writeAll(int fd, const uint8_t* bytes, size_t length) {
    while (length > 0) {
        const ssize_t written = ::write(fd, bytes, length);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes += written;
        length -= static_cast<size_t>(written);
    }
    return true;
}

// Makes the new file's name durable in its directory.
void syncDirectory(const std::string& directory) {
    const int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    ::fsync(fd);
    ::close(fd);
}

}  // namespace

std::shared_ptr<SCRecordingJournal> SCRecordingJournal::createInDirectory(
    const std::string& directory, SCRecordingJournalHeader header, std::shared_ptr<SCResourceStorage> videoStorage,
    std::shared_ptr<SCResourceStorage> audioStorage) {
    const std::string path = directory + "/" + UUID::create().UUIDString() + fileExtension;
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0) {
        QMLog("Recording journal not created: %s", std::strerror(errno));
        return nullptr;
    }
    ::flock(fd, LOCK_EX | LOCK_NB);
    header.videoCacheFile = videoStorage ? videoStorage->cacheFile() : std::nullopt;
    header.audioCacheFile = audioStorage ? audioStorage->cacheFile() : std::nullopt;
    std::shared_ptr<SCRecordingJournal> journal(
        new SCRecordingJournal(path, fd, std::move(videoStorage), std::move(audioStorage)));
    journal->_pending.assign(kMagic.begin(), kMagic.end());
    journal->appendRecord(headerPayload(header));
    const bool written = journal->writeToJournal(journal->_pending) && ::fdatasync(fd) == 0;
    journal->_pending.clear();
    if (!written) {
        QMLog("Recording journal not created: %s", std::strerror(errno));
        journal->remove();
        return nullptr;
    }
    syncDirectory(directory);
    return journal;
}

SCRecordingJournal::SCRecordingJournal(std::string path, int fd, std::shared_ptr<SCResourceStorage> videoStorage,
                                       std::shared_ptr<SCResourceStorage> audioStorage)
    : _path(std::move(path)),
      _fd(fd),
      _videoStorage(std::move(videoStorage)),
      _audioStorage(std::move(audioStorage)),
      _lastSync(std::chrono::steady_clock::now()) {}

SCRecordingJournal::~SCRecordingJournal() {
    for (const int fd : {_fd, _videoCache.fd, _audioCache.fd}) {
        if (fd >= 0) ::close(fd);
    }
}

void SCRecordingJournal::appendRecord(const std::vector<uint8_t>& payload) {
    const auto length = static_cast<uint32_t>(payload.size());
    for (int shift = 0; shift < 32; shift += 8) _pending.push_back(static_cast<uint8_t>(length >> shift));
    const std::string checksum = checksumOf(payload);
    _pending.insert(_pending.end(), checksum.begin(), checksum.end());
    _pending.insert(_pending.end(), payload.begin(), payload.end());
}

void SCRecordingJournal::appendAudioBlock(const SCAudioBlock& block) {
    appendRecord(blockPayload(kAudioRecord, block.offset(), block.length(),
                              static_cast<int64_t>(block.indexOfSamples()),
                              static_cast<int64_t>(block.numberOfSamples())));
    _audioCache.requiredLength = std::max(_audioCache.requiredLength, block.offset() + block.length());
}

void SCRecordingJournal::appendVideoBlock(const SCVideoBlock& block) {
    appendRecord(blockPayload(kVideoRecord, block.offset(), block.length(), block.timestamp(), block.duration()));
    _videoCache.requiredLength = std::max(_videoCache.requiredLength, block.offset() + block.length());
}

bool SCRecordingJournal::syncCacheFile(const std::shared_ptr<SCResourceStorage>& storage, CacheFile& file) {
    if (!storage) return true;
    storage->flushCacheBuffer();
    if (file.fd < 0) {
        const auto cacheFile = storage->cacheFile();
        if (!cacheFile) return false;
        file.fd = ::open(cacheFile->c_str(), O_RDONLY | O_CLOEXEC);
        if (file.fd < 0) return false;
    }
    struct stat info {};
    return ::fdatasync(file.fd) == 0 && ::fstat(file.fd, &info) == 0 &&
           static_cast<uint64_t>(info.st_size) >= file.requiredLength;
}

bool SCRecordingJournal::sync() {
    _lastSync = std::chrono::steady_clock::now();
    if (!syncCacheFile(_videoStorage, _videoCache) || !syncCacheFile(_audioStorage, _audioCache)) {
        _pending.clear();
        return false;
    }
    if (_pending.empty() || _fd < 0) return true;
    if (!writeToJournal(_pending) || ::fdatasync(_fd) != 0) {
        QMLog("Recording journal stopped: %s", std::strerror(errno));
        ::close(_fd);
        _fd = -1;
    }
    _pending.clear();
    return true;
}

bool SCRecordingJournal::syncIfDue() {
    if (std::chrono::steady_clock::now() - _lastSync < syncInterval) return true;
    return sync();
}

bool SCRecordingJournal::writeToJournal(const std::vector<uint8_t>& bytes) {
    return _fd >= 0 && writeAll(_fd, bytes.data(), bytes.size());
}

void SCRecordingJournal::remove() {
    ::unlink(_path.c_str());
    if (_fd >= 0) ::close(_fd);
    _fd = -1;
    _pending.clear();
}

std::optional<SCRecordingJournalContents> SCRecordingJournal::readJournalAtPath(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) return std::nullopt;
    const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    if (bytes.size() < kMagic.size() || !std::equal(kMagic.begin(), kMagic.end(), bytes.begin())) return std::nullopt;

    // The next whole record's payload from `position`; nothing at the end or at damage.
    size_t position = kMagic.size();
    const auto nextPayload = [&]() -> std::optional<std::span<const uint8_t>> {
        if (bytes.size() - position < kRecordPrefixLength) return std::nullopt;
        const uint32_t length = getUInt32(&bytes[position]);
        if (length > kMaximumPayloadLength || bytes.size() - position - kRecordPrefixLength < length) {
            return std::nullopt;
        }
        const std::span<const uint8_t> payload(&bytes[position + kRecordPrefixLength], length);
        const std::string_view checksum(reinterpret_cast<const char*>(&bytes[position + 4]), kChecksumLength);
        if (checksumOf(payload) != checksum) return std::nullopt;
        position += kRecordPrefixLength + length;
        return payload;
    };

    const auto headerRecord = nextPayload();
    const auto header = headerRecord ? headerFromPayload(*headerRecord) : std::nullopt;
    if (!header) return std::nullopt;
    SCRecordingJournalContents contents;
    contents.header = *header;
    while (const auto payload = nextPayload()) {
        if (!addBlockFromPayload(*payload, contents)) break;
    }
    contents.torn = position != bytes.size();
    return contents;
}

}  // namespace qm
