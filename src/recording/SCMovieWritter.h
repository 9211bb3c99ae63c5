#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "codec/MediaSampleBuffer.h"
#include "codec/PixelBuffer.h"
#include "codec/QVJPEGEncoderHW.h"
#include "codec/VideoSampleBuffer.h"
#include "platform/AffineTransform.h"
#include "platform/Dispatch.h"
#include "store/SCAudioResource.h"
#include "store/SCResource.h"
#include "store/SCResourceStorage.h"
#include "store/SCVideoResource.h"

namespace qm {

class SCRecordingJournal;

// An error of the recorder: a domain, a code and texts by key.
struct SCError {
    std::string domain;
    int64_t code = 0;
    std::map<std::string, std::string> userInfo;
};

// Output settings of a track, kept for the owner and not interpreted by the writer.
using SCMovieWritterSettings = std::map<std::string, double>;

class SCMovieWritter;

// What a movie writer tells its owner, on the owner's callback queue, in this order of events.
class SCMovieWritterDelegate {
public:
    virtual ~SCMovieWritterDelegate() = default;

    // The storages are ready and samples are accepted.
    virtual void SCMovieWritterDidFinishPreparing(SCMovieWritter& writer) {}
    // The recording failed; its cache files are deleted. The error is cannotSetupInputError() when
    // a cache file could not be made, and nothing when a sample could not be written.
    virtual void SCMovieWritterDidFailWithError(SCMovieWritter& writer, std::shared_ptr<const SCError> error) {}
    // The recording is complete; the resource holds its audio, its video or both.
    virtual void SCMovieWritterDidFinishWritting(SCMovieWritter& writer, std::shared_ptr<SCResource> resource) {}
};

// Turns captured sample buffers into a pair of cache files and their block lists: audio as one
// archived QVAudioFrame2 per buffer, video as one JPEG per frame. The result is an SCResource, not
// a movie file.
//
// Append calls come from the capture queues and only hand the buffer over; all encoding and
// writing runs on the writer's serial writing queue, and the delegate is called on the callback
// queue, which must not be the writing queue. Times start at the first buffer seen, which is
// itself dropped; every later buffer must be strictly later than it to be kept.
//
// While writing, a crash journal beside the cache files lists every block that is safely on
// disk, synced at least once a second, so that the next AMResourceMgr start can recover an
// interrupted recording. The journal is deleted when the recording finishes or fails.
class SCMovieWritter : public std::enable_shared_from_this<SCMovieWritter> {
public:
    enum Status : int64_t {
        StatusIdle = 0,
        StatusPreparing = 1,
        StatusWriting = 2,
        StatusFinishing = 3,
        StatusFlushing = 4,
        StatusFinished = 5,
        StatusFailed = 6,
    };

    // Media types of appendSampleBuffer.
    static constexpr const char* AVMediaTypeVideo = "vide";
    static constexpr const char* AVMediaTypeAudio = "soun";

    // Provisional duration of the last frame when the owner gives none: 1/30 s.
    static CMTime defaultFrameDuration() { return CMTime::make(1, 30); }

    // A writer in StatusIdle; the delegate is not retained. `frameDuration` is the capture's frame duration (the
    // recorder's configured frame rate), given to each new frame until the next one arrives.
    static std::shared_ptr<SCMovieWritter> createWithDelegate(std::weak_ptr<SCMovieWritterDelegate> delegate,
                                                              std::shared_ptr<DispatchQueue> callbackQueue,
                                                              CMTime frameDuration = defaultFrameDuration());
    ~SCMovieWritter();
    SCMovieWritter(const SCMovieWritter&) = delete;
    SCMovieWritter& operator=(const SCMovieWritter&) = delete;

    Status status() const;
    // Identity until a video track is added.
    AffineTransform videoTrackTransform() const;

    // Only in StatusIdle and once per kind; otherwise refused with a log line, the first track kept.
    void addVideoTrackWithSourceFormatDescription(std::shared_ptr<const VideoFormatDescription> formatDescription,
                                                  const AffineTransform& transform,
                                                  const SCMovieWritterSettings& settings);
    void addAudioTrackWithSourceFormatDescription(std::shared_ptr<const AudioFormatDescription> formatDescription,
                                                  const SCMovieWritterSettings& settings);

