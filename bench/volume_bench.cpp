// Throughput of the volume arithmetic on one second of 48 kHz stereo, in sample positions per
// second, for S16 and FLT.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "foundation/QVSampleBuffer.h"
#include "foundation/QVVolumeEffect.h"

namespace qm {
namespace {

constexpr int64_t kRate = 48000;
constexpr int64_t kChannels = 2;

// A sine of a little under full scale, so mixing exercises both compressing branches.
std::shared_ptr<QVSampleBuffer> tone(int32_t format, const QVRange& range, double frequency) {
    const QVSampleDescription description(kRate, kChannels, format, 0);
    std::vector<uint8_t> bytes(static_cast<size_t>(range.length() * description.bytesPerSample()));
    for (int64_t i = 0; i < range.length() * kChannels; ++i) {
        const double value = 0.8 * std::sin(2.0 * M_PI * frequency * static_cast<double>(i / kChannels) / kRate);
        if (format == QVSampleFormatS16) {
            const int16_t sample = static_cast<int16_t>(value * 32767.0);
            std::memcpy(&bytes[i * 2], &sample, 2);
        } else {
            const float sample = static_cast<float>(value);
            std::memcpy(&bytes[i * 4], &sample, 4);
        }
    }
    return QVSampleBuffer::createWithSampleDescription(description, range, std::move(bytes));
}

void mixEqualRanges(benchmark::State& state) {
    const auto format = static_cast<int32_t>(state.range(0));
    const auto a = tone(format, QVRange(0, kRate), 440.0);
    const auto b = tone(format, QVRange(0, kRate), 660.0);
    for (auto _ : state) benchmark::DoNotOptimize(QVVolumeEffect::mixSampleBuffer(a, b));
    state.SetItemsProcessed(state.iterations() * kRate);
}

void mergeHalfOverlap(benchmark::State& state) {
    const auto format = static_cast<int32_t>(state.range(0));
    const auto a = tone(format, QVRange(0, kRate), 440.0);
    const auto b = tone(format, QVRange(kRate / 2, kRate), 660.0);
    for (auto _ : state) benchmark::DoNotOptimize(QVVolumeEffect::mergeSampleBuffer(a, b));
    state.SetItemsProcessed(state.iterations() * kRate);
}

void gainConstant(benchmark::State& state) {
    const auto format = static_cast<int32_t>(state.range(0));
    const auto buffer = tone(format, QVRange(0, kRate), 440.0);
    const auto effect = QVVolumeGainEffect::createWithVolume(0.7);
    for (auto _ : state) benchmark::DoNotOptimize(effect->gainSampleBuffer(buffer));
    state.SetItemsProcessed(state.iterations() * kRate);
}

void fadeWholeBuffer(benchmark::State& state) {
    const auto format = static_cast<int32_t>(state.range(0));
    const auto buffer = tone(format, QVRange(0, kRate), 440.0);
    const auto effect = QVVolumeFadeEffect::createWithStartVolume(0.0, 1.0, QVRange(0, kRate));
    for (auto _ : state) benchmark::DoNotOptimize(effect->applySampleBuffer(buffer));
    state.SetItemsProcessed(state.iterations() * kRate);
}

void formats(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgName("format")->Arg(QVSampleFormatS16)->Arg(QVSampleFormatFLT)->Unit(benchmark::kMicrosecond);
}

BENCHMARK(mixEqualRanges)->Apply(formats);
BENCHMARK(mergeHalfOverlap)->Apply(formats);
BENCHMARK(gainConstant)->Apply(formats);
BENCHMARK(fadeWholeBuffer)->Apply(formats);

}  // namespace
}  // namespace qm

BENCHMARK_MAIN();
