#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "codec/MediaSampleBuffer.h"
#include "codec/MovieWriter.h"
#include "codec/PixelBuffer.h"

struct AVAudioFifo;
struct AVCodecContext;
struct AVFrame;
struct SwrContext;

namespace qm {

class MovieMuxer;

// An FFmpeg encoder feeding one stream of a MovieMuxer. Used from one thread at a time (the
// input's encode queue).
class StreamEncoder {
public:
    virtual ~StreamEncoder();
    StreamEncoder(const StreamEncoder&) = delete;
    StreamEncoder& operator=(const StreamEncoder&) = delete;

    int streamIndex() const { return _streamIndex; }
    // Encodes what is still held back and drains the encoder into the file.
    virtual bool flush();

protected:
    StreamEncoder(std::shared_ptr<MovieMuxer> muxer, AVCodecContext* context)
        : _muxer(std::move(muxer)), _context(context) {}
    // Opens the encoder with `options` (an AVDictionary) and adds its stream; false, with the
    // muxer's error set, on failure.
    bool openAndAddStream(const char* codecName, void* options);
    // Sends a frame (nothing to drain) and writes the packets that come out.
    bool encode(const AVFrame* frame);

    std::shared_ptr<MovieMuxer> _muxer;
    AVCodecContext* _context;
    int _streamIndex = -1;
    // Given to packets that come out without a duration (the last picture would have none).
    int64_t _packetDuration = 0;
};

// H.264 by libx264 (preset veryfast) from YUV 4:2:0 buffers, in a 1/90000 time base.
class VideoEncoder : public StreamEncoder {
public:
    static std::unique_ptr<VideoEncoder> create(std::shared_ptr<MovieMuxer> muxer, const MovieVideoSettings& settings);
    int pixelFormat() const;
    // Encodes the picture at `pts90k` (1/90000 s).
    bool encodePixelBuffer(const PixelBuffer& buffer, int64_t pts90k);

private:
    using StreamEncoder::StreamEncoder;
};

// Audio from interleaved PCM: converted by libswresample to the encoder's format, gathered into
// whole encoder frames and stamped by the running count of samples.
class AudioEncoder : public StreamEncoder {
public:
    static std::unique_ptr<AudioEncoder> create(std::shared_ptr<MovieMuxer> muxer, const MovieAudioSettings& settings);
    ~AudioEncoder() override;

    bool encodeSampleBuffer(const MediaSampleBuffer& buffer);
    bool flush() override;

private:
    using StreamEncoder::StreamEncoder;
    bool prepareConverter(const AudioStreamBasicDescription& description);
    bool convertIntoFifo(const uint8_t* samples, int sampleCount);
    // Encodes whole frames from the FIFO; with `final`, also the rest (padded with silence where
    // the encoder takes only whole frames).
    bool encodeFromFifo(bool final);

    SwrContext* _converter = nullptr;
    AudioStreamBasicDescription _converterInput;
    AVAudioFifo* _fifo = nullptr;
    int _frameSize = 0;
    int64_t _samplesEncoded = 0;
};

}  // namespace qm
