#pragma once

#include <any>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "codec/QVTimebase.h"
#include "foundation/QVRange.h"
#include "foundation/QVSampleBuffer.h"
#include "foundation/QVSampleDescription.h"
#include "project/QVClip.h"

namespace qm {

class QVResampleContext2;
class SCAudioResource;
class SCResource;
class SCVideoResource;

// A clip whose picture and sound come from a stored resource: a video, an audio recording, or one
// picture of an image resource. The resource is bound by identifier (the only link that is
// archived); the clip starts `timestampOfResource` into it.
//
// Sound comes in any requested format. When the resource's format differs from the request, the
// clip keeps a rolling cache of resampled sound in track samples of the request, fed by one
// running resampler, so that reading forward in small blocks stays continuous. A jump back, or
// forward by more than a fifth of a second, starts over, and so does a read after the clip or its
// source offset moved. The cache is trimmed by its front half once it holds cacheTrimThreshold
// samples. One reader of a clip's sound at a time.
//
// Setters of the fades and of timestampOfResource record their inverse on the owner's undo
// manager. Observable keys, besides QVClip's: "fadeIn", "fadeOut", "durationOfFadeIn",
// "durationOfFadeOut", "timestampOfResource".
class QVMediaClip : public QVClip {
public:
    // The shortest fade the fade-length setters give before the clip's length limits them.
    static constexpr int64_t minFadeDuration = QVTimebase / 10;
    static constexpr int64_t defaultFadeDuration = 2 * QVTimebase;
    // Resampled samples the cache may hold before its front is cut, and how many are cut.
    static constexpr int64_t cacheTrimThreshold = 48000;
    static constexpr int64_t cacheTrimCount = 24000;

    // A clip without a resource: no sound and no picture.
    static std::shared_ptr<QVMediaClip> create();
    // A clip over the whole resource (from its start), showing picture `indexOfImage` of an image
    // resource.
    static std::shared_ptr<QVMediaClip> createWithResource(const std::shared_ptr<SCResource>& resource,
                                                           int64_t indexOfImage = 0);
    // The resource found by identifier in the shared AMResourceMgr; nothing when there is none.
    static std::shared_ptr<QVMediaClip> createWithResourceIdentifier(const std::string& identifier);
    // Nothing, with "Can not find resource with identifier <id>", when the resource is not in the
    // shared AMResourceMgr.
    static std::shared_ptr<QVMediaClip> createWithCoder(KeyedUnarchiver& coder);

    // Shares the resource; the sound cache, resampler and thumbnail start empty.
    std::shared_ptr<QVClip> copy() const override;

    const std::string& resIdentifier() const { return _resIdentifier; }
    const std::shared_ptr<SCResource>& resource() const { return _resource; }
    // The resource's audio, or nothing when it has none.
    std::shared_ptr<SCAudioResource> ares() const;
    // The resource's video, or nothing when it has none.
    std::shared_ptr<SCVideoResource> vres() const;
    int64_t indexOfImageSource() const { return _indexOfImageSource; }

    // Source time at the clip's start; undoable, not limited.
    int64_t timestampOfResource() const { return _timestampOfResource; }
    void setTimestampOfResource(int64_t timestamp);
    // (timestampOfResource, trackDuration).
    QVRange resourceTimeRange() const;
    // resourceTimeRange in samples of the audio's own rate; empty without sound.
    QVRange resourceSampleRange() const;

    // --- Fades (undoable).

    bool fadeIn() const { return _fadeIn; }
    void setFadeIn(bool fadeIn);
    bool fadeOut() const { return _fadeOut; }
    void setFadeOut(bool fadeOut);
    int64_t durationOfFadeIn() const { return _fadeInDuration; }
    // Raised to minFadeDuration, then lowered so that it and the fade-out (when on) fit in the
    // clip, which may leave it below minFadeDuration or negative.
    void setDurationOfFadeIn(int64_t duration);
    int64_t durationOfFadeOut() const { return _fadeOutDuration; }
    // The mirror of setDurationOfFadeIn.
    void setDurationOfFadeOut(int64_t duration);
    // The fade's stretch in track samples of the description's rate; empty without sound, with the
    // fade off or not positive. Two fades that together exceed the clip take half the clip each.
    QVRange sampleRangeOfFadeInWithSampleDescription(const QVSampleDescription& description) const;
    QVRange sampleRangeOfFadeOutWithSampleDescription(const QVSampleDescription& description) const;
    // The buffer with the fade-in and fade-out ramps applied where it meets them, on top of any
    // gain already in it.
    std::shared_ptr<QVSampleBuffer> fadeVolumeSampleBuffer(const std::shared_ptr<QVSampleBuffer>& buffer,
                                                           const QVSampleDescription& description) const;

    // --- Sample positions: track samples of a description and resource samples.

