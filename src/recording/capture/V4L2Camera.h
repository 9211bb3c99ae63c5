#pragma once

#include <memory>
#include <string>
#include <vector>

#include "recording/capture/CaptureDevice.h"

namespace qm {

// A Video4Linux2 camera. Its formats are the YUYV and MJPEG modes the driver lists
// (VIDIOC_ENUM_FMT, FRAMESIZES, FRAMEINTERVALS); YUYV pictures come as 'yuvs', MJPEG ones are
// decoded to 'BGRA'. Capture streams through memory-mapped driver buffers.
class V4L2Camera : public CaptureDevice {
public:
    // The first /dev/video* that opens and captures in a mode above; nothing when none does.
    static std::shared_ptr<V4L2Camera> createFirst();
    static std::shared_ptr<V4L2Camera> createWithPath(const std::string& path);

    std::unique_ptr<CaptureStream> startVideo(CaptureVideoHandler handler, CaptureError* error) override;

    // One mode of the driver behind a format.
    struct Mode {
        uint32_t fourcc = 0;
        uint32_t width = 0;
        uint32_t height = 0;
    };

private:
    V4L2Camera(std::string path, std::string name, std::vector<std::shared_ptr<const CaptureDeviceFormat>> formats,
               std::vector<Mode> modes)
        : CaptureDevice(path, std::move(name), CaptureMediaType::video, std::move(formats)),
          _path(std::move(path)),
          _modes(std::move(modes)) {}

    std::string _path;
    std::vector<Mode> _modes;
};

}  // namespace qm
