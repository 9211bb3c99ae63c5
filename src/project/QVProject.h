#pragma once

#include <any>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "image/Image.h"
#include "platform/Bitmap.h"
#include "platform/Color.h"
#include "platform/Geometry.h"
#include "platform/KeyedArchiver.h"
#include "platform/Observable.h"
#include "platform/UndoManager.h"

namespace qm {

class QVClip;
class QVRange;
class QVSampleBuffer;
class QVSampleDescription;
class QVTrack;

// Posted on the main queue, with the project as object, when its sound may differ.
inline constexpr const char* QVProjectAudioContentChanged = "QVProjectAudioContentChanged";
// Posted on the main queue, with the project as object, when its picture may differ.
inline constexpr const char* QVProjectVideoContentChanged = "QVProjectVideoContentChanged";
// The pasteboard type of copied clips: a keyed archive of a list of clips.
inline constexpr const char* kQVCopyDataCoding = "com.quorvia.clipsdata";

// Positions in a list, ascending, each once (NSIndexSet).
using QVIndexSet = std::set<size_t>;

// The root of the editing model: the tracks (index 0 is the top layer), the selection, the
// playhead, the output settings and the undo manager, and the edits that reach over tracks.
//
// Undo: the track and selection primitives and the playhead record their inverse on the undo
// manager; the compound edits (addClip, addClips, removeClip, removeClips, removeSelectedClips,
// removeAllGaps, selectAllClips, pasteClips, splitSelectedClipAtCurrentTime) each form one group.
// Undoing sends no content message of its own.
//
// Content messages post QVProjectAudioContentChanged / QVProjectVideoContentChanged on the main
// queue and set `edited` at once.
//
// Observable keys: "tracks", "selection", "currentTimestamp", "duration" (follows "tracks"),
// "outVideoWidth", "outVideoHeight", "outBounds" (follows both), "canCut" and "canCopy" (follow
// "selection"), "edited", "name", and the other settings by their names.
class QVProject : public Observable, public Archivable, public std::enable_shared_from_this<QVProject> {
public:
    static constexpr Size miniSupportOutSize{160.0, 120.0};

    // createWithUndoManager with none.
    static std::shared_ptr<QVProject> create();
    // A project with the default settings; without a manager one is made on first use.
    static std::shared_ptr<QVProject> createWithUndoManager(std::shared_ptr<UndoManager> undoManager);
    // Reads the project keys through the setters (so a playhead other than 0 leaves one undo
    // record), owns the tracks, and clears `edited`.
    static std::shared_ptr<QVProject> createWithCoder(KeyedUnarchiver& coder);

    QVProject(const QVProject&) = delete;
    QVProject& operator=(const QVProject&) = delete;

    // --- Content messages.

    void notifyAudioContentChangedMsg();
    void notifyVideoContentChangedMsg();
    // Video, then audio, then edited.
    void notifyContentChangedMsg();

    // --- Edits.

    // Offers the clip to each track in order; if all refuse, to a new track inserted at index 0.
    // One undo group, then a content message.
    void addClip(const std::shared_ptr<QVClip>& clip);
    // addClip for each clip, each at its own start, in one group with one content message.
    void addClips(const std::vector<std::shared_ptr<QVClip>>& clips);
    // Takes the clip off its track, removes the track if it became empty, unselects the clip.
    // Neighbours do not close up. One group, then a content message.
    void removeClip(const std::shared_ptr<QVClip>& clip);
    void removeClips(const std::vector<std::shared_ptr<QVClip>>& clips);
    // Removes every selected clip (and emptied tracks), then clears the selection.
    void removeSelectedClips();
    // removeAllGaps on each track in one group, then a content message.
    void removeAllGaps();
    // Removes every track whose duration is below 1 in one primitive; no content message.
    void removeEmptyTrack();
    // Removes all tracks, then a content message; no group, and the selection stays.
    void clearData();
    // Splits each selected clip under the playhead, at least minClipDuration from either end, into
    // a new unselected left part and the clip itself as the right part. One group, then a content
    // message.
    void splitSelectedClipAtCurrentTime();

    // --- Pasteboard (type kQVCopyDataCoding on the general pasteboard).

    // copySelectedClips, then removeSelectedClips.
    void cutSelectedClips();
    // Archives copies of the selected clips onto the pasteboard.
    void copySelectedClips();
    // Adds copies of the pasteboard's clips, all starting at the playhead, and selects them; one
    // group. Nothing without data.
    void pasteClips();
    bool canCut() const { return !_selection.empty(); }
    bool canCopy() const { return !_selection.empty(); }
    bool canPaste() const;

    // --- Selection.

