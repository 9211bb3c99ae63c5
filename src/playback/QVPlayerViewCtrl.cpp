#include "playback/QVPlayerViewCtrl.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "codec/QVTimebase.h"
#include "foundation/QVRange.h"
#include "foundation/QVSampleBuffer.h"
#include "foundation/QVSampleDescription.h"
#include "platform/Log.h"
#include "platform/UndoManager.h"
#include "project/QVProject.h"

namespace qm {

std::shared_ptr<QVPlayerViewCtrl> QVPlayerViewCtrl::sharePlayerCtrl() {
    static std::once_flag once;
    static std::shared_ptr<QVPlayerViewCtrl> shared;
    dispatchOnce(once, [] { shared = create(); });
    return shared;
}

std::shared_ptr<QVPlayerViewCtrl> QVPlayerViewCtrl::create() {
    return std::shared_ptr<QVPlayerViewCtrl>(new QVPlayerViewCtrl());
}

QVPlayerViewCtrl::~QVPlayerViewCtrl() {
    // Closing the device first: no fill may reach a half-destroyed controller.
    _audioPlayer.reset();
    if (_view) _view->setDelegate(nullptr);
}

AudioStreamBasicDescription QVPlayerViewCtrl::defaultAudioStreamBasicDescription() {
    return linearPCMDescription(48000.0, 2, 32, true);
}

void QVPlayerViewCtrl::setView(QVPlayerViewInterface* view) {
    if (_view) _view->setDelegate(nullptr);
    _frameObservation.reset();
    _contentObservation.reset();
    _view = view;
    if (!_view) return;

    setState(0);
    _view->setDelegate(this);
    _respondTimestampChanged = true;
    std::weak_ptr<QVPlayerViewCtrl> weakSelf = weak_from_this();
    auto& center = NotificationCenter::defaultCenter();
    _frameObservation =
        center.addObserver(QVPlayerViewFrameDidChangeNotification, _view, [weakSelf](const Notification&) {
            if (auto self = weakSelf.lock()) self->reloadViewData();
        });
    _contentObservation =
        center.addObserver(QVProjectVideoContentChanged, nullptr, [weakSelf](const Notification& notification) {
            if (auto self = weakSelf.lock()) self->projectContentChanged(notification);
        });
}

bool QVPlayerViewCtrl::play() {
    if (_state != 0) return false;
    if (!startPlay()) return false;
    setState(1);
    return true;
}

void QVPlayerViewCtrl::pause() {
    if (_state != 1) return;
    setState(0);
    stopPlay();
}

bool QVPlayerViewCtrl::startPlay() {
    _isVideoSeek = false;
    _isAudioSeek = false;
    const int64_t timestamp = _project ? _project->currentTimestamp() : 0;
    const AudioStreamBasicDescription format = defaultAudioStreamBasicDescription();
    _indexOfSampleStart = static_cast<int64_t>(static_cast<double>(timestamp) * format.mSampleRate / QVTimebase);

    const bool withVideo = validateVideo();
    _audioDrivesTimeline = !withVideo;
    if (!audioPlayer()->playWithDataFormat(&format)) {
        QMLog("Can not play such format.");
        if (!withVideo) return false;
    }
    if (withVideo) {
        const auto startDate = std::chrono::steady_clock::now();
        flushQueue()->async(
            [self = shared_from_this(), startDate, timestamp] { self->flushVideoWithStartDate(startDate, timestamp); });
    }
    return true;
}

void QVPlayerViewCtrl::stopPlay() {
    audioPlayer()->stop();
    if (_view) _view->reloadContent(false);
}

void QVPlayerViewCtrl::flushVideoWithStartDate(std::chrono::steady_clock::time_point startDate,
                                               int64_t startTimestamp) {
    if (_isVideoSeek) {
        startDate = std::chrono::steady_clock::now();
        startTimestamp = _seekTimestamp;
        _isVideoSeek = false;
    }
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - startDate;
    const int64_t timestamp = static_cast<int64_t>(static_cast<double>(QVTimebase) * elapsed.count()) + startTimestamp;

    int64_t duration = 0;
    DispatchQueue::main().sync([&] {
        if (_project) duration = _project->duration();
        if (_isVideoSeek) return;
        _respondTimestampChanged = false;
        if (_project) {
            _project->setNotAllowUndo(true);
            _project->setCurrentTimestamp(timestamp);
            _project->setNotAllowUndo(false);
        }
        _respondTimestampChanged = true;
        if (_view) _view->reloadContent(_state == 1);
    });

    if (_state != 1) return;
    if (timestamp < duration) {
        const auto delay =
            std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(delayPerFrame()));
        flushQueue()->after(delay, [self = shared_from_this(), startDate, startTimestamp] {
            self->flushVideoWithStartDate(startDate, startTimestamp);
        });
    } else {
        DispatchQueue::main().async([self = shared_from_this()] { self->endOfPlay(); });
    }
}

