#include "recording/capture/CaptureInput.h"

namespace qm {

std::unique_ptr<CaptureStream> CaptureInput::startVideo(const CaptureVideoSettings&, CaptureVideoHandler,
                                                        CaptureError* error) {
    if (error) error->description = "The input does not capture pictures.";
    return nullptr;
}

std::unique_ptr<CaptureStream> CaptureInput::startAudio(const std::optional<CaptureAudioSettings>&, CaptureAudioHandler,
                                                        CaptureError* error) {
    if (error) error->description = "The input does not capture sound.";
    return nullptr;
}

std::shared_ptr<CaptureDeviceInput> CaptureDeviceInput::deviceInputWithDevice(std::shared_ptr<CaptureDevice> device,
                                                                              CaptureError* error) {
    if (!device || device->formats().empty()) {
        if (error) error->description = device ? "The device has no formats." : "No device.";
        return nullptr;
    }
    return std::shared_ptr<CaptureDeviceInput>(new CaptureDeviceInput(std::move(device)));
}

std::unique_ptr<CaptureStream> CaptureDeviceInput::startVideo(const CaptureVideoSettings&, CaptureVideoHandler handler,
                                                              CaptureError* error) {
    return _device->startVideo(std::move(handler), error);
}

std::unique_ptr<CaptureStream> CaptureDeviceInput::startAudio(const std::optional<CaptureAudioSettings>& settings,
                                                              CaptureAudioHandler handler, CaptureError* error) {
    return _device->startAudio(settings, std::move(handler), error);
}

}  // namespace qm
