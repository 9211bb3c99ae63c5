#pragma once

#include <cstdint>

namespace qm {

// Time units per second (the "flick"): every common frame rate and sample rate has an
// exact integer duration in these units.
inline constexpr int64_t QVTimebase = 705600000;

// Duration of "for ever": the largest signed 64-bit value.
inline constexpr int64_t QMNoTimeLimited = INT64_MAX;

// a * b / c with a 128-bit product, truncated toward zero. c must not be 0.
constexpr int64_t QMMultiplyDivide(int64_t a, int64_t b, int64_t c) {
    return static_cast<int64_t>(static_cast<__int128>(a) * b / c);
}

// Sample position of a timestamp: sampleRate * timestamp / QVTimebase, multiplying first.
constexpr int64_t QMSamplesFromTimestamp(int64_t sampleRate, int64_t timestamp) {
    return QMMultiplyDivide(sampleRate, timestamp, QVTimebase);
}

// Timestamp of a sample position: QVTimebase * samples / sampleRate, multiplying first.
constexpr int64_t QMTimestampFromSamples(int64_t sampleRate, int64_t samples) {
    return QMMultiplyDivide(QVTimebase, samples, sampleRate);
}

}  // namespace qm
