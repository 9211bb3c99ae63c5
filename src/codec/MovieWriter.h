#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "codec/MediaSampleBuffer.h"
#include "codec/PixelBuffer.h"

namespace qm {

class AudioEncoder;
class EncodeQueue;
class MovieMuxer;
class VideoEncoder;

// Containers a MovieWriter writes.
enum class MovieContainer {
    MPEG4,      // .mp4
    QuickTime,  // .mov
    M4A,        // MPEG-4 audio (.m4a)
    MP3,        // bare MPEG audio layer 3
    WAVE,       // RIFF WAVE
};

enum class MovieAudioCodec {
    AAC,        // FFmpeg's AAC (low complexity)
    MP3,        // libmp3lame
    IMAADPCM,   // IMA ADPCM as WAVE stores it
    LinearPCM,  // signed 16-bit little-endian
};

struct MovieVideoSettings {
    int width = 0;
    int height = 0;
    double frameRate = 30.0;
    int64_t averageBitRate = 0;
    int maxKeyFrameInterval = 30;
};

struct MovieAudioSettings {
    MovieAudioCodec codec = MovieAudioCodec::AAC;
    int sampleRate = 44100;
    int channelCount = 2;
};

// One stream of a MovieWriter (the AVAssetWriterInput of this engine). An append hands the media
// to the input's own serial encode queue and returns; the input is ready for more media while
// fewer than its backlog limit of appends wait there. An append fails once the writer has failed
// or begun to finish, and when the media does not fit the stream.
class MovieWriterInput {
public:
    virtual ~MovieWriterInput();
    MovieWriterInput(const MovieWriterInput&) = delete;
    MovieWriterInput& operator=(const MovieWriterInput&) = delete;

    bool isReadyForMoreMediaData() const;

protected:
    MovieWriterInput(std::shared_ptr<MovieMuxer> muxer, int backlogLimit);

    // Queues `encode` unless the writer no longer takes media; false then.
    bool enqueue(std::function<void()> encode);

    const std::shared_ptr<MovieMuxer> _muxer;

private:
    friend class MovieWriter;
    // Waits for the queued appends, then flushes the encoder into the file.
    bool finishEncoding();
    virtual bool flushEncoder() = 0;

    const std::shared_ptr<EncodeQueue> _queue;
};

// H.264 (libx264, preset veryfast) from YUV 4:2:0 pixel buffers.
class MovieVideoInput : public MovieWriterInput {
public:
    ~MovieVideoInput() override;

    // The pixel format (FFmpeg's AVPixelFormat) that appended buffers must have.
    int pixelFormat() const;

    // Encodes the picture at `presentTime` (any timescale; kept at 1/90000 s). The buffer is held
    // until it has been encoded. False for a buffer of another size or format, or a time that is
    // not after the last one.
    bool appendPixelBuffer(std::shared_ptr<PixelBuffer> buffer, CMTime presentTime);

private:
    friend class MovieWriter;
    MovieVideoInput(std::shared_ptr<MovieMuxer> muxer, std::shared_ptr<VideoEncoder> encoder,
                    const MovieVideoSettings& settings, int backlogLimit);
    bool flushEncoder() override;

    std::shared_ptr<VideoEncoder> _encoder;
    MovieVideoSettings _settings;
    std::optional<int64_t> _lastPresentTime;
};

// Audio from interleaved PCM sample buffers (8/16/32-bit integer or float), converted to what the
// encoder takes, cut into the encoder's frames and stamped by the running count of samples.
class MovieAudioInput : public MovieWriterInput {
public:
    ~MovieAudioInput() override;

    // False for a block of another sample rate or channel count than the stream.
    bool appendSampleBuffer(std::shared_ptr<const MediaSampleBuffer> buffer);

private:
    friend class MovieWriter;
    MovieAudioInput(std::shared_ptr<MovieMuxer> muxer, std::shared_ptr<AudioEncoder> encoder,
                    const MovieAudioSettings& settings, int backlogLimit);
    bool flushEncoder() override;

    std::shared_ptr<AudioEncoder> _encoder;
    MovieAudioSettings _settings;
};

// Writes a movie or sound file with FFmpeg: open the file, add the inputs, start, append from any
// thread, finish. FFmpeg's warnings and errors go to QMLog.
class MovieWriter {
public:
    // Opens `path` for writing, replacing its content. Nothing when the file cannot be opened;
    // `error` then says why.
    static std::shared_ptr<MovieWriter> create(const std::string& path, MovieContainer container, std::string* error);

    ~MovieWriter();
    MovieWriter(const MovieWriter&) = delete;
    MovieWriter& operator=(const MovieWriter&) = delete;

    // Whether the container stores this stream; the add functions refuse the others.
    static bool canAddVideo(MovieContainer container);
    static bool canAddAudio(MovieContainer container, MovieAudioCodec codec);

    // Streams are added before startWriting; nothing (and errorDescription set) when the encoder
    // refuses the settings. `backlogLimit` is the input's bound on waiting appends.
    std::shared_ptr<MovieVideoInput> addVideoInput(const MovieVideoSettings& settings, int backlogLimit);
    std::shared_ptr<MovieAudioInput> addAudioInput(const MovieAudioSettings& settings, int backlogLimit);

    // Writes the header; false on failure.
    bool startWriting();
    // Lets every input encode what waits, flushes the encoders, writes the trailer and closes the
    // file. Blocks until done; false if anything failed along the way.
    bool finishWriting();

    // True once writing failed (a full disk, an encoder error); appends fail from then on.
    bool hasFailed() const;
    // What went wrong last; empty when nothing did.
    std::string errorDescription() const;

private:
    explicit MovieWriter(std::shared_ptr<MovieMuxer> muxer) : _muxer(std::move(muxer)) {}

    std::shared_ptr<MovieMuxer> _muxer;
    std::vector<std::shared_ptr<MovieWriterInput>> _inputs;
};

}  // namespace qm
