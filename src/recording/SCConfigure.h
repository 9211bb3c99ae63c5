#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "codec/MediaSampleBuffer.h"
#include "platform/UserDefaults.h"
#include "recording/capture/CaptureDevice.h"

namespace qm {

// The recorder's settings, process-wide. One dictionary under "com.record.cfgDictionary" in the
// user defaults, written whole after every change; frame rate and quality are kept as the
// strings a person picks and turned here into what capture needs.
class SCConfigure {
public:
    static constexpr const char* cfgDictionaryKey = "com.record.cfgDictionary";

    // The single instance on the standard user defaults, made at the first call.
    static SCConfigure& configure();
    // An instance on explicit defaults.
    static std::shared_ptr<SCConfigure> createWithDefaults(std::shared_ptr<UserDefaults> defaults);

    SCConfigure(const SCConfigure&) = delete;
    SCConfigure& operator=(const SCConfigure&) = delete;

    // Written under "recordMouseClicks" but read from "recordMouseClicksklm", so it reads true
    // whatever is set.
    bool recordMouseClicks() const;
    void setRecordMouseClicks(bool value);
    bool recordCursor() const;
    void setRecordCursor(bool value);
    bool showEditorWhenCompleteRecord() const;
    void setShowEditorWhenCompleteRecord(bool value);
    bool showInFinderWhenCompleteRecord() const;
    void setShowInFinderWhenCompleteRecord(bool value);
    int64_t indexOfAudioDevices() const;
    void setIndexOfAudioDevices(int64_t value);
    int64_t indexOfVideoDevices() const;
    void setIndexOfVideoDevices(int64_t value);
    int64_t autoDelayRecordSessionInSecond() const;
    void setAutoDelayRecordSessionInSecond(int64_t value);

    // A missing or empty value gives the first of its list; a value not in the list is ignored.
    std::string currentFrameRateString() const;
    void setCurrentFrameRateString(const std::string& value);
    std::string currentQualityLevelString() const;
    void setCurrentQualityLevelString(const std::string& value);

    static const std::vector<std::string>& supportFrameRates();
    static const std::vector<std::string>& supportQualityLevels();
    // From the frame rate string; 30 and 1/30 for one outside the list.
    double currentFrameRate() const;
    CMTime currentFrameDuration() const;
    // A session preset from the quality string; anything but "High" and "Medium" is low.
    std::string currentQualityLevel() const;

    // The default microphone and camera; the index plays no part.
    std::shared_ptr<CaptureDevice> currentDevice(CaptureMediaType type, int64_t index) const;
    std::shared_ptr<CaptureDevice> currentAudioDevice() const;
    std::shared_ptr<CaptureDevice> currentVideoDevice() const;

    // The folder recordings go to, kept as a bookmark. Setting an equal path does nothing; a
    // bookmark whose file cannot be found any more reads as nothing, logged once per read.
    std::optional<std::string> libraryUrl();
    void setLibraryUrl(const std::string& path);

    void saveToDefaults();
    UserDefaults::Dictionary restoreFromDefaults() const;

private:
    explicit SCConfigure(std::shared_ptr<UserDefaults> defaults);
    bool boolValue(const std::string& key, bool missing) const;
    int64_t integerValue(const std::string& key, int64_t missing) const;
    std::string listValue(const std::string& key, const std::vector<std::string>& list) const;
    void setValue(const std::string& key, UserDefaults::Value value);

    std::shared_ptr<UserDefaults> _defaults;
    mutable std::mutex _mutex;
    UserDefaults::Dictionary _cfgDictionary;
    std::optional<std::string> _libraryUrl;
};

}  // namespace qm
