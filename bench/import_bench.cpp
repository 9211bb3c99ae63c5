// Import of a 60-second 1920x1080 30 fps H.264 + AAC movie into the store, against the ffmpeg
// command that does the same work (every frame to JPEG, sound to PCM):
//   ffmpeg -i IN -c:v mjpeg -q:v 3 -c:a pcm_s16le OUT.mov
// Prints both wall times and their ratio (target: ours / ffmpeg <= 1). The source movie is made
// once with ffmpeg (libx264 veryfast) and kept next to this program.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "platform/Dispatch.h"
#include "platform/UserDefaults.h"
#include "store/AMResourceImportTask.h"
#include "store/SCAudioResource.h"
#include "store/SCVideoResource.h"

using namespace qm;

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

bool run(const std::string& command) { return std::system(command.c_str()) == 0; }

std::string sourceMovie(const std::filesystem::path& folder) {
    const std::string path = (folder / "import_bench_source.mp4").string();
    if (std::filesystem::exists(path)) return path;
    std::printf("making the 60 s source movie once...\n");
    std::fflush(stdout);
    const std::string partial = path + ".part.mp4";
    const bool made = run("ffmpeg -v error -y -f lavfi -i testsrc2=size=1920x1080:rate=30 -f lavfi "
                          "-i sine=frequency=440:sample_rate=48000 -t 60 -vf noise=alls=6:allf=t "
                          "-c:v libx264 -preset veryfast -crf 20 -g 60 -pix_fmt yuv420p -c:a aac -ac 2 -b:a 128k '" +
                          partial + "'");
    if (!made) return {};
    std::filesystem::rename(partial, path);
    return path;
}

}  // namespace

int main(int argc, char** argv) {
    const std::filesystem::path folder = std::filesystem::absolute(argv[0]).parent_path();
    const std::string source = sourceMovie(folder);
    if (source.empty()) {
        std::fprintf(stderr, "could not make the source movie with ffmpeg\n");
        return 1;
    }

    // A private store, removed afterwards.
    char scratchTemplate[] = "/tmp/import_bench-XXXXXX";
    const std::string scratch = mkdtemp(scratchTemplate);
    setenv("XDG_DATA_HOME", scratch.c_str(), 1);
    auto manager = AMResourceMgr::createWithDefaults(UserDefaults::createWithPath(scratch + "/defaults.sqlite3"));
    auto task = AMResourceImportTask::create(*manager);

    const auto start = Clock::now();
    std::shared_ptr<AMResourceImportResult> result;
    task->importURLs({source}, false, [&](int32_t phase, const AMTaskInfo* info) {
        if (phase == AMResourceImportTask::phaseEnd) result = info->representObject;
        return false;
    });
    MainLoop::runUntil([&] { return result != nullptr; }, std::chrono::hours(1));
    const double ours = secondsSince(start);
    if (!result || result->importResources().empty()) {
        std::fprintf(stderr, "import failed\n");
        return 1;
    }
    const auto record = result->importResources()[0];
    const auto video = record->videoResource();
    const auto audio = record->audioResource();
    uintmax_t storedBytes = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(scratch)) {
        if (entry.is_regular_file()) storedBytes += entry.file_size();
    }

    const std::string output = scratch + "/ffmpeg_out.mov";
    const auto ffmpegStart = Clock::now();
    if (!run("ffmpeg -v error -y -i '" + source + "' -c:v mjpeg -q:v 3 -c:a pcm_s16le '" + output + "'")) {
        std::fprintf(stderr, "ffmpeg failed\n");
        return 1;
    }
    const double theirs = secondsSince(ffmpegStart);
    const uintmax_t ffmpegBytes = std::filesystem::file_size(output);
    std::filesystem::remove_all(scratch);

    std::printf("import of 60 s 1920x1080 30 fps H.264 + AAC (%u cores)\n", std::thread::hardware_concurrency());
    std::printf("  ours:   %6.2f s  %lld frames %lldx%lld, %lld samples, %.0f MB stored\n", ours,
                static_cast<long long>(video ? video->numberOfFrames() : 0),
                static_cast<long long>(video ? video->width() : 0), static_cast<long long>(video ? video->height() : 0),
                static_cast<long long>(audio ? audio->sampleRange().length() : 0), storedBytes / 1e6);
    std::printf("  ffmpeg: %6.2f s  (mjpeg -q:v 3, pcm_s16le; %.0f MB)\n", theirs, ffmpegBytes / 1e6);
    std::printf("  ratio ours / ffmpeg: %.2f (target <= 1.00)\n", ours / theirs);
    return 0;
}
