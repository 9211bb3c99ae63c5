// The command-line host, run as a child process in private user folders.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/MediaFileWriter.h"
#include "support/TestEnvironment.h"

namespace qm {
namespace {

using CliRun = test::ShellRun;

// Runs the host with `arguments` (already quoted for the shell).
CliRun quormedia(const std::string& arguments) {
    return test::runShellCommand(std::string(QUORMEDIA_CLI) + " " + arguments);
}

class QuormediaCliTest : public ::testing::Test {
protected:
    void SetUp() override {
        test::VideoTrackSpec video;
        video.width = 96;
        video.height = 64;
        video.frameCount = 20;
        video.frameRate = {10, 1};
        test::AudioTrackSpec audio;
        audio.seconds = 2.0;
        ASSERT_EQ(test::writeMediaFile(movie(), {video, audio, {}}), "");
    }

    std::string movie() const { return folders.file("clip.mp4"); }
    std::string file(const std::string& name) const { return folders.file(name); }
    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream(file(name)) << text;
        return file(name);
    }
    // A new edit file with one clip of the movie, with `extra` keys added to the clip.
    std::string edit(const std::string& extra = "") {
        return write("edit" + std::to_string(++_edits) + ".json",
                     R"({"output": {"width": 160, "height": 120, "fps": 10},
  "tracks": [{"clips": [{"file": "clip.mp4", "duration": 1.5)" +
                         extra + "}]}]}");
    }

    test::PrivateUserDirectories folders{"quormedia_cli_test"};

private:
    int _edits = 0;
};

TEST_F(QuormediaCliTest, ImportListsTheResourceAndKnowsADuplicate) {
    const CliRun first = quormedia("import " + movie());
    EXPECT_EQ(first.exitCode, 0) << first.output;
    EXPECT_NE(first.output.find("movie"), std::string::npos) << first.output;
    EXPECT_NE(first.output.find("96x64"), std::string::npos) << first.output;

    const CliRun again = quormedia("import " + movie());
    EXPECT_EQ(again.exitCode, 0);
    EXPECT_NE(again.output.find("already in the store: " + movie()), std::string::npos) << again.output;

    const CliRun listed = quormedia("resources");
    EXPECT_EQ(listed.exitCode, 0);
    EXPECT_NE(listed.output.find("clip"), std::string::npos) << listed.output;
}

TEST_F(QuormediaCliTest, ImportReportsEachFailureOnItsOwnLine) {
    write("notes.txt", "not a movie");
    const CliRun run = quormedia("import " + file("missing.mp4") + " " + file("notes.txt") + " " + movie());
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.output.find(file("missing.mp4") + ": no such file"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find(file("notes.txt") + ": "), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("96x64"), std::string::npos) << run.output;
}

TEST_F(QuormediaCliTest, FrameWritesThePictureAtATime) {
    const CliRun run = quormedia("frame " + edit(R"(, "effects": {"entrance": "Fade In", "entranceDuration": 1})") +
                                 " --at 1.2 -o " + file("poster.png"));
    ASSERT_EQ(run.exitCode, 0) << run.output;
    std::ifstream png(file("poster.png"), std::ios::binary);
    std::string head(8, '\0');
    png.read(head.data(), 8);
    EXPECT_EQ(head, std::string("\x89PNG\r\n\x1a\n", 8));
    EXPECT_NE(run.output.find("160x120"), std::string::npos) << run.output;
}

TEST_F(QuormediaCliTest, ExportWritesTheMovieOrSoundWholeAndNothingBeside) {
    for (const char* name : {"out.mp4", "out.wav"}) {
        const CliRun run =
            quormedia("export " + edit(R"(, "transition": "Dissolve", "fadeIn": 0.5)") + " " + file(name));
        ASSERT_EQ(run.exitCode, 0) << run.output;
        EXPECT_NE(run.output.find(std::string(name) + ": 160x120, 00:00:01.5"), std::string::npos) << run.output;
        EXPECT_GT(std::filesystem::file_size(file(name)), 1000u);
    }
    for (const auto& entry : std::filesystem::directory_iterator(folders.path())) {
        EXPECT_NE(entry.path().extension(), ".part") << entry.path();
    }
    const CliRun odd = quormedia("export " + edit() + " " + file("out.avi"));
    EXPECT_EQ(odd.exitCode, 2);
    EXPECT_NE(odd.output.find("the name must end in .mp4, .mov, .m4a, .mp3 or .wav"), std::string::npos) << odd.output;
    const CliRun unwritable = quormedia("export " + edit() + " /proc/out.mp4");
    EXPECT_EQ(unwritable.exitCode, 1);
    EXPECT_NE(unwritable.output.find("cannot write /proc/out.mp4"), std::string::npos) << unwritable.output;
}

TEST_F(QuormediaCliTest, BadInputGivesOneLineAndExitCodeTwo) {
    struct Case {
        std::string arguments;
        std::string message;
    };
    const Case cases[] = {
        {"", "usage: quormedia import FILE..."},
        {"dance", "unknown command \"dance\""},
        {"frame " + file("none.json") + " --at 1 -o " + file("a.png"), "cannot open the edit file"},
        {"frame " + write("broken.json", "{\n  \"tracks\": [\n    {\"clips\": ]\n}") + " --at 1 -o " + file("a.png"),
         "malformed JSON at line 3, column 15"},
        {"frame " + edit(R"(, "transition": "Swirl")") + " --at 1 -o " + file("a.png"),
         "tracks[0].clips[0].transition: unknown transition \"Swirl\""},
        {"frame " + edit(R"(, "effects": {"entrance": "Fly in from nowhere"})") + " --at 1 -o " + file("a.png"),
         "unknown effect \"Fly in from nowhere\""},
        {"frame " + edit(R"(, "start": "soon")") + " --at 1 -o " + file("a.png"),
         "tracks[0].clips[0].start: expected a number"},
        {"frame " + edit() + " --at later -o " + file("a.png"), "--at expects seconds from 0 on"},
        {"frame " + edit() + " --at 9 -o " + file("a.png"), "lies past the end of the project"},
    };
    for (const auto& c : cases) {
        const CliRun run = quormedia(c.arguments);
        EXPECT_EQ(run.exitCode, 2) << c.arguments << "\n" << run.output;
        EXPECT_NE(run.output.find(c.message), std::string::npos) << c.arguments << "\n" << run.output;
    }
    EXPECT_FALSE(std::filesystem::exists(file("a.png")));
}

TEST_F(QuormediaCliTest, AnUnwritableOutputLeavesNothingBehind) {
    const CliRun run = quormedia("frame " + edit() + " --at 0.5 -o /proc/poster.png");
    EXPECT_EQ(run.exitCode, 1) << run.output;
    EXPECT_NE(run.output.find("cannot write /proc/poster.png"), std::string::npos) << run.output;
}

std::vector<char> bytesOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

TEST_F(QuormediaCliTest, SavedProjectsDrawAsTheirEditFileDoes) {
    const std::string edit = write("drawn.json", R"({"output": {"width": 160, "height": 120, "fps": 10},
  "tracks": [
    {"clips": [{"text": "Hi", "font": "DejaVu Sans", "size": 24, "bold": true, "textColor": [1, 0, 0, 1],
                "position": [20, 30], "duration": 2}]},
    {"clips": [{"shape": "rectangle", "bounds": [10, 10, 50, 40], "fill": [0, 0, 1, 1], "lineWidth": 3,
                "duration": 2},
               {"shape": "arrow", "from": [100, 20], "to": [150, 100], "doubleArrow": true, "start": 1.8,
                "duration": 2}]},
    {"clips": [{"blank": [0, 1, 0], "duration": 2}]}]})");
    const std::string blank = write("blank.json", R"({"output": {"width": 160, "height": 120, "fps": 10},
  "tracks": [{"clips": [{"blank": [0, 1, 0], "duration": 2}]}]})");
    const std::string project = file("drawn.qmproj");

    const CliRun save = quormedia("save " + edit + " " + project);
    ASSERT_EQ(save.exitCode, 0) << save.output;
    EXPECT_NE(save.output.find("3 tracks, 4 clips"), std::string::npos) << save.output;
    for (const auto& [input, out] :
         {std::pair{edit, file("edit.png")}, {project, file("project.png")}, {blank, file("blank.png")}}) {
        const CliRun frame = quormedia("frame " + input + " --at 0.5 -o " + out);
        ASSERT_EQ(frame.exitCode, 0) << frame.output;
    }
    EXPECT_EQ(bytesOf(file("edit.png")), bytesOf(file("project.png")));
    EXPECT_NE(bytesOf(file("edit.png")), bytesOf(file("blank.png")));

    const CliRun exported = quormedia("export " + project + " " + file("sound.wav"));
    EXPECT_EQ(exported.exitCode, 0) << exported.output;

    const auto whole = bytesOf(project);
    std::ofstream(file("cut.qmproj"), std::ios::binary).write(whole.data(), static_cast<long>(whole.size() / 3));
    const CliRun damaged = quormedia("frame " + file("cut.qmproj") + " --at 0.5 -o " + file("cut.png"));
    EXPECT_EQ(damaged.exitCode, 2);
    EXPECT_NE(damaged.output.find("Can not open project " + file("cut.qmproj") + ": the file is damaged"),
              std::string::npos)
        << damaged.output;
    EXPECT_FALSE(std::filesystem::exists(file("cut.png")));
}

TEST_F(QuormediaCliTest, DrawnClipKeysAreChecked) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {R"({"text": "a", "blank": [0, 0, 0]})", "a clip needs one of"},
        {R"({"shape": "star"})", "unknown shape \"star\""},
        {R"({"shape": "line", "from": [0, 0]})", "a line needs \"to\""},
        {R"({"text": "a", "fadeIn": 1})", "only a clip of a file or resource has this"},
        {R"({"text": "a", "align": "middle"})", "unknown alignment \"middle\""},
        {R"({"shape": "ellipse", "bounds": [0, 0, 9, 9], "position": [1, 2]})", "a shape takes its place"},
    };
    for (const auto& [clip, message] : cases) {
        const std::string edit = write("bad.json", R"({"tracks": [{"clips": [)" + clip + "]}]}");
        const CliRun run = quormedia("save " + edit + " " + file("bad.qmproj"));
        EXPECT_EQ(run.exitCode, 2) << clip;
        EXPECT_NE(run.output.find(message), std::string::npos) << run.output;
        EXPECT_FALSE(std::filesystem::exists(file("bad.qmproj")));
    }
}

}  // namespace
}  // namespace qm
