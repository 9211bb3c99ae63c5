#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "foundation/QVRange.h"
#include "foundation/QVSampleBuffer.h"
#include "foundation/QVSampleDescription.h"
#include "platform/Bitmap.h"
#include "platform/Dispatch.h"
#include "platform/KeyedArchiver.h"
#include "store/SCResourceStorage.h"

namespace qm {

// One stored audio frame: the keyed archive of a QVAudioFrame2 at `offset`, `length` bytes
// long, holding `numberOfSamples` samples from sample position `indexOfSamples`. Archived as
// "SCAudioBlock" with the integers "offset", "length", "indexOfSamples", "numberOfSamples".
class SCAudioBlock : public Archivable {
public:
    static std::shared_ptr<SCAudioBlock> createWithOffset(uint64_t offset, uint64_t length, uint64_t startSample,
                                                          uint64_t numberOfSamples);
    static std::shared_ptr<SCAudioBlock> createWithCoder(KeyedUnarchiver& coder);

    uint64_t offset() const { return _offset; }
    uint64_t length() const { return _length; }
    uint64_t indexOfSamples() const { return _indexOfSamples; }
    uint64_t numberOfSamples() const { return _numberOfSamples; }
    // (indexOfSamples, numberOfSamples) as a range.
    QVRange sampleRange() const;

    std::string archiveClassName() const override { return "SCAudioBlock"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

private:
    uint64_t _offset = 0;
    uint64_t _length = 0;
    uint64_t _indexOfSamples = 0;
    uint64_t _numberOfSamples = 0;
};

// Stored PCM audio: frames archived one after another in a storage, a list of blocks in sample
// order (each starting where the last ended), and the format. Immutable once made, except for
// its artwork. Sample positions count from 0 in the resource's own rate.
//
// sampleBufferWithRange may be called from any thread: it runs on the resource's serial queue,
// which also guards the storage's file position, and keeps the last run of decoded blocks.
//
// Archived as "SCAudioResource" with "storage", "blocks", "sampleFormat", "sampleRate",
// "numberOfChannels", "chsLayout" and "_artworkImageStorage". Reading gives nothing when the
// storage does not come back (its cache file is gone) or the channel count is 0.
class SCAudioResource : public Archivable {
public:
    // Nothing, with the log line "Error channel settings", for 0 channels. A layout of 0
    // becomes the default layout of the channel count.
    static std::shared_ptr<SCAudioResource> createWithDataStorage(std::shared_ptr<SCResourceStorage> storage,
                                                                  std::vector<std::shared_ptr<SCAudioBlock>> blocks,
                                                                  int64_t sampleRate, int64_t numberOfChannel,
                                                                  int32_t sampleFormat, int64_t channelLayout);
    static std::shared_ptr<SCAudioResource> createWithCoder(KeyedUnarchiver& coder);

    const std::shared_ptr<SCResourceStorage>& storage() const { return _storage; }
    const std::vector<std::shared_ptr<SCAudioBlock>>& blocks() const { return _blocks; }
    int64_t sampleRate() const { return _sampleRate; }
    int32_t sampleFormat() const { return _sampleFormat; }
    int64_t numberOfChannels() const { return _numberOfChannels; }
    int64_t chsLayout() const { return _chsLayout; }

    QVSampleDescription sampleDescription() const;
    int64_t bytesPerSample() const;
    // (0, end of the last block); empty without blocks.
    QVRange sampleRange() const;
    // End of the last block in time units; 0 without blocks or without a sample rate.
    int64_t duration() const;

    // The blocks that meet `range`, in order: a block ending at its location is skipped, and the
    // walk stops at the first block starting at or after its end.
    std::vector<std::shared_ptr<SCAudioBlock>> quickFindBlocksInRange(const QVRange& range) const;
    // Whole blocks over `range`, uncached and not serialised. Nothing when no block meets it,
    // and nothing with "Failed to decode audio frame..." when a block does not decode.
    std::shared_ptr<QVSampleBuffer> readSamplesWithRange(const QVRange& range);
    // Exactly the samples of `range` that exist; nothing for an empty or missing stretch.
    std::shared_ptr<QVSampleBuffer> sampleBufferWithRange(const QVRange& range);

    // Appends the picture as JPEG to the artwork storage (made if needed). Nothing for nothing.
    // Set it once: a second picture lands behind the first.
    void setArtworkImage(const std::shared_ptr<const Bitmap>& picture);
    // The artwork, else the "music" picture; made once and kept.
    std::shared_ptr<const Bitmap> thumbnail();
    // The "music" picture, drawn once per process.
    static std::shared_ptr<const Bitmap> defaultThumbnail();

    // Deletes the cache files of the samples and of the artwork.
    void invalidate();

    std::string archiveClassName() const override { return "SCAudioResource"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

private:
    SCAudioResource() = default;

    std::shared_ptr<SCResourceStorage> _storage;
    std::shared_ptr<SCResourceStorage> _artworkImageStorage;
    std::vector<std::shared_ptr<SCAudioBlock>> _blocks;
    int64_t _sampleRate = 0;
    int32_t _sampleFormat = 0;
    int64_t _numberOfChannels = 0;
    int64_t _chsLayout = 0;
    std::shared_ptr<QVSampleBuffer> _cacheBuffer;
    std::shared_ptr<DispatchQueue> _cacheQueue = DispatchQueue::createSerial();
    std::mutex _artworkMutex;
    std::shared_ptr<const Bitmap> _thumbnail;
};

}  // namespace qm
