// The audio mixdown of a project of 8 tracks of 48 kHz stereo clips, read in 1024-sample blocks as
// playback and export read it. mixdownRealTime reads a 1-minute project from end to end and
// reports realtime_factor: seconds of sound made per second of wall time. mixdownBlock reads one
// block at a time in a project of 1 or 60 minutes: the time per block must not grow with the
// project's length. The second argument is the requested rate: 48000 reads the clips as stored,
// 44100 resamples them.
#include <benchmark/benchmark.h>

#include <stdlib.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "BenchMedia.h"
#include "BenchSupport.h"
#include "codec/QVAudioFrame2.h"
#include "codec/QVTimebase.h"
#include "foundation/QVSampleBuffer.h"
#include "foundation/QVSampleDescription.h"
#include "project/QVMediaClip.h"
#include "project/QVProject.h"
#include "project/QVTrack.h"
#include "store/SCAudioResource.h"
#include "store/SCResource.h"

namespace qm {
namespace {

constexpr int kTracks = 8;
constexpr int64_t kSourceRate = 48000;
constexpr int64_t kBlock = 1024;
constexpr int64_t kClipSeconds = 10;

// Eight tracks of clips end to end over `minutes`, each track over a resource of its own, with
// fades so that every clip's edges are faded.
std::shared_ptr<QVProject> projectOfMinutes(int64_t minutes) {
    static const std::vector<std::shared_ptr<SCResource>> resources = [] {
        std::vector<std::shared_ptr<SCResource>> made;
        for (int t = 0; t < kTracks; ++t) made.push_back(bench::storedSine(220.0 * (t + 1), 0.3, kSourceRate, kClipSeconds));
        return made;
    }();
    auto project = QVProject::create();
    const int64_t clipsPerTrack = minutes * 60 / kClipSeconds;
    for (int t = 0; t < kTracks; ++t) {
        auto track = QVTrack::create();
        project->addTracksObject(track);
        for (int64_t c = 0; c < clipsPerTrack; ++c) {
            auto clip = QVMediaClip::createWithResource(resources[t]);
            clip->setTimestampOfTrack(c * kClipSeconds * QVTimebase);
            clip->setFadeIn(true);
            clip->setFadeOut(true);
            clip->setDurationOfFadeIn(QVTimebase / 2);
            clip->setDurationOfFadeOut(QVTimebase / 2);
            track->addClip(clip);
        }
    }
    return project;
}

QVSampleDescription requested(int64_t rate) { return QVSampleDescription(rate, 2, QVSampleFormatS16, 0); }

void mixdownRealTime(benchmark::State& state) {
    const auto project = projectOfMinutes(1);
    const QVSampleDescription description = requested(state.range(0));
    const int64_t total = project->numberOfSamplesWithDescription(description);
    for (auto _ : state) {
        for (int64_t at = 0;; at += kBlock) {
            const auto sound = project->sampleBufferWithDescription(description, QVRange(at, kBlock));
            if (!sound) break;
            benchmark::DoNotOptimize(sound->sampleRange());
        }
    }
    const double seconds = static_cast<double>(total) / static_cast<double>(description.sampleRate());
    state.counters["realtime_factor"] =
        benchmark::Counter(seconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(mixdownRealTime)->Arg(48000)->Arg(44100)->Unit(benchmark::kMillisecond)->UseRealTime();

// One block per iteration, read forward from the middle of the project and wrapping over ten
// seconds, so that every clip stays on its sequential path.
void mixdownBlock(benchmark::State& state) {
    const auto project = projectOfMinutes(state.range(0));
    const QVSampleDescription description = requested(state.range(1));
    const int64_t start = project->numberOfSamplesWithDescription(description) / 2;
    const int64_t window = kClipSeconds * description.sampleRate();
    int64_t at = start;
    for (auto _ : state) {
        const auto sound = project->sampleBufferWithDescription(description, QVRange(at, kBlock));
        benchmark::DoNotOptimize(sound);
        at += kBlock;
        if (at >= start + window) at = start;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(mixdownBlock)
    ->ArgNames({"minutes", "rate"})
    ->Args({1, 48000})
    ->Args({60, 48000})
    ->Args({1, 44100})
    ->Args({60, 44100})
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();

}  // namespace
}  // namespace qm

int main(int argc, char** argv) {
    const qm::bench::PrivateUserFolders folders("mixdown_bench");
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
