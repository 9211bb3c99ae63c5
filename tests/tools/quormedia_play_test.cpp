// `quormedia play` where no window can open, run as a child process.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "support/TestEnvironment.h"

namespace qm {
namespace {

using CliRun = test::ShellRun;

// Runs the host with `arguments` (already quoted for the shell) after `environment` settings.
CliRun quormedia(const std::string& environment, const std::string& arguments) {
    return test::runShellCommand("env " + environment + " " + QUORMEDIA_CLI + " " + arguments);
}

size_t lineCount(const std::string& text) {
    size_t lines = 0;
    for (char c : text) lines += c == '\n';
    return lines;
}

class QuormediaPlayTest : public ::testing::Test {
protected:
    std::string edit() const {
        std::ofstream(folders.file("edit.json")) << R"({"output": {"width": 160, "height": 120}, "tracks": []})";
        return folders.file("edit.json");
    }

    test::PrivateUserDirectories folders{"quormedia_play_test"};
};

TEST_F(QuormediaPlayTest, WithoutADisplayItSaysSoInOneLine) {
    const CliRun run = quormedia("-u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM", "play " + edit());
    EXPECT_EQ(run.exitCode, 1) << run.output;
    EXPECT_EQ(lineCount(run.output), 1u) << run.output;
    EXPECT_NE(run.output.find("display"), std::string::npos) << run.output;
}

TEST_F(QuormediaPlayTest, BadArgumentsAreRefusedBeforeAnyWindow) {
    const CliRun none = quormedia("QT_QPA_PLATFORM=offscreen", "play");
    EXPECT_EQ(none.exitCode, 2) << none.output;
    const CliRun two = quormedia("QT_QPA_PLATFORM=offscreen", "play " + edit() + " " + edit());
    EXPECT_EQ(two.exitCode, 2) << two.output;
    const CliRun missing = quormedia("QT_QPA_PLATFORM=offscreen", "play " + folders.file("nothing.json"));
    EXPECT_EQ(missing.exitCode, 2) << missing.output;
    EXPECT_EQ(lineCount(missing.output), 1u) << missing.output;
}

}  // namespace
}  // namespace qm
