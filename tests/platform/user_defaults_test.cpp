#include "platform/UserDefaults.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>


#include "platform/FileHandle.h"
#include "platform/Log.h"
#include "platform/Paths.h"
#include "support/TestEnvironment.h"

namespace qm {
namespace {

class UserDefaultsTest : public ::testing::Test {
protected:
    test::TemporaryDirectory _temporary{"user_defaults_test"};
    const std::string _directory = _temporary.path();
    const std::string _path = _temporary.file("defaults.sqlite3");

    static std::string contentsOf(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
};

TEST_F(UserDefaultsTest, ValuesOfEveryTypeSurviveReopening) {
    const std::vector<uint8_t> archive{0, 1, 2, 0xff, 0};
    const UserDefaults::Dictionary settings = {{"recordCursor", true},
                                               {"autoDelayRecordSessionInSecond", int64_t{-3}},
                                               {"scale", 0.5},
                                               {"currentFrameRateString", std::string("30 FPS")},
                                               {"libraryUrl", archive}};
    {
        LogCapture capture;
        const auto defaults = UserDefaults::createWithPath(_path);
        defaults->setData(archive, "AMResMgrStorageData");
        defaults->setData({}, "empty");
        defaults->setString("hello", "text");
        defaults->setInteger(-9000000000LL, "count");
        defaults->setDouble(1.25, "kQVScaleValue");
        defaults->setDictionary(settings, "com.record.cfgDictionary");
        EXPECT_TRUE(defaults->synchronize());

        // Another instance on the same file sees each write at once.
        const auto other = UserDefaults::createWithPath(_path);
        EXPECT_EQ(other->dataForKey("AMResMgrStorageData"), archive);
        other->setString("from other", "text");
        EXPECT_EQ(defaults->stringForKey("text"), "from other");
        EXPECT_TRUE(capture.lines().empty());
    }
    const auto reopened = UserDefaults::createWithPath(_path);
    EXPECT_EQ(reopened->dataForKey("AMResMgrStorageData"), archive);
    EXPECT_EQ(reopened->dataForKey("empty"), std::vector<uint8_t>{});
    EXPECT_EQ(reopened->stringForKey("text"), "from other");
    EXPECT_EQ(reopened->integerForKey("count"), -9000000000LL);
    EXPECT_EQ(reopened->doubleForKey("kQVScaleValue"), 1.25);
    EXPECT_EQ(reopened->dictionaryForKey("com.record.cfgDictionary"), settings);

    reopened->removeObjectForKey("AMResMgrStorageData");
    EXPECT_FALSE(reopened->containsValueForKey("AMResMgrStorageData"));
    EXPECT_FALSE(UserDefaults::createWithPath(_path)->dataForKey("AMResMgrStorageData"));
}

TEST_F(UserDefaultsTest, MissingKeysAndOtherTypesReadAsNothing) {
    const auto defaults = UserDefaults::createWithPath(_path);
    EXPECT_FALSE(defaults->dataForKey("absent"));

    defaults->setString("42", "text");
    defaults->setDouble(-7.9, "real");
    EXPECT_FALSE(defaults->dataForKey("text"));
    EXPECT_EQ(defaults->integerForKey("text"), 0);

    // Numbers convert among themselves.
    EXPECT_EQ(defaults->integerForKey("real"), -7);
    EXPECT_TRUE(defaults->boolForKey("real"));

    // A key holds one value; setting another type replaces it.
    defaults->setBool(false, "text");
    EXPECT_FALSE(defaults->stringForKey("text"));
    EXPECT_TRUE(defaults->containsValueForKey("text"));
    EXPECT_FALSE(defaults->boolForKey("text"));
}

TEST_F(UserDefaultsTest, ADamagedPageIsFoundAndTheFileMovedAside) {
    {
        const auto defaults = UserDefaults::createWithPath(_path);
        for (int i = 0; i < 200; ++i) defaults->setData(std::vector<uint8_t>(1000, static_cast<uint8_t>(i)), "key" + std::to_string(i));
    }
    // Closing the last connection moved everything from the write-ahead log into the file.
    ASSERT_FALSE(std::filesystem::exists(_path + "-wal"));
    const auto size = std::filesystem::file_size(_path);
    ASSERT_GT(size, 3 * 4096u);
    const auto file = FileHandle::fileHandleForUpdatingAtPath(_path);
    ASSERT_TRUE(file);
    // Overwrite the second and third pages (the table's b-tree) with garbage.
    ASSERT_TRUE(file->writeAt(4096, std::vector<uint8_t>(8192, 0x5a)));
    file->closeFile();
    const std::string damaged = contentsOf(_path);

    LogCapture capture;
    const auto defaults = UserDefaults::createWithPath(_path);
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].rfind("Error: user defaults " + _path + " are damaged (", 0), 0u) << lines[0];
    EXPECT_NE(lines[0].find("moved to " + _path + ".damaged-1, starting empty"), std::string::npos) << lines[0];
    EXPECT_EQ(contentsOf(_path + ".damaged-1"), damaged);
    EXPECT_FALSE(defaults->containsValueForKey("key0"));

    // The fresh file works from then on.
    defaults->setInteger(5, "after");
    capture.clear();
    EXPECT_EQ(UserDefaults::createWithPath(_path)->integerForKey("after"), 5);
    EXPECT_TRUE(capture.lines().empty());
}

TEST_F(UserDefaultsTest, AnUnopenableFileLeavesDefaultsInMemory) {
    const std::string path = _directory + "/missing/defaults.sqlite3";
    LogCapture capture;
    const auto defaults = UserDefaults::createWithPath(path);
    ASSERT_EQ(capture.lines().size(), 1u);
    EXPECT_EQ(capture.lines()[0].rfind("Error: can not open user defaults " + path + " (", 0), 0u) << capture.lines()[0];
    defaults->setString("kept for now", "key");
    EXPECT_EQ(defaults->stringForKey("key"), "kept for now");
    EXPECT_FALSE(defaults->synchronize());
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(UserDefaultsTest, ConcurrentWritersAndReaders) {
    const auto defaults = UserDefaults::createWithPath(_path);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&defaults, t] {
            for (int i = t * 40; i < t * 40 + 40; ++i) {
                defaults->setInteger(i, std::to_string(i));
                EXPECT_EQ(defaults->integerForKey(std::to_string(i)), i);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    const auto reopened = UserDefaults::createWithPath(_path);
    for (int i = 0; i < 160; ++i) EXPECT_EQ(reopened->integerForKey(std::to_string(i)), i);
}

TEST_F(UserDefaultsTest, StandardDefaultsLiveUnderTheConfigHomeAndBundle) {
    test::ScopedEnvironment environment;
    environment.set("XDG_CONFIG_HOME", _directory);
    Bundle::setIdentifier("com.quorvia.DefaultsTest");

    UserDefaults& standard = UserDefaults::standardUserDefaults();
    const std::string expected = _directory + "/com.quorvia.DefaultsTest/defaults.sqlite3";
    EXPECT_EQ(standard.path(), expected);
    EXPECT_EQ(&UserDefaults::standardUserDefaults(), &standard);
    standard.setInteger(7, "kQVScaleValue");
    EXPECT_EQ(UserDefaults::createWithPath(expected)->integerForKey("kQVScaleValue"), 7);

    Bundle::setIdentifier("");
}

}  // namespace
}  // namespace qm
