#pragma once

#include <memory>
#include <optional>
#include <string>

#include "recording/capture/CaptureDevice.h"

namespace qm {

// A PulseAudio source as a microphone. Its formats are what the server converts to for clients
// (32-bit float and 16-bit integer at 48 kHz in the source's channels, and the source's own
// format); a capture reads the source through pa_simple in blocks of about 20 ms.
class PulseMicrophone : public CaptureDevice {
public:
    // Frames in one captured buffer.
    static constexpr uint32_t kFramesPerBuffer = 1024;

    // The server's default source; nothing when the server does not answer or has no source.
    static std::shared_ptr<PulseMicrophone> createDefault();
    // True when a connection to the sound server can be made.
    static bool serverAnswers();

    std::unique_ptr<CaptureStream> startAudio(const std::optional<CaptureAudioSettings>& settings,
                                              CaptureAudioHandler handler, CaptureError* error) override;

private:
    PulseMicrophone(std::string sourceName, std::string description,
                    std::vector<std::shared_ptr<const CaptureDeviceFormat>> formats)
        : CaptureDevice(sourceName, std::move(description), CaptureMediaType::audio, std::move(formats)) {}
};

}  // namespace qm
