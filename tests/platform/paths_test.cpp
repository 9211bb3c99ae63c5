#include "platform/Paths.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "platform/Log.h"
#include "support/TestEnvironment.h"

namespace qm {
namespace {

// Sets environment variables for one test and puts the old values back afterwards.
class PathsTest : public ::testing::Test {
protected:
    void SetUp() override {
        for (const char* name : {"XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_RUNTIME_DIR", "TMPDIR"}) _environment.unset(name);
        _environment.set("HOME", _directory);
    }

    test::TemporaryDirectory _temporary{"paths_test"};
    const std::string _directory = _temporary.path();
    test::ScopedEnvironment _environment;
};

TEST_F(PathsTest, XDGVariablesWinWhenAbsolute) {
    EXPECT_EQ(Paths::homeDirectory(), _directory);
    EXPECT_EQ(Paths::applicationSupport(), _directory + "/.local/share");
    EXPECT_EQ(Paths::configHome(), _directory + "/.config");

    setenv("XDG_DATA_HOME", "/srv/data/", 1);
    EXPECT_EQ(Paths::applicationSupport(), "/srv/data");

    // Relative or empty values are not paths and are ignored.
    setenv("XDG_DATA_HOME", "relative/data", 1);
    setenv("XDG_CONFIG_HOME", "", 1);
    EXPECT_EQ(Paths::applicationSupport(), _directory + "/.local/share");
    EXPECT_EQ(Paths::configHome(), _directory + "/.config");

    setenv("XDG_RUNTIME_DIR", "/run/user/4242/", 1);
    EXPECT_EQ(Paths::runtimeDir(), "/run/user/4242");

    // Nothing is made on the way.
    EXPECT_FALSE(std::filesystem::exists(_directory + "/.local"));
}

TEST_F(PathsTest, RuntimeDirFallbackIsPrivate) {
    setenv("TMPDIR", _directory.c_str(), 1);
    const std::string expected = _directory + "/qm-runtime-" + std::to_string(getuid());
    // A directory of ours that is too open is closed up.
    ASSERT_EQ(mkdir(expected.c_str(), 0755), 0);
    ASSERT_EQ(chmod(expected.c_str(), 0755), 0);

    LogCapture capture;
    EXPECT_EQ(Paths::runtimeDir(), expected);
    struct stat info {};
    ASSERT_EQ(lstat(expected.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);

    // When the name is taken by something else, a fresh private directory is used instead.
    std::filesystem::remove(expected);
    std::filesystem::create_directory_symlink(_directory, expected);
    const std::string fallback = Paths::runtimeDir();
    EXPECT_NE(fallback, expected);
    EXPECT_EQ(fallback.rfind(expected + "-", 0), 0u) << fallback;
    ASSERT_EQ(lstat(fallback.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);
    EXPECT_EQ(Paths::runtimeDir(), fallback);
    EXPECT_EQ(capture.count("Warning: runtime directory " + expected + " is not private; using " + fallback), 1u);
    EXPECT_EQ(capture.lines().size(), 1u);
}

}  // namespace
}  // namespace qm
