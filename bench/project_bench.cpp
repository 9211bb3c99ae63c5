// The editing model at scale: N clips of one second end to end on one track. Items per second
// are clips added, groups undone, or clips split; the fitted complexity shows how the cost grows
// with N.
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "codec/QVTimebase.h"
#include "platform/Dispatch.h"
#include "platform/UndoManager.h"
#include "project/QVClip.h"
#include "project/QVProject.h"
#include "project/QVTrack.h"

namespace qm {
namespace {

std::vector<std::shared_ptr<QVClip>> clipsEndToEnd(int64_t count) {
    std::vector<std::shared_ptr<QVClip>> clips;
    clips.reserve(static_cast<size_t>(count));
    for (int64_t i = 0; i < count; ++i) {
        auto clip = QVClip::create();
        clip->setTrackDuration(QVTimebase);
        clip->setTimestampOfTrack(i * QVTimebase);
        clips.push_back(std::move(clip));
    }
    return clips;
}

struct Model {
    std::shared_ptr<UndoManager> undo = std::make_shared<UndoManager>();
    std::shared_ptr<QVProject> project = QVProject::createWithUndoManager(undo);
};

std::unique_ptr<Model> filledModel(int64_t count) {
    auto model = std::make_unique<Model>();
    for (const auto& clip : clipsEndToEnd(count)) model->project->addClip(clip);
    MainLoop::drain();
    return model;
}

// Runs the queued content messages and frees the model outside the timed part.
void discard(benchmark::State& state, std::unique_ptr<Model>& model) {
    state.PauseTiming();
    model.reset();
    MainLoop::drain();
    state.ResumeTiming();
}

// addClip of the project, one clip after the other, each its own undo group.
void addEndToEnd(benchmark::State& state) {
    const int64_t count = state.range(0);
    for (auto _ : state) {
        state.PauseTiming();
        auto model = std::make_unique<Model>();
        auto clips = clipsEndToEnd(count);
        state.ResumeTiming();
        for (const auto& clip : clips) model->project->addClip(clip);
        discard(state, model);
    }
    state.SetItemsProcessed(state.iterations() * count);
    state.SetComplexityN(count);
}

// undoNestedGroup once per added clip, until the project is empty again.
void undoAllAdds(benchmark::State& state) {
    const int64_t count = state.range(0);
    for (auto _ : state) {
        state.PauseTiming();
        auto model = filledModel(count);
        state.ResumeTiming();
        for (int64_t i = 0; i < count; ++i) model->undo->undoNestedGroup();
        if (!model->project->tracks().empty()) state.SkipWithError("undo left tracks behind");
        discard(state, model);
    }
    state.SetItemsProcessed(state.iterations() * count);
    state.SetComplexityN(count);
}

// One undo group that selects each clip in turn, puts the playhead in its middle and splits it.
void composeSplitOfEveryClip(benchmark::State& state) {
    const int64_t count = state.range(0);
    for (auto _ : state) {
        state.PauseTiming();
        auto model = filledModel(count);
        const auto clips = model->project->tracks().front()->clips();
        state.ResumeTiming();
        model->undo->beginUndoGrouping();
        for (const auto& clip : clips) {
            model->project->setSelection({clip});
            model->project->setCurrentTimestamp(clip->timestampOfTrack() + QVTimebase / 2);
            model->project->splitSelectedClipAtCurrentTime();
        }
        model->undo->endUndoGrouping();
        state.PauseTiming();
        if (model->project->tracks().front()->clips().size() != static_cast<size_t>(2 * count)) {
            state.SkipWithError("not every clip was split");
        }
        state.ResumeTiming();
        discard(state, model);
    }
    state.SetItemsProcessed(state.iterations() * count);
    state.SetComplexityN(count);
}

// The composed split taken back in one undo step.
void undoComposedSplit(benchmark::State& state) {
    const int64_t count = state.range(0);
    for (auto _ : state) {
        state.PauseTiming();
        auto model = filledModel(count);
        const auto clips = model->project->tracks().front()->clips();
        model->undo->beginUndoGrouping();
        for (const auto& clip : clips) {
            model->project->setSelection({clip});
            model->project->setCurrentTimestamp(clip->timestampOfTrack() + QVTimebase / 2);
            model->project->splitSelectedClipAtCurrentTime();
        }
        model->undo->endUndoGrouping();
        MainLoop::drain();
        state.ResumeTiming();
        model->undo->undoNestedGroup();
        if (model->project->tracks().front()->clips().size() != static_cast<size_t>(count)) {
            state.SkipWithError("undo did not join the clips");
        }
        discard(state, model);
    }
    state.SetItemsProcessed(state.iterations() * count);
    state.SetComplexityN(count);
}

void sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgName("clips")->Arg(1000)->Arg(3000)->Arg(10000)->Unit(benchmark::kMillisecond)->Complexity();
}

// The undo benchmarks time a small part of each iteration; a fixed count keeps their untimed
// set-up from dominating the run.
BENCHMARK(addEndToEnd)->Apply(sizes);
BENCHMARK(undoAllAdds)->Apply(sizes)->Iterations(20);
BENCHMARK(composeSplitOfEveryClip)->Apply(sizes);
BENCHMARK(undoComposedSplit)->Apply(sizes)->Iterations(3);

}  // namespace
}  // namespace qm

BENCHMARK_MAIN();
