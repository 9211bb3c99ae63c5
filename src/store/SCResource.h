#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "image/DeferredBitmap.h"
#include "platform/Bitmap.h"
#include "platform/Geometry.h"
#include "platform/KeyedArchiver.h"

namespace qm {

class QVAudioFrame2;
class SCAudioResource;
class SCImageResource;
class SCVideoResource;

// Registers every archive class of the resource store (and QVAudioFrame2) for reading. Runs
// once per process; call it before decoding anything that holds store objects.
void registerStoreArchiveClasses();

// The record of one piece of source material: identifier, content signature, display name,
// and up to three payloads (stored audio, stored video, a picture file). A recording or a
// movie has audio, video or both; a picture has an image. Identifier and payloads never change;
// the path and name may be set from any thread.
//
// Archived as "SCResource" with "identifier", "humanReadableName", the payloads present
// ("videoResource", "imageResource", "audioResource"), "originalPath" if set, "signture" and
// "creationDate" (seconds since 1970 as a double). A record whose payloads all fail to come
// back reads as nothing.
class SCResource : public Archivable {
public:
    using Clock = std::chrono::system_clock;

    static std::shared_ptr<SCResource> createWithIdentifierSigntureAudioVideo(
        std::string identifier, std::optional<std::string> signture, std::shared_ptr<SCAudioResource> audio,
        std::shared_ptr<SCVideoResource> video);
    static std::shared_ptr<SCResource> createWithIdentifierSigntureImage(std::string identifier,
                                                                         std::optional<std::string> signture,
                                                                         std::shared_ptr<SCImageResource> image);
    static std::shared_ptr<SCResource> createWithIdentifierAudioVideo(std::string identifier,
                                                                      std::shared_ptr<SCAudioResource> audio,
                                                                      std::shared_ptr<SCVideoResource> video);
    static std::shared_ptr<SCResource> createWithSigntureAudioVideo(std::string signture,
                                                                    std::shared_ptr<SCAudioResource> audio,
                                                                    std::shared_ptr<SCVideoResource> video);
    static std::shared_ptr<SCResource> createWithAudio(std::shared_ptr<SCAudioResource> audio,
                                                       std::shared_ptr<SCVideoResource> video);
    static std::shared_ptr<SCResource> createWithIdentifierImage(std::string identifier,
                                                                 std::shared_ptr<SCImageResource> image);
    static std::shared_ptr<SCResource> createWithSigntureImage(std::string signture,
                                                               std::shared_ptr<SCImageResource> image);
    static std::shared_ptr<SCResource> createWithImage(std::shared_ptr<SCImageResource> image);
    static std::shared_ptr<SCResource> createWithCoder(KeyedUnarchiver& coder);

    // The short date and time of now, the name of a new recording.
    static std::string defaultHumanReadableName();

    const std::string& identifier() const { return _identifier; }
    // The stored signature; else the identifier while the path is shorter than 4 characters;
    // else the signature of the file at the path, which is then stored.
    std::string signture();
    // When the record was made; a record read without one gets now, at the first read.
    Clock::time_point creationDate();
    std::string originalPath() const;
    void setOriginalPath(const std::string& path);
    std::string humanReadableName() const;
    void setHumanReadableName(const std::string& name);

    const std::shared_ptr<SCAudioResource>& audioResource() const { return _audioResource; }
    const std::shared_ptr<SCVideoResource>& videoResource() const { return _videoResource; }
    const std::shared_ptr<SCImageResource>& imageResource() const { return _imageResource; }
    bool audioExist() const { return _audioResource != nullptr; }
    bool videoExist() const { return _videoResource != nullptr; }
    bool imageExist() const { return _imageResource != nullptr; }

    // The poster of the video payload, else of the image, else of the audio; else nothing.
    std::shared_ptr<const Bitmap> thumbnail();
    // Deletes the cache files of the audio and video payloads (a picture file is not the store's).
    void invalidateResource();

    // Poster size: 400 by 300.
    static Size thumbnailSize() { return {400.0, 300.0}; }
    // JPEG quality of encodeCGImage.
    static constexpr int defaultJPEGQuality = 80;
    // JPEG bytes of a picture; empty for nothing.
    static std::vector<uint8_t> encodeCGImage(const std::shared_ptr<const Bitmap>& picture);
    // The picture of JPEG bytes; nothing when they do not decode.
    static std::shared_ptr<const Bitmap> decodeCGImage(std::span<const uint8_t> bytes);
    // The same picture, decoded when first used; nothing when its header does not read.
    static std::shared_ptr<const DeferredBitmap> deferredCGImage(std::vector<uint8_t> bytes);
    // The keyed archive of one audio frame, as stored in an audio block.
    static std::vector<uint8_t> encodeAudioFrame(const std::shared_ptr<QVAudioFrame2>& frame);
    // The frame of such an archive; nothing for damaged bytes or an archive of another class.
    static std::shared_ptr<QVAudioFrame2> decodeAudioFrame(const std::vector<uint8_t>& bytes);

    std::string archiveClassName() const override { return "SCResource"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

private:
    SCResource() = default;
    static std::shared_ptr<SCResource> createWithAudioVideoPayloads(std::string identifier,
                                                                    std::optional<std::string> signture,
                                                                    std::shared_ptr<SCAudioResource> audio,
                                                                    std::shared_ptr<SCVideoResource> video);
    static std::shared_ptr<SCResource> createWithImagePayload(std::string identifier,
                                                              std::optional<std::string> signture,
                                                              std::shared_ptr<SCImageResource> image);
    std::string signtureLocked() const;

    std::string _identifier;
    std::shared_ptr<SCAudioResource> _audioResource;
    std::shared_ptr<SCVideoResource> _videoResource;
    std::shared_ptr<SCImageResource> _imageResource;
    // Guards the fields below, which change after construction.
    mutable std::mutex _mutex;
    mutable std::optional<std::string> _signture;
    std::optional<Clock::time_point> _creationDate;
    std::optional<std::string> _originalPath;
    std::string _humanReadableName;
};

}  // namespace qm