void QVPlayerViewCtrl::QVAudioPlayerFillBuffer(QVAudioPlayer& player, void* fillBuffer, int64_t currentPkt,
                                               uint32_t* fillPktCount, uint32_t* fillBytesCount,
                                               const AudioStreamBasicDescription& format) {
    if (_isAudioSeek) {
        _indexOfSampleStart = static_cast<int64_t>(static_cast<double>(_seekTimestamp) *
                                                   defaultAudioStreamBasicDescription().mSampleRate / QVTimebase);
        _isAudioSeek = false;
    }
    const QVRange range(_indexOfSampleStart, int64_t(*fillPktCount) * format.mFramesPerPacket);
    const auto description = QVSampleDescription::createWithAudioStreamBasicDescri(format);
    const auto project = projectForAudio();
    const auto buffer = project && description ? project->sampleBufferWithDescription(*description, range) : nullptr;

    const std::weak_ptr<QVPlayerViewCtrl> weakSelf = weak_from_this();
    const bool audioDrivesTimeline = _audioDrivesTimeline;
    if (!buffer) {
        *fillBytesCount = 0;
        *fillPktCount = 0;
        if (audioDrivesTimeline) {
            DispatchQueue::main().async([weakSelf] {
                if (auto self = weakSelf.lock()) self->endOfPlay();
            });
        }
    } else {
        const QVRange& delivered = buffer->sampleRange();
        _indexOfSampleStart = delivered.end();
        *fillPktCount = static_cast<uint32_t>(delivered.length() / format.mFramesPerPacket);
        *fillBytesCount = static_cast<uint32_t>(delivered.length() * format.mBytesPerFrame);
        const std::vector<uint8_t>& data = buffer->mutableData();
        std::memcpy(fillBuffer, data.data(), std::min<size_t>(*fillBytesCount, data.size()));
    }
    if (audioDrivesTimeline) {
        const int64_t timestamp = static_cast<int64_t>(static_cast<double>(QVTimebase) *
                                                       (static_cast<double>(_indexOfSampleStart) / format.mSampleRate));
        DispatchQueue::main().async([weakSelf, timestamp] {
            auto self = weakSelf.lock();
            if (!self || !self->_project) return;
            self->_respondTimestampChanged = false;
            self->_project->setCurrentTimestamp(timestamp);
            self->_respondTimestampChanged = true;
        });
    }
}

void QVPlayerViewCtrl::endOfPlay() {
    if (_state != 1) return;
    setState(0);
    stopPlay();
    sendCompletePlayMsg();
}

void QVPlayerViewCtrl::sendCompletePlayMsg() {
    if (auto delegate = _delegate.lock()) delegate->QVPlayerViewCtrlCompletePlay(*this);
}

void QVPlayerViewCtrl::setProject(std::shared_ptr<QVProject> project) {
    _timestampObservation.reset();
    _widthObservation.reset();
    _heightObservation.reset();
    _selectionObservation.reset();
    {
        std::lock_guard lock(_projectMutex);
        _project = std::move(project);
    }
    if (_project) {
        std::weak_ptr<QVPlayerViewCtrl> weakSelf = weak_from_this();
        _timestampObservation = _project->addObserver("currentTimestamp", [weakSelf](const KeyValueChange&) {
            if (auto self = weakSelf.lock()) self->observeTimestampChanged();
        });
        _widthObservation = _project->addObserver("outVideoWidth", [weakSelf](const KeyValueChange&) {
            if (auto self = weakSelf.lock()) self->reloadViewData();
        });
        _heightObservation = _project->addObserver("outVideoHeight", [weakSelf](const KeyValueChange&) {
            if (auto self = weakSelf.lock()) self->reloadViewData();
        });
        _selectionObservation = _project->addObserver("selection", [weakSelf](const KeyValueChange&) {
            if (auto self = weakSelf.lock()) self->observeSelectionChanged();
        });
    }
    reloadViewData();
}

void QVPlayerViewCtrl::observeTimestampChanged() {
    if (!_respondTimestampChanged) return;
    if (_state == 1) {
        // The target first, so that a fill seeing a flag also sees where to go.
        _seekTimestamp = _project->currentTimestamp();
        _isVideoSeek = true;
        _isAudioSeek = true;
    } else if (_view) {
        _view->reloadContent(false);
    }
}

void QVPlayerViewCtrl::observeSelectionChanged() {
    if (_state == 1) return;
    if (_view) _view->reloadSelected();
}

void QVPlayerViewCtrl::reloadViewData() {
    if (_view) _view->reloadData();
}

