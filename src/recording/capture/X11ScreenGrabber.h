#pragma once

#include <memory>
#include <optional>
#include <string>

#include "codec/PixelBuffer.h"
#include "recording/capture/CaptureTypes.h"
#include "recording/capture/CursorOverlay.h"

struct xcb_connection_t;

namespace qm {

// A rectangle of display pixels, from the top-left corner.
struct PixelRect {
    int32_t x = 0;
    int32_t y = 0;
    int32_t width = 0;
    int32_t height = 0;
};

// Where the pointer is, relative to the grabbed area, and whether a button is down.
struct PointerState {
    int32_t x = 0;
    int32_t y = 0;
    bool buttonDown = false;
};

// Reads an area of an X display through a shared-memory segment (MIT-SHM), with the pointer's
// picture from XFixes. One grabber belongs to one thread.
class X11ScreenGrabber {
public:
    // Connects to `display` (empty for $DISPLAY) for `area`, clipped to the screen; no area means
    // the whole screen. Nothing, with the reason, when the display does not open, has no MIT-SHM
    // or is not 24/32-bit true colour, or the area is empty.
    static std::unique_ptr<X11ScreenGrabber> create(const std::string& display, std::optional<PixelRect> area,
                                                    CaptureError* error);
    // The screen's size in pixels; nothing when the display does not open.
    static std::optional<PixelRect> screenBounds(const std::string& display);

    ~X11ScreenGrabber();
    X11ScreenGrabber(const X11ScreenGrabber&) = delete;
    X11ScreenGrabber& operator=(const X11ScreenGrabber&) = delete;

    const PixelRect& area() const { return _area; }
    // Copies the area into `picture` ('BGRA' of the area's size), opaque; false when the server
    // refuses.
    bool grab(PixelBuffer& picture);
    // The pointer's picture and its hot-spot position in the area; nothing without XFixes.
    std::optional<CursorImage> cursorImage(int32_t* x, int32_t* y);
    std::optional<PointerState> pointer();

private:
    X11ScreenGrabber() = default;
    bool attachSharedMemory(CaptureError* error);

    xcb_connection_t* _connection = nullptr;
    uint32_t _root = 0;
    PixelRect _area;
    bool _hasXFixes = false;
    uint32_t _segment = 0;
    int _shmId = -1;
    uint8_t* _shmData = nullptr;
};

}  // namespace qm
