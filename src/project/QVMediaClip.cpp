#include "project/QVMediaClip.h"

#include <algorithm>
#include <cmath>

#include "codec/QVAudioFrame2.h"
#include "codec/QVResampleContext2.h"
#include "foundation/QMCommon.h"
#include "foundation/QVVolumeEffect.h"
#include "platform/Log.h"
#include "store/AMResourceMgr.h"
#include "store/SCAudioResource.h"
#include "store/SCImageResource.h"
#include "store/SCResource.h"
#include "store/SCThumbnailCanvas.h"
#include "store/SCVideoResource.h"

namespace qm {

namespace {

// floor(x + 0.5), as sample positions are rounded between rates.
int64_t roundHalfUp(double value) { return static_cast<int64_t>(std::floor(value + 0.5)); }

}  // namespace

// MARK: - Making

std::shared_ptr<QVMediaClip> QVMediaClip::create() { return createWithResource(nullptr); }

std::shared_ptr<QVMediaClip> QVMediaClip::createWithResource(const std::shared_ptr<SCResource>& resource,
                                                             int64_t indexOfImage) {
    std::shared_ptr<QVMediaClip> clip(new QVMediaClip());
    clip->loadDefaultSettings();
    clip->bindResource(resource, indexOfImage);
    return clip;
}

std::shared_ptr<QVMediaClip> QVMediaClip::createWithResourceIdentifier(const std::string& identifier) {
    auto resource = AMResourceMgr::resourceMgr().findResourceWithIdentifier(identifier);
    if (!resource) return nullptr;
    return createWithResource(resource);
}

void QVMediaClip::bindResource(const std::shared_ptr<SCResource>& resource, int64_t indexOfImage) {
    _resource = resource;
    _resIdentifier = resource ? resource->identifier() : std::string();
    _indexOfImageSource = indexOfImage;
    _fadeInDuration = defaultFadeDuration;
    _fadeOutDuration = defaultFadeDuration;
    loadDefaultSettings();
}

std::shared_ptr<QVMediaClip> QVMediaClip::createWithCoder(KeyedUnarchiver& coder) {
    std::shared_ptr<QVMediaClip> clip(new QVMediaClip());
    if (!clip->initWithCoder(coder)) return nullptr;
    return clip;
}

bool QVMediaClip::initWithCoder(KeyedUnarchiver& coder) {
    if (!QVClip::initWithCoder(coder)) return false;
    _resIdentifier = coder.decodeString("_resIdentifier");
    _timestampOfResource = coder.decodeInt64("timestampOfResource");
    _resource = AMResourceMgr::resourceMgr().findResourceWithIdentifier(_resIdentifier);
    if (!_resource) {
        QMLog("Can not find resource with identifier %s", _resIdentifier.c_str());
        return false;
    }
    _indexOfImageSource = coder.decodeInteger("indexOfImageSource");
    _fadeIn = coder.decodeBool("fadeIn");
    _fadeInDuration = coder.decodeInt64("durationOfFadeIn");
    _fadeOut = coder.decodeBool("fadeOut");
    _fadeOutDuration = coder.decodeInt64("durationOfFadeOut");
    return true;
}

void QVMediaClip::encodeWithCoder(KeyedArchiver& coder) const {
    QVClip::encodeWithCoder(coder);
    coder.encodeString("_resIdentifier", _resIdentifier);
    coder.encodeInt64("timestampOfResource", _timestampOfResource);
    coder.encodeInteger("indexOfImageSource", _indexOfImageSource);
    coder.encodeBool("fadeIn", _fadeIn);
    coder.encodeInt64("durationOfFadeIn", _fadeInDuration);
    coder.encodeBool("fadeOut", _fadeOut);
    coder.encodeInt64("durationOfFadeOut", _fadeOutDuration);
}

std::shared_ptr<QVClip> QVMediaClip::copy() const {
    std::shared_ptr<QVMediaClip> clip(new QVMediaClip());
    clip->loadDefaultSettings();
    copyPropertiesTo(*clip);
    clip->_resource = _resource;
    clip->_resIdentifier = _resIdentifier;
    clip->_indexOfImageSource = _indexOfImageSource;
    clip->_timestampOfResource = _timestampOfResource;
    clip->setFadeIn(_fadeIn);
    clip->setFadeOut(_fadeOut);
    clip->setDurationOfFadeIn(_fadeInDuration);
    clip->setDurationOfFadeOut(_fadeOutDuration);
    return clip;
}

// MARK: - The source

std::shared_ptr<SCAudioResource> QVMediaClip::ares() const {
    return _resource && _resource->audioExist() ? _resource->audioResource() : nullptr;
}

std::shared_ptr<SCVideoResource> QVMediaClip::vres() const {
    return _resource && _resource->videoExist() ? _resource->videoResource() : nullptr;
}

int64_t QVMediaClip::sourceDuration() const {
    if (_resource && _resource->imageExist()) return QVClip::sourceDuration();
    if (const auto video = vres()) return video->duration();
    if (const auto audio = ares()) return audio->duration();
    return 0;
}

bool QVMediaClip::audioExist() const { return _resource && _resource->audioExist(); }

bool QVMediaClip::videoExist() const { return _resource && (_resource->videoExist() || _resource->imageExist()); }

std::string QVMediaClip::title() const { return _resource ? _resource->humanReadableName() : QVClip::title(); }

Size QVMediaClip::sourceSize() const {
    if (const auto video = vres())
        return Size{static_cast<double>(video->width()), static_cast<double>(video->height())};
    if (_resource && _resource->imageExist()) {
        const auto& image = _resource->imageResource();
        return Size{static_cast<double>(image->width()), static_cast<double>(image->height())};
    }
    return QVClip::sourceSize();
}

int64_t QVMediaClip::trackTimestampToSource(int64_t timestamp) const {
    return _timestampOfResource + (timestamp - timestampOfTrack());
}

int64_t QVMediaClip::trackTimestampFromSource(int64_t timestamp) const {
    return timestampOfTrack() + (timestamp - _timestampOfResource);
}

Image QVMediaClip::imageAtSourceTimestamp(int64_t timestamp) {
    if (!videoExist()) return Image();
    if (const auto video = vres()) return video->imageAtTimestamp(timestamp);
    return _resource->imageResource()->imageAtIndex(_indexOfImageSource);
}

std::shared_ptr<const Bitmap> QVMediaClip::cgImageAtSourceTimestamp(int64_t timestamp) {
    if (!videoExist()) return nullptr;
    if (const auto video = vres()) return video->cgImageAtTimestamp(timestamp);
    return _resource->imageResource()->cgImageAtIndex(_indexOfImageSource);
}

std::shared_ptr<const Bitmap> QVMediaClip::thumbnail() {
    if (_thumbnail || !videoExist() || ignoreVideo()) return _thumbnail;
    const Rect canvas{{0, 0}, thumbnailSize};
    const auto picture = cgImageAtSourceTimestamp(0);
    const Rect from =
        picture ? QMCommon::adjustImageWithSize(
                      Size{static_cast<double>(picture->width()), static_cast<double>(picture->height())}, canvas)
                : Rect{};
    _thumbnail = SCThumbnailCanvas::drawPicture(thumbnailSize, picture, canvas, from);
    return _thumbnail;
}

// MARK: - Time on the track and in the source

QVRange QVMediaClip::resourceTimeRange() const { return QVRange(_timestampOfResource, trackDuration()); }

QVRange QVMediaClip::resourceSampleRange() const {
    const auto audio = ares();
    if (!audio) return QVRange::emptyRange();
    const int64_t rate = audio->sampleRate();
    return QVRange(QMSamplesFromTimestamp(rate, _timestampOfResource), QMSamplesFromTimestamp(rate, trackDuration()));
}

void QVMediaClip::setTimestampOfResource(int64_t timestamp) {
    storeUndoable(_timestampOfResource, timestamp, "timestampOfResource", &QVMediaClip::setTimestampOfResource);
}

void QVMediaClip::setTrackDuration(int64_t duration) {
    if (_resource && !_resource->imageExist()) {
        const auto video = vres();
        const auto audio = ares();
        if (videoExist() && video) {
            duration = std::min(duration, video->duration() - _timestampOfResource);
        } else if (!videoExist() && audio) {
            duration = std::min(duration, audio->duration() - _timestampOfResource);
        }
    }
    QVClip::setTrackDuration(duration);
}

void QVMediaClip::cutAtTimestamp(int64_t timestamp) {
    if (_resource && _resource->imageExist()) {
        QVClip::cutAtTimestamp(timestamp);
        return;
    }
    int64_t source = std::max<int64_t>(trackTimestampToSource(timestamp), 0);
    const int64_t lastSource = _timestampOfResource + trackDuration() - minClipDuration;
    if (source >= lastSource) source = lastSource;
    const int64_t cut = trackTimestampFromSource(source);
    const UndoRef undo = undoManager();
    undo.beginUndoGrouping();
    QVClip::cutAtTimestamp(cut);
    if (timestampOfTrack() == cut) {
        setTimestampOfResource(source);
    } else {
        setTimestampOfResource(source - cut + timestampOfTrack());
    }
    undo.endUndoGrouping();
}

// MARK: - Fades

void QVMediaClip::setFadeIn(bool fadeIn) { storeUndoable(_fadeIn, fadeIn, "fadeIn", &QVMediaClip::setFadeIn); }

void QVMediaClip::setFadeOut(bool fadeOut) { storeUndoable(_fadeOut, fadeOut, "fadeOut", &QVMediaClip::setFadeOut); }

void QVMediaClip::setDurationOfFadeIn(int64_t duration) {
    duration = std::max(duration, minFadeDuration);
    const int64_t other = _fadeOut ? _fadeOutDuration : 0;
    if (trackDuration() < other + duration) duration = trackDuration() - other;
    storeUndoable(_fadeInDuration, duration, "durationOfFadeIn", &QVMediaClip::setDurationOfFadeIn);
}

void QVMediaClip::setDurationOfFadeOut(int64_t duration) {
    duration = std::max(duration, minFadeDuration);
    const int64_t other = _fadeIn ? _fadeInDuration : 0;
    if (trackDuration() < other + duration) duration = trackDuration() - other;
    storeUndoable(_fadeOutDuration, duration, "durationOfFadeOut", &QVMediaClip::setDurationOfFadeOut);
}

template <class T>
void QVMediaClip::storeUndoable(T& field, const T& value, const char* key, void (QVMediaClip::*setter)(T)) {
    if (field == value) return;
    const T old = field;
    registerUndo([old, setter](QVClip& clip) { (static_cast<QVMediaClip&>(clip).*setter)(old); });
    willChangeValueForKey(key);
    field = value;
    didChangeValueForKey(key);
}

QVRange QVMediaClip::sampleRangeOfFadeInWithSampleDescription(const QVSampleDescription& description) const {
    if (!audioExist() || !_fadeIn || _fadeInDuration <= 0) return QVRange::emptyRange();
    int64_t duration = _fadeInDuration;
    if (_fadeOut && _fadeOutDuration + duration > trackDuration()) {
        duration = static_cast<int64_t>(static_cast<float>(trackDuration()) * 0.5f);
    }
    const int64_t rate = description.sampleRate();
    return QVRange(QMSamplesFromTimestamp(rate, timestampOfTrack()), QMSamplesFromTimestamp(rate, duration));
}

QVRange QVMediaClip::sampleRangeOfFadeOutWithSampleDescription(const QVSampleDescription& description) const {
    if (!audioExist() || !_fadeOut || _fadeOutDuration <= 0) return QVRange::emptyRange();
    int64_t duration = _fadeOutDuration;
    if (_fadeIn && _fadeInDuration + duration > trackDuration()) {
        duration = static_cast<int64_t>(static_cast<float>(trackDuration()) * 0.5f);
    }
    const int64_t rate = description.sampleRate();
    return QVRange(QMSamplesFromTimestamp(rate, trackTimeRange().end() - duration),
                   QMSamplesFromTimestamp(rate, duration));
}

std::shared_ptr<QVSampleBuffer> QVMediaClip::fadeVolumeSampleBuffer(const std::shared_ptr<QVSampleBuffer>& buffer,
                                                                    const QVSampleDescription& description) const {
    std::shared_ptr<QVSampleBuffer> faded = buffer;
    const QVRange fadeInRange = sampleRangeOfFadeInWithSampleDescription(description);
    if (faded->sampleRange().intersectsRange(fadeInRange)) {
        faded = QVVolumeFadeEffect::createWithStartVolume(0.0, trackVolume(), fadeInRange)->applySampleBuffer(faded);
    }
    const QVRange fadeOutRange = sampleRangeOfFadeOutWithSampleDescription(description);
    if (faded->sampleRange().intersectsRange(fadeOutRange)) {
        faded = QVVolumeFadeEffect::createWithStartVolume(trackVolume(), 0.0, fadeOutRange)->applySampleBuffer(faded);
    }
    return faded;
}

// MARK: - Sample positions

QVRange QVMediaClip::trackSampleRangeToSourceRange(const QVRange& range, const QVSampleDescription& description) const {
    const auto audio = ares();
    if (!audio) return QVRange::emptyRange();
    const int64_t sourceRate = audio->sampleRate();
    const int64_t rate = description.sampleRate();
    const int64_t resourceStart = resourceSampleRange().location();
    if (rate == sourceRate) {
        return QVRange(range.location() + resourceStart - sampleRangeWithSampleDescription(description).location(),
                       range.length());
    }
    const double ratio = static_cast<double>(sourceRate);
    const int64_t location = roundHalfUp(ratio * static_cast<double>(range.location()) / static_cast<double>(rate));
    const int64_t length = roundHalfUp(ratio * static_cast<double>(range.length()) / static_cast<double>(rate));
    const int64_t clipStart = sampleRangeWithSampleDescription(audio->sampleDescription()).location();
    return QVRange(location + resourceStart - clipStart, length);
}

QVRange QVMediaClip::trackSampleRangeFromSourceRange(const QVRange& range,
                                                     const QVSampleDescription& description) const {
    const auto audio = ares();
    if (!audio) return QVRange::emptyRange();
    const int64_t sourceRate = audio->sampleRate();
    const int64_t rate = description.sampleRate();
    const int64_t resourceStart = resourceSampleRange().location();
    const int64_t clipStart = sampleRangeWithSampleDescription(description).location();
    if (rate == sourceRate) return QVRange(clipStart + range.location() - resourceStart, range.length());
    const int64_t location =
        roundHalfUp(static_cast<double>(rate) * static_cast<double>(range.location() - resourceStart) /
                    static_cast<double>(sourceRate));
    return QVRange(location + clipStart, QMMultiplyDivide(rate, range.length(), sourceRate));
}

// MARK: - Sound

std::shared_ptr<QVResampleContext2> QVMediaClip::resampleContextWithSampleDescription(
    const QVSampleDescription& description) {
    const auto audio = ares();
    if (!audio) return nullptr;
    // The resource gives its samples packed, whatever format it names.
    const int32_t sourceFormat = QVAudioFrame2::packedSampleFormat(audio->sampleFormat());
    const auto sourceRate = static_cast<int32_t>(audio->sampleRate());
    const auto rate = static_cast<int32_t>(description.sampleRate());
    if (!_resampleContext ||
        !_resampleContext->assertSampleFormat(sourceFormat, description.sampleFormat(), audio->chsLayout(),
                                              description.channelLayout(), sourceRate, rate)) {
        _resampleContext =
            QVResampleContext2::createWithSampleFormat(sourceFormat, description.sampleFormat(), audio->chsLayout(),
                                                       description.channelLayout(), sourceRate, rate);
    }
    return _resampleContext;
}

void QVMediaClip::resetResampleContext() { _resampleContext.reset(); }

std::shared_ptr<QVSampleBuffer> QVMediaClip::sampleBufferWithRange(const QVRange& range,
                                                                   const QVSampleDescription& description,
                                                                   bool ignoreMute) {
    const auto audio = ares();
    if (!audio || (!ignoreMute && mute())) return nullptr;
    const auto wanted = sampleRangeWithSampleDescription(description).intersectionRange(range);
    if (!wanted) return nullptr;
    // Cached sound of another placement lies at the wrong track positions.
    if (_cacheSampleBuffer && _cachePlacement != std::make_pair(timestampOfTrack(), _timestampOfResource)) {
        resetSoundCache();
    }
    std::shared_ptr<QVSampleBuffer> sound;
    if (_cacheSampleBuffer && _cacheSampleBuffer->sampleRange().containRange(*wanted) &&
        _cacheSampleBuffer->sampleDescription().isEqualTo(description)) {
        sound = _cacheSampleBuffer->sampleBufferWithSubRange(*wanted);
    } else if (audio->sampleDescription().isEqualTo(description)) {
        sound = audio->sampleBufferWithRange(trackSampleRangeToSourceRange(*wanted, description));
        if (sound) sound->setSampleRange(trackSampleRangeFromSourceRange(sound->sampleRange(), description));
    } else {
        sound = resampledSound(*audio, *wanted, description);
    }
    if (!sound) return nullptr;
    return fadeVolumeSampleBuffer(volumeGain()->gainSampleBuffer(sound), description);
}

std::shared_ptr<QVSampleBuffer> QVMediaClip::resampledSound(SCAudioResource& audio, const QVRange& wanted,
                                                            const QVSampleDescription& description) {
    const QVRange source = trackSampleRangeToSourceRange(wanted, description);
    fillSoundCache(audio, nextSourceRead(source, description), wanted, description);
    std::shared_ptr<QVSampleBuffer> sound;
    if (_cacheSampleBuffer) {
        if (const auto held = _cacheSampleBuffer->sampleRange().intersectionRange(wanted)) {
            sound = _cacheSampleBuffer->sampleBufferWithSubRange(*held);
        }
    }
    trimSoundCache(description);
    return sound;
}

void QVMediaClip::resetSoundCache() {
    resetResampleContext();
    _cacheSampleBuffer.reset();
    _cacheSourceRange.reset();
}

QVRange QVMediaClip::nextSourceRead(const QVRange& source, const QVSampleDescription& description) {
    // A cache of another format cannot be continued either.
    if (!_cacheSampleBuffer || !_cacheSourceRange || !_cacheSampleBuffer->sampleDescription().isEqualTo(description)) {
        resetSoundCache();
        return source;
    }
    const int64_t readEnd = _cacheSourceRange->end();
    const int64_t jumpLimit = ares()->sampleRate() / 5;
    if (std::llabs(source.location() - readEnd) > jumpLimit || source.location() < _cacheSourceRange->location()) {
        resetSoundCache();
        return source;
    }
    int64_t length = source.end() - readEnd;
    if (length < source.length()) length = static_cast<int64_t>(static_cast<double>(source.length()) * 1.5);
    return QVRange(readEnd, length);
}

void QVMediaClip::fillSoundCache(SCAudioResource& audio, QVRange next, const QVRange& wanted,
                                 const QVSampleDescription& description) {
    while (!_cacheSampleBuffer || _cacheSampleBuffer->sampleRange().end() < wanted.end()) {
        const auto read = audio.sampleBufferWithRange(next);
        if (!read) return;
        const auto context = resampleContextWithSampleDescription(description);
        const auto frame = read->frame();
        const auto resampled = context && frame ? context->resampleFrame(*frame) : nullptr;
        if (!resampled || resampled->bytesForSample() == 0) {
            QMLog("Error resample frame.");
            return;
        }
        if (!_cacheSampleBuffer) {
            _cacheSampleBuffer = QVMutableSampleBuffer::createWithAudioFrame(
                resampled, QVRange(wanted.location(), resampled->numberOfSamples()));
            if (!_cacheSampleBuffer) return;
            _cacheSourceRange = next;
            _cachePlacement = {timestampOfTrack(), _timestampOfResource};
        } else {
            _cacheSampleBuffer->appendData(resampled->dataOfPackedSamples());
            _cacheSourceRange = QVRange(_cacheSourceRange->location(), _cacheSourceRange->length() + next.length());
        }
        next = QVRange(next.end(), next.length());
    }
}

void QVMediaClip::trimSoundCache(const QVSampleDescription& description) {
    if (!_cacheSampleBuffer || _cacheSampleBuffer->sampleRange().length() < cacheTrimThreshold) return;
    _cacheSampleBuffer->cutSamples(cacheTrimCount);
    const int64_t readEnd = _cacheSourceRange->end();
    const int64_t length = trackSampleRangeToSourceRange(_cacheSampleBuffer->sampleRange(), description).length();
    _cacheSourceRange = QVRange(readEnd - length, length);
}

// MARK: - Observation

std::any QVMediaClip::valueForKey(const std::string& key) const {
    if (key == "fadeIn") return _fadeIn;
    if (key == "fadeOut") return _fadeOut;
    if (key == "durationOfFadeIn") return _fadeInDuration;
    if (key == "durationOfFadeOut") return _fadeOutDuration;
    if (key == "timestampOfResource") return _timestampOfResource;
    return QVClip::valueForKey(key);
}

}  // namespace qm
