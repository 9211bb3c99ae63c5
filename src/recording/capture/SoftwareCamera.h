#pragma once

#include <memory>

#include "recording/capture/CaptureDevice.h"

namespace qm {

// A camera made in software, for machines without one: 'yuvs' pictures at 640x480 and
// 1280x720, 1 to 30 frames per second, showing eight colour bars that move kBarStepPerFrame
// pixels to the right with every frame.
class SoftwareCamera : public CaptureDevice {
public:
    static constexpr int kBarCount = 8;
    static constexpr int kBarStepPerFrame = 8;

    static std::shared_ptr<SoftwareCamera> create();

    // The Y, Cb, Cr of the bar that covers column `x` of frame `frameIndex` in a picture `width` wide.
    static void colorAt(int x, int width, int64_t frameIndex, uint8_t* y, uint8_t* cb, uint8_t* cr);

    std::unique_ptr<CaptureStream> startVideo(CaptureVideoHandler handler, CaptureError* error) override;

private:
    explicit SoftwareCamera(std::vector<std::shared_ptr<const CaptureDeviceFormat>> formats)
        : CaptureDevice("software-camera", "Software Camera", CaptureMediaType::video, std::move(formats)) {}
};

}  // namespace qm
