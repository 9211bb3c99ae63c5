#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/AudioStreamBasicDescription.h"
#include "recording/capture/CaptureTypes.h"

namespace qm {

// A span of frame rates a video format can run at; durations are the rates' inverses.
struct CaptureFrameRateRange {
    double minFrameRate = 0;
    double maxFrameRate = 0;
    CMTime minFrameDuration;
    CMTime maxFrameDuration;
};

// One way a device can capture: a sound format, or a picture size and pixel type with its rates.
class CaptureDeviceFormat {
public:
    static std::shared_ptr<const CaptureDeviceFormat> createAudio(const AudioStreamBasicDescription& description);
    static std::shared_ptr<const CaptureDeviceFormat> createVideo(int32_t width, int32_t height,
                                                                  uint32_t pixelFormatType,
                                                                  std::vector<CaptureFrameRateRange> rates);

    CaptureMediaType mediaType() const { return _mediaType; }
    // Audio formats only.
    const AudioStreamBasicDescription& streamDescription() const { return _streamDescription; }
    // Video formats only.
    int32_t width() const { return _width; }
    int32_t height() const { return _height; }
    uint32_t pixelFormatType() const { return _pixelFormatType; }
    const std::vector<CaptureFrameRateRange>& videoSupportedFrameRateRanges() const { return _rates; }

private:
    CaptureDeviceFormat() = default;

    CaptureMediaType _mediaType = CaptureMediaType::audio;
    AudioStreamBasicDescription _streamDescription;
    int32_t _width = 0;
    int32_t _height = 0;
    uint32_t _pixelFormatType = 0;
    std::vector<CaptureFrameRateRange> _rates;
};

// A microphone or camera. The list of formats is fixed when the device is found; the active
// format and frame durations change only between lockForConfiguration and
// unlockForConfiguration. Starting a capture is for the session's inputs.
class CaptureDevice {
public:
    // How far the process may use a kind of device.
    enum AuthorizationStatus : int64_t { notDetermined = 0, restricted = 1, denied = 2, authorized = 3 };

    // The default microphone (the sound server's default source) or camera (the first
    // /dev/video* that opens, else the software camera when it is allowed); nothing when there is
    // none.
    static std::shared_ptr<CaptureDevice> defaultDeviceWithMediaType(CaptureMediaType type);
    // Authorized when the process can open the sound server or a camera, denied otherwise.
    static AuthorizationStatus authorizationStatusForMediaType(CaptureMediaType type);
    // Lets the software camera stand in when no camera device exists. Off until asked for.
    static void setSoftwareCameraAllowed(bool allowed);

    virtual ~CaptureDevice() = default;
    CaptureDevice(const CaptureDevice&) = delete;
    CaptureDevice& operator=(const CaptureDevice&) = delete;

    const std::string& uniqueID() const { return _uniqueID; }
    const std::string& localizedName() const { return _localizedName; }
    CaptureMediaType mediaType() const { return _mediaType; }
    const std::vector<std::shared_ptr<const CaptureDeviceFormat>>& formats() const { return _formats; }

    // False, with the reason, while another holder has the lock.
    bool lockForConfiguration(CaptureError* error);
    void unlockForConfiguration();

    std::shared_ptr<const CaptureDeviceFormat> activeFormat() const;
    // Ignored without the configuration lock or for a format not of this device.
    void setActiveFormat(const std::shared_ptr<const CaptureDeviceFormat>& format);
    CMTime activeVideoMinFrameDuration() const;
    CMTime activeVideoMaxFrameDuration() const;
    void setActiveVideoMinFrameDuration(CMTime duration);
    void setActiveVideoMaxFrameDuration(CMTime duration);

    // Starts capturing in the active format; audio devices deliver in `audioSettings` when given.
    // Nothing, with the reason, when the device cannot start.
    virtual std::unique_ptr<CaptureStream> startAudio(const std::optional<CaptureAudioSettings>& audioSettings,
                                                      CaptureAudioHandler handler, CaptureError* error);
    virtual std::unique_ptr<CaptureStream> startVideo(CaptureVideoHandler handler, CaptureError* error);

protected:
    CaptureDevice(std::string uniqueID, std::string localizedName, CaptureMediaType type,
                  std::vector<std::shared_ptr<const CaptureDeviceFormat>> formats);

private:
    bool isConfigurable() const;

    const std::string _uniqueID;
    const std::string _localizedName;
    const CaptureMediaType _mediaType;
    const std::vector<std::shared_ptr<const CaptureDeviceFormat>> _formats;
    mutable std::mutex _mutex;
    bool _locked = false;
    std::shared_ptr<const CaptureDeviceFormat> _activeFormat;
    CMTime _minFrameDuration;
    CMTime _maxFrameDuration;
};

}  // namespace qm
