#pragma once

#include <memory>
#include <optional>

#include "recording/capture/CaptureDevice.h"
#include "recording/capture/CaptureTypes.h"

namespace qm {

// A source a capture session can take buffers from. The session starts it once per connection.
class CaptureInput {
public:
    virtual ~CaptureInput() = default;

    virtual CaptureMediaType mediaType() const = 0;
    // Starts delivering pictures shaped by `settings`, or sound in `settings`; nothing, with the
    // reason, when it cannot start or does not carry that medium.
    virtual std::unique_ptr<CaptureStream> startVideo(const CaptureVideoSettings& settings, CaptureVideoHandler handler,
                                                      CaptureError* error);
    virtual std::unique_ptr<CaptureStream> startAudio(const std::optional<CaptureAudioSettings>& settings,
                                                      CaptureAudioHandler handler, CaptureError* error);
};

// A microphone or camera as the input of a session. The device's own format is used: a camera
// ignores the picture settings of its output.
class CaptureDeviceInput : public CaptureInput {
public:
    // Nothing, with the reason, for no device or one without formats.
    static std::shared_ptr<CaptureDeviceInput> deviceInputWithDevice(std::shared_ptr<CaptureDevice> device,
                                                                     CaptureError* error);

    const std::shared_ptr<CaptureDevice>& device() const { return _device; }

    CaptureMediaType mediaType() const override { return _device->mediaType(); }
    std::unique_ptr<CaptureStream> startVideo(const CaptureVideoSettings& settings, CaptureVideoHandler handler,
                                              CaptureError* error) override;
    std::unique_ptr<CaptureStream> startAudio(const std::optional<CaptureAudioSettings>& settings,
                                              CaptureAudioHandler handler, CaptureError* error) override;

private:
    explicit CaptureDeviceInput(std::shared_ptr<CaptureDevice> device) : _device(std::move(device)) {}

    std::shared_ptr<CaptureDevice> _device;
};

}  // namespace qm
