#pragma once

#include <any>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "codec/QVTimebase.h"
#include "effects/QVClipStates.h"
#include "effects/QVTimedClip.h"
#include "foundation/QVRange.h"
#include "image/Image.h"
#include "platform/Bitmap.h"
#include "platform/Geometry.h"
#include "platform/KeyedArchiver.h"
#include "platform/Observable.h"
#include "platform/UndoManager.h"

namespace qm {

class QVEffectContext;
class QVEffectInstance;
class QVEffectState;
class QVSampleBuffer;
class QVSampleDescription;
class QVTrack;
class QVTransitionInstance;
class QVVolumeGainEffect;

// The base of everything that lies on a track: where the clip lies and how long it is, the limits
// that keep every overlap between exactly two neighbours while it is moved, resized or cut, volume
// and mute, its position and visual states on the canvas, and undo of these. The base class has
// no source: no picture and no sound.
//
// Made by create() (or a subclass's factory) and held by shared_ptr. The owner is the track the
// clip was last inserted into; it is kept after removal and keeps nothing alive. Setters of
// mute, volume, start and duration record their inverse on the owner's undo manager; a clip
// without an owner records nothing.
//
// Observable keys: "mute", "trackVolume", "volumeGain" (follows "trackVolume"), "timestampOfTrack",
// "trackDuration", "trackTimeRange" (follows both), "validate", "ignoreVideo",
// "validateColorControl", "validateCrop", "valideteShadow", "colorState", "cropState" and
// "shadowState" (each follows its flag), "bounds" (follows the bounds of clipPosition).
class QVClip : public Observable,
               public Archivable,
               public QVTimedClip,
               public std::enable_shared_from_this<QVClip> {
public:
    static constexpr Size thumbnailSize{160.0, 120.0};
    // The shortest a clip gets through the setters, and what every neighbour keeps of its own.
    static constexpr int64_t minClipDuration = QVTimebase / 2;
    // The upper bound of a legal range that has no neighbour on that side.
    static constexpr int64_t unlimitedBound = 0x3fffffffffffffff;
    // sourceDuration of a source without a natural length.
    static constexpr int64_t unlimitedSourceDuration = 0x7fffffffffffffff;

    // A clip with a new identifier, no owner, the default volume and the default settings.
    static std::shared_ptr<QVClip> create();
    // Reads the base keys; the default settings are not loaded and the clip has no owner.
    static std::shared_ptr<QVClip> createWithCoder(KeyedUnarchiver& coder);

    ~QVClip() override;
    QVClip(const QVClip&) = delete;
    QVClip& operator=(const QVClip&) = delete;

    // A new clip of this clip's own class with a new identifier and no owner, carrying this clip's
    // settings. Start and duration are limited as for a clip alone on a track.
    virtual std::shared_ptr<QVClip> copy() const;

    // --- What subclasses replace; the base answers as a clip without a source.

    // Drops cached pictures. Nothing to drop here.
    virtual void resetCacheImage();
    // The natural length of the source; unlimitedSourceDuration here.
    virtual int64_t sourceDuration() const;
    virtual bool audioExist() const;
    bool videoExist() const override;
    // "Unknown" here.
    virtual std::string title() const;
    virtual Size sourceSize() const;
    virtual bool allowResizeBounds() const;
    virtual bool allowRotate() const;
    virtual bool allowMove() const;
    // Start 0; duration 5 seconds for an unlimited source, else the source's length; validate on;
    // mute and ignoreVideo off.
    virtual void loadDefaultSettings();
    // Removes the head: the clip starts at `timestamp`, limited to rangeOfTimestampForCut, and its
    // end stays. One undo group. With an empty cut range the start becomes -1: test the range first.
    virtual void cutAtTimestamp(int64_t timestamp);
    // Limited to rangeOfDurationAtTrack unless notCheckValue; ignored when that range is empty.
    // Undoable.
    virtual void setTrackDuration(int64_t duration);
    // The clip's sound over `range` (sample positions on the track) in `description`; nothing here.
    virtual std::shared_ptr<QVSampleBuffer> sampleBufferWithRange(const QVRange& range,
                                                                  const QVSampleDescription& description,
                                                                  bool ignoreMute);
    // The three-argument form with ignoreMute false.
    std::shared_ptr<QVSampleBuffer> sampleBufferWithRange(const QVRange& range, const QVSampleDescription& description);
    // Track time to source time and back; 0 here.
    virtual int64_t trackTimestampToSource(int64_t timestamp) const;
    virtual int64_t trackTimestampFromSource(int64_t timestamp) const;
    // The source's picture at a source time; nothing here.
    virtual Image imageAtSourceTimestamp(int64_t timestamp);
    virtual std::shared_ptr<const Bitmap> cgImageAtSourceTimestamp(int64_t timestamp);
    // A picture of thumbnailSize for the timeline; nothing here.
    virtual std::shared_ptr<const Bitmap> thumbnail();

    // --- Place on the track.

    int64_t timestampOfTrack() const override { return _timestampOfTrack; }
    // Limited to rangeOfTimestampAtTrack unless notCheckValue; ignored when that range is empty.
    // Undoable.
    void setTimestampOfTrack(int64_t timestamp);
    int64_t trackDuration() const override { return _duration; }
    // (timestampOfTrack, trackDuration).
    QVRange trackTimeRange() const override;

    // Legal starts given the neighbours on the owner track (the largest legal value is the
    // range's endLocation).
    QVRange rangeOfTimestampAtTrack() const;
    // Legal durations given the neighbours.
    QVRange rangeOfDurationAtTrack() const;
    // Legal cut points given the neighbours.
    QVRange rangeOfTimestampForCut() const;

    // The clip's stretch in samples of the description's rate, truncating.
    QVRange sampleRangeWithSampleDescription(const QVSampleDescription& description) const;

    // While set, setTimestampOfTrack and setTrackDuration skip their limits.
    bool notCheckValue() const { return _notCheckValue; }
    void setNotCheckValue(bool notCheckValue) { _notCheckValue = notCheckValue; }

    // --- Sound.

    bool mute() const { return _mute; }
    // Undoable.
    void setMute(bool mute);
    // On the volume scale of QVVolumeEffect.
    double trackVolume() const { return _volume; }
    // Ignored unless it differs by more than QMCommon::expression(); undoable; drops volumeGain.
    void setTrackVolume(double volume);
    // The gain of trackVolume, made on first read.
    std::shared_ptr<QVVolumeGainEffect> volumeGain();

    // --- Look on the canvas.

    // The position, made on first read with sourceSize and this clip as owner. Its setters record
    // undo on this clip's undo manager.
    std::shared_ptr<QVClipPosition> clipPosition() const;
    // The bounds of clipPosition.
    Rect bounds() const;
    // Nothing while validateColorControl is off (and nothing is made); else the state, made on
    // first read with this clip's undo manager of that moment.
    std::shared_ptr<QVColorState> colorState() const;
    // As colorState, under valideteShadow.
    std::shared_ptr<QVShadowState> shadowState() const;
    // As colorState, under validateCrop.
    std::shared_ptr<QVCropState> cropState() const;
    // A new state holding the live clipPosition and the states whose flags are on.
    std::shared_ptr<QVEffectState> effectState() const;
    // The project's output size (zero without a project) and the clip's bounds; the cached
    // context while both are unchanged, else a new one.
    std::shared_ptr<QVEffectContext> effectContext() const;

    // --- Effects and the transition out of this clip (each made on first read; safe to read from
    // the queue that composes while the interface reads too).

    // The entrance, emphasis and exit effects, with this clip as owner.
    std::shared_ptr<QVEffectInstance> effectInstance() const;
    // The transition into the next clip: the first name of the catalogue, this clip as start clip.
    std::shared_ptr<QVTransitionInstance> transitionInstance() const;
    // Where the clip comes to rest: timestampOfTrack, plus the entrance's length while the
    // entrance is enabled.
    int64_t timestampOfClipPosition() const;

    // --- The picture at a track time; nothing outside the clip or without a source picture.

    // The source picture through the clip's look of that moment: effects, crop, position, shadow,
    // colour and opacity. A lazy graph.
    Image imageAtTimestamp(int64_t timestamp);
    // The source picture itself, untouched.
    std::shared_ptr<const Bitmap> cgImageAtTimestamp(int64_t timestamp);

    // --- Plain flags, not undoable.

    const std::string& identifier() const { return _identifier; }
    bool validate() const { return _validate; }
    void setValidate(bool validate);
    // The clip counts as sound only in thumbnails and the timeline.
    bool ignoreVideo() const { return _ignoreVideo; }
    void setIgnoreVideo(bool ignoreVideo);
    bool validateColorControl() const { return _validateColorControl; }
    void setValidateColorControl(bool validate);
    bool validateCrop() const { return _validateCrop; }
    void setValidateCrop(bool validate);
    bool valideteShadow() const { return _valideteShadow; }
    void setValideteShadow(bool validate);

    // The track, or nothing. Read and written atomically.
    std::shared_ptr<QVTrack> owner() const { return _owner.load().lock(); }
    void setOwner(const std::shared_ptr<QVTrack>& owner) { _owner.store(owner); }
    // The owner's undo manager; empty without an owner.
    UndoRef undoManager() const override;

    std::any valueForKey(const std::string& key) const override;
    std::string archiveClassName() const override { return "QVClip"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

protected:
    // The fields of init; a factory calls loadDefaultSettings once the object is shared.
    QVClip();

    // Reads the base keys in their order; false when the object is nothing. A subclass reads its
    // own keys after calling this.
    virtual bool initWithCoder(KeyedUnarchiver& coder);
    // Gives `clip` this clip's settings, in the order of copying; a subclass's copy() makes its
    // own instance, calls this, then copies its own fields.
    void copyPropertiesTo(QVClip& clip) const;

    std::vector<std::string> keyPathsForValuesAffectingValueForKey(const std::string& key) const override;

    // Records `restore` for this clip on the undo manager; it runs only while the clip lives.
    void registerUndo(std::function<void(QVClip&)> restore);

private:
    struct Neighbours {
        std::shared_ptr<QVClip> prevprev;
        std::shared_ptr<QVClip> prev;
        std::shared_ptr<QVClip> next;
        std::shared_ptr<QVClip> nextnext;
    };
    Neighbours neighbours() const;
    // The clip as a shared object, for identity lookups on the owner track.
    std::shared_ptr<QVClip> self() const;
    // Stores a flag, telling observers of `key`.
    void storeFlag(bool& field, bool value, const char* key);
    // Takes `position` as the clip's own: sets its owner and forwards its bounds changes as
    // changes of "bounds".
    void adoptPosition(std::shared_ptr<QVClipPosition> position) const;
    // `field` while `flag` is on, made by State::create() on first read with the undo manager.
    template <class State>
    std::shared_ptr<State> lazyState(std::shared_ptr<State>& field, bool flag) const;

    std::string _identifier;
    mutable std::shared_ptr<QVClipPosition> _position;
    mutable ObserverToken _positionBoundsToken;
    // The bounds before a change of the position, while observers of "bounds" are told of it.
    mutable std::optional<Rect> _boundsBeforeChange;
    mutable std::atomic<std::shared_ptr<QVEffectContext>> _effectContext;
    mutable std::atomic<std::shared_ptr<QVEffectInstance>> _effectInstance;
    mutable std::atomic<std::shared_ptr<QVTransitionInstance>> _transitionInstance;
    mutable std::shared_ptr<QVColorState> _colorState;
    mutable std::shared_ptr<QVShadowState> _shadowState;
    mutable std::shared_ptr<QVCropState> _cropState;
    mutable std::shared_ptr<QVVolumeGainEffect> _volumeGain;
    double _volume;
    bool _mute = false;
    int64_t _duration = 0;
    int64_t _timestampOfTrack = 0;
    bool _notCheckValue = false;
    bool _validate = true;
    bool _ignoreVideo = false;
    bool _validateColorControl = false;
    bool _validateCrop = false;
    bool _valideteShadow = false;
    std::atomic<std::weak_ptr<QVTrack>> _owner;
};

}  // namespace qm
