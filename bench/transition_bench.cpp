// Every transition at percent 0.5 on two 1920x1080 pictures, built and rendered to RGBA8 through a
// RenderContext as playback does for each frame, in milliseconds per frame (target: 8 ms on this
// machine). Then Fade and Swipe(Left) against ffmpeg's xfade (fade, wipeleft) on the same pictures as
// raw RGBA video in and out: ffmpeg's whole run per frame, the same run with xfade replaced by a
// plain pass of the same frames (reading, pixel-format conversion, writing), and the difference.
//
//   transition_bench [--threads N] [--only NAME[,NAME...]]
// --threads sets the render threads (default: one per hardware thread); --only times just the named
// transitions and skips ffmpeg. CPU time (all threads of the process) is shown beside wall time.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <cstring>
#include <ctime>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

#include "BenchSupport.h"
#include "effects/transitions/PSTransition.h"
#include "effects/transitions/PSTransitionAssets.h"
#include "image/RenderContext.h"
#include "platform/Bitmap.h"

using namespace qm;

namespace {

using bench::Clock;
using bench::loadAverage;
using bench::millisecondsSince;

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr int kWarmup = 2;
constexpr int kFrames = 15;
constexpr double kTargetMs = 8.0;
// ffmpeg reads each 2-frame file this many times over.
constexpr int kLoops = 30;
constexpr int kFfmpegFrames = 2 * kLoops;

// CPU time of the whole process, in ms.
double processCpuMilliseconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e3 + double(now.tv_nsec) * 1e-6;
}

struct Timing {
    double mean = 0;
    double best = 0;
    double cpu = 0;
};

Timing timeTransition(const RenderContext& context, const PSTransition& transition, const Image& from,
                      const Image& to, std::vector<uint8_t>& frame) {
    const Rect region{0, 0, double(kWidth), double(kHeight)};
    auto renderOne = [&] {
        const Image image = transition.transitionImage(from, to, 0.5);
        context.render(image, region, PixelFormat::RGBA8Premultiplied, frame.data(), size_t(kWidth) * 4);
    };
    for (int i = 0; i < kWarmup; ++i) renderOne();
    Timing timing{0, 1e9, 0};
    for (int i = 0; i < kFrames; ++i) {
        const double cpuStart = processCpuMilliseconds();
        const auto start = Clock::now();
        renderOne();
        const double ms = millisecondsSince(start);
        timing.cpu += (processCpuMilliseconds() - cpuStart) / kFrames;
        timing.mean += ms / kFrames;
        timing.best = std::min(timing.best, ms);
    }
    return timing;
}

// Two copies of the picture as raw RGBA (the pictures are opaque, so straight equals premultiplied).
bool writeRawFrames(const std::filesystem::path& path, const Bitmap& picture) {
    std::ofstream out(path, std::ios::binary);
    for (int copy = 0; copy < 2; ++copy) {
        for (int row = 0; row < picture.height(); ++row)
            out.write(reinterpret_cast<const char*>(picture.data() + size_t(row) * picture.bytesPerRow()), kWidth * 4);
    }
    return bool(out);
}

// Wall time of one ffmpeg run over both raw inputs with `graph` (which must give [out]), in ms,
// or a negative value when the run fails.
double runFfmpeg(const std::filesystem::path& from, const std::filesystem::path& to, const std::string& graph) {
    char size[32];
    std::snprintf(size, sizeof size, "%dx%d", kWidth, kHeight);
    const std::string input = std::string("-f rawvideo -pix_fmt rgba -s ") + size + " -r 30 -stream_loop " +
                              std::to_string(kLoops - 1) + " -i ";
    const std::string command = "ffmpeg -hide_banner -loglevel error -nostdin " + input + "'" + from.string() + "' " +
                                input + "'" + to.string() + "' -filter_complex '" + graph +
                                "' -map '[out]' -f rawvideo -pix_fmt rgba -y /dev/null";
    const auto start = Clock::now();
    const int status = std::system(command.c_str());
    const double ms = millisecondsSince(start);
    return status == 0 ? ms : -1;
}

// The best of three runs, per frame.
double ffmpegPerFrame(const std::filesystem::path& from, const std::filesystem::path& to, const std::string& graph) {
    double best = 1e18;
    for (int run = 0; run < 3; ++run) {
        const double ms = runFfmpeg(from, to, graph);
        if (ms < 0) return -1;
        best = std::min(best, ms);
    }
    return best / kFfmpegFrames;
}

