#include "recording/capture/V4L2Camera.h"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <span>
#include <thread>
#include <utility>

#include "codec/BitmapCodec.h"
#include "recording/capture/CaptureClock.h"

namespace qm {

namespace {

constexpr unsigned kDriverBufferCount = 4;

int xioctl(int fd, unsigned long request, void* argument) {
    int result = 0;
    do result = ioctl(fd, request, argument);
    while (result < 0 && errno == EINTR);
    return result;
}

// A file descriptor closed when it goes.
class DeviceFile {
public:
    explicit DeviceFile(const std::string& path) : _fd(open(path.c_str(), O_RDWR | O_NONBLOCK)) {}
    ~DeviceFile() {
        if (_fd >= 0) close(_fd);
    }
    DeviceFile(const DeviceFile&) = delete;
    DeviceFile& operator=(const DeviceFile&) = delete;
    int fd() const { return _fd; }
    int release() { return std::exchange(_fd, -1); }

private:
    int _fd;
};

std::vector<CaptureFrameRateRange> frameRatesOf(int fd, uint32_t fourcc, uint32_t width, uint32_t height) {
    std::vector<CaptureFrameRateRange> ranges;
    v4l2_frmivalenum interval{};
    interval.pixel_format = fourcc;
    interval.width = width;
    interval.height = height;
    for (interval.index = 0; xioctl(fd, VIDIOC_ENUM_FRAMEINTERVALS, &interval) == 0; ++interval.index) {
        v4l2_fract fastest{};
        v4l2_fract slowest{};
        if (interval.type == V4L2_FRMIVAL_TYPE_DISCRETE) {
            fastest = slowest = interval.discrete;
        } else {
            fastest = interval.stepwise.min;
            slowest = interval.stepwise.max;
        }
        if (fastest.numerator == 0 || slowest.numerator == 0) continue;
        ranges.push_back({static_cast<double>(slowest.denominator) / slowest.numerator,
                          static_cast<double>(fastest.denominator) / fastest.numerator,
                          CMTime::make(fastest.numerator, static_cast<int32_t>(fastest.denominator)),
                          CMTime::make(slowest.numerator, static_cast<int32_t>(slowest.denominator))});
        if (interval.type != V4L2_FRMIVAL_TYPE_DISCRETE) break;
    }
    return ranges;
}

// A picture of the driver's bytes: YUYV copied as 'yuvs', MJPEG decoded to 'BGRA'.
std::shared_ptr<PixelBuffer> pictureFromDriver(const V4L2Camera::Mode& mode, std::span<const uint8_t> bytes) {
    const int width = static_cast<int>(mode.width);
    const int height = static_cast<int>(mode.height);
    if (mode.fourcc == V4L2_PIX_FMT_YUYV) {
        const size_t rowBytes = static_cast<size_t>(width) * 2;
        if (bytes.size() < rowBytes * height) return nullptr;
        auto picture = createPixelBufferWithType(width, height, kCVPixelFormatType_422YpCbCr8_yuvs);
        if (!picture) return nullptr;
        for (int row = 0; row < height; ++row) {
            std::memcpy(picture->mutablePlane(0) + row * picture->bytesPerRow(0), bytes.data() + row * rowBytes,
                        rowBytes);
        }
        return picture;
    }
    auto bitmap = BitmapCodec::bitmapWithData(bytes);
    if (!bitmap) return nullptr;
    auto picture = createPixelBufferWithType(bitmap->width(), bitmap->height(), kCVPixelFormatType_32BGRA);
    if (!picture) return nullptr;
    for (int row = 0; row < bitmap->height(); ++row) {
        const uint8_t* source = bitmap->data() + row * bitmap->bytesPerRow();
        uint8_t* target = picture->mutablePlane(0) + row * picture->bytesPerRow(0);
        for (int x = 0; x < bitmap->width(); ++x) {
            target[x * 4 + 0] = source[x * 4 + 2];
            target[x * 4 + 1] = source[x * 4 + 1];
            target[x * 4 + 2] = source[x * 4 + 0];
            target[x * 4 + 3] = 255;
        }
    }
    return picture;
}

class V4L2CaptureStream : public CaptureStream {
public:
    V4L2CaptureStream(int fd, V4L2Camera::Mode mode, std::vector<std::span<uint8_t>> buffers, CMTime frameDuration,
                      CaptureVideoHandler handler)
        : _fd(fd),
          _mode(mode),
          _buffers(std::move(buffers)),
          _frameDuration(frameDuration),
          _handler(std::move(handler)) {
        _thread = std::thread([this] { run(); });
    }

