#include "foundation/QVSampleBuffer.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "codec/QVAudioFrame2.h"
#include "platform/Log.h"

namespace qm {

namespace {

// Whole samples among `bytes`; none when a sample has no bytes.
int64_t wholeSamples(size_t bytes, int64_t bytesPerSample) {
    return bytesPerSample > 0 ? static_cast<int64_t>(bytes / static_cast<uint64_t>(bytesPerSample)) : 0;
}

}  // namespace

QVSampleBuffer::QVSampleBuffer(const QVSampleDescription& description, const QVRange& range, std::vector<uint8_t> data)
    : _sampleDescription(description), _data(std::move(data)), _range(range) {}

bool QVSampleBuffer::hasDataForRange(const QVSampleDescription& description, const QVRange& range, size_t bytes) {
    const __int128 expected = static_cast<__int128>(range.length()) * description.bytesPerSample();
    if (expected != static_cast<__int128>(bytes)) {
        QMLog("Error input sample buffer data.");
        return false;
    }
    return true;
}

std::optional<QVSampleDescription> QVSampleBuffer::descriptionOfAudioFrame(const std::shared_ptr<QVAudioFrame2>& frame,
                                                                           const QVRange& range) {
    if (!frame || range.length() != frame->numberOfSamples() || frame->sampleRate() == 0 ||
        frame->numberOfChannel() == 0 || frame->channelLayout() == 0) {
        QMLog("Error input audio frame.");
        return std::nullopt;
    }
    return QVSampleDescription(frame->sampleRate(), frame->numberOfChannel(),
                               QVAudioFrame2::packedSampleFormat(frame->sampleFormat()), frame->channelLayout());
}

std::shared_ptr<QVSampleBuffer> QVSampleBuffer::createWithSampleDescription(const QVSampleDescription& description,
                                                                            const QVRange& range,
                                                                            std::vector<uint8_t> data) {
    if (!hasDataForRange(description, range, data.size())) return nullptr;
    return std::shared_ptr<QVSampleBuffer>(new QVSampleBuffer(description, range, std::move(data)));
}

std::shared_ptr<QVSampleBuffer> QVSampleBuffer::createWithAudioFrame(const std::shared_ptr<QVAudioFrame2>& frame,
                                                                     const QVRange& range) {
    const auto description = descriptionOfAudioFrame(frame, range);
    if (!description) return nullptr;
    return createWithSampleDescription(*description, range, frame->dataOfPackedSamples());
}

std::shared_ptr<QVSampleBuffer> QVSampleBuffer::silentSampleBufferWithDescription(
    const QVSampleDescription& description, const QVRange& range) {
    const __int128 bytes = static_cast<__int128>(range.length()) * description.bytesPerSample();
    const uint8_t silence = description.sampleFormat() == QVSampleFormatU8 ? 0x7F : 0;
    std::vector<uint8_t> data(bytes > 0 ? static_cast<size_t>(bytes) : 0, silence);
    return createWithSampleDescription(description, range, std::move(data));
}

std::shared_ptr<QVSampleBuffer> QVSampleBuffer::appendSampleData(std::span<const uint8_t> bytes,
                                                                 const std::shared_ptr<QVSampleBuffer>& buffer) {
    if (bytes.empty() || !buffer) return buffer;
    std::vector<uint8_t> data;
    data.reserve(buffer->_data.size() + bytes.size());
    data.insert(data.end(), buffer->_data.begin(), buffer->_data.end());
    data.insert(data.end(), bytes.begin(), bytes.end());
    const QVSampleDescription& description = buffer->_sampleDescription;
    const QVRange range(buffer->_range.location(),
                        buffer->_range.length() + wholeSamples(bytes.size(), description.bytesPerSample()));
    return createWithSampleDescription(description, range, std::move(data));
}

std::shared_ptr<QVSampleBuffer> QVSampleBuffer::replaceSampleData(std::span<const uint8_t> bytes, const QVRange& range,
                                                                  const std::shared_ptr<QVSampleBuffer>& buffer) {
    if (!buffer || !buffer->_range.containRange(range)) {
        QMLog("Out of range.");
        return nullptr;
    }
    const int64_t bytesPerSample = buffer->_sampleDescription.bytesPerSample();
    std::vector<uint8_t> data = buffer->_data;
    const size_t offset = static_cast<size_t>(bytesPerSample * (range.location() - buffer->_range.location()));
    if (offset < data.size()) {
        const size_t length =
            std::min({static_cast<size_t>(bytesPerSample * range.length()), bytes.size(), data.size() - offset});
        std::memcpy(data.data() + offset, bytes.data(), length);
    }
    return createWithSampleDescription(buffer->_sampleDescription, buffer->_range, std::move(data));
}

std::shared_ptr<QVSampleBuffer> QVSampleBuffer::sampleBufferWithSubRange(const QVRange& range) const {
    const auto intersection = range.intersectionRange(_range);
    if (!intersection) return nullptr;
    const int64_t bytesPerSample = _sampleDescription.bytesPerSample();
    const size_t offset = static_cast<size_t>(bytesPerSample * (intersection->location() - _range.location()));
    const size_t wanted = static_cast<size_t>(bytesPerSample * intersection->length());
    const size_t start = std::min(offset, _data.size());
    const size_t length = std::min(wanted, _data.size() - start);
    std::vector<uint8_t> data(_data.begin() + start, _data.begin() + start + length);
    return createWithSampleDescription(_sampleDescription, *intersection, std::move(data));
}

int32_t QVSampleBuffer::frameSampleCount() const {
    const int64_t held = wholeSamples(_data.size(), _sampleDescription.bytesPerSample());
    return static_cast<int32_t>(std::clamp<int64_t>(std::min(_range.length(), held), 0, INT32_MAX));
}

std::shared_ptr<QVAudioFrame2> QVSampleBuffer::frame() const {
    return QVAudioFrame2::create(_sampleDescription.sampleFormat(), static_cast<int32_t>(_sampleDescription.channels()),
                                 static_cast<int32_t>(_sampleDescription.sampleRate()), frameSampleCount(),
                                 _data.data(), _sampleDescription.channelLayout());
}

std::shared_ptr<QVAudioFrame2> QVSampleBuffer::convertToAudioFrame() const { return frame(); }

std::span<const uint8_t> QVSampleBuffer::packedSamples(std::vector<uint8_t>& scratch) const {
    const int64_t channels = _sampleDescription.channels();
    if (QVSampleDescription::isPackedSampleFormat(_sampleDescription.sampleFormat()) && channels > 0 &&
        channels <= INT32_MAX) {
        const size_t length =
            static_cast<size_t>(frameSampleCount()) * static_cast<size_t>(_sampleDescription.bytesPerSample());
        return std::span<const uint8_t>(_data.data(), length);
    }
    const auto samples = frame();
    scratch = samples ? samples->dataOfPackedSamples() : std::vector<uint8_t>();
    return scratch;
}

bool QVSampleBuffer::hasPackedSamplesForRange() const {
    return QVSampleDescription::isPackedSampleFormat(_sampleDescription.sampleFormat()) &&
           _sampleDescription.channels() > 0 &&
           static_cast<__int128>(_range.length()) * _sampleDescription.bytesPerSample() ==
               static_cast<__int128>(_data.size());
}

std::string QVSampleBuffer::description() const {
    const auto samples = frame();
    char text[128];
    std::snprintf(text, sizeof text, "Range(%lld, %lld)\nSample count: %d\n", static_cast<long long>(_range.location()),
                  static_cast<long long>(_range.length()), samples ? samples->numberOfSamples() : 0);
    return text;
}

std::shared_ptr<QVMutableSampleBuffer> QVMutableSampleBuffer::createWithSampleDescription(
    const QVSampleDescription& description, const QVRange& range, std::vector<uint8_t> data) {
    if (!hasDataForRange(description, range, data.size())) return nullptr;
    return std::shared_ptr<QVMutableSampleBuffer>(new QVMutableSampleBuffer(description, range, std::move(data)));
}

std::shared_ptr<QVMutableSampleBuffer> QVMutableSampleBuffer::createWithAudioFrame(
    const std::shared_ptr<QVAudioFrame2>& frame, const QVRange& range) {
    const auto description = descriptionOfAudioFrame(frame, range);
    if (!description) return nullptr;
    return createWithSampleDescription(*description, range, frame->dataOfPackedSamples());
}

std::shared_ptr<QVMutableSampleBuffer> QVMutableSampleBuffer::createWithSampleBuffer(
    const std::shared_ptr<QVSampleBuffer>& buffer) {
    if (!buffer) return nullptr;
    return std::shared_ptr<QVMutableSampleBuffer>(
        new QVMutableSampleBuffer(buffer->sampleDescription(), buffer->sampleRange(), buffer->data()));
}

void QVMutableSampleBuffer::appendData(std::span<const uint8_t> bytes) {
    _data.insert(_data.end(), bytes.begin(), bytes.end());
    _range =
        QVRange(_range.location(), _range.length() + wholeSamples(bytes.size(), _sampleDescription.bytesPerSample()));
}

void QVMutableSampleBuffer::cutSamples(int64_t count) {
    if (count <= 0) return;
    if (count >= _range.length()) {
        _data.clear();
        _range = QVRange::emptyRange();
        return;
    }
    _range = QVRange(_range.location() + count, _range.length() - count);
    const size_t dropped = std::min(static_cast<size_t>(_sampleDescription.bytesPerSample() * count), _data.size());
    _data.erase(_data.begin(), _data.begin() + dropped);
}

void QVMutableSampleBuffer::truncSamples(int64_t count) {
    if (count <= 0) return;
    if (count >= _range.length()) {
        _data.clear();
        _range = QVRange::emptyRange();
        return;
    }
    _range = QVRange(_range.location(), _range.length() - count);
    _data.resize(static_cast<size_t>(std::max<int64_t>(0, _range.length() * _sampleDescription.bytesPerSample())));
}

}  // namespace qm
