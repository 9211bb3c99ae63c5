#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "platform/Dispatch.h"
#include "platform/Geometry.h"
#include "recording/SCMovieWritter.h"
#include "recording/capture/CaptureSession.h"
#include "recording/capture/ScreenInput.h"

namespace qm {

class SCRecordTask;

// What to record.
enum SCRecordType : int32_t {
    SCRecordTypeScreen = 0,  // the display, with the microphone
    SCRecordTypeCamera = 1,  // the camera, with the microphone
    SCRecordTypeAudio = 2,   // the microphone alone
};

enum SCRecordTaskStatus : int64_t {
    RecordIdle = 0,
    RecordStarting = 1,
    RecordRunning = 2,
    RecordStopping = 3,
};

// What a record task tells its host, always on the main queue.
class SCRecordTaskDelegate {
public:
    virtual ~SCRecordTaskDelegate() = default;
    // Recording has really begun.
    virtual void SCRecordTaskStart(SCRecordTask& task) {}
    // Time since the start, in QVTimebase units, every half second.
    virtual void SCRecordTaskRecordDuration(SCRecordTask& task, int64_t duration) {}
    // The recording, or nothing when it failed.
    virtual void SCRecordTaskCompleteWithResource(SCRecordTask& task, std::shared_ptr<SCResource> resource) {}
};

// Drives one recording: builds the capture session for its type, waits until the first buffers
// have told their formats, runs an SCMovieWritter, reports the elapsed time and delivers the
// resulting resource on the main queue.
//
// configureTask starts the session; startRecord then blocks its caller until the formats are known
// (for ever, if a device gives no buffer), so it must not run on a capture queue, and a task
// records once: the host makes a new task per recording. Set-up failures stand in error() and in
// the results; failures while recording end in SCRecordTaskCompleteWithResource with nothing.
class SCRecordTask : public CaptureSampleBufferDelegate,
                     public SCMovieWritterDelegate,
                     public std::enable_shared_from_this<SCRecordTask> {
public:
    static constexpr const char* errorDomain = "com.screenrecord";
    static constexpr const char* inputErrorKey = "SCRecordInputError";
    static constexpr const char* recordErrorKey = "SCScreenRecordError";

    // Answers on the main queue whether a picture of the display can be taken.
    static void checkDisplayAuthorizationStatusWithCompleteHandler(std::function<void(bool)> handler);
    // Answers on the main queue whether the microphone (audio) or camera (video) may be used.
    static void checkAuthorizationStatusForType(CaptureMediaType type, std::function<void(bool)> handler);

    // Nothing for a type outside 0 to 2.
    static std::shared_ptr<SCRecordTask> createWithRecordType(int32_t type,
                                                              std::shared_ptr<SCRecordTaskDelegate> delegate);
    ~SCRecordTask() override;
    SCRecordTask(const SCRecordTask&) = delete;
    SCRecordTask& operator=(const SCRecordTask&) = delete;

    // Builds and starts the capture session, synchronously on the session queue.
    void configureTask();
    // Starts the writer once both formats are known; false, with the reason logged and in error(),
    // before configureTask or while recording.
    bool startRecord();
    // Finishes the recording; does nothing unless it is running.
    void stopRecord();

    int32_t type() const { return _recordType; }
    SCRecordTaskStatus status() const;
    bool isRecording() const { return status() != RecordIdle; }
    bool isSessionRunning() const;
    std::shared_ptr<CaptureSession> captureSession() const;
    std::shared_ptr<const SCError> error() const;

    // In display pixels from the top-left; the zero rectangle records the whole display.
    const Rect& recordRect() const { return _recordRect; }
    void setRecordRect(const Rect& rect) { _recordRect = rect; }
    // The picture size for the screen type: the display's, or the rectangle's rounded up to even
    // numbers. 0 for the other types.
    int32_t width() const;
    int32_t height() const;
    // Of the first video buffer.
    std::pair<int32_t, int32_t> videoDimensions() const;

    // The format asked of the microphone: 48 kHz float stereo until a device format is chosen.
    AudioStreamBasicDescription currentABSD();
    void setCurrentABSD(const AudioStreamBasicDescription& description);
    static CaptureAudioSettings dictionSettingsWithABSD(const AudioStreamBasicDescription& description);

    // Makes the first 48 kHz format of 32-bit float or integer samples active, else the first of
    // 16-bit integers, and asks the microphone for it; with neither, logs a warning and changes
    // nothing.
    void configureAudioDevice(CaptureDevice& device);
    // Makes active the last format that has a rate range reaching the configured frame rate, at
    // the fastest rate of the first such range.
    void configureVideoDevice(CaptureDevice& device);

    void captureOutput(CaptureOutput& output, const std::shared_ptr<VideoSampleBuffer>& sampleBuffer,
                       CaptureConnection& connection) override;
    void captureOutput(CaptureOutput& output, const std::shared_ptr<MediaSampleBuffer>& sampleBuffer,
                       CaptureConnection& connection) override;

    void SCMovieWritterDidFinishPreparing(SCMovieWritter& writer) override;
    void SCMovieWritterDidFailWithError(SCMovieWritter& writer, std::shared_ptr<const SCError> error) override;
    void SCMovieWritterDidFinishWritting(SCMovieWritter& writer, std::shared_ptr<SCResource> resource) override;

private:
    class RepeatingTimer;

    SCRecordTask(int32_t type, std::shared_ptr<SCRecordTaskDelegate> delegate);

    DispatchQueue& audioCaptureQueue();
    DispatchQueue& videoCaptureQueue();
    DispatchQueue& sessionQueue();
    DispatchQueue& recordingQueue();
    std::shared_ptr<DispatchQueue> queue(std::shared_ptr<DispatchQueue>& slot);

    std::shared_ptr<CaptureDeviceInput> configureCaptureDeviceInputWithType(CaptureMediaType type);
    void configureScreenInput(ScreenInput& input);
    bool prepareRecordSessionWithAudioInput(const std::shared_ptr<CaptureInput>& audioInput,
                                            const std::shared_ptr<CaptureInput>& videoInput);
    void failSetup(const std::string& text);
    void teardownCaptureSession();
    void updateRecordTime();
    void completeRecordWithResource(std::shared_ptr<SCResource> resource);

    const int32_t _recordType;
    const std::shared_ptr<SCRecordTaskDelegate> _delegate;
    std::mutex _queuesMutex;
    std::shared_ptr<DispatchQueue> _audioCaptureQueue;
    std::shared_ptr<DispatchQueue> _videoCaptureQueue;
    std::shared_ptr<DispatchQueue> _sessionQueue;
    std::shared_ptr<DispatchQueue> _recordingQueue;
    DispatchSemaphore _audioFmtDescReadySema{0};
    DispatchSemaphore _videoFmtDescReadySema{0};
    Rect _recordRect;
    std::optional<AudioStreamBasicDescription> _currentABSD;

    // Guarded by _lock.
    mutable std::recursive_mutex _lock;
    SCRecordTaskStatus _status = RecordIdle;
    std::shared_ptr<SCMovieWritter> _movieWritter;
    std::shared_ptr<CaptureSession> _session;
    bool _isSessionRunning = false;
    std::shared_ptr<const SCError> _error;
    std::shared_ptr<CaptureConnection> _audioConnection;
    std::shared_ptr<CaptureConnection> _videoConnection;
    int64_t _videoOrientation = 0;
    std::optional<std::chrono::steady_clock::time_point> _startRecordDate;

    // Set once, by the first buffer of each medium, before its semaphore is signalled.
    std::shared_ptr<const AudioFormatDescription> _audioFormatDescription;
    std::shared_ptr<const VideoFormatDescription> _videoFormatDescription;
    std::pair<int32_t, int32_t> _videoDimensions{0, 0};

    // Main queue only.
    std::shared_ptr<RepeatingTimer> _timer;
};

}  // namespace qm