    ~V4L2CaptureStream() override {
        _stopping = true;
        _thread.join();
        v4l2_buf_type type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        xioctl(_fd, VIDIOC_STREAMOFF, &type);
        for (auto& buffer : _buffers) munmap(buffer.data(), buffer.size());
        close(_fd);
    }

private:
    void run() {
        while (!_stopping) {
            pollfd ready{_fd, POLLIN, 0};
            if (poll(&ready, 1, 100) <= 0) continue;
            v4l2_buffer buffer{};
            buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
            buffer.memory = V4L2_MEMORY_MMAP;
            if (xioctl(_fd, VIDIOC_DQBUF, &buffer) < 0) continue;
            const bool monotonic = (buffer.flags & V4L2_BUF_FLAG_TIMESTAMP_MASK) == V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;
            const CMTime time =
                monotonic ? captureTimeFromTimespec({buffer.timestamp.tv_sec, buffer.timestamp.tv_usec * 1000})
                          : captureClockNow();
            auto picture = pictureFromDriver(_mode, _buffers[buffer.index].first(buffer.bytesused));
            xioctl(_fd, VIDIOC_QBUF, &buffer);
            if (!picture) continue;
            if (auto sample = VideoSampleBuffer::create(picture, time, _frameDuration)) _handler(std::move(sample));
        }
    }

    int _fd;
    V4L2Camera::Mode _mode;
    std::vector<std::span<uint8_t>> _buffers;
    CMTime _frameDuration;
    CaptureVideoHandler _handler;
    std::atomic<bool> _stopping{false};
    std::thread _thread;
};

}  // namespace

std::shared_ptr<V4L2Camera> V4L2Camera::createFirst() {
    std::vector<std::string> paths;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/dev", error)) {
        if (entry.path().filename().string().rfind("video", 0) == 0) paths.push_back(entry.path().string());
    }
    std::sort(paths.begin(), paths.end());
    for (const auto& path : paths) {
        if (auto camera = createWithPath(path)) return camera;
    }
    return nullptr;
}

std::shared_ptr<V4L2Camera> V4L2Camera::createWithPath(const std::string& path) {
    DeviceFile file(path);
    if (file.fd() < 0) return nullptr;
    v4l2_capability capability{};
    if (xioctl(file.fd(), VIDIOC_QUERYCAP, &capability) < 0) return nullptr;
    const uint32_t caps =
        capability.capabilities & V4L2_CAP_DEVICE_CAPS ? capability.device_caps : capability.capabilities;
    if (!(caps & V4L2_CAP_VIDEO_CAPTURE) || !(caps & V4L2_CAP_STREAMING)) return nullptr;

    std::vector<std::shared_ptr<const CaptureDeviceFormat>> formats;
    std::vector<Mode> modes;
    v4l2_fmtdesc description{};
    description.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    for (description.index = 0; xioctl(file.fd(), VIDIOC_ENUM_FMT, &description) == 0; ++description.index) {
        const uint32_t fourcc = description.pixelformat;
        if (fourcc != V4L2_PIX_FMT_YUYV && fourcc != V4L2_PIX_FMT_MJPEG) continue;
        const uint32_t type =
            fourcc == V4L2_PIX_FMT_YUYV ? kCVPixelFormatType_422YpCbCr8_yuvs : kCVPixelFormatType_32BGRA;
        v4l2_frmsizeenum size{};
        size.pixel_format = fourcc;
        for (size.index = 0; xioctl(file.fd(), VIDIOC_ENUM_FRAMESIZES, &size) == 0; ++size.index) {
            if (size.type != V4L2_FRMSIZE_TYPE_DISCRETE) break;
            const auto& frame = size.discrete;
            auto rates = frameRatesOf(file.fd(), fourcc, frame.width, frame.height);
            if (rates.empty()) continue;
            formats.push_back(CaptureDeviceFormat::createVideo(static_cast<int32_t>(frame.width),
                                                               static_cast<int32_t>(frame.height), type, rates));
            modes.push_back({fourcc, frame.width, frame.height});
        }
    }
    if (formats.empty()) return nullptr;
    return std::shared_ptr<V4L2Camera>(
        new V4L2Camera(path, reinterpret_cast<const char*>(capability.card), std::move(formats), std::move(modes)));
}