    // A new list with the same clips, in order of selecting.
    std::vector<std::shared_ptr<QVClip>> selection() const { return _selection; }
    // Removes all (if any), then inserts the new list (if not empty), through the primitives.
    void setSelection(const std::vector<std::shared_ptr<QVClip>>& clips);
    // Selects the clips of all tracks, track by track, in one group.
    void selectAllClips();
    // By identity.
    bool clipIsSelected(const std::shared_ptr<QVClip>& clip) const;
    void addSelectionClip(const std::shared_ptr<QVClip>& clip);
    void removeSelectedClip(const std::shared_ptr<QVClip>& clip);
    // The four primitives: each records its inverse, then changes the list. Invalid indexes are
    // ignored.
    void insertObjectInSelectionAtIndex(const std::shared_ptr<QVClip>& clip, size_t index);
    void removeObjectFromSelectionAtIndex(size_t index);
    // Each clip goes, in turn, to the next index of `indexes`, as in a list after the earlier
    // insertions; the counts must match.
    void insertSelection(const std::vector<std::shared_ptr<QVClip>>& clips, const QVIndexSet& indexes);
    void removeSelectionAtIndexes(const QVIndexSet& indexes);

    // --- Tracks.

    // A new list with the same tracks.
    std::vector<std::shared_ptr<QVTrack>> tracks() const { return _tracks; }
    // Removes all (if any), then inserts the new list (if not empty), through the primitives.
    void setTracks(const std::vector<std::shared_ptr<QVTrack>>& tracks);
    // The first track holding a clip with the clip's identifier.
    std::shared_ptr<QVTrack> findTrackWithClip(const std::shared_ptr<QVClip>& clip) const;
    // The index of that track, or QVNotFound.
    size_t indexOfTrackWithClip(const std::shared_ptr<QVClip>& clip) const;
    // By identity, or QVNotFound.
    size_t indexOfObjectInTracks(const std::shared_ptr<QVTrack>& track) const;
    // Nothing when `index` is out of range.
    std::shared_ptr<QVTrack> objectInTracksAtIndex(size_t index) const;
    void addTracksObject(const std::shared_ptr<QVTrack>& track);
    void removeTracksObject(const std::shared_ptr<QVTrack>& track);
    // False when the track is not in the project.
    bool removeTrack(const std::shared_ptr<QVTrack>& track);
    // Makes this project the track's owner, records the inverse, inserts.
    void insertObjectInTracksAtIndex(const std::shared_ptr<QVTrack>& track, size_t index);
    // The other track primitives record their inverse, then change the list; owners are left as
    // they are. Invalid indexes are ignored.
    void removeObjectFromTracksAtIndex(size_t index);
    void insertTracks(const std::vector<std::shared_ptr<QVTrack>>& tracks, const QVIndexSet& indexes);
    void removeTracksAtIndexes(const QVIndexSet& indexes);
    void replaceObjectInTracksAtIndex(size_t index, const std::shared_ptr<QVTrack>& track);

    // --- Derived values.

    // The greatest track duration; 0 without tracks.
    int64_t duration() const;
    // sampleRate * duration / QVTimebase.
    int64_t numberOfSamplesWithDescription(const QVSampleDescription& description) const;
    // (0, 0, outVideoWidth, outVideoHeight).
    Rect outBounds() const;
    // The clips at the playhead, track by track.
    std::vector<std::shared_ptr<QVClip>> currentClips() const;
    // QVTimebase / outVideoFPS, truncated. A rate of 0 logs "Warning, out video FPS is zero." and
    // gives QVTimebase / 25 in single precision; a negative rate gives a negative length.
    int64_t durationOfFrame() const;

    // --- Sound.

    // The sound of the project over exactly `range` (sample positions on the project's time line
    // at the description's rate): the tracks' sound merged, silence where none sounds and past the
    // end. Nothing only when `range` starts at or past the end of the project, which tells a reader
    // that the project is over.
    std::shared_ptr<QVSampleBuffer> sampleBufferWithDescription(const QVSampleDescription& description,
                                                                const QVRange& range) const;

    // --- Pictures.

    // The preview picture at `timestamp`: imageAtTimestamp(timestamp, false).
    Image imageAtTimestamp(int64_t timestamp) const;
    // The picture at `timestamp`, a lazy graph: the tracks' pictures stacked with track 0 on top,
    // over backgroundImage. For export the stack is first cut to cropRect when enableCropped, else
    // to outBounds, and moved by the cut's origin; a preview keeps what reaches past the canvas.
    // Nothing after duration + durationOfFrame; up to there, at least the background.
    Image imageAtTimestamp(int64_t timestamp, bool forExport) const;
    // imageAtTimestamp at the playhead.
    Image currentImageForExport(bool forExport) const;
    // `foreground` over `background`; null when the foreground is.
    static Image sourceOver(const Image& foreground, const Image& background);
    // The part of `image` inside `rect`, then moved by (rect.x, rect.y).
    static Image cropImage(const Image& image, const Rect& rect);
    // backgroundColor over outBounds.
    Image backgroundImage() const;
    // The export picture at time 0, rendered once and kept for the project's life.
    std::shared_ptr<const Bitmap> thumbnail() const;

