#include "recording/SCMovieWritter.h"

#include <unistd.h>

#include <chrono>
#include <utility>

#include "codec/QVAudioFrame2.h"
#include "foundation/QMCommon.h"
#include "foundation/QVSampleDescription.h"
#include "image/RenderContext.h"
#include "platform/Log.h"
#include "store/SCRecordingJournal.h"

namespace qm {

namespace {

// Status code of a sample buffer that cannot be made for an image buffer.
constexpr int kSampleBufferInvalidMediaFormat = -12743;

int compareTimes(CMTime a, CMTime b) {
    const __int128 left = static_cast<__int128>(a.value) * b.timescale;
    const __int128 right = static_cast<__int128>(b.value) * a.timescale;
    return left < right ? -1 : (left > right ? 1 : 0);
}

// a - b in the finer of the two timescales.
CMTime subtractTimes(CMTime a, CMTime b) {
    if (a.timescale == b.timescale) return CMTime::make(a.value - b.value, a.timescale);
    const int32_t timescale = a.timescale > b.timescale ? a.timescale : b.timescale;
    const auto rescale = [timescale](CMTime t) {
        return static_cast<int64_t>(static_cast<__int128>(t.value) * timescale / t.timescale);
    };
    return CMTime::make(rescale(a) - rescale(b), timescale);
}

int64_t timestampOf(CMTime time) { return QMCommon::convertTimestampFromCMTime(time.value, time.timescale); }

}  // namespace

struct SCMovieWritter::PendingSample {
    const char* mediaType;
    std::shared_ptr<VideoSampleBuffer> video;
    std::shared_ptr<MediaSampleBuffer> audio;

