#include "store/SCAudioResource.h"

#include "codec/QVAudioFrame2.h"
#include "codec/QVTimebase.h"
#include "platform/Log.h"
#include "store/SCResource.h"
#include "store/SCThumbnailCanvas.h"

namespace qm {

// MARK: - SCAudioBlock

std::shared_ptr<SCAudioBlock> SCAudioBlock::createWithOffset(uint64_t offset, uint64_t length, uint64_t startSample,
                                                             uint64_t numberOfSamples) {
    auto block = std::make_shared<SCAudioBlock>();
    block->_offset = offset;
    block->_length = length;
    block->_indexOfSamples = startSample;
    block->_numberOfSamples = numberOfSamples;
    return block;
}

std::shared_ptr<SCAudioBlock> SCAudioBlock::createWithCoder(KeyedUnarchiver& coder) {
    return createWithOffset(static_cast<uint64_t>(coder.decodeInt64("offset")),
                            static_cast<uint64_t>(coder.decodeInt64("length")),
                            static_cast<uint64_t>(coder.decodeInt64("indexOfSamples")),
                            static_cast<uint64_t>(coder.decodeInt64("numberOfSamples")));
}

void SCAudioBlock::encodeWithCoder(KeyedArchiver& coder) const {
    coder.encodeInteger("offset", static_cast<int64_t>(_offset));
    coder.encodeInteger("length", static_cast<int64_t>(_length));
    coder.encodeInteger("indexOfSamples", static_cast<int64_t>(_indexOfSamples));
    coder.encodeInteger("numberOfSamples", static_cast<int64_t>(_numberOfSamples));
}

QVRange SCAudioBlock::sampleRange() const {
    return QVRange(static_cast<int64_t>(_indexOfSamples), static_cast<int64_t>(_numberOfSamples));
}

// MARK: - SCAudioResource

std::shared_ptr<SCAudioResource> SCAudioResource::createWithDataStorage(
    std::shared_ptr<SCResourceStorage> storage, std::vector<std::shared_ptr<SCAudioBlock>> blocks, int64_t sampleRate,
    int64_t numberOfChannel, int32_t sampleFormat, int64_t channelLayout) {
    if (numberOfChannel == 0) {
        QMLog("Error channel settings");
        return nullptr;
    }
    std::shared_ptr<SCAudioResource> resource(new SCAudioResource());
    resource->_storage = std::move(storage);
    resource->_blocks = std::move(blocks);
    resource->_sampleRate = sampleRate;
    resource->_numberOfChannels = numberOfChannel;
    resource->_sampleFormat = sampleFormat;
    resource->_chsLayout =
        channelLayout != 0
            ? channelLayout
            : static_cast<int32_t>(QVAudioFrame2::defaultChannelLayoutByChannel(numberOfChannel));
    return resource;
}

std::shared_ptr<SCAudioResource> SCAudioResource::createWithCoder(KeyedUnarchiver& coder) {
    auto storage = coder.decodeObjectOfClass<SCResourceStorage>("storage");
    if (!storage) return nullptr;
    auto resource = createWithDataStorage(std::move(storage), coder.decodeObjectsOfClass<SCAudioBlock>("blocks"),
                                          coder.decodeInt64("sampleRate"), coder.decodeInt64("numberOfChannels"),
                                          coder.decodeInt32("sampleFormat"), coder.decodeInt64("chsLayout"));
    if (resource) resource->_artworkImageStorage = coder.decodeObjectOfClass<SCResourceStorage>("_artworkImageStorage");
    return resource;
}

void SCAudioResource::encodeWithCoder(KeyedArchiver& coder) const {
    coder.encodeObject("storage", _storage);
    coder.encodeObjects("blocks", _blocks);
    coder.encodeInt32("sampleFormat", _sampleFormat);
    coder.encodeInteger("sampleRate", _sampleRate);
    coder.encodeInteger("numberOfChannels", _numberOfChannels);
    coder.encodeInt64("chsLayout", _chsLayout);
    coder.encodeObject("_artworkImageStorage", _artworkImageStorage);
}

QVSampleDescription SCAudioResource::sampleDescription() const {
    return QVSampleDescription(_sampleRate, _numberOfChannels, _sampleFormat, _chsLayout);
}

int64_t SCAudioResource::bytesPerSample() const {
    return QVAudioFrame2::bytesForSampleFormat(_sampleFormat) * _numberOfChannels;
}

QVRange SCAudioResource::sampleRange() const {
    if (_blocks.empty()) return QVRange(0, 0);
    const SCAudioBlock& last = *_blocks.back();
    return QVRange(0, static_cast<int64_t>(last.indexOfSamples() + last.numberOfSamples()));
}

int64_t SCAudioResource::duration() const {
    if (_blocks.empty() || _sampleRate <= 0) return 0;
    return QMMultiplyDivide(sampleRange().length(), QVTimebase, _sampleRate);
}

std::vector<std::shared_ptr<SCAudioBlock>> SCAudioResource::quickFindBlocksInRange(const QVRange& range) const {
    // Block fields are unsigned; the range is compared in the same unsigned terms.
    const auto location = static_cast<uint64_t>(range.location());
    const auto end = static_cast<uint64_t>(range.end());
    std::vector<std::shared_ptr<SCAudioBlock>> found;
    for (const auto& block : _blocks) {
        if (block->indexOfSamples() + block->numberOfSamples() > location) {
            if (block->indexOfSamples() >= end) break;
            found.push_back(block);
        }
    }
    return found;
}

std::shared_ptr<QVSampleBuffer> SCAudioResource::readSamplesWithRange(const QVRange& range) {
    const auto blocks = quickFindBlocksInRange(range);
    if (blocks.empty()) return nullptr;
    std::shared_ptr<QVSampleBuffer> first;
    std::vector<uint8_t> samples;
    for (const auto& block : blocks) {
        const auto frame = SCResource::decodeAudioFrame(
            _storage ? _storage->readDataOfLength(block->length(), block->offset()) : std::vector<uint8_t>());
        if (!frame || frame->bytesForSample() == 0 || frame->sampleRate() == 0) {
            QMLog("Failed to decode audio frame...");
            return nullptr;
        }
        if (!first) {
            first = QVSampleBuffer::createWithAudioFrame(frame, block->sampleRange());
            if (!first) return nullptr;
            samples = std::move(first->mutableData());
            continue;
        }
        // Each later frame's samples are appended, which takes whole samples only.
        const std::vector<uint8_t> packed = frame->dataOfPackedSamples();
        if (packed.size() % first->sampleDescription().bytesPerSample() != 0) {
            QMLog("Error input sample buffer data.");
            return nullptr;
        }
        samples.insert(samples.end(), packed.begin(), packed.end());
    }
    const int64_t count = static_cast<int64_t>(samples.size()) / first->sampleDescription().bytesPerSample();
    return QVSampleBuffer::createWithSampleDescription(first->sampleDescription(),
                                                       QVRange(first->sampleRange().location(), count),
                                                       std::move(samples));
}

std::shared_ptr<QVSampleBuffer> SCAudioResource::sampleBufferWithRange(const QVRange& range) {
    std::shared_ptr<QVSampleBuffer> result;
    _cacheQueue->sync([&] {
        const auto wanted = range.intersectionRange(sampleRange());
        if (!wanted || wanted->length() == 0) return;
        if (!_cacheBuffer || !_cacheBuffer->sampleRange().containRange(*wanted)) {
            _cacheBuffer = readSamplesWithRange(*wanted);
            if (!_cacheBuffer) return;
        }
        result = _cacheBuffer->sampleBufferWithSubRange(*wanted);
    });
    return result;
}

// MARK: Artwork

void SCAudioResource::setArtworkImage(const std::shared_ptr<const Bitmap>& picture) {
    if (!picture) return;
    std::lock_guard<std::mutex> lock(_artworkMutex);
    if (!_artworkImageStorage) _artworkImageStorage = SCResourceStorage::create();
    _artworkImageStorage->appendData(SCResource::encodeCGImage(picture));
    _artworkImageStorage->flushCacheBuffer();
}

std::shared_ptr<const Bitmap> SCAudioResource::thumbnail() {
    std::lock_guard<std::mutex> lock(_artworkMutex);
    if (!_thumbnail) {
        _thumbnail = _artworkImageStorage ? SCResource::decodeCGImage(_artworkImageStorage->readAllData())
                                          : defaultThumbnail();
    }
    return _thumbnail;
}

std::shared_ptr<const Bitmap> SCAudioResource::defaultThumbnail() {
    static const std::shared_ptr<const Bitmap> music = SCThumbnailCanvas::musicPicture(SCResource::thumbnailSize());
    return music;
}

void SCAudioResource::invalidate() {
    if (_storage) _storage->cleanCache();
    std::lock_guard<std::mutex> lock(_artworkMutex);
    if (_artworkImageStorage) _artworkImageStorage->cleanCache();
}

}  // namespace qm
