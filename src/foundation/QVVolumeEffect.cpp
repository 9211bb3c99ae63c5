#include "foundation/QVVolumeEffect.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>

#include "codec/QVAudioFrame2.h"
#include "foundation/QMCommon.h"
#include "platform/Log.h"

namespace qm {

namespace {

// The smaller of `upper` and `value`, then the larger of `lower` and that. A NaN value gives
// `upper`, so every result is inside the bounds before it is converted to an integer.
double clampUpperFirst(double value, double lower, double upper) { return std::max(lower, std::min(upper, value)); }

int64_t wrappingAdd(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

template <typename T>
T load(const uint8_t* bytes) {
    T value;
    std::memcpy(&value, bytes, sizeof(T));
    return value;
}

template <typename T>
void store(uint8_t* bytes, T value) {
    std::memcpy(bytes, &value, sizeof(T));
}

// Mixes `values` values of type T from `x` and `y` into `out` with the bounds of their format.
template <typename T>
void mixValues(uint8_t* out, const uint8_t* x, const uint8_t* y, size_t values, double minValue, double maxValue,
               double silentValue) {
    for (size_t i = 0; i < values; ++i) {
        const double mixed =
            QVVolumeEffect::mixValue1(static_cast<double>(load<T>(x + i * sizeof(T))),
                                      static_cast<double>(load<T>(y + i * sizeof(T))), minValue, maxValue, silentValue);
        store(out + i * sizeof(T), static_cast<T>(mixed));
    }
}

// Mixes `values` values of a packed format.
void mixPackedValues(uint8_t* out, const uint8_t* x, const uint8_t* y, size_t values, int32_t format) {
    switch (format) {
        case QVSampleFormatU8: mixValues<uint8_t>(out, x, y, values, 0.0, 255.0, 127.0); break;
        case QVSampleFormatS16: mixValues<int16_t>(out, x, y, values, -32768.0, 32767.0, 0.0); break;
        case QVSampleFormatS32: mixValues<int32_t>(out, x, y, values, -2147483648.0, 2147483647.0, 0.0); break;
        case QVSampleFormatFLT: mixValues<float>(out, x, y, values, -1.0, 1.0, 0.0); break;
        case QVSampleFormatDBL: mixValues<double>(out, x, y, values, -1.0, 1.0, 0.0); break;
    }
}

// Samples of `bytesPerSample` bytes that fit in `bytes` from `offset`, at most `wanted`.
int64_t samplesAvailable(size_t bytes, size_t offset, int64_t bytesPerSample, int64_t wanted) {
    if (bytesPerSample <= 0 || offset >= bytes || wanted <= 0) return 0;
    return std::min<int64_t>(wanted, static_cast<int64_t>((bytes - offset) / static_cast<uint64_t>(bytesPerSample)));
}

// Runs `apply(source, destination, factor)` on every value of `count` samples, one factor per
// sample position.
template <size_t Bytes, typename Apply>
void gainLoop(const QVVolumeEffect& effect, const uint8_t* source, uint8_t* destination, int64_t count,
              int64_t channels, int64_t location, Apply apply) {
    const size_t stride = Bytes * static_cast<size_t>(channels);
    for (int64_t i = 0; i < count; ++i) {
        const double factor = effect.gainFactorAtLocation(wrappingAdd(location, i));
        for (int64_t c = 0; c < channels; ++c) apply(source + c * Bytes, destination + c * Bytes, factor);
        source += stride;
        destination += stride;
    }
}

}  // namespace

std::shared_ptr<QVVolumeEffect> QVVolumeEffect::create() {
    return std::shared_ptr<QVVolumeEffect>(new QVVolumeEffect());
}

double QVVolumeEffect::defaultVolume() { return 0.88888889; }

double QVVolumeEffect::gainFactorFromVolume(double volume) { return std::pow(10.0, (volume * 54.0 + -48.0) / 20.0); }

double QVVolumeEffect::normalizeSample(double value, int32_t format) {
    double normalized = value;
    switch (format) {
        case QVSampleFormatS32: normalized = value / 2147483647.0; break;
        case QVSampleFormatS16: normalized = value / 32767.0; break;
        case QVSampleFormatU8: normalized = (value + -127.0) / 127.0; break;
    }
    return clampUpperFirst(normalized, -1.0, 1.0);
}

uint8_t QVVolumeEffect::gainU8Sample(uint8_t sample, double factor) {
    const int centered = static_cast<int>(sample) - 127;
    return static_cast<uint8_t>(clampUpperFirst(centered * factor + 127.0, 0.0, 255.0));
}

int16_t QVVolumeEffect::gainS16Sample(int16_t sample, double factor) {
    return static_cast<int16_t>(clampUpperFirst(sample * factor, -32768.0, 32767.0));
}

int32_t QVVolumeEffect::gainS32Sample(int32_t sample, double factor) {
    return static_cast<int32_t>(clampUpperFirst(sample * factor, -2147483648.0, 2147483647.0));
}

float QVVolumeEffect::gainFLTSample(float sample, double factor) {
    return static_cast<float>(gainDBLSample(static_cast<double>(sample), factor));
}

double QVVolumeEffect::gainDBLSample(double sample, double factor) {
    return clampUpperFirst(sample * factor, -1.0, 1.0);
}

double QVVolumeEffect::mixValue1(double value1, double value2, double minValue, double maxValue, double silentValue) {
    const double d1 = value1 - silentValue;
    const double d2 = value2 - silentValue;
    const double sum = d1 + d2;
    const double product = d1 * d2;
    double result;
    if (d1 > 0 && d2 > 0) {
        result = sum - product / (maxValue - silentValue);
    } else if (d1 < 0 && d2 < 0) {
        result = sum - product / (minValue - silentValue);
    } else {
        result = sum;
    }
    return clampUpperFirst(result + silentValue, minValue, maxValue);
}

std::vector<uint8_t> QVVolumeEffect::mixData(std::span<const uint8_t> data1, std::span<const uint8_t> data2,
                                             int32_t format, int64_t channel, int64_t count) {
    std::vector<uint8_t> mixed(data1.size());
    if (count <= 0 || channel <= 0) return mixed;
    if (!QVSampleDescription::isPackedSampleFormat(format)) {
        for (int64_t value = 0; value < count * channel; ++value) QMLog("Error format mix.");
        return mixed;
    }
    const int64_t bytesPerSample = QVAudioFrame2::bytesForSampleFormat(format) * channel;
    const int64_t samples = std::min(samplesAvailable(data1.size(), 0, bytesPerSample, count),
                                     samplesAvailable(data2.size(), 0, bytesPerSample, count));
    mixPackedValues(mixed.data(), data1.data(), data2.data(), static_cast<size_t>(samples * channel), format);
    return mixed;
}

std::shared_ptr<QVSampleBuffer> QVVolumeEffect::mixSampleBuffer(const std::shared_ptr<QVSampleBuffer>& a,
                                                                const std::shared_ptr<QVSampleBuffer>& b) {
    if (!a || !b || !a->sampleDescription().isEqualTo(b->sampleDescription())) {
        QMLog("Mix sample buffer format must be identify.");
        return nullptr;
    }
    const QVSampleDescription& description = a->sampleDescription();
    const int32_t format = description.sampleFormat();
    if (!QVSampleDescription::isPackedSampleFormat(format)) {
        QMLog("Mix format can not support %s", description.description().c_str());
        return nullptr;
    }
    const QVRange& rangeA = a->sampleRange();
    const QVRange& rangeB = b->sampleRange();
    if (rangeA.isEqualRange(rangeB)) {
        return QVSampleBuffer::createWithSampleDescription(
            description, rangeA, mixData(a->_data, b->_data, format, description.channels(), rangeA.length()));
    }
    if (!rangeA.intersectsRange(rangeB)) {
        QMLog("Mix sample buffer must be intersected.");
        return nullptr;
    }
    // Straight on the bytes: a with the intersection mixed in, then the part of b that follows
    // the intersection's length, counted from the intersection's end.
    const QVRange intersection = *rangeA.intersectionRange(rangeB);
    const int64_t bytesPerSample = description.bytesPerSample();
    const size_t offsetA = static_cast<size_t>(bytesPerSample * (intersection.location() - rangeA.location()));
    const size_t offsetB = static_cast<size_t>(bytesPerSample * (intersection.location() - rangeB.location()));

    std::optional<QVRange> rest;
    if (!rangeB.isEqualRange(intersection)) {
        rest = QVRange(intersection.end(), rangeB.length() - intersection.length()).intersectionRange(rangeB);
    }
    const size_t restOffset = rest ? static_cast<size_t>(bytesPerSample * (rest->location() - rangeB.location())) : 0;
    const int64_t restSamples =
        rest ? samplesAvailable(b->_data.size(), restOffset, bytesPerSample, rest->length()) : 0;
    const size_t restBytes = static_cast<size_t>(restSamples * bytesPerSample);

    std::vector<uint8_t> data(a->_data.size() + restBytes);
    std::memcpy(data.data(), a->_data.data(), a->_data.size());
    const int64_t mixed = std::min(samplesAvailable(a->_data.size(), offsetA, bytesPerSample, intersection.length()),
                                   samplesAvailable(b->_data.size(), offsetB, bytesPerSample, intersection.length()));
    if (mixed > 0) {
        mixPackedValues(data.data() + offsetA, a->_data.data() + offsetA, b->_data.data() + offsetB,
                        static_cast<size_t>(mixed * description.channels()), format);
    }
    if (restBytes) std::memcpy(data.data() + a->_data.size(), b->_data.data() + restOffset, restBytes);
    return QVSampleBuffer::createWithSampleDescription(
        description, QVRange(rangeA.location(), rangeA.length() + restSamples), std::move(data));
}

std::shared_ptr<QVSampleBuffer> QVVolumeEffect::mergeSampleBuffer(const std::shared_ptr<QVSampleBuffer>& a,
                                                                  const std::shared_ptr<QVSampleBuffer>& b) {
    if (!a || !b || !a->sampleDescription().isEqualTo(b->sampleDescription())) {
        QMLog("Can not merge diff sample format.");
        return nullptr;
    }
    const QVRange& rangeA = a->sampleRange();
    const QVRange& rangeB = b->sampleRange();
    if (rangeA.intersectsRange(rangeB)) {
        return rangeB.location() < rangeA.location() ? mixSampleBuffer(b, a) : mixSampleBuffer(a, b);
    }
    std::vector<uint8_t> scratch;
    if (rangeA.end() == rangeB.location()) return QVSampleBuffer::appendSampleData(b->packedSamples(scratch), a);
    if (rangeB.end() == rangeA.location()) return QVSampleBuffer::appendSampleData(a->packedSamples(scratch), b);

    const bool aFirst = rangeA.location() <= rangeB.end();
    const std::shared_ptr<QVSampleBuffer>& first = aFirst ? a : b;
    const std::shared_ptr<QVSampleBuffer>& second = aFirst ? b : a;
    const QVRange gap(first->sampleRange().end(), second->sampleRange().location() - first->sampleRange().end());
    if (gap.length() > a->sampleDescription().sampleRate() / 10) {
        QMLog("Can not merge sample buffer, because the gap is too big(over 0.1 sencods)");
        return nullptr;
    }
    const auto silence = QVSampleBuffer::silentSampleBufferWithDescription(first->sampleDescription(), gap);
    const auto bridged =
        QVSampleBuffer::appendSampleData(silence ? silence->packedSamples(scratch) : std::span<const uint8_t>(), first);
    std::vector<uint8_t> secondScratch;
    return QVSampleBuffer::appendSampleData(second->packedSamples(secondScratch), bridged);
}

double QVVolumeEffect::gainFactorAtLocation(int64_t location) const { return 1.0; }

std::shared_ptr<QVSampleBuffer> QVVolumeEffect::gainSampleBuffer(const std::shared_ptr<QVSampleBuffer>& buffer) const {
    if (!buffer) return nullptr;
    const QVSampleDescription& description = buffer->sampleDescription();
    if (!QVSampleDescription::isPackedSampleFormat(description.sampleFormat())) {
        QMLog("Warning: Can not support gain foramt: %s", description.description().c_str());
        return buffer;
    }
    std::vector<uint8_t> scratch;
    const std::span<const uint8_t> source = buffer->packedSamples(scratch);
    std::vector<uint8_t> destination(source.size());
    const int64_t bytesPerSample = description.bytesPerSample();
    const int64_t count = bytesPerSample > 0 ? static_cast<int64_t>(source.size()) / bytesPerSample : 0;
    gainSamples(source.data(), destination.data(), count, buffer->sampleRange().location(), description);
    return QVSampleBuffer::createWithSampleDescription(description, buffer->sampleRange(), std::move(destination));
}

void QVVolumeEffect::gainSamples(const uint8_t* source, uint8_t* destination, int64_t count, int64_t location,
                                 const QVSampleDescription& description) const {
    const int64_t channels = description.channels();
    switch (description.sampleFormat()) {
        case QVSampleFormatU8:
            gainLoop<1>(*this, source, destination, count, channels, location,
                        [](const uint8_t* in, uint8_t* out, double factor) { *out = gainU8Sample(*in, factor); });
            break;
        case QVSampleFormatS16:
            gainLoop<2>(*this, source, destination, count, channels, location,
                        [](const uint8_t* in, uint8_t* out, double factor) {
                            store(out, gainS16Sample(load<int16_t>(in), factor));
                        });
            break;
        case QVSampleFormatS32:
            // Gained through the 16-bit word at the value's address, stored sign-extended.
            gainLoop<4>(*this, source, destination, count, channels, location,
                        [](const uint8_t* in, uint8_t* out, double factor) {
                            store(out, static_cast<int32_t>(gainS16Sample(load<int16_t>(in), factor)));
                        });
            break;
        case QVSampleFormatFLT:
            gainLoop<4>(*this, source, destination, count, channels, location,
                        [](const uint8_t* in, uint8_t* out, double factor) {
                            store(out, gainFLTSample(load<float>(in), factor));
                        });
            break;
        case QVSampleFormatDBL:
            gainLoop<8>(*this, source, destination, count, channels, location,
                        [](const uint8_t* in, uint8_t* out, double factor) {
                            store(out, gainDBLSample(load<double>(in), factor));
                        });
            break;
    }
}

std::shared_ptr<QVVolumeGainEffect> QVVolumeGainEffect::createWithVolume(double volume) {
    return std::shared_ptr<QVVolumeGainEffect>(new QVVolumeGainEffect(volume));
}

QVVolumeGainEffect::QVVolumeGainEffect(double volume) : _volume(volume), _gainFactor(gainFactorFromVolume(volume)) {}

double QVVolumeGainEffect::gainFactorAtLocation(int64_t location) const { return _gainFactor; }

std::shared_ptr<QVSampleBuffer> QVVolumeGainEffect::gainSampleBuffer(
    const std::shared_ptr<QVSampleBuffer>& buffer) const {
    if (std::fabs(_volume - defaultVolume()) < QMCommon::expression()) return buffer;
    return QVVolumeEffect::gainSampleBuffer(buffer);
}

std::shared_ptr<QVVolumeFadeEffect> QVVolumeFadeEffect::createWithStartVolume(double startVolume, double endVolume,
                                                                              const QVRange& trackRange) {
    return std::shared_ptr<QVVolumeFadeEffect>(new QVVolumeFadeEffect(startVolume, endVolume, trackRange));
}

QVVolumeFadeEffect::QVVolumeFadeEffect(double startVolume, double endVolume, const QVRange& range)
    : _range(range), _startVolume(startVolume), _endVolume(endVolume) {}

double QVVolumeFadeEffect::gainFactorAtLocation(int64_t location) const {
    if (!_range.containLocation(location)) return 1.0;
    const double t = static_cast<double>(location - _range.location()) / static_cast<double>(_range.length());
    return gainFactorFromVolume((_endVolume - _startVolume) * t + _startVolume);
}

std::shared_ptr<QVSampleBuffer> QVVolumeFadeEffect::applySampleBuffer(
    const std::shared_ptr<QVSampleBuffer>& buffer) const {
    if (!buffer || !buffer->sampleRange().intersectsRange(_range)) return buffer;
    const QVRange intersection = *buffer->sampleRange().intersectionRange(_range);
    if (!buffer->hasPackedSamplesForRange()) {
        const auto part = buffer->sampleBufferWithSubRange(intersection);
        const auto gained = part ? gainSampleBuffer(part) : nullptr;
        std::vector<uint8_t> scratch;
        return QVSampleBuffer::replaceSampleData(gained ? gained->packedSamples(scratch) : std::span<const uint8_t>(),
                                                 intersection, buffer);
    }
    // The gain loop run straight from the buffer's bytes into a copy of them.
    const QVSampleDescription& description = buffer->sampleDescription();
    const size_t offset = static_cast<size_t>(description.bytesPerSample() *
                                              (intersection.location() - buffer->sampleRange().location()));
    std::vector<uint8_t> data = buffer->_data;
    gainSamples(buffer->_data.data() + offset, data.data() + offset, intersection.length(), intersection.location(),
                description);
    return QVSampleBuffer::createWithSampleDescription(description, buffer->sampleRange(), std::move(data));
}

}  // namespace qm