    CMTime presentationTime() const { return video ? video->presentationTime() : audio->presentationTime(); }
};

std::shared_ptr<SCMovieWritter> SCMovieWritter::createWithDelegate(std::weak_ptr<SCMovieWritterDelegate> delegate,
                                                                   std::shared_ptr<DispatchQueue> callbackQueue,
                                                                   CMTime frameDuration) {
    return std::shared_ptr<SCMovieWritter>(
        new SCMovieWritter(std::move(delegate), std::move(callbackQueue), frameDuration));
}

SCMovieWritter::SCMovieWritter(std::weak_ptr<SCMovieWritterDelegate> delegate,
                               std::shared_ptr<DispatchQueue> callbackQueue, CMTime frameDuration)
    : _callbackQueue(std::move(callbackQueue)), _delegate(std::move(delegate)), _frameDuration(frameDuration) {}

SCMovieWritter::~SCMovieWritter() {
    if (_journalTickerStop) _journalTickerStop->signal();
}

SCMovieWritter::Status SCMovieWritter::status() const {
    std::lock_guard lock(_mutex);
    return _status;
}

AffineTransform SCMovieWritter::videoTrackTransform() const {
    std::lock_guard lock(_mutex);
    return _videoTrackTransform;
}

DispatchQueue& SCMovieWritter::writingQueue() {
    dispatchOnce(_writingQueueOnce, [this] { _writingQueue = DispatchQueue::createSerial(); });
    return *_writingQueue;
}

const QVJPEGEncoderHW& SCMovieWritter::jpegEncoder() {
    if (!_jpegEncoder) _jpegEncoder = QVJPEGEncoderHW::create();
    return *_jpegEncoder;
}

// MARK: - Tracks and lifecycle

void SCMovieWritter::addVideoTrackWithSourceFormatDescription(
    std::shared_ptr<const VideoFormatDescription> formatDescription, const AffineTransform& transform,
    const SCMovieWritterSettings& settings) {
    std::lock_guard lock(_mutex);
    if (_status != StatusIdle) {
        QMLog("Can not add track while not idle");
        return;
    }
    if (_videoFormatDescription) {
        QMLog("Can not add more than one video track");
        return;
    }
    _videoTrackTransform = transform;
    _videoFormatDescription = std::move(formatDescription);
    _videoSettings = settings;
}

void SCMovieWritter::addAudioTrackWithSourceFormatDescription(
    std::shared_ptr<const AudioFormatDescription> formatDescription, const SCMovieWritterSettings& settings) {
    std::lock_guard lock(_mutex);
    if (_status != StatusIdle) {
        QMLog("Can not add track while not idle");
        return;
    }
    if (_audioFormatDescription) {
        QMLog("Can not add more than one audio track.");
        return;
    }
    _audioFormatDescription = std::move(formatDescription);
    _audioSettings = settings;
}

void SCMovieWritter::prepareToWrite() {
    {
        std::lock_guard lock(_mutex);
        if (_status != StatusIdle) {
            QMLog("Already prepared, can not prepare again.");
            return;
        }
        transitionToStatus(StatusPreparing, nullptr);
    }
    writingQueue().async([self = shared_from_this()] { self->setupStorages(); });
}

void SCMovieWritter::setupStorages() {
    std::shared_ptr<const VideoFormatDescription> video;
    std::shared_ptr<const AudioFormatDescription> audio;
    {
        std::lock_guard lock(_mutex);
        video = _videoFormatDescription;
        audio = _audioFormatDescription;
    }
    // A storage whose cache file could not be made cannot take samples.
    const auto makeStorage = []() -> std::shared_ptr<SCResourceStorage> {
        auto storage = SCResourceStorage::create();
        const auto path = storage->cacheFile();
        if (path && ::access(path->c_str(), W_OK) == 0) return storage;
        storage->cleanCache();
        return nullptr;
    };
    bool ready = true;
    if (video) {
        _videoStorage = makeStorage();
        _videoBlocks.clear();
        ready = _videoStorage != nullptr;
    }
    if (audio && ready) {
        _audioStorage = makeStorage();
        _audioBlocks.clear();
        ready = _audioStorage != nullptr;
    }
    if (ready) startJournal();
    std::lock_guard lock(_mutex);
    if (!ready) {
        transitionToStatus(StatusFailed, cannotSetupInputError());
        return;
    }
    transitionToStatus(StatusWriting, nullptr);
}

void SCMovieWritter::startJournal() {
    SCRecordingJournalHeader header;
    header.creationDate = std::chrono::system_clock::now();
    {
        std::lock_guard lock(_mutex);
        if (_videoFormatDescription) {
            header.width = _videoFormatDescription->width();
            header.height = _videoFormatDescription->height();
        }
        if (_audioFormatDescription) {
            const AudioStreamBasicDescription& description = _audioFormatDescription->streamDescription();
            header.sampleRate = static_cast<int64_t>(description.mSampleRate);
            header.numberOfChannels = description.mChannelsPerFrame;
            header.sampleFormat = sampleFormatFromDescription(&description);
        }
    }
    _journal = SCRecordingJournal::createInDirectory(SCResourceStorage::pathOfResourceStoragePath(), header,
                                                     _videoStorage, _audioStorage);
    if (_journal) startJournalTicker();
}

void SCMovieWritter::startJournalTicker() {
    auto stop = std::make_shared<DispatchSemaphore>(0);
    _journalTickerStop = stop;
    DispatchQueue::global(DispatchQueue::Priority::Background).async([weakSelf = weak_from_this(), stop] {
        while (!stop->wait(SCRecordingJournal::syncInterval)) {
            const auto self = weakSelf.lock();
            if (!self) return;
            self->writingQueue().async([self] { self->syncJournal(); });
        }
    });
}

void SCMovieWritter::syncJournal() {
    if (!_journal) return;
    const Status current = status();
    if (current != StatusWriting && current != StatusFinishing) return;
    if (!_journal->syncIfDue()) {
        std::lock_guard lock(_mutex);
        transitionToStatus(StatusFailed, nullptr);
    }
}

void SCMovieWritter::closeJournal() {
    if (_journalTickerStop) _journalTickerStop->signal();
    _journalTickerStop.reset();
    if (_journal) _journal->remove();
    _journal.reset();
}

void SCMovieWritter::finishRecording() {
    {
        std::lock_guard lock(_mutex);
        if (_status == StatusFailed) {
            QMLog("Writing has failed, nothing to do.");
            return;
        }
        if (_status != StatusWriting) {
            QMLog("Not writing.");
            return;
        }
        transitionToStatus(StatusFinishing, nullptr);
    }
    writingQueue().async([self = shared_from_this()] { self->finishOnWritingQueue(); });
}

void SCMovieWritter::finishOnWritingQueue() {
    {
        std::lock_guard lock(_mutex);
        if (_status != StatusFinishing) return;
        transitionToStatus(StatusFlushing, nullptr);
    }
    if (_videoStorage) _videoStorage->flushCacheBuffer();
    if (_audioStorage) _audioStorage->flushCacheBuffer();
    closeJournal();
    std::lock_guard lock(_mutex);
    transitionToStatus(StatusFinished, nullptr);
}

// MARK: - Appending

void SCMovieWritter::appendVideoSampleBuffer(std::shared_ptr<VideoSampleBuffer> sampleBuffer) {
    if (!sampleBuffer) return;
    appendSampleBuffer(std::make_shared<PendingSample>(PendingSample{AVMediaTypeVideo, std::move(sampleBuffer), {}}));
}

void SCMovieWritter::appendAudioSampleBuffer(std::shared_ptr<MediaSampleBuffer> sampleBuffer) {
    if (!sampleBuffer) return;
    appendSampleBuffer(std::make_shared<PendingSample>(PendingSample{AVMediaTypeAudio, {}, std::move(sampleBuffer)}));
}

void SCMovieWritter::appendVideoPixelBuffer(std::shared_ptr<const PixelBuffer> pixelBuffer, CMTime presentationTime) {
    auto sampleBuffer = VideoSampleBuffer::create(std::move(pixelBuffer), presentationTime, CMTime{});
    if (!sampleBuffer) {
        QMLog("Sample buffer create failed (%i)", kSampleBufferInvalidMediaFormat);
        return;
    }
    appendVideoSampleBuffer(std::move(sampleBuffer));
}

void SCMovieWritter::appendSampleBuffer(std::shared_ptr<PendingSample> sample) {
    std::lock_guard lock(_mutex);
    if (_status < StatusWriting) {
        QMLog("Not ready to write yet.");
        return;
    }
    encodeSampleBuffer(std::move(sample));
}

void SCMovieWritter::encodeSampleBuffer(std::shared_ptr<PendingSample> sample) {
    writingQueue().async([self = shared_from_this(), sample = std::move(sample)] { self->writeSample(*sample); });
}

void SCMovieWritter::writeSample(const PendingSample& sample) {
    {
        std::lock_guard lock(_mutex);
        if (_status > StatusFinishing) return;
    }
    const CMTime time = sample.presentationTime();
    if (!_sessionStarted) {
        _startSessionTime = time;
        _sessionStarted = true;
    }
    if (compareTimes(time, _startSessionTime) <= 0) {
        QMLog("Ignore sample buffer(%s) befor start session time.", sample.mediaType);
        return;
    }
    const CMTime presentTime = subtractTimes(time, _startSessionTime);
    bool written = true;
    if (sample.audio && _audioStorage) {
        written = writeAudioSampleBuffer(*sample.audio);
    } else if (sample.video && _videoStorage) {
        written = writeVideoSampleBuffer(*sample.video, presentTime);
    } else {
        QMLog("ignore media type: %s.", sample.mediaType);
    }
    if (!written) {
        std::lock_guard lock(_mutex);
        transitionToStatus(StatusFailed, nullptr);
    }
}

bool SCMovieWritter::writeAudioSampleBuffer(const MediaSampleBuffer& sampleBuffer) {
    if (!sampleBuffer.dataIsReady()) {
        QMLog("Failed to get audio sample block buffer");
        return false;
    }
    uint64_t startSample = 0;
    uint64_t offset = 0;
    if (!_audioBlocks.empty()) {
        const auto& last = *_audioBlocks.back();
        startSample = last.indexOfSamples() + last.numberOfSamples();
        offset = last.offset() + last.length();
    }
    std::shared_ptr<const AudioFormatDescription> format;
    {
        std::lock_guard lock(_mutex);
        format = _audioFormatDescription;
    }
    const AudioStreamBasicDescription* description = format ? &format->streamDescription() : nullptr;
    const int32_t sampleFormat = sampleFormatFromDescription(description);
    if (sampleFormat == -1) {
        QMLog("Can not support sample format");
        return false;
    }
    const std::vector<uint8_t>& bytes = sampleBuffer.bytes();
    const auto numberOfSamples = static_cast<int32_t>(bytes.size() / description->mBytesPerFrame);
    const auto frame =
        QVAudioFrame2::create(sampleFormat, static_cast<int32_t>(description->mChannelsPerFrame),
                              static_cast<int32_t>(description->mSampleRate), numberOfSamples, bytes.data());
    if (!frame) {
        QMLog("Failed to get audio buffer");
        return false;
    }
    const std::vector<uint8_t> archive = SCResource::encodeAudioFrame(frame);
    _audioBlocks.push_back(
        SCAudioBlock::createWithOffset(offset, archive.size(), startSample, static_cast<uint64_t>(numberOfSamples)));
    _audioStorage->appendData(archive);
    if (!_journal) return true;
    _journal->appendAudioBlock(*_audioBlocks.back());
    return _journal->syncIfDue();
}

bool SCMovieWritter::writeVideoSampleBuffer(const VideoSampleBuffer& sampleBuffer, CMTime presentTime) {
    const auto& pixelBuffer = sampleBuffer.imageBuffer();
    if (!pixelBuffer) {
        QMLog("Failed to get pixel buffer");
        return false;
    }
    std::vector<uint8_t> jpeg = jpegEncoder().encodeImageBuffer(*pixelBuffer);
    if (jpeg.empty() && pixelBuffer->pixelFormat() == pixelFormatForType(kCVPixelFormatType_32BGRA)) {
        jpeg = SCResource::encodeCGImage(
            QMCommon::convertFromCVPixelBuffer(pixelBuffer->plane(0), pixelBuffer->width(), pixelBuffer->height(),
                                               pixelBuffer->bytesPerRow(0), PixelFormat::BGRA8));
    }
    if (jpeg.empty()) {
        QMLog("Failed to save image to data");
        return false;
    }
    const int64_t t = timestampOf(presentTime);
    uint64_t offset = 0;
    if (!_videoBlocks.empty()) {
        const auto last = _videoBlocks.back();
        offset = last->offset() + last->length();
        if (last->duration() != t - last->timestamp()) {
            _videoBlocks.back() = SCVideoBlock::createWithOffset(last->offset(), last->length(), last->timestamp(),
                                                                 t - last->timestamp());
        }
    }
    _videoBlocks.push_back(SCVideoBlock::createWithOffset(offset, jpeg.size(), t, timestampOf(_frameDuration), 0));
    _videoStorage->appendData(jpeg);
    if (!_journal) return true;
    _journal->appendVideoBlock(*_videoBlocks.back());
    return _journal->syncIfDue();
}

int32_t SCMovieWritter::sampleFormatFromDescription(const AudioStreamBasicDescription* description) {
    if (!description) return -1;
    const uint32_t flags = description->mFormatFlags;
    switch (description->mBitsPerChannel) {
        case 16:
            return (flags & 12) == 12 ? QVSampleFormatS16 : -1;
        case 32:
            if ((flags & 9) == 9) return QVSampleFormatFLT;
            return (flags & 12) == 12 ? QVSampleFormatS32 : -1;
        default:
            return -1;
    }
}

// MARK: - Outcome

void SCMovieWritter::transitionToStatus(Status status, std::shared_ptr<const SCError> error) {
    if (_status == status) return;
    _status = status;
    if (status != StatusWriting && status != StatusFinished && status != StatusFailed) return;
    _callbackQueue->async([self = shared_from_this(), error = std::move(error)] { self->deliverStatus(error); });
}

void SCMovieWritter::deliverStatus(std::shared_ptr<const SCError> error) {
    const auto delegate = _delegate.lock();
    switch (status()) {
        case StatusWriting:
            if (delegate) delegate->SCMovieWritterDidFinishPreparing(*this);
            break;
        case StatusFinished: {
            auto resource = SCResource::createWithAudio(makeAudioResource(), makeVideoResource());
            if (delegate) delegate->SCMovieWritterDidFinishWritting(*this, std::move(resource));
            teardownAssetWriterAndInputs(true);
            break;
        }
        case StatusFailed:
            if (delegate) delegate->SCMovieWritterDidFailWithError(*this, std::move(error));
            teardownAssetWriterAndInputs(false);
            break;
        default:
            QMLog("Unexpected writing status for delegate callback");
            break;
    }
}

void SCMovieWritter::teardownAssetWriterAndInputs(bool keep) {
    writingQueue().async([self = shared_from_this(), keep] {
        if (!keep) {
            if (self->_videoStorage) self->_videoStorage->cleanCache();
            if (self->_audioStorage) self->_audioStorage->cleanCache();
        }
        self->closeJournal();
        self->_videoStorage.reset();
        self->_audioStorage.reset();
        self->_videoBlocks.clear();
        self->_audioBlocks.clear();
    });
}

std::shared_ptr<SCAudioResource> SCMovieWritter::makeAudioResource() {
    std::shared_ptr<const AudioFormatDescription> format;
    {
        std::lock_guard lock(_mutex);
        format = _audioFormatDescription;
    }
    if (!format) return nullptr;
    const AudioStreamBasicDescription& description = format->streamDescription();
    const int32_t sampleFormat = sampleFormatFromDescription(&description);
    if (sampleFormat == -1) {
        QMLog("Unsupport audio format");
        return nullptr;
    }
    std::shared_ptr<SCAudioResource> resource;
    writingQueue().sync([&] {
        resource = SCAudioResource::createWithDataStorage(_audioStorage, _audioBlocks,
                                                          static_cast<int64_t>(description.mSampleRate),
                                                          description.mChannelsPerFrame, sampleFormat, 0);
    });
    return resource;
}

std::shared_ptr<SCVideoResource> SCMovieWritter::makeVideoResource() {
    std::shared_ptr<const VideoFormatDescription> format;
    {
        std::lock_guard lock(_mutex);
        format = _videoFormatDescription;
    }
    if (!format) return nullptr;
    std::shared_ptr<SCVideoResource> resource;
    writingQueue().sync([&] {
        resource = SCVideoResource::createWithStorage(_videoStorage, _videoBlocks, format->width(), format->height());
    });
    return resource;
}

// MARK: - Diagnostics and errors

void SCMovieWritter::logCurrentTime(CMTime time, const std::string& type) {
    QMLog("%s, Value: %lld, Scale: %d, flag: %u, epon: %lld", type.c_str(), static_cast<long long>(time.value),
          time.timescale, time.isValid() ? 1u : 0u, 0LL);
}

std::shared_ptr<const SCError> SCMovieWritter::cannotSetupInputError() {
    return std::make_shared<const SCError>(
        SCError{"com.quorvia.screenrecorder",
                0,
                {{"NSLocalizedDescriptionKey", "Recording cannot be started"},
                 {"NSLocalizedFailureReasonErrorKey", "Cannot setup asset writer input."}}});
}

}  // namespace qm
