#include "recording/SCConfigure.h"

#include <algorithm>

#include "platform/FileBookmark.h"
#include "platform/Log.h"
#include "recording/capture/CaptureSession.h"

namespace qm {

namespace {

constexpr const char* kRecordMouseClicksWritten = "recordMouseClicks";
constexpr const char* kRecordMouseClicksRead = "recordMouseClicksklm";
constexpr const char* kRecordCursor = "recordCursor";
constexpr const char* kShowEditor = "showEditorWhenCompleteRecord";
constexpr const char* kShowInFinder = "showInFinderWhenCompleteRecord";
constexpr const char* kIndexOfAudioDevices = "indexOfAudioDevices";
constexpr const char* kIndexOfVideoDevices = "indexOfVideoDevices";
constexpr const char* kFrameRateString = "currentFrameRateString";
constexpr const char* kQualityLevelString = "currentQualityLevelString";
constexpr const char* kAutoDelay = "autoDelayRecordSessionInSecond";
constexpr const char* kLibraryUrl = "libraryUrl";

}  // namespace

SCConfigure& SCConfigure::configure() {
    static SCConfigure* instance =
        new SCConfigure(std::shared_ptr<UserDefaults>(&UserDefaults::standardUserDefaults(), [](UserDefaults*) {}));
    return *instance;
}

std::shared_ptr<SCConfigure> SCConfigure::createWithDefaults(std::shared_ptr<UserDefaults> defaults) {
    return std::shared_ptr<SCConfigure>(new SCConfigure(std::move(defaults)));
}

SCConfigure::SCConfigure(std::shared_ptr<UserDefaults> defaults)
    : _defaults(std::move(defaults)), _cfgDictionary(restoreFromDefaults()) {}

UserDefaults::Dictionary SCConfigure::restoreFromDefaults() const {
    return _defaults->dictionaryForKey(cfgDictionaryKey).value_or(UserDefaults::Dictionary{});
}

void SCConfigure::saveToDefaults() {
    std::lock_guard lock(_mutex);
    _defaults->setDictionary(_cfgDictionary, cfgDictionaryKey);
}

bool SCConfigure::boolValue(const std::string& key, bool missing) const {
    std::lock_guard lock(_mutex);
    const auto found = _cfgDictionary.find(key);
    if (found == _cfgDictionary.end()) return missing;
    if (const auto* flag = std::get_if<bool>(&found->second)) return *flag;
    if (const auto* number = std::get_if<int64_t>(&found->second)) return *number != 0;
    return missing;
}

int64_t SCConfigure::integerValue(const std::string& key, int64_t missing) const {
    std::lock_guard lock(_mutex);
    const auto found = _cfgDictionary.find(key);
    if (found == _cfgDictionary.end()) return missing;
    if (const auto* number = std::get_if<int64_t>(&found->second)) return *number;
    if (const auto* flag = std::get_if<bool>(&found->second)) return *flag;
    return missing;
}

std::string SCConfigure::listValue(const std::string& key, const std::vector<std::string>& list) const {
    std::lock_guard lock(_mutex);
    const auto found = _cfgDictionary.find(key);
    const auto* text = found == _cfgDictionary.end() ? nullptr : std::get_if<std::string>(&found->second);
    return text && !text->empty() ? *text : list.front();
}

void SCConfigure::setValue(const std::string& key, UserDefaults::Value value) {
    {
        std::lock_guard lock(_mutex);
        _cfgDictionary[key] = std::move(value);
    }
    saveToDefaults();
}

bool SCConfigure::recordMouseClicks() const { return boolValue(kRecordMouseClicksRead, true); }
void SCConfigure::setRecordMouseClicks(bool value) { setValue(kRecordMouseClicksWritten, value); }
bool SCConfigure::recordCursor() const { return boolValue(kRecordCursor, true); }
void SCConfigure::setRecordCursor(bool value) { setValue(kRecordCursor, value); }
bool SCConfigure::showEditorWhenCompleteRecord() const { return boolValue(kShowEditor, true); }
void SCConfigure::setShowEditorWhenCompleteRecord(bool value) { setValue(kShowEditor, value); }
bool SCConfigure::showInFinderWhenCompleteRecord() const { return boolValue(kShowInFinder, true); }
void SCConfigure::setShowInFinderWhenCompleteRecord(bool value) { setValue(kShowInFinder, value); }
int64_t SCConfigure::indexOfAudioDevices() const { return integerValue(kIndexOfAudioDevices, 0); }
void SCConfigure::setIndexOfAudioDevices(int64_t value) { setValue(kIndexOfAudioDevices, value); }
int64_t SCConfigure::indexOfVideoDevices() const { return integerValue(kIndexOfVideoDevices, 0); }
void SCConfigure::setIndexOfVideoDevices(int64_t value) { setValue(kIndexOfVideoDevices, value); }
int64_t SCConfigure::autoDelayRecordSessionInSecond() const { return integerValue(kAutoDelay, 3); }
void SCConfigure::setAutoDelayRecordSessionInSecond(int64_t value) { setValue(kAutoDelay, value); }

std::string SCConfigure::currentFrameRateString() const { return listValue(kFrameRateString, supportFrameRates()); }

void SCConfigure::setCurrentFrameRateString(const std::string& value) {
    const auto& list = supportFrameRates();
    const auto found = std::find(list.begin(), list.end(), value);
    if (found != list.end()) setValue(kFrameRateString, *found);
}

std::string SCConfigure::currentQualityLevelString() const {
    return listValue(kQualityLevelString, supportQualityLevels());
}

void SCConfigure::setCurrentQualityLevelString(const std::string& value) {
    const auto& list = supportQualityLevels();
    const auto found = std::find(list.begin(), list.end(), value);
    if (found != list.end()) setValue(kQualityLevelString, *found);
}

const std::vector<std::string>& SCConfigure::supportFrameRates() {
    static const std::vector<std::string> rates{"30 FPS", "29.97 FPS", "25 FPS", "20 FPS"};
    return rates;
}

const std::vector<std::string>& SCConfigure::supportQualityLevels() {
    static const std::vector<std::string> levels{"High", "Medium", "Low"};
    return levels;
}

double SCConfigure::currentFrameRate() const {
    const std::string rate = currentFrameRateString();
    if (rate == "29.97 FPS") return static_cast<double>(29.97f);
    if (rate == "25 FPS") return 25.0;
    if (rate == "20 FPS") return 20.0;
    return 30.0;
}

CMTime SCConfigure::currentFrameDuration() const {
    const std::string rate = currentFrameRateString();
    if (rate == "29.97 FPS") return CMTime::make(1001, 30000);
    if (rate == "25 FPS") return CMTime::make(1, 25);
    if (rate == "20 FPS") return CMTime::make(1, 20);
    return CMTime::make(1, 30);
}

std::string SCConfigure::currentQualityLevel() const {
    const std::string level = currentQualityLevelString();
    if (level == "High") return AVCaptureSessionPresetHigh;
    if (level == "Medium") return AVCaptureSessionPresetMedium;
    return AVCaptureSessionPresetLow;
}

std::shared_ptr<CaptureDevice> SCConfigure::currentDevice(CaptureMediaType type, int64_t) const {
    return CaptureDevice::defaultDeviceWithMediaType(type);
}

std::shared_ptr<CaptureDevice> SCConfigure::currentAudioDevice() const {
    return currentDevice(CaptureMediaType::audio, indexOfAudioDevices());
}

std::shared_ptr<CaptureDevice> SCConfigure::currentVideoDevice() const {
    return currentDevice(CaptureMediaType::video, indexOfVideoDevices());
}

std::optional<std::string> SCConfigure::libraryUrl() {
    std::lock_guard lock(_mutex);
    if (_libraryUrl) return _libraryUrl;
    const auto found = _cfgDictionary.find(kLibraryUrl);
    const auto* data = found == _cfgDictionary.end() ? nullptr : std::get_if<std::vector<uint8_t>>(&found->second);
    if (!data) return std::nullopt;
    const auto bookmark = FileBookmark::createWithData(*data);
    _libraryUrl = bookmark ? bookmark->resolve() : std::nullopt;
    if (!_libraryUrl) QMLog("Warning: can not start security scoped resource access.");
    return _libraryUrl;
}

void SCConfigure::setLibraryUrl(const std::string& path) {
    std::optional<FileBookmark> bookmark;
    {
        std::lock_guard lock(_mutex);
        if (_libraryUrl == path) return;
        _libraryUrl = path;
        bookmark = FileBookmark::bookmarkWithPath(path);
    }
    if (bookmark) setValue(kLibraryUrl, bookmark->data());
}

}  // namespace qm
