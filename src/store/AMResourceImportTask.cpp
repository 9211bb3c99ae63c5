#include "store/AMResourceImportTask.h"

#include <unistd.h>

#include <algorithm>
#include <deque>
#include <filesystem>
#include <optional>
#include <thread>

#include "codec/QVTimebase.h"
#include "foundation/QMCommon.h"
#include "platform/Dispatch.h"
#include "store/SCAudioResource.h"
#include "store/SCImageResource.h"
#include "store/SCVideoResource.h"

namespace qm {

namespace {

std::string fileNameOf(const std::string& path) { return std::filesystem::path(path).filename().string(); }

std::string nameWithoutExtension(const std::string& path) { return std::filesystem::path(path).stem().string(); }

std::string lowercaseExtension(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    if (!extension.empty()) extension.erase(0, 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

// There is no sandbox here: scoped access is granted when this process may read the file.
bool startAccessingSecurityScopedResource(const std::string& path) { return ::access(path.c_str(), R_OK) == 0; }

DispatchQueue& backgroundQueue() { return DispatchQueue::global(DispatchQueue::Priority::Background); }

void callOnMainQueue(const AMResourceImportTask::Handler& handler, int32_t phase, const AMTaskInfo* info,
                     bool* answer = nullptr) {
    DispatchQueue::main().sync([&] {
        const bool result = handler(phase, info);
        if (answer) *answer = result;
    });
}

// A video frame whose JPEG is being made on the pool.
struct FrameInFlight {
    std::shared_ptr<QVVideoFrame> frame;
    std::vector<uint8_t> jpeg;
    DispatchSemaphore encoded;
};

// Where a landed frame's JPEG lies in the storage, and the frame's time.
struct StoredFrame {
    uint64_t offset;
    uint64_t length;
    int64_t timestamp;
};

}  // namespace

std::shared_ptr<AMResourceImportResult> AMResourceImportResult::createWithResource(
    std::vector<std::shared_ptr<SCResource>> resources, std::vector<std::string> failureURLs,
    std::vector<std::string> errorDescription) {
    std::shared_ptr<AMResourceImportResult> result(new AMResourceImportResult());
    result->_importResources = std::move(resources);
    result->_failureUrls = std::move(failureURLs);
    result->_errorDescription = std::move(errorDescription);
    return result;
}

std::shared_ptr<AMResourceImportTask> AMResourceImportTask::create(AMResourceMgr& manager) {
    return std::shared_ptr<AMResourceImportTask>(new AMResourceImportTask(manager));
}

std::shared_ptr<SCAudioResource> AMResourceImportTask::audioResource() const {
    std::lock_guard<std::mutex> lock(_resourcesMutex);
    return _audioResource;
}

std::shared_ptr<SCVideoResource> AMResourceImportTask::videoResource() const {
    std::lock_guard<std::mutex> lock(_resourcesMutex);
    return _videoResource;
}

const QVJPEGEncoderHW& AMResourceImportTask::jpegEncoder() {
    std::call_once(_encoderOnce, [this] { _jpegEncoderHW = QVJPEGEncoderHW::createWithQuality(70, false, 400, 300); });
    return *_jpegEncoderHW;
}

void AMResourceImportTask::importURLs(const std::vector<std::string>& urls, bool ignoreVideo, Handler handler) {
    std::vector<AMImportInfo> infos;
    for (const std::string& url : urls) {
        AMImportInfo info;
        info.url = url;
        info.signture = QMCommon::calcSigntureWithURL(url);
        if (!info.signture->empty()) info.resource = _manager.findResourceWithSignture(*info.signture, AMResourceTypeUser);
        infos.push_back(std::move(info));
    }
    importInfos(std::move(infos), std::move(handler), ignoreVideo);
}

void AMResourceImportTask::importMediaObjects(const std::vector<std::shared_ptr<AMMediaObject>>& objects,
                                              bool ignoreVideo, Handler handler) {
    std::vector<AMImportInfo> infos;
    for (const auto& object : objects) {
        AMImportInfo info;
        info.url = object->URL();
        info.identifier = object->identifier();
        info.resource = _manager.findResourceWithIdentifier(*info.identifier, AMResourceTypeITunes);
        info._needStartSecurityAccess = true;
        infos.push_back(std::move(info));
    }
    importInfos(std::move(infos), std::move(handler), ignoreVideo);
}

void AMResourceImportTask::importInfos(std::vector<AMImportInfo> infos, Handler handler, bool ignoreVideo) {
    _userCancel = false;
    backgroundQueue().async([self = shared_from_this(), infos = std::move(infos), handler = std::move(handler),
                             ignoreVideo] { self->run(infos, handler, ignoreVideo); });
}

void AMResourceImportTask::run(const std::vector<AMImportInfo>& infos, const Handler& handler, bool ignoreVideo) {
    if (handler) callOnMainQueue(handler, phaseStart, nullptr);
    std::vector<std::shared_ptr<SCResource>> resources;
    std::vector<std::string> failures;
    std::vector<std::string> texts;
    auto fail = [&](const std::string& url, const std::string& text) {
        failures.push_back(url);
        texts.push_back(text);
    };
    for (const AMImportInfo& info : infos) {
        if (info.resource) {
            resources.push_back(info.resource);
            continue;
        }
        if (info._needStartSecurityAccess && !startAccessingSecurityScopedResource(info.url)) {
            fail(info.url, noAccessRightsText);
            continue;
        }
        std::string error;
        auto resource = importInfo(info, &error, handler, ignoreVideo);
        if (resource) {
            resources.push_back(std::move(resource));
        } else if (_userCancel) {
            break;
        } else {
            fail(info.url, error.empty() ? noPictureText : error);
        }
    }
    if (!handler) return;
    AMTaskInfo end;
    end.percent = 100.0;
    end.representObject = AMResourceImportResult::createWithResource(resources, failures, texts);
    end.errorCode = _userCancel ? 2 : failures.empty() ? 0 : 1;
    callOnMainQueue(handler, phaseEnd, &end);
}

std::shared_ptr<SCResource> AMResourceImportTask::importInfo(const AMImportInfo& info, std::string* error,
                                                             const Handler& handler, bool ignoreVideo) {
    const auto& pictureTypes = SCImageResource::supportImageTypes();
    if (std::find(pictureTypes.begin(), pictureTypes.end(), lowercaseExtension(info.url)) != pictureTypes.end()) {
        return importPicture(info, handler);
    }
    return importMedia(info, error, handler, ignoreVideo);
}

std::shared_ptr<SCResource> AMResourceImportTask::importPicture(const AMImportInfo& info, const Handler& handler) {
    auto image = SCImageResource::createWithURL(info.url);
    if (!image || image->numberOfImages() < 1) return nullptr;
    const bool byIdentifier = info.identifier && !info.identifier->empty();
    auto record = byIdentifier ? SCResource::createWithIdentifierImage(*info.identifier, image)
                               : SCResource::createWithSigntureImage(info.signture.value_or(""), image);
    if (!record) return nullptr;
    record->setOriginalPath(info.url);
    record->setHumanReadableName(nameWithoutExtension(info.url));
    _manager.addResource(record, info._needStartSecurityAccess ? AMResourceTypePhotos : AMResourceTypeUser);
    if (handler) {
        AMTaskInfo progress;
        progress.percent = 100.0;
        progress.msgInfo = fileNameOf(info.url);
        bool answer = false;
        callOnMainQueue(handler, phaseProgress, &progress, &answer);
        _userCancel = answer;
    }
    return record;
}

std::shared_ptr<SCResource> AMResourceImportTask::importMedia(const AMImportInfo& info, std::string* error,
                                                              const Handler& handler, bool ignoreVideo) {
    auto context = QVDemuxerContext::createWithFilename(info.url);
    if (!context) {
        if (error) *error = cannotOpenText;
        return nullptr;
    }
    const auto artwork = context->attachPicture();
    const bool audio = context->audioStreamExist();
    const bool video = context->videoStreamExist() && !ignoreVideo;
    if (ignoreVideo) context->disableVideoStream(true);

    DispatchGroup group;
    if (audio) {
        group.async(backgroundQueue(), [&] { decodeAudio(*context, handler, !video); });
    }
    if (video) {
        group.async(backgroundQueue(), [&] { decodeVideo(*context, handler); });
    }
    group.wait();
    if (_userCancel) return nullptr;

    auto audioResource = this->audioResource();
    if (artwork && audioResource) audioResource->setArtworkImage(artwork->cgImage());
    auto videoResource = this->videoResource();
    const bool byIdentifier = info.identifier && !info.identifier->empty();
    auto record = byIdentifier ? SCResource::createWithIdentifierAudioVideo(*info.identifier, audioResource, videoResource)
                               : SCResource::createWithSigntureAudioVideo(info.signture.value_or(""), audioResource,
                                                                           videoResource);
    if (!record) return nullptr;
    record->setOriginalPath(info.url);
    record->setHumanReadableName(nameWithoutExtension(info.url));
    _manager.addResource(record, info._needStartSecurityAccess ? AMResourceTypeITunes : AMResourceTypeUser);
    return record;
}

bool AMResourceImportTask::reportProgress(const Handler& handler, double percent, const std::string& fileName) {
    AMTaskInfo progress;
    progress.percent = percent;
    progress.msgInfo = fileName;
    bool answer = false;
    callOnMainQueue(handler, phaseProgress, &progress, &answer);
    _userCancel = answer;
    return answer;
}

void AMResourceImportTask::decodeAudio(QVDemuxerContext& context, const Handler& handler, bool sendProgress) {
    auto storage = SCResourceStorage::create();
    std::vector<std::shared_ptr<SCAudioBlock>> blocks;
    const auto expected = static_cast<float>(
        QMMultiplyDivide(context.audioStreamLength(), context.audioSampleRate(), QVTimebase));
    const std::string fileName = fileNameOf(context.pathfile());
    uint64_t offset = 0;
    uint64_t sampleIndex = 0;
    bool cancelled = false;
    // Frames all come in the first one's format, which may differ from the stream's stated one.
    std::shared_ptr<QVAudioFrame2> first;
    for (int64_t frameIndex = 0; !cancelled; ++frameIndex) {
        const auto frame = context.decodeNextAudioFrame();
        if (!frame) break;
        if (!first) first = frame;
        // A frame's archive holds its samples packed, so a planar decode archives as its packed twin.
        const std::vector<uint8_t> bytes = SCResource::encodeAudioFrame(frame);
        blocks.push_back(SCAudioBlock::createWithOffset(offset, bytes.size(), sampleIndex,
                                                        static_cast<uint64_t>(frame->numberOfSamples())));
        storage->appendData(bytes);
        sampleIndex += static_cast<uint64_t>(frame->numberOfSamples());
        if (frameIndex % 3 == 0 && sendProgress && handler) {
            const float percent = expected > 0.0f ? static_cast<float>(sampleIndex) * 100.0f / expected : 0.0f;
            cancelled = reportProgress(handler, percent, fileName);
        }
        offset += bytes.size();
    }
    std::shared_ptr<SCAudioResource> resource;
    if (!cancelled) {
        storage->flushCacheBuffer();
        const int32_t format =
            QVAudioFrame2::packedSampleFormat(first ? first->sampleFormat() : context.audioSampleFormat());
        resource = SCAudioResource::createWithDataStorage(
            storage, std::move(blocks), first ? first->sampleRate() : context.audioSampleRate(),
            first ? first->numberOfChannel() : context.numberOfChannel(), format,
            first ? first->channelLayout() : context.channelLayout());
    }
    std::lock_guard<std::mutex> lock(_resourcesMutex);
    _audioResource = std::move(resource);
}

void AMResourceImportTask::decodeVideo(QVDemuxerContext& context, const Handler& handler) {
    auto storage = SCResourceStorage::create();
    std::vector<std::shared_ptr<SCVideoBlock>> blocks;
    const Size displaySize = context.videoDisplaySize();
    const double frameRate = context.frameRate();
    const auto frameDuration = frameRate > 0 ? static_cast<int64_t>(static_cast<double>(QVTimebase) / frameRate)
                                             : static_cast<int64_t>(static_cast<float>(QVTimebase) / 25.0f);
    const auto length = static_cast<float>(context.videoStreamLength());
    const std::string fileName = fileNameOf(context.pathfile());
    const QVJPEGEncoderHW& encoder = jpegEncoder();

    // Frames are encoded on the pool while the next ones decode; blocks land in decoding order.
    const size_t inFlightLimit = std::max(2u, std::thread::hardware_concurrency()) + 1;
    std::deque<std::shared_ptr<FrameInFlight>> inFlight;
    // A stored frame lasts until the next one's time, so its block waits for that frame.
    std::optional<StoredFrame> previous;
    auto closePrevious = [&](int64_t endTimestamp) {
        if (!previous) return;
        blocks.push_back(SCVideoBlock::createWithOffset(previous->offset, previous->length, previous->timestamp,
                                                        endTimestamp - previous->timestamp));
    };
    uint64_t offset = 0;
    int64_t frameIndex = 0;
    bool cancelled = false;
    auto landOldest = [&] {
        const std::shared_ptr<FrameInFlight> oldest = inFlight.front();
        inFlight.pop_front();
        oldest->encoded.wait();
        const int64_t timeStamp = oldest->frame->timeStamp();
        // Joined files may step back; blocks stay ascending.
        if (previous && timeStamp <= previous->timestamp) return;
        std::vector<uint8_t> bytes = std::move(oldest->jpeg);
        if (bytes.empty()) bytes = SCResource::encodeCGImage(oldest->frame->cgImage());
        closePrevious(timeStamp);
        previous = StoredFrame{offset, bytes.size(), timeStamp};
        storage->appendData(bytes);
        if (frameIndex % 3 == 0 && handler) {
            const float percent = length > 0.0f ? static_cast<float>(timeStamp) * 100.0f / length : 0.0f;
            cancelled = reportProgress(handler, percent, fileName);
        }
        ++frameIndex;
        offset += bytes.size();
    };
    while (!cancelled) {
        auto frame = context.decodeNextVideoFrame();
        if (!frame) break;
        auto pending = std::make_shared<FrameInFlight>();
        pending->frame = std::move(frame);
        backgroundQueue().async([pending, &encoder] {
            if (const auto& picture = pending->frame->cvImageBuffer()) pending->jpeg = encoder.encodeImageBuffer(*picture);
            pending->encoded.signal();
        });
        inFlight.push_back(std::move(pending));
        if (inFlight.size() >= inFlightLimit) landOldest();
    }
    while (!cancelled && !inFlight.empty()) landOldest();
    if (previous) closePrevious(previous->timestamp + frameDuration);
    for (const auto& abandoned : inFlight) abandoned->encoded.wait();

    std::shared_ptr<SCVideoResource> resource;
    if (!cancelled) {
        storage->flushCacheBuffer();
        resource = SCVideoResource::createWithStorage(storage, std::move(blocks), static_cast<int64_t>(displaySize.width),
                                                      static_cast<int64_t>(displaySize.height));
    }
    std::lock_guard<std::mutex> lock(_resourcesMutex);
    _videoResource = std::move(resource);
}

}  // namespace qm
