#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>

#include "platform/Dispatch.h"
#include "recording/capture/CaptureInput.h"
#include "recording/capture/CaptureTypes.h"

namespace qm {

class CaptureOutput;

// The link between a session's input and output of one medium.
class CaptureConnection {
public:
    enum VideoOrientation : int64_t { portrait = 1, portraitUpsideDown = 2, landscapeRight = 3, landscapeLeft = 4 };

    CaptureConnection(CaptureMediaType type, std::shared_ptr<CaptureInput> input)
        : _mediaType(type), _input(std::move(input)) {}

    CaptureMediaType mediaType() const { return _mediaType; }
    const std::shared_ptr<CaptureInput>& input() const { return _input; }
    // Pictures come as the display or sensor shows them.
    VideoOrientation videoOrientation() const { return landscapeRight; }

private:
    CaptureMediaType _mediaType;
    std::shared_ptr<CaptureInput> _input;
};

// Receives the buffers of a data output on the output's queue.
class CaptureSampleBufferDelegate {
public:
    virtual ~CaptureSampleBufferDelegate() = default;
    virtual void captureOutput(CaptureOutput& output, const std::shared_ptr<VideoSampleBuffer>& sampleBuffer,
                               CaptureConnection& connection) {}
    virtual void captureOutput(CaptureOutput& output, const std::shared_ptr<MediaSampleBuffer>& sampleBuffer,
                               CaptureConnection& connection) {}
};

// A data output of a session: hands every buffer of its connection to the delegate, in capture
// order, on the delegate's serial queue. The delegate is held weakly.
class CaptureOutput : public std::enable_shared_from_this<CaptureOutput> {
public:
    virtual ~CaptureOutput() = default;

    virtual CaptureMediaType mediaType() const = 0;
    void setSampleBufferDelegate(std::weak_ptr<CaptureSampleBufferDelegate> delegate,
                                 std::shared_ptr<DispatchQueue> queue);
    // The connection once the session has joined this output to an input; nothing otherwise.
    std::shared_ptr<CaptureConnection> connectionWithMediaType(CaptureMediaType type) const;

    // Used by the session.
    void setConnection(std::shared_ptr<CaptureConnection> connection);
    virtual std::unique_ptr<CaptureStream> start(CaptureError* error) = 0;

protected:
    template <class Buffer>
    void deliver(std::shared_ptr<Buffer> buffer, bool discardWhileBusy);

private:
    mutable std::mutex _mutex;
    std::weak_ptr<CaptureSampleBufferDelegate> _delegate;
    std::shared_ptr<DispatchQueue> _queue;
    std::shared_ptr<CaptureConnection> _connection;
    std::shared_ptr<std::atomic<int>> _buffersInFlight = std::make_shared<std::atomic<int>>(0);
};

class CaptureAudioDataOutput : public CaptureOutput {
public:
    static std::shared_ptr<CaptureAudioDataOutput> create();

    CaptureMediaType mediaType() const override { return CaptureMediaType::audio; }
    std::optional<CaptureAudioSettings> audioSettings() const { return _audioSettings; }
    void setAudioSettings(const CaptureAudioSettings& settings) { _audioSettings = settings; }

    std::unique_ptr<CaptureStream> start(CaptureError* error) override;

private:
    CaptureAudioDataOutput() = default;
    std::optional<CaptureAudioSettings> _audioSettings;
};

class CaptureVideoDataOutput : public CaptureOutput {
public:
    static std::shared_ptr<CaptureVideoDataOutput> create();

    CaptureMediaType mediaType() const override { return CaptureMediaType::video; }
    const CaptureVideoSettings& videoSettings() const { return _videoSettings; }
    void setVideoSettings(const CaptureVideoSettings& settings) { _videoSettings = settings; }
    // When true, a picture that comes while the delegate still works on the previous one is
    // dropped; when false every picture is queued.
    bool alwaysDiscardsLateVideoFrames() const { return _alwaysDiscardsLateVideoFrames; }
    void setAlwaysDiscardsLateVideoFrames(bool discard) { _alwaysDiscardsLateVideoFrames = discard; }

    std::unique_ptr<CaptureStream> start(CaptureError* error) override;

private:
    CaptureVideoDataOutput() = default;
    CaptureVideoSettings _videoSettings;
    bool _alwaysDiscardsLateVideoFrames = true;
};

}  // namespace qm
