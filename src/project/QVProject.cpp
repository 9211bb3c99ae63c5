#include "project/QVProject.h"

#include <chrono>
#include <cmath>
#include <limits>

#include "codec/QVTimebase.h"
#include "effects/QVTransitionInstance.h"
#include "foundation/QMCommon.h"
#include "foundation/QVSampleBuffer.h"
#include "foundation/QVSampleDescription.h"
#include "foundation/QVVolumeEffect.h"
#include "platform/Log.h"
#include "platform/NotificationCenter.h"
#include "platform/Pasteboard.h"
#include "platform/UUID.h"
#include "project/ProjectArchive.h"
#include "project/QVClip.h"
#include "project/QVTrack.h"

namespace qm {

namespace {

// Truncation toward zero, saturating where the value leaves the int64 range (NaN gives 0).
int64_t truncatedToInt64(double value) {
    if (std::isnan(value)) return 0;
    if (value >= 9223372036854775807.0) return std::numeric_limits<int64_t>::max();
    if (value <= -9223372036854775808.0) return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(value);
}

QVIndexSet allIndexes(size_t count) {
    QVIndexSet indexes;
    for (size_t i = 0; i < count; ++i) indexes.insert(indexes.end(), i);
    return indexes;
}

// True when `indexes` can take `count` insertions into a list of `size`: the k-th index (from 0)
// is at most size + k.
bool validInsertion(const QVIndexSet& indexes, size_t count, size_t size) {
    if (indexes.size() != count) return false;
    size_t k = 0;
    for (size_t index : indexes) {
        if (index > size + k) return false;
        ++k;
    }
    return true;
}

bool validRemoval(const QVIndexSet& indexes, size_t size) { return indexes.empty() || *indexes.rbegin() < size; }

template <class T>
void insertAt(std::vector<T>& list, const std::vector<T>& objects, const QVIndexSet& indexes) {
    auto object = objects.begin();
    for (size_t index : indexes) list.insert(list.begin() + static_cast<std::ptrdiff_t>(index), *object++);
}

template <class T>
std::vector<T> objectsAt(const std::vector<T>& list, const QVIndexSet& indexes) {
    std::vector<T> objects;
    for (size_t index : indexes) objects.push_back(list[index]);
    return objects;
}

template <class T>
void removeAt(std::vector<T>& list, const QVIndexSet& indexes) {
    for (auto index = indexes.rbegin(); index != indexes.rend(); ++index) {
        list.erase(list.begin() + static_cast<std::ptrdiff_t>(*index));
    }
}

}  // namespace

QVProject::QVProject(std::shared_ptr<UndoManager> undoManager)
    : _identifier(UUID::create().UUIDString()),
      _undoManager(std::move(undoManager)),
      _name(QMCommon::stringFromDate(std::chrono::system_clock::now())) {}

std::shared_ptr<QVProject> QVProject::create() { return createWithUndoManager(nullptr); }

std::shared_ptr<QVProject> QVProject::createWithUndoManager(std::shared_ptr<UndoManager> undoManager) {
    return std::shared_ptr<QVProject>(new QVProject(std::move(undoManager)));
}

std::shared_ptr<QVProject> QVProject::createWithCoder(KeyedUnarchiver& coder) {
    std::shared_ptr<QVProject> project(new QVProject(nullptr));
    project->_tracks = coder.decodeObjectsOfClass<QVTrack>("tracks");
    project->setName(coder.decodeString("name"));
    project->setOutSampleRate(coder.decodeInteger("outSampleRate"));
    project->setOutSampleFormat(static_cast<int32_t>(coder.decodeInteger("outSampleFormat")));
    project->setOutChannelCount(coder.decodeInteger("outChannelCount"));
    project->setOutVideoWidth(coder.decodeInteger("outVideoWidth"));
    project->setOutVideoHeight(coder.decodeInteger("outVideoHeight"));
    project->setOutVideoFPS(coder.decodeDouble("outVideoFPS"));
    project->setCropRect(coder.decodeRect("cropRect"));
    project->setEnableCropped(coder.decodeBool("enableCropped"));
    project->_identifier = coder.decodeString("identifier");
    project->setCurrentTimestamp(coder.decodeInt64("currentTimestamp"));
    project->_selection = coder.decodeObjectsOfClass<QVClip>("selection");
    project->setBackgroundColor(coder.decodeColor("backgroundColor"));
    for (const auto& track : project->_tracks) track->setOwner(project);
    project->setEdited(false);
    return project;
}

void QVProject::encodeWithCoder(KeyedArchiver& coder) const {
    coder.encodeObjects("tracks", _tracks);
    coder.encodeString("identifier", _identifier);
    coder.encodeInt64("currentTimestamp", _currentTimestamp);
    coder.encodeDouble("outVideoFPS", _outVideoFPS);
    coder.encodeInteger("outVideoWidth", _outVideoWidth);
    coder.encodeInteger("outVideoHeight", _outVideoHeight);
    coder.encodeInteger("outChannelCount", _outChannelCount);
    coder.encodeInteger("outSampleRate", _outSampleRate);
    coder.encodeInteger("outSampleFormat", _outSampleFormat);
    coder.encodeObjects("selection", _selection);
    coder.encodeRect("cropRect", _cropRect);
    coder.encodeBool("enableCropped", _enableCropped);
    coder.encodeColor("backgroundColor", _backgroundColor);
    if (!_name.empty()) coder.encodeString("name", _name);
}

// --- Content messages.

void QVProject::notifyAudioContentChangedMsg() {
    NotificationCenter::defaultCenter().postOnMainQueue(QVProjectAudioContentChanged, this);
    setEdited(true);
}

void QVProject::notifyVideoContentChangedMsg() {
    NotificationCenter::defaultCenter().postOnMainQueue(QVProjectVideoContentChanged, this);
    setEdited(true);
}

void QVProject::notifyContentChangedMsg() {
    notifyVideoContentChangedMsg();
    notifyAudioContentChangedMsg();
    setEdited(true);
}

// --- Edits.

void QVProject::placeClip(const std::shared_ptr<QVClip>& clip) {
    for (const auto& track : tracks()) {
        if (track->addClip(clip)) return;
    }
    auto track = QVTrack::create();
    insertObjectInTracksAtIndex(track, 0);
    if (!track->addClip(clip)) QMLog("Impossible status.");
}

void QVProject::addClip(const std::shared_ptr<QVClip>& clip) {
    const UndoRef undo(undoManager());
    undo.beginUndoGrouping();
    placeClip(clip);
    undo.endUndoGrouping();
    notifyContentChangedMsg();
}

void QVProject::addClips(const std::vector<std::shared_ptr<QVClip>>& clips) {
    const UndoRef undo(undoManager());
    undo.beginUndoGrouping();
    for (const auto& clip : clips) placeClip(clip);
    undo.endUndoGrouping();
    notifyContentChangedMsg();
}

void QVProject::detachClip(const std::shared_ptr<QVClip>& clip) {
    auto track = clip->owner();
    if (!track) return;
    track->removeClip(clip);
    if (!track->firstClip()) removeTracksObject(track);
}

void QVProject::removeClip(const std::shared_ptr<QVClip>& clip) {
    const UndoRef undo(undoManager());
    undo.beginUndoGrouping();
    detachClip(clip);
    if (clipIsSelected(clip)) removeSelectedClip(clip);
    undo.endUndoGrouping();
    notifyContentChangedMsg();
}

void QVProject::removeClips(const std::vector<std::shared_ptr<QVClip>>& clips) {
    const UndoRef undo(undoManager());
    undo.beginUndoGrouping();
    for (const auto& clip : clips) {
        detachClip(clip);
        if (clipIsSelected(clip)) removeSelectedClip(clip);
    }
    undo.endUndoGrouping();
    notifyContentChangedMsg();
}

void QVProject::removeSelectedClips() {
    const UndoRef undo(undoManager());
    undo.beginUndoGrouping();
    for (const auto& clip : selection()) detachClip(clip);
    setSelection({});
    undo.endUndoGrouping();
    notifyContentChangedMsg();
}

void QVProject::removeAllGaps() {
    const UndoRef undo(undoManager());
    undo.beginUndoGrouping();
    for (const auto& track : tracks()) track->removeAllGaps();
    undo.endUndoGrouping();
    notifyContentChangedMsg();
}

void QVProject::removeEmptyTrack() {
    QVIndexSet empty;
    for (size_t i = 0; i < _tracks.size(); ++i) {
        if (_tracks[i]->duration() < 1) empty.insert(i);
    }
    removeTracksAtIndexes(empty);
}

void QVProject::clearData() {
    removeTracksAtIndexes(allIndexes(_tracks.size()));
    notifyContentChangedMsg();
}

void QVProject::splitClip(const std::shared_ptr<QVClip>& clip, int64_t timestamp) {
    const int64_t min = QVClip::minClipDuration;
    const QVRange range = clip->trackTimeRange();
    if (!range.containLocation(timestamp)) return;
    if (timestamp - range.location() < min || range.end() - timestamp < min) return;

    auto left = clip->copy();
    left->setTrackDuration(timestamp - left->timestampOfTrack());
    clip->cutAtTimestamp(timestamp);
    if (clip->timestampOfTrack() != timestamp) {
        left->setTrackDuration(clip->timestampOfTrack() - left->timestampOfTrack());
    }
    auto track = clip->owner();
    left->setOwner(track);
    if (!track || !track->addClip(left)) addClip(left);
}

void QVProject::splitSelectedClipAtCurrentTime() {
    const UndoRef undo(undoManager());
    undo.beginUndoGrouping();
    for (const auto& clip : selection()) splitClip(clip, _currentTimestamp);
    undo.endUndoGrouping();
    notifyContentChangedMsg();
}

// --- Pasteboard.

void QVProject::cutSelectedClips() {
    copySelectedClips();
    removeSelectedClips();
}

void QVProject::copySelectedClips() {
    Pasteboard& pasteboard = Pasteboard::generalPasteboard();
    pasteboard.declareTypes({kQVCopyDataCoding});
    std::vector<std::shared_ptr<QVClip>> copies;
    for (const auto& clip : _selection) copies.push_back(clip->copy());
    pasteboard.setData(QMCommon::archiveRootObject(ArchivedList::createWithObjects(copies)), kQVCopyDataCoding);
}

void QVProject::pasteClips() {
    const auto bytes = Pasteboard::generalPasteboard().dataForType(kQVCopyDataCoding);
    if (!bytes) return;
    registerProjectArchiveClasses();
    auto list = std::dynamic_pointer_cast<ArchivedList>(QMCommon::unarchiveObjectWithData(*bytes));
    if (!list) return;
    std::vector<std::shared_ptr<QVClip>> copies;
    for (const auto& clip : list->objectsOfClass<QVClip>()) {
        auto copy = clip->copy();
        copy->setTimestampOfTrack(_currentTimestamp);
        copies.push_back(std::move(copy));
    }
    const UndoRef undo(undoManager());
    undo.beginUndoGrouping();
    addClips(copies);
    setSelection(copies);
    undo.endUndoGrouping();
}

bool QVProject::canPaste() const {
    return Pasteboard::generalPasteboard().availableTypeFromArray({kQVCopyDataCoding}).has_value();
}

// --- Selection.

void QVProject::setSelection(const std::vector<std::shared_ptr<QVClip>>& clips) {
    if (!_selection.empty()) removeSelectionAtIndexes(allIndexes(_selection.size()));
    if (!clips.empty()) insertSelection(clips, allIndexes(clips.size()));
}

void QVProject::selectAllClips() {
    const UndoRef undo(undoManager());
    undo.beginUndoGrouping();
    std::vector<std::shared_ptr<QVClip>> all;
    for (const auto& track : _tracks) {
        for (auto& clip : track->clips()) all.push_back(std::move(clip));
    }
    setSelection(all);
    undo.endUndoGrouping();
}

void QVProject::applyTransitionName(const std::optional<std::string>& name) {
    const UndoRef undo(undoManager());
    undo.beginUndoGrouping();
    for (const auto& track : _tracks) {
        for (const auto& clip : track->clips()) {
            if (!clip->videoExist()) continue;
            if (name) {
                clip->transitionInstance()->setTransitionName(*name);
            } else {
                clip->transitionInstance()->randomTransition();
            }
        }
    }
    undo.endUndoGrouping();
}

void QVProject::randomTransitionName() { applyTransitionName(std::nullopt); }

bool QVProject::clipIsSelected(const std::shared_ptr<QVClip>& clip) const {
    for (const auto& selected : _selection) {
        if (selected == clip) return true;
    }
    return false;
}

void QVProject::addSelectionClip(const std::shared_ptr<QVClip>& clip) {
    insertObjectInSelectionAtIndex(clip, _selection.size());
}

void QVProject::removeSelectedClip(const std::shared_ptr<QVClip>& clip) {
    for (size_t i = 0; i < _selection.size(); ++i) {
        if (_selection[i] == clip) {
            removeObjectFromSelectionAtIndex(i);
            return;
        }
    }
}

void QVProject::insertObjectInSelectionAtIndex(const std::shared_ptr<QVClip>& clip, size_t index) {
    if (!clip || index > _selection.size()) return;
    registerUndo([index](QVProject& project) { project.removeObjectFromSelectionAtIndex(index); });
    willChangeValueForKey("selection");
    _selection.insert(_selection.begin() + static_cast<std::ptrdiff_t>(index), clip);
    didChangeValueForKey("selection");
}

void QVProject::removeObjectFromSelectionAtIndex(size_t index) {
    if (index >= _selection.size()) return;
    auto clip = _selection[index];
    registerUndo([clip, index](QVProject& project) { project.insertObjectInSelectionAtIndex(clip, index); });
    willChangeValueForKey("selection");
    _selection.erase(_selection.begin() + static_cast<std::ptrdiff_t>(index));
    didChangeValueForKey("selection");
}

void QVProject::insertSelection(const std::vector<std::shared_ptr<QVClip>>& clips, const QVIndexSet& indexes) {
    if (!validInsertion(indexes, clips.size(), _selection.size())) return;
    registerUndo([indexes](QVProject& project) { project.removeSelectionAtIndexes(indexes); });
    willChangeValueForKey("selection");
    insertAt(_selection, clips, indexes);
    didChangeValueForKey("selection");
}

void QVProject::removeSelectionAtIndexes(const QVIndexSet& indexes) {
    if (!validRemoval(indexes, _selection.size())) return;
    const auto removed = objectsAt(_selection, indexes);
    registerUndo([removed, indexes](QVProject& project) { project.insertSelection(removed, indexes); });
    willChangeValueForKey("selection");
    removeAt(_selection, indexes);
    didChangeValueForKey("selection");
}

// --- Tracks.

void QVProject::setTracks(const std::vector<std::shared_ptr<QVTrack>>& tracks) {
    if (!_tracks.empty()) removeTracksAtIndexes(allIndexes(_tracks.size()));
    if (!tracks.empty()) insertTracks(tracks, allIndexes(tracks.size()));
}

std::shared_ptr<QVTrack> QVProject::findTrackWithClip(const std::shared_ptr<QVClip>& clip) const {
    const size_t index = indexOfTrackWithClip(clip);
    return index == QVNotFound ? nullptr : _tracks[index];
}

size_t QVProject::indexOfTrackWithClip(const std::shared_ptr<QVClip>& clip) const {
    for (size_t i = 0; i < _tracks.size(); ++i) {
        if (_tracks[i]->containClip(clip)) return i;
    }
    return QVNotFound;
}

size_t QVProject::indexOfObjectInTracks(const std::shared_ptr<QVTrack>& track) const {
    for (size_t i = 0; i < _tracks.size(); ++i) {
        if (_tracks[i] == track) return i;
    }
    return QVNotFound;
}

std::shared_ptr<QVTrack> QVProject::objectInTracksAtIndex(size_t index) const {
    return index < _tracks.size() ? _tracks[index] : nullptr;
}

void QVProject::addTracksObject(const std::shared_ptr<QVTrack>& track) {
    insertObjectInTracksAtIndex(track, _tracks.size());
}

void QVProject::removeTracksObject(const std::shared_ptr<QVTrack>& track) {
    const size_t index = indexOfObjectInTracks(track);
    if (index != QVNotFound) removeObjectFromTracksAtIndex(index);
}

bool QVProject::removeTrack(const std::shared_ptr<QVTrack>& track) {
    const size_t index = indexOfObjectInTracks(track);
    if (index == QVNotFound) return false;
    removeObjectFromTracksAtIndex(index);
    return true;
}

void QVProject::insertObjectInTracksAtIndex(const std::shared_ptr<QVTrack>& track, size_t index) {
    if (!track || index > _tracks.size()) return;
    track->setOwner(shared_from_this());
    registerUndo([index](QVProject& project) { project.removeObjectFromTracksAtIndex(index); });
    willChangeValueForKey("tracks");
    _tracks.insert(_tracks.begin() + static_cast<std::ptrdiff_t>(index), track);
    didChangeValueForKey("tracks");
}

void QVProject::removeObjectFromTracksAtIndex(size_t index) {
    if (index >= _tracks.size()) return;
    auto track = _tracks[index];
    registerUndo([track, index](QVProject& project) { project.insertObjectInTracksAtIndex(track, index); });
    willChangeValueForKey("tracks");
    _tracks.erase(_tracks.begin() + static_cast<std::ptrdiff_t>(index));
    didChangeValueForKey("tracks");
}

void QVProject::insertTracks(const std::vector<std::shared_ptr<QVTrack>>& tracks, const QVIndexSet& indexes) {
    if (!validInsertion(indexes, tracks.size(), _tracks.size())) return;
    registerUndo([indexes](QVProject& project) { project.removeTracksAtIndexes(indexes); });
    willChangeValueForKey("tracks");
    insertAt(_tracks, tracks, indexes);
    didChangeValueForKey("tracks");
}

void QVProject::removeTracksAtIndexes(const QVIndexSet& indexes) {
    if (!validRemoval(indexes, _tracks.size())) return;
    const auto removed = objectsAt(_tracks, indexes);
    registerUndo([removed, indexes](QVProject& project) { project.insertTracks(removed, indexes); });
    willChangeValueForKey("tracks");
    removeAt(_tracks, indexes);
    didChangeValueForKey("tracks");
}

void QVProject::replaceObjectInTracksAtIndex(size_t index, const std::shared_ptr<QVTrack>& track) {
    if (!track || index >= _tracks.size()) return;
    auto old = _tracks[index];
    registerUndo([old, index](QVProject& project) { project.replaceObjectInTracksAtIndex(index, old); });
    willChangeValueForKey("tracks");
    _tracks[index] = track;
    didChangeValueForKey("tracks");
}

// --- Derived values.

int64_t QVProject::duration() const {
    int64_t longest = 0;
    for (const auto& track : _tracks) longest = std::max(longest, track->duration());
    return longest;
}

int64_t QVProject::numberOfSamplesWithDescription(const QVSampleDescription& description) const {
    return QMSamplesFromTimestamp(description.sampleRate(), duration());
}

std::shared_ptr<QVSampleBuffer> QVProject::sampleBufferWithDescription(const QVSampleDescription& description,
                                                                       const QVRange& range) const {
    if (range.location() >= numberOfSamplesWithDescription(description)) return nullptr;
    std::shared_ptr<QVSampleBuffer> mix;
    for (const auto& track : _tracks) {
        auto sound = track->sampleBufferWithDescription(description, range);
        if (!sound) continue;
        mix = mix ? QVVolumeEffect::mergeSampleBuffer(mix, sound) : std::move(sound);
    }
    if (!mix) return QVSampleBuffer::silentSampleBufferWithDescription(description, range);
    if (mix->sampleRange().isEqualRange(range)) return mix;
    const QVRange mixed = mix->sampleRange();
    if (mixed.location() > range.location()) {
        const auto head = QVSampleBuffer::silentSampleBufferWithDescription(
            description, QVRange(range.location(), mixed.location() - range.location()));
        mix = QVSampleBuffer::appendSampleData(mix->data(), head);
    }
    if (mixed.end() < range.end()) {
        const auto tail = QVSampleBuffer::silentSampleBufferWithDescription(
            description, QVRange(mixed.end(), range.end() - mixed.end()));
        mix = QVSampleBuffer::appendSampleData(tail->data(), mix);
    }
    return mix;
}

Rect QVProject::outBounds() const {
    return Rect{{0, 0}, {static_cast<double>(_outVideoWidth), static_cast<double>(_outVideoHeight)}};
}

std::vector<std::shared_ptr<QVClip>> QVProject::currentClips() const {
    std::vector<std::shared_ptr<QVClip>> clips;
    for (const auto& track : _tracks) {
        for (auto& clip : track->findClipsAtTimestamp(_currentTimestamp)) clips.push_back(std::move(clip));
    }
    return clips;
}

int64_t QVProject::durationOfFrame() const {
    if (std::fabs(_outVideoFPS) > 0) return truncatedToInt64(static_cast<double>(QVTimebase) / _outVideoFPS);
    QMLog("Warning, out video FPS is zero.");
    return truncatedToInt64(static_cast<float>(QVTimebase) / 25.0f);
}

// --- The playhead and settings.

template <class T>
void QVProject::store(T& field, const T& value, const char* key) {
    willChangeValueForKey(key);
    field = value;
    didChangeValueForKey(key);
}

void QVProject::setCurrentTimestamp(int64_t timestamp) {
    if (timestamp < 0) timestamp = 0;
    if (timestamp == _currentTimestamp) return;
    if (!_notAllowUndo) {
        const int64_t old = _currentTimestamp;
        registerUndo([old](QVProject& project) { project.setCurrentTimestamp(old); });
    }
    store(_currentTimestamp, timestamp, "currentTimestamp");
}

void QVProject::setNotAllowUndo(bool notAllowUndo) { store(_notAllowUndo, notAllowUndo, "notAllowUndo"); }

void QVProject::setOutVideoWidth(int64_t width) {
    const auto least = static_cast<int64_t>(miniSupportOutSize.width);
    store(_outVideoWidth, width < least ? least : width, "outVideoWidth");
}

void QVProject::setOutVideoHeight(int64_t height) {
    const auto least = static_cast<int64_t>(miniSupportOutSize.height);
    store(_outVideoHeight, height < least ? least : height, "outVideoHeight");
}

void QVProject::setOutVideoFPS(double fps) { store(_outVideoFPS, fps, "outVideoFPS"); }

void QVProject::setOutSampleRate(int64_t rate) { store(_outSampleRate, rate, "outSampleRate"); }

void QVProject::setOutChannelCount(int64_t count) { store(_outChannelCount, count, "outChannelCount"); }

void QVProject::setOutSampleFormat(int32_t format) { store(_outSampleFormat, format, "outSampleFormat"); }

void QVProject::setCropRect(const Rect& rect) { store(_cropRect, rect, "cropRect"); }

void QVProject::setEnableCropped(bool enable) { store(_enableCropped, enable, "enableCropped"); }

void QVProject::setBackgroundColor(const std::optional<Color>& color) {
    store(_backgroundColor, color, "backgroundColor");
}

void QVProject::setName(const std::string& name) { store(_name, name, "name"); }

void QVProject::setEdited(bool edited) { store(_edited, edited, "edited"); }

std::shared_ptr<UndoManager> QVProject::undoManager() const {
    if (!_undoManager) _undoManager = std::make_shared<UndoManager>();
    return _undoManager;
}

void QVProject::registerUndo(std::function<void(QVProject&)> restore) {
    std::weak_ptr<QVProject> weak = weak_from_this();
    undoManager()->registerUndo(this, [weak, restore = std::move(restore)] {
        if (auto project = weak.lock()) restore(*project);
    });
}

// --- Observation.

std::any QVProject::valueForKey(const std::string& key) const {
    if (key == "tracks") return _tracks;
    if (key == "selection") return _selection;
    if (key == "currentTimestamp") return _currentTimestamp;
    if (key == "duration") return duration();
    if (key == "outVideoWidth") return _outVideoWidth;
    if (key == "outVideoHeight") return _outVideoHeight;
    if (key == "outBounds") return outBounds();
    if (key == "canCut") return canCut();
    if (key == "canCopy") return canCopy();
    if (key == "edited") return _edited;
    if (key == "name") return _name;
    if (key == "notAllowUndo") return _notAllowUndo;
    if (key == "outVideoFPS") return _outVideoFPS;
    if (key == "outSampleRate") return _outSampleRate;
    if (key == "outChannelCount") return _outChannelCount;
    if (key == "outSampleFormat") return _outSampleFormat;
    if (key == "cropRect") return _cropRect;
    if (key == "enableCropped") return _enableCropped;
    if (key == "backgroundColor") return _backgroundColor;
    return Observable::valueForKey(key);
}

std::vector<std::string> QVProject::keyPathsForValuesAffectingValueForKey(const std::string& key) const {
    if (key == "outBounds") return {"outVideoWidth", "outVideoHeight"};
    if (key == "duration") return {"tracks"};
    if (key == "canCut" || key == "canCopy") return {"selection"};
    return Observable::keyPathsForValuesAffectingValueForKey(key);
}

}  // namespace qm
