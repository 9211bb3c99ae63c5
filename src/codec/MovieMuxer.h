#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "codec/MovieWriter.h"

struct AVCodecContext;
struct AVFormatContext;
struct AVPacket;

namespace qm {

// The output file of a MovieWriter: FFmpeg's muxer, shared by the encoders of every input, which
// hand it packets from their own queues. Keeps the first failure; after it nothing more is written.
class MovieMuxer {
public:
    static std::shared_ptr<MovieMuxer> open(const std::string& path, MovieContainer container, std::string* error);
    ~MovieMuxer();
    MovieMuxer(const MovieMuxer&) = delete;
    MovieMuxer& operator=(const MovieMuxer&) = delete;

    MovieContainer container() const { return _container; }
    // True when the container wants codec headers out of band (AV_CODEC_FLAG_GLOBAL_HEADER).
    bool wantsGlobalHeader() const;

    // A stream for an opened encoder, before the header; its index, or -1.
    int addStream(const AVCodecContext* encoder);
    bool writeHeader();
    // Takes every packet the encoder has ready and writes it, giving packets without a duration
    // `fallbackDuration` (encoder time base); false once writing has failed.
    bool writeEncodedPackets(AVCodecContext* encoder, int streamIndex, int64_t fallbackDuration);
    // Ends appending: appends fail from now on.
    void beginFinishing();
    bool writeTrailer();

    // Between the header and the start of finishing, without a failure.
    bool acceptsMedia() const;
    void fail(const std::string& description);
    bool hasFailed() const;
    std::string errorDescription() const;

private:
    MovieMuxer(AVFormatContext* context, MovieContainer container) : _context(context), _container(container) {}
    bool writePacket(AVPacket* packet, const AVCodecContext* encoder, int streamIndex);
    void failLocked(const std::string& description);

    AVFormatContext* _context;
    const MovieContainer _container;
    mutable std::mutex _mutex;
    bool _headerWritten = false;
    bool _finishing = false;
    bool _closed = false;
    bool _failed = false;
    std::string _error;
};

// FFmpeg's message for an error code.
std::string describeFFmpegError(int error);

}  // namespace qm
