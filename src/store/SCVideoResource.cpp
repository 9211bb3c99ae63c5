#include "store/SCVideoResource.h"

#include <algorithm>

#include "codec/QVTimebase.h"
#include "foundation/QMCommon.h"
#include "platform/Log.h"
#include "store/SCResource.h"
#include "store/SCThumbnailCanvas.h"

namespace qm {

namespace {

// Sums and differences of times wrap around, as the stored 64-bit values do: a frame that
// lasts for ever may start after 0.
int64_t wrappingAdd(int64_t a, int64_t b) { return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b)); }
int64_t wrappingSubtract(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

// Where a block stops showing; a frame that lasts for ever (or past the largest time) never stops.
int64_t blockEnd(const SCVideoBlock& block) {
    int64_t end = 0;
    if (__builtin_add_overflow(block.timestamp(), block.duration(), &end)) return block.duration() > 0 ? INT64_MAX : INT64_MIN;
    return end;
}

bool blockContains(const SCVideoBlock& block, int64_t t) { return block.timestamp() <= t && t < blockEnd(block); }

}  // namespace

// MARK: - SCVideoBlock

std::shared_ptr<SCVideoBlock> SCVideoBlock::createWithOffset(uint64_t offset, uint64_t length, int64_t startTimestamp,
                                                             int64_t duration, uint64_t thumbLength) {
    auto block = std::make_shared<SCVideoBlock>();
    block->_offset = offset;
    block->_totalLength = length;
    block->_timestamp = startTimestamp;
    block->_duration = duration;
    block->_thumbLength = thumbLength;
    return block;
}

std::shared_ptr<SCVideoBlock> SCVideoBlock::createWithCoder(KeyedUnarchiver& coder) {
    return createWithOffset(static_cast<uint64_t>(coder.decodeInt64("offset")),
                            static_cast<uint64_t>(coder.decodeInt64("length")), coder.decodeInt64("timestamp"),
                            coder.decodeInt64("duration"), static_cast<uint64_t>(coder.decodeInt64("thumbLength")));
}

void SCVideoBlock::encodeWithCoder(KeyedArchiver& coder) const {
    coder.encodeInteger("offset", static_cast<int64_t>(_offset));
    coder.encodeInteger("length", static_cast<int64_t>(_totalLength));
    coder.encodeInt64("timestamp", _timestamp);
    coder.encodeInt64("duration", _duration);
    coder.encodeInteger("thumbLength", static_cast<int64_t>(_thumbLength));
}

// MARK: - SCVideoResource

std::shared_ptr<SCVideoResource> SCVideoResource::createWithStorage(std::shared_ptr<SCResourceStorage> storage,
                                                                    std::vector<std::shared_ptr<SCVideoBlock>> blocks,
                                                                    int64_t width, int64_t height) {
    std::shared_ptr<SCVideoResource> resource(new SCVideoResource());
    resource->_storage = std::move(storage);
    resource->_blocks = std::move(blocks);
    resource->_width = width;
    resource->_height = height;
    return resource;
}

std::shared_ptr<SCVideoResource> SCVideoResource::createWithCoder(KeyedUnarchiver& coder) {
    auto blocks = coder.decodeObjectsOfClass<SCVideoBlock>("blocks");
    auto storage = coder.decodeObjectOfClass<SCResourceStorage>("storage");
    if (!storage) return nullptr;
    return createWithStorage(std::move(storage), std::move(blocks), coder.decodeInt64("width"),
                             coder.decodeInt64("height"));
}

void SCVideoResource::encodeWithCoder(KeyedArchiver& coder) const {
    coder.encodeObjects("blocks", _blocks);
    coder.encodeObject("storage", _storage);
    coder.encodeInteger("width", _width);
    coder.encodeInteger("height", _height);
}

int64_t SCVideoResource::duration() const {
    if (_blocks.empty()) return 0;
    const SCVideoBlock& last = *_blocks.back();
    return last.duration() == QMNoTimeLimited ? QMNoTimeLimited : wrappingAdd(last.timestamp(), last.duration());
}

std::shared_ptr<SCVideoBlock> SCVideoResource::findVideoBlockAtTimestamp(int64_t t) const {
    const int64_t count = numberOfFrames();
    const int64_t total = duration();
    if (count == 0 || total == 0) return nullptr;

    // Guess by the average frame time, then probe outward from the guess in both directions.
    const int64_t average = total / count;
    const int64_t guess = average > 0 ? t / average : 0;
    const int64_t towardStart = wrappingAdd(guess, 1);
    const int64_t towardEnd = wrappingSubtract(count, guess);
    const int64_t steps =
        static_cast<uint64_t>(towardStart) > static_cast<uint64_t>(towardEnd) ? towardStart : towardEnd;
    int64_t left = 0;
    int64_t right = count - 1;
    bool leftDone = false;
    bool rightDone = false;
    for (int64_t step = 1; step <= steps; ++step) {
        const int64_t i = guess - (step - 1);
        if (i >= 0 && !leftDone && i < count) {
            const SCVideoBlock& block = *_blocks[i];
            if (blockContains(block, t)) return _blocks[i];
            leftDone = blockEnd(block) < t;
            if (leftDone) left = i;
        }
        const int64_t j = guess + step;
        if (j < count && !rightDone) {
            const SCVideoBlock& block = *_blocks[j];
            if (blockContains(block, t)) return _blocks[j];
            rightDone = block.timestamp() > t;
            if (rightDone) right = j;
        }
        if (leftDone && rightDone) break;
    }

    // In a hole or outside every block: the nearer of the blocks on either side.
    if (left > right) return nullptr;
    std::shared_ptr<SCVideoBlock> previous;
    std::shared_ptr<SCVideoBlock> next;
    for (int64_t k = left; k <= right; ++k) {
        if (_blocks[k]->timestamp() > t) {
            next = _blocks[k];
            break;
        }
        previous = _blocks[k];
    }
    if (!next) return nullptr;
    if (!previous) return next;
    const int64_t afterPrevious = wrappingSubtract(wrappingSubtract(t, previous->timestamp()), previous->duration());
    return afterPrevious < wrappingSubtract(next->timestamp(), t) ? previous : next;
}

