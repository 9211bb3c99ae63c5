#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "audio/QVAudioPlayer.h"
#include "platform/AudioStreamBasicDescription.h"
#include "platform/Dispatch.h"
#include "platform/NotificationCenter.h"
#include "playback/QVPlayerViewInterface.h"

namespace qm {

class QVPlayerViewCtrl;
class QVProject;

// The host application's side of playback. Every operation is optional: nothing (std::nullopt)
// means the host does not answer.
class QVPlayerViewCtrlDelegate {
public:
    virtual ~QVPlayerViewCtrlDelegate() = default;

    // Playback reached the end of the project.
    virtual void QVPlayerViewCtrlCompletePlay(QVPlayerViewCtrl& ctrl) {}
    virtual std::optional<bool> QVPlayerViewCtrlAllowCreateShape(QVPlayerViewCtrl& ctrl) { return std::nullopt; }
    virtual void QVPlayerViewCtrlDidCreateShapeClip(QVPlayerViewCtrl& ctrl, const std::shared_ptr<QVClip>& clip) {}
    virtual std::optional<Color> QVPlayerViewCtrlCurrentShapeFillColor(QVPlayerViewCtrl& ctrl) { return std::nullopt; }
    virtual std::optional<Color> QVPlayerViewCtrlCurrentShapeStrokeColor(QVPlayerViewCtrl& ctrl) {
        return std::nullopt;
    }
    virtual std::optional<double> QVPlayerViewCtrlCurrentShapeLineWidth(QVPlayerViewCtrl& ctrl) { return std::nullopt; }
    virtual std::optional<Size> QVPlayerViewCtrlCurrentShapeRoundSize(QVPlayerViewCtrl& ctrl) { return std::nullopt; }
    virtual std::optional<int32_t> QVPlayerViewCtrlCurrentShapeType(QVPlayerViewCtrl& ctrl) { return std::nullopt; }
};

// Plays a project in its canvas view and sends its sound to a QVAudioPlayer.
//
// Two clocks: the video loop on flushQueue derives the timestamp from the wall clock since a start
// date and shows the frame composed for it; the audio fill, on the output's thread, delivers the
// samples from its own index. Both start from the project's timestamp and re-anchor at a seek (a
// change of the timestamp from anywhere but the loop). Without a visible view the audio drives the
// timestamp and the end.
//
// Main queue: play, pause, the observers, the timestamp updates and the end of play. The video loop
// waits for the main queue once per pass, so whoever runs playback must keep draining it.
class QVPlayerViewCtrl : public QVAudioPlayerDelegate,
                         public QVPlayerViewDelegate,
                         public std::enable_shared_from_this<QVPlayerViewCtrl> {
public:
    // The process-wide controller.
    static std::shared_ptr<QVPlayerViewCtrl> sharePlayerCtrl();
    static std::shared_ptr<QVPlayerViewCtrl> create();
    ~QVPlayerViewCtrl() override;
    QVPlayerViewCtrl(const QVPlayerViewCtrl&) = delete;
    QVPlayerViewCtrl& operator=(const QVPlayerViewCtrl&) = delete;

    // 48 kHz stereo packed 32-bit float.
    static AudioStreamBasicDescription defaultAudioStreamBasicDescription();

    // Attaches the canvas view (viewDidLoad): stopped, the view's delegate is this controller, and
    // frame changes of the view and picture edits of the project are observed. The view is not
    // owned; detach it (nullptr) before it goes.
    void setView(QVPlayerViewInterface* view);
    QVPlayerViewInterface* view() const { return _view; }

    // Starts playback from the project's timestamp; only while stopped. False when it did not start.
    bool play();
    // Stops playback; only while playing.
    void pause();
    // The working steps behind play and pause.
    bool startPlay();
    void stopPlay();

    const std::shared_ptr<QVProject>& project() const { return _project; }
    // Moves the observations of the timestamp, output size and selection to `project`, then
    // reloads the view.
    void setProject(std::shared_ptr<QVProject> project);

    // The project's undo manager: undoNestedGroup, redo; menu validation by canUndo / canRedo for
    // the actions "undo:" and "redo:", false for anything else.
    void undo();
    void redo();
    bool validateMenuItem(const std::string& action) const;

    std::shared_ptr<QVPlayerViewCtrlDelegate> delegate() const { return _delegate.lock(); }
    void setDelegate(const std::shared_ptr<QVPlayerViewCtrlDelegate>& delegate) { _delegate = delegate; }

    // Made on first use, with this controller as its delegate.
    const std::shared_ptr<QVAudioPlayer>& audioPlayer();
    // The serial queue of the video loop, made on first use.
    const std::shared_ptr<DispatchQueue>& flushQueue();

    bool respondTimestampChanged() const { return _respondTimestampChanged; }
    bool isVideoSeek() const { return _isVideoSeek; }
    bool isAudioSeek() const { return _isAudioSeek; }
    // 0 stopped, 1 playing.
    int32_t state() const { return _state; }
    int64_t indexOfSampleStart() const { return _indexOfSampleStart; }
    int64_t seekTimestamp() const { return _seekTimestamp; }

    // True while the view has a superview; false means audio-only playback.
    bool validateVideo() const;
    // The pause between two passes of the video loop, in seconds (single-precision 0.04).
    double delayPerFrame() const { return static_cast<double>(0.04f); }
    int sampleBlockSize() const { return 512; }

    // One pass of the video loop; the next pass keeps the same start.
    void flushVideoWithStartDate(std::chrono::steady_clock::time_point startDate, int64_t startTimestamp);

    void QVAudioPlayerFillBuffer(QVAudioPlayer& player, void* fillBuffer, int64_t currentPkt, uint32_t* fillPktCount,
                                 uint32_t* fillBytesCount, const AudioStreamBasicDescription& format) override;

    Size QVPlayerViewSourceSize(QVPlayerViewInterface& view) override;
    Image QVPlayerViewCurrentContent(QVPlayerViewInterface& view) override;
    int64_t QVPlayerViewCurrentTimestamps(QVPlayerViewInterface& view) override;
    std::vector<std::shared_ptr<QVClip>> QVPlayerViewCurrentSelection(QVPlayerViewInterface& view) override;
    std::vector<std::shared_ptr<QVClip>> QVPlayerViewCurrentClips(QVPlayerViewInterface& view) override;
    bool QVPlayerViewAllowCreateShape(QVPlayerViewInterface& view) override;
    int32_t QVPlayerViewCurrentShapeType(QVPlayerViewInterface& view) override;
    Color QVPlayerViewCurrentShapeFillColor(QVPlayerViewInterface& view) override;
    Color QVPlayerViewCurrentShapeStrokeColor(QVPlayerViewInterface& view) override;
    double QVPlayerViewCurrentShapeLineWidth(QVPlayerViewInterface& view) override;
    Size QVPlayerViewCurrentShapeRoundSize(QVPlayerViewInterface& view) override;
    void QVPlayerViewDidCreateShapeClip(QVPlayerViewInterface& view, const std::shared_ptr<QVClip>& clip) override;

private:
    QVPlayerViewCtrl() = default;

    void setState(int32_t state) { _state = state; }
    void observeTimestampChanged();
    void observeSelectionChanged();
    void reloadViewData();
    void projectContentChanged(const Notification& notification);
    // Runs on the main queue; acts once per playback.
    void endOfPlay();
    void sendCompletePlayMsg();
    // The project as the audio thread may read it.
    std::shared_ptr<QVProject> projectForAudio() const;

    std::shared_ptr<QVAudioPlayer> _audioPlayer;
    std::shared_ptr<QVProject> _project;
    std::shared_ptr<DispatchQueue> _flushQueue;
    std::atomic<bool> _respondTimestampChanged{false};
    std::atomic<bool> _isVideoSeek{false};
    std::atomic<bool> _isAudioSeek{false};
    std::atomic<int32_t> _state{0};
    std::weak_ptr<QVPlayerViewCtrlDelegate> _delegate;
    std::atomic<int64_t> _indexOfSampleStart{0};
    std::atomic<int64_t> _seekTimestamp{0};

    QVPlayerViewInterface* _view = nullptr;
    // validateVideo as playback started, read by the audio thread.
    std::atomic<bool> _audioDrivesTimeline{false};
    mutable std::mutex _projectMutex;
    ObserverToken _timestampObservation;
    ObserverToken _widthObservation;
    ObserverToken _heightObservation;
    ObserverToken _selectionObservation;
    ObserverToken _frameObservation;
    ObserverToken _contentObservation;
};

}  // namespace qm
