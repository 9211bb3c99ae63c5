#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/Geometry.h"
#include "recording/capture/CaptureInput.h"

namespace qm {

// The pictures of an X display as a session input: the whole screen or a cropped part, at most
// one picture per minFrameDuration, as 'BGRA' at the size the output asks for.
class ScreenInput : public CaptureInput {
public:
    // The display named by $DISPLAY.
    static std::string mainDisplayID();
    static std::shared_ptr<ScreenInput> createWithDisplayID(std::string displayID);
    // The display's width and height in pixels; nothing when it does not open.
    static std::optional<std::pair<int32_t, int32_t>> pixelSizeOfDisplay(const std::string& displayID);
    // True when a picture of the display's top-left corner can be taken.
    static bool canCaptureDisplay(const std::string& displayID);

    const std::string& displayID() const { return _displayID; }
    // In display pixels from the top-left corner; the zero rectangle records the whole display.
    const Rect& cropRect() const { return _cropRect; }
    void setCropRect(const Rect& rect) { _cropRect = rect; }
    bool capturesCursor() const { return _capturesCursor; }
    void setCapturesCursor(bool captures) { _capturesCursor = captures; }
    // Draws a ring around the pointer while a mouse button is down.
    bool capturesMouseClicks() const { return _capturesMouseClicks; }
    void setCapturesMouseClicks(bool captures) { _capturesMouseClicks = captures; }
    CMTime minFrameDuration() const { return _minFrameDuration; }
    void setMinFrameDuration(CMTime duration) { _minFrameDuration = duration; }
    double scaleFactor() const { return _scaleFactor; }
    void setScaleFactor(double factor) { _scaleFactor = factor; }

    CaptureMediaType mediaType() const override { return CaptureMediaType::video; }
    std::unique_ptr<CaptureStream> startVideo(const CaptureVideoSettings& settings, CaptureVideoHandler handler,
                                              CaptureError* error) override;

private:
    explicit ScreenInput(std::string displayID) : _displayID(std::move(displayID)) {}

    std::string _displayID;
    Rect _cropRect;
    bool _capturesCursor = true;
    bool _capturesMouseClicks = false;
    CMTime _minFrameDuration = CMTime::make(1, 30);
    double _scaleFactor = 1.0;
};

}  // namespace qm
