#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include "recording/capture/CaptureOutput.h"

namespace qm::test {

// Keeps every buffer a capture output delivers.
class CaptureCollector : public CaptureSampleBufferDelegate {
public:
    void captureOutput(CaptureOutput&, const std::shared_ptr<VideoSampleBuffer>& buffer, CaptureConnection&) override {
        std::lock_guard lock(_mutex);
        _video.push_back(buffer);
        _changed.notify_all();
    }
    void captureOutput(CaptureOutput&, const std::shared_ptr<MediaSampleBuffer>& buffer, CaptureConnection&) override {
        std::lock_guard lock(_mutex);
        _audio.push_back(buffer);
        _changed.notify_all();
    }

    bool waitForVideo(size_t count, std::chrono::seconds timeout = std::chrono::seconds(10)) {
        std::unique_lock lock(_mutex);
        return _changed.wait_for(lock, timeout, [&] { return _video.size() >= count; });
    }
    bool waitForAudio(size_t count, std::chrono::seconds timeout = std::chrono::seconds(10)) {
        std::unique_lock lock(_mutex);
        return _changed.wait_for(lock, timeout, [&] { return _audio.size() >= count; });
    }
    std::vector<std::shared_ptr<VideoSampleBuffer>> video() const {
        std::lock_guard lock(_mutex);
        return _video;
    }
    std::vector<std::shared_ptr<MediaSampleBuffer>> audio() const {
        std::lock_guard lock(_mutex);
        return _audio;
    }

private:
    mutable std::mutex _mutex;
    std::condition_variable _changed;
    std::vector<std::shared_ptr<VideoSampleBuffer>> _video;
    std::vector<std::shared_ptr<MediaSampleBuffer>> _audio;
};

// Blue, green, red of a pixel of a 'BGRA' picture.
inline std::array<uint8_t, 3> bgrAt(const PixelBuffer& picture, int x, int y) {
    const uint8_t* pixel = picture.plane(0) + static_cast<size_t>(y) * picture.bytesPerRow(0) + x * 4;
    return {pixel[0], pixel[1], pixel[2]};
}

}  // namespace qm::test
