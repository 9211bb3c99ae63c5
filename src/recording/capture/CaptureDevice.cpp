#include "recording/capture/CaptureDevice.h"

#include <atomic>

#include "recording/capture/PulseMicrophone.h"
#include "recording/capture/SoftwareCamera.h"
#include "recording/capture/V4L2Camera.h"

namespace qm {

namespace {

std::atomic<bool> softwareCameraAllowed{false};

}  // namespace

std::shared_ptr<const CaptureDeviceFormat> CaptureDeviceFormat::createAudio(
    const AudioStreamBasicDescription& description) {
    std::shared_ptr<CaptureDeviceFormat> format(new CaptureDeviceFormat());
    format->_mediaType = CaptureMediaType::audio;
    format->_streamDescription = description;
    return format;
}

std::shared_ptr<const CaptureDeviceFormat> CaptureDeviceFormat::createVideo(int32_t width, int32_t height,
                                                                            uint32_t pixelFormatType,
                                                                            std::vector<CaptureFrameRateRange> rates) {
    std::shared_ptr<CaptureDeviceFormat> format(new CaptureDeviceFormat());
    format->_mediaType = CaptureMediaType::video;
    format->_width = width;
    format->_height = height;
    format->_pixelFormatType = pixelFormatType;
    format->_rates = std::move(rates);
    return format;
}

std::shared_ptr<CaptureDevice> CaptureDevice::defaultDeviceWithMediaType(CaptureMediaType type) {
    if (type == CaptureMediaType::audio) return PulseMicrophone::createDefault();
    if (auto camera = V4L2Camera::createFirst()) return camera;
    if (softwareCameraAllowed) return SoftwareCamera::create();
    return nullptr;
}

CaptureDevice::AuthorizationStatus CaptureDevice::authorizationStatusForMediaType(CaptureMediaType type) {
    if (type == CaptureMediaType::audio) return PulseMicrophone::serverAnswers() ? authorized : denied;
    return defaultDeviceWithMediaType(type) ? authorized : denied;
}

void CaptureDevice::setSoftwareCameraAllowed(bool allowed) { softwareCameraAllowed = allowed; }

CaptureDevice::CaptureDevice(std::string uniqueID, std::string localizedName, CaptureMediaType type,
                             std::vector<std::shared_ptr<const CaptureDeviceFormat>> formats)
    : _uniqueID(std::move(uniqueID)),
      _localizedName(std::move(localizedName)),
      _mediaType(type),
      _formats(std::move(formats)) {
    if (_formats.empty()) return;
    _activeFormat = _formats.front();
    const auto& rates = _activeFormat->videoSupportedFrameRateRanges();
    if (!rates.empty()) _minFrameDuration = _maxFrameDuration = rates.front().minFrameDuration;
}

bool CaptureDevice::lockForConfiguration(CaptureError* error) {
    std::lock_guard lock(_mutex);
    if (_locked) {
        if (error) error->description = "The device " + _localizedName + " is being configured elsewhere.";
        return false;
    }
    _locked = true;
    return true;
}

void CaptureDevice::unlockForConfiguration() {
    std::lock_guard lock(_mutex);
    _locked = false;
}

std::shared_ptr<const CaptureDeviceFormat> CaptureDevice::activeFormat() const {
    std::lock_guard lock(_mutex);
    return _activeFormat;
}

void CaptureDevice::setActiveFormat(const std::shared_ptr<const CaptureDeviceFormat>& format) {
    std::lock_guard lock(_mutex);
    if (!_locked) return;
    for (const auto& own : _formats) {
        if (own == format) _activeFormat = format;
    }
}

CMTime CaptureDevice::activeVideoMinFrameDuration() const {
    std::lock_guard lock(_mutex);
    return _minFrameDuration;
}

CMTime CaptureDevice::activeVideoMaxFrameDuration() const {
    std::lock_guard lock(_mutex);
    return _maxFrameDuration;
}

void CaptureDevice::setActiveVideoMinFrameDuration(CMTime duration) {
    std::lock_guard lock(_mutex);
    if (_locked) _minFrameDuration = duration;
}

void CaptureDevice::setActiveVideoMaxFrameDuration(CMTime duration) {
    std::lock_guard lock(_mutex);
    if (_locked) _maxFrameDuration = duration;
}

std::unique_ptr<CaptureStream> CaptureDevice::startAudio(const std::optional<CaptureAudioSettings>&,
                                                         CaptureAudioHandler, CaptureError* error) {
    if (error) error->description = _localizedName + " does not capture sound.";
    return nullptr;
}

std::unique_ptr<CaptureStream> CaptureDevice::startVideo(CaptureVideoHandler, CaptureError* error) {
    if (error) error->description = _localizedName + " does not capture pictures.";
    return nullptr;
}

}  // namespace qm
