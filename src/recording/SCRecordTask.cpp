#include "recording/SCRecordTask.h"

#include <cmath>

#include "codec/QVTimebase.h"
#include "platform/Log.h"
#include "recording/SCConfigure.h"

namespace qm {

namespace {


bool isZeroRect(const Rect& rect) {
    return rect.minX() == 0 && rect.minY() == 0 && rect.width() == 0 && rect.height() == 0;
}

int32_t roundedUpToEven(double size) { return static_cast<int32_t>(std::ceil(size * 0.5) * 2); }

}  // namespace

// Calls a task on the main queue every interval until invalidated; used on the main queue only.
class SCRecordTask::RepeatingTimer : public std::enable_shared_from_this<RepeatingTimer> {
public:
    RepeatingTimer(std::chrono::milliseconds interval, std::function<void()> tick)
        : _interval(interval), _tick(std::move(tick)) {}

    void schedule() {
        DispatchQueue::main().after(_interval, [weak = weak_from_this()] {
            auto timer = weak.lock();
            if (!timer || !timer->_valid) return;
            timer->_tick();
            timer->schedule();
        });
    }
    void invalidate() { _valid = false; }

private:
    std::chrono::milliseconds _interval;
    std::function<void()> _tick;
    bool _valid = true;
};

void SCRecordTask::checkDisplayAuthorizationStatusWithCompleteHandler(std::function<void(bool)> handler) {
    DispatchQueue::main().async(
        [handler = std::move(handler)] { handler(ScreenInput::canCaptureDisplay(ScreenInput::mainDisplayID())); });
}

void SCRecordTask::checkAuthorizationStatusForType(CaptureMediaType type, std::function<void(bool)> handler) {
    DispatchQueue::main().async([type, handler = std::move(handler)] {
        handler(CaptureDevice::authorizationStatusForMediaType(type) == CaptureDevice::authorized);
    });
}

std::shared_ptr<SCRecordTask> SCRecordTask::createWithRecordType(int32_t type,
                                                                 std::shared_ptr<SCRecordTaskDelegate> delegate) {
    if (type < SCRecordTypeScreen || type > SCRecordTypeAudio) return nullptr;
    return std::shared_ptr<SCRecordTask>(new SCRecordTask(type, std::move(delegate)));
}

SCRecordTask::SCRecordTask(int32_t type, std::shared_ptr<SCRecordTaskDelegate> delegate)
    : _recordType(type), _delegate(std::move(delegate)) {}

SCRecordTask::~SCRecordTask() {
    sessionQueue().sync([this] {
        std::shared_ptr<CaptureSession> session;
        {
            std::lock_guard lock(_lock);
            _isSessionRunning = false;
            session = _session;
        }
        stopRecord();
        if (session) session->stopRunning();
        teardownCaptureSession();
    });
    _audioFormatDescription.reset();
    _videoFormatDescription.reset();
}

std::shared_ptr<DispatchQueue> SCRecordTask::queue(std::shared_ptr<DispatchQueue>& slot) {
    std::lock_guard lock(_queuesMutex);
    if (!slot) slot = DispatchQueue::createSerial();
    return slot;
}

DispatchQueue& SCRecordTask::audioCaptureQueue() { return *queue(_audioCaptureQueue); }
DispatchQueue& SCRecordTask::videoCaptureQueue() { return *queue(_videoCaptureQueue); }
DispatchQueue& SCRecordTask::sessionQueue() { return *queue(_sessionQueue); }
DispatchQueue& SCRecordTask::recordingQueue() { return *queue(_recordingQueue); }

SCRecordTaskStatus SCRecordTask::status() const {
    std::lock_guard lock(_lock);
    return _status;
}

bool SCRecordTask::isSessionRunning() const {
    std::lock_guard lock(_lock);
    return _isSessionRunning;
}

std::shared_ptr<CaptureSession> SCRecordTask::captureSession() const {
    std::lock_guard lock(_lock);
    return _session;
}

std::shared_ptr<const SCError> SCRecordTask::error() const {
    std::lock_guard lock(_lock);
    return _error;
}

int32_t SCRecordTask::width() const {
    if (_recordType != SCRecordTypeScreen) return 0;
    if (!isZeroRect(_recordRect)) return roundedUpToEven(_recordRect.width());
    const auto size = ScreenInput::pixelSizeOfDisplay(ScreenInput::mainDisplayID());
    return size ? size->first : 0;
}

int32_t SCRecordTask::height() const {
    if (_recordType != SCRecordTypeScreen) return 0;
    if (!isZeroRect(_recordRect)) return roundedUpToEven(_recordRect.height());
    const auto size = ScreenInput::pixelSizeOfDisplay(ScreenInput::mainDisplayID());
    return size ? size->second : 0;
}

std::pair<int32_t, int32_t> SCRecordTask::videoDimensions() const {
    std::lock_guard lock(_lock);
    return _videoDimensions;
}

AudioStreamBasicDescription SCRecordTask::currentABSD() {
    std::lock_guard lock(_lock);
    if (!_currentABSD || _currentABSD->mSampleRate == 0) {
        _currentABSD = linearPCMDescription(48000.0, 2, 32, true);
    }
    return *_currentABSD;
}

void SCRecordTask::setCurrentABSD(const AudioStreamBasicDescription& description) {
    std::lock_guard lock(_lock);
    _currentABSD = description;
}

CaptureAudioSettings SCRecordTask::dictionSettingsWithABSD(const AudioStreamBasicDescription& description) {
    CaptureAudioSettings settings;
    settings.formatID = kAudioFormatLinearPCM;
    settings.sampleRate = static_cast<float>(description.mSampleRate);
    settings.numberOfChannels = description.mChannelsPerFrame;
    settings.bitDepth = description.mBitsPerChannel;
    settings.isFloat = (description.mFormatFlags & kAudioFormatFlagIsFloat) != 0;
    settings.isNonInterleaved = false;
    return settings;
}

void SCRecordTask::configureTask() {
    sessionQueue().sync([this] {
        std::shared_ptr<CaptureInput> audioInput = configureCaptureDeviceInputWithType(CaptureMediaType::audio);
        std::shared_ptr<CaptureInput> videoInput;
        if (_recordType == SCRecordTypeCamera) {
            videoInput = configureCaptureDeviceInputWithType(CaptureMediaType::video);
        } else if (_recordType == SCRecordTypeScreen) {
            auto screen = ScreenInput::createWithDisplayID(ScreenInput::mainDisplayID());
            configureScreenInput(*screen);
            videoInput = screen;
        }
        if (!prepareRecordSessionWithAudioInput(audioInput, videoInput)) return;
        std::shared_ptr<CaptureSession> session;
        {
            std::lock_guard lock(_lock);
            _isSessionRunning = true;
            session = _session;
        }
        session->startRunning();
    });
}

std::shared_ptr<CaptureDeviceInput> SCRecordTask::configureCaptureDeviceInputWithType(CaptureMediaType type) {
    const bool audio = type == CaptureMediaType::audio;
    auto device = audio ? SCConfigure::configure().currentAudioDevice() : SCConfigure::configure().currentVideoDevice();
    if (!device) return nullptr;
    if (audio) {
        configureAudioDevice(*device);
    } else {
        configureVideoDevice(*device);
    }
    CaptureError error;
    auto input = CaptureDeviceInput::deviceInputWithDevice(device, &error);
    if (!input) {
        if (audio) {
            QMLog("Failed to create audio input for audio record(error: %s).", error.description.c_str());
        } else {
            QMLog("Failed to create video input for video record(Error: %s)", error.description.c_str());
        }
    }
    return input;
}

void SCRecordTask::configureAudioDevice(CaptureDevice& device) {
    auto matches = [](const AudioStreamBasicDescription& d, uint32_t bits, uint32_t flags, uint32_t anyOf) {
        return d.mBitsPerChannel == bits && (d.mFormatFlags & flags) == flags &&
               (anyOf == 0 || d.mFormatFlags & anyOf) && d.mSampleRate == 48000.0;
    };
    std::shared_ptr<const CaptureDeviceFormat> chosen;
    for (const auto& format : device.formats()) {
        if (matches(format->streamDescription(), 32, kAudioFormatFlagIsPacked,
                    kAudioFormatFlagIsFloat | kAudioFormatFlagIsSignedInteger)) {
            chosen = format;
            break;
        }
    }
    if (!chosen) {
        for (const auto& format : device.formats()) {
            if (matches(format->streamDescription(), 16, kAudioFormatFlagIsPacked | kAudioFormatFlagIsSignedInteger,
                        0)) {
                chosen = format;
                break;
            }
        }
    }
    if (!chosen) {
        QMLog("Warning: Only support s16, s32, float sample format.");
        return;
    }
    setCurrentABSD(chosen->streamDescription());
    if (device.lockForConfiguration(nullptr)) {
        device.setActiveFormat(chosen);
        device.unlockForConfiguration();
    }
}

void SCRecordTask::configureVideoDevice(CaptureDevice& device) {
    const double frameRate = SCConfigure::configure().currentFrameRate();
    std::shared_ptr<const CaptureDeviceFormat> chosenFormat;
    CaptureFrameRateRange chosenRange;
    for (const auto& format : device.formats()) {
        for (const auto& range : format->videoSupportedFrameRateRanges()) {
            if (range.maxFrameRate >= frameRate) {
                chosenFormat = format;
                chosenRange = range;
                break;
            }
        }
    }
    if (!chosenFormat || !device.lockForConfiguration(nullptr)) return;
    device.setActiveFormat(chosenFormat);
    device.setActiveVideoMinFrameDuration(chosenRange.minFrameDuration);
    device.setActiveVideoMaxFrameDuration(chosenRange.minFrameDuration);
    device.unlockForConfiguration();
}

void SCRecordTask::configureScreenInput(ScreenInput& input) {
    if (!isZeroRect(_recordRect)) input.setCropRect(_recordRect);
    const auto& configure = SCConfigure::configure();
    input.setCapturesCursor(configure.recordCursor());
    input.setCapturesMouseClicks(configure.recordMouseClicks());
    input.setMinFrameDuration(configure.currentFrameDuration());
    input.setScaleFactor(1.0);
}

void SCRecordTask::failSetup(const std::string& text) {
    auto error = std::make_shared<SCError>();
    error->domain = errorDomain;
    error->code = -1;
    error->userInfo[inputErrorKey] = text;
    std::lock_guard lock(_lock);
    _error = std::move(error);
}

bool SCRecordTask::prepareRecordSessionWithAudioInput(const std::shared_ptr<CaptureInput>& audioInput,
                                                      const std::shared_ptr<CaptureInput>& videoInput) {
    auto session = CaptureSession::create();
    {
        std::lock_guard lock(_lock);
        _session = session;
    }
    session->beginConfiguration();
    session->setSessionPreset(AVCaptureSessionPresetHigh);
    const bool audioAdded = audioInput && session->canAddInput(audioInput);
    if (audioAdded) {
        session->addInput(audioInput);
    } else {
        QMLog("Warning: can not add audio input.");
    }
    const bool videoAdded = videoInput && session->canAddInput(videoInput);
    if (videoAdded) {
        session->addInput(videoInput);
    } else {
        QMLog("Warning: can not add video input");
    }
    auto abandon = [&](const std::string& text) {
        failSetup(text);
        session->commitConfiguration();
        teardownCaptureSession();
        return false;
    };
    if (!audioAdded && !videoAdded) return abandon("No validate audio&video input.");
    session->setSessionPreset(SCConfigure::configure().currentQualityLevel());

    if (audioAdded) {
        auto output = CaptureAudioDataOutput::create();
        output->setSampleBufferDelegate(weak_from_this(), queue(_audioCaptureQueue));
        output->setAudioSettings(dictionSettingsWithABSD(currentABSD()));
        if (!session->canAddOutput(output)) {
            QMLog("Failed to create audio out.");
            return abandon("Can not create audio out device.");
        }
        session->addOutput(output);
        std::lock_guard lock(_lock);
        _audioConnection = output->connectionWithMediaType(CaptureMediaType::audio);
    }
    if (videoAdded) {
        auto output = CaptureVideoDataOutput::create();
        if (_recordType == SCRecordTypeScreen)
            output->setVideoSettings({kCVPixelFormatType_32BGRA, width(), height(), true});
        output->setSampleBufferDelegate(weak_from_this(), queue(_videoCaptureQueue));
        output->setAlwaysDiscardsLateVideoFrames(false);
        if (!session->canAddOutput(output)) return abandon("Can not create video out device.");
        session->addOutput(output);
        std::lock_guard lock(_lock);
        _videoConnection = output->connectionWithMediaType(CaptureMediaType::video);
        if (_videoConnection) _videoOrientation = _videoConnection->videoOrientation();
    }
    session->commitConfiguration();
    return true;
}

void SCRecordTask::teardownCaptureSession() {
    std::lock_guard lock(_lock);
    _session.reset();
}

void SCRecordTask::captureOutput(CaptureOutput&, const std::shared_ptr<VideoSampleBuffer>& sampleBuffer,
                                 CaptureConnection& connection) {
    {
        std::lock_guard lock(_lock);
        if (&connection != _videoConnection.get()) return;
    }
    if (!_videoFormatDescription) {
        _videoFormatDescription = sampleBuffer->formatDescription();
        {
            std::lock_guard lock(_lock);
            _videoDimensions = {_videoFormatDescription->width(), _videoFormatDescription->height()};
        }
        _videoFmtDescReadySema.signal();
    }
    std::lock_guard lock(_lock);
    if (_status == RecordRunning) _movieWritter->appendVideoSampleBuffer(sampleBuffer);
}

void SCRecordTask::captureOutput(CaptureOutput&, const std::shared_ptr<MediaSampleBuffer>& sampleBuffer,
                                 CaptureConnection& connection) {
    {
        std::lock_guard lock(_lock);
        if (&connection != _audioConnection.get()) return;
    }
    if (!_audioFormatDescription) {
        _audioFormatDescription = AudioFormatDescription::create(sampleBuffer->format().streamDescription(),
                                                                 sampleBuffer->format().channelLayoutTag());
        _audioFmtDescReadySema.signal();
    }
    std::lock_guard lock(_lock);
    if (_status == RecordRunning) _movieWritter->appendAudioSampleBuffer(sampleBuffer);
}

bool SCRecordTask::startRecord() {
    if (!isSessionRunning()) {
        QMLog("Configure task first.");
        return false;
    }
    std::shared_ptr<SCMovieWritter> writer;
    {
        std::lock_guard lock(_lock);
        if (_status != RecordIdle) {
            QMLog("Already recording.");
            auto error = std::make_shared<SCError>();
            error->domain = errorDomain;
            error->code = -1;
            error->userInfo[recordErrorKey] = "Already recording.";
            _error = std::move(error);
            return false;
        }
        _status = RecordStarting;
        writer = SCMovieWritter::createWithDelegate(weak_from_this(), queue(_recordingQueue),
                                                    SCConfigure::configure().currentFrameDuration());
        _movieWritter = writer;
    }
    _audioFmtDescReadySema.wait();
    writer->addAudioTrackWithSourceFormatDescription(_audioFormatDescription, {});
    if (_recordType != SCRecordTypeAudio) {
        _videoFmtDescReadySema.wait();
        writer->addVideoTrackWithSourceFormatDescription(_videoFormatDescription, AffineTransform::identity(), {});
    }
    writer->prepareToWrite();
    return true;
}

void SCRecordTask::stopRecord() {
    std::lock_guard lock(_lock);
    if (!_movieWritter || _status != RecordRunning) return;
    _status = RecordStopping;
    _movieWritter->finishRecording();
}

void SCRecordTask::SCMovieWritterDidFinishPreparing(SCMovieWritter&) {
    {
        std::lock_guard lock(_lock);
        if (_status != RecordStarting) {
            QMLog("Error status.");
            return;
        }
        _status = RecordRunning;
        _startRecordDate = std::chrono::steady_clock::now();
    }
    DispatchQueue::main().async([self = shared_from_this()] {
        std::weak_ptr<SCRecordTask> weak = self;
        self->_timer = std::make_shared<RepeatingTimer>(std::chrono::milliseconds(500), [weak] {
            if (auto task = weak.lock()) task->updateRecordTime();
        });
        self->_timer->schedule();
        if (self->_delegate) self->_delegate->SCRecordTaskStart(*self);
    });
}

void SCRecordTask::SCMovieWritterDidFinishWritting(SCMovieWritter&, std::shared_ptr<SCResource> resource) {
    {
        std::lock_guard lock(_lock);
        if (_status != RecordStopping) QMLog("Error status.");
        _movieWritter.reset();
        _status = RecordIdle;
    }
    DispatchQueue::main().async([self = shared_from_this(), resource] { self->completeRecordWithResource(resource); });
}

void SCRecordTask::SCMovieWritterDidFailWithError(SCMovieWritter&, std::shared_ptr<const SCError> error) {
    {
        std::lock_guard lock(_lock);
        _movieWritter.reset();
        _status = RecordIdle;
        _error = std::move(error);
    }
    DispatchQueue::main().async([self = shared_from_this()] { self->completeRecordWithResource(nullptr); });
}

void SCRecordTask::updateRecordTime() {
    std::optional<std::chrono::steady_clock::time_point> start;
    {
        std::lock_guard lock(_lock);
        start = _startRecordDate;
    }
    if (!start) return;
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - *start).count();
    if (_delegate) _delegate->SCRecordTaskRecordDuration(*this, static_cast<int64_t>(seconds * QVTimebase));
}

void SCRecordTask::completeRecordWithResource(std::shared_ptr<SCResource> resource) {
    updateRecordTime();
    if (_timer) _timer->invalidate();
    _timer.reset();
    {
        std::lock_guard lock(_lock);
        _startRecordDate.reset();
    }
    if (_delegate) _delegate->SCRecordTaskCompleteWithResource(*this, std::move(resource));
}

}  // namespace qm
