#pragma once

// Media the benchmark programs make in memory and store as import would leave it.

#include <cmath>
#include <cstdint>
#include <memory>
#include <numbers>
#include <random>
#include <vector>

#include "codec/QVAudioFrame2.h"
#include "platform/Bitmap.h"
#include "store/SCAudioResource.h"
#include "store/SCResource.h"

namespace qm::bench {

// A frame with camera-like detail, so that its JPEG has a realistic size: smooth gradients that
// drift with `index`, a box that moves `boxStep` pixels a frame and a fine grain.
inline std::shared_ptr<const Bitmap> cameraFrame(int width, int height, int index, int seed, int boxStep) {
    std::vector<uint8_t> rgba(static_cast<size_t>(width) * height * 4);
    std::minstd_rand noise(static_cast<unsigned>(seed * 7919 + index));
    for (int y = 0; y < height; ++y) {
        uint8_t* row = rgba.data() + static_cast<size_t>(y) * width * 4;
        for (int x = 0; x < width; ++x) {
            const bool box = std::abs(x - (300 + index * boxStep)) < 220 && std::abs(y - (400 + seed * 200)) < 160;
            const int grain = static_cast<int>(noise() % 12);
            row[x * 4 + 0] = box ? 230 : static_cast<uint8_t>((x / 9 + index * 2 + seed * 60 + grain) & 255);
            row[x * 4 + 1] = box ? 190 : static_cast<uint8_t>((y / 5 + index + grain) & 255);
            row[x * 4 + 2] = box ? 50 : static_cast<uint8_t>((((x ^ y) >> 4) * 5 + grain) & 255);
            row[x * 4 + 3] = 255;
        }
    }
    return Bitmap::createWithOpaquePixels(width, height, std::move(rgba));
}

// A stored stereo S16 sine (the right channel inverted) of `seconds`, in blocks of 1024 samples.
inline std::shared_ptr<SCResource> storedSine(double frequency, double amplitude, int64_t sampleRate,
                                              int64_t seconds) {
    constexpr int64_t kBlock = 1024;
    auto storage = SCResourceStorage::create();
    std::vector<std::shared_ptr<SCAudioBlock>> blocks;
    uint64_t offset = 0;
    for (int64_t start = 0; start < seconds * sampleRate; start += kBlock) {
        std::vector<int16_t> samples;
        for (int64_t i = start; i < start + kBlock; ++i) {
            const double value = amplitude * std::sin(2.0 * std::numbers::pi * frequency * static_cast<double>(i) /
                                                      static_cast<double>(sampleRate));
            samples.push_back(static_cast<int16_t>(value * 32767.0));
            samples.push_back(static_cast<int16_t>(-value * 32767.0));
        }
        const auto frame = QVAudioFrame2::create(QVSampleFormatS16, 2, sampleRate, kBlock,
                                                 reinterpret_cast<const uint8_t*>(samples.data()));
        const auto bytes = SCResource::encodeAudioFrame(frame);
        storage->appendData(bytes);
        blocks.push_back(SCAudioBlock::createWithOffset(offset, bytes.size(), start, kBlock));
        offset += bytes.size();
    }
    storage->flushCacheBuffer();
    return SCResource::createWithAudio(
        SCAudioResource::createWithDataStorage(storage, std::move(blocks), sampleRate, 2, QVSampleFormatS16, 0),
        nullptr);
}

}  // namespace qm::bench