    // StatusIdle to StatusPreparing; the storages are made on the writing queue, then
    // SCMovieWritterDidFinishPreparing (or a failure) follows.
    void prepareToWrite();
    // StatusWriting to StatusFinishing; buffers appended before this call are still written.
    void finishRecording();

    void appendVideoSampleBuffer(std::shared_ptr<VideoSampleBuffer> sampleBuffer);
    void appendAudioSampleBuffer(std::shared_ptr<MediaSampleBuffer> sampleBuffer);
    // Wraps the picture in a sample buffer with that time and no duration.
    void appendVideoPixelBuffer(std::shared_ptr<const PixelBuffer> pixelBuffer, CMTime presentationTime);

    // Logs the time in the diagnostic form "<type>, Value: ..., Scale: ..., flag: ..., epon: ...",
    // with flag 1 for a valid time and epoch 0.
    static void logCurrentTime(CMTime time, const std::string& type);

    // Format of a stream description as a QVAudioFrame2 sample format: S16, S32 or FLT; -1 for
    // anything else, and for nothing.
    static int32_t sampleFormatFromDescription(const AudioStreamBasicDescription* description);

    // "Recording cannot be started": the preparing failed because a cache file could not be made.
    static std::shared_ptr<const SCError> cannotSetupInputError();

private:
    SCMovieWritter(std::weak_ptr<SCMovieWritterDelegate> delegate, std::shared_ptr<DispatchQueue> callbackQueue,
                   CMTime frameDuration);

    // A buffer of either medium on its way to the writing queue.
    struct PendingSample;

    DispatchQueue& writingQueue();
    void appendSampleBuffer(std::shared_ptr<PendingSample> sample);
    void encodeSampleBuffer(std::shared_ptr<PendingSample> sample);
    void writeSample(const PendingSample& sample);
    bool writeAudioSampleBuffer(const MediaSampleBuffer& sampleBuffer);
    bool writeVideoSampleBuffer(const VideoSampleBuffer& sampleBuffer, CMTime presentTime);
    void setupStorages();
    void finishOnWritingQueue();
    void transitionToStatus(Status status, std::shared_ptr<const SCError> error);
    void deliverStatus(std::shared_ptr<const SCError> error);
    void teardownAssetWriterAndInputs(bool keep);
    std::shared_ptr<SCAudioResource> makeAudioResource();
    std::shared_ptr<SCVideoResource> makeVideoResource();
    void startJournal();
    // Syncs the journal at least once a second while samples are accepted, also when none arrive.
    void startJournalTicker();
    void syncJournal();
    // Stops the ticker and deletes the journal.
    void closeJournal();
    const QVJPEGEncoderHW& jpegEncoder();

    std::once_flag _writingQueueOnce;
    std::shared_ptr<DispatchQueue> _writingQueue;
    std::shared_ptr<DispatchQueue> _callbackQueue;
    std::weak_ptr<SCMovieWritterDelegate> _delegate;
    CMTime _frameDuration;

    // Touched only on the writing queue.
    std::vector<std::shared_ptr<SCVideoBlock>> _videoBlocks;
    std::vector<std::shared_ptr<SCAudioBlock>> _audioBlocks;
    std::shared_ptr<QVJPEGEncoderHW> _jpegEncoder;
    bool _sessionStarted = false;
    CMTime _startSessionTime;
    std::shared_ptr<SCResourceStorage> _videoStorage;
    std::shared_ptr<SCResourceStorage> _audioStorage;
    std::shared_ptr<SCRecordingJournal> _journal;
    std::shared_ptr<DispatchSemaphore> _journalTickerStop;

    // Guarded by _mutex.
    mutable std::recursive_mutex _mutex;
    Status _status = StatusIdle;
    std::shared_ptr<const VideoFormatDescription> _videoFormatDescription;
    std::shared_ptr<const AudioFormatDescription> _audioFormatDescription;
    SCMovieWritterSettings _videoSettings;
    SCMovieWritterSettings _audioSettings;
    AffineTransform _videoTrackTransform;
};

}  // namespace qm
