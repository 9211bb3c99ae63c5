#pragma once

#include <functional>
#include <memory>
#include <string>

#include "codec/MediaSampleBuffer.h"
#include "codec/VideoSampleBuffer.h"

namespace qm {

// Kinds of media a capture device or connection carries.
enum class CaptureMediaType { audio, video };

// The name of a media type in log lines: "soun" or "vide".
const char* captureMediaTypeName(CaptureMediaType type);

// Where a running capture hands its buffers, on the capture's own thread.
using CaptureVideoHandler = std::function<void(std::shared_ptr<VideoSampleBuffer>)>;
using CaptureAudioHandler = std::function<void(std::shared_ptr<MediaSampleBuffer>)>;

// What a video data output asks of its pictures; zero fields leave the source's own choice.
struct CaptureVideoSettings {
    uint32_t pixelFormatType = 0;
    int32_t width = 0;
    int32_t height = 0;
    bool bitmapContextCompatible = false;
};

// What an audio data output asks of its sound: linear PCM, interleaved.
struct CaptureAudioSettings {
    uint32_t formatID = 0;
    float sampleRate = 0;
    uint32_t numberOfChannels = 0;
    uint32_t bitDepth = 0;
    bool isFloat = false;
    bool isNonInterleaved = false;
};

// A capture under way. Destroying it stops the capture and waits for its thread.
class CaptureStream {
public:
    virtual ~CaptureStream() = default;
};

// Why a capture could not start or a device could not be configured.
struct CaptureError {
    std::string description;
};

}  // namespace qm