std::unique_ptr<CaptureStream> V4L2Camera::startVideo(CaptureVideoHandler handler, CaptureError* error) {
    auto fail = [error](const std::string& reason) {
        if (error) error->description = reason;
        return nullptr;
    };
    const auto active = activeFormat();
    const auto found = std::find(formats().begin(), formats().end(), active);
    const Mode mode = _modes[static_cast<size_t>(found - formats().begin())];
    DeviceFile file(_path);
    if (file.fd() < 0) return fail("Cannot open " + _path + ".");

    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.width = mode.width;
    format.fmt.pix.height = mode.height;
    format.fmt.pix.pixelformat = mode.fourcc;
    format.fmt.pix.field = V4L2_FIELD_NONE;
    if (xioctl(file.fd(), VIDIOC_S_FMT, &format) < 0) return fail("The camera refused its format.");
    const CMTime duration = activeVideoMinFrameDuration();
    v4l2_streamparm parameters{};
    parameters.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    parameters.parm.capture.timeperframe = {static_cast<uint32_t>(duration.value),
                                            static_cast<uint32_t>(duration.timescale)};
    xioctl(file.fd(), VIDIOC_S_PARM, &parameters);

    v4l2_requestbuffers request{};
    request.count = kDriverBufferCount;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    if (xioctl(file.fd(), VIDIOC_REQBUFS, &request) < 0 || request.count == 0) {
        return fail("The camera gives no buffers.");
    }
    std::vector<std::span<uint8_t>> buffers;
    for (uint32_t index = 0; index < request.count; ++index) {
        v4l2_buffer buffer{};
        buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        buffer.memory = V4L2_MEMORY_MMAP;
        buffer.index = index;
        void* address = MAP_FAILED;
        if (xioctl(file.fd(), VIDIOC_QUERYBUF, &buffer) == 0) {
            address = mmap(nullptr, buffer.length, PROT_READ | PROT_WRITE, MAP_SHARED, file.fd(), buffer.m.offset);
        }
        if (address == MAP_FAILED || xioctl(file.fd(), VIDIOC_QBUF, &buffer) < 0) {
            if (address != MAP_FAILED) munmap(address, buffer.length);
            for (auto& mapped : buffers) munmap(mapped.data(), mapped.size());
            return fail("The camera's buffers cannot be mapped.");
        }
        buffers.emplace_back(static_cast<uint8_t*>(address), buffer.length);
    }
    v4l2_buf_type type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (xioctl(file.fd(), VIDIOC_STREAMON, &type) < 0) {
        for (auto& mapped : buffers) munmap(mapped.data(), mapped.size());
        return fail("The camera does not start streaming.");
    }
    return std::make_unique<V4L2CaptureStream>(file.release(), mode, std::move(buffers), duration, std::move(handler));
}

}  // namespace qm
