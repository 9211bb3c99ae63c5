// Saving and opening a project of 10,000 clips over 8 tracks (text, colour and shape clips with
// states), and drawing a text clip of 200 words that nearly fills a 1920 x 1080 picture.
// Targets: under a second to save and to open, under 20 ms to draw.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "codec/QVTimebase.h"
#include "platform/Dispatch.h"
#include "project/ProjectFile.h"
#include "project/QVProject.h"
#include "project/QVShapeClip.h"
#include "project/QVTextClip.h"
#include "project/QVTrack.h"

namespace qm {
namespace {

constexpr int kClips = 10000;
constexpr int kTracks = 8;

std::shared_ptr<QVClip> clipNumber(int i) {
    std::shared_ptr<QVClip> clip;
    switch (i % 4) {
        case 0:
            clip = QVTextClip::createWithString("Title " + std::to_string(i));
            break;
        case 1:
            clip = QVBlankClip::createWithColor(Color{0.1, 0.2, 0.3, 1});
            break;
        case 2:
            clip = QVRectShapeClip::shapeClipWithRect({10.0 + i % 100, 20, 300, 200}, 8, 8);
            break;
        default:
            clip = QVArrowShapeClip::shapeClipWithArrawStartPoint({0, 0}, {100.0 + i % 50, 80});
            break;
    }
    clip->setValidateColorControl(i % 3 == 0);
    clip->setValideteShadow(i % 5 == 0);
    return clip;
}

// Clips of one second end to end, spread over the tracks in turn.
std::shared_ptr<QVProject> bigProject() {
    auto project = QVProject::create();
    std::vector<std::shared_ptr<QVTrack>> tracks;
    for (int t = 0; t < kTracks; ++t) {
        tracks.push_back(QVTrack::createWithProject(project));
        project->addTracksObject(tracks.back());
    }
    for (int i = 0; i < kClips; ++i) {
        auto clip = clipNumber(i);
        clip->setTrackDuration(QVTimebase);
        clip->setTimestampOfTrack(static_cast<int64_t>(i / kTracks) * QVTimebase);
        tracks[static_cast<size_t>(i % kTracks)]->addClip(clip);
    }
    project->undoManager()->removeAllActions();
    MainLoop::drain();
    return project;
}

bench::PrivateUserFolders& folders() {
    static bench::PrivateUserFolders instance("archive_text_bench");
    return instance;
}

void saveProject(benchmark::State& state) {
    const auto project = bigProject();
    const std::string path = folders().file("big.qmproj");
    for (auto _ : state) {
        if (ProjectFile::save(project, path)) state.SkipWithError("save failed");
    }
    state.counters["clips"] = kClips;
}

void openProject(benchmark::State& state) {
    const std::string path = folders().file("open.qmproj");
    if (ProjectFile::save(bigProject(), path)) state.SkipWithError("save failed");
    for (auto _ : state) {
        auto opened = ProjectFile::open(path);
        if (!opened.project) state.SkipWithError(opened.error.c_str());
        state.PauseTiming();
        opened.project.reset();
        MainLoop::drain();
        state.ResumeTiming();
    }
}

// 200 words in 20 lines, at the largest whole font size whose picture fits 1920 x 1080.
std::shared_ptr<QVTextClip> twoHundredWords() {
    static const char* words[] = {"lorem",       "ipsum",      "dolor", "sit", "amet",
                                  "consectetur", "adipiscing", "elit",  "sed", "do"};
    std::string text;
    for (int i = 0; i < 200; ++i) {
        text += words[i % 10];
        text += (i % 10 == 9) ? (i == 199 ? "" : "\n") : " ";
    }
    auto clip = QVTextClip::createWithString(text);
    clip->setFontName("DejaVuSans");
    for (double size = 80; size > 8; --size) {
        clip->setFontSize(size);
        if (clip->size().width <= 1920 && clip->size().height <= 1080) break;
    }
    return clip;
}

void drawText(benchmark::State& state) {
    const auto clip = twoHundredWords();
    for (auto _ : state) {
        benchmark::DoNotOptimize(clip->createTextImage());
    }
    state.counters["width"] = clip->size().width;
    state.counters["height"] = clip->size().height;
    state.counters["fontSize"] = clip->fontSize();
}

BENCHMARK(saveProject)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(openProject)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(drawText)->Unit(benchmark::kMillisecond)->MinTime(1.0);

}  // namespace
}  // namespace qm

int main(int argc, char** argv) {
    std::printf("load average: %s\n", qm::bench::loadAverage().c_str());
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
