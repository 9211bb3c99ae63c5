#include "codec/MovieWriter.h"

#include <atomic>

#include "codec/MovieMuxer.h"
#include "codec/StreamEncoder.h"
#include "platform/Dispatch.h"

extern "C" {
#include <libavutil/mathematics.h>
}

namespace qm {

// A serial queue that counts the tasks waiting on it (the one running included).
class EncodeQueue : public std::enable_shared_from_this<EncodeQueue> {
public:
    explicit EncodeQueue(int limit) : _queue(DispatchQueue::createSerial("com.quorvia.encode")), _limit(limit) {}

    bool isReady() const { return _waiting.load() < _limit; }

    void async(std::function<void()> task) {
        _waiting.fetch_add(1);
        _queue->async([self = shared_from_this(), task = std::move(task)] {
            task();
            self->_waiting.fetch_sub(1);
        });
    }

    // Runs `task` once everything queued before it has run.
    void sync(const std::function<void()>& task) { _queue->sync(task); }

private:
    std::shared_ptr<DispatchQueue> _queue;
    const int _limit;
    std::atomic<int> _waiting = 0;
};

MovieWriterInput::MovieWriterInput(std::shared_ptr<MovieMuxer> muxer, int backlogLimit)
    : _muxer(std::move(muxer)), _queue(std::make_shared<EncodeQueue>(std::max(backlogLimit, 1))) {}

MovieWriterInput::~MovieWriterInput() = default;

bool MovieWriterInput::isReadyForMoreMediaData() const { return _muxer->acceptsMedia() && _queue->isReady(); }

bool MovieWriterInput::finishEncoding() {
    bool flushed = false;
    _queue->sync([&] { flushed = flushEncoder(); });
    return flushed;
}

bool MovieWriterInput::enqueue(std::function<void()> encode) {
    if (!_muxer->acceptsMedia()) return false;
    _queue->async(std::move(encode));
    return true;
}

MovieVideoInput::MovieVideoInput(std::shared_ptr<MovieMuxer> muxer, std::shared_ptr<VideoEncoder> encoder,
                                 const MovieVideoSettings& settings, int backlogLimit)
    : MovieWriterInput(std::move(muxer), backlogLimit), _encoder(std::move(encoder)), _settings(settings) {}

MovieVideoInput::~MovieVideoInput() = default;

int MovieVideoInput::pixelFormat() const { return _encoder->pixelFormat(); }

bool MovieVideoInput::appendPixelBuffer(std::shared_ptr<PixelBuffer> buffer, CMTime presentTime) {
    if (!buffer || !presentTime.isValid() || buffer->width() != _settings.width ||
        buffer->height() != _settings.height || buffer->pixelFormat() != pixelFormat()) {
        return false;
    }
    const int64_t pts = av_rescale(presentTime.value, 90000, presentTime.timescale);
    if (_lastPresentTime && pts <= *_lastPresentTime) return false;
    const bool queued = enqueue([encoder = _encoder, muxer = _muxer, buffer = std::move(buffer), pts] {
        if (!muxer->hasFailed()) encoder->encodePixelBuffer(*buffer, pts);
    });
    if (queued) _lastPresentTime = pts;
    return queued;
}

bool MovieVideoInput::flushEncoder() { return _encoder->flush(); }

MovieAudioInput::MovieAudioInput(std::shared_ptr<MovieMuxer> muxer, std::shared_ptr<AudioEncoder> encoder,
                                 const MovieAudioSettings& settings, int backlogLimit)
    : MovieWriterInput(std::move(muxer), backlogLimit), _encoder(std::move(encoder)), _settings(settings) {}

MovieAudioInput::~MovieAudioInput() = default;

bool MovieAudioInput::appendSampleBuffer(std::shared_ptr<const MediaSampleBuffer> buffer) {
    if (!buffer || !buffer->dataIsReady()) return false;
    const AudioStreamBasicDescription& description = buffer->format().streamDescription();
    if (description.mSampleRate != _settings.sampleRate ||
        description.mChannelsPerFrame != static_cast<uint32_t>(_settings.channelCount)) {
        return false;
    }
    return enqueue([encoder = _encoder, muxer = _muxer, buffer = std::move(buffer)] {
        if (!muxer->hasFailed()) encoder->encodeSampleBuffer(*buffer);
    });
}

bool MovieAudioInput::flushEncoder() { return _encoder->flush(); }

std::shared_ptr<MovieWriter> MovieWriter::create(const std::string& path, MovieContainer container,
                                                 std::string* error) {
    auto muxer = MovieMuxer::open(path, container, error);
    if (!muxer) return nullptr;
    return std::shared_ptr<MovieWriter>(new MovieWriter(std::move(muxer)));
}

MovieWriter::~MovieWriter() = default;

bool MovieWriter::canAddVideo(MovieContainer container) {
    return container == MovieContainer::MPEG4 || container == MovieContainer::QuickTime;
}

bool MovieWriter::canAddAudio(MovieContainer container, MovieAudioCodec codec) {
    switch (container) {
        case MovieContainer::MPEG4:
        case MovieContainer::QuickTime:
        case MovieContainer::M4A:
            return codec == MovieAudioCodec::AAC;
        case MovieContainer::MP3:
            return codec == MovieAudioCodec::MP3;
        case MovieContainer::WAVE:
            return codec == MovieAudioCodec::IMAADPCM || codec == MovieAudioCodec::LinearPCM;
    }
    return false;
}

std::shared_ptr<MovieVideoInput> MovieWriter::addVideoInput(const MovieVideoSettings& settings, int backlogLimit) {
    if (!canAddVideo(_muxer->container())) {
        _muxer->fail("This file type stores no video");
        return nullptr;
    }
    std::shared_ptr<VideoEncoder> encoder = VideoEncoder::create(_muxer, settings);
    if (!encoder) return nullptr;
    std::shared_ptr<MovieVideoInput> input(new MovieVideoInput(_muxer, std::move(encoder), settings, backlogLimit));
    _inputs.push_back(input);
    return input;
}

std::shared_ptr<MovieAudioInput> MovieWriter::addAudioInput(const MovieAudioSettings& settings, int backlogLimit) {
    if (!canAddAudio(_muxer->container(), settings.codec)) {
        _muxer->fail("This file type does not store that audio format");
        return nullptr;
    }
    std::shared_ptr<AudioEncoder> encoder = AudioEncoder::create(_muxer, settings);
    if (!encoder) return nullptr;
    std::shared_ptr<MovieAudioInput> input(new MovieAudioInput(_muxer, std::move(encoder), settings, backlogLimit));
    _inputs.push_back(input);
    return input;
}

bool MovieWriter::startWriting() { return _muxer->writeHeader(); }

bool MovieWriter::finishWriting() {
    _muxer->beginFinishing();
    bool finished = true;
    for (const auto& input : _inputs) finished = input->finishEncoding() && finished;
    return _muxer->writeTrailer() && finished;
}

bool MovieWriter::hasFailed() const { return _muxer->hasFailed(); }

std::string MovieWriter::errorDescription() const { return _muxer->errorDescription(); }

}  // namespace qm
