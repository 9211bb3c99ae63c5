#include "recording/capture/CaptureOutput.h"

namespace qm {

void CaptureOutput::setSampleBufferDelegate(std::weak_ptr<CaptureSampleBufferDelegate> delegate,
                                            std::shared_ptr<DispatchQueue> queue) {
    std::lock_guard lock(_mutex);
    _delegate = std::move(delegate);
    _queue = std::move(queue);
}

std::shared_ptr<CaptureConnection> CaptureOutput::connectionWithMediaType(CaptureMediaType type) const {
    std::lock_guard lock(_mutex);
    return _connection && _connection->mediaType() == type ? _connection : nullptr;
}

void CaptureOutput::setConnection(std::shared_ptr<CaptureConnection> connection) {
    std::lock_guard lock(_mutex);
    _connection = std::move(connection);
}

template <class Buffer>
void CaptureOutput::deliver(std::shared_ptr<Buffer> buffer, bool discardWhileBusy) {
    std::unique_lock lock(_mutex);
    if (!_queue || !_connection) return;
    if (discardWhileBusy && *_buffersInFlight > 0) return;
    ++*_buffersInFlight;
    _queue->async([self = shared_from_this(), delegate = _delegate, connection = _connection,
                   inFlight = _buffersInFlight, buffer = std::move(buffer)] {
        if (auto receiver = delegate.lock()) receiver->captureOutput(*self, buffer, *connection);
        --*inFlight;
    });
}

std::shared_ptr<CaptureAudioDataOutput> CaptureAudioDataOutput::create() {
    return std::shared_ptr<CaptureAudioDataOutput>(new CaptureAudioDataOutput());
}

std::unique_ptr<CaptureStream> CaptureAudioDataOutput::start(CaptureError* error) {
    auto connection = connectionWithMediaType(CaptureMediaType::audio);
    if (!connection) return nullptr;
    std::weak_ptr<CaptureOutput> weakSelf = shared_from_this();
    return connection->input()->startAudio(
        _audioSettings,
        [weakSelf](std::shared_ptr<MediaSampleBuffer> buffer) {
            if (auto self = std::static_pointer_cast<CaptureAudioDataOutput>(weakSelf.lock())) {
                self->deliver(std::move(buffer), false);
            }
        },
        error);
}

std::shared_ptr<CaptureVideoDataOutput> CaptureVideoDataOutput::create() {
    return std::shared_ptr<CaptureVideoDataOutput>(new CaptureVideoDataOutput());
}

std::unique_ptr<CaptureStream> CaptureVideoDataOutput::start(CaptureError* error) {
    auto connection = connectionWithMediaType(CaptureMediaType::video);
    if (!connection) return nullptr;
    std::weak_ptr<CaptureOutput> weakSelf = shared_from_this();
    const bool discard = _alwaysDiscardsLateVideoFrames;
    return connection->input()->startVideo(
        _videoSettings,
        [weakSelf, discard](std::shared_ptr<VideoSampleBuffer> buffer) {
            if (auto self = std::static_pointer_cast<CaptureVideoDataOutput>(weakSelf.lock())) {
                self->deliver(std::move(buffer), discard);
            }
        },
        error);
}

}  // namespace qm