void SCVideoResource::fillCache(int64_t timestamp) {
    _cacheVideoBlock.reset();
    _cachePicture.reset();
    _cacheThumb.reset();
    _cacheCIImage = Image();
    _cacheVideoBlock = findVideoBlockAtTimestamp(timestamp);
    if (!_cacheVideoBlock) return;
    const SCVideoBlock& block = *_cacheVideoBlock;
    std::vector<uint8_t> bytes =
        _storage ? _storage->readDataOfLength(block.length(), block.offset()) : std::vector<uint8_t>();
    if (bytes.empty()) {
        QMLog("Failed to read video image cache buffer.");
        _cacheVideoBlock.reset();
        return;
    }
    // A block that runs past the end of the file is split by the bytes that were read: the
    // thumbnail is their tail, the picture what comes before it.
    if (block.thumbLength() != 0) {
        const size_t thumbLength = std::min<size_t>(block.thumbLength(), bytes.size());
        const auto thumbStart = bytes.end() - static_cast<std::ptrdiff_t>(thumbLength);
        _cacheThumb = SCResource::deferredCGImage(std::vector<uint8_t>(thumbStart, bytes.end()));
        bytes.erase(thumbStart, bytes.end());
    }
    _cachePicture = SCResource::deferredCGImage(std::move(bytes));
    _cacheCIImage = Image::imageWithDeferredBitmap(_cachePicture);
}

void SCVideoResource::fillCacheUnlessHeld(int64_t timestamp, bool held) {
    if (!held || !_cacheVideoBlock || !_cacheVideoBlock->timeRange().containLocation(timestamp)) fillCache(timestamp);
}

void SCVideoResource::createCacheAtTimestamp(int64_t timestamp) {
    _cacheQueue->sync([&] { fillCache(timestamp); });
}

std::shared_ptr<const Bitmap> SCVideoResource::cachedPicture(int64_t timestamp, bool thumb) {
    if (timestamp < 0 || timestamp > duration()) return nullptr;
    std::shared_ptr<const Bitmap> picture;
    _cacheQueue->sync([&] {
        fillCacheUnlessHeld(timestamp, _cachePicture && _cachePicture->bitmap());
        const auto thumbPicture = thumb && _cacheThumb ? _cacheThumb->bitmap() : nullptr;
        picture = thumbPicture ? thumbPicture : _cachePicture ? _cachePicture->bitmap() : nullptr;
    });
    return picture;
}

std::shared_ptr<const Bitmap> SCVideoResource::cgImageAtTimestamp(int64_t timestamp) {
    return cachedPicture(timestamp, false);
}

Image SCVideoResource::ciImageAtTimestamp(int64_t timestamp) {
    if (timestamp < 0 || timestamp > duration()) return Image();
    Image image;
    _cacheQueue->sync([&] {
        fillCacheUnlessHeld(timestamp, !_cacheCIImage.isNull());
        image = _cacheCIImage;
    });
    return image;
}

std::shared_ptr<const Bitmap> SCVideoResource::thumbImageAtTimestamp(int64_t timestamp) {
    return cachedPicture(timestamp, true);
}

std::shared_ptr<const Bitmap> SCVideoResource::thumbnail() {
    std::shared_ptr<const Bitmap> poster;
    _cacheQueue->sync([&] {
        if (!_thumbnail) {
            const Size size = SCResource::thumbnailSize();
            const Rect canvas{{0, 0}, size};
            const auto picture = cgImageAtTimestamp(0);
            // The picture is fitted by its source rectangle for the canvas, and drawn from the
            // canvas-sized corner of the picture.
            const Rect dest =
                picture ? QMCommon::adjustImageWithSize(Size{static_cast<double>(picture->width()),
                                                             static_cast<double>(picture->height())},
                                                        canvas)
                        : Rect{};
            _thumbnail = SCThumbnailCanvas::drawPicture(size, picture, dest, canvas);
        }
        poster = _thumbnail;
    });
    return poster;
}

void SCVideoResource::invalidate() {
    if (_storage) _storage->cleanCache();
}

}  // namespace qm