    QVRange trackSampleRangeToSourceRange(const QVRange& range, const QVSampleDescription& description) const;
    QVRange trackSampleRangeFromSourceRange(const QVRange& range, const QVSampleDescription& description) const;

    // --- The resampling cache.

    // The running resampler from the audio's format to the description's, made anew when there is
    // none or it was made for other formats; nothing when they cannot be converted.
    std::shared_ptr<QVResampleContext2> resampleContextWithSampleDescription(const QVSampleDescription& description);
    void resetResampleContext();
    // Resampled sound in track samples of the last requested format; nothing before any.
    std::shared_ptr<const QVMutableSampleBuffer> cacheSampleBuffer() const { return _cacheSampleBuffer; }
    // The resource samples that fed the cache.
    const std::optional<QVRange>& cacheSourceRange() const { return _cacheSourceRange; }

    // --- QVClip.

    int64_t sourceDuration() const override;
    bool audioExist() const override;
    bool videoExist() const override;
    std::string title() const override;
    Size sourceSize() const override;
    bool allowResizeBounds() const override { return videoExist(); }
    bool allowRotate() const override { return videoExist(); }
    bool allowMove() const override { return videoExist(); }
    // Trims the head into the source: the source time at the cut becomes timestampOfResource, never
    // below source time 0. On an image resource only the base cut.
    void cutAtTimestamp(int64_t timestamp) override;
    // Lowered first to what the source has left after timestampOfResource (not for an image), then
    // limited as any clip, so the shortest clip may run past the end of its source.
    void setTrackDuration(int64_t duration) override;
    // The clip's sound over the part of `range` it covers, in `description`, with its volume and
    // fades; nothing without sound, when muted (unless `ignoreMute`), or outside the clip.
    std::shared_ptr<QVSampleBuffer> sampleBufferWithRange(const QVRange& range, const QVSampleDescription& description,
                                                          bool ignoreMute) override;
    using QVClip::sampleBufferWithRange;
    int64_t trackTimestampToSource(int64_t timestamp) const override;
    int64_t trackTimestampFromSource(int64_t timestamp) const override;
    // The video frame at the source time, or the chosen picture of an image resource at any time.
    Image imageAtSourceTimestamp(int64_t timestamp) override;
    std::shared_ptr<const Bitmap> cgImageAtSourceTimestamp(int64_t timestamp) override;
    // The source's first picture fitted into thumbnailSize; made once, only for a clip with a
    // picture that does not ignore it. Blank when the picture does not read.
    std::shared_ptr<const Bitmap> thumbnail() override;

    std::any valueForKey(const std::string& key) const override;
    std::string archiveClassName() const override { return "QVMediaClip"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

protected:
    QVMediaClip() = default;
    bool initWithCoder(KeyedUnarchiver& coder) override;

private:
    // Binds the resource and loads the default settings again, now that the source is known.
    void bindResource(const std::shared_ptr<SCResource>& resource, int64_t indexOfImage);
    // Sound of the track samples `wanted` through the resampling cache.
    std::shared_ptr<QVSampleBuffer> resampledSound(SCAudioResource& audio, const QVRange& wanted,
                                                   const QVSampleDescription& description);
    // Drops the cache, its source range and the resampler.
    void resetSoundCache();
    // The resource samples to read next for `source`, dropping the cache when the read cannot
    // continue it.
    QVRange nextSourceRead(const QVRange& source, const QVSampleDescription& description);
    // Reads and resamples from `next` on until the cache reaches the end of `wanted` or the
    // resource gives no more.
    void fillSoundCache(SCAudioResource& audio, QVRange next, const QVRange& wanted,
                        const QVSampleDescription& description);
    // Cuts the cache's front once it holds cacheTrimThreshold samples.
    void trimSoundCache(const QVSampleDescription& description);
    // Stores a value that differs, telling observers of `key`.
    template <class T>
    void storeUndoable(T& field, const T& value, const char* key, void (QVMediaClip::*setter)(T));

    std::string _resIdentifier;
    std::shared_ptr<SCResource> _resource;
    std::shared_ptr<QVMutableSampleBuffer> _cacheSampleBuffer;
    std::optional<QVRange> _cacheSourceRange;
    // timestampOfTrack and timestampOfResource when the cache was started.
    std::pair<int64_t, int64_t> _cachePlacement;
    std::shared_ptr<QVResampleContext2> _resampleContext;
    std::shared_ptr<const Bitmap> _thumbnail;
    bool _fadeIn = false;
    int64_t _fadeInDuration = defaultFadeDuration;
    bool _fadeOut = false;
    int64_t _fadeOutDuration = defaultFadeDuration;
    int64_t _timestampOfResource = 0;
    int64_t _indexOfImageSource = 0;
};

}  // namespace qm
