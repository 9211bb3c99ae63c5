#include "recording/capture/ScreenInput.h"

#include <cmath>
#include <cstdlib>

#include "codec/PixelScaler.h"
#include "recording/capture/CaptureClock.h"
#include "recording/capture/PeriodicCaptureThread.h"
#include "recording/capture/X11ScreenGrabber.h"

namespace qm {

namespace {

// Grabs the screen once per frame period and hands over each picture stamped with the capture
// clock at the start of its grab.
class ScreenCaptureStream : public CaptureStream {
public:
    struct Options {
        bool drawCursor = false;
        bool drawClicks = false;
        int32_t width = 0;
        int32_t height = 0;
        CMTime frameDuration;
    };

    ScreenCaptureStream(std::unique_ptr<X11ScreenGrabber> grabber, Options options, CaptureVideoHandler handler)
        : _grabber(std::move(grabber)),
          _options(options),
          _handler(std::move(handler)),
          _thread(options.frameDuration, [this] { captureOne(); }) {}

private:
    void captureOne() {
        const CMTime time = captureClockNow();
        const PixelRect& area = _grabber->area();
        auto picture = createPixelBufferWithType(area.width, area.height, kCVPixelFormatType_32BGRA);
        if (!picture || !_grabber->grab(*picture)) return;
        if (_options.drawClicks) {
            auto state = _grabber->pointer();
            if (state && state->buttonDown) CursorOverlay::drawClickRing(*picture, state->x, state->y);
        }
        if (_options.drawCursor) {
            int32_t x = 0;
            int32_t y = 0;
            if (auto cursor = _grabber->cursorImage(&x, &y)) CursorOverlay::drawCursor(*picture, *cursor, x, y);
        }
        if (_options.width != area.width || _options.height != area.height) {
            picture = _scaler.convert(*picture, picture->pixelFormat(), _options.width, _options.height);
            if (!picture) return;
        }
        if (auto buffer = VideoSampleBuffer::create(picture, time, _options.frameDuration)) _handler(std::move(buffer));
    }

    std::unique_ptr<X11ScreenGrabber> _grabber;
    Options _options;
    CaptureVideoHandler _handler;
    PixelScaler _scaler;
    // Last, so that it stops before the members it uses go.
    PeriodicCaptureThread _thread;
};

}  // namespace

std::string ScreenInput::mainDisplayID() {
    const char* display = std::getenv("DISPLAY");
    return display ? display : "";
}

std::shared_ptr<ScreenInput> ScreenInput::createWithDisplayID(std::string displayID) {
    return std::shared_ptr<ScreenInput>(new ScreenInput(std::move(displayID)));
}

std::optional<std::pair<int32_t, int32_t>> ScreenInput::pixelSizeOfDisplay(const std::string& displayID) {
    const auto bounds = X11ScreenGrabber::screenBounds(displayID);
    if (!bounds) return std::nullopt;
    return std::pair{bounds->width, bounds->height};
}

bool ScreenInput::canCaptureDisplay(const std::string& displayID) {
    auto grabber = X11ScreenGrabber::create(displayID, PixelRect{0, 0, 100, 100}, nullptr);
    auto picture = createPixelBufferWithType(grabber ? grabber->area().width : 1, grabber ? grabber->area().height : 1,
                                             kCVPixelFormatType_32BGRA);
    return grabber && grabber->grab(*picture);
}

std::unique_ptr<CaptureStream> ScreenInput::startVideo(const CaptureVideoSettings& settings,
                                                       CaptureVideoHandler handler, CaptureError* error) {
    if (settings.pixelFormatType != 0 && settings.pixelFormatType != kCVPixelFormatType_32BGRA) {
        if (error) error->description = "The screen is captured in 'BGRA' only.";
        return nullptr;
    }
    std::optional<PixelRect> area;
    if (_cropRect.width() > 0 && _cropRect.height() > 0) {
        area = PixelRect{
            static_cast<int32_t>(std::lround(_cropRect.minX())), static_cast<int32_t>(std::lround(_cropRect.minY())),
            static_cast<int32_t>(std::ceil(_cropRect.width())), static_cast<int32_t>(std::ceil(_cropRect.height()))};
    }
    auto grabber = X11ScreenGrabber::create(_displayID, area, error);
    if (!grabber) return nullptr;
    ScreenCaptureStream::Options options;
    options.drawCursor = _capturesCursor;
    options.drawClicks = _capturesMouseClicks;
    options.width = settings.width > 0 ? settings.width : grabber->area().width;
    options.height = settings.height > 0 ? settings.height : grabber->area().height;
    const CMTime duration =
        _minFrameDuration.isValid() && _minFrameDuration.value > 0 ? _minFrameDuration : CMTime::make(1, 30);
    options.frameDuration = duration;
    return std::make_unique<ScreenCaptureStream>(std::move(grabber), options, std::move(handler));
}

}  // namespace qm
