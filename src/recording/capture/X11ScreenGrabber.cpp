#include "recording/capture/X11ScreenGrabber.h"

#include <sys/ipc.h>
#include <sys/shm.h>
#include <xcb/shm.h>
#include <xcb/xcb.h>
#include <xcb/xfixes.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace qm {

namespace {

template <class Reply>
struct FreeReply {
    void operator()(Reply* reply) const { std::free(reply); }
};
template <class Reply>
using ReplyPtr = std::unique_ptr<Reply, FreeReply<Reply>>;

xcb_screen_t* screenOfConnection(xcb_connection_t* connection, int number) {
    auto iterator = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (; iterator.rem; --number, xcb_screen_next(&iterator)) {
        if (number == 0) return iterator.data;
    }
    return nullptr;
}

xcb_connection_t* connect(const std::string& display, int* screenNumber) {
    xcb_connection_t* connection = xcb_connect(display.empty() ? nullptr : display.c_str(), screenNumber);
    if (xcb_connection_has_error(connection)) {
        xcb_disconnect(connection);
        return nullptr;
    }
    return connection;
}

bool hasExtension(xcb_connection_t* connection, xcb_extension_t* extension) {
    const auto* data = xcb_get_extension_data(connection, extension);
    return data && data->present;
}

}  // namespace

std::optional<PixelRect> X11ScreenGrabber::screenBounds(const std::string& display) {
    int number = 0;
    xcb_connection_t* connection = connect(display, &number);
    if (!connection) return std::nullopt;
    std::optional<PixelRect> bounds;
    if (auto* screen = screenOfConnection(connection, number)) {
        bounds = PixelRect{0, 0, screen->width_in_pixels, screen->height_in_pixels};
    }
    xcb_disconnect(connection);
    return bounds;
}

std::unique_ptr<X11ScreenGrabber> X11ScreenGrabber::create(const std::string& display, std::optional<PixelRect> area,
                                                           CaptureError* error) {
    auto fail = [error](const std::string& reason) {
        if (error) error->description = reason;
        return nullptr;
    };
    std::unique_ptr<X11ScreenGrabber> grabber(new X11ScreenGrabber());
    int number = 0;
    grabber->_connection = connect(display, &number);
    if (!grabber->_connection) return fail("Cannot open display \"" + display + "\".");
    auto* screen = screenOfConnection(grabber->_connection, number);
    if (!screen || screen->root_depth < 24) return fail("The display is not in true colour.");
    grabber->_root = screen->root;

    const PixelRect full{0, 0, screen->width_in_pixels, screen->height_in_pixels};
    PixelRect wanted = area.value_or(full);
    const int32_t left = std::max(wanted.x, 0);
    const int32_t top = std::max(wanted.y, 0);
    const int32_t right = std::min(wanted.x + wanted.width, full.width);
    const int32_t bottom = std::min(wanted.y + wanted.height, full.height);
    if (right <= left || bottom <= top) return fail("The area to record lies outside the display.");
    grabber->_area = {left, top, right - left, bottom - top};

    if (!hasExtension(grabber->_connection, &xcb_shm_id)) return fail("The display has no MIT-SHM.");
    if (!grabber->attachSharedMemory(error)) return nullptr;
    if (hasExtension(grabber->_connection, &xcb_xfixes_id)) {
        ReplyPtr<xcb_xfixes_query_version_reply_t> version(xcb_xfixes_query_version_reply(
            grabber->_connection, xcb_xfixes_query_version(grabber->_connection, 4, 0), nullptr));
        grabber->_hasXFixes = version != nullptr;
    }
    return grabber;
}

bool X11ScreenGrabber::attachSharedMemory(CaptureError* error) {
    const size_t size = static_cast<size_t>(_area.width) * _area.height * 4;
    _shmId = shmget(IPC_PRIVATE, size, IPC_CREAT | 0600);
    if (_shmId < 0) {
        if (error) error->description = "No shared memory for the screen.";
        return false;
    }
    void* address = shmat(_shmId, nullptr, 0);
    if (address == reinterpret_cast<void*>(-1)) {
        shmctl(_shmId, IPC_RMID, nullptr);
        _shmId = -1;
        if (error) error->description = "No shared memory for the screen.";
        return false;
    }
    _shmData = static_cast<uint8_t*>(address);
    _segment = xcb_generate_id(_connection);
    ReplyPtr<xcb_generic_error_t> failure(
        xcb_request_check(_connection, xcb_shm_attach_checked(_connection, _segment, _shmId, 0)));
    // Once the server holds the segment it may be marked for removal: it goes with the last user.
    shmctl(_shmId, IPC_RMID, nullptr);
    if (failure) {
        _segment = 0;
        if (error) error->description = "The display cannot share memory with this process.";
        return false;
    }
    return true;
}

X11ScreenGrabber::~X11ScreenGrabber() {
    if (_segment) xcb_shm_detach(_connection, _segment);
    if (_connection) xcb_disconnect(_connection);
    if (_shmData) shmdt(_shmData);
}

bool X11ScreenGrabber::grab(PixelBuffer& picture) {
    ReplyPtr<xcb_shm_get_image_reply_t> reply(xcb_shm_get_image_reply(
        _connection,
        xcb_shm_get_image(_connection, _root, static_cast<int16_t>(_area.x), static_cast<int16_t>(_area.y),
                          static_cast<uint16_t>(_area.width), static_cast<uint16_t>(_area.height), ~0u,
                          XCB_IMAGE_FORMAT_Z_PIXMAP, _segment, 0),
        nullptr));
    if (!reply) return false;
    const size_t sourceStride = static_cast<size_t>(_area.width) * 4;
    uint8_t* target = picture.mutablePlane(0);
    const size_t targetStride = picture.bytesPerRow(0);
    for (int32_t row = 0; row < _area.height; ++row) {
        const uint32_t* source = reinterpret_cast<const uint32_t*>(_shmData + row * sourceStride);
        uint32_t* line = reinterpret_cast<uint32_t*>(target + row * targetStride);
        for (int32_t column = 0; column < _area.width; ++column) line[column] = source[column] | 0xFF000000u;
    }
    return true;
}

std::optional<CursorImage> X11ScreenGrabber::cursorImage(int32_t* x, int32_t* y) {
    if (!_hasXFixes) return std::nullopt;
    ReplyPtr<xcb_xfixes_get_cursor_image_reply_t> reply(
        xcb_xfixes_get_cursor_image_reply(_connection, xcb_xfixes_get_cursor_image(_connection), nullptr));
    if (!reply) return std::nullopt;
    CursorImage image;
    image.width = reply->width;
    image.height = reply->height;
    image.xhot = reply->xhot;
    image.yhot = reply->yhot;
    const uint32_t* pixels = xcb_xfixes_get_cursor_image_cursor_image(reply.get());
    image.pixels.assign(pixels, pixels + static_cast<size_t>(image.width) * image.height);
    *x = reply->x - _area.x;
    *y = reply->y - _area.y;
    return image;
}

std::optional<PointerState> X11ScreenGrabber::pointer() {
    ReplyPtr<xcb_query_pointer_reply_t> reply(
        xcb_query_pointer_reply(_connection, xcb_query_pointer(_connection, _root), nullptr));
    if (!reply) return std::nullopt;
    constexpr uint16_t buttons = XCB_BUTTON_MASK_1 | XCB_BUTTON_MASK_2 | XCB_BUTTON_MASK_3;
    return PointerState{reply->root_x - _area.x, reply->root_y - _area.y, (reply->mask & buttons) != 0};
}

}  // namespace qm
