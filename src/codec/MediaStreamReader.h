#pragma once

#include <cstdint>
#include <memory>
#include <string>

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct AVStream;

namespace qm {

struct AVFrameDeleter {
    void operator()(AVFrame* frame) const;
};
using AVFramePtr = std::unique_ptr<AVFrame, AVFrameDeleter>;

// One opened media file that decodes one of its streams: its own demuxer and decoder, so two
// readers on one file decode two streams at once from two threads.
class MediaStreamReader {
public:
    // Opens and probes the local file at `path` (no other protocol is followed); nothing, with a
    // reason in `error`, when FFmpeg cannot read it.
    static std::unique_ptr<MediaStreamReader> open(const std::string& path, std::string* error);
    ~MediaStreamReader();
    MediaStreamReader(const MediaStreamReader&) = delete;
    MediaStreamReader& operator=(const MediaStreamReader&) = delete;

    AVFormatContext* format() const { return _format; }
    // Index of the best audio stream, or of the best video stream that is not a cover picture;
    // -1 when there is none.
    int bestAudioStream() const;
    int bestVideoStream() const;
    // Index of an attached (cover) picture, or -1.
    int attachedPictureStream() const;

    // Opens the decoder of `index` and makes the demuxer skip every other stream. `threads` 0
    // lets the decoder choose. False, with a reason, when the stream cannot be decoded.
    bool selectStream(int index, int threads, std::string* error);
    AVStream* stream() const;
    const AVCodecContext* decoder() const { return _decoder; }

    // The next decoded frame of the chosen stream in presentation order; nothing at the end of
    // the file. Damaged packets are skipped, and a read or decode error still gives every frame
    // the decoder holds.
    AVFramePtr decodeNext();
    // Moves to the last key frame at or before `streamTime` (in the stream's time base).
    bool seek(int64_t streamTime);

    // Decodes a single packet with a decoder of its own (cover pictures).
    static AVFramePtr decodeSinglePacket(const AVStream* stream, const AVPacket* packet);

private:
    MediaStreamReader() = default;

    AVFormatContext* _format = nullptr;
    AVCodecContext* _decoder = nullptr;
    AVPacket* _packet = nullptr;
    int _streamIndex = -1;
    bool _draining = false;
    // Errors the decoder gave since the flush; a decoder that gives nothing else ends the stream.
    int _drainErrors = 0;
    bool _finished = false;
};

}  // namespace qm
