// `quormedia record`, run as a child process on a private display and sound server.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdio>
#include <fstream>
#include <optional>
#include <sstream>
#include <thread>

#include "support/HeadlessDesktop.h"
#include "support/TestEnvironment.h"

namespace qm {
namespace {

struct CliRun {
    int exitCode = -1;
    std::string output;  // stdout and stderr together
};

std::string readFile(const std::string& path) {
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

// One line of the catalogue: identifier, kind, length, size, then the name.
struct CatalogueLine {
    std::string identifier;
    std::string kind;
    double seconds = 0;
    std::string size;
    std::string name;
};

std::vector<CatalogueLine> catalogue(const std::string& listing) {
    std::vector<CatalogueLine> lines;
    std::istringstream text(listing);
    for (std::string line; std::getline(text, line);) {
        std::istringstream fields(line);
        CatalogueLine entry;
        std::string length;
        if (!(fields >> entry.identifier >> entry.kind >> length >> entry.size)) continue;
        int hours = 0, minutes = 0;
        double seconds = 0;
        if (std::sscanf(length.c_str(), "%d:%d:%lf", &hours, &minutes, &seconds) != 3) continue;
        entry.seconds = hours * 3600 + minutes * 60 + seconds;
        std::getline(fields >> std::ws, entry.name);
        lines.push_back(entry);
    }
    return lines;
}

// The identifier the host printed last: an upper-case UUID on a line of its own.
std::optional<std::string> printedIdentifier(const std::string& output) {
    const size_t end = output.find_last_not_of('\n');
    const size_t start = output.rfind('\n', end);
    const std::string last = output.substr(start == std::string::npos ? 0 : start + 1, end - start);
    const bool shaped = last.size() == 36 && last[8] == '-' && last[13] == '-' && last[18] == '-' && last[23] == '-' &&
                        last.find_first_not_of("0123456789ABCDEF-") == std::string::npos;
    return shaped ? std::optional(last) : std::nullopt;
}

std::optional<CatalogueLine> find(const std::vector<CatalogueLine>& lines, const std::string& identifier) {
    for (const auto& line : lines) {
        if (line.identifier == identifier) return line;
    }
    return std::nullopt;
}

class RecordCliTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        display = new test::PrivateDisplay(320, 240);
        display->fillRectangle(0, 0, 320, 240, 0x204060);
        sound = new test::PrivateSoundServer(440);
    }
    static void TearDownTestSuite() {
        delete sound;
        delete display;
    }

    // Starts the host; its output collects in a file until finish().
    std::unique_ptr<test::ChildProcess> start(const std::vector<std::string>& arguments,
                                              std::map<std::string, std::string> environment = {}) {
        std::vector<std::string> command{QUORMEDIA_CLI};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return std::make_unique<test::ChildProcess>(command, environment, -1, outputFile());
    }
    CliRun finish(test::ChildProcess& child) {
        CliRun run;
        run.exitCode = child.waitForExit(std::chrono::seconds(60));
        run.output = readFile(outputFile());
        return run;
    }
    CliRun quormedia(const std::vector<std::string>& arguments, std::map<std::string, std::string> environment = {}) {
        auto child = start(arguments, std::move(environment));
        return finish(*child);
    }
    std::string outputFile() const { return folders.file("output.txt"); }

    test::PrivateUserDirectories folders{"record_cli_test"};
    static test::PrivateDisplay* display;
    static test::PrivateSoundServer* sound;
};

test::PrivateDisplay* RecordCliTest::display = nullptr;
test::PrivateSoundServer* RecordCliTest::sound = nullptr;

TEST_F(RecordCliTest, RecordsForTheGivenSecondsAndRegistersTheRecording) {
    const CliRun run = quormedia({"record", "--screen", "--rect", "10,10,101,61", "--seconds", "2"});
    ASSERT_EQ(run.exitCode, 0) << run.output;
    EXPECT_NE(run.output.find("recording 00:00:01.5"), std::string::npos) << run.output;
    const auto identifier = printedIdentifier(run.output);
    ASSERT_TRUE(identifier) << run.output;

    const CliRun listed = quormedia({"resources"});
    const auto line = find(catalogue(listed.output), *identifier);
    ASSERT_TRUE(line) << listed.output;
    EXPECT_EQ(line->kind, "movie");
    EXPECT_EQ(line->size, "102x62");
    EXPECT_NEAR(line->seconds, 2.0, 0.5);
}

TEST_F(RecordCliTest, InterruptStopsCleanlyAndKeepsTheSound) {
    auto child = start({"record", "--audio"});
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    child->signal(SIGINT);
    const CliRun run = finish(*child);
    ASSERT_EQ(run.exitCode, 0) << run.output;
    const auto identifier = printedIdentifier(run.output);
    ASSERT_TRUE(identifier) << run.output;
    const auto line = find(catalogue(quormedia({"resources"}).output), *identifier);
    ASSERT_TRUE(line);
    EXPECT_EQ(line->kind, "sound");
    EXPECT_NEAR(line->seconds, 2.5, 1.0);
}

TEST_F(RecordCliTest, MissingDisplayDeviceOrServerIsOneLineAndFailure) {
    const auto lineCount = [](const std::string& text) { return std::count(text.begin(), text.end(), '\n'); };
    const CliRun noDisplay = quormedia({"record", "--screen"}, {{"DISPLAY", ":999"}});
    EXPECT_EQ(noDisplay.exitCode, 1);
    EXPECT_EQ(lineCount(noDisplay.output), 1) << noDisplay.output;
    EXPECT_NE(noDisplay.output.find("cannot capture the display"), std::string::npos);

    const CliRun noCamera = quormedia({"record", "--camera"});
    EXPECT_EQ(noCamera.exitCode, 1);
    EXPECT_EQ(noCamera.output, "quormedia: no camera: no /dev/video* device can be opened\n");

    const CliRun noServer = quormedia({"record", "--audio"}, {{"PULSE_SERVER", "unix:/nonexistent/native"}});
    EXPECT_EQ(noServer.exitCode, 1);
    EXPECT_EQ(lineCount(noServer.output), 1) << noServer.output;

    EXPECT_EQ(quormedia({"record"}).exitCode, 2);
    EXPECT_EQ(quormedia({"record", "--screen", "--audio"}).exitCode, 2);
    EXPECT_EQ(quormedia({"record", "--audio", "--rect", "0,0,10,10"}).exitCode, 2);
    EXPECT_EQ(quormedia({"record", "--screen", "--seconds", "0"}).exitCode, 2);
}

TEST_F(RecordCliTest, RecordingKilledMidwayIsRecoveredAtTheNextStart) {
    auto child = start({"record", "--screen"});
    // Three seconds and a half of recording, counted from the elapsed time the host prints; the
    // journal is synced once a second, so up to a second of it may be lost.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (readFile(outputFile()).find("recording 00:00:01.0") == std::string::npos &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    child->signal(SIGKILL);
    child->waitForExit(std::chrono::seconds(10));

    const CliRun listed = quormedia({"resources"});
    const auto lines = catalogue(listed.output);
    ASSERT_EQ(lines.size(), 1u) << listed.output;
    EXPECT_EQ(lines[0].name.rfind("Recovered recording", 0), 0u) << lines[0].name;
    EXPECT_EQ(lines[0].kind, "movie");
    EXPECT_EQ(lines[0].size, "320x240");
    EXPECT_GE(lines[0].seconds, 2.0) << listed.output;
}

}  // namespace
}  // namespace qm
