#pragma once

#include <any>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "image/Image.h"
#include "platform/KeyedArchiver.h"
#include "platform/Observable.h"
#include "platform/UndoManager.h"

namespace qm {

class QVClip;
class QVProject;
class QVRange;
class QVSampleBuffer;
class QVSampleDescription;

// The index that answers "not found": the largest signed 64-bit value.
inline constexpr size_t QVNotFound = 0x7fffffffffffffff;

// A time-ordered list of clips under the placement rule: a clip may lie alone or overlap one
// neighbour on each side, never more than two clips at one moment. An overlap of two clips is the
// transition between them. A clip that would break the rule is refused, never trimmed or moved.
//
// Kept by this class and the clip setters: clips sorted by start, no two with one start, no clip
// containing another, clip n + 2 starting at or after the end of clip n, the last clip ending last.
//
// insertObject and removeObjectFromClipsAtIndex are the only two ways the list changes; they
// record their inverse on the project's undo manager and tell observers of "clips". Observable
// keys: "clips", "mute", "ignoreVideo", "validate", "locked".
class QVTrack : public Observable, public Archivable, public std::enable_shared_from_this<QVTrack> {
public:
    // An empty track without a project.
    static std::shared_ptr<QVTrack> create();
    // An empty track owned by `project`.
    static std::shared_ptr<QVTrack> createWithProject(const std::shared_ptr<QVProject>& project);
    // Reads the clips and flags and owns the clips; the placement rule is not run.
    static std::shared_ptr<QVTrack> createWithCoder(KeyedUnarchiver& coder);

    QVTrack(const QVTrack&) = delete;
    QVTrack& operator=(const QVTrack&) = delete;

    // A new list with the same clips.
    std::vector<std::shared_ptr<QVClip>> clips() const { return _clips; }
    std::shared_ptr<QVClip> firstClip() const;
    std::shared_ptr<QVClip> lastClip() const;
    // End of the last clip; 0 when empty.
    int64_t duration() const;

    // The placement rule. True when the clip was inserted (and this track became its owner); on
    // refusal nothing changes. Opens no undo group and sends no content message.
    bool addClip(const std::shared_ptr<QVClip>& clip);
    // Same as removeClipsObject.
    void removeClip(const std::shared_ptr<QVClip>& clip);
    // True if a clip here has the same identifier.
    bool containClip(const std::shared_ptr<QVClip>& clip) const;
    // The clips whose range contains `timestamp`, in list order.
    std::vector<std::shared_ptr<QVClip>> findClipsAtTimestamp(int64_t timestamp) const;
    // The index of the first clip starting after `timestamp`; the count if there is none.
    size_t findPositionWithTimestamp(int64_t timestamp) const;
    // The neighbours of a clip on this track; nothing at the ends and for a clip not on it.
    std::shared_ptr<QVClip> prevousClip(const std::shared_ptr<QVClip>& clip) const;
    std::shared_ptr<QVClip> nextClip(const std::shared_ptr<QVClip>& clip) const;

    // Closes the gap before `clip` by moving it and every later clip back; one undo group, and a
    // content message when there was a gap.
    void removeGapBeforeClip(const std::shared_ptr<QVClip>& clip);
    // Closes every gap, keeping overlaps at their size; one undo group, and a content message
    // when clips were shifted.
    void removeAllGaps();

    // By identity; QVNotFound when absent.
    size_t indexOfObjectInClips(const std::shared_ptr<QVClip>& clip) const;
    // Nothing when `index` is out of range.
    std::shared_ptr<QVClip> objectInClipsAtIndex(size_t index) const;
    // Makes this track the clip's owner, records the removal for undo, inserts. An index past the
    // end is ignored.
    void insertObject(const std::shared_ptr<QVClip>& clip, size_t index);
    // Records the insertion for undo, removes; the clip keeps this track as its owner. An index
    // out of range is ignored.
    void removeObjectFromClipsAtIndex(size_t index);
    // Appends without the placement rule.
    void addClipsObject(const std::shared_ptr<QVClip>& clip);
    // Removes the clip if it is here.
    void removeClipsObject(const std::shared_ptr<QVClip>& clip);

    // sampleRate * duration / QVTimebase.
    int64_t numberOfSamplesWithDescription(const QVSampleDescription& description) const;
    // The clips whose stretch in samples of the description's rate meets `range`, in list order.
    // Found by bisection: the placement rule keeps the clips' ends ascending.
    std::vector<std::shared_ptr<QVClip>> findClipsAtRange(const QVRange& range,
                                                          const QVSampleDescription& description) const;
    // The sound of the clips meeting `range`, merged by QVVolumeEffect::mergeSampleBuffer, from the
    // first to the last delivered sample. Nothing when the track is muted, when `range` starts at or
    // past the track's end, or when no clip sounds there. A gap of over a tenth of a second between
    // clips loses what was merged before it.
    std::shared_ptr<QVSampleBuffer> sampleBufferWithDescription(const QVSampleDescription& description,
                                                                const QVRange& range) const;

    // The picture of the track at `timestamp`, a lazy graph; nothing where no clip shows. One clip
    // gives its own picture, or turns into the project's background over the last
    // transitionToTileLength of it when its transition allows that; two clips give their
    // transition. With two clips of one start, logs "Warning: Clip track start can not be same at
    // the same track." and gives the first; with more than two, logs "At the same time clip count
    // can not over 2." and gives nothing.
    Image imageAtTimestamp(int64_t timestamp) const;
    // The overlap of `earlier` into `later` at `timestamp`: makes `later` the end clip of the
    // earlier clip's transition, then draws the transition at (timestamp - trackStart) /
    // trackLength. Without a valid transition, the earlier clip's picture if it has one, else the
    // later's; with a transition of no length, logs "Error transition length." and gives the later's.
    Image transitionClip(const std::shared_ptr<QVClip>& earlier, const std::shared_ptr<QVClip>& later,
                         int64_t timestamp) const;

    // Undoable flags: each records its old value when the value changes.
    bool mute() const { return _mute; }
    void setMute(bool mute);
    bool ignoreVideo() const { return _ignoreVideo; }
    void setIgnoreVideo(bool ignoreVideo);
    bool validate() const { return _validate; }
    void setValidate(bool validate);

    // For the interface only: not undoable, not archived.
    bool locked() const { return _locked; }
    void setLocked(bool locked);

    const std::string& identifier() const { return _identifier; }
    std::shared_ptr<QVProject> owner() const { return _owner.lock(); }
    void setOwner(const std::shared_ptr<QVProject>& owner) { _owner = owner; }
    // The project's undo manager; empty without a project.
    UndoRef undoManager() const;
    // The project's notifyContentChangedMsg.
    void sendTrackContentChangedMsg() const;

    std::any valueForKey(const std::string& key) const override;
    std::string archiveClassName() const override { return "QVTrack"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

private:
    QVTrack();

    // Records `restore` for this track; it runs only while the track lives.
    void registerUndo(std::function<void(QVTrack&)> restore);
    // Stores an undoable flag that differs from `field`, telling observers of `key`.
    void storeUndoableFlag(bool& field, bool value, const char* key, void (QVTrack::*setter)(bool));

    std::vector<std::shared_ptr<QVClip>> _clips;
    std::string _identifier;
    bool _validate = true;
    bool _mute = false;
    bool _ignoreVideo = false;
    bool _locked = false;
    std::weak_ptr<QVProject> _owner;
};

}  // namespace qm
