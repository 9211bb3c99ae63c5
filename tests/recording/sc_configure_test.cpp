#include <gtest/gtest.h>

#include <fstream>

#include "platform/Log.h"
#include "recording/SCConfigure.h"
#include "recording/capture/CaptureSession.h"
#include "support/TestEnvironment.h"

namespace qm {
namespace {

class SCConfigureTest : public ::testing::Test {
protected:
    test::TemporaryDirectory directory;
    std::shared_ptr<UserDefaults> defaults = UserDefaults::createWithPath(directory.file("defaults.sqlite3"));
};

TEST_F(SCConfigureTest, EmptyStoreGivesTheDefaults) {
    auto configure = SCConfigure::createWithDefaults(defaults);
    EXPECT_EQ(configure->currentFrameRateString(), "30 FPS");
    EXPECT_EQ(configure->currentFrameRate(), 30.0);
    EXPECT_EQ(configure->currentFrameDuration().value, 1);
    EXPECT_EQ(configure->currentFrameDuration().timescale, 30);
    EXPECT_EQ(configure->currentQualityLevelString(), "High");
    EXPECT_EQ(configure->currentQualityLevel(), AVCaptureSessionPresetHigh);
    EXPECT_EQ(configure->autoDelayRecordSessionInSecond(), 3);
    EXPECT_TRUE(configure->recordMouseClicks());
    EXPECT_TRUE(configure->recordCursor());
    EXPECT_TRUE(configure->showEditorWhenCompleteRecord());
    EXPECT_TRUE(configure->showInFinderWhenCompleteRecord());
    EXPECT_EQ(configure->indexOfAudioDevices(), 0);
    EXPECT_EQ(configure->indexOfVideoDevices(), 0);
    EXPECT_EQ(configure->libraryUrl(), std::nullopt);
}

TEST_F(SCConfigureTest, FrameRatesAndQualitiesConvertAsListed) {
    auto configure = SCConfigure::createWithDefaults(defaults);
    configure->setCurrentFrameRateString("29.97 FPS");
    EXPECT_EQ(configure->currentFrameRate(), 29.969999313354492);
    EXPECT_EQ(configure->currentFrameDuration().value, 1001);
    EXPECT_EQ(configure->currentFrameDuration().timescale, 30000);
    configure->setCurrentFrameRateString("25 FPS");
    EXPECT_EQ(configure->currentFrameDuration().timescale, 25);
    configure->setCurrentFrameRateString("20 FPS");
    EXPECT_EQ(configure->currentFrameRate(), 20.0);
    configure->setCurrentFrameRateString("60 FPS");
    EXPECT_EQ(configure->currentFrameRateString(), "20 FPS");

    configure->setCurrentQualityLevelString("Medium");
    EXPECT_EQ(configure->currentQualityLevel(), AVCaptureSessionPresetMedium);
    configure->setCurrentQualityLevelString("Low");
    EXPECT_EQ(configure->currentQualityLevel(), AVCaptureSessionPresetLow);
    configure->setCurrentQualityLevelString("Ultra");
    EXPECT_EQ(configure->currentQualityLevelString(), "Low");
}

TEST_F(SCConfigureTest, UnknownStoredStringsFallToThirtyFramesAndLowQuality) {
    defaults->setDictionary(
        {{"currentFrameRateString", std::string("48 FPS")}, {"currentQualityLevelString", std::string("Ultra")}},
        SCConfigure::cfgDictionaryKey);
    auto configure = SCConfigure::createWithDefaults(defaults);
    EXPECT_EQ(configure->currentFrameRate(), 30.0);
    EXPECT_EQ(configure->currentFrameDuration().timescale, 30);
    EXPECT_EQ(configure->currentQualityLevel(), AVCaptureSessionPresetLow);
}

TEST_F(SCConfigureTest, EveryChangeIsWrittenWholeAndMouseClicksStayOn) {
    {
        auto configure = SCConfigure::createWithDefaults(defaults);
        configure->setRecordMouseClicks(false);
        configure->setRecordCursor(false);
        configure->setIndexOfVideoDevices(5);
        configure->setAutoDelayRecordSessionInSecond(7);
        configure->setCurrentFrameRateString("25 FPS");
        EXPECT_TRUE(configure->recordMouseClicks());
    }
    const auto stored = defaults->dictionaryForKey(SCConfigure::cfgDictionaryKey);
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->at("recordMouseClicks"), UserDefaults::Value(false));
    EXPECT_FALSE(stored->contains("recordMouseClicksklm"));

    auto reread = SCConfigure::createWithDefaults(UserDefaults::createWithPath(directory.file("defaults.sqlite3")));
    EXPECT_TRUE(reread->recordMouseClicks());
    EXPECT_FALSE(reread->recordCursor());
    EXPECT_EQ(reread->indexOfVideoDevices(), 5);
    EXPECT_EQ(reread->autoDelayRecordSessionInSecond(), 7);
    EXPECT_EQ(reread->currentFrameRateString(), "25 FPS");
}

TEST_F(SCConfigureTest, LibraryFolderIsKeptAsABookmarkAndGoneFoldersReadAsNothing) {
    const std::string folder = directory.file("library");
    std::ofstream(folder).put('x');
    auto configure = SCConfigure::createWithDefaults(defaults);
    configure->setLibraryUrl(folder);
    EXPECT_EQ(configure->libraryUrl(), folder);
    EXPECT_EQ(SCConfigure::createWithDefaults(defaults)->libraryUrl(), folder);

    std::remove(folder.c_str());
    LogCapture log;
    auto later = SCConfigure::createWithDefaults(defaults);
    EXPECT_EQ(later->libraryUrl(), std::nullopt);
    EXPECT_EQ(log.count("Warning: can not start security scoped resource access."), 1u);
}

TEST_F(SCConfigureTest, DevicesAreTheDefaultsWhateverTheIndex) {
    test::ScopedEnvironment environment;
    environment.set("PULSE_SERVER", "unix:/nonexistent/pulse/native");
    auto configure = SCConfigure::createWithDefaults(defaults);
    CaptureDevice::setSoftwareCameraAllowed(true);
    configure->setIndexOfVideoDevices(5);
    const auto camera = configure->currentVideoDevice();
    CaptureDevice::setSoftwareCameraAllowed(false);
    ASSERT_NE(camera, nullptr);
    EXPECT_EQ(camera->uniqueID(), "software-camera");
    EXPECT_EQ(configure->currentAudioDevice(), nullptr);
}

}  // namespace
}  // namespace qm
