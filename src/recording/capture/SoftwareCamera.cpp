#include "recording/capture/SoftwareCamera.h"

#include "recording/capture/CaptureClock.h"
#include "recording/capture/PeriodicCaptureThread.h"

namespace qm {

namespace {

// Y, Cb, Cr of white, yellow, cyan, green, magenta, red, blue and black.
constexpr uint8_t kBars[SoftwareCamera::kBarCount][3] = {
    {255, 128, 128}, {226, 0, 149}, {179, 171, 0},  {150, 44, 21},
    {105, 212, 235}, {76, 85, 255}, {29, 255, 107}, {0, 128, 128},
};

class SoftwareCameraStream : public CaptureStream {
public:
    SoftwareCameraStream(int32_t width, int32_t height, CMTime frameDuration, CaptureVideoHandler handler)
        : _width(width),
          _height(height),
          _frameDuration(frameDuration),
          _handler(std::move(handler)),
          _thread(frameDuration, [this] { produceOne(); }) {}

private:
    void produceOne() {
        const CMTime time = captureClockNow();
        auto picture = createPixelBufferWithType(_width, _height, kCVPixelFormatType_422YpCbCr8_yuvs);
        if (!picture) return;
        std::vector<uint8_t> row(static_cast<size_t>(_width) * 2);
        for (int x = 0; x + 1 < _width; x += 2) {
            uint8_t y = 0, cb = 0, cr = 0;
            SoftwareCamera::colorAt(x, _width, _frameIndex, &y, &cb, &cr);
            uint8_t* pair = row.data() + static_cast<size_t>(x) * 2;
            pair[0] = y;
            pair[1] = cb;
            pair[2] = y;
            pair[3] = cr;
        }
        uint8_t* plane = picture->mutablePlane(0);
        for (int line = 0; line < _height; ++line) {
            std::copy(row.begin(), row.end(), plane + static_cast<size_t>(line) * picture->bytesPerRow(0));
        }
        ++_frameIndex;
        if (auto buffer = VideoSampleBuffer::create(picture, time, _frameDuration)) _handler(std::move(buffer));
    }

    int32_t _width;
    int32_t _height;
    CMTime _frameDuration;
    CaptureVideoHandler _handler;
    int64_t _frameIndex = 0;
    PeriodicCaptureThread _thread;
};

CaptureFrameRateRange rates(double fastest) {
    return {1.0, fastest, CMTime::make(1, static_cast<int32_t>(fastest)), CMTime::make(1, 1)};
}

}  // namespace

std::shared_ptr<SoftwareCamera> SoftwareCamera::create() {
    std::vector<std::shared_ptr<const CaptureDeviceFormat>> formats{
        CaptureDeviceFormat::createVideo(640, 480, kCVPixelFormatType_422YpCbCr8_yuvs, {rates(30)}),
        CaptureDeviceFormat::createVideo(1280, 720, kCVPixelFormatType_422YpCbCr8_yuvs, {rates(30)}),
    };
    return std::shared_ptr<SoftwareCamera>(new SoftwareCamera(std::move(formats)));
}

void SoftwareCamera::colorAt(int x, int width, int64_t frameIndex, uint8_t* y, uint8_t* cb, uint8_t* cr) {
    const int64_t shifted = ((x - frameIndex * kBarStepPerFrame) % width + width) % width;
    const auto& bar = kBars[shifted * kBarCount / width];
    *y = bar[0];
    *cb = bar[1];
    *cr = bar[2];
}

std::unique_ptr<CaptureStream> SoftwareCamera::startVideo(CaptureVideoHandler handler, CaptureError*) {
    const auto format = activeFormat();
    return std::make_unique<SoftwareCameraStream>(format->width(), format->height(), activeVideoMinFrameDuration(),
                                                  std::move(handler));
}

}  // namespace qm