void QVPlayerViewCtrl::projectContentChanged(const Notification& notification) {
    if (!_project || notification.object != _project.get()) return;
    if (_state == 1) pause();
    reloadViewData();
}

std::shared_ptr<QVProject> QVPlayerViewCtrl::projectForAudio() const {
    std::lock_guard lock(_projectMutex);
    return _project;
}

void QVPlayerViewCtrl::undo() {
    if (_project) _project->undoManager()->undoNestedGroup();
}

void QVPlayerViewCtrl::redo() {
    if (_project) _project->undoManager()->redo();
}

bool QVPlayerViewCtrl::validateMenuItem(const std::string& action) const {
    if (!_project) return false;
    if (action == "undo:") return _project->undoManager()->canUndo();
    if (action == "redo:") return _project->undoManager()->canRedo();
    return false;
}

const std::shared_ptr<QVAudioPlayer>& QVPlayerViewCtrl::audioPlayer() {
    if (!_audioPlayer) {
        _audioPlayer = QVAudioPlayer::create();
        _audioPlayer->setDelegate(this);
    }
    return _audioPlayer;
}

const std::shared_ptr<DispatchQueue>& QVPlayerViewCtrl::flushQueue() {
    if (!_flushQueue) _flushQueue = DispatchQueue::createSerial();
    return _flushQueue;
}

bool QVPlayerViewCtrl::validateVideo() const { return _view && _view->hasSuperview(); }

Size QVPlayerViewCtrl::QVPlayerViewSourceSize(QVPlayerViewInterface&) {
    if (!_project) return {};
    return {static_cast<double>(_project->outVideoWidth()), static_cast<double>(_project->outVideoHeight())};
}

Image QVPlayerViewCtrl::QVPlayerViewCurrentContent(QVPlayerViewInterface&) {
    return _project ? _project->currentImageForExport(false) : Image();
}

int64_t QVPlayerViewCtrl::QVPlayerViewCurrentTimestamps(QVPlayerViewInterface&) {
    return _project ? _project->currentTimestamp() : 0;
}

std::vector<std::shared_ptr<QVClip>> QVPlayerViewCtrl::QVPlayerViewCurrentSelection(QVPlayerViewInterface&) {
    return _project ? _project->selection() : std::vector<std::shared_ptr<QVClip>>{};
}

std::vector<std::shared_ptr<QVClip>> QVPlayerViewCtrl::QVPlayerViewCurrentClips(QVPlayerViewInterface&) {
    return _project ? _project->currentClips() : std::vector<std::shared_ptr<QVClip>>{};
}

bool QVPlayerViewCtrl::QVPlayerViewAllowCreateShape(QVPlayerViewInterface&) {
    if (_state == 1) return false;
    auto delegate = _delegate.lock();
    return delegate ? delegate->QVPlayerViewCtrlAllowCreateShape(*this).value_or(false) : false;
}

int32_t QVPlayerViewCtrl::QVPlayerViewCurrentShapeType(QVPlayerViewInterface&) {
    auto delegate = _delegate.lock();
    return delegate ? delegate->QVPlayerViewCtrlCurrentShapeType(*this).value_or(0) : 0;
}

Color QVPlayerViewCtrl::QVPlayerViewCurrentShapeFillColor(QVPlayerViewInterface&) {
    auto delegate = _delegate.lock();
    return delegate ? delegate->QVPlayerViewCtrlCurrentShapeFillColor(*this).value_or(Color::black()) : Color::black();
}

Color QVPlayerViewCtrl::QVPlayerViewCurrentShapeStrokeColor(QVPlayerViewInterface&) {
    auto delegate = _delegate.lock();
    return delegate ? delegate->QVPlayerViewCtrlCurrentShapeStrokeColor(*this).value_or(Color::white())
                    : Color::white();
}

double QVPlayerViewCtrl::QVPlayerViewCurrentShapeLineWidth(QVPlayerViewInterface&) {
    auto delegate = _delegate.lock();
    return delegate ? delegate->QVPlayerViewCtrlCurrentShapeLineWidth(*this).value_or(1.0) : 1.0;
}

Size QVPlayerViewCtrl::QVPlayerViewCurrentShapeRoundSize(QVPlayerViewInterface&) {
    auto delegate = _delegate.lock();
    return delegate ? delegate->QVPlayerViewCtrlCurrentShapeRoundSize(*this).value_or(Size{}) : Size{};
}

void QVPlayerViewCtrl::QVPlayerViewDidCreateShapeClip(QVPlayerViewInterface&, const std::shared_ptr<QVClip>& clip) {
    if (auto delegate = _delegate.lock()) delegate->QVPlayerViewCtrlDidCreateShapeClip(*this, clip);
}

}  // namespace qm