    // Sets the transition of every clip with a picture to `name` in one undo group; without a
    // name each clip draws one at random. No content message.
    void applyTransitionName(const std::optional<std::string>& name);
    // applyTransitionName without a name.
    void randomTransitionName();

    // --- The playhead and settings.

    int64_t currentTimestamp() const { return _currentTimestamp; }
    // A negative value becomes 0; a change is recorded for undo unless notAllowUndo.
    void setCurrentTimestamp(int64_t timestamp);
    // While set, playhead moves are not recorded (playback sets it around its updates).
    bool notAllowUndo() const { return _notAllowUndo; }
    void setNotAllowUndo(bool notAllowUndo);

    int64_t outVideoWidth() const { return _outVideoWidth; }
    // Raised to miniSupportOutSize's width; not undoable, no content message.
    void setOutVideoWidth(int64_t width);
    int64_t outVideoHeight() const { return _outVideoHeight; }
    // Raised to miniSupportOutSize's height; not undoable, no content message.
    void setOutVideoHeight(int64_t height);
    double outVideoFPS() const { return _outVideoFPS; }
    void setOutVideoFPS(double fps);
    int64_t outSampleRate() const { return _outSampleRate; }
    void setOutSampleRate(int64_t rate);
    int64_t outChannelCount() const { return _outChannelCount; }
    void setOutChannelCount(int64_t count);
    // A sample format (0 U8, 1 S16, 2 S32, 3 FLT, 4 DBL).
    int32_t outSampleFormat() const { return _outSampleFormat; }
    void setOutSampleFormat(int32_t format);
    Rect cropRect() const { return _cropRect; }
    void setCropRect(const Rect& rect);
    bool enableCropped() const { return _enableCropped; }
    void setEnableCropped(bool enable);
    // Fills the canvas under all tracks; nothing after reading an archive without one.
    const std::optional<Color>& backgroundColor() const { return _backgroundColor; }
    void setBackgroundColor(const std::optional<Color>& color);
    const std::string& name() const { return _name; }
    void setName(const std::string& name);
    // Set by every content message; cleared by the host and on reading an archive.
    bool edited() const { return _edited; }
    void setEdited(bool edited);
    const std::string& identifier() const { return _identifier; }

    // The manager passed in or set; one is made on first use when there is none.
    std::shared_ptr<UndoManager> undoManager() const;
    void setUndoManager(std::shared_ptr<UndoManager> undoManager) { _undoManager = std::move(undoManager); }

    std::any valueForKey(const std::string& key) const override;
    std::string archiveClassName() const override { return "QVProject"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

protected:
    std::vector<std::string> keyPathsForValuesAffectingValueForKey(const std::string& key) const override;

private:
    explicit QVProject(std::shared_ptr<UndoManager> undoManager);

    // Step 2 and 3 of addClip: the first track that takes the clip, else a new top track.
    void placeClip(const std::shared_ptr<QVClip>& clip);
    // Takes the clip off its owner track and removes the track if nothing is left on it.
    void detachClip(const std::shared_ptr<QVClip>& clip);
    // Splits one clip at `timestamp` as splitSelectedClipAtCurrentTime does.
    void splitClip(const std::shared_ptr<QVClip>& clip, int64_t timestamp);
    // Records `restore` for this project; it runs only while the project lives.
    void registerUndo(std::function<void(QVProject&)> restore);
    // Stores a plain setting, telling observers of `key`.
    template <class T>
    void store(T& field, const T& value, const char* key);

    std::vector<std::shared_ptr<QVTrack>> _tracks;
    std::string _identifier;
    std::vector<std::shared_ptr<QVClip>> _selection;
    mutable std::shared_ptr<UndoManager> _undoManager;
    Rect _cropRect;
    bool _edited = false;
    int64_t _currentTimestamp = 0;
    int64_t _outVideoWidth = 800;
    int64_t _outVideoHeight = 600;
    bool _notAllowUndo = false;
    bool _enableCropped = false;
    int32_t _outSampleFormat = 1;
    std::string _name;
    int64_t _outSampleRate = 44100;
    double _outVideoFPS = 30.0;
    int64_t _outChannelCount = 2;
    std::optional<Color> _backgroundColor = Color::black();
    mutable std::shared_ptr<const Bitmap> _thumbnail;
};

}  // namespace qm
