#include "project/QVTrack.h"

#include <algorithm>

#include "codec/QVTimebase.h"
#include "foundation/QVSampleBuffer.h"
#include "foundation/QVSampleDescription.h"
#include "foundation/QVVolumeEffect.h"
#include "platform/UUID.h"
#include "project/QVClip.h"
#include "project/QVProject.h"

namespace qm {

QVTrack::QVTrack() : _identifier(UUID::create().UUIDString()) {}

std::shared_ptr<QVTrack> QVTrack::create() { return createWithProject(nullptr); }

std::shared_ptr<QVTrack> QVTrack::createWithProject(const std::shared_ptr<QVProject>& project) {
    std::shared_ptr<QVTrack> track(new QVTrack());
    track->_owner = project;
    return track;
}

std::shared_ptr<QVTrack> QVTrack::createWithCoder(KeyedUnarchiver& coder) {
    std::shared_ptr<QVTrack> track(new QVTrack());
    track->_clips = coder.decodeObjectsOfClass<QVClip>("clips");
    track->_identifier = coder.decodeString("identifier");
    track->_validate = coder.decodeBool("validate");
    track->_mute = coder.decodeBool("mute");
    track->_ignoreVideo = coder.decodeBool("ignoreVideo");
    for (const auto& clip : track->_clips) clip->setOwner(track);
    return track;
}

std::shared_ptr<QVClip> QVTrack::firstClip() const { return _clips.empty() ? nullptr : _clips.front(); }

std::shared_ptr<QVClip> QVTrack::lastClip() const { return _clips.empty() ? nullptr : _clips.back(); }

int64_t QVTrack::duration() const { return _clips.empty() ? 0 : _clips.back()->trackTimeRange().end(); }

bool QVTrack::addClip(const std::shared_ptr<QVClip>& clip) {
    if (!clip) return false;
    const QVRange range = clip->trackTimeRange();
    std::vector<size_t> overlapping;
    for (size_t i = 0; i < _clips.size(); ++i) {
        if (!_clips[i]->trackTimeRange().intersectsRange(range)) continue;
        overlapping.push_back(i);
        if (overlapping.size() > 2) return false;
    }
    if (overlapping.empty()) {
        insertObject(clip, findPositionWithTimestamp(range.location()));
        return true;
    }
    const size_t index = overlapping.front();
    const QVRange first = _clips[index]->trackTimeRange();
    if (overlapping.size() == 1) {
        if (first.containRange(range) || range.containRange(first)) return false;
        if (first.location() < range.location()) {
            insertObject(clip, index + 1);
            return true;
        }
        if (first.location() > range.location()) {
            insertObject(clip, index);
            return true;
        }
        return false;
    }
    const QVRange last = _clips[overlapping.back()]->trackTimeRange();
    if (first.containRange(range) || range.containRange(first)) return false;
    if (last.containRange(range) || range.containRange(last)) return false;
    if (first.intersectsRange(last)) return false;
    insertObject(clip, index + 1);
    return true;
}

void QVTrack::removeClip(const std::shared_ptr<QVClip>& clip) { removeClipsObject(clip); }

bool QVTrack::containClip(const std::shared_ptr<QVClip>& clip) const {
    if (!clip) return false;
    for (const auto& candidate : _clips) {
        if (candidate->identifier() == clip->identifier()) return true;
    }
    return false;
}

std::vector<std::shared_ptr<QVClip>> QVTrack::findClipsAtTimestamp(int64_t timestamp) const {
    std::vector<std::shared_ptr<QVClip>> found;
    for (const auto& clip : _clips) {
        if (clip->trackTimeRange().containLocation(timestamp)) found.push_back(clip);
    }
    return found;
}

size_t QVTrack::findPositionWithTimestamp(int64_t timestamp) const {
    for (size_t i = 0; i < _clips.size(); ++i) {
        if (_clips[i]->timestampOfTrack() > timestamp) return i;
    }
    return _clips.size();
}

std::shared_ptr<QVClip> QVTrack::prevousClip(const std::shared_ptr<QVClip>& clip) const {
    const size_t index = indexOfObjectInClips(clip);
    if (index == QVNotFound || index == 0) return nullptr;
    return _clips[index - 1];
}

std::shared_ptr<QVClip> QVTrack::nextClip(const std::shared_ptr<QVClip>& clip) const {
    const size_t index = indexOfObjectInClips(clip);
    if (index == QVNotFound) return nullptr;
    return objectInClipsAtIndex(index + 1);
}

void QVTrack::removeGapBeforeClip(const std::shared_ptr<QVClip>& clip) {
    const size_t index = indexOfObjectInClips(clip);
    if (index == QVNotFound) return;
    const UndoRef undo = undoManager();
    undo.beginUndoGrouping();
    int64_t gap = 0;
    if (index == 0) {
        gap = clip->timestampOfTrack();
        clip->setTimestampOfTrack(0);
    } else {
        const int64_t previousEnd = _clips[index - 1]->trackTimeRange().end();
        if (previousEnd < clip->timestampOfTrack()) {
            gap = clip->timestampOfTrack() - previousEnd;
            clip->setTimestampOfTrack(previousEnd);
        }
    }
    if (gap < 1) {
        undo.endUndoGrouping();
        return;
    }
    const auto clips = _clips;
    for (size_t i = index + 1; i < clips.size(); ++i) clips[i]->setTimestampOfTrack(clips[i]->timestampOfTrack() - gap);
    undo.endUndoGrouping();
    sendTrackContentChangedMsg();
}

void QVTrack::removeAllGaps() {
    const UndoRef undo = undoManager();
    undo.beginUndoGrouping();
    int64_t shift = 0;
    const auto clips = _clips;
    for (size_t i = 0; i < clips.size(); ++i) {
        const auto& clip = clips[i];
        if (i == 0) {
            shift = clip->timestampOfTrack();
            clip->setTimestampOfTrack(0);
            continue;
        }
        const int64_t previousEnd = clips[i - 1]->trackTimeRange().end();
        if (previousEnd < clip->timestampOfTrack() - shift) {
            shift = clip->timestampOfTrack() - previousEnd;
            clip->setTimestampOfTrack(previousEnd);
        } else {
            clip->setTimestampOfTrack(clip->timestampOfTrack() - shift);
        }
    }
    undo.endUndoGrouping();
    if (shift > 0) sendTrackContentChangedMsg();
}

size_t QVTrack::indexOfObjectInClips(const std::shared_ptr<QVClip>& clip) const {
    for (size_t i = 0; i < _clips.size(); ++i) {
        if (_clips[i] == clip) return i;
    }
    return QVNotFound;
}

std::shared_ptr<QVClip> QVTrack::objectInClipsAtIndex(size_t index) const {
    return index < _clips.size() ? _clips[index] : nullptr;
}

void QVTrack::insertObject(const std::shared_ptr<QVClip>& clip, size_t index) {
    if (!clip || index > _clips.size()) return;
    clip->setOwner(shared_from_this());
    registerUndo([index](QVTrack& track) { track.removeObjectFromClipsAtIndex(index); });
    willChangeValueForKey("clips");
    _clips.insert(_clips.begin() + static_cast<std::ptrdiff_t>(index), clip);
    didChangeValueForKey("clips");
}

void QVTrack::removeObjectFromClipsAtIndex(size_t index) {
    if (index >= _clips.size()) return;
    auto clip = _clips[index];
    registerUndo([clip, index](QVTrack& track) { track.insertObject(clip, index); });
    willChangeValueForKey("clips");
    _clips.erase(_clips.begin() + static_cast<std::ptrdiff_t>(index));
    didChangeValueForKey("clips");
}

void QVTrack::addClipsObject(const std::shared_ptr<QVClip>& clip) { insertObject(clip, _clips.size()); }

void QVTrack::removeClipsObject(const std::shared_ptr<QVClip>& clip) {
    const size_t index = indexOfObjectInClips(clip);
    if (index != QVNotFound) removeObjectFromClipsAtIndex(index);
}

int64_t QVTrack::numberOfSamplesWithDescription(const QVSampleDescription& description) const {
    return QMSamplesFromTimestamp(description.sampleRate(), duration());
}

std::vector<std::shared_ptr<QVClip>> QVTrack::findClipsAtRange(const QVRange& range,
                                                               const QVSampleDescription& description) const {
    const int64_t rate = description.sampleRate();
    // A clip whose end, in samples, is at or before the range's start cannot meet it.
    auto clip = std::partition_point(_clips.begin(), _clips.end(), [&](const std::shared_ptr<QVClip>& candidate) {
        return QMSamplesFromTimestamp(rate, candidate->trackTimeRange().end()) <= range.location();
    });
    std::vector<std::shared_ptr<QVClip>> found;
    for (; clip != _clips.end(); ++clip) {
        const QVRange samples = (*clip)->sampleRangeWithSampleDescription(description);
        if (samples.location() >= range.end()) break;
        if (samples.intersectsRange(range)) found.push_back(*clip);
    }
    return found;
}

std::shared_ptr<QVSampleBuffer> QVTrack::sampleBufferWithDescription(const QVSampleDescription& description,
                                                                     const QVRange& range) const {
    if (_mute || range.location() >= numberOfSamplesWithDescription(description)) return nullptr;
    std::shared_ptr<QVSampleBuffer> mix;
    for (const auto& clip : findClipsAtRange(range, description)) {
        auto sound = clip->sampleBufferWithRange(range, description);
        if (!sound) continue;
        mix = mix ? QVVolumeEffect::mergeSampleBuffer(mix, sound) : std::move(sound);
    }
    return mix;
}

void QVTrack::storeUndoableFlag(bool& field, bool value, const char* key, void (QVTrack::*setter)(bool)) {
    if (field == value) return;
    const bool old = field;
    registerUndo([old, setter](QVTrack& track) { (track.*setter)(old); });
    willChangeValueForKey(key);
    field = value;
    didChangeValueForKey(key);
}

void QVTrack::setMute(bool mute) { storeUndoableFlag(_mute, mute, "mute", &QVTrack::setMute); }

void QVTrack::setIgnoreVideo(bool ignoreVideo) {
    storeUndoableFlag(_ignoreVideo, ignoreVideo, "ignoreVideo", &QVTrack::setIgnoreVideo);
}

void QVTrack::setValidate(bool validate) { storeUndoableFlag(_validate, validate, "validate", &QVTrack::setValidate); }

void QVTrack::setLocked(bool locked) {
    willChangeValueForKey("locked");
    _locked = locked;
    didChangeValueForKey("locked");
}

UndoRef QVTrack::undoManager() const {
    auto project = owner();
    return project ? UndoRef(project->undoManager()) : UndoRef();
}

void QVTrack::sendTrackContentChangedMsg() const {
    if (auto project = owner()) project->notifyContentChangedMsg();
}

void QVTrack::registerUndo(std::function<void(QVTrack&)> restore) {
    const UndoRef undo = undoManager();
    if (!undo) return;
    std::weak_ptr<QVTrack> weak = weak_from_this();
    undo.registerUndo(this, [weak, restore = std::move(restore)] {
        if (auto track = weak.lock()) restore(*track);
    });
}

std::any QVTrack::valueForKey(const std::string& key) const {
    if (key == "clips") return _clips;
    if (key == "mute") return _mute;
    if (key == "ignoreVideo") return _ignoreVideo;
    if (key == "validate") return _validate;
    if (key == "locked") return _locked;
    return Observable::valueForKey(key);
}

void QVTrack::encodeWithCoder(KeyedArchiver& coder) const {
    coder.encodeObjects("clips", _clips);
    coder.encodeString("identifier", _identifier);
    coder.encodeBool("ignoreVideo", _ignoreVideo);
    coder.encodeBool("mute", _mute);
    coder.encodeBool("validate", _validate);
}

}  // namespace qm
