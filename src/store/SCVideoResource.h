#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "foundation/QVRange.h"
#include "image/DeferredBitmap.h"
#include "image/Image.h"
#include "platform/Bitmap.h"
#include "platform/Dispatch.h"
#include "platform/KeyedArchiver.h"
#include "store/SCResourceStorage.h"

namespace qm {

// One stored frame: `length` bytes at `offset`, the JPEG of the full picture followed, when
// `thumbLength` is not 0, by the JPEG of a small one of that many bytes; shown from `timestamp`
// for `duration` (QMNoTimeLimited for ever). Archived as "SCVideoBlock" with "offset", "length",
// "timestamp", "duration", "thumbLength".
class SCVideoBlock : public Archivable {
public:
    static std::shared_ptr<SCVideoBlock> createWithOffset(uint64_t offset, uint64_t length, int64_t startTimestamp,
                                                          int64_t duration, uint64_t thumbLength = 0);
    static std::shared_ptr<SCVideoBlock> createWithCoder(KeyedUnarchiver& coder);

    uint64_t offset() const { return _offset; }
    uint64_t length() const { return _totalLength; }
    uint64_t thumbLength() const { return _thumbLength; }
    int64_t timestamp() const { return _timestamp; }
    int64_t duration() const { return _duration; }
    // (timestamp, duration) as a range.
    QVRange timeRange() const { return QVRange(_timestamp, _duration); }

    std::string archiveClassName() const override { return "SCVideoBlock"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

private:
    uint64_t _offset = 0;
    uint64_t _totalLength = 0;
    uint64_t _thumbLength = 0;
    int64_t _timestamp = 0;
    int64_t _duration = 0;
};

// Stored pictures: one independent JPEG per frame in a storage, and blocks in ascending time
// that may leave holes between them. Any frame is one seek and one decode away; the resource
// keeps the last decoded frame (and its thumbnail) and answers from it while the asked time
// stays inside that frame's block. The readers may be called from any thread: they run on the
// resource's serial queue, which also guards the storage's file position.
//
// Archived as "SCVideoResource" with "blocks", "storage", "width", "height"; reading gives
// nothing when the storage does not come back (its cache file is gone).
class SCVideoResource : public Archivable {
public:
    static std::shared_ptr<SCVideoResource> createWithStorage(std::shared_ptr<SCResourceStorage> storage,
                                                              std::vector<std::shared_ptr<SCVideoBlock>> blocks,
                                                              int64_t width, int64_t height);
    static std::shared_ptr<SCVideoResource> createWithCoder(KeyedUnarchiver& coder);

    const std::shared_ptr<SCResourceStorage>& storage() const { return _storage; }
    const std::vector<std::shared_ptr<SCVideoBlock>>& blocks() const { return _blocks; }
    int64_t width() const { return _width; }
    int64_t height() const { return _height; }
    int64_t numberOfFrames() const { return static_cast<int64_t>(_blocks.size()); }
    // End of the last block; QMNoTimeLimited when it lasts for ever; 0 without blocks.
    int64_t duration() const;

    // The block showing `timestamp`; in a hole, the nearer neighbour (a tie goes to the later);
    // before the first block, the first; past the end of the last, nothing.
    std::shared_ptr<SCVideoBlock> findVideoBlockAtTimestamp(int64_t timestamp) const;
    // Replaces the cached frame with the one at `timestamp` (on the resource's queue).
    void createCacheAtTimestamp(int64_t timestamp);

    // The full picture at `timestamp`; nothing for a time below 0 or above duration, or when
    // no frame is found, read or decoded.
    std::shared_ptr<const Bitmap> cgImageAtTimestamp(int64_t timestamp);
    // The same picture as an image for composition, decoded when a render first needs it: a
    // null image where no frame is found or read, or its header does not read; a frame whose body
    // fails to decode renders transparent. imageAtTimestamp is the same operation.
    Image ciImageAtTimestamp(int64_t timestamp);
    Image imageAtTimestamp(int64_t timestamp) { return ciImageAtTimestamp(timestamp); }
    // The thumbnail at `timestamp` when the frame has one, else its full picture.
    std::shared_ptr<const Bitmap> thumbImageAtTimestamp(int64_t timestamp);

    // The poster: frame 0 drawn onto a 400 by 300 canvas; blank without frames. Made once.
    std::shared_ptr<const Bitmap> thumbnail();

    // Deletes the cache file.
    void invalidate();

    std::string archiveClassName() const override { return "SCVideoResource"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

private:
    SCVideoResource() = default;
    void fillCache(int64_t timestamp);
    std::shared_ptr<const Bitmap> cachedPicture(int64_t timestamp, bool thumb);
    // Refills the cache unless it holds `held` for the block showing `timestamp`.
    void fillCacheUnlessHeld(int64_t timestamp, bool held);

    std::shared_ptr<SCResourceStorage> _storage;
    std::vector<std::shared_ptr<SCVideoBlock>> _blocks;
    int64_t _width = 0;
    int64_t _height = 0;
    // The cache: the block, its picture and thumbnail, each decoded when first used (the image
    // for composition when it is rendered). Touched only on _cacheQueue.
    std::shared_ptr<SCVideoBlock> _cacheVideoBlock;
    std::shared_ptr<const DeferredBitmap> _cachePicture;
    std::shared_ptr<const DeferredBitmap> _cacheThumb;
    Image _cacheCIImage;
    std::shared_ptr<DispatchQueue> _cacheQueue = DispatchQueue::createSerial();
    std::shared_ptr<const Bitmap> _thumbnail;
};

}  // namespace qm
