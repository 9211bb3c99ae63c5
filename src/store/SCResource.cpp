#include "codec/BitmapCodec.h"
#include "store/SCResource.h"

#include "codec/QVAudioFrame2.h"
#include "foundation/QMCommon.h"
#include "platform/UUID.h"
#include "store/SCAudioResource.h"
#include "store/SCImageResource.h"
#include "store/SCResourceStorage.h"
#include "store/SCVideoResource.h"

namespace qm {

void registerStoreArchiveClasses() {
    static std::once_flag once;
    std::call_once(once, [] {
        QVAudioFrame2::registerArchiveClass();
        KeyedUnarchiver::registerClass<SCResBlock>("SCResBlock");
        KeyedUnarchiver::registerClass<SCResourceStorage>("SCResourceStorage");
        KeyedUnarchiver::registerClass<SCAudioBlock>("SCAudioBlock");
        KeyedUnarchiver::registerClass<SCAudioResource>("SCAudioResource");
        KeyedUnarchiver::registerClass<SCVideoBlock>("SCVideoBlock");
        KeyedUnarchiver::registerClass<SCVideoResource>("SCVideoResource");
        KeyedUnarchiver::registerClass<SCImageResource>("SCImageResource");
        KeyedUnarchiver::registerClass<SCResource>("SCResource");
    });
}

// MARK: - Construction

std::shared_ptr<SCResource> SCResource::createWithAudioVideoPayloads(std::string identifier,
                                                                     std::optional<std::string> signture,
                                                                     std::shared_ptr<SCAudioResource> audio,
                                                                     std::shared_ptr<SCVideoResource> video) {
    std::shared_ptr<SCResource> resource(new SCResource());
    resource->_identifier = std::move(identifier);
    resource->_signture = std::move(signture);
    resource->_audioResource = std::move(audio);
    resource->_videoResource = std::move(video);
    resource->_creationDate = Clock::now();
    resource->_originalPath = std::string();
    resource->_humanReadableName = defaultHumanReadableName();
    return resource;
}

std::shared_ptr<SCResource> SCResource::createWithImagePayload(std::string identifier,
                                                               std::optional<std::string> signture,
                                                               std::shared_ptr<SCImageResource> image) {
    std::shared_ptr<SCResource> resource(new SCResource());
    resource->_identifier = std::move(identifier);
    resource->_signture = std::move(signture);
    resource->_humanReadableName = image ? image->name() : std::string();
    resource->_imageResource = std::move(image);
    resource->_creationDate = Clock::now();
    resource->_originalPath = std::string();
    return resource;
}

std::shared_ptr<SCResource> SCResource::createWithIdentifierSigntureAudioVideo(
    std::string identifier, std::optional<std::string> signture, std::shared_ptr<SCAudioResource> audio,
    std::shared_ptr<SCVideoResource> video) {
    return createWithAudioVideoPayloads(std::move(identifier), std::move(signture), std::move(audio),
                                        std::move(video));
}

std::shared_ptr<SCResource> SCResource::createWithIdentifierSigntureImage(std::string identifier,
                                                                          std::optional<std::string> signture,
                                                                          std::shared_ptr<SCImageResource> image) {
    return createWithImagePayload(std::move(identifier), std::move(signture), std::move(image));
}

std::shared_ptr<SCResource> SCResource::createWithIdentifierAudioVideo(std::string identifier,
                                                                       std::shared_ptr<SCAudioResource> audio,
                                                                       std::shared_ptr<SCVideoResource> video) {
    return createWithAudioVideoPayloads(std::move(identifier), std::nullopt, std::move(audio), std::move(video));
}

std::shared_ptr<SCResource> SCResource::createWithSigntureAudioVideo(std::string signture,
                                                                     std::shared_ptr<SCAudioResource> audio,
                                                                     std::shared_ptr<SCVideoResource> video) {
    return createWithAudioVideoPayloads(UUID::create().UUIDString(), std::move(signture), std::move(audio),
                                        std::move(video));
}

std::shared_ptr<SCResource> SCResource::createWithAudio(std::shared_ptr<SCAudioResource> audio,
                                                        std::shared_ptr<SCVideoResource> video) {
    return createWithAudioVideoPayloads(UUID::create().UUIDString(), std::nullopt, std::move(audio),
                                        std::move(video));
}

std::shared_ptr<SCResource> SCResource::createWithIdentifierImage(std::string identifier,
                                                                  std::shared_ptr<SCImageResource> image) {
    return createWithImagePayload(std::move(identifier), std::nullopt, std::move(image));
}

std::shared_ptr<SCResource> SCResource::createWithSigntureImage(std::string signture,
                                                                std::shared_ptr<SCImageResource> image) {
    return createWithImagePayload(UUID::create().UUIDString(), std::move(signture), std::move(image));
}

std::shared_ptr<SCResource> SCResource::createWithImage(std::shared_ptr<SCImageResource> image) {
    return createWithImagePayload(UUID::create().UUIDString(), std::nullopt, std::move(image));
}

std::string SCResource::defaultHumanReadableName() { return QMCommon::stringFromDate(Clock::now()); }

// MARK: - Archive

std::shared_ptr<SCResource> SCResource::createWithCoder(KeyedUnarchiver& coder) {
    std::shared_ptr<SCResource> resource(new SCResource());
    resource->_identifier = coder.decodeString("identifier");
    resource->_humanReadableName = coder.decodeString("humanReadableName");
    if (coder.containsValueForKey("originalPath")) resource->_originalPath = coder.decodeString("originalPath");
    resource->_audioResource = coder.decodeObjectOfClass<SCAudioResource>("audioResource");
    resource->_videoResource = coder.decodeObjectOfClass<SCVideoResource>("videoResource");
    resource->_imageResource = coder.decodeObjectOfClass<SCImageResource>("imageResource");
    if (coder.containsValueForKey("signture")) resource->_signture = coder.decodeString("signture");
    if (coder.containsValueForKey("creationDate")) {
        const std::chrono::duration<double> seconds(coder.decodeDouble("creationDate"));
        resource->_creationDate = Clock::time_point(std::chrono::duration_cast<Clock::duration>(seconds));
    }
    if (!resource->_audioResource && !resource->_videoResource && !resource->_imageResource) return nullptr;
    return resource;
}

void SCResource::encodeWithCoder(KeyedArchiver& coder) const {
    std::lock_guard<std::mutex> lock(_mutex);
    coder.encodeString("identifier", _identifier);
    coder.encodeString("humanReadableName", _humanReadableName);
    coder.encodeObject("videoResource", _videoResource);
    coder.encodeObject("imageResource", _imageResource);
    coder.encodeObject("audioResource", _audioResource);
    if (_originalPath) coder.encodeString("originalPath", *_originalPath);
    coder.encodeString("signture", signtureLocked());
    if (_creationDate) {
        coder.encodeDouble("creationDate", std::chrono::duration<double>(_creationDate->time_since_epoch()).count());
    }
}

// MARK: - Fields

std::string SCResource::signtureLocked() const {
    if (_signture) return *_signture;
    const std::string path = _originalPath.value_or(std::string());
    if (path.size() < 4) return _identifier;
    const std::string computed = QMCommon::calcSigntureWithURL(path);
    if (!computed.empty()) _signture = computed;
    return computed;
}

std::string SCResource::signture() {
    std::lock_guard<std::mutex> lock(_mutex);
    return signtureLocked();
}

SCResource::Clock::time_point SCResource::creationDate() {
    std::lock_guard<std::mutex> lock(_mutex);
    if (!_creationDate) _creationDate = Clock::now();
    return *_creationDate;
}

std::string SCResource::originalPath() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _originalPath.value_or(std::string());
}

