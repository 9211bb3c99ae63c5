// Export against the tools people know, on the same job: two 6-second 1280x720 30 fps clips with
// sound, overlapping for 2 seconds under a dissolve, 10 seconds out, H.264 (x264 veryfast at the
// bit rate our writer uses) and AAC. Times, in one run: our export from the already imported store
// (the command-line host), ffmpeg with xfade and acrossfade, and melt with a luma mix; prints the
// three times and our ratio to each (target: at most 1.0 against ffmpeg). Then the peak memory of
// a 10-minute 1080p export (target: under 500 MB).
//
//   export_bench [--skip-long]
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "BenchSupport.h"

namespace {

using qm::bench::Clock;

constexpr int kWidth = 1280;
constexpr int kHeight = 720;
// Our writer's video bit rate: width * height * 6 bits per second.
constexpr long kBitRate = static_cast<long>(kWidth) * kHeight * 6;
constexpr double kTargetRatio = 1.0;
constexpr double kTargetPeakMB = 500;

struct RunResult {
    bool ok = false;
    double seconds = 0;
    double peakMB = 0;
};

// Runs `command` through the shell, quietly, and measures its wall time and peak memory.
RunResult run(const std::string& command) {
    const auto start = Clock::now();
    const pid_t child = ::fork();
    if (child == 0) {
        ::execl("/bin/sh", "sh", "-c", (command + " > /dev/null 2>&1").c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    int status = 0;
    rusage usage{};
    RunResult result;
    if (child > 0 && ::wait4(child, &status, 0, &usage) == child) {
        result.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
        result.peakMB = static_cast<double>(usage.ru_maxrss) / 1024.0;
    }
    result.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return result;
}

bool have(const char* program) { return run(std::string("command -v ") + program).ok; }

void writeText(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

// A project of `clips` alternating clips of 6 s, each overlapping the next by 2 s under Dissolve.
std::string editFile(int width, int height, int clips) {
    std::string json = "{\"output\": {\"width\": " + std::to_string(width) + ", \"height\": " + std::to_string(height) +
                       ", \"fps\": 30, \"sampleRate\": 48000, \"channels\": 2},\n" + " \"tracks\": [{\"clips\": [\n";
    for (int i = 0; i < clips; ++i) {
        json += std::string("  {\"file\": \"") + (i % 2 ? "b.mp4" : "a.mp4") +
                "\", \"start\": " + std::to_string(4 * i) + ", \"duration\": 6" +
                (i + 1 < clips ? ", \"transition\": \"Dissolve\"" : "") + "}" + (i + 1 < clips ? ",\n" : "\n");
    }
    return json + "]}]}\n";
}

void printRun(const char* name, const RunResult& r, double ours) {
    if (!r.ok) {
        std::printf("  %-8s failed\n", name);
        return;
    }
    std::printf("  %-8s %6.2f s   peak %6.1f MB   ours / this: %.2f\n", name, r.seconds, r.peakMB, ours / r.seconds);
}

}  // namespace

int main(int argc, char** argv) {
    const bool skipLong = argc > 1 && std::string(argv[1]) == "--skip-long";
    qm::bench::PrivateUserFolders directory("export_bench");
    const std::string a = directory.file("a.mp4");
    const std::string b = directory.file("b.mp4");
    const std::string size = std::to_string(kWidth) + "x" + std::to_string(kHeight);
    std::printf("export: two 6 s %s 30 fps clips, 2 s dissolve, 10 s out, x264 veryfast %ld kbit/s + AAC\n",
                size.c_str(), kBitRate / 1000);
    if (!have("ffmpeg")) {
        std::printf("  ffmpeg is missing: scripts/install-deps installs it\n");
        return 1;
    }
    const bool madeClips =
        run("ffmpeg -y -f lavfi -i testsrc2=size=" + size +
            ":rate=30:duration=6 -f lavfi -i sine=frequency=440:duration=6"
            " -c:v libx264 -preset veryfast -pix_fmt yuv420p -c:a aac -shortest " +
            a)
            .ok &&
        run("ffmpeg -y -f lavfi -i mandelbrot=size=" + size +
            ":rate=30,trim=duration=6 -f lavfi -i "
            "sine=frequency=660:duration=6 -c:v libx264 -preset veryfast -pix_fmt yuv420p -c:a aac -shortest " +
            b)
            .ok;
    if (!madeClips) {
        std::printf("  the sample clips could not be made\n");
        return 1;
    }

    const std::string cli = QUORMEDIA_CLI;
    const RunResult imported = run(cli + " import " + a + " " + b);
    std::printf("  import of both clips into the store: %.2f s%s\n", imported.seconds, imported.ok ? "" : " (failed)");
    const std::string edit = directory.file("job.json");
    writeText(edit, editFile(kWidth, kHeight, 2));

    const RunResult ours = run(cli + " export " + edit + " " + directory.file("ours.mp4"));
    const std::string bitRate = std::to_string(kBitRate);
    const RunResult ffmpeg =
        run("ffmpeg -y -i " + a + " -i " + b +
            " -filter_complex \"[0:v][1:v]xfade=transition=fade:duration=2:offset=4[v];[0:a][1:a]acrossfade=d=2[a]\""
            " -map [v] -map [a] -c:v libx264 -preset veryfast -b:v " +
            bitRate + " -g 30 -c:a aac " + directory.file("ffmpeg.mp4"));
    RunResult melt;
    if (have("melt")) {
        melt = run("melt -profile atsc_720p_30 " + a + " " + b +
                   " -mix 60 -mixer luma -mixer mix:-1 -consumer avformat:" + directory.file("melt.mp4") +
                   " vcodec=libx264 preset=veryfast vb=" + bitRate + " g=30 acodec=aac real_time=-2");
    }
    std::printf("  load average: %s\n", qm::bench::loadAverage().c_str());
    if (!ours.ok) {
        std::printf("  ours     failed\n");
        return 1;
    }
    std::printf("  ours     %6.2f s   peak %6.1f MB\n", ours.seconds, ours.peakMB);
    printRun("ffmpeg", ffmpeg, ours.seconds);
    printRun("melt", melt, ours.seconds);
    if (ffmpeg.ok) {
        std::printf("  target: at most %.1f x ffmpeg's time: %s\n", kTargetRatio,
                    ours.seconds / ffmpeg.seconds <= kTargetRatio ? "met" : "MISSED");
    }

    if (skipLong) return 0;
    // Ten minutes of the two clips in turn, at 1080p: 150 clips of 6 s, each 4 s after the last.
    const std::string longEdit = directory.file("long.json");
    writeText(longEdit, editFile(1920, 1080, 150));
    const RunResult longRun = run(cli + " export " + longEdit + " " + directory.file("long.mp4"));
    std::printf("  10-minute 1080p export: %s in %.0f s, peak memory %.1f MB (target under %.0f MB: %s)\n",
                longRun.ok ? "done" : "FAILED", longRun.seconds, longRun.peakMB, kTargetPeakMB,
                longRun.ok && longRun.peakMB < kTargetPeakMB ? "met" : "MISSED");
    return 0;
}
