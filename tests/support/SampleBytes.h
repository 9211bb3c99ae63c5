#pragma once

#include <cstring>
#include <memory>
#include <vector>

#include "foundation/QVSampleBuffer.h"

namespace qm::test {

template <typename T>
std::vector<uint8_t> bytesOf(const std::vector<T>& values) {
    std::vector<uint8_t> bytes(values.size() * sizeof(T));
    std::memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

template <typename T>
std::vector<T> valuesOf(const std::vector<uint8_t>& bytes) {
    std::vector<T> values(bytes.size() / sizeof(T));
    std::memcpy(values.data(), bytes.data(), values.size() * sizeof(T));
    return values;
}

// A buffer of interleaved `values` starting at sample `location`.
template <typename T>
std::shared_ptr<QVSampleBuffer> bufferOf(const QVSampleDescription& description, int64_t location,
                                         const std::vector<T>& values) {
    const int64_t samples = static_cast<int64_t>(values.size()) / description.channels();
    return QVSampleBuffer::createWithSampleDescription(description, QVRange(location, samples), bytesOf(values));
}

inline std::shared_ptr<QVSampleBuffer> monoS16(int64_t location, const std::vector<int16_t>& values) {
    return bufferOf(QVSampleDescription(44100, 1, QVSampleFormatS16, 0), location, values);
}

inline std::vector<int16_t> s16Values(const std::shared_ptr<QVSampleBuffer>& buffer) {
    return valuesOf<int16_t>(buffer->data());
}

}  // namespace qm::test
