#include "codec/MovieMuxer.h"


#include "codec/MediaLibraryLog.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/log.h>
}

namespace qm {

namespace {

const char* muxerName(MovieContainer container) {
    switch (container) {
        case MovieContainer::MPEG4:
            return "mp4";
        case MovieContainer::QuickTime:
            return "mov";
        case MovieContainer::M4A:
            return "ipod";
        case MovieContainer::MP3:
            return "mp3";
        case MovieContainer::WAVE:
            return "wav";
    }
    return nullptr;
}

}  // namespace

std::string describeFFmpegError(int error) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    return text;
}

std::shared_ptr<MovieMuxer> MovieMuxer::open(const std::string& path, MovieContainer container, std::string* error) {
    routeMediaLibraryLogToQMLog();

    AVFormatContext* context = nullptr;
    int status = avformat_alloc_output_context2(&context, nullptr, muxerName(container), path.c_str());
    if (status >= 0) {
        status = avio_open(&context->pb, path.c_str(), AVIO_FLAG_WRITE);
        if (status >= 0) return std::shared_ptr<MovieMuxer>(new MovieMuxer(context, container));
        avformat_free_context(context);
    }
    if (error) *error = "Can not write " + path + ": " + describeFFmpegError(status);
    return nullptr;
}

MovieMuxer::~MovieMuxer() {
    if (!_closed) avio_closep(&_context->pb);
    avformat_free_context(_context);
}

bool MovieMuxer::wantsGlobalHeader() const { return (_context->oformat->flags & AVFMT_GLOBALHEADER) != 0; }

int MovieMuxer::addStream(const AVCodecContext* encoder) {
    std::lock_guard lock(_mutex);
    AVStream* stream = avformat_new_stream(_context, nullptr);
    if (!stream || avcodec_parameters_from_context(stream->codecpar, encoder) < 0) return -1;
    stream->time_base = encoder->time_base;
    return stream->index;
}

bool MovieMuxer::writeHeader() {
    std::lock_guard lock(_mutex);
    const int status = avformat_write_header(_context, nullptr);
    if (status < 0) {
        failLocked("Can not write the file header: " + describeFFmpegError(status));
        return false;
    }
    _headerWritten = true;
    return true;
}

bool MovieMuxer::writeEncodedPackets(AVCodecContext* encoder, int streamIndex, int64_t fallbackDuration) {
    AVPacket* packet = av_packet_alloc();
    if (!packet) {
        fail("Out of memory");
        return false;
    }
    bool written = true;
    for (;;) {
        const int status = avcodec_receive_packet(encoder, packet);
        if (status == AVERROR(EAGAIN) || status == AVERROR_EOF) break;
        if (status < 0) {
            fail(std::string("Encoder failed: ") + describeFFmpegError(status));
            written = false;
            break;
        }
        if (packet->duration <= 0) packet->duration = fallbackDuration;
        if (!writePacket(packet, encoder, streamIndex)) {
            written = false;
            break;
        }
    }
    av_packet_free(&packet);
    return written;
}

bool MovieMuxer::writePacket(AVPacket* packet, const AVCodecContext* encoder, int streamIndex) {
    std::lock_guard lock(_mutex);
    if (_failed || _closed) {
        av_packet_unref(packet);
        return false;
    }
    av_packet_rescale_ts(packet, encoder->time_base, _context->streams[streamIndex]->time_base);
    packet->stream_index = streamIndex;
    const int status = av_interleaved_write_frame(_context, packet);
    if (status < 0 || _context->pb->error < 0) {
        failLocked("Can not write to the file: " + describeFFmpegError(status < 0 ? status : _context->pb->error));
        return false;
    }
    return true;
}

void MovieMuxer::beginFinishing() {
    std::lock_guard lock(_mutex);
    _finishing = true;
}

bool MovieMuxer::writeTrailer() {
    std::lock_guard lock(_mutex);
    if (_closed) return false;
    int status = 0;
    if (_headerWritten && !_failed) status = av_write_trailer(_context);
    if (status >= 0 && _context->pb->error < 0) status = _context->pb->error;
    const int closeStatus = avio_closep(&_context->pb);
    _closed = true;
    if (status >= 0) status = closeStatus;
    if (status < 0) failLocked("Can not finish the file: " + describeFFmpegError(status));
    return !_failed;
}

bool MovieMuxer::acceptsMedia() const {
    std::lock_guard lock(_mutex);
    return _headerWritten && !_finishing && !_failed;
}

void MovieMuxer::fail(const std::string& description) {
    std::lock_guard lock(_mutex);
    failLocked(description);
}

void MovieMuxer::failLocked(const std::string& description) {
    if (_failed) return;
    _failed = true;
    _error = description;
}

bool MovieMuxer::hasFailed() const {
    std::lock_guard lock(_mutex);
    return _failed;
}

std::string MovieMuxer::errorDescription() const {
    std::lock_guard lock(_mutex);
    return _error;
}

}  // namespace qm
