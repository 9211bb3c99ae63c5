#include "support/StoredMedia.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <numbers>
#include <vector>

#include "codec/BitmapCodec.h"
#include "codec/QVAudioFrame2.h"
#include "store/SCAudioResource.h"
#include "store/SCImageResource.h"
#include "store/SCVideoResource.h"

namespace qm::test {

namespace {

// One value of `format` at full scale `value`.
void putValue(std::vector<uint8_t>& bytes, int32_t format, double value) {
    value = std::clamp(value, -1.0, 1.0);
    auto append = [&bytes](const auto number) {
        const size_t at = bytes.size();
        bytes.resize(at + sizeof(number));
        std::memcpy(bytes.data() + at, &number, sizeof(number));
    };
    switch (format) {
        case QVSampleFormatU8:
            append(static_cast<uint8_t>(std::lround(127.0 + value * 127.0)));
            break;
        case QVSampleFormatS16:
            append(static_cast<int16_t>(std::lround(value * 32767.0)));
            break;
        case QVSampleFormatS32:
            append(static_cast<int32_t>(std::lround(value * 2147483647.0)));
            break;
        case QVSampleFormatFLT:
            append(static_cast<float>(value));
            break;
        default:
            append(value);
            break;
    }
}

std::shared_ptr<const Bitmap> solidPicture(int width, int height, uint8_t grey) {
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4, grey);
    for (size_t i = 3; i < pixels.size(); i += 4) pixels[i] = 255;
    return Bitmap::createWithOpaquePixels(width, height, std::move(pixels));
}

}  // namespace

std::function<double(int64_t, int64_t)> sineSignal(double frequency, int64_t sampleRate) {
    return [frequency, sampleRate](int64_t position, int64_t channel) {
        const double turns = frequency * static_cast<double>(position) / static_cast<double>(sampleRate);
        return 0.5 * std::sin(2.0 * std::numbers::pi * turns - 0.5 * std::numbers::pi * static_cast<double>(channel));
    };
}

std::function<double(int64_t, int64_t)> constantSignal(double value) {
    return [value](int64_t, int64_t) { return value; };
}

std::shared_ptr<SCResource> storedAudioResource(const StoredAudioPlan& plan) {
    auto storage = SCResourceStorage::create();
    std::vector<std::shared_ptr<SCAudioBlock>> blocks;
    uint64_t offset = 0;
    for (int64_t start = 0; start < plan.numberOfSamples; start += plan.blockSamples) {
        const int64_t count = std::min(plan.blockSamples, plan.numberOfSamples - start);
        std::vector<uint8_t> samples;
        for (int64_t i = 0; i < count; ++i) {
            for (int64_t c = 0; c < plan.channels; ++c) putValue(samples, plan.sampleFormat, plan.signal(start + i, c));
        }
        const auto frame =
            QVAudioFrame2::create(plan.sampleFormat, static_cast<int32_t>(plan.channels),
                                  static_cast<int32_t>(plan.sampleRate), static_cast<int32_t>(count), samples.data());
        const auto bytes = SCResource::encodeAudioFrame(frame);
        storage->appendData(bytes);
        blocks.push_back(SCAudioBlock::createWithOffset(offset, bytes.size(), start, count));
        offset += bytes.size();
    }
    storage->flushCacheBuffer();
    auto audio = SCAudioResource::createWithDataStorage(storage, std::move(blocks), plan.sampleRate, plan.channels,
                                                        plan.sampleFormat, 0);
    return SCResource::createWithAudio(std::move(audio), nullptr);
}

uint8_t storedFrameGrey(int index) { return static_cast<uint8_t>((40 + 20 * index) % 256); }

std::shared_ptr<SCResource> storedVideoResource(int frameCount, int64_t frameDuration, int width, int height) {
    auto storage = SCResourceStorage::create();
    std::vector<std::shared_ptr<SCVideoBlock>> blocks;
    uint64_t offset = 0;
    for (int i = 0; i < frameCount; ++i) {
        const auto bytes = SCResource::encodeCGImage(solidPicture(width, height, storedFrameGrey(i)));
        storage->appendData(bytes);
        blocks.push_back(SCVideoBlock::createWithOffset(offset, bytes.size(), i * frameDuration, frameDuration));
        offset += bytes.size();
    }
    storage->flushCacheBuffer();
    auto video = SCVideoResource::createWithStorage(storage, std::move(blocks), width, height);
    return SCResource::createWithAudio(nullptr, std::move(video));
}

std::shared_ptr<SCResource> storedImageResource(const std::string& path, int width, int height) {
    const auto png = BitmapCodec::PNGRepresentation(*solidPicture(width, height, 200));
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(png.data()), static_cast<std::streamsize>(png.size()));
    return SCResource::createWithImage(SCImageResource::createWithURL(path));
}

}  // namespace qm::test
