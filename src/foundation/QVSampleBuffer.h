#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "foundation/QVRange.h"
#include "foundation/QVSampleDescription.h"

namespace qm {

class QVAudioFrame2;
class QVVolumeEffect;

// Interleaved PCM bytes, their format, and the range of sample positions they cover (a sample
// is one position across all channels). Immutable by convention: the class operations return
// new buffers, or the given one itself where said. Only QVMutableSampleBuffer changes in place.
class QVSampleBuffer {
public:
    virtual ~QVSampleBuffer() = default;
    QVSampleBuffer(const QVSampleBuffer&) = delete;
    QVSampleBuffer& operator=(const QVSampleBuffer&) = delete;

    // A copy of `data`; nothing, with the log line "Error input sample buffer data.", unless
    // it holds exactly range.length * bytesPerSample bytes.
    static std::shared_ptr<QVSampleBuffer> createWithSampleDescription(const QVSampleDescription& description,
                                                                       const QVRange& range, std::vector<uint8_t> data);
    // The frame's samples, interleaved, in the packed twin of its format. Nothing, with the
    // log line "Error input audio frame.", when range.length is not the frame's sample count
    // or the frame has no rate, channels or layout.
    static std::shared_ptr<QVSampleBuffer> createWithAudioFrame(const std::shared_ptr<QVAudioFrame2>& frame,
                                                                const QVRange& range);

    // Silence over `range`: 0x7F bytes for U8, zero bytes for every other format.
    static std::shared_ptr<QVSampleBuffer> silentSampleBufferWithDescription(const QVSampleDescription& description,
                                                                             const QVRange& range);
    // `buffer` followed by `bytes`, its range longer by whole samples. Empty `bytes` gives
    // `buffer` itself; a byte count that is no multiple of bytesPerSample gives nothing.
    static std::shared_ptr<QVSampleBuffer> appendSampleData(std::span<const uint8_t> bytes,
                                                            const std::shared_ptr<QVSampleBuffer>& buffer);
    // A copy of `buffer` with the samples of `range` taken from `bytes`. Nothing, with the log
    // line "Out of range.", unless the buffer's range contains `range`. Copies no more than
    // `bytes` holds.
    static std::shared_ptr<QVSampleBuffer> replaceSampleData(std::span<const uint8_t> bytes, const QVRange& range,
                                                             const std::shared_ptr<QVSampleBuffer>& buffer);

    const QVSampleDescription& sampleDescription() const { return _sampleDescription; }
    const QVRange& sampleRange() const { return _range; }
    // Replaces the range without looking at the bytes.
    void setSampleRange(const QVRange& range) { _range = range; }

    // A copy of the bytes.
    std::vector<uint8_t> data() const { return _data; }
    // The live bytes. Whoever changes their length keeps them in step with the range.
    std::vector<uint8_t>& mutableData() { return _data; }

    // The samples of the intersection of `range` with this buffer's range, as a new buffer;
    // nothing when they do not intersect.
    std::shared_ptr<QVSampleBuffer> sampleBufferWithSubRange(const QVRange& range) const;

    // A new frame over the samples (a copy: it may outlive the buffer). Its sample count is
    // the range length, limited to the whole samples the bytes hold.
    std::shared_ptr<QVAudioFrame2> frame() const;
    std::shared_ptr<QVAudioFrame2> convertToAudioFrame() const;

    // "Range(L, N)\nSample count: C\n".
    std::string description() const;

protected:
    QVSampleBuffer(const QVSampleDescription& description, const QVRange& range, std::vector<uint8_t> data);

    // Logs "Error input sample buffer data." and gives false unless `bytes` matches the range.
    static bool hasDataForRange(const QVSampleDescription& description, const QVRange& range, size_t bytes);
    // The description of a frame's packed samples over `range`; nothing, with the log line
    // "Error input audio frame.", when the frame does not fit.
    static std::optional<QVSampleDescription> descriptionOfAudioFrame(const std::shared_ptr<QVAudioFrame2>& frame,
                                                                      const QVRange& range);

    QVSampleDescription _sampleDescription;
    std::vector<uint8_t> _data;
    QVRange _range;

private:
    friend class QVVolumeEffect;
    friend class QVVolumeFadeEffect;

    // The bytes frame()->dataOfPackedSamples() gives. For a packed format these are the
    // stored bytes themselves and no frame is built; otherwise they land in `scratch`.
    std::span<const uint8_t> packedSamples(std::vector<uint8_t>& scratch) const;
    // Whether the bytes hold exactly the samples of the range, in a packed format.
    bool hasPackedSamplesForRange() const;
    // Sample count a frame of this buffer carries.
    int32_t frameSampleCount() const;
};

// A sample buffer that changes in place. It belongs to the one queue that builds it.
class QVMutableSampleBuffer : public QVSampleBuffer {
public:
    static std::shared_ptr<QVMutableSampleBuffer> createWithSampleDescription(const QVSampleDescription& description,
                                                                              const QVRange& range,
                                                                              std::vector<uint8_t> data);
    static std::shared_ptr<QVMutableSampleBuffer> createWithAudioFrame(const std::shared_ptr<QVAudioFrame2>& frame,
                                                                       const QVRange& range);
    // Same description and range, a private copy of the bytes; nothing for nothing.
    static std::shared_ptr<QVMutableSampleBuffer> createWithSampleBuffer(const std::shared_ptr<QVSampleBuffer>& buffer);

    // Appends the bytes; the range grows by the whole samples among them. Extra bytes are
    // kept, so callers append whole samples.
    void appendData(std::span<const uint8_t> bytes);
    // Drops `count` samples from the front. At least the range length leaves no bytes and
    // the empty range (0, 0); 0 or less does nothing.
    void cutSamples(int64_t count);
    // Drops `count` samples from the end, with the same two limits as cutSamples.
    void truncSamples(int64_t count);

private:
    using QVSampleBuffer::QVSampleBuffer;
};

}  // namespace qm
