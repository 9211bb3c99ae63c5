#pragma once

// A data source of moving colour pictures and a sine (or, for sync checks, a dark picture with a
// white flash and silence with a beep every minute), and a runner that exports it on the main loop.

#include <chrono>
#include <cmath>
#include <cstring>
#include <functional>
#include <numbers>
#include <optional>
#include <vector>

#include "codec/QVTimebase.h"
#include "export/FMAssetWriter.h"
#include "export/FMAssetWriterTask.h"
#include "platform/Dispatch.h"

namespace qm::test {

enum class SampleType { Int16, Float32 };

struct FakeSourceRecipe {
    int width = 160, height = 120;
    int framesPerSecond = 15;
    int frameCount = 45;
    bool video = true;
    bool audio = true;
    int sampleRate = 44100;
    int channels = 2;
    SampleType sampleType = SampleType::Int16;
    int blockSamples = 1000;
    int64_t totalSamples = 3 * 44100;
    // A white flash (one frame) and a beep (0.1 s of 1 kHz) half-way through every period of
    // `markPeriodSeconds`, over dark grey and silence, instead of colours and a sine.
    int markPeriodSeconds = 0;
};

inline AudioStreamBasicDescription describePCM(int sampleRate, int channels, SampleType type) {
    const uint32_t bytes = type == SampleType::Int16 ? 2 : 4;
    AudioStreamBasicDescription description;
    description.mSampleRate = sampleRate;
    description.mFormatFlags = kAudioFormatFlagIsPacked |
                               (type == SampleType::Int16 ? kAudioFormatFlagIsSignedInteger : kAudioFormatFlagIsFloat);
    description.mBitsPerChannel = bytes * 8;
    description.mChannelsPerFrame = static_cast<uint32_t>(channels);
    description.mBytesPerFrame = bytes * static_cast<uint32_t>(channels);
    description.mFramesPerPacket = 1;
    description.mBytesPerPacket = description.mBytesPerFrame;
    return description;
}

// Interleaved PCM of `count` frames from sample `first` on, every channel the same signal.
inline std::vector<uint8_t> makePCM(const AudioStreamBasicDescription& description, int64_t first, int64_t count,
                                    const std::function<double(int64_t)>& signal) {
    std::vector<uint8_t> bytes(static_cast<size_t>(count) * description.mBytesPerFrame);
    const uint32_t channels = description.mChannelsPerFrame;
    for (int64_t i = 0; i < count; ++i) {
        const double value = signal(first + i);
        for (uint32_t c = 0; c < channels; ++c) {
            uint8_t* at = bytes.data() + (static_cast<size_t>(i) * channels + c) * (description.mBitsPerChannel / 8);
            if (description.mFormatFlags & kAudioFormatFlagIsFloat) {
                const auto sample = static_cast<float>(value);
                std::memcpy(at, &sample, sizeof sample);
            } else {
                const auto sample = static_cast<int16_t>(std::lround(value * 32767));
                std::memcpy(at, &sample, sizeof sample);
            }
        }
    }
    return bytes;
}

class FakeExportSource : public FMAssetWriterTaskDataSource {
public:
    explicit FakeExportSource(const FakeSourceRecipe& recipe) : _recipe(recipe) {}

    std::optional<int64_t> FMAssetWriterTaskLength(FMAssetWriterTask&) override {
        if (_recipe.video) return QMTimestampFromSamples(_recipe.framesPerSecond, _recipe.frameCount);
        return QMTimestampFromSamples(_recipe.sampleRate, _recipe.totalSamples);
    }

    std::optional<Image> FMAssetWriterTaskGetVideoImageAtTimestamp(FMAssetWriterTask& task,
                                                                   int64_t* timestamp) override {
        ++videoCalls;
        if (cancelOnFirstPicture) task.cancelAssetWrite();
        if (!_recipe.video || _nextFrame >= _recipe.frameCount) return Image();
        *timestamp = QMTimestampFromSamples(_recipe.framesPerSecond, _nextFrame);
        return picture(_nextFrame++);
    }

    std::optional<std::vector<uint8_t>> FMAssetWriterTaskGetAudioFrame(
        FMAssetWriterTask&, AudioStreamBasicDescription* description) override {
        ++audioCalls;
        if (!_recipe.audio) return std::nullopt;
        *description = describePCM(_recipe.sampleRate, _recipe.channels, _recipe.sampleType);
        const int64_t count = std::min<int64_t>(_recipe.blockSamples, _recipe.totalSamples - _nextSample);
        if (count <= 0) return std::vector<uint8_t>();
        auto bytes = makePCM(*description, _nextSample, count, [this](int64_t i) { return sound(i); });
        _nextSample += count;
        return bytes;
    }

    bool cancelOnFirstPicture = false;
    int videoCalls = 0;
    int audioCalls = 0;

private:
    Image picture(int index) const {
        const Rect frame{{0, 0}, {double(_recipe.width), double(_recipe.height)}};
        if (_recipe.markPeriodSeconds > 0) {
            const int period = _recipe.markPeriodSeconds * _recipe.framesPerSecond;
            const bool flash = index % period == period / 2;
            return Image::imageWithColor(flash ? Color::white() : Color::colorWithWhite(0.1)).cropped(frame);
        }
        const double phase = static_cast<double>(index) / _recipe.frameCount;
        const Image background = Image::imageWithColor(Color::colorWithRed(phase, 0.3, 1 - phase)).cropped(frame);
        const Rect square{{phase * (_recipe.width - 20), 10}, {20, 20}};
        return sourceOver(Image::imageWithColor(Color::colorWithRed(1, 1, 0)).cropped(square), background);
    }

    double sound(int64_t sample) const {
        const double t = static_cast<double>(sample) / _recipe.sampleRate;
        if (_recipe.markPeriodSeconds > 0) {
            const int64_t period = static_cast<int64_t>(_recipe.markPeriodSeconds) * _recipe.sampleRate;
            const int64_t sinceMark = sample % period - period / 2;
            const bool beep = sinceMark >= 0 && sinceMark < _recipe.sampleRate / 10;
            return beep ? 0.6 * std::sin(2 * std::numbers::pi * 1000 * t) : 0.0;
        }
        return 0.5 * std::sin(2 * std::numbers::pi * 440 * t);
    }

    FakeSourceRecipe _recipe;
    int _nextFrame = 0;
    int64_t _nextSample = 0;
};

struct TaskEvent {
    int32_t action;
    std::optional<double> value;
};

// Runs the task to its Complete message, draining the main queue; the messages in order.
inline std::vector<TaskEvent> runToCompletion(FMAssetWriterTask& task,
                                              std::chrono::seconds timeout = std::chrono::seconds(300)) {
    std::vector<TaskEvent> events;
    bool complete = false;
    task.startAssetWriteWithBlock([&](int32_t action, std::optional<double> value) {
        events.push_back({action, value});
        if (action == QVMuxerTaskActionComplete) complete = true;
    });
    MainLoop::runUntil([&] { return complete; }, timeout);
    return events;
}

}  // namespace qm::test