// The comma-separated names of `list`.
std::vector<std::string> splitNames(const char* list) {
    std::vector<std::string> names;
    std::stringstream stream(list);
    for (std::string name; std::getline(stream, name, ',');) names.push_back(name);
    return names;
}

}  // namespace

int main(int argc, char** argv) {
    RenderContext::Options options;
    std::vector<std::string> only;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--threads") == 0) {
            options.threadCount = std::atoi(argv[i + 1]);
        } else if (std::strcmp(argv[i], "--only") == 0) {
            only = splitNames(argv[i + 1]);
        } else {
            std::printf("usage: %s [--threads N] [--only NAME[,NAME...]]\n", argv[0]);
            return 2;
        }
    }
    const auto fromPicture = PSTransitionAssets::samplePicture(0, kWidth, kHeight);
    const auto toPicture = PSTransitionAssets::samplePicture(1, kWidth, kHeight);
    const Image from = Image::imageWithBitmap(fromPicture);
    const Image to = Image::imageWithBitmap(toPicture);
    const auto context = RenderContext::create(options);
    std::vector<uint8_t> frame(size_t(kWidth) * kHeight * 4);

    std::printf("transitions at 0.5, %dx%d to RGBA8, ms per frame (mean / best of %d / CPU), target %.0f ms\n",
                kWidth, kHeight, kFrames, kTargetMs);
    std::printf("load average before: %s\n", loadAverage().c_str());
    double fadeMs = 0;
    double swipeMs = 0;
    int over = 0;
    int timed = 0;
    for (const auto& name : PSTransition::supportTransitions()) {
        if (!only.empty() && std::find(only.begin(), only.end(), name) == only.end()) continue;
        ++timed;
        const auto transition = PSTransition::transitionWithName(name);
        const Timing timing = timeTransition(*context, *transition, from, to, frame);
        const bool ok = timing.mean <= kTargetMs;
        over += ok ? 0 : 1;
        std::printf("  %-30s %7.2f %7.2f %7.2f  %s\n", name.c_str(), timing.mean, timing.best, timing.cpu,
                    ok ? "ok" : "OVER");
        if (name == PSTransitionFadeName) fadeMs = timing.mean;
        if (name == PSTransitionSwipeName) swipeMs = timing.mean;
    }
    std::printf("%d of %d over the target\n", over, timed);
    std::printf("load average after: %s\n", loadAverage().c_str());
    if (!only.empty()) return 0;

    const auto directory = std::filesystem::temp_directory_path() / ("transition_bench_" + std::to_string(::getpid()));
    std::filesystem::create_directories(directory);
    const auto fromPath = directory / "from.rgba";
    const auto toPath = directory / "to.rgba";
    if (!writeRawFrames(fromPath, *fromPicture) || !writeRawFrames(toPath, *toPicture)) {
        std::printf("cannot write raw frames to %s\n", directory.c_str());
        std::filesystem::remove_all(directory);
        return 1;
    }
    const std::string pass = "[0:v]format=gbrap,format=rgba[out];[1:v]format=gbrap,nullsink";
    const double baseline = ffmpegPerFrame(fromPath, toPath, pass);
    struct Peer {
        const char* ours;
        double oursMs;
        const char* xfade;
    };
    for (const Peer& peer : {Peer{"Fade", fadeMs, "fade"}, Peer{"Swipe(Left)", swipeMs, "wipeleft"}}) {
        const std::string graph =
            std::string("[0:v][1:v]xfade=transition=") + peer.xfade + ":duration=1.9:offset=0,format=rgba[out]";
        const double total = ffmpegPerFrame(fromPath, toPath, graph);
        if (total < 0 || baseline < 0) {
            std::printf("ffmpeg xfade=%s: could not run ffmpeg\n", peer.xfade);
            continue;
        }
        const double xfadeOnly = total - baseline;
        std::printf("%s %.2f ms vs ffmpeg xfade=%s %.2f ms per frame (ratio %.2f); ffmpeg without xfade %.2f ms, "
                    "so xfade itself %.2f ms (ratio %.2f)\n",
                    peer.ours, peer.oursMs, peer.xfade, total, peer.oursMs / total, baseline, xfadeOnly,
                    xfadeOnly > 0 ? peer.oursMs / xfadeOnly : 0.0);
    }
    std::filesystem::remove_all(directory);
    return 0;
}