void SCResource::setOriginalPath(const std::string& path) {
    std::lock_guard<std::mutex> lock(_mutex);
    _originalPath = path;
}

std::string SCResource::humanReadableName() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _humanReadableName;
}

void SCResource::setHumanReadableName(const std::string& name) {
    std::lock_guard<std::mutex> lock(_mutex);
    _humanReadableName = name;
}

std::shared_ptr<const Bitmap> SCResource::thumbnail() {
    if (_videoResource) return _videoResource->thumbnail();
    if (_imageResource) return _imageResource->thumbnail();
    if (_audioResource) return _audioResource->thumbnail();
    return nullptr;
}

void SCResource::invalidateResource() {
    if (_audioResource) _audioResource->invalidate();
    if (_videoResource) _videoResource->invalidate();
}

// MARK: - Codecs

std::vector<uint8_t> SCResource::encodeCGImage(const std::shared_ptr<const Bitmap>& picture) {
    return picture ? BitmapCodec::JPEGRepresentation(*picture, defaultJPEGQuality) : std::vector<uint8_t>();
}

std::shared_ptr<const Bitmap> SCResource::decodeCGImage(std::span<const uint8_t> bytes) {
    return BitmapCodec::bitmapWithData(bytes);
}

std::shared_ptr<const DeferredBitmap> SCResource::deferredCGImage(std::vector<uint8_t> bytes) {
    return BitmapCodec::deferredBitmapWithData(std::move(bytes));
}

std::vector<uint8_t> SCResource::encodeAudioFrame(const std::shared_ptr<QVAudioFrame2>& frame) {
    return QMCommon::archiveRootObject(frame);
}

std::shared_ptr<QVAudioFrame2> SCResource::decodeAudioFrame(const std::vector<uint8_t>& bytes) {
    registerStoreArchiveClasses();
    // Nothing read (a cleaned storage) is not a damaged archive.
    if (bytes.empty()) return nullptr;
    const auto coder = KeyedUnarchiver::createForReadingWithData(bytes);
    if (!coder) return nullptr;
    auto frame = coder->decodeObjectOfClass<QVAudioFrame2>(KeyedArchiver::rootKey);
    coder->finishDecoding();
    return coder->failed() ? nullptr : frame;
}

}  // namespace qm
