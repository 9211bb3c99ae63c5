#include "export/FMAssetWriter.h"

#include <chrono>
#include <filesystem>

#include "codec/MovieWriter.h"
#include "codec/PixelBufferPool.h"
#include "codec/QVTimebase.h"
#include "image/RenderContext.h"
#include "platform/Dispatch.h"
#include "platform/Log.h"

namespace qm {

namespace {

constexpr int kPixelBufferPoolMinimumBufferCount = 20;
// Appends an input may hold before it is no longer ready: as many as the pool has buffers.
constexpr int kInputBacklogLimit = kPixelBufferPoolMinimumBufferCount;
constexpr int32_t kPresentTimeScale = 90000;
constexpr auto kInputReadyWait = std::chrono::nanoseconds(100000000);
constexpr int kMaxInputReadyWaits = 10;

std::optional<MovieContainer> containerForFileType(std::string_view fileType) {
    if (fileType == AVFileTypeMPEG4) return MovieContainer::MPEG4;
    if (fileType == AVFileTypeQuickTimeMovie) return MovieContainer::QuickTime;
    if (fileType == AVFileTypeAppleM4A) return MovieContainer::M4A;
    if (fileType == AVFileTypeMPEGLayer3) return MovieContainer::MP3;
    if (fileType == AVFileTypeWAVE) return MovieContainer::WAVE;
    return std::nullopt;
}

std::optional<MovieAudioCodec> audioCodecForFormat(uint32_t formatID) {
    switch (formatID) {
        case kAudioFormatMPEG4AAC:
        case kAudioFormatMPEG4AAC_HE:
            return MovieAudioCodec::AAC;
        case kAudioFormatMPEGLayer3:
            return MovieAudioCodec::MP3;
        case kAudioFormatAppleIMA4:
            return MovieAudioCodec::IMAADPCM;
        case kAudioFormatLinearPCM:
            return MovieAudioCodec::LinearPCM;
    }
    return std::nullopt;
}

bool isAAC(uint32_t formatID) { return formatID == kAudioFormatMPEG4AAC || formatID == kAudioFormatMPEG4AAC_HE; }

}  // namespace

std::shared_ptr<FMAssetWriter> FMAssetWriter::createWithFileType(std::string_view fileType,
                                                                 const std::string& outPath) {
    return std::shared_ptr<FMAssetWriter>(new FMAssetWriter(fileType, outPath));
}

FMAssetWriter::FMAssetWriter(std::string_view fileType, const std::string& outPath)
    : _fileType(fileType),
      _outURL(outPath),
      _videoCodec(AVVideoCodecTypeH264),
      _formatID(audioFormatForFileType(fileType)) {}

FMAssetWriter::~FMAssetWriter() = default;

uint32_t FMAssetWriter::audioFormatForFileType(std::string_view fileType) {
    if (fileType == AVFileTypeMPEG4 || fileType == AVFileTypeAppleM4A || fileType == AVFileTypeQuickTimeMovie) {
        return kAudioFormatMPEG4AAC;
    }
    if (fileType == AVFileTypeMPEGLayer3) return kAudioFormatMPEGLayer3;
    if (fileType == AVFileTypeWAVE) return kAudioFormatAppleIMA4;
    return kAudioFormatLinearPCM;
}

bool FMAssetWriter::allowVideoStreamForFileType(std::string_view fileType) {
    return fileType == AVFileTypeQuickTimeMovie || fileType == AVFileTypeMPEG4;
}

bool FMAssetWriter::addVideoStreamWithWidth(int64_t width, int64_t height, double frameRate, std::string_view codec) {
    if (allowVideoStreamForFileType(_fileType)) {
        _width = width;
        _height = height;
        _frameRate = frameRate;
        _videoCodec = codec;
        _videoValidate = true;
    }
    return false;
}

bool FMAssetWriter::addVideoStreamWithWidth(int64_t width, int64_t height, std::string_view codec) {
    return addVideoStreamWithWidth(width, height, 30.0, codec);
}

bool FMAssetWriter::addVideoStreamWithWidth(int64_t width, int64_t height, double frameRate) {
    return addVideoStreamWithWidth(width, height, frameRate, AVVideoCodecTypeH264);
}

bool FMAssetWriter::addVideoStreamWithWidth(int64_t width, int64_t height) {
    return addVideoStreamWithWidth(width, height, 30.0, AVVideoCodecTypeH264);
}

void FMAssetWriter::addAudioStreamWithAudioStreamDescription(const AudioStreamBasicDescription& description) {
    _audioStreamBasicDescription = description;
    _audioValidate = true;
}

int64_t FMAssetWriter::videoBitrate() const { return _width * _height * 6; }

bool FMAssetWriter::checkConfig() const {
    if (_fileType == AVFileTypeMPEG4 || _fileType == AVFileTypeQuickTimeMovie) {
        return _width >= 1 && _height >= 1 && isAAC(_formatID);
    }
    if (_fileType == AVFileTypeAppleM4A) return isAAC(_formatID);
    if (_fileType == AVFileTypeMPEGLayer3) return _formatID == kAudioFormatMPEGLayer3;
    if (_fileType == AVFileTypeWAVE) return _formatID == kAudioFormatAppleIMA4 || _formatID == kAudioFormatLinearPCM;
    return false;
}

bool FMAssetWriter::startWriter() {
    if (!checkConfig()) return false;
    std::error_code error;
    if (std::filesystem::exists(std::filesystem::symlink_status(_outURL, error)) &&
        !std::filesystem::remove(_outURL, error)) {
        QMLog("The file(%s) allready exists, can not remove(%s).", _outURL.c_str(), error.message().c_str());
        return false;
    }
    std::string openError;
    _assetWriter = MovieWriter::create(_outURL, *containerForFileType(_fileType), &openError);
    if (!_assetWriter) {
        QMLog("%s", openError.c_str());
        return false;
    }
    if (allowVideoStreamForFileType(_fileType) && !setupVideoStream()) return false;
    if (_audioValidate && !setupAudioStream()) return false;
    if (!_assetWriter->startWriting()) {
        QMLog("Error: %s", _assetWriter->errorDescription().c_str());
        return false;
    }
    return true;
}

bool FMAssetWriter::setupVideoStream() {
    if (_videoCodec != AVVideoCodecTypeH264 || _width < 1 || _height < 1 || !(_frameRate > 0)) return false;
    MovieVideoSettings settings{.width = static_cast<int>(_width),
                                .height = static_cast<int>(_height),
                                .frameRate = _frameRate,
                                .averageBitRate = videoBitrate(),
                                .maxKeyFrameInterval = std::max(1, static_cast<int>(_frameRate))};
    _videoWriterInput = _assetWriter->addVideoInput(settings, kInputBacklogLimit);
    if (!_videoWriterInput) {
        logWriterError("%s");
        return false;
    }
    return createPixelBufferPool();
}

bool FMAssetWriter::createPixelBufferPool() {
    _pixelBufferPool = PixelBufferPool::create(static_cast<int>(_width), static_cast<int>(_height),
                                               _videoWriterInput->pixelFormat(), kPixelBufferPoolMinimumBufferCount);
    if (!_pixelBufferPool) {
        QMLog("Failed to create pixel buffer.");
        return false;
    }
    return true;
}

bool FMAssetWriter::setupAudioStream() {
    const std::optional<MovieAudioCodec> codec = audioCodecForFormat(_formatID);
    const double rate = _audioStreamBasicDescription.mSampleRate;
    const uint32_t channels = _audioStreamBasicDescription.mChannelsPerFrame;
    if (!codec || !MovieWriter::canAddAudio(*containerForFileType(_fileType), *codec) || !(rate >= 1) ||
        channels == 0) {
        return false;
    }
    MovieAudioSettings settings{
        .codec = *codec, .sampleRate = static_cast<int>(rate), .channelCount = static_cast<int>(channels)};
    _audioWriterInput = _assetWriter->addAudioInput(settings, kInputBacklogLimit);
    if (!_audioWriterInput) {
        logWriterError("%s");
        return false;
    }
    _totalSampleInput = 0;
    return true;
}

bool FMAssetWriter::waitWriteInputReady(const MovieWriterInput& input) {
    if (input.isReadyForMoreMediaData()) return true;
    int waits = 0;
    do {
        DispatchSemaphore unsignalled(0);
        unsignalled.wait(kInputReadyWait);
        ++waits;
    } while (!input.isReadyForMoreMediaData() && waits <= kMaxInputReadyWaits);
    return waits <= kMaxInputReadyWaits;
}

bool FMAssetWriter::appendCIImage(const Image& image, int64_t timestamp) {
    std::shared_ptr<PixelBuffer> pixelBuffer = _pixelBufferPool ? _pixelBufferPool->createPixelBuffer() : nullptr;
    if (!pixelBuffer) {
        _failed = true;
        return false;
    }
    rendCIImage(image, *pixelBuffer);
    const CMTime presentTime =
        CMTime::makeWithSeconds(static_cast<double>(timestamp) / static_cast<double>(QVTimebase), kPresentTimeScale);
    return appendPixelBuffer(std::move(pixelBuffer), presentTime);
}

bool FMAssetWriter::rendCIImage(const Image& image, PixelBuffer& pixelBuffer) {
    YUVPlanes planes;
    planes.y = pixelBuffer.mutablePlane(0);
    planes.yRowBytes = pixelBuffer.bytesPerRow(0);
    planes.u = pixelBuffer.mutablePlane(1);
    planes.uRowBytes = pixelBuffer.bytesPerRow(1);
    planes.v = pixelBuffer.mutablePlane(2);
    planes.vRowBytes = pixelBuffer.bytesPerRow(2);
    const Rect bounds{{0, 0}, {static_cast<double>(_width), static_cast<double>(_height)}};
    context().renderYUV420(image, bounds, planes);
    return true;
}

bool FMAssetWriter::appendPixelBuffer(std::shared_ptr<PixelBuffer> pixelBuffer, CMTime presentTime) {
    bool appended = false;
    writeQueue().sync([&] {
        if (!_videoWriterInput || !waitWriteInputReady(*_videoWriterInput)) {
            logWriterError("Video input is not ready(%s)");
            return;
        }
        appended = _videoWriterInput->appendPixelBuffer(std::move(pixelBuffer), presentTime);
        if (!appended) logWriterError("%s");
    });
    if (!appended) _failed = true;
    return appended;
}

bool FMAssetWriter::appendPCMData(std::vector<uint8_t> data, const AudioStreamBasicDescription& description) {
    uint32_t channelLayoutTag = 0;
    if (description.mChannelsPerFrame == 2) {
        channelLayoutTag = kAudioChannelLayoutTag_Stereo;
    } else if (description.mChannelsPerFrame == 1) {
        channelLayoutTag = kAudioChannelLayoutTag_Mono;
    } else {
        QMLog("Can not support channel above 2 channels");
        return false;
    }
    const int64_t sampleCount =
        description.mBytesPerFrame > 0 ? static_cast<int64_t>(data.size() / description.mBytesPerFrame) : 0;
    const auto rate = static_cast<int32_t>(description.mSampleRate);
    const CMTime durationPerSample = CMTime::make(1, rate);
    const CMTime presentationTime = CMTime::make(_totalSampleInput, rate);

    auto format = AudioFormatDescription::create(description, channelLayoutTag);
    if (!format) {
        QMLog("Failed to create audio format description");
        return false;
    }
    auto sampleBuffer = MediaSampleBuffer::create(std::move(format), sampleCount, durationPerSample, presentationTime);
    if (!sampleBuffer) {
        QMLog("Failed to allocate sample buffer");
        return false;
    }
    if (!sampleBuffer->setDataBuffer(std::move(data))) {
        QMLog("Failed to convert audio buffer list into sample buffer");
        return false;
    }
    if (!appendAudioCMSampleBuffer(std::move(sampleBuffer))) return false;
    _totalSampleInput += sampleCount;
    return true;
}

bool FMAssetWriter::appendAudioCMSampleBuffer(std::shared_ptr<const MediaSampleBuffer> sampleBuffer) {
    bool appended = false;
    writeQueue().sync([&] {
        if (!_audioWriterInput || !waitWriteInputReady(*_audioWriterInput)) {
            logWriterError("Audio input is not ready(%s)");
            return;
        }
        appended = _audioWriterInput->appendSampleBuffer(std::move(sampleBuffer));
        if (!appended) logWriterError("%s");
    });
    if (!appended) _failed = true;
    return appended;
}

bool FMAssetWriter::finishWriter() {
    if (!_assetWriter) return false;
    bool finished = false;
    DispatchSemaphore done(0);
    writeQueue().async([&] {
        finished = _assetWriter->finishWriting();
        done.signal();
    });
    done.wait();
    _assetWriter = nullptr;
    _videoWriterInput = nullptr;
    _audioWriterInput = nullptr;
    _pixelBufferPool = nullptr;
    if (!finished) _failed = true;
    return finished;
}

DispatchQueue& FMAssetWriter::writeQueue() {
    if (!_writeQueue) _writeQueue = DispatchQueue::createSerial();
    return *_writeQueue;
}

const RenderContext& FMAssetWriter::context() {
    if (!_context) _context = RenderContext::create();
    return *_context;
}

void FMAssetWriter::logWriterError(const char* format) {
    const std::string error = _assetWriter ? _assetWriter->errorDescription() : std::string();
    QMLog(format, error.empty() ? "(null)" : error.c_str());
}

}  // namespace qm
